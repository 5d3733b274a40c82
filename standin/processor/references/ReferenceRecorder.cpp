// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sums the images of a recording and turns them into a reference.

#include "standin/processor/references/ReferenceRecorder.h"

#include <algorithm>
#include <cmath>

#include "standin/processor/references/OutlierSearch.h"
#include "standin/processor/references/ReferenceSums.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t KINDS_MAX = 2;
constexpr double BRIGHTNESS_OTHER = 0.10;  // of the level, beyond the others': less is a lamp that is not steady
constexpr double BRIGHTNESS_NOISE = 3.0;   // standard deviations of a sample that it is at least
constexpr double BRIGHTNESS_TOLD = 0.01;   // of the level, from the middle of the others
constexpr double SPREADS_TOLD = 10.0;      // of the other frames' brightness
constexpr double SHAPE_OTHER = 0.25;       // of the image: less is told sample by sample
constexpr uint64_t FRAMES_TOLD = 3;        // of two nobody knows which one is odd
constexpr uint64_t FRAMES_LEFT_OUT = 8;

// How far a frame may be from the brightness of the others and be one of them, relative.
double tolerance(const FrameDifference& r) {
    return std::max({BRIGHTNESS_OTHER * r.dLevel, BRIGHTNESS_NOISE * r.dNoise, 0.5}) / (r.dLevel + 1.0 / 64.0);
}

bool hasBrightness(const CFrameGroup& rGroup, const FrameDifference& rDifference) {
    const GainRange& rRange = rGroup.gains();
    const double dGain = rDifference.dGain * rRange.dMean;
    const double dMore = tolerance(rDifference) * rRange.dMean;
    return dGain >= rRange.dLeast - dMore && dGain <= rRange.dMost + dMore;
}

double meanOf(const FrameRecord& rFrame, const ImageLayout& rLayout) {
    double dSum = 0.0;
    for (const int64_t iSum : rFrame.aiSums) {
        dSum += static_cast<double>(iSum);
    }
    return dSum / static_cast<double>(rLayout.samples());
}

double middleOf(std::vector<double> vecValues) {
    const auto itMiddle = vecValues.begin() + static_cast<std::ptrdiff_t>(vecValues.size() / 2);
    std::nth_element(vecValues.begin(), itMiddle, vecValues.end());
    return *itMiddle;
}

// Of the law of a group's noise, at the levels of the mean image.
double neighbourNoise(const CNoiseLaw& rLaw, const ReferenceImage& rReference) {
    constexpr std::size_t SAMPLES = 1U << 15;
    double dVariances = 0.0, dCount = 0.0;
    for (std::size_t i = 0; i < rReference.vecSamples.size(); i += rReference.layout.stepFor(SAMPLES)) {
        const unsigned iClass = rReference.layout.classOf(i);
        if (!rLaw.has(iClass)) {
            return 0.0;
        }
        dVariances += rLaw.variance(iClass, static_cast<double>(rReference.vecSamples[i]));
        dCount += 1.0;
    }
    return std::min(std::sqrt(dVariances / dCount), static_cast<double>(rReference.layout.pFormat->fullScale()));
}

}  // namespace

void CReferenceRecorder::add(const ImageLayout& rLayout, const void* pImage) {
    if (m_nImages == 0) {
        m_pLook = std::make_unique<CFrameLook>(rLayout);
        m_vecGroups.clear();
        m_vecGroups.push_back(std::make_unique<CFrameGroup>(rLayout, *m_pLook));
        m_vecGroups.back()->add(0, pImage, nullptr);
        m_layout = rLayout;
        m_nImages = 1;
        return;
    }
    std::vector<float> vecLook;
    m_pLook->take(pImage, vecLook);
    FrameDifference difference;
    const CFrameGroup* pMost = &mostFrequent();
    for (std::size_t i = 0; i < std::min(KINDS_MAX, m_vecGroups.size()); ++i) {
        CFrameGroup& rGroup = *m_vecGroups[i];
        const FrameView view = rGroup.compare(vecLook);
        if (hasBrightness(rGroup, view) && view.dOther <= SHAPE_OTHER) {
            rGroup.add(m_nImages, pImage, &view);
            ++m_nImages;
            return;
        }
        if (&rGroup == pMost) {
            difference = view;
        }
    }
    if (m_vecGroups.size() <= KINDS_MAX) {
        m_vecGroups.reserve(KINDS_MAX + 1);
        auto pGroup = std::make_unique<CFrameGroup>(m_layout, *m_pLook);
        pGroup->add(m_nImages, pImage, nullptr);
        m_vecGroups.push_back(std::move(pGroup));
    } else {
        m_vecGroups.back()->add(m_nImages, pImage, nullptr);
    }
    m_vecGroups.back()->lastFrame().difference = difference;
    ++m_nImages;
}

