// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Images as numpy arrays.

#include "python/core/Arrays.h"

namespace XAPEL2 {
namespace Python {

namespace py = pybind11;

namespace {

using Proxy = py::detail::npy_api;

std::string shapeText(const py::ssize_t* pShape, std::size_t nAxes) {
    std::string strText = "(";
    for (std::size_t i = 0; i < nAxes; ++i) {
        strText += std::to_string(pShape[i]) + (i + 1 < nAxes ? ", " : nAxes == 1 ? "," : "");
    }
    return strText + ")";
}

std::string expectedText(const StandIn::ImageLayout& rLayout, bool bWritable) {
    const std::vector<py::ssize_t> vecShape = shapeOf(rLayout);
    return std::string("expected a C-contiguous") + (bWritable ? ", writable" : "") + " array of " +
           (rLayout.pFormat->nWireBits == 16 ? "uint16" : "uint8") + " and shape " +
           shapeText(vecShape.data(), vecShape.size()) + " for " + rLayout.pFormat->pName + " of " +
           std::to_string(rLayout.nWidth) + " x " + std::to_string(rLayout.nHeight) + " pixels";
}

bool hasShape(const py::array& rArray, const StandIn::ImageLayout& rLayout) {
    const auto fnSide = [&](py::ssize_t iAxis) { return static_cast<uint64_t>(rArray.shape(iAxis)); };
    if (rLayout.pFormat->isPacked()) {
        return rArray.ndim() == 1 && fnSide(0) == rLayout.bytes();
    }
    const unsigned nChannels = rLayout.pFormat->nChannels;
    return rArray.ndim() == (nChannels == 1 ? 2 : 3) && fnSide(0) == rLayout.nHeight && fnSide(1) == rLayout.nWidth &&
           (nChannels == 1 || fnSide(2) == nChannels);
}

// What the array has in place of what it should have.
ArrayFault faultOf(const py::array& rArray, const StandIn::ImageLayout& rLayout, bool bWritable) {
    const auto* pType = py::detail::array_descriptor_proxy(py::detail::array_proxy(rArray.ptr())->descr);
    const bool bWide = rLayout.pFormat->nWireBits == 16;
    const int iType = bWide ? Proxy::NPY_USHORT_ : Proxy::NPY_UBYTE_;
    if (pType->type_num != iType || (bWide && pType->byteorder == '>')) {
        return {"wrong dtype", "dtype " + std::string(py::str(rArray.dtype())), false};
    }
    if (!hasShape(rArray, rLayout)) {
        const bool bLength = rLayout.pFormat->isPacked() && rArray.ndim() == 1;
        return {bLength ? "wrong length" : "wrong shape",
                "shape " + shapeText(rArray.shape(), static_cast<std::size_t>(rArray.ndim())), false};
    }
    if ((rArray.flags() & Proxy::NPY_ARRAY_C_CONTIGUOUS_) == 0) {
        return {"not contiguous", "one that is not contiguous", false};
    }
    if ((rArray.flags() & Proxy::NPY_ARRAY_ALIGNED_) == 0) {
        return {"not aligned", "one that is not aligned", false};
    }
    if (bWritable && (rArray.flags() & Proxy::NPY_ARRAY_WRITEABLE_) == 0) {
        return {"read-only", "one that is read-only", false};
    }
    return {};
}

}  // namespace

py::dtype dtypeOf(const StandIn::PixelFormat& rFormat) {
    return rFormat.nWireBits == 16 ? py::dtype::of<uint16_t>() : py::dtype::of<uint8_t>();
}

std::vector<py::ssize_t> shapeOf(const StandIn::ImageLayout& rLayout) {
    if (rLayout.pFormat->isPacked()) {
        return {static_cast<py::ssize_t>(rLayout.bytes())};
    }
    std::vector<py::ssize_t> vecShape = {static_cast<py::ssize_t>(rLayout.nHeight),
                                         static_cast<py::ssize_t>(rLayout.nWidth)};
    if (rLayout.pFormat->nChannels != 1) {
        vecShape.push_back(rLayout.pFormat->nChannels);
    }
    return vecShape;
}

const StandIn::PixelFormat& formatNamed(const std::string& strName) {
    const StandIn::PixelFormat* const pFormat = StandIn::findPixelFormat(strName);
    if (pFormat == nullptr) {
        throw py::value_error("pixel format '" + strName + "' is not known; PIXEL_FORMATS lists those that are");
    }
    return *pFormat;
}

ArrayFault faultOf(py::handle object, const StandIn::ImageLayout& rLayout, bool bWritable) {
    if (!py::isinstance<py::array>(object)) {
        return {"no array",
                expectedText(rLayout, bWritable) + ", got " +
                    std::string(py::str(py::type::handle_of(object).attr("__name__"))),
                true};
    }
    ArrayFault fault = faultOf(py::reinterpret_borrow<py::array>(object), rLayout, bWritable);
    if (!fault.strText.empty()) {
        fault.strText = expectedText(rLayout, bWritable) + ", got " + fault.strText;
    }
    return fault;
}

}  // namespace Python
}  // namespace XAPEL2
