// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Recording a reference from the live stream.

#include "toolkit/sessions/Recording.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <vector>

#include <nlohmann/json.hpp>

#include "toolkit/frames/ContentHash.h"
#include "toolkit/sessions/CameraSettings.h"
#include "toolkit/sessions/Interrupt.h"
#include "toolkit/sessions/Times.h"
#include "toolkit/text/Texts.h"

#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

// Incomplete frames without a good one between, after which more of them are not worth waiting for.
constexpr uint64_t BAD_IN_A_ROW_MAX = 50;
constexpr std::size_t BLOCK = 65536;
constexpr const char* FRAMES_TAKEN = "FramesTaken";
constexpr const char* FRAME_HASHES = "FrameHashes";
// What the settings in a file have room for.
constexpr std::size_t HASHES_MAX = 2000;

std::string dateText() {
    const std::time_t tNow = std::time(nullptr);
    std::tm parts{};
    char acText[40] = "";
    if (gmtime_r(&tNow, &parts) != nullptr) {
        std::strftime(acText, sizeof acText, "%Y-%m-%dT%H:%M:%SZ", &parts);
    }
    return acText;
}

class CRecorder {
public:
    CRecorder(CSession& rSession, bool bLight, IProgress& rProgress)
        : m_rSession(rSession), m_bLight(bLight), m_rProgress(rProgress) {}

    Recording record(uint64_t nFrames, const std::string& strFile, bool bKeepOutliers);

private:
    void stream(uint64_t nFrames);
    void take(StandIn::BufferHandle hBuffer);
    uint64_t countSaturated(StandIn::BufferHandle hBuffer, const StandIn::ImageLayout& rLayout);
    void noteContent(StandIn::BufferHandle hBuffer);
    void noteSettings();

    CSession& m_rSession;
    bool m_bLight;
    IProgress& m_rProgress;
    Recording m_result;
    uint64_t m_nBadInARow = 0;
    double m_dSaturated = 0.0, m_dSamples = 0.0;
    std::vector<uint16_t> m_vecBlock = std::vector<uint16_t>(BLOCK);
    bool m_bFinite = false;  // the camera has only so many frames, which may come again
    std::vector<std::string> m_vecHashes;
};

uint64_t CRecorder::countSaturated(StandIn::BufferHandle hBuffer, const StandIn::ImageLayout& rLayout) {
    const void* pImage = m_rSession.imageOf(hBuffer);
    const auto uFull = static_cast<uint16_t>(rLayout.pFormat->fullScale());
    uint64_t nSaturated = 0;
    for (std::size_t i = 0; i < rLayout.samples(); i += BLOCK) {
        const std::size_t nSamples = std::min(BLOCK, rLayout.samples() - i);
        StandIn::unpackSamples(*rLayout.pFormat, pImage, i, nSamples, m_vecBlock.data());
        nSaturated += static_cast<uint64_t>(
            std::count(m_vecBlock.begin(), m_vecBlock.begin() + static_cast<std::ptrdiff_t>(nSamples), uFull));
    }
    return nSaturated;
}

void CRecorder::noteContent(StandIn::BufferHandle hBuffer) {
    if (m_bFinite && m_vecHashes.size() <= HASHES_MAX) {
        const Frame frame = m_rSession.copyFrame(hBuffer);
        m_vecHashes.push_back(frameHash(m_rSession.layoutOf(hBuffer), frame.vecSamples.data()));
    }
}

void CRecorder::take(StandIn::BufferHandle hBuffer) {
    if (!m_rSession.isComplete(hBuffer)) {
        if (m_result.nLeftOut++ == 0) {
            m_result.strLeftOut = "frame " + m_rSession.frameName(hBuffer) + ": " + m_rSession.whyUncorrected(hBuffer);
        }
        if (++m_nBadInARow > BAD_IN_A_ROW_MAX) {
            throw std::runtime_error(m_rSession.device() + ": the camera delivers no complete frame any more, " +
                                     m_result.strLeftOut + INCOMPLETE_ADVICE);
        }
        return;
    }
    m_nBadInARow = 0;
    const StandIn::ImageLayout layout = m_rSession.layoutOf(hBuffer);
    m_dSaturated += static_cast<double>(countSaturated(hBuffer, layout));
    m_dSamples += static_cast<double>(layout.samples());
    noteContent(hBuffer);
    m_result.dSaturatedShare = m_dSaturated / m_dSamples;
    ++m_result.nFrames;
}

void CRecorder::stream(uint64_t nFrames) {
    const uint64_t nHas = m_rSession.frameCount();
    const uint64_t nWanted = nHas == 0 ? nFrames : std::min(nFrames, nHas);
    m_bFinite = nHas != 0;
    const std::string strStep = m_bLight ? "recording the light reference" : "recording the dark reference";
    m_rSession.seekFrame(0);
    const Clock::time_point tBegin = Clock::now();
    m_rSession.start();
    m_rProgress.show(strStep, 0, nWanted);
    // A camera with so many frames begins again after the last one; no frame is to count twice.
    for (uint64_t i = 0; m_result.nFrames < nWanted && (nHas == 0 || i < nHas); ++i) {
        const StandIn::BufferHandle hBuffer = m_rSession.fetch();
        take(hBuffer);
        m_rSession.giveBack(hBuffer);
        m_rProgress.show(strStep, m_result.nFrames, nWanted,
                         "saturated " + fixed(m_result.dSaturatedShare * 100.0, 3) + " %");
    }
    m_result.dSeconds = secondsSince(tBegin);
    m_result.nUnderruns = m_rSession.underruns();
    m_rSession.stop();
    if (m_result.nFrames == 0) {
        throw std::runtime_error(m_rSession.device() + ": no frame came complete, " + m_result.strLeftOut);
    }
}

