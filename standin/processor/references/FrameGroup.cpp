// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a recording that are of one kind: their sums, and the samples that left their pixel's others.

#include "standin/processor/references/FrameGroup.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t RUN_CLASSES = RUN_CLASSES_MAX;
// Frames in the narrow sums of 8 bits: half of what they hold, so that the screen tells above from below.
constexpr uint64_t NARROW_FRAMES_8 = 128;
constexpr std::size_t WATCHED_SPARE = 4096;

// Standard deviations of a sample from which on its pixel is watched: few of good ones, all that matter. The mean of
// the first frames has noise itself.
double watchedFrom(uint64_t nFrames) {
    return nFrames == 1 ? 6.0 : nFrames == 2 ? 5.5 : 5.2;
}

}  // namespace

CFrameGroup::CFrameGroup(const ImageLayout& rLayout, const CFrameLook& rLook) : m_layout(rLayout), m_rLook(rLook) {
    const bool bBytes = rLayout.pFormat->nWireBits == 8;
    const std::size_t nSamples = rLayout.samples();
    m_vecSums16.assign(bBytes ? nSamples : 0, 0);
    m_vecSums32.assign(bBytes ? 0 : nSamples, 0);
    const bool bCfa = rLayout.pFormat->isCfa();
    const std::size_t nRow = bCfa ? rLayout.samplesPerRow() : nSamples;
    const std::size_t nBlock = rLayout.pFormat->isPacked() ? PACKED_BLOCK : BLOCK;
    m_vecBlockSums.assign((nSamples / nRow) * ((nRow + nBlock - 1) / nBlock) * RUN_CLASSES, 0);
    m_vecHits.resize(std::min(nBlock, nSamples));
}

uint64_t CFrameGroup::sum(std::size_t iSample) const {
    const uint64_t uNarrow = m_vecSums16.empty() ? m_vecSums32[iSample] : m_vecSums16[iSample];
    return m_vecSums64.empty() ? uNarrow : m_vecSums64[iSample] + uNarrow;
}

FrameView CFrameGroup::compare(const std::vector<float>& rLook) const {
    std::vector<float> vecMean(m_rLook.samples());
    const float fShare = 1.0F / static_cast<float>(images());
    const auto fnRun = [&](const auto& rSums, std::size_t iStart, float* pMean) {
        for (std::size_t i = 0; i < m_rLook.runLength(); ++i) {
            pMean[i] = static_cast<float>(rSums[iStart + i]) * fShare;
        }
    };
    for (std::size_t iRun = 0; iRun < m_rLook.runs(); ++iRun) {
        float* const pMean = &vecMean[iRun * m_rLook.runLength()];
        if (!m_vecSums64.empty()) {
            for (std::size_t i = 0; i < m_rLook.runLength(); ++i) {
                pMean[i] = static_cast<float>(sum(m_rLook.start(iRun) + i)) * fShare;
            }
        } else if (m_vecSums16.empty()) {
            fnRun(m_vecSums32, m_rLook.start(iRun), pMean);
        } else {
            fnRun(m_vecSums16, m_rLook.start(iRun), pMean);
        }
    }
    return m_rLook.compare(rLook, vecMean, images(), m_law);
}

void CFrameGroup::widen() {
    const auto spill = [this](auto& rNarrow) {
        for (std::size_t i = 0; i < rNarrow.size(); ++i) {
            m_vecSums64[i] += rNarrow[i];
        }
        std::fill(rNarrow.begin(), rNarrow.end(), 0);
    };
    m_vecSums64.resize(m_layout.samples());
    spill(m_vecSums16);
    spill(m_vecSums32);
    m_nNarrow = 0;
    m_dNarrowGain = 0.0;
}

