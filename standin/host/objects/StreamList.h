// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Walks over the streams of a device.

#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "xapel2/XapelDevice.h"

namespace XAPEL2 {
namespace StandIn {

using StreamEntry = std::pair<String, DataStream*>;

/// What stands behind an iterator: the list as it was when the walk began; the end is any position behind the last
/// entry.
struct Walk {
    std::vector<StreamEntry> vecEntries;
    std::size_t iPosition = 0;
    StreamEntry nothing{String(), nullptr};

    bool atEnd() const { return iPosition >= vecEntries.size(); }
    StreamEntry& entry() { return atEnd() ? nothing : vecEntries[iPosition]; }
};
inline Walk& walkOf(void* pImpl) {
    return *static_cast<Walk*>(pImpl);
}

// The operations of a list.

void refresh(const DataStreamList& rList);
std::size_t sizeOf(const DataStreamList& rList);
DataStreamList::iterator beginOf(const DataStreamList& rList);

}  // namespace StandIn
}  // namespace XAPEL2
