// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What stands behind the nodes of a node map: functions of the owner, one table for each owner.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace StandIn {

enum eNodeKind { eIntNode, eTextNode, eEnumNode };
enum eNodeResult { eNodeDone, eNodeInvalid, eNodeDenied };

/// One node. The functions take the owner's lock themselves; a null setter makes the node read-only. What they throw
/// reaches the application as a host exception with the same text: std::invalid_argument for a value that is refused,
/// std::runtime_error for all else.
struct NodeSpec {
    std::string strName;
    eNodeKind eKind = eIntNode;
    std::function<int64_t()> fnGetInt, fnMin, fnMax;      // integers
    std::function<eNodeResult(int64_t)> fnSetInt;         // integers; checks the range
    std::function<std::string()> fnGetText;               // texts and enumerations; integers whose text says more
    std::function<eNodeResult(const char*)> fnSetText;    // as fnGetText; checks the entry
    std::function<std::vector<std::string>()> fnEntries;  // enumerations; null: the owner does not tell
};

/// The nodes of one owner; fixed once the owner stands.
using NodeTable = std::vector<NodeSpec>;

/// Entries of a node PixelFormat.
inline std::vector<std::string> formatNames(const std::vector<const PixelFormat*>& rFormats) {
    std::vector<std::string> vecNames;
    for (const PixelFormat* pFormat : rFormats) {
        vecNames.emplace_back(pFormat->pName);
    }
    return vecNames;
}

}  // namespace StandIn
}  // namespace XAPEL2