/// How the references that this thread ends are made, and what they tell of the camera, as long as it lives.
class CNote {
public:
    explicit CNote(bool bKeepOutliers) { StandIn::setOutliersKept(bKeepOutliers); }
    ~CNote() {
        StandIn::setReferenceNote("");
        StandIn::setOutliersKept(false);
    }
    CNote(const CNote&) = delete;
    CNote& operator=(const CNote&) = delete;
};

// Has the host file the camera's settings; none where they cannot be read, or the host does not take them.
void CRecorder::noteSettings() {
    try {
        nlohmann::ordered_json json = toJson(readCameraSettings(m_rSession.nodes()));
        json["Recorded"] = dateText();
        json[FRAMES_TAKEN] = m_result.nFrames + m_result.nLeftOut;
        if (!m_vecHashes.empty() && m_vecHashes.size() <= HASHES_MAX) {
            json[FRAME_HASHES] = m_vecHashes;
        }
        // The name of a camera need not be UTF-8.
        StandIn::setReferenceNote(json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    } catch (const std::exception& rError) {
        m_result.strNoSettings = rError.what();
    }
}

Recording CRecorder::record(uint64_t nFrames, const std::string& strFile, bool bKeepOutliers) {
    if (m_rSession.hasScenes()) {
        m_rSession.selectScene(m_bLight ? "Light" : "Dark");
    }
    Ext::Sc::Shading& rShading = m_rSession.shading();
    m_rSession.attempt("starting the recording", [&] {
        rShading.ReferenceStart(m_bLight);
        rShading.SetEnable(true);
    });
    stream(nFrames);
    m_rProgress.clear();
    Interrupt::check();
    const CNote note(bKeepOutliers);
    noteSettings();
    m_rSession.attempt(strFile, [&] { rShading.ReferenceEnd(strFile.c_str()); });
    return m_result;
}

}  // namespace

Recording recordReference(CSession& rSession, bool bLight, uint64_t nFrames, const std::string& strFile,
                          IProgress& rProgress, bool bKeepOutliers) {
    return CRecorder(rSession, bLight, rProgress).record(nFrames, strFile, bKeepOutliers);
}

void foldToLine(const std::string& strFile) {
    StandIn::ReferenceImage reference = StandIn::readReferenceFile(strFile);
    if (reference.layout.pFormat->isCfa()) {
        throw std::runtime_error(strFile + ": rows of a filter array differ in colour, so there is no mean of them; " +
                                 "record without --line");
    }
    const std::size_t nRow = reference.layout.samplesPerRow();
    std::vector<double> vecSums(nRow);
    for (std::size_t i = 0; i < reference.vecSamples.size(); ++i) {
        vecSums[i % nRow] += static_cast<double>(reference.vecSamples[i]);
    }
    reference.vecSamples.resize(nRow);
    for (std::size_t i = 0; i < nRow; ++i) {
        reference.vecSamples[i] = static_cast<float>(vecSums[i] / static_cast<double>(reference.layout.nHeight));
    }
    reference.nRows = reference.layout.nHeight;
    reference.layout.nHeight = 1;
    if (reference.geometry.isKnown()) {
        reference.geometry.y = {1, 0, 1, StandIn::eBinningUnknown, false};  // of a sensor of one line
    }
    for (StandIn::FrameOutlier& rPlace : reference.outliers.vecPlaces) {
        rPlace.nY = 0;
        rPlace.nHeight = 1;
    }
    StandIn::writeReferenceFile(strFile, reference);
}

uint64_t framesTaken(const StandIn::ReferenceImage& rReference) {
    const nlohmann::json json = nlohmann::json::parse(rReference.strCamera, nullptr, false);
    const bool bTold = json.is_object() && json.contains(FRAMES_TAKEN) && json[FRAMES_TAKEN].is_number_unsigned();
    return bTold ? std::max(rReference.nImages, json[FRAMES_TAKEN].get<uint64_t>()) : rReference.nImages;
}

std::multiset<std::string> frameHashes(const StandIn::ReferenceImage& rReference) {
    std::multiset<std::string> setHashes;
    const nlohmann::json json = nlohmann::json::parse(rReference.strCamera, nullptr, false);
    if (json.is_object() && json.contains(FRAME_HASHES) && json[FRAME_HASHES].is_array()) {
        for (const auto& rHash : json[FRAME_HASHES]) {
            if (rHash.is_string()) {
                setHashes.insert(rHash.get<std::string>());
            }
        }
    }
    return setHashes;
}

}  // namespace Toolkit
}  // namespace XAPEL2
