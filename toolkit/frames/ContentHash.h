// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Tells images apart by their samples.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A number of 64 bits that stands for some bytes. Fast and the same on every machine with this order of bytes; no
/// defence against those who want two images to agree.
class CContentHash {
public:
    /// What is added in pieces is the same as whole only where the pieces are multiples of 8 bytes.
    void add(const void* pBytes, std::size_t nBytes) {
        const auto* pAt = static_cast<const unsigned char*>(pBytes);
        for (; nBytes >= sizeof(uint64_t); nBytes -= sizeof(uint64_t), pAt += sizeof(uint64_t)) {
            uint64_t uWord = 0;
            std::memcpy(&uWord, pAt, sizeof uWord);
            mix(uWord);
        }
        uint64_t uRest = 0;
        if (nBytes != 0) {  // memory of no bytes may lie nowhere
            std::memcpy(&uRest, pAt, nBytes);
        }
        mix(uRest ^ static_cast<uint64_t>(nBytes) << 56);
    }

    /// 16 hexadecimal digits.
    std::string text() const {
        std::string strText(16, '0');
        for (unsigned i = 0; i < 16; ++i) {
            strText[i] = "0123456789abcdef"[m_uState >> (60 - 4 * i) & 15];
        }
        return strText;
    }

private:
    void mix(uint64_t uWord) {
        m_uState = (m_uState ^ uWord) * 0x9E3779B97F4A7C15U;
        m_uState ^= m_uState >> 32;
    }

    uint64_t m_uState = 0xCBF29CE484222325U;
};

/// Of the samples of an image, spread to 16 bits each, and its size.
std::string frameHash(const StandIn::ImageLayout& rLayout, const uint16_t* pSamples);

/// Of a reference: its samples, its defects, its kind, and what it says of the output.
std::string referenceHash(const StandIn::ReferenceImage& rReference);

}  // namespace Toolkit
}  // namespace XAPEL2
