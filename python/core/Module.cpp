// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The module xapel2_shading._core.

#include "python/core/Parts.h"

PYBIND11_MODULE(_core, module) {
    using namespace XAPEL2::Python;
    module.doc() = "What xapel2_shading is made of; import that.";
    module.attr("VERSION") = XAPEL2_PYTHON_VERSION;
    defineErrors();
    defineReference(module);
    defineCorrector(module);
    defineCamera(module);
    defineJudgement(module);
}
