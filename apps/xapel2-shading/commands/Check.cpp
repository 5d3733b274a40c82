// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command check: judges a dark and a light reference.

#include "commands/Check.h"

#include <ostream>

#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "terminal/Toolkit.h"
#include "terminal/Warnings.h"
#include "toolkit/judgement/PairCheck.h"

namespace XAPEL2 {
namespace App {

int runCheck(const CheckOptions& rOptions) {
    COutput output("check", rOptions.bJson);
    PairCheck check = checkPair(rOptions.strDark, rOptions.strLight, rOptions.vecLevels);
    output.json().update(toJson(check, rOptions.bList));
    check.strDark = shown(check.strDark);
    check.strLight = shown(check.strLight);
    const Findings vecAll = check.findings();
    const bool bRefused = refused(vecAll, rOptions.bForce);
    output.text() << Toolkit::describe(check, rOptions.bList) << "\nVerdict: " << verdict(vecAll)
                  << (refused(vecAll) && !bRefused ? ", overridden" : "") << '\n';
    warnBeside(vecAll, bRefused);
    return output.finish(bRefused ? eExitRefused : eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
