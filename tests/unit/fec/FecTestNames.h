// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/FecHarness.h"
#include "testing/LeakCheck.h"
#include "testing/Printers.h"
#include "testing/TemporaryRoot.h"
#include "testing/TraceRecorder.h"
#include "testing/VirtualSlot.h"

// The namespace of this folder's tests, and the names from elsewhere that they use unqualified.

namespace fec_test {

using Asic::EntryState;
using Asic::LogVersion;
using Asic::MajorVersion;
using Asic::UnitId;

using LoamFec::FecTableConstants;
using LoamFec::FecTableDataModelConfigGlintEntry;
using LoamFec::FecTableDataModelEntry;
using LoamFec::FecTableDataModelEntryKey;
using LoamFec::FecTableDataModelLogEntry;
using LoamFec::FecTableDataModelLogGlintEntry;
using LoamFec::FecTableEntryLog;
using LoamFec::FecTableEntryWrapper;
using LoamFec::FecTableResolverEntry;
using LoamFec::FecTableSwTable;
using LoamFec::FecTableSwTableHelperBase;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

using testing_support::FakeDependency;
using testing_support::FecHarness;
using testing_support::HasTrace;
using testing_support::IsEq;
using testing_support::LeakCheck;
using testing_support::LeakCheckedTest;
using testing_support::RecordingResourceClient;
using testing_support::ResourceTable;
using testing_support::Response;
using testing_support::ScriptedResourceHandle;
using testing_support::TemporaryRoot;
using testing_support::TraceRecorder;
using testing_support::virtualSlot;

using Texts = std::vector<std::string>;

}  // namespace fec_test
