// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A function that is there or not.

#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

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

}  // namespace StandIn
}  // namespace XAPEL2
