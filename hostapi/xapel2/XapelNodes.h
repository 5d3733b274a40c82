// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's nodes, node maps and image processor, as far as the library uses them.

#pragma once

#include "xapel2/XapelExport.h"
#include "xapel2/XapelString.h"

namespace XAPEL2 {

/// One node of a node map. Owned by its map; a pointer to it is good for as long as the map's owner lives.
/// @throws Exceptions::IException  every operation: wrong type of node, value out of range, access refused.
/// @threads any thread.
class XAPEL2_HOST_API Node {
public:
    /// Writes an integer node.
    void SetInt(long long iValue);
    long long GetInt();     ///< The value of an integer node.
    long long GetIntMin();  ///< The least value that an integer node takes.
    long long GetIntMax();  ///< The greatest value that an integer node takes.

    /// Writes a text node.
    void SetString(String strValue);

    /// Writes a node of any type from its text; selects the entry of an enumeration.
    void SetValue(String strValue);

    /// The value of a node of any type as text.
    String GetString();

private:
    friend struct HostAccess;
    explicit Node(void* pImpl);
    void* m_pImpl;
};

/// The nodes of a device or an image processor, found by name. Owned by that object.
/// @threads any thread.
class XAPEL2_HOST_API NodeMap {
public:
    bool GetNodePresent(String strName);  ///< True when there is a node of this name.

    /// The node of this name, borrowed from the map.
    /// @throws Exceptions::Xapel_NotAvailableException  there is no node of this name.
    Node* GetNode(String strName);

private:
    friend struct HostAccess;
    explicit NodeMap(void* pImpl);
    void* m_pImpl;
};

/// An object that carries a node map.
class XAPEL2_HOST_API INode {
public:
    virtual ~INode();
    INode(const INode&) = delete;
    INode& operator=(const INode&) = delete;

    /// The object's node map, borrowed; null when it has none.
    NodeMap* GetNodeList();

protected:
    INode();
    void* m_pImpl;  ///< owned, the host's side of the object
};

/// The host's image processor. Each one holds references and correction tables of its own. The library makes it with
/// new and ends it with delete, so its size is part of the contract: a supplier adds no member here, but behind
/// m_pImpl.
class XAPEL2_HOST_API ImageProcessor : public INode {
public:
    /// @throws Exceptions::IException  the host refuses another one.
    ImageProcessor();
    ~ImageProcessor() override;
};

static_assert(sizeof(ImageProcessor) == 2 * sizeof(void*), "compiled into every user: the virtual table and m_pImpl");

}  // namespace XAPEL2
