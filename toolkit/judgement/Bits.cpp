// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Samples that have fewer bits than their format.

#include "toolkit/judgement/Bits.h"

#include <algorithm>
#include <cmath>
#include <vector>

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

/// Share of the samples that have the largest value in every frame: nowhere else is their mean there.
double shareAtTop(const StandIn::ReferenceImage& rReference) {
    const auto nAtTop =
        std::count(rReference.vecSamples.begin(), rReference.vecSamples.end(), static_cast<float>(rReference.uLargest));
    return static_cast<double>(nAtTop) / static_cast<double>(rReference.vecSamples.size());
}

/// Of a sample of normal noise that is cut off at a value: the share of its frames that are, from how far its mean lies
/// below that value. With z = (value - true mean) / deviation the mean lies z P(z) + p(z) deviations below, and the
/// share is P(-z), for the normal distribution P and its density p.
class CClippedShare {
public:
    CClippedShare() {
        for (double z = Z_LEAST; z <= Z_MOST; z += STEP) {
            const double dBelow = 0.5 * std::erfc(-z / std::sqrt(2.0));
            m_vecDistances.push_back(z * dBelow + std::exp(-z * z / 2.0) / std::sqrt(2.0 * PI));
            m_vecShares.push_back(1.0 - dBelow);
        }
    }
    /// @param[in] dDistance  in standard deviations.
    double operator()(double dDistance) const {
        const auto it = std::lower_bound(m_vecDistances.begin(), m_vecDistances.end(), dDistance);
        return it == m_vecDistances.end() ? 0.0 : m_vecShares[static_cast<std::size_t>(it - m_vecDistances.begin())];
    }

private:
    static constexpr double Z_LEAST = -5.0, Z_MOST = 4.0, STEP = 0.01, PI = 3.14159265358979323846;
    std::vector<double> m_vecDistances, m_vecShares;
};

/// Share of all samples of all frames that were cut off at the largest value, where that is a full scale.
double shareClipped(const StandIn::ReferenceImage& rReference) {
    const CClippedShare clipped;
    double dSum = 0.0;
    for (std::size_t i = 0; i < rReference.vecSamples.size(); ++i) {
        const double dBelow = static_cast<double>(rReference.uLargest) - static_cast<double>(rReference.vecSamples[i]);
        dSum += clipped(dBelow / rReference.dTemporalNoise);
    }
    return dSum / static_cast<double>(rReference.vecSamples.size());
}

void judgeSaturation(const StandIn::ReferenceImage& rReference, double dShare, Findings& rFindings) {
    const uint32_t uTop = rReference.uLargest;
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
    bool bFullScale = false;
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
        bFullScale = rReference.uLargest == uTop;
        break;
    }
    if (bFullScale && bNoise) {
        judgeSaturation(rReference, shareClipped(rReference), vecFindings);
    } else if (bFullScale || bNoise) {
        judgeSaturation(rReference, shareAtTop(rReference), vecFindings);
    }
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
