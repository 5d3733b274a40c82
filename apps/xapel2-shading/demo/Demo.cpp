// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration: record references, apply them, and show what correction does to the frames of a camera.

#include "demo/Demo.h"

#include <iostream>
#include <optional>
#include <stdexcept>
#include <vector>

#include "demo/OutputFolder.h"
#include "demo/Plot.h"
#include "device/Progress.h"
#include "images/Pictures.h"

#include "demo/Table.h"
#include "device/Session.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace App {

namespace {

constexpr uint64_t REFERENCE_FRAMES = 16;  // of a camera that delivers without end
constexpr uint64_t TEST_FRAMES = 4;        // of each scene of such a camera
constexpr bool LIGHT = true;               // the flag of the reference operations
constexpr bool DARK = false;

/// One frame, fetched with correction off and on.
struct Pair {
    Frame Raw, Corrected;
};

class CDemo {
public:
    explicit CDemo(const DemoOptions& rOptions)
        : m_strCamera(rOptions.strCamera), m_Session(rOptions.strCamera), m_Output(rOptions.strOut) {}

    void run() {
        planFrames();
        m_Output.prepare();
        record("Dark", DARK, m_Figures.nDarkFrames, "reference-dark.tif");
        record("Light", LIGHT, m_Figures.nLightFrames, "reference-light.tif");
        applyReferences();
        correctFrames("Light", m_nLightFirst, m_nLightTests);
        correctFrames("Scene", 0, m_nSceneTests);
        evaluate();
        m_Output.writeFigures(m_Figures);
        m_Progress.clear();
        printTable(std::cout, m_Figures, m_Output.path());
    }

private:
    void planFrames();
    uint64_t framesOf(const char* pScene);
    void record(const char* pScene, bool bLight, uint64_t nFrames, const char* pFile);
    void applyReferences();
    void correctFrames(const char* pScene, uint64_t iFirst, uint64_t nFrames);
    Frame fetchWith(bool bCorrection, uint64_t iFrame);
    void evaluate();

