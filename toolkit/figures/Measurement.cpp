// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Frames of a camera with correction off and on, for a report.

#include "toolkit/figures/Measurement.h"

#include <algorithm>
#include <stdexcept>

#include "toolkit/sessions/Recording.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

class CMeasurement {
public:
    CMeasurement(CSession& rSession, IProgress& rProgress) : m_rSession(rSession), m_rProgress(rProgress) {}

    SceneFrames measure(const char* pScene, uint64_t iFirst, uint64_t nFrames, const PairSink& fnPair = {});

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

SceneFrames CMeasurement::measure(const char* pScene, uint64_t iFirst, uint64_t nFrames, const PairSink& fnPair) {
    SceneFrames result;
    if (nFrames == 0) {
        return result;
    }
    if (m_rSession.hasScenes()) {
        m_rSession.selectScene(pScene);
    }
    std::optional<CFrameStack> before, after;
    for (uint64_t i = 0; i < nFrames; ++i) {
        result.shown = fetchPair(iFirst + i);
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
        m_rProgress.show("measuring, frames without and with correction", i + 1, nFrames);
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
        rResult.light = measurement.measure("Light", 0, nTest, fnPair);
        return rResult;
    }
    const SceneCounts counts = countFrames(rSession);
    const uint64_t nDark = rPair.dark ? framesTaken(*rPair.dark) : 0;
    const uint64_t nLight = rPair.light ? framesTaken(*rPair.light) : 0;
    rResult.dark = measurement.measure("Dark", nDark, framesLeft(counts.nDark, nDark, nTest));
    rResult.light = measurement.measure("Light", nLight, framesLeft(counts.nLight, nLight, nTest), fnPair);
    rResult.scene = measurement.measure("Scene", 0, framesLeft(counts.nScene, 0, nScene), fnPair);
    return rResult;
}

}  // namespace Toolkit
}  // namespace XAPEL2
