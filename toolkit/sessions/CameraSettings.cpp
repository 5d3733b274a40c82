// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The settings of a camera that a reference depends on.

#include "toolkit/sessions/CameraSettings.h"

#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "xapel2/XapelExceptions.h"

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
    for (const std::string& rName : cameraSettingNames()) {
        if (fnNumber(rName)) {
            result.mapValues[rName] = dValue;
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
    for (const std::string& rName : cameraSettingNames()) {
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
    for (const std::string& rName : cameraSettingNames()) {
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