void CFrameGroup::add(uint64_t iFrame, const void* pImage, const FrameView* pView) {
    const PixelFormat& rFormat = *m_layout.pFormat;
    const bool bBytes = !m_vecSums16.empty();
    const std::size_t nSamples = m_layout.samples();
    if (m_vecFrames.size() == m_vecFrames.capacity()) {
        m_vecFrames.reserve(2 * m_vecFrames.size() + 16);
    }
    if (m_nNarrow == (bBytes ? NARROW_FRAMES_8 : UINT32_MAX / rFormat.fullScale())) {
        widen();
    }
    FrameRecord record;
    record.iFrame = iFrame;
    if (pView) {
        record.dGain = pView->dGain * m_gains.dMean;
        m_law.add(pView->law);
    }

    // Rows of a filter array have their own classes; anything else is one run.
    const bool bCfa = rFormat.isCfa();
    const std::size_t nRow = bCfa ? m_layout.samplesPerRow() : nSamples;
    const std::size_t nBlock = rFormat.isPacked() ? PACKED_BLOCK : BLOCK;
    std::array<uint16_t, PACKED_BLOCK> aSamples;
    std::size_t iBlock = 0;
    for (std::size_t iRow = 0; iRow < nSamples; iRow += nRow) {
        for (std::size_t i = iRow; i < iRow + nRow; i += nBlock, ++iBlock) {
            const std::size_t nRun = std::min(nBlock, iRow + nRow - i);
            const void* pSamples = static_cast<const uint8_t*>(pImage) + i * (bBytes ? 1 : 2);
            if (rFormat.isPacked()) {
                unpackSamples(rFormat, pImage, i, nRun, aSamples.data());
                pSamples = aSamples.data();
            }
            const FrameFigures figures = addRun(pSamples, i, nRun, iBlock, pView);
            const std::size_t iClass = bCfa ? i / nRow % 2 * 2 : 0;
            for (std::size_t k = 0; k < (bCfa ? 2U : rFormat.nChannels); ++k) {
                record.aiSums[iClass + k] += figures.aiSums[k];
                m_auSquares[iClass + k] += figures.auSquares[k];
            }
            record.nSaturated += figures.nSaturated;
            record.uLargest = std::max(record.uLargest, figures.uLargest);
        }
    }
    for (unsigned k = 0; k < m_layout.classes(); ++k) {
        record.aiSums[k] += static_cast<int64_t>(centre()) * static_cast<int64_t>(m_layout.samplesOf(k));
    }
    m_dNarrowGain += (record.dGain - m_dNarrowGain) / static_cast<double>(++m_nNarrow);
    const double dImages = static_cast<double>(images());
    m_gains.dMean = (m_gains.dMean * dImages + record.dGain) / (dImages + 1.0);
    m_gains.dLeast = std::min(m_gains.dLeast, record.dGain);
    m_gains.dMost = std::max(m_gains.dMost, record.dGain);
    m_vecFrames.push_back(record);
    keepWatched(pImage);
}

// Bits above the significant ones cannot occur in a sound image; they count as full scale.
FrameFigures CFrameGroup::addRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples, std::size_t iBlock,
                                 const FrameView* pView) {
    const PixelFormat& rFormat = *m_layout.pFormat;
    const std::size_t nClasses = rFormat.isCfa() ? 2 : rFormat.nChannels;
    FrameFigures figures;
    if (pView && !m_bLost && !m_law.isEmpty()) {
        screenRun(pSamples, iFirst, nSamples, iBlock, *pView, figures);
    } else {
        figures = m_vecSums32.empty()
                      ? addFrame(nClasses, static_cast<const uint8_t*>(pSamples), nSamples, &m_vecSums16[iFirst])
                      : addFrame(nClasses, static_cast<const uint16_t*>(pSamples), nSamples, rFormat.fullScale(),
                                 &m_vecSums32[iFirst]);
    }
    for (std::size_t k = 0; k < nClasses; ++k) {
        const std::size_t nOfClass = (nSamples + nClasses - 1 - k) / nClasses;
        m_vecBlockSums[iBlock * RUN_CLASSES + k] +=
            figures.aiSums[k] + static_cast<int64_t>(centre()) * static_cast<int64_t>(nOfClass);
    }
    return figures;
}

uint16_t CFrameGroup::sampleAt(const void* pSamples, std::size_t iSample) const {
    if (!m_vecSums16.empty()) {
        return static_cast<const uint8_t*>(pSamples)[iSample];
    }
    uint16_t uSample = 0;
    std::memcpy(&uSample, static_cast<const uint8_t*>(pSamples) + 2 * iSample, 2);
    return uSample;
}

double CFrameGroup::farthest(unsigned iClass, double dLevel) const {
    return watchedFrom(images()) * std::sqrt(m_law.variance(iClass, dLevel)) + 1.0;
}

