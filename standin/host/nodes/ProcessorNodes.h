// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Image processors, as their node tables.

#pragma once

#include <memory>

#include "standin/host/nodes/Nodes.h"

namespace XAPEL2 {
namespace StandIn {

/// A new image processor. The pointer owns it.
std::shared_ptr<const NodeTable> makeProcessor();

/// What stands behind an ImageProcessor: the nodes that it shows, and the owner of these.
struct ProcessorImpl {
    explicit ProcessorImpl(const std::shared_ptr<const NodeTable>& pNodes) : pTable(pNodes), shell(pNodes) {}

    const std::shared_ptr<const NodeTable> pTable;
    CNodeMapShell shell;
};

}  // namespace StandIn
}  // namespace XAPEL2
