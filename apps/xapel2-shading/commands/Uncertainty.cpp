// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes the standard deviation of each sample beside a corrected frame.

#include "commands/Uncertainty.h"

#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "standin/files/SafeFile.h"
#include "standin/files/TiffOutput.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace App {

namespace fs = std::filesystem;

namespace {

CCorrectedNoise noiseOf(const JudgedPair& rPair, const PairOptions& rOptions) {
    if (!rPair.dark || !rPair.light || !rPair.dark->layout.hasSamplesLike(rPair.light->layout)) {
        throw CUsageError("--uncertainty takes a dark and a light reference that belong together");
    }
    if (rOptions.nBoxLight + rOptions.nBoxDark + rOptions.nMedianLight + rOptions.nMedianDark != 0) {
        throw CUsageError("--uncertainty cannot tell what a filter leaves of the pattern; leave the filters out");
    }
    if (!rPair.pair || rPair.pair->figures.noise.empty()) {
        throw CUsageError(
            "--uncertainty takes references that tell their noise: of two frames or more each, and more noise in the "
            "light one");
    }
    return {*rPair.dark, *rPair.light, rPair.pair->figures.noise};
}

}  // namespace

CUncertaintyWriter::CUncertaintyWriter(const JudgedPair& rPair, const PairOptions& rOptions,
                                       const std::string& strFolder, bool bOverwrite, const CSourceFiles& rSources)
    : m_noise(noiseOf(rPair, rOptions)),
      m_nWidth(rPair.light->layout.nWidth),
      m_nHeight(rPair.light->layout.nHeight),
      m_folder(strFolder),
      m_bOverwrite(bOverwrite),
      m_sources(rSources) {}

fs::path CUncertaintyWriter::fileOf(const std::string& strName) const {
    return m_folder / (fs::path(strName).filename().string() + ".uncertainty.tif");
}

void CUncertaintyWriter::requireFree(const std::string& strName) const {
    const fs::path file = fileOf(strName);
    m_sources.requireOther(file);
    std::error_code ignored;
    if (!m_bOverwrite && fs::exists(fs::symlink_status(file, ignored))) {
        throw CFileExistsError(file.string() + " exists");
    }
}

void CUncertaintyWriter::requireSize(uint64_t nWidth, uint64_t nHeight) const {
    if (nWidth != m_nWidth || nHeight != m_nHeight) {
        const auto fnSize = [](uint64_t nX, uint64_t nY) { return std::to_string(nX) + " x " + std::to_string(nY); };
        throw CUsageError("--uncertainty takes frames of the size of the references, " + fnSize(m_nWidth, m_nHeight) +
                          (m_nHeight == 1 ? " (a line)" : "") + "; these are " + fnSize(nWidth, nHeight));
    }
}

void CUncertaintyWriter::write(const Frame& rCorrected) const {
    const fs::path file = fileOf(rCorrected.strName);
    std::vector<float> vecMap = m_noise.map(rCorrected);
    const StandIn::PixelFormat& rFormat = *rCorrected.pFormat;
    for (std::size_t i = 0; std::strncmp(rFormat.pName, "BGR", 3) == 0 && i + 2 < vecMap.size(); i += 3) {
        std::swap(vecMap[i], vecMap[i + 2]);
    }
    StandIn::TiffImage image;
    image.nWidth = rCorrected.nWidth;
    image.nHeight = rCorrected.nHeight;
    image.nChannels = static_cast<uint16_t>(rFormat.nChannels);
    image.nBits = 32;
    image.pDescription = "standard deviation of each corrected sample, DN";
    try {
        fs::create_directories(m_folder);
        StandIn::CSafeFile out(file.string(), StandIn::eSaveQuick);
        StandIn::writeTiff(out.get(), {{image, vecMap.data()}});
        out.finish();
    } catch (const std::exception& rError) {
        throw std::runtime_error(file.string() + " cannot be written: " + rError.what());
    }
}

}  // namespace App
}  // namespace XAPEL2
