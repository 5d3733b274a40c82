// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Samples that have fewer bits than their format.

#include "toolkit/judgement/Bits.h"

#include <algorithm>

#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double SATURATED_REFUSED = 0.01;  // share of the samples
constexpr double SATURATED_WARNED = 0.001;  // more than single hot pixels
// DN. Samples of less noise may well have one value in every frame; others do not, and none of them the largest of all.
constexpr double NOISE_LEAST = 0.5;

/// The unpacked format of so many bits with the same colours; null where there is none.
const StandIn::PixelFormat* formatWithBits(const StandIn::PixelFormat& rFormat, unsigned nBits) {
    const auto& rFormats = StandIn::pixelFormats();
    const auto itFormat = std::find_if(rFormats.begin(), rFormats.end(), [&](const StandIn::PixelFormat& r) {
        return r.nBits == nBits && r.nWireBits == rFormat.nWireBits && r.nChannels == rFormat.nChannels &&
               std::string(r.pCfa) == rFormat.pCfa;
    });
    return itFormat == rFormats.end() ? nullptr : &*itFormat;
}

void judgeSaturation(const StandIn::ReferenceImage& rReference, uint32_t uTop, Findings& rFindings) {
    // The mean is at the top only where every frame is.
    const auto nAtTop =
        std::count(rReference.vecSamples.begin(), rReference.vecSamples.end(), static_cast<float>(uTop));
    const double dShare = static_cast<double>(nAtTop) / static_cast<double>(rReference.vecSamples.size());
    if (dShare <= SATURATED_WARNED) {
        return;
    }
    const bool bRefused = dShare > SATURATED_REFUSED;
    rFindings.push_back({bRefused ? eRefusal : eWarning, "saturated",
                         fixed(100.0 * dShare, 2) + " % of the samples are at " + std::to_string(uTop) +
                             ", and none is above" + (bRefused ? " (limit 1 %)." : "."),
                         rReference.eKind == StandIn::eReferenceLight
                             ? "Shorten the exposure or dim the light and record again; correct at the same exposure."
                             : "Cover the lens, or shorten the exposure, and record again."});
}

}  // namespace

Findings judgeBits(const StandIn::ReferenceImage& rReference) {
    Findings vecFindings;
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    if (rReference.uLargest == 0 || rReference.uLargest >= rFormat.fullScale()) {
        return vecFindings;
    }
    const bool bNoise = rReference.nImages > 1 && rReference.dTemporalNoise >= NOISE_LEAST;
    bool bTop = bNoise;
    for (const unsigned nBits : {10U, 12U, 14U}) {
        const uint32_t uTop = (1U << nBits) - 1U;
        if (rFormat.nWireBits != 16 || nBits >= rFormat.nBits || rReference.uLargest > uTop) {
            continue;
        }
        // A dark frame of 16 bits needs no more; a light one of fewer may be but dim.
        const StandIn::PixelFormat* pFormat = formatWithBits(rFormat, nBits);
        if (rFormat.nBits == 16 && rReference.eKind == StandIn::eReferenceLight && pFormat) {
            vecFindings.push_back({eNote, "fewer-bits",
                                   "No sample is above " + std::to_string(uTop) + ": the images may have " +
                                       std::to_string(nBits) + " bits in samples of 16.",
                                   std::string("Name the format behind the name of the device, ?format=") +
                                       pFormat->pName + " or, of aravis:ID, ?PixelFormat=" + pFormat->pName +
                                       ", and record again."});
        }
        bTop = bTop || rReference.uLargest == uTop;
        break;
    }
    if (bTop) {
        judgeSaturation(rReference, rReference.uLargest, vecFindings);
    }
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
