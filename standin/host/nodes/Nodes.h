// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A node map: named integers, texts and enumerations, whose values their owner keeps under a lock of its own.

#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "standin/cameras/interface/NodeSpec.h"
#include "xapel2/XapelNodes.h"

namespace XAPEL2 {
namespace StandIn {

/// What an application sees of a node table. It may outlive the owner: every access is refused from then on.
class CNodeMapShell {
public:
    /// @param[in] pTable  keeps the owner alive while it is used.
    explicit CNodeMapShell(const std::shared_ptr<const NodeTable>& pTable);
    ~CNodeMapShell();
    CNodeMapShell(const CNodeMapShell&) = delete;
    CNodeMapShell& operator=(const CNodeMapShell&) = delete;

    NodeMap* map() const { return m_pMap.get(); }
    bool isAlive() const { return !m_pTable.expired(); }
    /// Null when there is no such node, or no owner any more.
    Node* find(const char* pName) const;

    /// Hands the shell to the process, which keeps it for ever.
    static void keep(std::unique_ptr<CNodeMapShell> pShell);

    /// What stands behind one node.
    struct Slot {
        std::weak_ptr<const NodeTable> pTable;
        std::size_t iNode;
        std::string strName;
        std::unique_ptr<Node> pNode;
    };

private:
    std::weak_ptr<const NodeTable> m_pTable;
    std::vector<Slot> m_vecSlots;
    std::unique_ptr<NodeMap> m_pMap;
};

}  // namespace StandIn
}  // namespace XAPEL2
