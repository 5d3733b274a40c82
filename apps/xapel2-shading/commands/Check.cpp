// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check: judges a dark and a light reference.

#include "commands/Check.h"

#include <limits>
#include <ostream>
#include <stdexcept>

#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/judgement/CorrectedNoise.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/PhotonTransfer.h"
#include "toolkit/judgement/SelfTest.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

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

void tell(COutput& rOutput, const char* pMember, const std::string& strFile, const ReferenceJudgement& rJudgement,
          bool bList) {
    const ReferenceFigures& rFigures = rJudgement.figures;
    rOutput.text() << (rFigures.eKind == StandIn::eReferenceDark ? "Dark" : "Light") << " reference " << shown(strFile)
                   << ": " << verdict(rJudgement.vecFindings) << '\n'
                   << describe(rJudgement);
    rOutput.json()[pMember] = toJson(rJudgement);
    rOutput.json()[pMember]["file"] = strFile;
    if (bList) {
        listDefects(rOutput.text(), rFigures);
        rOutput.json()[pMember]["defects"] = toJson(rFigures.vecDefects, *rFigures.layout.pFormat);
    }
    rOutput.text() << '\n';
}

PhotonTransfer transferOf(const CheckOptions& rOptions, const StandIn::ReferenceImage& rDark) {
    try {
        return photonTransfer(readLevels(rOptions.vecLevels, rDark));
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

int runCheck(const CheckOptions& rOptions) {
    COutput output("check", rOptions.bJson);
    const StandIn::ReferenceImage dark = readReference(rOptions.strDark), light = readReference(rOptions.strLight);
    const bool bPair = isPair(dark, light);
    const ReferenceJudgement darkJudgement = judgeReference(dark);
    const ReferenceJudgement lightJudgement = judgeReference(light, bPair ? &dark : nullptr);
    const double dSelfTest =
        bPair ? selfTest(rOptions.strDark, rOptions.strLight, dark, light) : std::numeric_limits<double>::quiet_NaN();
    const PhotonTransfer transfer = bPair ? transferOf(rOptions, dark) : PhotonTransfer();
    const PairJudgement pair = judgePair(dark, light, dSelfTest, gainsOf(transfer));

    tell(output, "dark", rOptions.strDark, darkJudgement, rOptions.bList);
    tell(output, "light", rOptions.strLight, lightJudgement, rOptions.bList);
    output.text() << "Pair: " << verdict(pair.vecFindings) << '\n' << describe(pair);
    output.json()["pair"] = toJson(pair);
    if (bPair) {
        output.json()["pair"]["noise"] = toJson(CCorrectedNoise(dark, light, pair.figures.noise), light);
    }
    if (!transfer.vecLevels.empty()) {
        output.text() << "\nLevels: " << verdict(judgeLevels(transfer)) << '\n'
                      << describe(transfer, *light.layout.pFormat);
        output.json()["levels"] = toJson(transfer, *light.layout.pFormat);
    }

    Findings vecAll = namedFindings(darkJudgement);
    const Findings vecLight = namedFindings(lightJudgement);
    vecAll.insert(vecAll.end(), vecLight.begin(), vecLight.end());
    vecAll.insert(vecAll.end(), pair.vecFindings.begin(), pair.vecFindings.end());
    if (!transfer.vecLevels.empty()) {
        const Findings vecLevels = judgeLevels(transfer);
        vecAll.insert(vecAll.end(), vecLevels.begin(), vecLevels.end());
    }
    const bool bRefused = refused(vecAll, rOptions.bForce);
    output.text() << "\nVerdict: " << verdict(vecAll) << (refused(vecAll) && !bRefused ? ", overridden" : "") << '\n';
    output.json()["verdict"] = verdict(vecAll);
    if (bRefused) {
        warnAbout(vecAll, eRefusal);
    }
    return output.finish(bRefused ? eExitRefused : eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
