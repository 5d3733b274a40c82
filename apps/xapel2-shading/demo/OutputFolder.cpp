// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The folder that a demonstration writes to.

#include "demo/OutputFolder.h"

#include <fstream>
#include <stdexcept>
#include <system_error>

#include "standin/files/SafeFile.h"
#include "toolkit/frames/FrameFile.h"
#include "toolkit/text/Errors.h"

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

// What an earlier demonstration in this folder has written; nothing where its figures do not tell of one.
std::vector<fs::path> earlierFiles(const fs::path& rFolder) {
    std::vector<fs::path> vecFiles;
    std::ifstream in(rFolder / FIGURES);
    const json figures = json::parse(in, nullptr, false);
    if (!figures.is_object() || !figures.contains("frames_corrected") || !figures.contains("frames") ||
        !figures["frames"].is_array()) {
        return vecFiles;
    }
    for (const json& rName : figures["frames"]) {
        // A plain file name only: an edited list must not lead out of the folder.
        if (rName.is_string() && fs::path(rName.get<std::string>()).filename() == rName.get<std::string>()) {
            vecFiles.push_back(rFolder / RAW / rName.get<std::string>());
            vecFiles.push_back(rFolder / CORRECTED / rName.get<std::string>());
        }
    }
    for (const char* pName : OWN_FILES) {
        vecFiles.push_back(rFolder / pName);
    }
    return vecFiles;
}

}  // namespace

COutputFolder::~COutputFolder() {
    std::error_code ignored;
    for (const fs::path& rFile : m_made) {
        fs::remove(rFile, ignored);
    }
}

void COutputFolder::requireFree(const fs::path& rFile) const {
    std::error_code ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(rFile, ignored))) {
        throw CFileExistsError(rFile.string() + " exists and is not known to be of an earlier demo");
    }
}

void COutputFolder::prepare(const CSourceFiles& rSources) {
    const std::vector<fs::path> vecEarlier = earlierFiles(m_folder);
    for (const fs::path& rFile : vecEarlier) {
        rSources.requireOther(rFile);
    }
    for (const char* pName : OWN_FILES) {
        rSources.requireOther(m_folder / pName);
        if (vecEarlier.empty()) {
            requireFree(m_folder / pName);
        }
    }
    try {
        fs::create_directories(m_folder / RAW);
        fs::create_directories(m_folder / CORRECTED);
        for (const fs::path& rFile : vecEarlier) {
            fs::remove(rFile);
        }
    } catch (const fs::filesystem_error& rError) {
        throw std::runtime_error("output folder " + m_folder.string() + " cannot be used: " + rError.code().message());
    }
}

fs::path COutputFolder::claim(const fs::path& rName) {
    fs::path file = m_folder / rName;
    if (m_made.count(file) != 0) {
        throw CUsageError(file.string() + " would be written twice; two sources have this name");
    }
    requireFree(file);
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(file, ignored))) {
        m_made.insert(file);
    }
    return file;
}

void COutputFolder::write(const char* pName, const std::string& strBytes) {
    StandIn::saveFile(claim(pName), strBytes);
}

void COutputFolder::writePair(const FramePair& rPair) {
    claim(frameFile(RAW, rPair.raw.strName, *rPair.raw.pFormat));
    const fs::path corrected = claim(frameFile(CORRECTED, rPair.corrected.strName, *rPair.corrected.pFormat));
    writeFrame(m_folder / RAW, rPair.raw);
    writeFrame(m_folder / CORRECTED, rPair.corrected);
    m_vecFrames.push_back(corrected.filename().string());
}

void COutputFolder::finish(const nlohmann::ordered_json& rFigures) {
    write(FIGURES, rFigures.dump(2) + '\n');
    m_made.clear();
}

}  // namespace App
}  // namespace XAPEL2
