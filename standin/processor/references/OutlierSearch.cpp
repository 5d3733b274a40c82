// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Which of the samples that were watched are none of their pixel's, and where they lie.

#include "standin/processor/references/OutlierSearch.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <tuple>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr double FALSE_ALARMS = 1e-4;  // of a recording
constexpr double TAILS = 1.05;         // noise is not quite normal, and not known exactly
constexpr double TAIL_MOST = 16.0;     // standard deviations that a sensor's own noise reaches at most
constexpr double TAIL_STEP = 1.25;
constexpr double OWN_NOISE = 5.0;         // of the pixel's other samples, at least
constexpr double OWN_NOISE_ALONE = 10.0;  // where nothing else is known, and more the fewer they are
constexpr double OWN_LEAST = 0.5;         // DN, then
constexpr std::size_t OWN_SAMPLES = 4;    // that tell the noise of their pixel
constexpr uint64_t FRAMES_MANY = 8;
constexpr uint64_t CELL = 8;  // pixels: outlying ones that are no farther apart belong together

// Standard deviations that normal noise exceeds once, to either side, in 1 / dShare samples.
double normalQuantile(double dShare) {
    double dLow = 0.0, dHigh = 20.0;
    for (int i = 0; i < 60; ++i) {
        const double dMiddle = 0.5 * (dLow + dHigh);
        (std::erfc(dMiddle / std::sqrt(2.0)) > dShare ? dLow : dHigh) = dMiddle;
    }
    return dHigh;
}

// One frame of so many may be odd.
double outShare(uint64_t nFrames) {
    return nFrames < FRAMES_MANY ? 3.0 : 4.0;
}

/// Samples of one pixel, divided by the brightness of their frames. The first one stands for all before it was watched.
struct Value {
    double dValue, dWeight;
    std::size_t iFrame;
    bool bOut;
};

class CPixelJudge {
public:
    CPixelJudge(const ImageLayout& rLayout, const CFrameGroup& rGroup)
        : m_rLayout(rLayout),
          m_rGroup(rGroup),
          m_nFrames(rGroup.images()),
          m_dMost(TAILS * normalQuantile(FALSE_ALARMS / static_cast<double>(rLayout.samples()) /
                                         static_cast<double>(m_nFrames))) {
        double dGains = 0.0;
        m_vecGains.push_back(0.0);
        for (const FrameRecord& rFrame : rGroup.frames()) {
            m_vecGains.push_back(dGains += rFrame.dGain);
        }
    }
    void judge(std::size_t iWatched, OutlyingSamples& rResult);
    /// Takes the noise for one with longer tails. @return false where it has as long ones as noise can have.
    bool lengthenTails() {
        m_dMost *= TAIL_STEP;
        return m_dMost <= TAIL_MOST;
    }

private:
    double gain(std::size_t iFrame) const { return m_vecGains[iFrame + 1] - m_vecGains[iFrame]; }
    double middle() const;
    double limit(double dMiddle) const;
    bool mark(double dMiddle, double dLimit);
    void report(uint64_t iSample, uint64_t nBefore, double dMean, OutlyingSamples& rResult) const;

    const ImageLayout& m_rLayout;
    const CFrameGroup& m_rGroup;
    uint64_t m_nFrames;
    double m_dMost;                  // standard deviations
    std::vector<double> m_vecGains;  // sums of those of the frames before
    std::vector<Value> m_vecValues;
    unsigned m_iClass = 0;
};

double CPixelJudge::middle() const {
    std::vector<Value> vecSorted = m_vecValues;
    std::sort(vecSorted.begin(), vecSorted.end(), [](const Value& a, const Value& b) { return a.dValue < b.dValue; });
    double dWeight = 0.0;
    for (const Value& rValue : vecSorted) {
        dWeight += rValue.dWeight;
        if (2.0 * dWeight >= static_cast<double>(m_nFrames)) {
            return rValue.dValue;
        }
    }
    return vecSorted.back().dValue;
}

