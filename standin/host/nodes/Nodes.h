// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A node map: named integers, texts and enumerations, whose values their owner keeps under a lock of its own.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "standin/cameras/interface/NodeSpec.h"
#include "xapel2/XapelNodes.h"
#include "xapel2_standin/Host.h"

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
    /// Null when there is no owner any more.
    std::shared_ptr<const NodeTable> table() const { return m_pTable.lock(); }
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

// What the operations of a node and a node map do. An exception tells the name of the operation in hostapi/.

/// As the map found it; good for as long as the node.
const std::string& nameOf(const Node& rNode);
void setInt(const Node& rNode, int64_t iValue);
int64_t getInt(const Node& rNode);
int64_t getIntMin(const Node& rNode);
int64_t getIntMax(const Node& rNode);
void setString(const Node& rNode, const char* pValue);
void setValue(const Node& rNode, const char* pValue);
std::string getString(const Node& rNode);

bool hasNode(const NodeMap& rMap, const char* pName);
/// All of them, in the owner's order; none when the owner is gone.
std::vector<NodeInfo> describe(const NodeMap& rMap);
Node& nodeOf(const NodeMap& rMap, const char* pName);
/// Throws Xapel_NotAvailableException.
/// @param[in] pFunction  who looked for the node.
[[noreturn]] void raiseNoNode(const char* pFunction, const char* pName);

}  // namespace StandIn
}  // namespace XAPEL2
