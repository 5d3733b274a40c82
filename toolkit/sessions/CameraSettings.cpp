// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The settings of a camera that a reference depends on.

#include "toolkit/sessions/CameraSettings.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "toolkit/sessions/Session.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_standin/PixelFormat.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

bool isSwitch(const std::string& strName) {
    return strName.compare(0, 7, "Reverse") == 0;
}

/// False when the node is missing or cannot be read.
bool readNode(NodeMap& rNodes, const std::string& strName, std::string& rText) {
    try {
        if (!rNodes.GetNodePresent(strName.c_str())) {
            return false;
        }
        rText = rNodes.GetNode(strName.c_str())->GetString().get();
        return true;
    } catch (const Exceptions::IException&) {
        return false;
    }
}

bool toNumber(const std::string& strText, double& rValue) {
    if (strText == "true" || strText == "false") {
        rValue = strText == "true" ? 1.0 : 0.0;
        return true;
    }
    char* pEnd = nullptr;
    rValue = std::strtod(strText.c_str(), &pEnd);
    return !strText.empty() && *pEnd == '\0' && std::isfinite(rValue);
}

/// The texts of the settings by the names of their members in JSON.
constexpr std::pair<const char*, std::string CameraSettings::*> TEXTS[] = {
    {"DeviceModelName", &CameraSettings::strModel},
    {"DeviceSerialNumber", &CameraSettings::strSerial},
    {"Recorded", &CameraSettings::strDate},
};

constexpr std::size_t TEXT_MAX = 256;  // bytes

uint64_t toSide(double dValue) {
    constexpr double SIDE_MAX = 1e9;
    return dValue >= 1.0 && dValue <= SIDE_MAX ? static_cast<uint64_t>(dValue) : 0;
}

}  // namespace

const std::vector<std::string>& cameraSettingNames() {
    static const std::vector<std::string> vecNames = {
        "ExposureTime", "Gain", "OffsetX", "OffsetY", "BinningHorizontal", "BinningVertical", "ReverseX", "ReverseY"};
    return vecNames;
}

namespace {

const std::vector<std::string>& allNumbers() {
    static const std::vector<std::string> vecNames = [] {
        std::vector<std::string> vecAll = cameraSettingNames();
        vecAll.insert(vecAll.end(), {"SensorWidth", "SensorHeight"});
        return vecAll;
    }();
    return vecNames;
}

constexpr std::array<const char*, 2> MODES = {"BinningHorizontalMode", "BinningVerticalMode"};

}  // namespace

StandIn::ImageGeometry geometryOf(const CameraSettings& rSettings) {
    bool bTold = true;
    const auto fnNumber = [&](const char* pName, uint64_t nElse, bool bMust) {
        const auto iValue = rSettings.mapValues.find(pName);
        if (iValue == rSettings.mapValues.end()) {
            bTold = bTold && !bMust;
            return nElse;
        }
        const bool bSane = iValue->second >= 0.0 && iValue->second <= 1e9;
        bTold = bTold && bSane;
        return bSane ? static_cast<uint64_t>(iValue->second) : 0;
    };
    const auto fnAxis = [&](bool bX) {
        StandIn::GeometryAxis axis;
        axis.nSensor = fnNumber(bX ? "SensorWidth" : "SensorHeight", 0, true);
        axis.nOffset = fnNumber(bX ? "OffsetX" : "OffsetY", 0, false);
        axis.nBinning = fnNumber(bX ? "BinningHorizontal" : "BinningVertical", 1, false);
        axis.bReverse = fnNumber(bX ? "ReverseX" : "ReverseY", 0, false) != 0;
        const auto iMode = rSettings.mapModes.find(MODES[bX ? 0 : 1]);
        if (iMode != rSettings.mapModes.end()) {
            axis.eMode = iMode->second == "Sum"       ? StandIn::eBinningSum
                         : iMode->second == "Average" ? StandIn::eBinningAverage
                                                      : StandIn::eBinningUnknown;
        }
        return axis;
    };
    const StandIn::ImageGeometry geometry = {fnAxis(true), fnAxis(false)};
    return bTold ? geometry : StandIn::ImageGeometry{};
}

namespace {

bool isCfa(const CameraSettings& r) {
    const StandIn::PixelFormat* const pFormat = StandIn::findPixelFormat(r.strPixelFormat);
    return pFormat != nullptr && pFormat->isCfa();
}

}  // namespace

std::string placeInWords(const CSession& rSession) {
    const CameraSettings settings = readCameraSettings(rSession.nodes());
    const StandIn::ImageGeometry geometry = geometryOf(settings);
    return geometry.isKnown() ? StandIn::inWords(geometry, settings.nWidth, settings.nHeight, isCfa(settings))
                              : std::to_string(rSession.width()) + " x " + std::to_string(rSession.height());
}