// Infinite where the noise is not known.
double CPixelJudge::limit(double dMiddle) const {
    const double dGain = m_vecGains.back() / static_cast<double>(m_nFrames);
    const double dNoise = std::sqrt(m_rGroup.law().variance(m_iClass, dMiddle * dGain)) / dGain;
    const double dKnown = m_dMost * dNoise * std::sqrt(1.0 + 1.0 / static_cast<double>(m_nFrames - 1)) + 1.0;
    std::vector<double> vecFar;
    for (const Value& rValue : m_vecValues) {
        if (rValue.dWeight == 1.0) {
            vecFar.push_back(std::abs(rValue.dValue - dMiddle));
        }
    }
    const bool bCovered = m_rGroup.law().covers(m_iClass, dMiddle * dGain);
    // As many as may be out: the others tell what the pixel's own noise is.
    const auto nOut = static_cast<std::size_t>(static_cast<double>(m_nFrames) / outShare(m_nFrames));
    const std::size_t nNear = vecFar.size() > nOut ? vecFar.size() - nOut : 0;
    if (nNear < OWN_SAMPLES) {
        return bCovered ? dKnown : INFINITY;
    }
    const auto itMost = vecFar.begin() + static_cast<std::ptrdiff_t>(nNear - 1);
    std::nth_element(vecFar.begin(), itMost, vecFar.end());
    const double dSpread =
        *itMost / normalQuantile(1.0 - static_cast<double>(nNear) / static_cast<double>(vecFar.size() + 1));
    // Four samples may lie twice as far apart by chance. Fewer are not asked at all, so it begins with the law's noise.
    const double dTrust = 1.0 - static_cast<double>(OWN_SAMPLES - 1) / static_cast<double>(nNear);
    const double dOwn = bCovered ? std::sqrt(dTrust * dSpread * dSpread + (1.0 - dTrust) * dNoise * dNoise) : dSpread;
    const double dFew = 1.0 + 8.0 / static_cast<double>(nNear);
    // On a coarse scale a few samples may be the same by chance.
    return std::max(dKnown, bCovered ? OWN_NOISE * dOwn : OWN_NOISE_ALONE * dFew * std::max(dOwn, OWN_LEAST));
}

// @return whether anything changed.
bool CPixelJudge::mark(double dMiddle, double dLimit) {
    bool bChanged = false;
    for (Value& rValue : m_vecValues) {
        const bool bOut = std::abs(rValue.dValue - dMiddle) > (dLimit - 1.0) / std::sqrt(rValue.dWeight) + 1.0;
        bChanged = bChanged || bOut != rValue.bOut;
        rValue.bOut = bOut;
    }
    return bChanged;
}

void CPixelJudge::report(uint64_t iSample, uint64_t nBefore, double dMean, OutlyingSamples& rResult) const {
    for (const Value& rValue : m_vecValues) {
        if (!rValue.bOut) {
            continue;
        }
        const bool bBefore = rValue.iFrame < nBefore;
        for (std::size_t iFrame = rValue.iFrame; iFrame < (bBefore ? nBefore : rValue.iFrame + 1); ++iFrame) {
            rResult.vecOut.push_back({iSample, iFrame, rValue.dValue * gain(iFrame), dMean * gain(iFrame)});
        }
    }
    const double dGain = m_vecGains.back() / static_cast<double>(m_nFrames);
    rResult.vecClean.push_back({iSample, std::min(dMean * dGain, static_cast<double>(m_rLayout.pFormat->fullScale()))});
}

void CPixelJudge::judge(std::size_t iWatched, OutlyingSamples& rResult) {
    const WatchedSample& rWatched = m_rGroup.watched()[iWatched];
    m_iClass = m_rLayout.classOf(static_cast<std::size_t>(rWatched.iSample));
    m_vecValues.clear();
    m_vecValues.push_back({static_cast<double>(rWatched.uBefore) / m_vecGains[rWatched.nBefore],
                           static_cast<double>(rWatched.nBefore), 0, false});
    for (std::size_t iFrame = rWatched.nBefore; iFrame < m_nFrames; ++iFrame) {
        m_vecValues.push_back({m_rGroup.valueOf(iWatched, iFrame) / gain(iFrame), 1.0, iFrame, false});
    }
    double dMiddle = middle();
    double dGood = 0.0, dSum = 0.0;
    // The mean of those that are good is a better middle; twice is enough.
    for (int i = 0; i < 3; ++i) {
        if (!mark(dMiddle, limit(dMiddle)) && i != 0) {
            break;
        }
        dGood = 0.0;
        dSum = 0.0;
        for (const Value& rValue : m_vecValues) {
            if (rValue.bOut) {
                continue;
            }
            // Weighted by their light, so that the sums are those of the samples themselves.
            const bool bBefore = rValue.iFrame < rWatched.nBefore;
            const double dGain = bBefore ? m_vecGains[rWatched.nBefore] : gain(rValue.iFrame);
            dSum += rValue.dValue * dGain;
            dGood += dGain;
        }
        if (dGood <= 0.0) {
            ++rResult.nUnsteady;
            return;
        }
        dMiddle = dSum / dGood;
    }
    double dOut = 0.0;
    for (const Value& rValue : m_vecValues) {
        dOut += rValue.bOut ? rValue.dWeight : 0.0;
    }
    if (dOut == 0.0) {
        return;
    }
    if (dOut * outShare(m_nFrames) > static_cast<double>(m_nFrames)) {
        ++rResult.nUnsteady;
        return;
    }
    report(rWatched.iSample, rWatched.nBefore, dMiddle, rResult);
}

// Whether every other frame has single samples that are far: then it is the sensor's noise, which has long tails (some
// pixels are noisier than others), and no event.
bool isOrdinary(const CFrameGroup& rGroup, const OutlyingSamples& rSamples) {
    std::vector<bool> vecHas(rGroup.images(), false);
    for (const OutlyingSample& rSample : rSamples.vecOut) {
        vecHas[rSample.iFrame] = true;
    }
    return 2 * std::count(vecHas.begin(), vecHas.end(), true) > static_cast<std::ptrdiff_t>(rGroup.images());
}

}  // namespace

