// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Table of the pixel formats, sizes, packing and unpacking.

#include "xapel2_standin/PixelFormat.h"

#include <cstring>

// Samples of several bytes stand in an image with the lowest byte first, and are read as words of the processor.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the stand-in host is for little-endian processors");

namespace XAPEL2 {
namespace StandIn {

const std::vector<PixelFormat>& pixelFormats() {
    static const std::vector<PixelFormat> s_vecFormats = {
        {"Mono8", 0x01080001, 8, 8, 1, ""},
        {"Mono10", 0x01100003, 10, 16, 1, ""},
        {"Mono12", 0x01100005, 12, 16, 1, ""},
        {"Mono14", 0x01100025, 14, 16, 1, ""},
        {"Mono16", 0x01100007, 16, 16, 1, ""},
        {"Mono10p", 0x010A0046, 10, 10, 1, ""},
        {"Mono12p", 0x010C0047, 12, 12, 1, ""},
        {"Mono10Packed", 0x010C0004, 10, 12, 1, "", true},
        {"Mono12Packed", 0x010C0006, 12, 12, 1, "", true},
        {"BayerGR8", 0x01080008, 8, 8, 1, "GRBG"},
        {"BayerRG8", 0x01080009, 8, 8, 1, "RGGB"},
        {"BayerGB8", 0x0108000A, 8, 8, 1, "GBRG"},
        {"BayerBG8", 0x0108000B, 8, 8, 1, "BGGR"},
        {"BayerGR10", 0x0110000C, 10, 16, 1, "GRBG"},
        {"BayerRG10", 0x0110000D, 10, 16, 1, "RGGB"},
        {"BayerGB10", 0x0110000E, 10, 16, 1, "GBRG"},
        {"BayerBG10", 0x0110000F, 10, 16, 1, "BGGR"},
        {"BayerGR12", 0x01100010, 12, 16, 1, "GRBG"},
        {"BayerRG12", 0x01100011, 12, 16, 1, "RGGB"},
        {"BayerGB12", 0x01100012, 12, 16, 1, "GBRG"},
        {"BayerBG12", 0x01100013, 12, 16, 1, "BGGR"},
        {"BayerGR16", 0x0110002E, 16, 16, 1, "GRBG"},
        {"BayerRG16", 0x0110002F, 16, 16, 1, "RGGB"},
        {"BayerGB16", 0x01100030, 16, 16, 1, "GBRG"},
        {"BayerBG16", 0x01100031, 16, 16, 1, "BGGR"},
        {"BayerGR10p", 0x010A0056, 10, 10, 1, "GRBG"},
        {"BayerRG10p", 0x010A0058, 10, 10, 1, "RGGB"},
        {"BayerGB10p", 0x010A0054, 10, 10, 1, "GBRG"},
        {"BayerBG10p", 0x010A0052, 10, 10, 1, "BGGR"},
        {"BayerGR12p", 0x010C0057, 12, 12, 1, "GRBG"},
        {"BayerRG12p", 0x010C0059, 12, 12, 1, "RGGB"},
        {"BayerGB12p", 0x010C0055, 12, 12, 1, "GBRG"},
        {"BayerBG12p", 0x010C0053, 12, 12, 1, "BGGR"},
        {"BayerGR10Packed", 0x010C0026, 10, 12, 1, "GRBG", true},
        {"BayerRG10Packed", 0x010C0027, 10, 12, 1, "RGGB", true},
        {"BayerGB10Packed", 0x010C0028, 10, 12, 1, "GBRG", true},
        {"BayerBG10Packed", 0x010C0029, 10, 12, 1, "BGGR", true},
        {"BayerGR12Packed", 0x010C002A, 12, 12, 1, "GRBG", true},
        {"BayerRG12Packed", 0x010C002B, 12, 12, 1, "RGGB", true},
        {"BayerGB12Packed", 0x010C002C, 12, 12, 1, "GBRG", true},
        {"BayerBG12Packed", 0x010C002D, 12, 12, 1, "BGGR", true},
        {"RGB8", 0x02180014, 8, 8, 3, ""},
        {"BGR8", 0x02180015, 8, 8, 3, ""},
        {"RGB16", 0x02300033, 16, 16, 3, ""},
    };
    return s_vecFormats;
}

const PixelFormat* findPixelFormat(const std::string& strName) {
    for (const PixelFormat& rFormat : pixelFormats()) {
        if (strName == rFormat.pName) {
            return &rFormat;
        }
    }
    return nullptr;
}

const PixelFormat* shiftedFormat(const PixelFormat& rFormat, uint64_t nColumns, uint64_t nRows) {
    for (const PixelFormat& rOther : pixelFormats()) {
        bool bSame = rOther.isCfa() && rFormat.isCfa() && rOther.nBits == rFormat.nBits &&
                     rOther.nWireBits == rFormat.nWireBits && rOther.bSplit == rFormat.bSplit;
        for (std::size_t i = 0; bSame && i < 4; ++i) {
            bSame = rOther.pCfa[i] == rFormat.pCfa[(i / 2 + nRows) % 2 * 2 + (i + nColumns) % 2];
        }
        if (bSame) {
            return &rOther;
        }
    }
    return findPixelFormat(rFormat.pName);
}

std::size_t imageBytes(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight) {
    return static_cast<std::size_t>((nWidth * nHeight * rFormat.nChannels * rFormat.nWireBits + 7) / 8);
}

namespace {

constexpr std::size_t GROUP = 8;  // samples that fill whole bytes in every packed format

/// Samples of BITS bits side by side from the least significant bit on. Each ends in the byte after the one that it
/// begins in. A group is read and written as two words of four samples each, the second one from the byte on that ends
/// with the eighth sample.
template <unsigned BITS>
struct Dense {
    static constexpr unsigned MASK = (1U << BITS) - 1U;

