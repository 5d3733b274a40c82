// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A copy of words that belong together, read by many while one replaces them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "XapelThreading.h"

/// A structure of pointers, read without a lock. A version stands before the words, odd while they are replaced. A
/// reader takes the version, the words that it needs, and the version once more; where that has changed, it may have
/// met words of two sets and has read nothing. A reader writes nothing and never waits.
template <typename Set>
class CXapelSharedCopy {
public:
    CXapelSharedCopy() : m_uVersion(0) {
        for (auto& rWord : m_auWords) {
            rWord.store(0, std::memory_order_relaxed);
        }
    }
    CXapelSharedCopy(const CXapelSharedCopy&) = delete;
    CXapelSharedCopy& operator=(const CXapelSharedCopy&) = delete;

    /// Reads these fields, all of one set. False while they are replaced: they hold anything then. What its writer did
    /// before is visible afterwards. @threads any.
    template <typename... Fields>
    bool tryRead(Set& rSet, Fields Set::*... pFields) const {
        // Pairs with the last store of write(): the words of this version, or later ones.
        const uint64_t uBefore = m_uVersion.load(std::memory_order_acquire);
        (readField(rSet, pFields), ...);
        return (uBefore & 1) == 0 && m_uVersion.load(std::memory_order_relaxed) == uBefore;
    }

    /// Replaces the set. @threads one at a time.
    void write(const Set& rSet) {
        uintptr_t auWords[WORDS];
        std::memcpy(auWords, &rSet, sizeof rSet);
        const uint64_t uBefore = m_uVersion.load(std::memory_order_relaxed);
        m_uVersion.store(uBefore + 1, std::memory_order_relaxed);
        const uintptr_t* pWord = auWords;
        for (auto& rWord : m_auWords) {
            rWord.store(*pWord++, std::memory_order_release);
        }
        m_uVersion.store(uBefore + 2, std::memory_order_release);
    }

private:
    static_assert(std::is_trivially_copyable<Set>::value && sizeof(Set) % sizeof(uintptr_t) == 0,
                  "a set is made of words");
    static constexpr std::size_t WORDS = sizeof(Set) / sizeof(uintptr_t);

    template <typename Field>
    void readField(Set& rSet, Field Set::*pField) const {
        static_assert(sizeof(Field) == sizeof(uintptr_t), "a field is a word");
        const auto nBytes = reinterpret_cast<unsigned char*>(&(rSet.*pField)) - reinterpret_cast<unsigned char*>(&rSet);
        const auto& rWord = m_auWords[static_cast<std::size_t>(nBytes) / sizeof(uintptr_t)];
        // Pairs with the store of the word: whoever sees it sees the odd version, too.
        const uintptr_t uWord = rWord.load(std::memory_order_acquire);
        std::memcpy(&(rSet.*pField), &uWord, sizeof uWord);
    }

    XapelAtomic<uint64_t> m_uVersion;
    XapelAtomic<uintptr_t> m_auWords[WORDS];
};
