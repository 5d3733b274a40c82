// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Makes the camera that a device identifier names.

#include "standin/cameras/DeviceId.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "standin/cameras/CameraModule.h"
#include "standin/cameras/replay/ReplaySource.h"
#include "standin/cameras/sim/SimulatedSensor.h"
#include "standin/cameras/source/SourceCamera.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

struct SimSettings : CameraSettings {
    uint64_t uSeed = 1;
    uint64_t nSensorWidth = 0, nSensorHeight = 0;  // 0: as large as the image wants
    uint64_t nBinning = 1;
    uint64_t nClusters = 0, nBadColumns = 0, nSpikes = 0, iUnsteadyPermille = 0;

    SensorModel model() const {
        SensorModel result;
        result.nClusters = nClusters;
        result.nBadColumns = nBadColumns;
        result.nSpikes = nSpikes;
        result.dUnsteady = static_cast<double>(iUnsteadyPermille) / 1000.0;
        return result;
    }
};

// What identifiers of real cameras begin with, as the module's file name ends.
const std::string REAL_PREFIX = "aravis:";

// KEY=VALUE, joined by '&'. A text without '=' has no key.
std::vector<NodeSetting> splitSettings(const std::string& strSettings) {
    std::vector<NodeSetting> vecSettings;
    for (std::size_t iPos = 0; iPos <= strSettings.size();) {
        const std::size_t iEnd = std::min(strSettings.find('&', iPos), strSettings.size());
        NodeSetting setting;
        setting.strText = strSettings.substr(iPos, iEnd - iPos);
        const std::size_t iEqual = setting.strText.find('=');
        if (iEqual != std::string::npos) {
            setting.strNode = setting.strText.substr(0, iEqual);
            setting.strValue = setting.strText.substr(iEqual + 1);
        }
        vecSettings.push_back(std::move(setting));
        iPos = iEnd + 1;
    }
    return vecSettings;
}

[[noreturn]] void refuse(const std::string& strId, const std::string& strText) {
    throw std::invalid_argument("device '" + strId + "': " + strText);
}

uint64_t parseNumber(const std::string& strId, const std::string& strWhat, const std::string& strText, uint64_t uMin,
                     uint64_t uMax) {
    uint64_t uValue = 0;
    bool bFine = !strText.empty();
    for (const char c : strText) {
        const auto uDigit = static_cast<uint64_t>(c - '0');
        bFine = bFine && c >= '0' && c <= '9' && uValue <= (uMax - uDigit) / 10;
        uValue = uValue * 10 + uDigit;
    }
    if (!bFine || uValue < uMin) {
        refuse(strId, strWhat + " '" + strText + "' is not a number from " + std::to_string(uMin) + " to " +
                          std::to_string(uMax));
    }
    return uValue;
}

const PixelFormat* parseFormat(const std::string& strId, const std::string& strName) {
    const PixelFormat* pFormat = findPixelFormat(strName);
    if (pFormat != nullptr) {
        return pFormat;
    }
    std::string strKnown;
    for (const PixelFormat& rFormat : pixelFormats()) {
        strKnown += (strKnown.empty() ? "" : ", ") + std::string(rFormat.pName);
    }
    refuse(strId, "unknown format '" + strName + "', known are " + strKnown);
}

const struct {
    const char* pKey;
    uint64_t SimSettings::*pMember;
    uint64_t uMin, uMax;
} NUMBERS[] = {
    {"width", &SimSettings::nWidth, 1, IMAGE_SIDE_MAX},
    {"height", &SimSettings::nHeight, 1, IMAGE_SIDE_MAX},
    {"exposure", &SimSettings::iExposureUs, 1, EXPOSURE_US_MAX},
    {"gain", &SimSettings::iGainPercent, 1, GAIN_PERCENT_MAX},
    {"offsetx", &SimSettings::nOffsetX, 0, IMAGE_SIDE_MAX},
    {"offsety", &SimSettings::nOffsetY, 0, IMAGE_SIDE_MAX},
    {"binning", &SimSettings::nBinning, 1, 4},
    {"reversex", &SimSettings::iReverseX, 0, 1},
    {"reversey", &SimSettings::iReverseY, 0, 1},
    {"fps", &SimSettings::iFrameRateHz, 0, FRAME_RATE_HZ_MAX},
    {"sensorwidth", &SimSettings::nSensorWidth, 1, IMAGE_SIDE_MAX},
    {"sensorheight", &SimSettings::nSensorHeight, 1, IMAGE_SIDE_MAX},
    {"clusters", &SimSettings::nClusters, 0, 1000},
    {"badcolumns", &SimSettings::nBadColumns, 0, 100},
    {"spikes", &SimSettings::nSpikes, 0, 1000},
    {"unsteady", &SimSettings::iUnsteadyPermille, 0, 1000},
};

void parseSetting(const std::string& strId, const NodeSetting& rSetting, SimSettings& rSettings,
                  std::set<std::string>& rSeen) {
    // A key without '=' is one without a value.
    const std::string& strKey = rSetting.strNode.empty() ? rSetting.strText : rSetting.strNode;
    const std::string& strValue = rSetting.strValue;
    if (!rSeen.insert(strKey).second) {
        refuse(strId, "setting '" + strKey + "' is given twice");
    }
    if (strKey == "format") {
        rSettings.pFormat = parseFormat(strId, strValue);
        return;
    }
    std::string strKnown = "format";
    for (const auto& rNumber : NUMBERS) {
        if (strKey == rNumber.pKey) {
            rSettings.*rNumber.pMember = parseNumber(strId, strKey, strValue, rNumber.uMin, rNumber.uMax);
            return;
        }
        strKnown += std::string(", ") + rNumber.pKey;
    }
    refuse(strId, "unknown setting '" + strKey + "', known are " + strKnown);
}

