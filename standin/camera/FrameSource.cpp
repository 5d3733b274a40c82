// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Makes the frame source that a device identifier names.

#include "FrameSource.h"

#include <set>
#include <stdexcept>

#include "ReplaySource.h"
#include "SimulatedSensor.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

struct SimSettings {
    uint64_t uSeed = 1;
    uint64_t nWidth = 1024;
    uint64_t nHeight = 768;
    const PixelFormat* pFormat = findPixelFormat("Mono12");
};

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
    if (!bFine || uValue < uMin)
        refuse(strId, strWhat + " '" + strText + "' is not a number from " + std::to_string(uMin) + " to " +
                          std::to_string(uMax));
    return uValue;
}

const PixelFormat* parseFormat(const std::string& strId, const std::string& strName) {
    const PixelFormat* pFormat = findPixelFormat(strName);
    if (pFormat != nullptr)
        return pFormat;
    std::string strKnown;
    for (const PixelFormat& rFormat : pixelFormats())
        strKnown += (strKnown.empty() ? "" : ", ") + std::string(rFormat.pName);
    refuse(strId, "unknown format '" + strName + "', known are " + strKnown);
}

void parseSetting(const std::string& strId, const std::string& strSetting, SimSettings& rSettings,
                  std::set<std::string>& rSeen) {
    const std::size_t iEqual = strSetting.find('=');
    const std::string strKey = strSetting.substr(0, iEqual);
    const std::string strValue = iEqual == std::string::npos ? "" : strSetting.substr(iEqual + 1);
    if (!rSeen.insert(strKey).second)
        refuse(strId, "setting '" + strKey + "' is given twice");
    if (strKey == "width")
        rSettings.nWidth = parseNumber(strId, strKey, strValue, 1, IMAGE_SIDE_MAX);
    else if (strKey == "height")
        rSettings.nHeight = parseNumber(strId, strKey, strValue, 1, IMAGE_SIDE_MAX);
    else if (strKey == "format")
        rSettings.pFormat = parseFormat(strId, strValue);
    else
        refuse(strId, "unknown setting '" + strKey + "', known are width, height, format");
}

// strRest is what follows "sim".
SimSettings parseSim(const std::string& strId, const std::string& strRest) {
    SimSettings settings;
    const std::size_t iQuery = strRest.find('?');
    const std::string strSeed = strRest.substr(0, iQuery);
    if (!strSeed.empty())
        settings.uSeed = parseNumber(strId, "seed", strSeed.substr(1), 0, UINT64_MAX);
    std::set<std::string> aSeen;
    for (std::size_t iPos = iQuery; iPos != std::string::npos;) {
        const std::size_t iNext = strRest.find('&', iPos + 1);
        const std::size_t nLength = iNext == std::string::npos ? iNext : iNext - iPos - 1;
        parseSetting(strId, strRest.substr(iPos + 1, nLength), settings, aSeen);
        iPos = iNext;
    }
    return settings;
}

}  // namespace

std::unique_ptr<IFrameSource> makeFrameSource(const std::string& strId) {
    if (strId == "sim" || strId.rfind("sim:", 0) == 0 || strId.rfind("sim?", 0) == 0) {
        const SimSettings settings = parseSim(strId, strId.substr(3));
        return std::make_unique<CSimulatedSensor>(settings.uSeed, settings.nWidth, settings.nHeight, *settings.pFormat);
    }
    if (strId.rfind("replay:", 0) == 0) {
        const std::string strFolder = strId.substr(7);
        if (strFolder.empty())
            refuse(strId, "no folder given, expected replay:DIR");
        return std::make_unique<CReplaySource>(strFolder);
    }
    refuse(strId, "no such source, expected sim, sim:SEED, sim:SEED?width=W&height=H&format=F or replay:DIR");
}

}  // namespace StandIn
}  // namespace XAPEL2