    static uint16_t unpackOne(const uint8_t* pBytes, std::size_t iSample) {
        const std::size_t iBit = iSample * BITS;
        const unsigned uPair = pBytes[iBit / 8] | static_cast<unsigned>(pBytes[iBit / 8 + 1]) << 8;
        return static_cast<uint16_t>(uPair >> (iBit % 8) & MASK);
    }
    static void packOne(unsigned uSample, std::size_t iSample, uint8_t* pBytes) {
        const std::size_t iBit = iSample * BITS;
        const unsigned uShift = iBit % 8;
        uint8_t* const pPair = pBytes + iBit / 8;
        const unsigned uOld = pPair[0] | static_cast<unsigned>(pPair[1]) << 8;
        const unsigned uNew = (uOld & ~(MASK << uShift)) | (uSample & MASK) << uShift;
        pPair[0] = static_cast<uint8_t>(uNew);
        pPair[1] = static_cast<uint8_t>(uNew >> 8);
    }
    static void unpackGroup(const uint8_t* pBytes, uint16_t* pSamples) {
        uint64_t uLow = 0;
        uint64_t uHigh = 0;
        std::memcpy(&uLow, pBytes, 8);
        std::memcpy(&uHigh, pBytes + BITS - 8, 8);
        uHigh >>= 64 - 4 * BITS;
        for (unsigned i = 0; i < 4; ++i) {
            pSamples[i] = static_cast<uint16_t>(uLow >> (i * BITS) & MASK);
            pSamples[4 + i] = static_cast<uint16_t>(uHigh >> (i * BITS) & MASK);
        }
    }
    static void packGroup(const uint16_t* pSamples, uint8_t* pBytes) {
        uint64_t uLow = 0;
        uint64_t uHigh = 0;
        for (unsigned i = 0; i < 4; ++i) {
            uLow |= uint64_t{pSamples[i] & MASK} << (i * BITS);
            uHigh |= uint64_t{pSamples[4 + i] & MASK} << (i * BITS);
        }
        const uint64_t uFirst = uLow | uHigh << (4 * BITS);
        const uint64_t uSecond = uLow >> (8 * BITS - 64) | uHigh << (64 - 4 * BITS);
        std::memcpy(pBytes, &uFirst, 8);
        std::memcpy(pBytes + BITS - 8, &uSecond, 8);
    }
};

/// Two samples in three bytes: the upper eight bits of each in the outer ones, what is below them in the halves of the
/// middle one, the first sample's in the lower half.
template <unsigned BITS>
struct Split {
    static constexpr unsigned BELOW = BITS - 8;
    static constexpr unsigned MASK = (1U << BELOW) - 1U;

