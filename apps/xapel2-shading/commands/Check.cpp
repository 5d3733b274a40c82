// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check: judges a dark and a light reference.

#include "commands/Check.h"

#include <limits>
#include <ostream>

#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/judgement/JudgedPair.h"
#include "toolkit/judgement/Judgement.h"
#include "toolkit/judgement/SelfTest.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace App {

namespace {

bool isPair(const StandIn::ReferenceImage& rDark, const StandIn::ReferenceImage& rLight) {
    return rDark.eKind == StandIn::eReferenceDark && rLight.eKind == StandIn::eReferenceLight &&
           rDark.sLayout.hasSamplesLike(rLight.sLayout);
}

void listDefects(std::ostream& rOut, const ReferenceFigures& rFigures) {
    const std::vector<std::string> vecNames = colourClassNames(*rFigures.sLayout.pFormat);
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
    const ReferenceFigures& rFigures = rJudgement.Figures;
    rOutput.text() << (rFigures.eKind == StandIn::eReferenceDark ? "Dark" : "Light") << " reference " << shown(strFile)
                   << ": " << verdict(rJudgement.vecFindings) << '\n'
                   << describe(rJudgement);
    rOutput.json()[pMember] = toJson(rJudgement);
    rOutput.json()[pMember]["file"] = strFile;
    if (bList) {
        listDefects(rOutput.text(), rFigures);
        rOutput.json()[pMember]["defects"] = toJson(rFigures.vecDefects, *rFigures.sLayout.pFormat);
    }
    rOutput.text() << '\n';
}

}  // namespace

int runCheck(const CheckOptions& rOptions) {
    COutput Output("check", rOptions.bJson);
    const StandIn::ReferenceImage Dark = readReference(rOptions.strDark), Light = readReference(rOptions.strLight);
    const bool bPair = isPair(Dark, Light);
    const ReferenceJudgement DarkJudgement = judgeReference(Dark);
    const ReferenceJudgement LightJudgement = judgeReference(Light, bPair ? &Dark : nullptr);
    const double dSelfTest =
        bPair ? selfTest(rOptions.strDark, rOptions.strLight, Dark, Light) : std::numeric_limits<double>::quiet_NaN();
    const PairJudgement Pair = judgePair(Dark, Light, dSelfTest);

    tell(Output, "dark", rOptions.strDark, DarkJudgement, rOptions.bList);
    tell(Output, "light", rOptions.strLight, LightJudgement, rOptions.bList);
    Output.text() << "Pair: " << verdict(Pair.vecFindings) << '\n' << describe(Pair);
    Output.json()["pair"] = toJson(Pair);

    Findings vecAll = namedFindings(DarkJudgement);
    const Findings vecLight = namedFindings(LightJudgement);
    vecAll.insert(vecAll.end(), vecLight.begin(), vecLight.end());
    vecAll.insert(vecAll.end(), Pair.vecFindings.begin(), Pair.vecFindings.end());
    const bool bRefused = refused(vecAll, rOptions.bForce);
    Output.text() << "\nVerdict: " << verdict(vecAll) << (refused(vecAll) && !bRefused ? ", overridden" : "") << '\n';
    Output.json()["verdict"] = verdict(vecAll);
    if (bRefused) {
        warnAbout(vecAll, eRefusal);
    }
    return Output.finish(bRefused ? eExitRefused : eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
