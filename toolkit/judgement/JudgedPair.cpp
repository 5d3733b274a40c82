// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The references that a sub-command corrects with, read and judged.

#include "toolkit/judgement/JudgedPair.h"

#include <stdexcept>

#include "toolkit/text/Errors.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

StandIn::ReferenceImage readKind(const std::string& strFile, StandIn::eReferenceKind eKind) {
    StandIn::ReferenceImage Result = readReference(strFile);
    if (Result.eKind != eKind) {
        throw CWrongKindError(strFile + (eKind == StandIn::eReferenceLight ? " is a dark reference, not a light one"
                                                                           : " is a light reference, not a dark one"));
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

void JudgedPair::compareWith(const CameraSettings& rCamera, bool bFiles) {
    vecCamera.clear();
    if (Dark) {
        append(vecCamera, compareWithCamera("the dark reference", *Dark, rCamera, bFiles));
    }
    if (Light) {
        append(vecCamera, compareWithCamera("the light reference", *Light, rCamera, bFiles));
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

}  // namespace Toolkit
}  // namespace XAPEL2
