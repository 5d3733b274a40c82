// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's device and data streams, as far as the library uses them. All objects belong to the host.

#pragma once

#include <cstddef>
#include <utility>

#include "xapel2/XapelExport.h"
#include "xapel2/XapelString.h"

namespace XAPEL2 {

class Node;

/// A data stream of a device. Owned by the host until its device is closed.
/// @threads any thread.
class XAPEL2_HOST_API DataStream {
public:
    bool IsOpen();  ///< True while the stream is open.
    /// Opens the stream; the device's open hook runs.
    /// @throws Exceptions::IException  the stream cannot be opened.
    void Open();

private:
    friend struct HostAccess;
    explicit DataStream(void* pImpl);
    void* m_pImpl;
};

/// The data streams of a device, each with its identifier.
/// @threads any thread; an iterator is used by one.
class XAPEL2_HOST_API DataStreamList {
public:
    /// A place in a walk over the list.
    class XAPEL2_HOST_API iterator {
    public:
        iterator(const iterator& rOther);  ///< A second one at the same place; for a return by value.
        iterator& operator=(const iterator& rOther) = delete;
        ~iterator();
        /// The entry; borrowed until the iterator moves or is destroyed.
        std::pair<String, DataStream*>& operator*();
        iterator& operator++();                         ///< Moves to the next entry.
        bool operator!=(const iterator& rOther) const;  ///< True when they stand at different places.

    private:
        friend struct HostAccess;
        explicit iterator(void* pImpl);
        void* m_pImpl;
    };

    /// Brings the list up to date with the device.
    void Refresh();
    std::size_t size();  ///< Number of entries.
    iterator begin();    ///< The first entry.
    iterator end();      ///< Behind the last entry.

private:
    friend struct HostAccess;
    explicit DataStreamList(void* pImpl);
    void* m_pImpl;
};

/// An opened device. Owned by the host until it is closed.
/// @threads any thread.
class XAPEL2_HOST_API Device {
public:
    /// The device's streams, borrowed.
    DataStreamList* GetDataStreams();

    /// A node of the camera, borrowed until the device is closed.
    /// @throws Exceptions::Xapel_NotAvailableException  the camera has no such node.
    Node* GetRemoteNode(String strName);

private:
    friend struct HostAccess;
    explicit Device(void* pImpl);
    void* m_pImpl;
};

}  // namespace XAPEL2
