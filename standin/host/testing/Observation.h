// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Records of what an extension library asked of the host, and the observers that are told at once.

#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "xapel2_standin/Answers.h"
#include "xapel2_standin/Control.h"

namespace XAPEL2 {
namespace StandIn {

/// A function that may be replaced at any time; asking for it while there is none costs one relaxed load.
template <class tFunction>
class COptionalFunction {
public:
    void set(tFunction fnNew) {
        auto pFunction = fnNew ? std::make_shared<const tFunction>(std::move(fnNew)) : nullptr;
        // The old one ends after the lock: what it owns may ask for the new one while it is destroyed.
        std::lock_guard<std::mutex> lock(m_mtx);
        m_bSet.store(pFunction != nullptr, std::memory_order_relaxed);
        m_pFunction.swap(pFunction);
    }
    bool isSet() const { return m_bSet.load(std::memory_order_relaxed); }
    /// Null when there is none. The caller calls it after this has returned, so under no lock.
    std::shared_ptr<const tFunction> get() const {
        if (!m_bSet.load(std::memory_order_relaxed)) {
            return nullptr;
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        return m_pFunction;
    }

private:
    std::atomic<bool> m_bSet{false};
    mutable std::mutex m_mtx;  // guards m_pFunction
    std::shared_ptr<const tFunction> m_pFunction;
};

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

/// All records and observers of the process.
struct Observation {
    CRecord<Control::NodeAccess> recNodes;
    CRecord<Control::TraceLine> recTraces;
    CRecord<std::string> recRegistrations;
    COptionalFunction<std::function<void(const Control::NodeAccess&)>> fnNode;
    COptionalFunction<std::function<void(const Control::TraceLine&)>> fnTrace;
    COptionalFunction<TraceSink> fnSink;  // the application's
};
Observation& observation();

/// True when node accesses are recorded or observed.
bool nodesAreObserved();
/// Records the access and tells the observer. Must not hold a lock of the host.
void observeNode(const Control::NodeAccess& rAccess);

void resetObservation();

}  // namespace StandIn
}  // namespace XAPEL2