// One side of the sensor: as given, or just what the image takes.
uint64_t sensorSide(const std::string& strId, uint64_t nGiven, uint64_t nEnd, uint64_t nBinning, bool bCfa) {
    // Pixels of one colour are binned by whole arrays.
    const uint64_t nWanted = (bCfa && nBinning > 1 ? (nEnd + 1) / 2 * 2 : nEnd) * nBinning;
    const uint64_t nSensor = nGiven != 0 ? nGiven : nWanted;
    if (nWanted > nSensor || nSensor > IMAGE_SIDE_MAX) {
        refuse(strId, "the image takes a sensor of " + std::to_string(nWanted) +
                          " pixels a side, which must not exceed " +
                          std::to_string(nGiven != 0 ? nGiven : IMAGE_SIDE_MAX));
    }
    return nSensor;
}

// strRest is what follows "sim".
SimSettings parseSim(const std::string& strId, const std::string& strRest) {
    SimSettings settings;
    settings.pFormat = findPixelFormat("Mono12");
    settings.nWidth = 1024;
    settings.nHeight = 768;
    const std::size_t iQuery = strRest.find('?');
    const std::string strSeed = strRest.substr(0, iQuery);
    if (!strSeed.empty()) {
        settings.uSeed = parseNumber(strId, "seed", strSeed.substr(1), 0, UINT64_MAX);
    }
    std::set<std::string> aSeen;
    if (iQuery != std::string::npos) {
        for (const NodeSetting& rSetting : splitSettings(strRest.substr(iQuery + 1))) {
            parseSetting(strId, rSetting, settings, aSeen);
        }
    }
    if (!isBinning(settings.nBinning)) {
        refuse(strId, "binning is 1, 2 or 4");
    }
    settings.nBinningX = settings.nBinningY = settings.nBinning;
    const bool bCfa = settings.pFormat->isCfa();
    settings.nSensorWidth =
        sensorSide(strId, settings.nSensorWidth, settings.nOffsetX + settings.nWidth, settings.nBinning, bCfa);
    settings.nSensorHeight =
        sensorSide(strId, settings.nSensorHeight, settings.nOffsetY + settings.nHeight, settings.nBinning, bCfa);
    return settings;
}

// strRest is what follows "replay:"; a folder may be called anything that does not end like a setting.
std::unique_ptr<IFrameSource> makeReplay(const std::string& strId, const std::string& strRest) {
    const std::string strSetting = "?format=";
    const std::size_t iSetting = strRest.rfind(strSetting);
    const std::string strFolder = strRest.substr(0, iSetting);
    if (strFolder.empty()) {
        refuse(strId, "no folder given, expected replay:DIR");
    }
    const PixelFormat* pFormat =
        iSetting == std::string::npos ? nullptr : parseFormat(strId, strRest.substr(iSetting + strSetting.size()));
    return std::make_unique<CReplaySource>(strFolder, pFormat);
}

}  // namespace

std::unique_ptr<IFrameSource> makeFrameSource(const std::string& strId) {
    if (strId == "sim" || strId.rfind("sim:", 0) == 0 || strId.rfind("sim?", 0) == 0) {
        const SimSettings settings = parseSim(strId, strId.substr(3));
        return std::make_unique<CSimulatedSensor>(settings.uSeed, settings.nSensorWidth, settings.nSensorHeight,
                                                  settings, settings.model());
    }
    if (strId.rfind("replay:", 0) == 0) {
        return makeReplay(strId, strId.substr(7));
    }
    refuse(strId,
           "no such source, expected sim, sim:SEED, sim:SEED?width=W&height=H&format=F, replay:DIR or "
           "aravis:ID");
}

std::unique_ptr<IFrameSource> makeFileSource(const std::vector<std::string>& vecFiles, const std::string& strFormat) {
    if (vecFiles.empty()) {
        throw std::invalid_argument("no image files given");
    }
    return std::make_unique<CReplaySource>(vecFiles, strFormat.empty() ? nullptr : parseFormat("files", strFormat));
}

NamedCamera makeCamera(const std::string& strId) {
    if (strId.rfind(REAL_PREFIX, 0) != 0) {
        return {std::make_unique<CSourceCamera>(makeFrameSource(strId)), {}};
    }
    const std::string strRest = strId.substr(REAL_PREFIX.size());
    const std::size_t iQuery = strRest.find('?');
    auto pCamera = cameraProvider().open(strRest.substr(0, iQuery));
    if (iQuery == std::string::npos) {
        return {std::move(pCamera), {}};
    }
    return {std::move(pCamera), splitSettings(strRest.substr(iQuery + 1))};
}

NamedCamera makeFileCamera(const std::vector<std::string>& vecFiles, const std::string& strFormat) {
    return {std::make_unique<CSourceCamera>(makeFileSource(vecFiles, strFormat)), {}};
}

std::vector<CameraInfo> findRealCameras() {
    std::vector<CameraInfo> vecCameras = cameraProvider().list();
    for (CameraInfo& rCamera : vecCameras) {
        rCamera.strId = REAL_PREFIX + rCamera.strId;
    }
    return vecCameras;
}

}  // namespace StandIn
}  // namespace XAPEL2
