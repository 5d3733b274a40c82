// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reference: the mean of a recording, with what is known about it.

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <pybind11/stl.h>

#include "python/core/Arrays.h"
#include "python/core/Gil.h"
#include "python/core/Parts.h"
#include "toolkit/text/Errors.h"
#include "xapel2_standin/GenTL.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;
using StandIn::ReferenceImage;
using Samples = py::array_t<float, py::array::c_style | py::array::forcecast>;
using Defects = py::array_t<uint8_t, py::array::c_style | py::array::forcecast>;

// What is wrong with a file is the file's fault, whoever reads it.
template <class tWork>
auto onFile(const std::string& strFile, tWork fnWork) {
    return withoutGil([&] {
        try {
            return fnWork();
        } catch (const std::runtime_error& rError) {
            throw Toolkit::CGenTlError(GC_ERR_IO, strFile + ": " + rError.what());
        }
    });
}

std::unique_ptr<ReferenceImage> readFile(const std::string& strFile) {
    return onFile(strFile, [&] { return std::make_unique<ReferenceImage>(StandIn::readReferenceFile(strFile)); });
}

void writeFile(const ReferenceImage& rReference, const std::string& strFile) {
    onFile(strFile, [&] { StandIn::writeReferenceFile(strFile, rReference); });
}

void requireSamples(const ReferenceImage& rReference) {
    const auto fFull = static_cast<float>(rReference.layout.pFormat->fullScale());
    for (const float f : rReference.vecSamples) {
        if (!(f >= 0.0F && f <= fFull)) {
            throw py::value_error("expected samples of 0 to " + std::to_string(rReference.layout.pFormat->fullScale()) +
                                  " DN, got " + std::to_string(f));
        }
    }
}

StandIn::ImageLayout layoutOf(const Samples& rSamples, const StandIn::PixelFormat& rFormat) {
    const py::ssize_t nAxes = rFormat.nChannels == 1 ? 2 : 3;
    if (rSamples.ndim() != nAxes || (nAxes == 3 && rSamples.shape(2) != 3)) {
        throw py::value_error(std::string("expected samples of shape ") +
                              (nAxes == 2 ? "(height, width)" : "(height, width, 3)") + " for " + rFormat.pName +
                              ", got " + std::string(py::str(rSamples.attr("shape"))));
    }
    const StandIn::ImageLayout layout{&rFormat, static_cast<uint64_t>(rSamples.shape(1)),
                                      static_cast<uint64_t>(rSamples.shape(0))};
    if (!layout.isPossible()) {
        throw py::value_error("expected an image of 1 to " + std::to_string(StandIn::IMAGE_SIDE_MAX) +
                              " pixels a side, got shape " + std::string(py::str(rSamples.attr("shape"))));
    }
    return layout;
}

std::unique_ptr<ReferenceImage> make(const Samples& rSamples, const std::string& strKind, const std::string& strFormat,
                                     uint64_t nImages, double dSaturatedShare, double dTemporalNoise,
                                     const std::string& strCamera, const std::optional<Defects>& rDefects) {
    auto pReference = std::make_unique<ReferenceImage>();
    if (strKind != "dark" && strKind != "light") {
        throw py::value_error("expected kind 'dark' or 'light', got '" + strKind + "'");
    }
    if (nImages == 0) {
        throw py::value_error("expected 1 image or more");
    }
    pReference->eKind = strKind == "dark" ? StandIn::eReferenceDark : StandIn::eReferenceLight;
    pReference->layout = layoutOf(rSamples, formatNamed(strFormat));
    pReference->nImages = nImages;
    pReference->dSaturatedShare = dSaturatedShare;
    pReference->dTemporalNoise = dTemporalNoise;
    pReference->strCamera = strCamera;
    pReference->vecSamples.assign(rSamples.data(), rSamples.data() + rSamples.size());
    requireSamples(*pReference);
    double dSum = 0.0;
    for (const float f : pReference->vecSamples) {
        dSum += static_cast<double>(f);
    }
    pReference->dMean = dSum / static_cast<double>(pReference->vecSamples.size());
    if (rDefects) {
        pReference->vecDefects.assign(rDefects->data(), rDefects->data() + rDefects->size());
    }
    return pReference;
}

py::object samplesOf(const py::object& rSelf) {
    const auto& rReference = rSelf.cast<const ReferenceImage&>();
    std::vector<py::ssize_t> vecShape = {static_cast<py::ssize_t>(rReference.layout.nHeight),
                                         static_cast<py::ssize_t>(rReference.layout.nWidth)};
    if (rReference.layout.pFormat->nChannels != 1) {
        vecShape.push_back(rReference.layout.pFormat->nChannels);
    }
    // A view: the reference lives as long as the array does.
    py::array_t<float> samples(vecShape, rReference.vecSamples.data(), rSelf);
    samples.attr("flags").attr("writeable") = false;
    return std::move(samples);
}

py::object defectsOf(const py::object& rSelf) {
    const auto& rReference = rSelf.cast<const ReferenceImage&>();
    if (rReference.vecDefects.empty()) {
        return py::none();
    }
    py::array_t<uint8_t> defects({rReference.layout.nHeight, rReference.layout.nWidth}, rReference.vecDefects.data(),
                                 rSelf);
    defects.attr("flags").attr("writeable") = false;
    return std::move(defects);
}

py::dict outputOf(const ReferenceImage& rReference) {
    static constexpr const char* TARGETS[] = {"mean", "max", "value"};
    py::dict output;
    output["target"] = TARGETS[rReference.output.eTarget];
    if (rReference.output.eTarget == StandIn::eTargetValue) {
        output["value"] = rReference.output.dTarget;
    }
    output["pedestal"] = rReference.output.dPedestal;
    return output;
}

py::object cameraOf(const ReferenceImage& rReference) {
    const std::string& rText = rReference.strCamera.empty() ? "{}" : rReference.strCamera;
    return py::module_::import("json").attr("loads")(rText);
}

}  // namespace

void defineReference(py::module_& rModule) {
    py::class_<ReferenceImage>(rModule, "Reference")
        .def(py::init(&readFile), py::arg("file"))
        .def(py::init(&make), py::arg("samples"), py::arg("kind"), py::arg("pixel_format"), py::arg("images"),
             py::arg("saturated_share"), py::arg("temporal_noise"), py::arg("camera"), py::arg("defects"))
        .def("_write", &writeFile, py::arg("file"))
        .def_property_readonly("samples", &samplesOf)
        .def_property_readonly("defects", &defectsOf)
        .def_property_readonly(
            "kind",
            [](const ReferenceImage& rSelf) { return rSelf.eKind == StandIn::eReferenceDark ? "dark" : "light"; })
        .def_property_readonly("pixel_format", [](const ReferenceImage& rSelf) { return rSelf.layout.pFormat->pName; })
        .def_property_readonly("width", [](const ReferenceImage& rSelf) { return rSelf.layout.nWidth; })
        .def_property_readonly("height", [](const ReferenceImage& rSelf) { return rSelf.layout.nHeight; })
        .def_property_readonly("images", [](const ReferenceImage& rSelf) { return rSelf.nImages; })
        .def_property_readonly("mean", [](const ReferenceImage& rSelf) { return rSelf.dMean; })
        .def_property_readonly("saturated_share", [](const ReferenceImage& rSelf) { return rSelf.dSaturatedShare; })
        .def_property_readonly("temporal_noise", [](const ReferenceImage& rSelf) { return rSelf.dTemporalNoise; })
        .def_property_readonly("output", &outputOf)
        .def_property_readonly("camera", &cameraOf);
}

}  // namespace Python
}  // namespace XAPEL2
