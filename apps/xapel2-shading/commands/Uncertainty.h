// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes the standard deviation of each sample beside a corrected frame.

#pragma once

#include <filesystem>
#include <string>

#include "terminal/Toolkit.h"
#include "toolkit/frames/SourceFiles.h"
#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/judgement/JudgedPair.h"

namespace XAPEL2 {
namespace App {

/// Writes FOLDER/NAME.uncertainty.tif: 32-bit floating point, DN, three channels in the order red, green, blue. NaN
/// where a sample carries no measure: at full scale, without signal in the references, or replaced as a defect.
class CUncertaintyWriter {
public:
    /// @param[in] rPair     borrowed; both references, whose noise is known. @throws CUsageError  says what is missing.
    /// @param[in] rOptions  of the pair: filters leave what nobody can predict.
    CUncertaintyWriter(const JudgedPair& rPair, const PairOptions& rOptions, const std::string& strFolder,
                       bool bOverwrite, const CSourceFiles& rSources);

    /// @throws CUsageError  a file is in the way of this frame's.
    void requireFree(const std::string& strName) const;

    /// @throws CUsageError  frames of this size are not those that the references tell the noise of, such as those of
    /// a line; before the first of them.
    void requireSize(uint64_t nWidth, uint64_t nHeight) const;

    /// Makes the folder where it is missing. @throws std::runtime_error  names the file.
    void write(const Frame& rCorrected) const;

private:
    std::filesystem::path fileOf(const std::string& strName) const;

    CCorrectedNoise m_noise;
    uint64_t m_nWidth, m_nHeight;  // of the references
    std::filesystem::path m_folder;
    bool m_bOverwrite;
    CSourceFiles m_sources;
};

}  // namespace App
}  // namespace XAPEL2
