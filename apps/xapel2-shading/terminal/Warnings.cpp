// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Findings on standard error.

#include "terminal/Warnings.h"

#include <set>
#include <string>

#include "terminal/Output.h"

namespace XAPEL2 {
namespace App {

void warnAbout(const Findings& rFindings, eSeverity eLeast) {
    std::set<std::string> said;
    for (const Finding& rFinding : rFindings) {
        // A correction that nobody could compare with the camera is the user's to answer for.
        const bool bUnknown = rFinding.strId == "settings-unknown" && eLeast == eWarning && verbosity() != eQuiet;
        const bool bSaid = rFinding.eLevel >= (verbosity() == eVerbose ? eNote : eLeast);
        if ((bSaid || bUnknown) && said.insert(rFinding.strText).second) {
            complain((rFinding.eLevel == eRefusal   ? "refused: "
                      : rFinding.eLevel == eWarning ? "warning: "
                                                    : "note: ") +
                     rFinding.strText + (rFinding.strAdvice.empty() ? "" : " ") + rFinding.strAdvice);
        }
    }
}

void warnBeside(const Findings& rFindings, bool bRefused) {
    if (verbosity() == eQuiet) {
        warnAbout(rFindings);
    } else if (bRefused) {
        warnAbout(rFindings, eRefusal);
    }
}

bool isUsable(const JudgedPair& rPair, bool bForce, bool bCanForce) {
    const Findings vecAll = rPair.findings();
    warnAbout(vecAll);
    if (!refused(vecAll, bForce)) {
        return true;
    }
    complain(refused(vecAll, true) ? "refused: no correction is possible with these references; record new ones"
                                   : "refused: the correction would be wrong; record new references" +
                                         std::string(bCanForce ? ", or insist with --force" : ""));
    return false;
}

}  // namespace App
}  // namespace XAPEL2
