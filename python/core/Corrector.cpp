// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Corrector: images in arrays.

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <pybind11/stl.h>

#include "python/core/Arrays.h"
#include "python/core/Gil.h"
#include "python/core/Parts.h"
#include "toolkit/sessions/FrameCorrector.h"
#include "toolkit/text/Errors.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;

bool overlap(const uint8_t* pFirst, const uint8_t* pSecond, std::size_t nBytes) {
    return pFirst < pSecond + nBytes && pSecond < pFirst + nBytes;
}

// Handing the interpreter's lock from thread to thread takes longer than images of so many bytes do. With the lock
// kept, no other thread is inside the same corrector, whose images have one size.
constexpr std::size_t KEEP_LOCK_BYTES = 32768;

class CCorrector {
public:
    CCorrector(const Toolkit::PairOptions& rPair, const StandIn::ImageLayout& rLayout) : m_corrector(rPair, rLayout) {}

    py::object call(const py::object& rFrame, const py::object& rOut);
    const StandIn::ImageLayout& layout() const { return m_corrector.layout(); }
    std::string description() { return m_corrector.description(); }
    uint64_t corrected() const { return m_nCorrected; }
    std::map<std::string, uint64_t> untouched() const { return m_mapUntouched; }

private:
    void require(const py::object& rObject, bool bWritable);
    void correct(const void* pFrame, void* pOut);

    std::mutex m_mtx;  // guards m_corrector; taken without the interpreter's lock
    Toolkit::CFrameCorrector m_corrector;

    // Guarded by the interpreter's lock.
    uint64_t m_nCorrected = 0;
    std::map<std::string, uint64_t> m_mapUntouched;
};

void CCorrector::require(const py::object& rObject, bool bWritable) {
    const ArrayFault fault = faultOf(rObject, layout(), bWritable);
    if (fault.strText.empty()) {
        return;
    }
    ++m_mapUntouched[fault.pReason];
    if (fault.bType) {
        throw py::type_error(fault.strText);
    }
    throw Toolkit::CUsageError(fault.strText);
}

void CCorrector::correct(const void* pFrame, void* pOut) {
    const auto fnWork = [&] {
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (pFrame != pOut) {
            std::memcpy(pOut, pFrame, layout().bytes());
        }
        m_corrector.correct(pOut);
    };
    // No object that may not throw when it goes, such as std::optional, can hold the release.
    if (layout().bytes() > KEEP_LOCK_BYTES) {
        withoutGil(fnWork);
    } else {
        fnWork();
    }
}

py::object CCorrector::call(const py::object& rFrame, const py::object& rOut) {
    const bool bInPlace = rOut.is_none();
    require(rFrame, bInPlace);
    if (!bInPlace) {
        require(rOut, true);
    }
    const auto* pFrame = static_cast<const uint8_t*>(py::reinterpret_borrow<py::array>(rFrame).data());
    const py::object& rResult = bInPlace ? rFrame : rOut;
    auto* pOut = static_cast<uint8_t*>(py::reinterpret_borrow<py::array>(rResult).mutable_data());
    if (pFrame != pOut && overlap(pFrame, pOut, layout().bytes())) {
        ++m_mapUntouched["overlap"];
        throw Toolkit::CUsageError("expected an out that is the frame, or shares no memory with it");
    }
    try {
        correct(pFrame, pOut);
    } catch (const Toolkit::CGenTlError& rError) {
        ++m_mapUntouched[rError.what()];
        throw;
    }
    ++m_nCorrected;
    return rResult;
}

std::unique_ptr<CCorrector> makeCorrector(const std::string& strDark, const std::string& strLight,
                                          const std::string& strFormat, uint64_t nWidth, uint64_t nHeight,
                                          unsigned nBoxDark, unsigned nBoxLight, unsigned nMedianDark,
                                          unsigned nMedianLight) {
    const Toolkit::PairOptions pair{strDark, strLight, nBoxLight, nBoxDark, nMedianLight, nMedianDark};
    const StandIn::ImageLayout layout{&formatNamed(strFormat), nWidth, nHeight};
    if (!layout.isPossible()) {
        throw Toolkit::CUsageError("no image is of " + std::to_string(nWidth) + " x " + std::to_string(nHeight) +
                                   " pixels");
    }
    return withoutGil([&] { return std::make_unique<CCorrector>(pair, layout); });
}

constexpr const char* CALL_DOC = R"(Correct a frame.

Parameters
----------
frame : ndarray
    Of the corrector's dtype and shape, C-contiguous; writable where there is no out.
out : ndarray, optional
    The same, writable, sharing no memory with the frame. The frame is as it was then.

Returns
-------
ndarray
    The frame, or out.

Raises
------
ValueError
    An array is not what was expected; the message tells both. Nothing has changed.
TypeError
    It is no array.
)";

}  // namespace

void defineCorrector(py::module_& rModule) {
    py::list formats;
    for (const StandIn::PixelFormat& rFormat : StandIn::pixelFormats()) {
        formats.append(rFormat.pName);
    }
    rModule.attr("PIXEL_FORMATS") = py::tuple(formats);

    py::class_<CCorrector>(rModule, "Corrector")
        .def(py::init(&makeCorrector), py::arg("dark"), py::arg("light"), py::arg("pixel_format"), py::arg("width"),
             py::arg("height"), py::arg("box_dark"), py::arg("box_light"), py::arg("median_dark"),
             py::arg("median_light"))
        .def("__call__", &CCorrector::call, py::arg("frame"), py::kw_only(), py::arg("out") = py::none(), CALL_DOC)
        .def_property_readonly("description", &CCorrector::description)
        .def_property_readonly("corrected", &CCorrector::corrected)
        .def_property_readonly("untouched", &CCorrector::untouched)
        .def_property_readonly("pixel_format", [](const CCorrector& rSelf) { return rSelf.layout().pFormat->pName; })
        .def_property_readonly("width", [](const CCorrector& rSelf) { return rSelf.layout().nWidth; })
        .def_property_readonly("height", [](const CCorrector& rSelf) { return rSelf.layout().nHeight; })
        .def_property_readonly("shape",
                               [](const CCorrector& rSelf) { return py::tuple(py::cast(shapeOf(rSelf.layout()))); })
        .def_property_readonly("dtype", [](const CCorrector& rSelf) { return dtypeOf(*rSelf.layout().pFormat); });
}

}  // namespace Python
}  // namespace XAPEL2
