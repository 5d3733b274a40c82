// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Entering and leaving the access gate.

#include "XapelAccessControl.h"

namespace {

/// Calls fnStep with the index of each bit that is set.
template <typename Step>
void forEachBit(uint32_t uBits, Step fnStep) {
    for (; uBits != 0; uBits &= uBits - 1) {
        fnStep(static_cast<unsigned>(__builtin_ctz(uBits)));
    }
}

}  // namespace

XapelAccessControlData::XapelAccessControlData() : m_bExclusive(false), m_nUsers(0) {
    for (auto& rCount : m_uFlags) {
        rCount.store(0, std::memory_order_relaxed);
    }
}

unsigned XapelAccessControlData::Flags() const {
    unsigned uBits = 0;
    for (unsigned i = 0; i < m_uFlags.size(); ++i) {
        if (m_uFlags[i].load(std::memory_order_acquire) != 0) {
            uBits |= 1U << i;
        }
    }
    return uBits;
}

bool XapelAccessControlData::IsExclusive() const {
    return m_nUsers.load(std::memory_order_acquire) <= 1;
}

bool XapelAccessControlData::IsEmpty() const {
    return m_nUsers.load(std::memory_order_acquire) == 0;
}

void XapelAccessControlData::WaitExclusive() const {
    while (!IsExclusive()) {
        xapelSpinPause();
    }
}

CXapelAccessControl::CXapelAccessControl(XapelMutex& mtx, XapelAccessControlData& data, eMode mode, unsigned flags)
    : m_bExclusive(mode == eExclusive || mode == eExclusiveWait), m_uFlags(flags), m_rData(data) {
    while (!tryEnter(mtx)) {
        // Reading alone leaves the mutex to those who can make progress.
        while (m_rData.m_bExclusive.load(std::memory_order_relaxed)) {
            xapelSpinPause();
        }
    }
    if (mode == eExclusiveWait) {
        m_rData.WaitExclusive();
    }
}

bool CXapelAccessControl::tryEnter(XapelMutex& mtx) {
    const XapelLock lock(mtx);
    if (m_rData.m_bExclusive.load(std::memory_order_acquire)) {
        return false;
    }
    if (m_bExclusive) {
        m_rData.m_bExclusive.store(true, std::memory_order_seq_cst);
    }
    m_rData.m_nUsers.fetch_add(1, std::memory_order_acq_rel);
    forEachBit(m_uFlags, [this](unsigned i) { m_rData.m_uFlags[i].fetch_add(1, std::memory_order_acq_rel); });
    return true;
}

CXapelAccessControl::~CXapelAccessControl() {
    if (m_bExclusive) {
        m_rData.m_bExclusive.store(false, std::memory_order_seq_cst);
    }
    forEachBit(m_uFlags, [this](unsigned i) { m_rData.m_uFlags[i].fetch_sub(1, std::memory_order_acq_rel); });
    // Last: whoever waits to be alone may free the gate as soon as it sees this.
    m_rData.m_nUsers.fetch_sub(1, std::memory_order_release);
}

void CXapelAccessControl::WaitExclusive() const {
    if (m_bExclusive) {
        m_rData.WaitExclusive();
    }
}
