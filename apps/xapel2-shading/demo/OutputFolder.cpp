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
    std::ifstream In(rFolder / FIGURES);
    const json Figures = json::parse(In, nullptr, false);
    if (!Figures.is_object() || !Figures.contains("frames_corrected") || !Figures.contains("frames") ||
        !Figures["frames"].is_array()) {
        return vecFiles;
    }
    for (const json& rName : Figures["frames"]) {
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
    std::error_code Ignored;
    for (const fs::path& rFile : m_Made) {
        fs::remove(rFile, Ignored);
    }
}

void COutputFolder::requireFree(const fs::path& rFile) const {
    std::error_code Ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(rFile, Ignored))) {
        throw CFileExistsError(rFile.string() + " exists and is not known to be of an earlier demo");
    }
}

void COutputFolder::prepare(const CSourceFiles& rSources) {
    const std::vector<fs::path> vecEarlier = earlierFiles(m_Folder);
    for (const fs::path& rFile : vecEarlier) {
        rSources.requireOther(rFile);
    }
    for (const char* pName : OWN_FILES) {
        rSources.requireOther(m_Folder / pName);
        if (vecEarlier.empty()) {
            requireFree(m_Folder / pName);
        }
    }
    try {
        fs::create_directories(m_Folder / RAW);
        fs::create_directories(m_Folder / CORRECTED);
        for (const fs::path& rFile : vecEarlier) {
            fs::remove(rFile);
        }
    } catch (const fs::filesystem_error& rError) {
        throw std::runtime_error("output folder " + m_Folder.string() + " cannot be used: " + rError.code().message());
    }
}

fs::path COutputFolder::claim(const fs::path& rName) {
    fs::path File = m_Folder / rName;
    if (m_Made.count(File) != 0) {
        throw CUsageError(File.string() + " would be written twice; two sources have this name");
    }
    requireFree(File);
    std::error_code Ignored;
    if (!fs::exists(fs::symlink_status(File, Ignored))) {
        m_Made.insert(File);
    }
    return File;
}

void COutputFolder::write(const char* pName, const std::string& strBytes) {
    StandIn::saveFile(claim(pName), strBytes);
}

void COutputFolder::writePair(const FramePair& rPair) {
    claim(frameFile(RAW, rPair.Raw));
    const fs::path Corrected = claim(frameFile(CORRECTED, rPair.Corrected));
    writeFrame(m_Folder / RAW, rPair.Raw);
    writeFrame(m_Folder / CORRECTED, rPair.Corrected);
    m_vecFrames.push_back(Corrected.filename().string());
}

void COutputFolder::finish(const nlohmann::ordered_json& rFigures) {
    write(FIGURES, rFigures.dump(2) + '\n');
    m_Made.clear();
}

}  // namespace App
}  // namespace XAPEL2
