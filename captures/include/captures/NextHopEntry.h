// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "captures/Snapshot.h"
#include "records/FecRecords.h"

namespace Captures {

// The FEC entry of a next hop. Its key is the next hop's id, its interface is the next hop's, and
// the opaque fields hold the rest:
//
//   flagA    1 with a gateway, 0 without
//   opaqueA  the gateway, an IPv4 address in host byte order; 0 without one
//   opaqueB  protocol (bits 7 to 0), scope (15 to 8), flags (23 to 16)
LoamFec::FecTableDataModelEntry entryOf(const NextHop& nextHop);

// Whether two entries request the same; the destination of the interface does not count.
bool asksTheSame(const LoamFec::FecTableDataModelEntry& a,
                 const LoamFec::FecTableDataModelEntry& b);

// The gateway in dotted form; "-" without one.
Pell::String gatewayText(const LoamFec::FecTableDataModelLogEntry& entry);

}  // namespace Captures