const CFrameGroup& CReferenceRecorder::mostFrequent() const {
    const CFrameGroup* pMost = m_vecGroups.front().get();
    for (std::size_t i = 1; i < std::min(KINDS_MAX, m_vecGroups.size()); ++i) {
        pMost = m_vecGroups[i]->images() > pMost->images() ? m_vecGroups[i].get() : pMost;
    }
    return *pMost;
}

// True of frames that were put apart for a brightness which others have come near to since.
bool CReferenceRecorder::belongsTo(const CFrameGroup& rGroup, const CFrameGroup& rTo) const {
    return std::all_of(rGroup.frames().begin(), rGroup.frames().end(), [&](const FrameRecord& rFrame) {
        return rFrame.difference.dLevel > 0.0 && rFrame.difference.dOther <= SHAPE_OTHER &&
               hasBrightness(rTo, rFrame.difference);
    });
}

void CReferenceRecorder::tellFrames(const CFrameGroup& rGroup, const CFrameGroup& rOthers, bool bLeftOut,
                                    std::vector<FrameOutlier>& rPlaces) const {
    double dOthers = 0.0;
    for (const FrameRecord& rFrame : rOthers.frames()) {
        dOthers += meanOf(rFrame, m_layout) / static_cast<double>(rOthers.images());
    }
    for (const FrameRecord& rFrame : rGroup.frames()) {
        // The frames that came first were held against nothing: the first of the others was held against them.
        const bool bFirst = rFrame.iFrame < rOthers.frames().front().iFrame;
        const FrameDifference& rDifference = bFirst ? rOthers.frames().front().difference : rFrame.difference;
        FrameOutlier outlier;
        outlier.iFrame = rFrame.iFrame + 1;
        outlier.bLeftOut = bLeftOut;
        if (rDifference.dOther <= SHAPE_OTHER || std::abs(rDifference.dGain - 1.0) > tolerance(rDifference)) {
            outlier.eWhat = eOutlierBrightness;
            outlier.dDeviation = meanOf(rFrame, m_layout) - dOthers;
        } else {
            outlier.eWhat = eOutlierShape;
            outlier.nX = rDifference.nX;
            outlier.nY = rDifference.nY;
            outlier.nWidth = rDifference.nWidth;
            outlier.nHeight = rDifference.nHeight;
            outlier.dDeviation = bFirst ? -rDifference.dDeviation : rDifference.dDeviation;
        }
        rPlaces.push_back(outlier);
    }
}

// Of a frame that is but brighter or dimmer the shape is right, which is what a reference is for: it stays in.
void CReferenceRecorder::tellBrightness(const CFrameGroup& rGroup, std::vector<FrameOutlier>& rPlaces) const {
    if (rGroup.images() < FRAMES_TOLD) {
        return;
    }
    // By the places that are looked at, which no object changes, and by all samples, which tell it exactly.
    std::vector<double> vecMeans, vecGains, vecSpreads, vecGainSpreads;
    for (const FrameRecord& rFrame : rGroup.frames()) {
        vecMeans.push_back(meanOf(rFrame, m_layout));
        vecGains.push_back(rFrame.dGain);
    }
    const double dMiddle = middleOf(vecMeans), dMiddleGain = middleOf(vecGains);
    double dNoise = 0.0;
    for (unsigned k = 0; k < m_layout.classes(); ++k) {
        dNoise = std::max(dNoise, std::sqrt(rGroup.law().variance(k, dMiddle)));
    }
    dNoise /= std::sqrt(static_cast<double>(m_layout.samples()));
    for (std::size_t i = 0; i < vecMeans.size(); ++i) {
        vecSpreads.push_back(std::abs(vecMeans[i] - dMiddle));
        vecGainSpreads.push_back(std::abs(vecGains[i] - dMiddleGain));
    }
    const double dMost = std::max({BRIGHTNESS_TOLD * dMiddle, SPREADS_TOLD * middleOf(vecSpreads), 10.0 * dNoise});
    const double dMostGain = std::max(BRIGHTNESS_TOLD, SPREADS_TOLD * middleOf(vecGainSpreads));
    std::vector<FrameOutlier> vecTold;
    std::size_t nHalfway = 0;
    for (std::size_t i = 0; i < vecMeans.size(); ++i) {
        nHalfway += 2.0 * vecSpreads[i] > dMost ? 1U : 0U;
        if (vecSpreads[i] > dMost && vecGainSpreads[i] > dMostGain) {
            FrameOutlier outlier;
            outlier.eWhat = eOutlierBrightness;
            outlier.iFrame = rGroup.frames()[i].iFrame + 1;
            outlier.dDeviation = vecMeans[i] - dMiddle;
            vecTold.push_back(outlier);
        }
    }
    // Where many do, or nearly, it is the lamp and no frame.
    if (4 * nHalfway <= vecMeans.size() || vecMeans.size() < FRAMES_LEFT_OUT) {
        rPlaces.insert(rPlaces.end(), vecTold.begin(), vecTold.end());
    }
}

