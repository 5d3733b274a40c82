// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists, checks and reads the files of a replayed folder.

#include "ReplaySource.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace XAPEL2 {
namespace StandIn {

namespace {

namespace fs = std::filesystem;

const char* const PREFIXES[3] = {"dark_", "light_", "scene_"};

// The scene that the name belongs to, -1 for a file that is not replayed.
int sceneOf(const std::string& strName) {
    const std::string strSuffix = fs::path(strName).extension().string();
    if (strSuffix != ".pgm" && strSuffix != ".tif" && strSuffix != ".tiff")
        return -1;
    for (int i = 0; i < 3; ++i) {
        if (strName.rfind(PREFIXES[i], 0) == 0)
            return i;
    }
    return -1;
}

}  // namespace

void failReplay(const std::string& strPath, const std::string& strText) {
    throw std::runtime_error(strPath + ": " + strText);
}

std::string layoutDifference(const ReplayLayout& rExpected, const ReplayLayout& rOther) {
    if (rOther.nWidth != rExpected.nWidth)
        return "width " + std::to_string(rOther.nWidth) + " instead of " + std::to_string(rExpected.nWidth);
    if (rOther.nHeight != rExpected.nHeight)
        return "height " + std::to_string(rOther.nHeight) + " instead of " + std::to_string(rExpected.nHeight);
    if (rOther.pFormat != rExpected.pFormat)
        return std::string("format ") + rOther.pFormat->pName + " instead of " + rExpected.pFormat->pName;
    return "";
}

CReplaySource::CReplaySource(const std::string& strFolder) : m_strFolder(strFolder) {
    listFolder();
}

void CReplaySource::listFolder() {
    std::error_code error;
    std::vector<std::string> aNames;
    fs::directory_iterator it(m_strFolder, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const std::string strName = it->path().filename().string();
        if (sceneOf(strName) >= 0)
            aNames.push_back(strName);
    }
    if (error)
        failReplay(m_strFolder, "the folder cannot be read: " + error.message());
    if (aNames.empty())
        failReplay(m_strFolder, "the folder has no image dark_*, light_* or scene_* (.pgm, .tif, .tiff)");
    std::sort(aNames.begin(), aNames.end());
    for (const std::string& strName : aNames) addFile(strName);
}

void CReplaySource::addFile(const std::string& strName) {
    File file;
    file.strPath = (fs::path(m_strFolder) / strName).string();
    file.strStem = fs::path(strName).stem().string();
    file.bTiff = fs::path(strName).extension() != ".pgm";
    std::error_code error;
    // A pipe would block the reader for ever.
    if (!fs::is_regular_file(file.strPath, error))
        failReplay(file.strPath, "not a regular file");
    file.layout = file.bTiff ? tiffLayout(file.strPath) : pgmLayout(file.strPath);

    if (m_Layout.pFormat == nullptr)
        m_Layout = file.layout;
    const std::string strDifference = layoutDifference(m_Layout, file.layout);
    if (!strDifference.empty())
        failReplay(file.strPath, "differs from the files before it: " + strDifference);
    std::vector<File>& rFiles = m_aFiles[sceneOf(strName)];
    // A third name may sort between two of one stem ("dark_1.pgm", "dark_1.pgm.tif", "dark_1.tif").
    for (const File& rOther : rFiles) {
        if (rOther.strStem == file.strStem)
            failReplay(file.strPath, "has the name of " + rOther.strPath + " but for the suffix");
    }
    rFiles.push_back(file);
}

std::string CReplaySource::description() const {
    return "replay of " + m_strFolder;
}

CameraSettings CReplaySource::defaultSettings() const {
    CameraSettings settings;
    settings.pFormat = m_Layout.pFormat;
    settings.nWidth = m_Layout.nWidth;
    settings.nHeight = m_Layout.nHeight;
    return settings;
}

const std::vector<CReplaySource::File>& CReplaySource::filesOf(eScene eWhat) const {
    return m_aFiles[eWhat];
}

uint64_t CReplaySource::frameCount(eScene eWhat) const {
    return filesOf(eWhat).size();
}

std::string CReplaySource::frameName(eScene eWhat, uint64_t iFrame) const {
    const std::vector<File>& rFiles = filesOf(eWhat);
    return rFiles.empty() ? "" : rFiles[static_cast<std::size_t>(iFrame % rFiles.size())].strStem;
}

void CReplaySource::fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) {
    const std::vector<File>& rFiles = filesOf(eWhat);
    if (rFiles.empty())
        failReplay(m_strFolder, std::string("the folder has no image ") + PREFIXES[eWhat] + "*");
    if (rSettings.pFormat != m_Layout.pFormat || rSettings.nWidth != m_Layout.nWidth ||
        rSettings.nHeight != m_Layout.nHeight || rSettings.nOffsetX != 0 || rSettings.nOffsetY != 0)
        failReplay(m_strFolder, "size and format of recorded frames cannot be changed");
    const File& rFile = rFiles[static_cast<std::size_t>(iFrame % rFiles.size())];
    (rFile.bTiff ? readTiff : readPgm)(rFile.strPath, rFile.layout, pImage);
}

}  // namespace StandIn
}  // namespace XAPEL2
