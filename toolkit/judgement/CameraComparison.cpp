// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Whether a reference fits a camera, and the settings of one those of another.

#include "toolkit/judgement/CameraComparison.h"

#include <algorithm>
#include <cmath>

#include "toolkit/judgement/JudgementText.h"
#include "toolkit/text/Texts.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

constexpr double SETTING_TOLERANCE = 0.005;  // relative: cameras round what is set

std::string cameraText(const CameraSettings& rSettings, bool bModel) {
    if (!bModel) {
        return "the camera with serial number " + rSettings.strSerial;
    }
    return rSettings.strModel + (rSettings.strSerial.empty() ? "" : " (serial number " + rSettings.strSerial + ")");
}

/// Pixels differ from one camera to the next, so a reference of another one corrects nothing of them. Where one of the
/// two does not tell, nothing is said.
void compareCameras(const CameraSettings& rFirst, const CameraSettings& rSecond, const ComparedSides& rSides,
                    Findings& rFindings) {
    const auto fnDiffer = [](const std::string& a, const std::string& b) { return !a.empty() && !b.empty() && a != b; };
    const bool bModel = fnDiffer(rFirst.strModel, rSecond.strModel);
    if (!bModel && !fnDiffer(rFirst.strSerial, rSecond.strSerial)) {
        return;
    }
    rFindings.push_back({eWarning, "other-camera",
                         rSides.strFirst + " " + cameraText(rFirst, bModel) + ", " + rSides.strCamera + " " +
                             cameraText(rSecond, bModel) + ".",
                         "Take references of this very camera: the pixels of another one differ."});
}

/// True where of both is known where they lie, and one is derived from the other; it then says where that fails.
bool comparePlaces(const std::string& strWhat, const StandIn::ReferenceImage& rReference,
                   const StandIn::ImageLayout& rCamera, const StandIn::ImageGeometry& rPlace,
                   const std::string& strAdvice, Findings& rFindings) {
    const StandIn::PixelFormat& rFormat = *rReference.layout.pFormat;
    const bool bAlike = rFormat.nBits == rCamera.pFormat->nBits && rFormat.nChannels == rCamera.pFormat->nChannels &&
                        (rFormat.nChannels == 1 || rFormat.uPfnc == rCamera.pFormat->uPfnc) &&
                        rFormat.isCfa() == rCamera.pFormat->isCfa();
    if (!bAlike || !rReference.geometry.isKnown() || !rPlace.isKnown()) {
        return false;
    }
    const std::string strObstacle = StandIn::placeObstacle(rReference, rCamera, rPlace);
    if (!strObstacle.empty()) {
        rFindings.push_back({eRefusal, "other-place",
                             capital(strWhat) + " does not serve the camera's image, as " + strObstacle +
                                 ": the image is " + placeWords(rCamera, rPlace) + ", the reference " +
                                 placeWords(rReference.layout, rReference.geometry) + ".",
                             strAdvice, true});
    }
    return true;
}

}  // namespace

void compareSettings(const CameraSettings& rFirst, const CameraSettings& rSecond, const ComparedSides& rSides,
                     const std::string& strAdvice, bool bPlaced, Findings& rFindings) {
    compareCameras(rFirst, rSecond, rSides, rFindings);
    std::string strUntold;
    for (const std::string& rName : cameraSettingNames()) {
        const bool bStrength = rName == "ExposureTime" || rName == "Gain";
        if (bPlaced && !bStrength) {
            continue;
        }
        if (!rFirst.has(rName) || !rSecond.has(rName)) {
            // What neither tells, the camera does not have.
            strUntold += rFirst.has(rName) == rSecond.has(rName) ? "" : (strUntold.empty() ? "" : ", ") + rName;
            continue;
        }
        const double dFirst = rFirst.mapValues.at(rName), dSecond = rSecond.mapValues.at(rName);
        const double dTolerance = bStrength ? SETTING_TOLERANCE * std::max(std::abs(dFirst), std::abs(dSecond)) : 0.0;
        if (std::abs(dFirst - dSecond) > dTolerance) {
            std::string strText = rSides.strFirst;
            strText.append(" ").append(settingText(rName, dFirst)).append(", ").append(rSides.strSecond);
            strText.append(" ").append(settingText(rName, dSecond)).append(".");
            rFindings.push_back({bStrength ? eWarning : eRefusal, settingId(rName), strText, strAdvice});
        }
    }
    if (rFirst.mapValues.empty() && rSecond.mapValues.empty()) {
        strUntold = "exposure, gain, offset, binning, mirror";
    }
    if (!strUntold.empty()) {
        rFindings.push_back({eNote, "settings-unknown", "Not compared, as they are not known: " + strUntold + ".", ""});
    }
}

std::string placeWords(const StandIn::ImageLayout& rLayout, const StandIn::ImageGeometry& rPlace) {
    return StandIn::inWords(rPlace, rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->isCfa()) + " of a sensor of " +
           std::to_string(rPlace.x.nSensor) + " x " + std::to_string(rPlace.y.nSensor) + ", " + rLayout.pFormat->pName;
}

Findings compareWithCamera(const std::string& strWhat, const StandIn::ReferenceImage& rReference,
                           const CameraSettings& rCamera, bool bFiles) {
    Findings vecFindings;
    const StandIn::ImageLayout camera = {StandIn::findPixelFormat(rCamera.strPixelFormat), rCamera.nWidth,
                                         rCamera.nHeight};
    const std::string strAdvice = bFiles ? "Take the references that were recorded with the frames."
                                         : "Set the camera as it was, or record the references again as it is.";
    const bool bPlaced =
        camera.isPossible() && comparePlaces(strWhat, rReference, camera, geometryOf(rCamera), strAdvice, vecFindings);
    const bool bLine = rReference.isLine() && camera.nWidth == rReference.layout.nWidth;
    const StandIn::ImageLayout compared = {camera.pFormat, camera.nWidth, bLine ? 1 : camera.nHeight};
    if (bPlaced) {
        // All is said.
    } else if (!camera.isPossible()) {
        vecFindings.push_back({eRefusal, "other-format",
                               (bFiles ? "The files are " : "The camera delivers ") + rCamera.strPixelFormat +
                                   ", which cannot be corrected.",
                               "Choose one of the formats Mono, Bayer, RGB8 and BGR8.", true});
    } else if (!rReference.layout.hasSamplesLike(compared)) {
        const bool bSize = camera.nWidth != rReference.layout.nWidth || camera.nHeight != rReference.layout.nHeight;
        vecFindings.push_back({eRefusal, bSize ? "other-size" : "other-format",
                               capital(strWhat) + " is " + layoutText(rReference.layout) +
                                   (bFiles ? ", the files are " : ", the camera delivers ") + layoutText(camera) + ".",
                               strAdvice, true});
    }
    compareSettings(cameraSettingsFromJson(rReference.strCamera), rCamera,
                    {capital(strWhat) + " was taken with", "the camera is set to", "this is"}, strAdvice, bPlaced,
                    vecFindings);
    return vecFindings;
}

}  // namespace Toolkit
}  // namespace XAPEL2
