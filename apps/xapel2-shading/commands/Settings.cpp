// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command settings: what can be set on a camera.

#include "commands/Settings.h"

#include <iomanip>
#include <limits>
#include <memory>
#include <ostream>

#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace App {

namespace {

constexpr int NAME_WIDTH = 24, VALUE_WIDTH = 16;

// What the setting takes, for people.
std::string rangeText(const StandIn::NodeInfo& rNode) {
    if (!rNode.strError.empty()) {
        return "cannot be read: " + rNode.strError;
    }
    if (!rNode.bWritable) {
        return "read-only";
    }
    std::string strText;
    for (const std::string& rEntry : rNode.vecEntries) {
        strText += (strText.empty() ? "" : ", ") + rEntry;
    }
    if (rNode.bNumber) {
        const bool bBounded = rNode.iMax != std::numeric_limits<int64_t>::max();
        strText = bBounded ? std::to_string(rNode.iMin) + " to " + std::to_string(rNode.iMax)
                           : "from " + std::to_string(rNode.iMin) + " on";
    }
    return strText;
}

nlohmann::ordered_json toJson(const StandIn::NodeInfo& rNode) {
    nlohmann::ordered_json json = {{"name", rNode.strName}};
    if (!rNode.strError.empty()) {
        json["error"] = rNode.strError;
        return json;
    }
    json["value"] = rNode.strValue;
    json["writable"] = rNode.bWritable;
    if (rNode.bNumber) {
        json["min"] = rNode.iMin;
        json["max"] = rNode.iMax;
    }
    if (!rNode.vecEntries.empty()) {
        json["entries"] = rNode.vecEntries;
    }
    return json;
}

}  // namespace

int runSettings(const SettingsOptions& rOptions) {
    COutput output("settings", rOptions.bJson);
    const std::unique_ptr<Device, int (*)(Device*)> pDevice(StandIn::openDevice(rOptions.strDevice),
                                                            &StandIn::closeDevice);
    output.json()["device"] = rOptions.strDevice;
    output.json()["settings"] = nlohmann::ordered_json::array();
    for (const StandIn::NodeInfo& rNode : StandIn::describeNodes(pDevice.get())) {
        output.text() << std::left << std::setw(NAME_WIDTH) << rNode.strName << std::setw(VALUE_WIDTH)
                      << shown(rNode.strValue) << "  " << shown(rangeText(rNode)) << '\n';
        output.json()["settings"].push_back(toJson(rNode));
    }
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
