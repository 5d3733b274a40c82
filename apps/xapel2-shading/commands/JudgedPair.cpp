// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The references that a sub-command corrects with, read and judged.

#include "commands/JudgedPair.h"

#include <set>
#include <stdexcept>

#include "commands/Exit.h"
#include "commands/Output.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace App {

namespace {

StandIn::ReferenceImage readKind(const std::string& strFile, StandIn::eReferenceKind eKind) {
    StandIn::ReferenceImage Result = readReference(strFile);
    if (Result.eKind != eKind) {
        throw CUsageError(eKind == StandIn::eReferenceLight
                              ? strFile + " is a dark reference, not a light one; give it with --dark"
                              : strFile + " is a light reference, not a dark one; give it with --light");
    }
    return Result;
}

void append(Findings& rTo, const Findings& rFrom) {
    rTo.insert(rTo.end(), rFrom.begin(), rFrom.end());
}

}  // namespace

Findings namedFindings(const ReferenceJudgement& rJudgement) {
    Findings vecNamed = rJudgement.vecFindings;
    for (Finding& rFinding : vecNamed) {
        rFinding.strText.insert(
            0, rJudgement.Figures.eKind == StandIn::eReferenceDark ? "Dark reference: " : "Light reference: ");
    }
    return vecNamed;
}

StandIn::ReferenceImage readReference(const std::string& strFile) {
    try {
        return StandIn::readReferenceFile(strFile);
    } catch (const std::runtime_error& rError) {
        throw std::runtime_error(strFile + ": " + rError.what() + "; it takes a file that record has written");
    }
}

JudgedPair judge(const PairOptions& rPair) {
    JudgedPair Result;
    if (!rPair.strDark.empty()) {
        Result.Dark = readKind(rPair.strDark, StandIn::eReferenceDark);
        Result.DarkJudgement = judgeReference(*Result.Dark);
    }
    if (!rPair.strLight.empty()) {
        Result.Light = readKind(rPair.strLight, StandIn::eReferenceLight);
        Result.LightJudgement = judgeReference(*Result.Light, Result.Dark ? &*Result.Dark : nullptr);
    }
    if (Result.Dark && Result.Light) {
        Result.Pair = judgePair(*Result.Dark, *Result.Light);
    }
    return Result;
}

void JudgedPair::compareWith(const CameraSettings& rCamera) {
    vecCamera.clear();
    if (Dark) {
        append(vecCamera, compareWithCamera("the dark reference", *Dark, rCamera));
    }
    if (Light) {
        append(vecCamera, compareWithCamera("the light reference", *Light, rCamera));
    }
}

Findings JudgedPair::findings() const {
    Findings vecAll;
    for (const auto* pJudgement : {&DarkJudgement, &LightJudgement}) {
        if (*pJudgement) {
            append(vecAll, namedFindings(**pJudgement));
        }
    }
    if (Pair) {
        append(vecAll, Pair->vecFindings);
    }
    append(vecAll, vecCamera);
    return vecAll;
}

bool JudgedPair::isUsable(bool bForce) const {
    const Findings vecAll = findings();
    warnAbout(vecAll);
    if (!refused(vecAll, bForce)) {
        return true;
    }
    complain(refused(vecAll, true)
                 ? "refused: no correction is possible with these references; record new ones"
                 : "refused: the correction would be wrong; record new references, or insist with --force");
    return false;
}

nlohmann::ordered_json toJson(const JudgedPair& rPair) {
    nlohmann::ordered_json Json;
    if (rPair.DarkJudgement) {
        Json["dark"] = toJson(*rPair.DarkJudgement);
    }
    if (rPair.LightJudgement) {
        Json["light"] = toJson(*rPair.LightJudgement);
    }
    if (rPair.Pair) {
        Json["pair"] = toJson(*rPair.Pair);
    }
    Json["camera"] = toJson(rPair.vecCamera);
    Json["verdict"] = verdict(rPair.findings());
    return Json;
}

void warnAbout(const Findings& rFindings, eSeverity eLeast) {
    std::set<std::string> Said;
    for (const Finding& rFinding : rFindings) {
        // A correction that nobody could compare with the camera is the user's to answer for.
        const bool bUnknown = rFinding.strId == "settings-unknown" && eLeast == eWarning;
        if ((rFinding.eLevel >= eLeast || bUnknown) && Said.insert(rFinding.strText).second) {
            complain((rFinding.eLevel == eRefusal   ? "refused: "
                      : rFinding.eLevel == eWarning ? "warning: "
                                                    : "note: ") +
                     rFinding.strText + (rFinding.strAdvice.empty() ? "" : " ") + rFinding.strAdvice);
        }
    }
}

}  // namespace App
}  // namespace XAPEL2
