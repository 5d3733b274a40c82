// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images as numpy arrays.

#pragma once

#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace Python {

/// uint8, or uint16 for unpacked samples above 8 bits.
pybind11::dtype dtypeOf(const StandIn::PixelFormat& rFormat);

/// (height, width), (height, width, 3), or (bytes,) of a packed format.
std::vector<pybind11::ssize_t> shapeOf(const StandIn::ImageLayout& rLayout);

/// The format of this name. @throws pybind11::value_error  there is none.
const StandIn::PixelFormat& formatNamed(const std::string& strName);

/// Why the object is no image of this layout; empty: it is one.
struct ArrayFault {
    const char* pReason = "";  ///< in a word or two, of a fixed set
    std::string strText;       ///< the same with what was expected and what came
    bool bType = false;        ///< it is no array at all
};
ArrayFault faultOf(pybind11::handle object, const StandIn::ImageLayout& rLayout, bool bWritable);

}  // namespace Python
}  // namespace XAPEL2
