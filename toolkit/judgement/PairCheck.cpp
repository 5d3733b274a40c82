// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A dark and a light reference, judged each and together.

#include "toolkit/judgement/PairCheck.h"

#include <limits>
#include <sstream>

#include <nlohmann/json.hpp>

#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/judgement/SelfTest.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

bool isPair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    return rDark.eKind == StandIn::eReferenceDark && rLight.eKind == StandIn::eReferenceLight &&
           rDark.layout.hasSamplesLike(rLight.layout);
}

void listDefects(std::ostream& rOut, const ReferenceFigures& rFigures) {
    const std::vector<std::string> vecNames = colourClassNames(*rFigures.layout.pFormat);
    for (const Defect& rDefect : rFigures.vecDefects) {
        rOut << "  " << name(rDefect.eKind) << " pixel at x " << rDefect.nX << ", y " << rDefect.nY;
        if (vecNames.size() > 1) {
            rOut << " (" << vecNames[rDefect.iClass] << ')';
        }
        rOut << ": " << fixed(rDefect.dValue, 1) << " DN, neighbours " << fixed(rDefect.dNeighbours, 1) << " DN\n";
    }
}

void describe(std::ostream& rOut, const std::string& strFile, const ReferenceJudgement& rJudgement, bool bDefects) {
    const ReferenceFigures& rFigures = rJudgement.figures;
    rOut << (rFigures.eKind == StandIn::eReferenceDark ? "Dark" : "Light") << " reference " << strFile << ": "
         << verdict(rJudgement.vecFindings) << '\n'
         << describe(rJudgement);
    if (bDefects) {
        listDefects(rOut, rFigures);
    }
    rOut << '\n';
}

nlohmann::ordered_json toJson(const std::string& strFile, const ReferenceJudgement& rJudgement, bool bDefects) {
    nlohmann::ordered_json json = toJson(rJudgement);
    json["file"] = strFile;
    if (bDefects) {
        json["defects"] = toJson(rJudgement.figures.vecDefects, *rJudgement.figures.layout.pFormat);
    }
    return json;
}

}  // namespace

Findings PairCheck::findings() const {
    Findings vecAll = namedFindings(dark);
    const Findings vecLight = namedFindings(light);
    vecAll.insert(vecAll.end(), vecLight.begin(), vecLight.end());
    vecAll.insert(vecAll.end(), pair.vecFindings.begin(), pair.vecFindings.end());
    return vecAll;
}

PairCheck checkPair(const std::string& strDark, const std::string& strLight) {
    const StandIn::ReferenceImage dark = readReference(strDark), light = readReference(strLight);
    const bool bPair = isPair(dark, light);
    PairCheck result{strDark, strLight, judgeReference(dark), judgeReference(light, bPair ? &dark : nullptr), {}};
    const double dSelfTest =
        bPair ? selfTest(strDark, strLight, dark, light) : std::numeric_limits<double>::quiet_NaN();
    result.pair = judgePair(dark, light, dSelfTest);
    return result;
}

std::string describe(const PairCheck& rCheck, bool bDefects) {
    std::ostringstream text;
    describe(text, rCheck.strDark, rCheck.dark, bDefects);
    describe(text, rCheck.strLight, rCheck.light, bDefects);
    text << "Pair: " << verdict(rCheck.pair.vecFindings) << '\n' << describe(rCheck.pair);
    return text.str();
}

nlohmann::ordered_json toJson(const PairCheck& rCheck, bool bDefects) {
    nlohmann::ordered_json json;
    json["dark"] = toJson(rCheck.strDark, rCheck.dark, bDefects);
    json["light"] = toJson(rCheck.strLight, rCheck.light, bDefects);
    json["pair"] = toJson(rCheck.pair);
    json["verdict"] = verdict(rCheck.findings());
    return json;
}

}  // namespace Toolkit
}  // namespace XAPEL2
