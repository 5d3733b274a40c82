// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Lists, checks and reads the files that are replayed.

#include "standin/cameras/replay/ReplaySource.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace XAPEL2 {
namespace StandIn {

namespace {

namespace fs = std::filesystem;

const char* const PREFIXES[3] = {"dark_", "light_", "scene_"};

// The scene that the name belongs to, -1 for a file that is not replayed.
int sceneOf(const std::string& strName) {
    if (!hasImageSuffix(strName)) {
        return -1;
    }
    for (int i = 0; i < 3; ++i) {
        if (strName.rfind(PREFIXES[i], 0) == 0) {
            return i;
        }
    }
    return -1;
}

// The format whose unpacked samples those of this format are.
const PixelFormat* unpacked(const PixelFormat* pFormat) {
    if (pFormat == nullptr || !pFormat->isPacked()) {
        return pFormat;
    }
    const std::string strName = pFormat->pName;
    return findPixelFormat(strName.substr(0, strName.rfind(pFormat->bSplit ? 'P' : 'p')));
}

std::string describe(const ImageFileLayout& rLayout) {
    return std::to_string(rLayout.nWidth) + " x " + std::to_string(rLayout.nHeight) + " " + rLayout.pFormat->pName;
}

}  // namespace

CReplaySource::CReplaySource(const std::string& strFolder, const PixelFormat* pFormat)
    : m_strWhat(strFolder), m_pGiven(unpacked(pFormat)) {
    listFolder();
}

CReplaySource::CReplaySource(const std::vector<std::string>& vecFiles, const PixelFormat* pFormat)
    : m_strWhat(std::to_string(vecFiles.size()) + " image files"), m_pGiven(unpacked(pFormat)) {
    for (const std::string& strPath : vecFiles) {
        addFile(strPath, eSceneObjects);
    }
}

void CReplaySource::listFolder() {
    std::error_code error;
    std::vector<std::string> vecNames;
    fs::directory_iterator it(m_strWhat, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const std::string strName = it->path().filename().string();
        if (sceneOf(strName) >= 0) {
            vecNames.push_back(strName);
        }
    }
    if (error) {
        failImageFile(m_strWhat, "the folder cannot be read: " + error.message());
    }
    if (vecNames.empty()) {
        failImageFile(m_strWhat, "the folder has no image dark_*, light_* or scene_* (.pgm, .ppm, .tif, .tiff, .png)");
    }
    std::sort(vecNames.begin(), vecNames.end());
    for (const std::string& strName : vecNames) {
        const auto eWhat = static_cast<eScene>(sceneOf(strName));
        addFile((fs::path(m_strWhat) / strName).string(), eWhat);
        refuseSameStem(m_vecFiles[eWhat].back(), eWhat);
    }
}

void CReplaySource::addFile(const std::string& strPath, eScene eWhat) {
    File file;
    file.strPath = strPath;
    file.strStem = fs::path(strPath).stem().string();
    std::error_code error;
    // A pipe would block the reader for ever.
    if (!fs::is_regular_file(strPath, error)) {
        const bool bThere = !error && fs::exists(fs::status(strPath, error));
        failImageFile(strPath, bThere  ? "not a regular file"
                               : error ? error.message()
                                       : std::make_error_code(std::errc::no_such_file_or_directory).message());
    }
    file.layout = imageLayout(strPath);
    checkFormat(file);

    ImageFileLayout delivered = file.layout;
    delivered.pFormat = m_pGiven != nullptr ? m_pGiven : file.layout.pFormat;
    if (m_layout.pFormat == nullptr) {
        m_layout = delivered;
        m_strFirst = strPath;
    }
    const std::string strDifference = layoutDifference(m_layout, delivered);
    if (!strDifference.empty()) {
        failImageFile(strPath, "differs from the files before it: " + strDifference + " (" + describe(delivered) +
                                   "; " + m_strFirst + " is " + describe(m_layout) + ")");
    }
    for (std::size_t i = 0; i < file.layout.pages(); ++i) {
        m_vecPlaces[eWhat].push_back({m_vecFiles[eWhat].size(), i});
    }
    m_vecFiles[eWhat].push_back(file);
}

// A third name may sort between two of one stem ("dark_1.pgm", "dark_1.pgm.tif", "dark_1.tif").
void CReplaySource::refuseSameStem(const File& rFile, eScene eWhat) const {
    for (const File& rOther : m_vecFiles[eWhat]) {
        if (&rOther != &rFile && rOther.strStem == rFile.strStem) {
            failImageFile(rFile.strPath, "has the name of " + rOther.strPath + " but for the suffix");
        }
    }
}

void CReplaySource::checkFormat(const File& rFile) const {
    const PixelFormat& rOwn = *rFile.layout.pFormat;
    if (m_pGiven == nullptr || m_pGiven == &rOwn) {
        return;
    }
    if (m_pGiven->nChannels != rOwn.nChannels || m_pGiven->nWireBits != rOwn.nWireBits) {
        failImageFile(rFile.strPath, "its samples are stored as " + std::string(rOwn.pName) +
                                         ", which cannot be read as " + m_pGiven->pName);
    }
}

void CReplaySource::checkSamples(const File& rFile, const void* pImage) const {
    const uint32_t uFullScale = m_layout.pFormat->fullScale();
    if (rFile.layout.uMaxval <= uFullScale) {
        return;
    }
    // Fewer bits than the file has room for: only 16-bit samples have that.
    const auto* pSamples = static_cast<const uint8_t*>(pImage);
    const auto nSamples = static_cast<std::size_t>(m_layout.nWidth * m_layout.nHeight);
    for (std::size_t i = 0; i < nSamples; ++i) {
        const uint32_t uSample = pSamples[2 * i] | static_cast<uint32_t>(pSamples[2 * i + 1]) << 8;
        if (uSample > uFullScale) {
            failImageFile(rFile.strPath, "a sample is " + std::to_string(uSample) + ", above the full scale of " +
                                             m_layout.pFormat->pName);
        }
    }
}

std::string CReplaySource::description() const {
    return "replay of " + m_strWhat;
}

CameraSettings CReplaySource::defaultSettings() const {
    CameraSettings settings;
    settings.pFormat = m_layout.pFormat;
    settings.nWidth = m_layout.nWidth;
    settings.nHeight = m_layout.nHeight;
    return settings;
}

uint64_t CReplaySource::frameCount(eScene eWhat) const {
    return m_vecPlaces[eWhat].size();
}

CReplaySource::Place CReplaySource::placeOf(eScene eWhat, uint64_t iFrame) const {
    const std::vector<Place>& rPlaces = m_vecPlaces[eWhat];
    return rPlaces[static_cast<std::size_t>(iFrame % rPlaces.size())];
}

std::string CReplaySource::frameName(eScene eWhat, uint64_t iFrame) const {
    if (m_vecPlaces[eWhat].empty()) {
        return "";
    }
    const Place place = placeOf(eWhat, iFrame);
    const File& rFile = m_vecFiles[eWhat][place.iFile];
    return imageName(rFile.strPath, place.iPage, rFile.layout.pages());
}

void CReplaySource::fill(const CameraSettings& rSettings, eScene eWhat, uint64_t iFrame, void* pImage) {
    if (m_vecPlaces[eWhat].empty()) {
        failImageFile(m_strWhat, std::string("there is no image ") + PREFIXES[eWhat] + "*");
    }
    if (rSettings.pFormat != m_layout.pFormat || rSettings.nWidth != m_layout.nWidth ||
        rSettings.nHeight != m_layout.nHeight || rSettings.nOffsetX != 0 || rSettings.nOffsetY != 0) {
        failImageFile(m_strWhat, "size and format of recorded frames cannot be changed");
    }
    const Place place = placeOf(eWhat, iFrame);
    const File& rFile = m_vecFiles[eWhat][place.iFile];
    readImageFile(rFile.strPath, rFile.layout, place.iPage, pImage);
    checkSamples(rFile, pImage);
    if (m_layout.pFormat->nChannels == 3 && m_layout.pFormat != rFile.layout.pFormat) {
        // The file has red first, the image blue.
        auto* const pSamples = static_cast<uint8_t*>(pImage);
        const auto nSamples = static_cast<std::size_t>(m_layout.nWidth * m_layout.nHeight * 3);
        for (std::size_t i = 0; i < nSamples; i += 3) {
            std::swap(pSamples[i], pSamples[i + 2]);
        }
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
