// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records of what an extension library asked of the host, and the observers that are told at once.

#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "standin/host/objects/OptionalFunction.h"
#include "standin/host/testing/Control.h"

namespace XAPEL2 {
namespace StandIn {

/// A list that grows only while it is switched on.
template <class tEntry>
class CRecord {
public:
    bool isOn() const { return m_bOn.load(std::memory_order_relaxed); }
    void start(bool bOn) {
        std::lock_guard<std::mutex> lock(m_mtx);
        m_bOn.store(bOn, std::memory_order_relaxed);
        if (bOn) {
            m_vecEntries.clear();
        }
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mtx);
        m_bOn.store(false, std::memory_order_relaxed);
        m_vecEntries.clear();
    }
    void add(const tEntry& rEntry) {
        std::lock_guard<std::mutex> lock(m_mtx);
        if (isOn()) {
            m_vecEntries.push_back(rEntry);
        }
    }
    std::vector<tEntry> entries() const {
        std::lock_guard<std::mutex> lock(m_mtx);
        return m_vecEntries;
    }

private:
    std::atomic<bool> m_bOn{false};
    mutable std::mutex m_mtx;  // guards m_vecEntries
    std::vector<tEntry> m_vecEntries;
};

/// The records and observers of the process, but for those of the trace.
struct Observation {
    CRecord<Control::NodeAccess> recNodes;
    CRecord<std::string> recRegistrations;
    COptionalFunction<std::function<void(const Control::NodeAccess&)>> fnNode;
};
Observation& observation();

/// True when node accesses are recorded or observed.
bool nodesAreObserved();
/// Records the access and tells the observer. Must not hold a lock of the host.
void observeNode(const Control::NodeAccess& rAccess);

void resetObservation();
/// The record, the observer and the sink of the trace.
void resetTrace();

}  // namespace StandIn
}  // namespace XAPEL2