void CFrameGroup::screenRun(const void* pSamples, std::size_t iFirst, std::size_t nSamples, std::size_t iBlock,
                            const FrameView& rView, FrameFigures& rFigures) {
    const PixelFormat& rFormat = *m_layout.pFormat;
    const bool bBytes = !m_vecSums16.empty();
    const std::size_t nClasses = rFormat.isCfa() ? 2 : rFormat.nChannels;
    const double dImages = static_cast<double>(images());
    FrameScreen screen;
    screen.pHits = m_vecHits.data();
    // Of the frames in the narrow sums alone.
    const double dNarrow = static_cast<double>(m_nNarrow);
    const double dRelative = m_nNarrow == 0 ? 1.0 : rView.dGain * m_gains.dMean / m_dNarrowGain;
    screen.fFactor = static_cast<float>(dNarrow / dRelative);
    std::array<double, RUN_CLASSES> adMost{};
    for (std::size_t k = 0; k < nClasses; ++k) {
        const auto iClass =
            static_cast<unsigned>(m_layout.classOf(iFirst + k < m_layout.samples() ? iFirst + k : iFirst));
        const double dOfClass = static_cast<double>((nSamples + nClasses - 1 - k) / nClasses);
        const double dLevel =
            static_cast<double>(m_vecBlockSums[iBlock * RUN_CLASSES + k]) / std::max(1.0, dOfClass) / dImages;
        adMost[k] = farthest(iClass, dLevel);
        screen.afMost[k] = static_cast<float>(adMost[k] * dNarrow / dRelative);
    }
    rFigures = bBytes
                   ? addFrame(nClasses, static_cast<const uint8_t*>(pSamples), nSamples, &m_vecSums16[iFirst], &screen)
                   : addFrame(nClasses, static_cast<const uint16_t*>(pSamples), nSamples, rFormat.fullScale(),
                              &m_vecSums32[iFirst], &screen);
    if (m_nNarrow == 0) {
        // The narrow sums were emptied before this frame: nothing to hold it against but the whole sums, one by one.
        screen.nHits = 1;
        screen.nGroup = nSamples;
        m_vecHits[0] = 0;
    }
    for (std::size_t k = 0; k < screen.nHits; ++k) {
        const std::size_t iEnd = std::min<std::size_t>(screen.pHits[k] + screen.nGroup, nSamples);
        for (std::size_t i = screen.pHits[k]; i < iEnd; ++i) {
            const auto uSample = static_cast<uint16_t>(std::min<uint32_t>(sampleAt(pSamples, i), rFormat.fullScale()));
            const uint64_t uBefore = sum(iFirst + i) - uSample;
            const double dDeviation =
                static_cast<double>(uSample) - rView.dGain * static_cast<double>(uBefore) / dImages;
            if (std::abs(dDeviation) > adMost[i % nClasses]) {
                watch(iFirst + i, uBefore);
            }
        }
    }
}

void CFrameGroup::watch(std::size_t iSample, uint64_t uBefore) {
    if (m_bLost) {
        return;
    }
    try {
        if (m_vecIsWatched.empty()) {
            m_vecIsWatched.assign(m_layout.samples(), false);
        }
        if (m_vecIsWatched[iSample]) {
            return;
        }
        if (m_vecWatched.size() > m_layout.samples() / 2 + WATCHED_SPARE) {
            loseWatched();
            return;
        }
        m_vecWatched.push_back({iSample, images(), uBefore});
        m_vecIsWatched[iSample] = true;
    } catch (const std::bad_alloc&) {
        loseWatched();
    }
}

// A recording goes on without.
void CFrameGroup::loseWatched() {
    m_bLost = true;
    m_vecWatched = {};
    m_vecValues = {};
    m_vecIsWatched = {};
    m_vecOffsets = {};
}

void CFrameGroup::keepWatched(const void* pImage) {
    if (m_bLost) {
        return;
    }
    try {
        m_vecOffsets.push_back(m_vecValues.size());
        if (m_vecValues.size() > 4 * m_layout.samples() + (WATCHED_SPARE << 8)) {
            loseWatched();
            return;
        }
        m_vecValues.resize(m_vecValues.size() + m_vecWatched.size());
        uint16_t* const pValues = m_vecValues.data() + m_vecOffsets.back();
        const PixelFormat& rFormat = *m_layout.pFormat;
        const auto uFull = static_cast<uint16_t>(rFormat.fullScale());
        for (std::size_t j = 0; j < m_vecWatched.size(); ++j) {
            const auto iSample = static_cast<std::size_t>(m_vecWatched[j].iSample);
            uint16_t uSample = 0;
            if (rFormat.isPacked()) {
                unpackSamples(rFormat, pImage, iSample, 1, &uSample);
            } else {
                uSample = sampleAt(pImage, iSample);
            }
            pValues[j] = std::min(uSample, uFull);
        }
    } catch (const std::bad_alloc&) {
        loseWatched();
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
