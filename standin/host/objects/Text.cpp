// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's text: one counted, immutable block that all copies share; the empty text has none.

#include <atomic>
#include <cstring>
#include <new>
#include <ostream>
#include <utility>

#include "xapel2/XapelString.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {

namespace {

struct TextBlock {
    std::atomic<unsigned> nOwners{1};
    // The characters stand behind the block.
    char* text() { return reinterpret_cast<char*>(this + 1); }
};

TextBlock* blockOf(void* pImpl) {
    return static_cast<TextBlock*>(pImpl);
}

void* newBlock(const char* pText) {
    if (pText == nullptr || *pText == '\0') {
        return nullptr;
    }
    const std::size_t nBytes = std::strlen(pText) + 1;
    TextBlock* pBlock = new (::operator new(sizeof(TextBlock) + nBytes)) TextBlock;
    std::memcpy(pBlock->text(), pText, nBytes);
    return pBlock;
}

void* share(void* pImpl) {
    if (pImpl != nullptr) {
        blockOf(pImpl)->nOwners.fetch_add(1, std::memory_order_relaxed);
    }
    return pImpl;
}

void drop(void* pImpl) {
    // Release and acquire: whoever frees the block has seen every other owner's last read.
    if (pImpl != nullptr && blockOf(pImpl)->nOwners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        blockOf(pImpl)->~TextBlock();
        ::operator delete(pImpl);
    }
}

}  // namespace

String::String() : m_pImpl(nullptr) {}

String::String(const char* pText) : m_pImpl(newBlock(pText)) {}

String::String(const String& rOther) : m_pImpl(share(rOther.m_pImpl)) {}

String& String::operator=(const String& rOther) {
    String copy(rOther);
    std::swap(m_pImpl, copy.m_pImpl);
    return *this;
}

String::~String() {
    drop(m_pImpl);
}

const char* String::get() const {
    return m_pImpl == nullptr ? "" : blockOf(m_pImpl)->text();
}

std::ostream& operator<<(std::ostream& rOut, const String& rText) {
    return rOut << rText.get();
}

}  // namespace XAPEL2
