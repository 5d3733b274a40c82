// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// A dark and a light reference, judged each and together.

#include "toolkit/judgement/PairCheck.h"

#include <limits>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/judgement/SelfTest.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

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

PhotonTransfer transferOf(const std::vector<std::string>& rLevels, const StandIn::ReferenceImage& rDark,
                          const std::string& strDark) {
    try {
        return photonTransfer(readLevels(rLevels, rDark, strDark));
    } catch (const std::invalid_argument& rError) {
        throw std::runtime_error(rError.what());
    }
}

std::vector<double> gainsOf(const PhotonTransfer& rTransfer) {
    std::vector<double> vecGains;
    for (const TransferLine& rLine : rTransfer.vecClasses) {
        vecGains.push_back(rLine.dGain);
    }
    return vecGains;
}

}  // namespace

Findings PairCheck::findings() const {
    Findings vecAll = namedFindings(dark);
    append(vecAll, namedFindings(light));
    append(vecAll, pair.vecFindings);
    if (!transfer.vecLevels.empty()) {
        append(vecAll, judgeLevels(transfer));
    }
    return vecAll;
}

PairCheck checkPair(const std::string& strDark, const std::string& strLight, const std::vector<std::string>& rLevels) {
    const StandIn::ReferenceImage dark = readReference(strDark), light = readReference(strLight);
    const bool bPair = isPair(dark, light);
    PairCheck result{strDark, strLight, judgeReference(dark), judgeReference(light, bPair ? &dark : nullptr), {},
                     {},      {},       light.layout.pFormat};
    double dSelfTest = std::numeric_limits<double>::quiet_NaN();
    if (bPair) {
        dSelfTest = selfTest(strDark, strLight, dark, light);
        result.transfer = transferOf(rLevels, dark, strDark);
        result.transfer.vecPair = pairPoints(meanOf(dark), meanOf(light));
    }
    result.pair = judgePair(dark, light, dSelfTest, gainsOf(result.transfer));
    if (bPair) {
        result.noise = toJson(CCorrectedNoise(dark, light, result.pair.figures.noise), light);
    }
    return result;
}

std::string describe(const PairCheck& rCheck, bool bDefects) {
    std::ostringstream text;
    describe(text, rCheck.strDark, rCheck.dark, bDefects);
    describe(text, rCheck.strLight, rCheck.light, bDefects);
    text << "Pair: " << verdict(rCheck.pair.vecFindings) << '\n' << describe(rCheck.pair);
    if (!rCheck.transfer.vecLevels.empty()) {
        text << "\nLevels: " << verdict(judgeLevels(rCheck.transfer)) << '\n'
             << describe(rCheck.transfer, *rCheck.pFormat);
    }
    return text.str();
}

nlohmann::ordered_json toJson(const PairCheck& rCheck, bool bDefects) {
    nlohmann::ordered_json json;
    json["dark"] = toJson(rCheck.strDark, rCheck.dark, bDefects);
    json["light"] = toJson(rCheck.strLight, rCheck.light, bDefects);
    json["pair"] = toJson(rCheck.pair);
    if (!rCheck.noise.is_null()) {
        json["pair"]["noise"] = rCheck.noise;
    }
    if (!rCheck.transfer.vecLevels.empty()) {
        json["levels"] = toJson(rCheck.transfer, *rCheck.pFormat);
    }
    json["verdict"] = verdict(rCheck.findings());
    return json;
}

}  // namespace Toolkit
}  // namespace XAPEL2
