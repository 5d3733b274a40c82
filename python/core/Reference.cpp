// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Reference: the mean of a recording, with what is known about it.

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "python/core/Arrays.h"
#include "python/core/Gil.h"
#include "python/core/Parts.h"
#include "toolkit/judgement/Outliers.h"
#include "toolkit/text/Errors.h"
#include "xapel2_standin/GenTL.h"
#include "xapel2_standin/GeometryNames.h"
#include "xapel2_standin/ReferenceFile.h"

namespace XAPEL2 {
namespace Python {

namespace {

namespace py = pybind11;
using StandIn::ReferenceImage;
using Samples = py::array_t<float, py::array::c_style | py::array::forcecast>;
using Defects = py::array_t<uint8_t, py::array::c_style | py::array::forcecast>;

constexpr uint64_t IMAGES_MAX = 1ULL << 53;  // exact as a number of JSON

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

void requireNumber(const char* pName, double dValue, double dMost) {
    if (!(dValue >= 0.0 && dValue <= dMost)) {
        throw py::value_error(std::string("expected ") + pName + " of 0 to " + std::string(py::str(py::float_(dMost))) +
                              ", got " + std::string(py::str(py::float_(dValue))));
    }
}

void requireDefects(const ReferenceImage& rReference) {
    const std::vector<uint8_t>& rMap = rReference.vecDefects;
    if (rReference.eKind != StandIn::eReferenceLight) {
        throw py::value_error("expected no defects: a light reference has them, a dark one has not");
    }
    const StandIn::ImageLayout& rLayout = rReference.layout;
    if (rMap.size() != rLayout.nWidth * rLayout.nHeight) {
        throw py::value_error("expected defects of shape (height, width)");
    }
    const auto nMarked = rMap.size() - static_cast<std::size_t>(std::count(rMap.begin(), rMap.end(), 0));
    if (nMarked > ReferenceImage::defectsMax(rLayout)) {
        throw py::value_error("expected at most " + std::to_string(ReferenceImage::defectsMax(rLayout)) +
                              " defects in an image of this size, got " + std::to_string(nMarked));
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

constexpr const char* MODES[] = {"", "Sum", "Average"};  // by eBinningMode

void describeAxis(py::dict& rGeometry, const StandIn::AxisNames& rNames, const StandIn::GeometryAxis& rAxis) {
    rGeometry[rNames.pSensor] = rAxis.nSensor;
    rGeometry[rNames.pOffset] = rAxis.nOffset;
    rGeometry[rNames.pBinning] = rAxis.nBinning;
    if (rAxis.eMode != StandIn::eBinningUnknown) {
        rGeometry[rNames.pMode] = MODES[rAxis.eMode];
    }
    rGeometry[rNames.pReverse] = rAxis.bReverse;
}

// Takes the members that it knows out of the geometry.
StandIn::GeometryAxis takeAxis(py::dict& rGeometry, const StandIn::AxisNames& rNames) {
    const auto fnTake = [&](const char* pName, const py::object& rElse) {
        return py::object(rGeometry.attr("pop")(pName, rElse));
    };
    const auto fnWhole = [&](const char* pName, long long iElse, long long iLeast, long long iMost) {
        const py::object value = fnTake(pName, py::int_(iElse));
        const long long iValue = PyIndex_Check(value.ptr()) ? PyNumber_AsSsize_t(value.ptr(), nullptr) : -1;
        if (iValue < iLeast || iValue > iMost) {
            throw py::value_error(std::string("expected a geometry with ") + pName + " of " + std::to_string(iLeast) +
                                  " to " + std::to_string(iMost) + ", got " +
                                  (iValue == iElse ? "none" : std::string(py::repr(value))));
        }
        return static_cast<uint64_t>(iValue);
    };
    constexpr auto SIDE_MAX = static_cast<long long>(StandIn::IMAGE_SIDE_MAX);
    StandIn::GeometryAxis axis;
    axis.nSensor = fnWhole(rNames.pSensor, 0, 1, SIDE_MAX);
    axis.nOffset = fnWhole(rNames.pOffset, 0, 0, SIDE_MAX);
    axis.nBinning = fnWhole(rNames.pBinning, 1, 1, StandIn::BINNING_MAX);
    axis.bReverse = fnWhole(rNames.pReverse, 0, 0, 1) != 0;
    const py::object mode = fnTake(rNames.pMode, py::str(""));
    const std::string strMode = py::str(mode);
    const auto iMode = std::find(std::begin(MODES), std::end(MODES), strMode) - std::begin(MODES);
    if (iMode > StandIn::eBinningAverage) {
        throw py::value_error(std::string("expected ") + rNames.pMode + " 'Sum' or 'Average', got '" + strMode + "'");
    }
    axis.eMode = static_cast<StandIn::eBinningMode>(iMode);
    return axis;
}

StandIn::ImageGeometry geometryOf(const py::dict& rGeometry, const StandIn::ImageLayout& rLayout) {
    if (rGeometry.empty()) {
        return {};
    }
    py::dict rest(rGeometry.attr("copy")());
    const StandIn::ImageGeometry geometry{takeAxis(rest, StandIn::NAMES_X), takeAxis(rest, StandIn::NAMES_Y)};
    if (!rest.empty()) {
        throw py::value_error("the geometry has members that are not known: " + std::string(py::repr(rest)));
    }
    if (!rLayout.liesOn(geometry)) {
        throw py::value_error(
            "the image of " + std::to_string(rLayout.nWidth) + " x " + std::to_string(rLayout.nHeight) +
            " pixels does not lie on the sensor of its geometry: " + std::string(py::repr(rGeometry)));
    }
    return geometry;
}

py::dict geometryDict(const ReferenceImage& rReference) {
    py::dict geometry;
    if (rReference.geometry.isKnown()) {
        describeAxis(geometry, StandIn::NAMES_X, rReference.geometry.x);
        describeAxis(geometry, StandIn::NAMES_Y, rReference.geometry.y);
    }
    return geometry;
}

py::dict outliersDict(const ReferenceImage& rReference) {
    static constexpr const char* WHAT[] = {"brightness", "shape", "samples"};
    const StandIn::RecordingOutliers& rOutliers = rReference.outliers;
    py::list places;
    for (const StandIn::FrameOutlier& r : rOutliers.vecPlaces) {
        places.append(py::dict(py::arg("what") = WHAT[r.eWhat], py::arg("frame") = r.iFrame, py::arg("x") = r.nX,
                               py::arg("y") = r.nY, py::arg("width") = r.nWidth, py::arg("height") = r.nHeight,
                               py::arg("samples") = r.nSamples, py::arg("deviation") = r.dDeviation,
                               py::arg("left_out") = r.bLeftOut));
    }
    return py::dict(py::arg("frames") = rOutliers.nFrames, py::arg("frames_left_out") = rOutliers.nFramesLeftOut,
                    py::arg("samples") = rOutliers.nSamples, py::arg("samples_left_out") = rOutliers.nSamplesLeftOut,
                    py::arg("places") = places);
}

// What a recording is warned of; notes are left to the judgement.
std::vector<std::string> warningsOf(const ReferenceImage& rReference) {
    std::vector<std::string> vecTexts;
    for (const Toolkit::Finding& rFinding : Toolkit::judgeOutliers(rReference.outliers)) {
        if (rFinding.eLevel != Toolkit::eNote) {
            vecTexts.push_back(rFinding.strText + (rFinding.strAdvice.empty() ? "" : " ") + rFinding.strAdvice);
        }
    }
    return vecTexts;
}

std::unique_ptr<ReferenceImage> makeReference(const Samples& rSamples, const std::string& strKind,
                                              const std::string& strFormat, uint64_t nImages, double dSaturatedShare,
                                              double dTemporalNoise, const std::string& strCamera,
                                              const std::optional<Defects>& rDefects, const py::dict& rGeometry) {
    auto pReference = std::make_unique<ReferenceImage>();
    if (strKind != "dark" && strKind != "light") {
        throw py::value_error("expected kind 'dark' or 'light', got '" + strKind + "'");
    }
    if (nImages == 0 || nImages > IMAGES_MAX) {
        throw py::value_error("expected 1 image or more, up to 2^53, got " + std::to_string(nImages));
    }
    pReference->eKind = strKind == "dark" ? StandIn::eReferenceDark : StandIn::eReferenceLight;
    pReference->layout = layoutOf(rSamples, formatNamed(strFormat));
    requireNumber("a saturated share", dSaturatedShare, 1.0);
    requireNumber("a temporal noise in DN", dTemporalNoise, pReference->layout.pFormat->fullScale());
    pReference->geometry = geometryOf(rGeometry, pReference->layout);
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
        requireDefects(*pReference);
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
        .def(py::init(&makeReference), py::arg("samples"), py::arg("kind"), py::arg("pixel_format"), py::arg("images"),
             py::arg("saturated_share"), py::arg("temporal_noise"), py::arg("camera"), py::arg("defects"),
             py::arg("geometry"))
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
        .def("_warnings", &warningsOf)
        .def_property_readonly("output", &outputOf)
        .def_property_readonly("geometry", &geometryDict)
        .def_property_readonly("outliers", &outliersDict)
        .def_property_readonly("camera", &cameraOf);
}

}  // namespace Python
}  // namespace XAPEL2
