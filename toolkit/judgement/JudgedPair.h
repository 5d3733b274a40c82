// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The references that a sub-command corrects with, read and judged.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "toolkit/judgement/Judgement.h"
#include "toolkit/sessions/Pair.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Toolkit {

/// A file as it was at some time.
struct FileState {
    std::string strFile;
    std::array<int64_t, 5> aState{};  ///< device, inode, size, time of the last change in s and ns; 0: not there
};

/// The references of a pair, as far as there are any, and all that is to be said about them.
struct JudgedPair {
    std::optional<StandIn::ReferenceImage> dark, light;
    std::optional<ReferenceJudgement> darkJudgement, lightJudgement;
    std::optional<PairJudgement> pair;  ///< where there are both
    Findings vecCamera;                 ///< what compareWith() found
    std::vector<FileState> vecFiles{};  ///< that they were read from, as they were then

    /// Compares each reference with the camera, or the files, that it is to correct.
    void compareWith(const CameraSettings& rCamera, bool bFiles = false);

    /// What is corrected with is read from the files a second time, and must be what was judged.
    /// @throws std::runtime_error  a file was replaced or changed since; names it.
    void requireUnchanged() const;

    /// Everything that was found, the references' own first.
    Findings findings() const;
};

/// The references of the files that rPair names, which nobody has judged yet.
/// @throws std::runtime_error  a file cannot be used; names it.
/// @throws CUsageError         a file holds the other kind of reference.
JudgedPair readPair(const PairOptions& rPair);

/// Judges the references. @threads  others may read the references meanwhile.
void judge(JudgedPair& rPair);

/// Reads the files and judges them. @throws  as readPair().
JudgedPair judge(const PairOptions& rPair);

/// The reference in this file.
/// @throws std::runtime_error  it cannot be used; names it.
StandIn::ReferenceImage readReference(const std::string& strFile);

/// {"dark", "light": reference judgements, "pair": pair judgement, "camera": findings, "verdict"}; each where it is
/// known.
nlohmann::ordered_json toJson(const JudgedPair& rPair);

/// What was found of a reference by itself, each text with the name of its kind before it.
Findings namedFindings(const ReferenceJudgement& rJudgement);

}  // namespace Toolkit
}  // namespace XAPEL2
