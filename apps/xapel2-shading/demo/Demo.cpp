// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The demonstration: record references, apply them, and show what correction does to the frames of a camera.

#include "demo/Demo.h"

#include <array>
#include <cstdio>
#include <optional>
#include <ostream>
#include <stdexcept>

#include "demo/OutputFolder.h"
#include "report/Report.h"
#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Progress.h"
#include "terminal/Warnings.h"
#include "toolkit/figures/SelfTestFrames.h"
#include "toolkit/figures/Unevenness.h"
#include "toolkit/frames/Pictures.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

constexpr uint64_t TEST_FRAMES = 4;  // of each scene, at most

/// Measures, and keeps the first even frame, which the pictures and the unevenness are of.
std::optional<FramePair> measure(const DemoOptions& rOptions, COutputFolder& rFolder, IProgress& rProgress,
                                 ReportInput& rInput) {
    std::optional<FramePair> first;
    CSession session(rOptions.strCamera);
    const SceneCounts counts = countFrames(session);
    if (counts.nLight < 2) {
        throw std::runtime_error(rOptions.strCamera + " has " + counted(counts.nLight, "frame") +
                                 " light_*; a light reference and a frame to test it on take at least two");
    }
    CSourceFiles sources;
    sources.addDevice(rOptions.strCamera);
    rFolder.prepare(sources);
    for (const char* pName : {"reference-dark.tif", "reference-light.tif"}) {
        rFolder.file(pName);
    }
    rInput.strDevice = rOptions.strCamera;
    rInput.files = recordPair(session, REFERENCE_FRAMES, TEST_FRAMES, rFolder.path(), rProgress);
    rInput.pair = judgeWithSelfTest(rInput.files);
    applyPair(session, rInput.files);
    rInput.camera = readCameraSettings(session.nodes());
    rInput.pair.compareWith(rInput.camera);
    static_cast<MeasuredFrames&>(rInput) = measureFrames(
        session, rInput.pair, TEST_FRAMES, counts.nScene == SceneCounts::ENDLESS ? TEST_FRAMES : counts.nScene,
        rProgress, [&](const FramePair& rPair) {
            rFolder.writePair(rPair);
            if (!first) {
                first = rPair;
            }
        });
    rProgress.clear();
    return first;
}

/// The content of figures.json.
ordered_json figuresOf(const ReportInput& rInput, const FramePair& rFirst, const ordered_json& rReport,
                       const std::vector<std::string>& rFrames) {
    const Unevenness before =
        unevenness(rFirst.raw, rInput.pair.dark ? rInput.pair.dark->vecSamples : std::vector<float>());
    const Unevenness after = unevenness(rFirst.corrected, {});
    return {{"source", rInput.strDevice},
            {"pixel_format", rReport.at("pixelFormat")},
            {"width", rReport.at("width")},
            {"height", rReport.at("height")},
            {"dark_frames", rInput.pair.dark ? rInput.pair.dark->nImages : 0},
            {"light_frames", rInput.pair.light->nImages},
            {"frames_corrected", rFrames.size()},
            {"blocks_before_percent", before.dBlocksPercent},
            {"blocks_after_percent", after.dBlocksPercent},
            {"pixels_before_percent", before.dPixelsPercent},
            {"pixels_after_percent", after.dPixelsPercent},
            {"fetch_median_ms", rReport.at("time").at("plainMedianMs")},
            {"fetch_corrected_median_ms", rReport.at("time").at("correctedMedianMs")},
            {"frames", rFrames}};
}

void writePictures(COutputFolder& rFolder, const char* pBefore, const char* pAfter, const FramePair& rPair) {
    const PicturePair pictures = picturePair(rPair.raw, rPair.corrected);
    rFolder.write(pBefore, pictures.strBefore);
    rFolder.write(pAfter, pictures.strAfter);
}

