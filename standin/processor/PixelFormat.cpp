// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Table of the pixel formats, sizes, packing and unpacking.

#include "xapel2_standin/PixelFormat.h"

#include <cstring>

namespace XAPEL2 {
namespace StandIn {

const std::vector<PixelFormat>& pixelFormats() {
    static const std::vector<PixelFormat> s_Formats = {
        {"Mono8", 0x01080001, 8, 8, 1, ""},
        {"Mono10", 0x01100003, 10, 16, 1, ""},
        {"Mono12", 0x01100005, 12, 16, 1, ""},
        {"Mono14", 0x01100025, 14, 16, 1, ""},
        {"Mono16", 0x01100007, 16, 16, 1, ""},
        {"Mono10p", 0x010A0046, 10, 10, 1, ""},
        {"Mono12p", 0x010C0047, 12, 12, 1, ""},
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
        {"RGB8", 0x02180014, 8, 8, 3, ""},
        {"BGR8", 0x02180015, 8, 8, 3, ""},
    };
    return s_Formats;
}

const PixelFormat* findPixelFormat(const std::string& strName) {
    for (const PixelFormat& rFormat : pixelFormats()) {
        if (strName == rFormat.pName)
            return &rFormat;
    }
    return nullptr;
}

std::size_t imageBytes(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight) {
    return static_cast<std::size_t>((nWidth * nHeight * rFormat.nChannels * rFormat.nWireBits + 7) / 8);
}

namespace {

// A packed sample of 10 or 12 bits always ends in the byte after the one that it begins in.

uint16_t unpackOne(const PixelFormat& rFormat, const uint8_t* pBytes, std::size_t iSample) {
    const std::size_t iBit = iSample * rFormat.nWireBits;
    const unsigned uPair = pBytes[iBit / 8] | static_cast<unsigned>(pBytes[iBit / 8 + 1]) << 8;
    return static_cast<uint16_t>(uPair >> (iBit % 8) & rFormat.fullScale());
}

void packOne(const PixelFormat& rFormat, uint16_t uSample, std::size_t iSample, uint8_t* pBytes) {
    const std::size_t iBit = iSample * rFormat.nWireBits;
    const unsigned uShift = iBit % 8;
    const unsigned uMask = rFormat.fullScale() << uShift;
    uint8_t* const pPair = pBytes + iBit / 8;
    const unsigned uOld = pPair[0] | static_cast<unsigned>(pPair[1]) << 8;
    const unsigned uNew = (uOld & ~uMask) | (static_cast<unsigned>(uSample) << uShift & uMask);
    pPair[0] = static_cast<uint8_t>(uNew);
    pPair[1] = static_cast<uint8_t>(uNew >> 8);
}

// Eight samples of BITS bits fill BITS whole bytes. They are read and written as two words of four samples each, the
// second one from the byte on that ends with the eighth sample.
constexpr std::size_t GROUP = 8;

template <unsigned BITS>
void unpackGroups(const uint8_t* pBytes, std::size_t nGroups, uint16_t* pSamples) {
    constexpr unsigned MASK = (1U << BITS) - 1U;
    for (; nGroups != 0; --nGroups, pBytes += BITS, pSamples += GROUP) {
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
}

template <unsigned BITS>
void packGroups(const uint16_t* pSamples, std::size_t nGroups, uint8_t* pBytes) {
    constexpr uint64_t MASK = (1U << BITS) - 1U;
    for (; nGroups != 0; --nGroups, pBytes += BITS, pSamples += GROUP) {
        uint64_t uLow = 0;
        uint64_t uHigh = 0;
        for (unsigned i = 0; i < 4; ++i) {
            uLow |= (pSamples[i] & MASK) << (i * BITS);
            uHigh |= (pSamples[4 + i] & MASK) << (i * BITS);
        }
        const uint64_t uFirst = uLow | uHigh << (4 * BITS);
        const uint64_t uSecond = uLow >> (8 * BITS - 64) | uHigh << (64 - 4 * BITS);
        std::memcpy(pBytes, &uFirst, 8);
        std::memcpy(pBytes + BITS - 8, &uSecond, 8);
    }
}

}  // namespace

void unpackSamples(const PixelFormat& rFormat, const void* pImage, std::size_t iFirst, std::size_t nSamples,
                   uint16_t* pSamples) {
    const auto* pBytes = static_cast<const uint8_t*>(pImage);
    if (rFormat.nWireBits == 16) {
        if (nSamples != 0)
            std::memcpy(pSamples, pBytes + iFirst * 2, nSamples * 2);
        return;
    }
    if (rFormat.nWireBits == 8) {
        for (std::size_t i = 0; i < nSamples; ++i) pSamples[i] = pBytes[iFirst + i];
        return;
    }
    std::size_t i = 0;
    for (; i < nSamples && (iFirst + i) % GROUP != 0; ++i) pSamples[i] = unpackOne(rFormat, pBytes, iFirst + i);
    const std::size_t nGroups = (nSamples - i) / GROUP;
    const uint8_t* const pGroups = pBytes + (iFirst + i) / GROUP * rFormat.nWireBits;
    if (rFormat.nWireBits == 12)
        unpackGroups<12>(pGroups, nGroups, pSamples + i);
    else
        unpackGroups<10>(pGroups, nGroups, pSamples + i);
    for (i += nGroups * GROUP; i < nSamples; ++i) pSamples[i] = unpackOne(rFormat, pBytes, iFirst + i);
}

void packSamples(const PixelFormat& rFormat, const uint16_t* pSamples, std::size_t iFirst, std::size_t nSamples,
                 void* pImage) {
    auto* pBytes = static_cast<uint8_t*>(pImage);
    if (rFormat.nWireBits == 16) {
        if (nSamples != 0)
            std::memcpy(pBytes + iFirst * 2, pSamples, nSamples * 2);
        return;
    }
    if (rFormat.nWireBits == 8) {
        for (std::size_t i = 0; i < nSamples; ++i) pBytes[iFirst + i] = static_cast<uint8_t>(pSamples[i]);
        return;
    }
    std::size_t i = 0;
    for (; i < nSamples && (iFirst + i) % GROUP != 0; ++i) packOne(rFormat, pSamples[i], iFirst + i, pBytes);
    const std::size_t nGroups = (nSamples - i) / GROUP;
    uint8_t* const pGroups = pBytes + (iFirst + i) / GROUP * rFormat.nWireBits;
    if (rFormat.nWireBits == 12)
        packGroups<12>(pSamples + i, nGroups, pGroups);
    else
        packGroups<10>(pSamples + i, nGroups, pGroups);
    for (i += nGroups * GROUP; i < nSamples; ++i) packOne(rFormat, pSamples[i], iFirst + i, pBytes);
}

}  // namespace StandIn
}  // namespace XAPEL2
