// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The references that a sub-command corrects with, read and judged.

#include "toolkit/judgement/JudgedPair.h"

#include <sys/stat.h>

#include <future>
#include <stdexcept>

#include "toolkit/text/Errors.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

StandIn::ReferenceImage readKind(const std::string& strFile, StandIn::eReferenceKind eKind) {
    StandIn::ReferenceImage result = readReference(strFile);
    if (result.eKind != eKind) {
        throw CWrongKindError(strFile + (eKind == StandIn::eReferenceLight ? " is a dark reference, not a light one"
                                                                           : " is a light reference, not a dark one"));
    }
    return result;
}

FileState stateOf(const std::string& strFile) {
    FileState result{strFile, {}};
    struct stat status {};
    if (stat(strFile.c_str(), &status) == 0) {
        result.aState = {static_cast<int64_t>(status.st_dev), static_cast<int64_t>(status.st_ino), status.st_size,
                         status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
    }
    return result;
}

}  // namespace

Findings namedFindings(const ReferenceJudgement& rJudgement) {
    Findings vecNamed = rJudgement.vecFindings;
    for (Finding& rFinding : vecNamed) {
        rFinding.strText.insert(
            0, rJudgement.figures.eKind == StandIn::eReferenceDark ? "Dark reference: " : "Light reference: ");
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

JudgedPair readPair(const PairOptions& rPair) {
    using StandIn::ReferenceImage;
    JudgedPair result;
    for (const std::string& rFile : {rPair.strDark, rPair.strLight}) {
        if (!rFile.empty()) {
            result.vecFiles.push_back(stateOf(rFile));
        }
    }
    const auto fnRead = [](const std::string& strFile, StandIn::eReferenceKind eKind) {
        return strFile.empty() ? std::optional<ReferenceImage>() : readKind(strFile, eKind);
    };
    // Dark and light do not wait for each other.
    auto later = std::async(fnRead, rPair.strLight, StandIn::eReferenceLight);
    result.dark = fnRead(rPair.strDark, StandIn::eReferenceDark);
    result.light = later.get();
    return result;
}

void judge(JudgedPair& rPair) {
    const StandIn::ReferenceImage* const pDark = rPair.dark ? &*rPair.dark : nullptr;
    // Each by itself and the pair do not wait for each other.
    auto singly = std::async([&] {
        if (pDark != nullptr) {
            rPair.darkJudgement = judgeReference(*pDark);
        }
        if (rPair.light) {
            rPair.lightJudgement = judgeReference(*rPair.light, pDark);
        }
    });
    if (rPair.dark && rPair.light) {
        rPair.pair = judgePair(*rPair.dark, *rPair.light);
    }
    singly.get();
}

JudgedPair judge(const PairOptions& rPair) {
    JudgedPair result = readPair(rPair);
    judge(result);
    return result;
}

void JudgedPair::compareWith(const CameraSettings& rCamera, bool bFiles) {
    vecCamera.clear();
    if (dark) {
        append(vecCamera, compareWithCamera("the dark reference", *dark, rCamera, bFiles));
    }
    if (light) {
        append(vecCamera, compareWithCamera("the light reference", *light, rCamera, bFiles));
    }
}

void JudgedPair::requireUnchanged() const {
    for (const FileState& rFile : vecFiles) {
        if (stateOf(rFile.strFile).aState != rFile.aState) {
            throw std::runtime_error(rFile.strFile + ": was replaced or changed while it was in use; start again");
        }
    }
}

Findings JudgedPair::findings() const {
    Findings vecAll;
    for (const auto* pJudgement : {&darkJudgement, &lightJudgement}) {
        if (*pJudgement) {
            append(vecAll, namedFindings(**pJudgement));
        }
    }
    if (pair) {
        append(vecAll, pair->vecFindings);
    }
    append(vecAll, vecCamera);
    return vecAll;
}

nlohmann::ordered_json toJson(const JudgedPair& rPair) {
    nlohmann::ordered_json json;
    if (rPair.darkJudgement) {
        json["dark"] = toJson(*rPair.darkJudgement);
    }
    if (rPair.lightJudgement) {
        json["light"] = toJson(*rPair.lightJudgement);
    }
    if (rPair.pair) {
        json["pair"] = toJson(*rPair.pair);
    }
    json["camera"] = toJson(rPair.vecCamera);
    json["verdict"] = verdict(rPair.findings());
    return json;
}

}  // namespace Toolkit
}  // namespace XAPEL2