ReferenceImage CReferenceRecorder::reference(bool bKeepOutliers) const {
    const CFrameGroup& rMost = mostFrequent();
    std::vector<const CFrameGroup*> vecGood = {&rMost}, vecOdd;
    uint64_t nOdd = 0;
    for (const auto& rpGroup : m_vecGroups) {
        if (rpGroup.get() != &rMost) {
            const bool bBelongs = belongsTo(*rpGroup, rMost);
            (bBelongs ? vecGood : vecOdd).push_back(rpGroup.get());
            nOdd += bBelongs ? 0 : rpGroup->images();
        }
    }
    // Frames of too many kinds are no reason to prefer one of them.
    const bool bMany = m_nImages >= FRAMES_LEFT_OUT;
    const bool bFramesOut = bMany && !bKeepOutliers && 4 * nOdd <= m_nImages;
    const bool bSamplesOut = bMany && !bKeepOutliers && vecGood.size() == 1 && (bFramesOut || vecOdd.empty());

    ReferenceImage reference;
    reference.eKind = m_eKind;
    reference.layout = m_layout;
    RecordingOutliers& rOutliers = reference.outliers;
    OutlyingSamples samples;
    if (m_nImages >= FRAMES_TOLD) {
        for (const CFrameGroup* pGroup : vecOdd) {
            tellFrames(*pGroup, rMost, bFramesOut, rOutliers.vecPlaces);
        }
        tellBrightness(rMost, rOutliers.vecPlaces);
        samples = findOutlyingSamples(m_layout, rMost);
    }
    rOutliers.nFrames = rOutliers.vecPlaces.size();
    rOutliers.nFramesLeftOut = bFramesOut ? nOdd : 0;
    rOutliers.nSamples = samples.vecOut.size();
    rOutliers.nSamplesLeftOut = bSamplesOut ? rOutliers.nSamples : 0;
    for (FrameOutlier& rPlace : outlierPlaces(m_layout, rMost, samples)) {
        rPlace.bLeftOut = bSamplesOut;
        rOutliers.vecPlaces.push_back(rPlace);
    }
    // Shares of a frame that is brighter than the others may come out beyond what samples can have.
    const double dFull = m_layout.pFormat->fullScale();
    for (FrameOutlier& rPlace : rOutliers.vecPlaces) {
        rPlace.dDeviation = std::clamp(rPlace.dDeviation, -dFull, dFull);
    }
    if (rOutliers.vecPlaces.size() > RecordingOutliers::PLACES_MAX) {
        rOutliers.vecPlaces.resize(RecordingOutliers::PLACES_MAX);
    }
    if (!bFramesOut) {
        vecGood.insert(vecGood.end(), vecOdd.begin(), vecOdd.end());
    }
    fillReference(vecGood, bSamplesOut && !samples.vecOut.empty() ? &samples : nullptr, reference);
    reference.dNeighbourNoise = neighbourNoise(rMost.law(), reference);
    return reference;
}

}  // namespace StandIn
}  // namespace XAPEL2
