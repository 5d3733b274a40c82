// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a camera with correction off and on, for a report.

#include "toolkit/figures/Measurement.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <stdexcept>

#include "toolkit/frames/ContentHash.h"
#include "toolkit/sessions/Recording.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

std::vector<uint64_t> firstFrames(uint64_t iFirst, uint64_t nFrames) {
    std::vector<uint64_t> vecFrames(nFrames);
    std::iota(vecFrames.begin(), vecFrames.end(), iFirst);
    return vecFrames;
}

class CMeasurement {
public:
    CMeasurement(CSession& rSession, IProgress& rProgress) : m_rSession(rSession), m_rProgress(rProgress) {}

    SceneFrames measure(const char* pScene, const std::vector<uint64_t>& rFrames, const PairSink& fnPair = {});
    /// The frames of a scene with nFrames that this reference was not made of, nTest at most.
    std::vector<uint64_t> framesBeside(const char* pScene, uint64_t nFrames,
                                       const std::optional<StandIn::ReferenceImage>& rReference, uint64_t nTest);

    MeasuredFrames m_result;

private:
    FramePair fetchPair(uint64_t iFrame);

    CSession& m_rSession;
    IProgress& m_rProgress;
};

FramePair CMeasurement::fetchPair(uint64_t iFrame) {
    // One after the other, so that a lamp that grows dimmer dims both means alike.
    m_rSession.shading().SetEnable(false);
    Frame raw = m_rSession.fetchFrame(iFrame);
    m_rSession.shading().SetEnable(true);
    Frame corrected = m_rSession.fetchFrame(iFrame);
    if (m_rSession.hasScenes() && raw.strName != corrected.strName) {
        throw std::runtime_error("frame " + corrected.strName + " came in place of " + raw.strName);
    }
    m_result.vecPlainMs.push_back(raw.dFetchMs);
    m_result.vecCorrectedMs.push_back(corrected.dFetchMs);
    return {std::move(raw), std::move(corrected)};
}

std::vector<uint64_t> CMeasurement::framesBeside(const char* pScene, uint64_t nFrames,
                                                 const std::optional<StandIn::ReferenceImage>& rReference,
                                                 uint64_t nTest) {
    std::multiset<std::string> setKnown = rReference ? frameHashes(*rReference) : std::multiset<std::string>();
    if (setKnown.empty() || nFrames == SceneCounts::ENDLESS) {
        const uint64_t nTaken = rReference ? framesTaken(*rReference) : 0;
        return firstFrames(nTaken, framesLeft(nFrames, nTaken, nTest));
    }
    m_rSession.selectScene(pScene);
    m_rSession.shading().SetEnable(false);
    std::vector<uint64_t> vecFrames;
    for (uint64_t i = 0; i < nFrames && vecFrames.size() < nTest; ++i) {
        const Frame frame = m_rSession.fetchFrame(i);
        const StandIn::ImageLayout layout{frame.pFormat, frame.nWidth, frame.nHeight};
        // Of two frames that are the same to the last bit the reference has but one.
        const auto it = setKnown.find(frameHash(layout, frame.vecSamples.data()));
        if (it != setKnown.end()) {
            setKnown.erase(it);
        } else {
            vecFrames.push_back(i);
        }
    }
    return vecFrames;
}

SceneFrames CMeasurement::measure(const char* pScene, const std::vector<uint64_t>& rFrames, const PairSink& fnPair) {
    SceneFrames result;
    if (rFrames.empty()) {
        return result;
    }
    if (m_rSession.hasScenes()) {
        m_rSession.selectScene(pScene);
    }
    std::optional<CFrameStack> before, after;
    for (std::size_t i = 0; i < rFrames.size(); ++i) {
        result.shown = fetchPair(rFrames[i]);
        const Frame& rRaw = result.shown->raw;
        if (!before) {
            const StandIn::ImageLayout layout{rRaw.pFormat, rRaw.nWidth, rRaw.nHeight};
            before.emplace(layout);
            after.emplace(layout);
        }
        before->add(rRaw);
        after->add(result.shown->corrected);
        if (fnPair) {
            fnPair(*result.shown);
        }
        m_rProgress.show("measuring, frames without and with correction", i + 1, rFrames.size());
    }
    result.before = before->mean();
    result.after = after->mean();
    return result;
}

}  // namespace

SceneCounts countFrames(CSession& rSession) {
    SceneCounts counts;
    const auto fnCount = [&](const char* pScene) {
        rSession.selectScene(pScene);
        return rSession.frameCount();
    };
    const uint64_t nDark = fnCount("Dark"), nLight = fnCount("Light"), nScene = fnCount("Scene");
    if (nDark + nLight + nScene > 0) {
        counts = {nDark, nLight, nScene};
    }
    return counts;
}

FramePlan planFrames(uint64_t nFrames, uint64_t nReference, uint64_t nTest) {
    if (nFrames == 0) {
        return {};
    }
    const uint64_t nKept = std::min({std::max<uint64_t>(2, nFrames / 4), nTest, nFrames - 1});
    return {std::min(nReference, nFrames - nKept), nKept};
}

uint64_t framesLeft(uint64_t nFrames, uint64_t nReference, uint64_t nTest) {
    return nFrames > nReference ? std::min(nTest, nFrames - nReference) : 0;
}

PairOptions recordPair(CSession& rSession, uint64_t nReference, uint64_t nTest, const std::filesystem::path& rFolder,
                       IProgress& rProgress) {
    PairOptions files;
    const SceneCounts counts = countFrames(rSession);
    for (const bool bLight : {false, true}) {
        const FramePlan plan = planFrames(bLight ? counts.nLight : counts.nDark, nReference, nTest);
        if (plan.nReference > 0) {
            std::string& rFile = bLight ? files.strLight : files.strDark;
            rFile = (rFolder / (bLight ? "reference-light.tif" : "reference-dark.tif")).string();
            recordReference(rSession, bLight, plan.nReference, rFile, rProgress);
        }
    }
    return files;
}

MeasuredFrames measureFrames(CSession& rSession, const JudgedPair& rPair, uint64_t nTest, uint64_t nScene,
                             IProgress& rProgress, const PairSink& fnPair) {
    CMeasurement measurement(rSession, rProgress);
    MeasuredFrames& rResult = measurement.m_result;
    if (!rSession.hasScenes()) {
        rResult.light = measurement.measure("Light", firstFrames(0, nTest), fnPair);
        return rResult;
    }
    const SceneCounts counts = countFrames(rSession);
    rResult.dark = measurement.measure("Dark", measurement.framesBeside("Dark", counts.nDark, rPair.dark, nTest));
    rResult.light =
        measurement.measure("Light", measurement.framesBeside("Light", counts.nLight, rPair.light, nTest), fnPair);
    rResult.scene = measurement.measure("Scene", firstFrames(0, framesLeft(counts.nScene, 0, nScene)), fnPair);
    return rResult;
}

}  // namespace Toolkit
}  // namespace XAPEL2