OutlyingSamples findOutlyingSamples(const ImageLayout& rLayout, const CFrameGroup& rGroup) {
    OutlyingSamples result;
    if (rGroup.images() < 3 || rGroup.isLost()) {
        return result;
    }
    CPixelJudge judge(rLayout, rGroup);
    do {
        result = {};
        for (std::size_t i = 0; i < rGroup.watched().size(); ++i) {
            judge.judge(i, result);
        }
    } while (isOrdinary(rGroup, result) && judge.lengthenTails());
    std::sort(result.vecOut.begin(), result.vecOut.end(), [](const OutlyingSample& a, const OutlyingSample& b) {
        return std::tie(a.iSample, a.iFrame) < std::tie(b.iSample, b.iFrame);
    });
    std::sort(result.vecClean.begin(), result.vecClean.end(),
              [](const CleanSample& a, const CleanSample& b) { return a.iSample < b.iSample; });
    return result;
}

std::vector<FrameOutlier> outlierPlaces(const ImageLayout& rLayout, const CFrameGroup& rGroup,
                                        const OutlyingSamples& rSamples) {
    // Cells of pixels, by frame; cells that touch are one place.
    using Cell = std::tuple<uint64_t, uint64_t, uint64_t>;  // frame, row, column
    std::map<Cell, std::size_t> mapCells;
    std::vector<std::size_t> vecRoots;
    const auto fnRoot = [&vecRoots](std::size_t i) {
        while (vecRoots[i] != i) {
            i = vecRoots[i] = vecRoots[vecRoots[i]];
        }
        return i;
    };
    const uint64_t nPerRow = rLayout.samplesPerRow();
    const auto fnX = [&](const OutlyingSample& r) { return r.iSample % nPerRow / rLayout.pFormat->nChannels; };
    const auto fnCell = [&](const OutlyingSample& r) {
        return Cell{r.iFrame, r.iSample / nPerRow / CELL, fnX(r) / CELL};
    };
    for (const OutlyingSample& rSample : rSamples.vecOut) {
        const auto inserted = mapCells.emplace(fnCell(rSample), vecRoots.size());
        if (inserted.second) {
            vecRoots.push_back(vecRoots.size());
        }
    }
    for (const auto& rCell : mapCells) {
        const auto& [iFrame, iRow, iColumn] = rCell.first;
        const Cell aBefore[] = {{iFrame, iRow, iColumn - 1},
                                {iFrame, iRow - 1, iColumn - 1},
                                {iFrame, iRow - 1, iColumn},
                                {iFrame, iRow - 1, iColumn + 1}};
        for (const Cell& rBefore : aBefore) {
            const auto itBefore = mapCells.find(rBefore);
            if (itBefore != mapCells.end()) {
                vecRoots[fnRoot(rCell.second)] = fnRoot(itBefore->second);
            }
        }
    }
    struct Place {
        FrameOutlier outlier;
        uint64_t iRight = 0, iBottom = 0;
    };
    std::map<std::size_t, Place> mapPlaces;
    for (const OutlyingSample& rSample : rSamples.vecOut) {
        Place& rPlace = mapPlaces[fnRoot(mapCells[fnCell(rSample)])];
        FrameOutlier& rOutlier = rPlace.outlier;
        const uint64_t iX = fnX(rSample), iY = rSample.iSample / nPerRow;
        if (rOutlier.nSamples == 0) {
            rOutlier.eWhat = eOutlierSamples;
            rOutlier.iFrame = rGroup.frames()[rSample.iFrame].iFrame + 1;
            rOutlier.nX = iX;
            rOutlier.nY = iY;
        }
        rOutlier.nX = std::min(rOutlier.nX, iX);
        rOutlier.nY = std::min(rOutlier.nY, iY);
        rPlace.iRight = std::max(rPlace.iRight, iX + 1);
        rPlace.iBottom = std::max(rPlace.iBottom, iY + 1);
        ++rOutlier.nSamples;
        rOutlier.dDeviation += rSample.dValue - rSample.dExpected;
    }
    std::vector<FrameOutlier> vecResult;
    for (auto& rEntry : mapPlaces) {
        FrameOutlier& rOutlier = rEntry.second.outlier;
        rOutlier.nWidth = rEntry.second.iRight - rOutlier.nX;
        rOutlier.nHeight = rEntry.second.iBottom - rOutlier.nY;
        rOutlier.dDeviation /= static_cast<double>(rOutlier.nSamples);
        vecResult.push_back(rOutlier);
    }
    std::sort(vecResult.begin(), vecResult.end(), [](const FrameOutlier& a, const FrameOutlier& b) {
        return std::abs(a.dDeviation) * static_cast<double>(a.nSamples) >
               std::abs(b.dDeviation) * static_cast<double>(b.nSamples);
    });
    return vecResult;
}

}  // namespace StandIn
}  // namespace XAPEL2
