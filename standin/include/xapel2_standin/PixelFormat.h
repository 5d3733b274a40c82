// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pixel formats that the stand-in knows, with names and values of the PFNC.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xapel2/XapelExport.h"

namespace XAPEL2 {
namespace StandIn {

/// Layout of one pixel format. Samples are unsigned integers; unpacked ones little endian.
///
/// "Packed" formats put two samples into three bytes: the upper eight bits of each into the first and the last byte,
/// the lower bits of the first sample into the middle byte from bit 0 on, those of the second from bit 4 on. Where
/// these are two bits only, the two above each pair are written as 0 and ignored when read. The last of an odd number
/// of samples takes a byte and the lower half of the next.
struct PixelFormat {
    const char* pName;    ///< PFNC name, for example "BayerRG12p"
    uint32_t uPfnc;       ///< PFNC value
    unsigned nBits;       ///< significant bits of a sample: 8, 10, 12, 14, 16
    unsigned nWireBits;   ///< bits that a sample takes in the image: 8, 16, or 10 or 12 when packed
    unsigned nChannels;   ///< samples of a pixel: 1, or 3 for RGB and BGR
    const char* pCfa;     ///< colour sites of a filter array, row by row ("RGGB"); empty for all others
    bool bSplit = false;  ///< packed as GigE Vision 1 does ("Packed"), else from the least significant bit on ("p")

    /// True when samples share bytes.
    bool isPacked() const { return nWireBits % 8 != 0; }
    /// True for a colour filter array.
    bool isCfa() const { return pCfa[0] != '\0'; }
    /// Largest value of a sample.
    uint32_t fullScale() const { return (1U << nBits) - 1U; }
};

/// Largest width and height that the stand-in accepts, in pixels.
constexpr uint64_t IMAGE_SIDE_MAX = 32768;

/// Every known format, in a fixed order. @threads any thread.
XAPEL2_HOST_API const std::vector<PixelFormat>& pixelFormats();

/// The format of this PFNC name, null when it is not known. Never freed. @threads any thread.
XAPEL2_HOST_API const PixelFormat* findPixelFormat(const std::string& strName);

/// The format that differs only in how its filter array begins: so many columns further right and rows further down.
/// The format itself where it has none. Never freed. @threads any thread.
XAPEL2_HOST_API const PixelFormat* shiftedFormat(const PixelFormat& rFormat, uint64_t nColumns, uint64_t nRows);

/// Bytes of an image of this many pixels without padding; packed samples run on over line ends and the last byte
/// is filled up. Width and height must not exceed IMAGE_SIDE_MAX. @threads any thread.
XAPEL2_HOST_API std::size_t imageBytes(const PixelFormat& rFormat, uint64_t nWidth, uint64_t nHeight);

/// Spreads nSamples samples, starting with sample iFirst of the image at pImage, to 16 bit each. @threads any thread.
XAPEL2_HOST_API void unpackSamples(const PixelFormat& rFormat, const void* pImage, std::size_t iFirst,
                                   std::size_t nSamples, uint16_t* pSamples);

/// Writes nSamples samples into the image at pImage from sample iFirst on; bits of neighbours stay as they are.
/// Each sample must not exceed the full scale. @threads any thread, for ranges that share no byte.
XAPEL2_HOST_API void packSamples(const PixelFormat& rFormat, const uint16_t* pSamples, std::size_t iFirst,
                                 std::size_t nSamples, void* pImage);

}  // namespace StandIn
}  // namespace XAPEL2
