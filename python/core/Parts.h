// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The parts of the module, each in a file of its own.

#pragma once

#include <pybind11/pybind11.h>

namespace XAPEL2 {
namespace Python {

void defineErrors();
void defineReference(pybind11::module_& rModule);
void defineCorrector(pybind11::module_& rModule);
void defineCamera(pybind11::module_& rModule);
void defineJudgement(pybind11::module_& rModule);

}  // namespace Python
}  // namespace XAPEL2
