// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A dark and a light reference, judged each and together.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/PhotonTransfer.h"

namespace XAPEL2 {
namespace Toolkit {

/// What is to be said about two files, whether they make a pair or not.
struct PairCheck {
    std::string strDark, strLight;  ///< names of the files
    ReferenceJudgement dark, light;
    PairJudgement pair;
    nlohmann::ordered_json noise;  ///< of corrected samples (CorrectedNoise.h); null where the two are no pair
    PhotonTransfer transfer;       ///< over the levels; without levels where none were given
    const StandIn::PixelFormat* pFormat = nullptr;  ///< of the light reference

    /// Everything that was found, the references' own first.
    Findings findings() const;
};

/// Reads both files and judges them; where they make a pair, by the self test, too.
/// @param[in] rLevels  light references, or folders of frames, at several exposures, which the conversion gain is taken
///                     from (PhotonTransfer.h); may be empty.
/// @throws std::runtime_error  a file cannot be used; names it.
/// @threads one at a time in a process.
PairCheck checkPair(const std::string& strDark, const std::string& strLight,
                    const std::vector<std::string>& rLevels = {});

/// Lines for people: the figures and findings of each reference and of the pair; what it comes to is left to the
/// caller.
/// @param[in] bDefects  each defect pixel, too.
std::string describe(const PairCheck& rCheck, bool bDefects);

/// {"dark", "light": reference judgement, "file", "defects" where bDefects, "pair": pair judgement with "noise",
/// "levels" where there are any, "verdict"}
nlohmann::ordered_json toJson(const PairCheck& rCheck, bool bDefects);

}  // namespace Toolkit
}  // namespace XAPEL2