void printTable(std::ostream& rOut, const ordered_json& rFigures, const fs::path& rFolder) {
    const auto fnText = [&](const char* pName) { return shown(rFigures.at(pName).get<std::string>()); };
    const auto fnFrame = [&](const ordered_json& rName) {
        return shown(fs::path(rName.get<std::string>()).stem().string());
    };
    const bool bDark = rFigures.at("dark_frames") != 0;
    const bool bFiles = fnText("source").rfind("replay:", 0) == 0;
    rOut << (bFiles ? "Files       " : "Camera      ") << fnText("source") << ", " << rFigures.at("width") << " x "
         << rFigures.at("height") << ' ' << fnText("pixel_format") << "\nReferences  mean of "
         << (bDark ? rFigures.at("dark_frames").dump() + " dark and " : "")
         << counted(rFigures.at("light_frames"), "light frame")
         << (bDark ? "" : "\n            no dark frames: corrected without a dark reference") << "\nCorrected   "
         << counted(rFigures.at("frames_corrected"), "frame") << ", " << fnFrame(rFigures.at("frames").front());
    if (rFigures.at("frames").size() > 1) {
        rOut << " to " << fnFrame(rFigures.at("frames").back());
    }
    rOut << "\n\n";
    std::array<char, 120> acLine{};
    std::snprintf(acLine.data(), acLine.size(), "  %-26s %11s %11s\n", "", "before", "after");
    rOut << acLine.data();
    const auto fnLine = [&](const char* pLabel, const char* pBefore, const char* pAfter, auto fnTold) {
        const ordered_json &rBefore = rFigures.at(pBefore), &rAfter = rFigures.at(pAfter);
        if (rBefore.is_null() || rAfter.is_null()) {
            rOut << "  " << pLabel << ": unknown, the image is too small or too dark\n";
            return;
        }
        std::snprintf(acLine.data(), acLine.size(), "  %-26s %11s %11s\n", pLabel, fnTold(rBefore).c_str(),
                      fnTold(rAfter).c_str());
        rOut << acLine.data();
    };
    const auto fnPercent = [](double dValue) { return withUnit(dValue, 2, "%"); };
    fnLine("unevenness, 16 x 16 blocks", "blocks_before_percent", "blocks_after_percent", fnPercent);
    fnLine("unevenness, single pixels", "pixels_before_percent", "pixels_after_percent", fnPercent);
    fnLine("fetch of a waiting frame", "fetch_median_ms", "fetch_corrected_median_ms", duration);
    rOut << "\nUnevenness: standard deviation over mean of " << fnFrame(rFigures.at("frames").front())
         << (bDark ? ", dark reference taken off" : "") << ". Time: median.\nWritten to " << shown(rFolder.string())
         << "\n ";
    for (const char* pName : {"report.html", "before.png", "after.png", "scene-before.png", "scene-after.png",
                              "reference-dark.tif", "reference-light.tif", "figures.json"}) {
        if (fs::exists(rFolder / pName)) {
            rOut << ' ' << pName;
        }
    }
    rOut << "\n  raw/ corrected/\n";
}

}  // namespace

int runDemo(const DemoOptions& rOptions) {
    COutput output("demo", rOptions.bJson);
    CProgress progress;
    COutputFolder folder(rOptions.strOut, rOptions.bOverwrite);
    ReportInput input;
    const std::optional<FramePair> first = measure(rOptions, folder, progress, input);
    writePictures(folder, "before.png", "after.png", *first);
    if (input.scene.shown) {
        writePictures(folder, "scene-before.png", "scene-after.png", *input.scene.shown);
    }
    const Report made = makeReport(input);
    writeReport(folder.file("report.html").string(), made);
    const ordered_json figures = tellable(figuresOf(input, *first, made.figures, folder.frames()));
    folder.finish(figures);
    printTable(output.text(), figures, folder.path());
    output.json().update(figures);
    output.json()["folder"] = folder.path().string();
    output.json()["judgement"] = toJson(input.pair);
    const Findings vecMeasured = measuredFindings(input, made.figures);
    warnAbout(vecMeasured, eNote);
    return output.finish(isUsable(input.pair, false, false) && !refused(vecMeasured, false) ? eExitDone : eExitRefused);
}

}  // namespace App
}  // namespace XAPEL2
