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

    MeasuredFrames m_Result;

private:
    FramePair fetchPair(uint64_t iFrame);

    CSession& m_rSession;
    IProgress& m_rProgress;
};

FramePair CMeasurement::fetchPair(uint64_t iFrame) {
    // One after the other, so that a lamp that grows dimmer dims both means alike.
    m_rSession.shading().SetEnable(false);
    Frame Raw = m_rSession.fetchFrame(iFrame);
    m_rSession.shading().SetEnable(true);
    Frame Corrected = m_rSession.fetchFrame(iFrame);
    if (m_rSession.hasScenes() && Raw.strName != Corrected.strName) {
        throw std::runtime_error("frame " + Corrected.strName + " came in place of " + Raw.strName);
    }
    m_Result.vecPlainMs.push_back(Raw.fFetchMs);
    m_Result.vecCorrectedMs.push_back(Corrected.fFetchMs);
    return {std::move(Raw), std::move(Corrected)};
}

SceneFrames CMeasurement::measure(const char* pScene, uint64_t iFirst, uint64_t nFrames, const PairSink& fnPair) {
    SceneFrames Result;
    if (nFrames == 0) {
        return Result;
    }
    if (m_rSession.hasScenes()) {
        m_rSession.selectScene(pScene);
    }
    std::optional<CFrameStack> Before, After;
    for (uint64_t i = 0; i < nFrames; ++i) {
        Result.Shown = fetchPair(iFirst + i);
        const Frame& rRaw = Result.Shown->Raw;
        if (!Before) {
            const StandIn::ImageLayout sLayout{rRaw.pFormat, rRaw.nWidth, rRaw.nHeight};
            Before.emplace(sLayout);
            After.emplace(sLayout);
        }
        Before->add(rRaw);
        After->add(Result.Shown->Corrected);
        if (fnPair) {
            fnPair(*Result.Shown);
        }
        m_rProgress.show("measuring, frames without and with correction", i + 1, nFrames);
    }
    Result.Before = Before->mean();
    Result.After = After->mean();
    return Result;
}

}  // namespace

SceneCounts countFrames(CSession& rSession) {
    SceneCounts Counts;
    const auto fnCount = [&](const char* pScene) {
        rSession.selectScene(pScene);
        return rSession.frameCount();
    };
    const uint64_t nDark = fnCount("Dark"), nLight = fnCount("Light"), nScene = fnCount("Scene");
    if (nDark + nLight + nScene > 0) {
        Counts = {nDark, nLight, nScene};
    }
    return Counts;
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
    PairOptions Files;
    const SceneCounts Counts = countFrames(rSession);
    for (const bool bLight : {false, true}) {
        const FramePlan Plan = planFrames(bLight ? Counts.nLight : Counts.nDark, nReference, nTest);
        if (Plan.nReference > 0) {
            std::string& rFile = bLight ? Files.strLight : Files.strDark;
            rFile = (rFolder / (bLight ? "reference-light.tif" : "reference-dark.tif")).string();
            recordReference(rSession, bLight, Plan.nReference, rFile, rProgress);
        }
    }
    return Files;
}

MeasuredFrames measureFrames(CSession& rSession, const JudgedPair& rPair, uint64_t nTest, uint64_t nScene,
                             IProgress& rProgress, const PairSink& fnPair) {
    CMeasurement Measurement(rSession, rProgress);
    MeasuredFrames& rResult = Measurement.m_Result;
    if (!rSession.hasScenes()) {
        rResult.Light = Measurement.measure("Light", 0, nTest, fnPair);
        return rResult;
    }
    const SceneCounts Counts = countFrames(rSession);
    const uint64_t nDark = rPair.Dark ? framesTaken(*rPair.Dark) : 0;
    const uint64_t nLight = rPair.Light ? framesTaken(*rPair.Light) : 0;
    rResult.Dark = Measurement.measure("Dark", nDark, framesLeft(Counts.nDark, nDark, nTest));
    rResult.Light = Measurement.measure("Light", nLight, framesLeft(Counts.nLight, nLight, nTest), fnPair);
    rResult.Scene = Measurement.measure("Scene", 0, framesLeft(Counts.nScene, 0, nScene), fnPair);
    return rResult;
}

}  // namespace Toolkit
}  // namespace XAPEL2
