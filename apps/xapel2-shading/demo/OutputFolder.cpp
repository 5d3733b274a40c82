// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The folder that a demonstration writes to.

#include "demo/OutputFolder.h"

#include <fstream>
#include <stdexcept>
#include <vector>

#include <nlohmann/json.hpp>

#include "standin/files/SafeFile.h"
#include "terminal/Toolkit.h"
#include "toolkit/frames/FrameFile.h"

namespace XAPEL2 {
namespace App {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* RAW = "raw";
constexpr const char* CORRECTED = "corrected";
constexpr const char* FIGURES = "figures.json";
constexpr const char* OWN_FILES[] = {"before.png",  "after.png",          "scene-before.png",    "scene-after.png",
                                     "report.html", "reference-dark.tif", "reference-light.tif", FIGURES};

// File names that the figures of an earlier run list; anything that is not such a list gives none.
std::vector<std::string> earlierFrames(const fs::path& rFigures) {
    std::vector<std::string> astrNames;
    std::ifstream In(rFigures);
    const json Figures = json::parse(In, nullptr, false);
    if (!Figures.is_object() || !Figures.contains("frames") || !Figures["frames"].is_array()) {
        return astrNames;
    }
    for (const json& rName : Figures["frames"]) {
        // A plain file name only: an edited list must not lead out of the folder.
        if (rName.is_string() && fs::path(rName.get<std::string>()).filename() == rName.get<std::string>()) {
            astrNames.push_back(rName.get<std::string>());
        }
    }
    return astrNames;
}

}  // namespace

COutputFolder::COutputFolder(const fs::path& rFolder) : m_Folder(rFolder) {}

void COutputFolder::requireForeign(const CSourceFiles& rSources) const {
    for (const char* pName : OWN_FILES) {
        rSources.requireOther(m_Folder / pName);
    }
    for (const char* pFolder : {RAW, CORRECTED}) {
        std::error_code Missing;
        for (const fs::directory_entry& rEntry : fs::directory_iterator(m_Folder / pFolder, Missing)) {
            rSources.requireOther(rEntry.path());
        }
    }
}

void COutputFolder::prepare(const CSourceFiles& rSources) const {
    requireForeign(rSources);
    try {
        fs::create_directories(m_Folder / RAW);
        fs::create_directories(m_Folder / CORRECTED);
        removeEarlier();
    } catch (const fs::filesystem_error& rError) {
        throw std::runtime_error("output folder " + m_Folder.string() + " cannot be used: " + rError.code().message());
    }
}

void COutputFolder::removeEarlier() const {
    // Without figures no demonstration has been here: what has our names is somebody else's until it is overwritten.
    if (!fs::exists(m_Folder / FIGURES)) {
        return;
    }
    for (const std::string& strName : earlierFrames(m_Folder / FIGURES)) {
        fs::remove(m_Folder / RAW / strName);
        fs::remove(m_Folder / CORRECTED / strName);
    }
    for (const char* pName : OWN_FILES) {
        fs::remove(m_Folder / pName);
    }
}

std::string COutputFolder::writePair(const Frame& rRaw, const Frame& rCorrected) const {
    writeFrame(m_Folder / RAW, rRaw);
    return writeFrame(m_Folder / CORRECTED, rCorrected).filename().string();
}

nlohmann::ordered_json toJson(const DemoFigures& rFigures) {
    nlohmann::ordered_json Json;
    Json["source"] = rFigures.strSource;
    Json["pixel_format"] = rFigures.strPixelFormat;
    Json["width"] = rFigures.nWidth;
    Json["height"] = rFigures.nHeight;
    Json["dark_frames"] = rFigures.nDarkFrames;
    Json["light_frames"] = rFigures.nLightFrames;
    Json["frames_corrected"] = rFigures.astrFrames.size();
    Json["blocks_before_percent"] = rFigures.Before.fBlocksPercent;
    Json["blocks_after_percent"] = rFigures.After.fBlocksPercent;
    Json["pixels_before_percent"] = rFigures.Before.fPixelsPercent;
    Json["pixels_after_percent"] = rFigures.After.fPixelsPercent;
    Json["fetch_median_ms"] = rFigures.fFetchPlainMs;
    Json["fetch_corrected_median_ms"] = rFigures.fFetchCorrectedMs;
    Json["frames"] = rFigures.astrFrames;
    return Json;
}

void COutputFolder::writeFigures(const DemoFigures& rFigures) const {
    StandIn::saveFile(m_Folder / FIGURES, toJson(rFigures).dump(2, ' ', false, json::error_handler_t::replace) + '\n');
}

}  // namespace App
}  // namespace XAPEL2
