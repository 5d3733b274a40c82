// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration: record references, apply them, and show what correction does to the frames of a camera.

#include "demo/Demo.h"

#include <optional>
#include <stdexcept>
#include <vector>

#include "demo/OutputFolder.h"
#include "demo/Table.h"
#include "report/Report.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/figures/SelfTestFrames.h"
#include "toolkit/frames/Percentile.h"
#include "toolkit/frames/Pictures.h"
#include "toolkit/frames/SourceFiles.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/sessions/Recording.h"
#include "toolkit/sessions/Session.h"

namespace XAPEL2 {
namespace App {

namespace {

constexpr uint64_t REFERENCE_FRAMES = 16;  // of a camera that delivers without end
constexpr uint64_t TEST_FRAMES = 4;        // of each scene, at most

class CDemo {
public:
    explicit CDemo(const DemoOptions& rOptions)
        : m_strCamera(rOptions.strCamera), m_Told("demo", rOptions.bJson), m_Output(rOptions.strOut) {}

    int run() {
        {
            CSession Session(m_strCamera);
            planFrames(Session);
            CSourceFiles Sources;
            Sources.addDevice(m_strCamera);
            m_Output.prepare(Sources);
            recordReferences(Session);
            m_Pair = judgeWithSelfTest(m_Report.Files);
            applyPair(Session, m_Report.Files);
            m_Report.Camera = readCameraSettings(Session.nodes());
            measure(Session);
        }
        evaluate();
        m_Progress.clear();
        writeReport();
        m_Output.writeFigures(m_Figures);
        printTable(m_Told.text(), m_Figures, m_Output.path());
        m_Told.json().update(toJson(m_Figures));
        m_Told.json()["folder"] = m_Output.path().string();
        m_Told.json()["judgement"] = toJson(m_Pair);
        return m_Told.finish(isUsable(m_Pair, false) ? eExitDone : eExitRefused);
    }

private:
    void planFrames(CSession& rSession);
    void recordReferences(CSession& rSession);
    void measure(CSession& rSession);
    void evaluate();
    void writeReport();

    std::string m_strCamera;
    COutput m_Told;
    COutputFolder m_Output;
    CProgress m_Progress;
    DemoFigures m_Figures;
    FramePlan m_Dark, m_Light, m_Scene;
    JudgedPair m_Pair;
    ReportInput m_Report;
    std::optional<FramePair> m_First;  // an even frame
};

// Recorded frames are divided between the references and the test; a camera without end gives both what they need.
void CDemo::planFrames(CSession& rSession) {
    const SceneCounts Counts = countFrames(rSession);
    if (Counts.nLight < 2) {
        throw std::runtime_error(m_strCamera + " has " + std::to_string(Counts.nLight) +
                                 " light_* frames; a light reference and a frame to test it on take at least two");
    }
    m_Dark = App::planFrames(Counts.nDark, REFERENCE_FRAMES, TEST_FRAMES);
    m_Light = App::planFrames(Counts.nLight, REFERENCE_FRAMES, TEST_FRAMES);
    m_Scene.nTest = Counts.nScene == SceneCounts::ENDLESS ? TEST_FRAMES : Counts.nScene;
    m_Figures.nDarkFrames = m_Dark.nReference;
    m_Figures.nLightFrames = m_Light.nReference;
    m_Figures.strSource = m_strCamera;
    m_Figures.strPixelFormat = rSession.pixelFormat();
    m_Figures.nWidth = rSession.width();
    m_Figures.nHeight = rSession.height();
}

void CDemo::recordReferences(CSession& rSession) {
    PairOptions& rFiles = m_Report.Files;
    if (m_Dark.nReference > 0) {
        rFiles.strDark = m_Output.file("reference-dark.tif").string();
        recordReference(rSession, false, m_Dark.nReference, rFiles.strDark, m_Progress);
    }
    rFiles.strLight = m_Output.file("reference-light.tif").string();
    recordReference(rSession, true, m_Light.nReference, rFiles.strLight, m_Progress);
}

void CDemo::measure(CSession& rSession) {
    CMeasurement Measurement(rSession, m_Progress);
    const auto fnWrite = [&](const FramePair& rPair) {
        m_Figures.astrFrames.push_back(m_Output.writePair(rPair.Raw, rPair.Corrected));
        if (!m_First) {
            m_First = rPair;
        }
    };
    m_Report.Light = Measurement.measure("Light", m_Light.nReference, m_Light.nTest, fnWrite);
    m_Report.Scene = Measurement.measure("Scene", 0, m_Scene.nTest, fnWrite);
    m_Report.Dark = Measurement.measure("Dark", m_Dark.nReference, m_Dark.nTest);
    m_Report.vecPlainMs = Measurement.plainMs();
    m_Report.vecCorrectedMs = Measurement.correctedMs();
}

void CDemo::evaluate() {
    m_Figures.Before = unevenness(m_First->Raw, m_Pair.Dark ? m_Pair.Dark->vSamples : std::vector<float>());
    m_Figures.After = unevenness(m_First->Corrected, {});
    m_Figures.fFetchPlainMs = percentile(m_Report.vecPlainMs, 0.5);
    m_Figures.fFetchCorrectedMs = percentile(m_Report.vecCorrectedMs, 0.5);
    writePicturePair(m_Output.file("before.png"), m_First->Raw, m_Output.file("after.png"), m_First->Corrected);
    if (m_Report.Scene.Shown) {
        const FramePair& rScene = *m_Report.Scene.Shown;
        writePicturePair(m_Output.file("scene-before.png"), rScene.Raw, m_Output.file("scene-after.png"),
                         rScene.Corrected);
    }
}

void CDemo::writeReport() {
    m_Report.strDevice = m_strCamera;
    m_Report.strCommandLine = commandLine();
    m_Report.pPair = &m_Pair;
    App::writeReport(m_Output.file("report.html").string(), makeReport(m_Report));
}

}  // namespace

int runDemo(const DemoOptions& rOptions) {
    return CDemo(rOptions).run();
}

}  // namespace App
}  // namespace XAPEL2
