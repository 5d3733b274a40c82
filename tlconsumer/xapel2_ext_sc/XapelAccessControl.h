// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The access gate of an interception hub: many calls inside at a time, or one change alone.

#pragma once

#include <array>
#include <cstdint>

#include "XapelThreading.h"

/// State of one gate, shared by its guards.
///
///     open       no exclusive holder; any number of users
///     draining   an exclusive holder is inside with users that entered before it; nobody else enters
///     exclusive  the exclusive holder is the only user
///
/// Price: whoever waits spins; nothing here sleeps, yields or times out. An exclusive guard waits for every user that
/// is inside, users wait for the exclusive holder, and there is no order among those that wait. A thread that holds a
/// guard must not make a second one on the same gate: it would wait for itself.
class XapelAccessControlData {
public:
    XapelAccessControlData();
    XapelAccessControlData(const XapelAccessControlData&) = delete;
    XapelAccessControlData& operator=(const XapelAccessControlData&) = delete;

    /// The flag bits of all guards inside. @threads any.
    unsigned Flags() const;

    /// True when there is no user, or only one: for a caller that is inside, that it is alone. @threads any.
    bool IsExclusive() const;

    /// True when there is no user: for a caller that is outside. @threads any.
    bool IsEmpty() const;

    /// Spins until IsExclusive(). What users did inside is visible afterwards. @threads any.
    void WaitExclusive() const;

private:
    friend class CXapelAccessControl;

    /// An exclusive guard is inside; written by these alone, with sequentially consistent stores. Read under the entry
    /// mutex, but with acquire: leaving takes no mutex, so the load pairs with the leaver's store.
    XapelAtomic<bool> m_bExclusive;

    /// Guards inside, the exclusive one included. Lowered with release, which pairs with the acquire of IsExclusive().
    XapelAtomic<uint32_t> m_nUsers;

    /// Guards inside that publish bit i. A count, not a bit: a bit must read as set until its last publisher has left,
    /// or a caller that wants to be alone would not cancel the fetch that holds it up.
    std::array<XapelAtomic<uint32_t>, 32> m_uFlags;
};

/// Holds a gate for as long as it lives; for the stack of one call.
class CXapelAccessControl {
public:
    enum eMode : int32_t {
        eShared = 0,         ///< waits while an exclusive holder is inside (so does any value not named here)
        eExclusive = 1,      ///< closes the gate to newcomers and returns, even with users inside
        eExclusiveWait = 2,  ///< the same, and waits until it is the only user
    };

    /// Enters.
    /// @param[in] mtx   the gate's entry mutex, the same for all guards of the gate; held for the entry step only.
    /// @param[in] data  the gate; must outlive the guard.
    /// @param[in] flags bits published while inside; 0: none.
    /// @throws std::system_error  the mutex cannot be locked; nothing has changed.
    CXapelAccessControl(XapelMutex& mtx, XapelAccessControlData& data, eMode mode, unsigned flags);

    /// Leaves, without the mutex.
    ~CXapelAccessControl();

    CXapelAccessControl(const CXapelAccessControl&) = delete;
    CXapelAccessControl& operator=(const CXapelAccessControl&) = delete;

    /// An exclusive guard spins until it is the only user; a shared one returns at once.
    void WaitExclusive() const;

private:
    bool tryEnter(XapelMutex& mtx);

    bool m_bExclusive;
    uint32_t m_uFlags;
    XapelAccessControlData& m_rData;
};
