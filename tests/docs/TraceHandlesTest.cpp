// SPDX-License-Identifier: Apache-2.0

// docs/debugging.md lists the handles of traces and sets some: each of them is there.

#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TextFile.h"

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using testing_support::textOf;
using Names = std::set<std::string>;

const std::filesystem::path kSource = SOURCE_DIR;

// The first group of each match.
Names found(const std::string& text, const std::regex& pattern) {
  Names names;
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

// The names that stand as a text in a source that makes handles.
Names namesInSources() {
  Names names;
  for (const char* folder : {"src", "hardware"}) {
    for (const auto& file : std::filesystem::recursive_directory_iterator(kSource / folder)) {
      const std::string source =
          file.path().extension() == ".cpp" ? textOf(file.path()) : std::string();
      if (source.find("Zev::traceHandle(") != std::string::npos) {
        names.merge(found(source, std::regex("\"([A-Z][A-Za-z_]+)\"")));
      }
    }
  }
  return names;
}

TEST(DebuggingDocument, SetsAndListsOnlyHandlesThatAreThere) {
  const std::string document = textOf(kSource / "docs" / "debugging.md");
  Names handles;
  for (const std::string& setting : found(document, std::regex("LOAM_TRACE='([^']*)'"))) {
    handles.merge(found(setting, std::regex("([A-Za-z]+)=")));
  }
  const Names rows = found(document, std::regex("\n\\| (`[A-Z][^|]*) \\|"));
  ASSERT_THAT(handles, Not(IsEmpty()));
  ASSERT_GT(rows.size(), 3U) << "the table of handles";
  for (const std::string& row : rows) {
    handles.merge(found(row, std::regex("`([A-Z][A-Za-z]+)`")));
  }
  const Names known = namesInSources();
  for (const std::string& handle : handles) {
    EXPECT_THAT(known, Contains(handle));
  }
}

}  // namespace