nlohmann::ordered_json geometryJson(const CSession& rSession) {
    const CameraSettings settings = readCameraSettings(rSession.nodes());
    const StandIn::ImageGeometry geometry = geometryOf(settings);
    if (!geometry.isKnown()) {
        return nullptr;
    }
    const auto fnMode = [](const StandIn::GeometryAxis& r) -> nlohmann::ordered_json {
        if (r.eMode == StandIn::eBinningUnknown) {
            return nullptr;
        }
        return r.eMode == StandIn::eBinningSum ? "sum" : "mean";
    };
    return {
        {"sensorWidth", geometry.x.nSensor}, {"sensorHeight", geometry.y.nSensor}, {"offsetX", geometry.x.nOffset},
        {"offsetY", geometry.y.nOffset},     {"width", settings.nWidth},           {"height", settings.nHeight},
        {"binningX", geometry.x.nBinning},   {"binningY", geometry.y.nBinning},    {"modeX", fnMode(geometry.x)},
        {"modeY", fnMode(geometry.y)},       {"mirrorX", geometry.x.bReverse},     {"mirrorY", geometry.y.bReverse}};
}

CameraSettings readCameraSettings(NodeMap& rNodes) {
    CameraSettings result;
    std::string strText;
    double dValue = 0.0;
    const auto fnNumber = [&](const std::string& strName) {
        return readNode(rNodes, strName, strText) && toNumber(strText, dValue);
    };
    readNode(rNodes, "PixelFormat", result.strPixelFormat);
    result.nWidth = fnNumber("Width") ? toSide(dValue) : 0;
    result.nHeight = fnNumber("Height") ? toSide(dValue) : 0;
    if (readNode(rNodes, "DeviceSerialNumber", strText)) {
        result.strSerial = strText.substr(0, TEXT_MAX);
    }
    // Recorded frames do not tell what camera they are of; the name is that of their folder.
    if ((!result.strSerial.empty() || !rNodes.GetNodePresent("StandInScene")) &&
        readNode(rNodes, "DeviceModelName", strText)) {
        result.strModel = strText.substr(0, TEXT_MAX);
    }
    for (const std::string& rName : allNumbers()) {
        if (fnNumber(rName)) {
            result.mapValues[rName] = dValue;
        }
    }
    for (const char* pName : MODES) {
        if (readNode(rNodes, pName, strText)) {
            result.mapModes[pName] = strText;
        }
    }
    return result;
}

nlohmann::ordered_json toJson(const CameraSettings& rSettings) {
    nlohmann::ordered_json result = nlohmann::ordered_json::object();
    if (!rSettings.strPixelFormat.empty()) {
        result["PixelFormat"] = rSettings.strPixelFormat;
    }
    if (rSettings.nWidth != 0 && rSettings.nHeight != 0) {
        result["Width"] = rSettings.nWidth;
        result["Height"] = rSettings.nHeight;
    }
    for (const auto& [pName, pMember] : TEXTS) {
        if (!(rSettings.*pMember).empty()) {
            result[pName] = rSettings.*pMember;
        }
    }
    for (const std::string& rName : allNumbers()) {
        const auto iValue = rSettings.mapValues.find(rName);
        if (iValue == rSettings.mapValues.end()) {
            continue;
        }
        if (isSwitch(rName)) {
            result[rName] = iValue->second != 0.0;
        } else {
            result[rName] = iValue->second;
        }
    }
    for (const auto& [strName, strMode] : rSettings.mapModes) {
        result[strName] = strMode;
    }
    return result;
}

CameraSettings cameraSettingsFromJson(const std::string& strJson) {
    CameraSettings result;
    const auto json = nlohmann::json::parse(strJson, nullptr, false);
    if (!json.is_object()) {
        return result;
    }
    const auto fnNumber = [&](const char* pName) {
        const auto iMember = json.find(pName);
        return iMember != json.end() && iMember->is_number() ? iMember->get<double>() : 0.0;
    };
    const auto iFormat = json.find("PixelFormat");
    if (iFormat != json.end() && iFormat->is_string()) {
        result.strPixelFormat = iFormat->get<std::string>();
    }
    result.nWidth = toSide(fnNumber("Width"));
    result.nHeight = toSide(fnNumber("Height"));
    for (const auto& [pName, pMember] : TEXTS) {
        const auto iMember = json.find(pName);
        if (iMember != json.end() && iMember->is_string()) {
            result.*pMember = iMember->get<std::string>().substr(0, TEXT_MAX);
        }
    }
    for (const char* pName : MODES) {
        const auto iMember = json.find(pName);
        if (iMember != json.end() && iMember->is_string()) {
            result.mapModes[pName] = iMember->get<std::string>();
        }
    }
    for (const std::string& rName : allNumbers()) {
        const auto iMember = json.find(rName);
        if (iMember == json.end()) {
            continue;
        }
        if (iMember->is_boolean()) {
            result.mapValues[rName] = iMember->get<bool>() ? 1.0 : 0.0;
        } else if (iMember->is_number()) {
            result.mapValues[rName] = iMember->get<double>();
        }
    }
    return result;
}

}  // namespace Toolkit
}  // namespace XAPEL2
