// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The pair of references that a sub-command corrects with.

#include "toolkit/sessions/Pair.h"

#include "toolkit/sessions/Session.h"

namespace XAPEL2 {
namespace Toolkit {

std::string PairOptions::filters() const {
    std::string strText;
    const auto fnAdd = [&](unsigned nRadius, const char* pName) {
        if (nRadius > 0) {
            strText += (strText.empty() ? "" : ", ") + std::string(pName) + ' ' + std::to_string(nRadius);
        }
    };
    fnAdd(nMedianDark, "median on the dark reference, radius");
    fnAdd(nBoxDark, "box on the dark reference, radius");
    fnAdd(nMedianLight, "median on the light reference, radius");
    fnAdd(nBoxLight, "box on the light reference, radius");
    return strText;
}

void applyPair(CSession& rSession, const PairOptions& rPair) {
    using Ext::Sc::Shading;
    Shading& rShading = rSession.shading();
    rSession.attempt("clearing the references", [&] { rShading.ReferenceClear(); });
    for (const bool bLight : {false, true}) {
        const std::string& strFile = bLight ? rPair.strLight : rPair.strDark;
        if (!strFile.empty()) {
            rSession.attempt(strFile, [&] { rShading.ReferenceLoad(bLight, strFile.c_str()); });
        }
        rSession.attempt("setting the filters", [&] {
            rShading.SetFilter(Shading::eBoxFilter, bLight, bLight ? rPair.nBoxLight : rPair.nBoxDark);
            rShading.SetFilter(Shading::eMedianFilter, bLight, bLight ? rPair.nMedianLight : rPair.nMedianDark);
        });
    }
    rSession.attempt("applying the references", [&] { rShading.ReferenceApply(); });
}

}  // namespace Toolkit
}  // namespace XAPEL2