    static uint16_t unpackOne(const uint8_t* pBytes, std::size_t iSample) {
        const uint8_t* const pPair = pBytes + iSample / 2 * 3;
        const std::size_t iOfTwo = iSample % 2;
        const unsigned uUpper = pPair[2 * iOfTwo];
        return static_cast<uint16_t>(uUpper << BELOW | (pPair[1] >> (4 * iOfTwo) & MASK));
    }
    static void packOne(unsigned uSample, std::size_t iSample, uint8_t* pBytes) {
        uint8_t* const pPair = pBytes + iSample / 2 * 3;
        const std::size_t iOfTwo = iSample % 2;
        pPair[2 * iOfTwo] = static_cast<uint8_t>(uSample >> BELOW);
        pPair[1] = static_cast<uint8_t>((pPair[1] & 0xF0U >> (4 * iOfTwo)) | (uSample & MASK) << (4 * iOfTwo));
    }
    static void unpackGroup(const uint8_t* pBytes, uint16_t* pSamples) {
        for (unsigned i = 0; i < GROUP; i += 2, pBytes += 3) {
            pSamples[i] = unpackOne(pBytes, 0);
            pSamples[i + 1] = unpackOne(pBytes, 1);
        }
    }
    static void packGroup(const uint16_t* pSamples, uint8_t* pBytes) {
        for (unsigned i = 0; i < GROUP; i += 2, pBytes += 3) {
            pBytes[0] = static_cast<uint8_t>(pSamples[i] >> BELOW);
            pBytes[1] = static_cast<uint8_t>((pSamples[i] & MASK) | (pSamples[i + 1] & MASK) << 4);
            pBytes[2] = static_cast<uint8_t>(pSamples[i + 1] >> BELOW);
        }
    }
};

/// Calls fn with the packing of a packed format.
template <class F>
void withPacking(const PixelFormat& rFormat, F fn) {
    if (rFormat.bSplit) {
        rFormat.nBits == 10 ? fn(Split<10>()) : fn(Split<12>());
    } else {
        rFormat.nBits == 10 ? fn(Dense<10>()) : fn(Dense<12>());
    }
}

/// Calls fnOne(sample of the run, sample of the image) and fnGroup(the same) for a run of samples of an image.
template <class ONE, class ALL>
void forEachGroup(std::size_t iFirst, std::size_t nSamples, ONE fnOne, ALL fnGroup) {
    std::size_t i = 0;
    for (; i < nSamples && (iFirst + i) % GROUP != 0; ++i) {
        fnOne(i, iFirst + i);
    }
    for (; i + GROUP <= nSamples; i += GROUP) {
        fnGroup(i, iFirst + i);
    }
    for (; i < nSamples; ++i) {
        fnOne(i, iFirst + i);
    }
}

}  // namespace

void unpackSamples(const PixelFormat& rFormat, const void* pImage, std::size_t iFirst, std::size_t nSamples,
                   uint16_t* pSamples) {
    const auto* pBytes = static_cast<const uint8_t*>(pImage);
    if (rFormat.nWireBits == 16) {
        if (nSamples != 0) {
            std::memcpy(pSamples, pBytes + iFirst * 2, nSamples * 2);
        }
        return;
    }
    if (rFormat.nWireBits == 8) {
        for (std::size_t i = 0; i < nSamples; ++i) {
            pSamples[i] = pBytes[iFirst + i];
        }
        return;
    }
    withPacking(rFormat, [&](auto oPacking) {
        forEachGroup(
            iFirst, nSamples,
            [&](std::size_t i, std::size_t iSample) { pSamples[i] = oPacking.unpackOne(pBytes, iSample); },
            [&](std::size_t i, std::size_t iSample) {
                oPacking.unpackGroup(pBytes + iSample / 8 * rFormat.nWireBits, pSamples + i);
            });
    });
}

void packSamples(const PixelFormat& rFormat, const uint16_t* pSamples, std::size_t iFirst, std::size_t nSamples,
                 void* pImage) {
    auto* pBytes = static_cast<uint8_t*>(pImage);
    if (rFormat.nWireBits == 16) {
        if (nSamples != 0) {
            std::memcpy(pBytes + iFirst * 2, pSamples, nSamples * 2);
        }
        return;
    }
    if (rFormat.nWireBits == 8) {
        for (std::size_t i = 0; i < nSamples; ++i) {
            pBytes[iFirst + i] = static_cast<uint8_t>(pSamples[i]);
        }
        return;
    }
    withPacking(rFormat, [&](auto oPacking) {
        forEachGroup(
            iFirst, nSamples,
            [&](std::size_t i, std::size_t iSample) { oPacking.packOne(pSamples[i], iSample, pBytes); },
            [&](std::size_t i, std::size_t iSample) {
                oPacking.packGroup(pSamples + i, pBytes + iSample / 8 * rFormat.nWireBits);
            });
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