    std::string m_strCamera;
    CSession m_Session;
    COutputFolder m_Output;
    CProgress m_Progress;
    DemoFigures m_Figures;
    bool m_bEndless = false;
    uint64_t m_nLightFirst = 0;
    uint64_t m_nLightTests = 0;
    uint64_t m_nSceneTests = 0;
    std::optional<Pair> m_First;      // an even frame
    std::optional<Pair> m_LastScene;  // empty when there is no scene
    std::vector<double> m_afPlainMs;
    std::vector<double> m_afCorrectedMs;
};

double median(const std::vector<double>& rValues) {
    return percentile(rValues, 0.5);
}

// Recorded frames are divided between the light reference and the test; a camera without end gives both what they need.
void CDemo::planFrames() {
    m_bEndless = m_strCamera.rfind("replay:", 0) != 0;
    const uint64_t nDark = framesOf("Dark");
    const uint64_t nLight = framesOf("Light");
    if (!m_bEndless && nLight < 2) {
        throw std::runtime_error(m_strCamera + " has " + std::to_string(nLight) +
                                 " light_* frames; a light reference and a frame to test it on take at least two");
    }
    m_Figures.nDarkFrames = m_bEndless ? REFERENCE_FRAMES : nDark;
    m_Figures.nLightFrames = m_bEndless ? REFERENCE_FRAMES : nLight - 1;
    m_nLightFirst = m_Figures.nLightFrames;
    m_nLightTests = m_bEndless ? TEST_FRAMES : 1;
    m_nSceneTests = m_bEndless ? TEST_FRAMES : framesOf("Scene");
    m_Figures.strSource = m_strCamera;
    m_Figures.strPixelFormat = m_Session.pixelFormat();
    m_Figures.nWidth = m_Session.width();
    m_Figures.nHeight = m_Session.height();
}

uint64_t CDemo::framesOf(const char* pScene) {
    m_Session.selectScene(pScene);
    return m_Session.frameCount();
}

void CDemo::record(const char* pScene, bool bLight, uint64_t nFrames, const char* pFile) {
    if (nFrames == 0) {
        return;
    }
    m_Session.selectScene(pScene);
    m_Session.shading().ReferenceStart(bLight);
    m_Session.shading().SetEnable(true);
    m_Session.streamFrames(nFrames, [&](uint64_t nDone) {
        m_Progress.show(bLight ? "recording the light reference" : "recording the dark reference", nDone, nFrames);
    });
    try {
        m_Session.shading().ReferenceEnd(m_Output.file(pFile).c_str());
    } catch (const Exceptions::IException& rError) {
        throw std::runtime_error(m_Output.file(pFile).string() + ": " + rError.GetErrorDescription().get());
    }
}

void CDemo::applyReferences() {
    // What has just been recorded is in the image processor already. It is loaded from its files all the same: that is
    // how a program starts that recorded its references on another day.
    m_Session.shading().ReferenceClear();
    if (m_Figures.nDarkFrames > 0) {
        m_Session.shading().ReferenceLoad(DARK, m_Output.file("reference-dark.tif").c_str());
    }
    m_Session.shading().ReferenceLoad(LIGHT, m_Output.file("reference-light.tif").c_str());
    m_Session.shading().ReferenceApply();
}

Frame CDemo::fetchWith(bool bCorrection, uint64_t iFrame) {
    m_Session.shading().SetEnable(bCorrection);
    return m_Session.fetchFrame(iFrame);
}

void CDemo::correctFrames(const char* pScene, uint64_t iFirst, uint64_t nFrames) {
    if (nFrames == 0) {
        return;
    }
    m_Session.selectScene(pScene);
    for (uint64_t i = iFirst; i < iFirst + nFrames; ++i) {
        Pair Frames{fetchWith(false, i), fetchWith(true, i)};
        if (Frames.Raw.strName != Frames.Corrected.strName) {
            throw std::runtime_error("the camera delivered frame " + Frames.Corrected.strName + " in place of " +
                                     Frames.Raw.strName);
        }
        m_Figures.astrFrames.push_back(m_Output.writePair(Frames.Raw, Frames.Corrected));
        m_afPlainMs.push_back(Frames.Raw.fFetchMs);
        m_afCorrectedMs.push_back(Frames.Corrected.fFetchMs);
        m_Progress.show("correcting frames", m_Figures.astrFrames.size(), m_nLightTests + m_nSceneTests);
        if (!m_First) {
            m_First = std::move(Frames);
        } else {
            m_LastScene = std::move(Frames);
        }
    }
}

void CDemo::evaluate() {
    std::vector<float> aDark;
    if (m_Figures.nDarkFrames > 0) {
        aDark = StandIn::readReferenceFile(m_Output.file("reference-dark.tif").string()).vSamples;
    }
    m_Figures.Before = unevenness(m_First->Raw, aDark);
    m_Figures.After = unevenness(m_First->Corrected, {});
    m_Figures.fFetchPlainMs = median(m_afPlainMs);
    m_Figures.fFetchCorrectedMs = median(m_afCorrectedMs);
    writePicturePair(m_Output.file("before.png"), m_First->Raw, m_Output.file("after.png"), m_First->Corrected);
    if (m_nSceneTests > 0) {
        writePicturePair(m_Output.file("scene-before.png"), m_LastScene->Raw, m_Output.file("scene-after.png"),
                         m_LastScene->Corrected);
    }
    if (!plotRow(m_Output.file("profile.png"), m_First->Raw, m_First->Corrected, m_Figures.nHeight / 2)) {
        m_Progress.clear();
        std::cerr << "xapel2-shading: profile.png is left out, it takes gnuplot (Debian package gnuplot-nox)\n";
    }
}

}  // namespace

void runDemo(const DemoOptions& rOptions) {
    CDemo(rOptions).run();
}

}  // namespace App
}  // namespace XAPEL2
