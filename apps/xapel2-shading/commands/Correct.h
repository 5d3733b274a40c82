// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command correct: corrects image files.

#pragma once

#include <string>
#include <vector>

#include "terminal/Toolkit.h"
#include "toolkit/sessions/Pair.h"

namespace XAPEL2 {
namespace App {

struct CorrectOptions {
    PairOptions pair;
    std::vector<std::string> vecFiles;  ///< image files (PGM, PPM, TIFF)
    std::string strOut;                 ///< folder to write to
    std::string strFormat = "pgm";      ///< pgm (ppm for colour), tiff or png
    std::string strStream;              ///< FORMAT:WIDTHxHEIGHT of raw frames from standard input
    bool bFormatNamed = false;          ///< strFormat was asked for
    bool bOverwrite = false;            ///< replace files that exist; never a source
    bool bUncertainty = false;          ///< write the standard deviation of each sample, too
    bool bForce = false;                ///< a refusal only warns
    bool bJson = false;
};

/// Corrects image files into another folder.
/// @return an exit code (Exit.h). @throws whatever stands for another one.
int runCorrect(const CorrectOptions& rOptions);

}  // namespace App
}  // namespace XAPEL2
