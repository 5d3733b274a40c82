// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Sub-command devices: what can be opened.

#include "commands/Devices.h"

#include <ostream>

#include "terminal/Exit.h"
#include "terminal/Output.h"
#include "xapel2/XapelExceptions.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace App {

namespace {

// What can be opened beside the cameras that the host lists, for people.
struct Form {
    const char *pId, *pWhat;
};
constexpr Form FORMS[] = {
    {"sim:SEED?width=W&height=H&format=F",
     "simulated camera; also exposure, gain, offsetx, offsety, binning, reversex, "
     "reversey, fps, sensorwidth, sensorheight"},
    {"aravis:ID?ExposureTime=T&Gain=G",
     "GigE Vision or USB3 Vision camera, by its identifier or network address; also PixelFormat, Width, Height, "
     "OffsetX, OffsetY, BinningHorizontal, BinningVertical, ReverseX, ReverseY, AcquisitionFrameRate"},
    {"replay:DIR", "recorded frames dark_*, light_*, scene_* (PGM, PPM, TIFF or PNG)"},
    {"replay:DIR?format=F", "the same, where the files cannot tell their pixel format, such as BayerRG12"},
};

/// A camera, opened for as long as this lives.
class COpened {
public:
    explicit COpened(const std::string& strId) : m_pDevice(StandIn::openDevice(strId)) {}
    ~COpened() { StandIn::closeDevice(m_pDevice); }
    COpened(const COpened&) = delete;
    COpened& operator=(const COpened&) = delete;

    Node& node(const char* pName) const { return *StandIn::remoteNodes(m_pDevice)->GetNode(pName); }

private:
    Device* m_pDevice;
};

// The module for real cameras comes in a package of its own.
bool missesRealCameras() {
    try {
        const COpened nameless("aravis:");
    } catch (const Exceptions::Xapel_NotAvailableException&) {
        return true;
    } catch (const Exceptions::IException&) {
        // The module is there and wants a name.
    }
    return false;
}

nlohmann::ordered_json describeDevice(const StandIn::DeviceInfo& rInfo) {
    nlohmann::ordered_json json;
    json["id"] = rInfo.strId;
    json["description"] = rInfo.strDescription;
    // One that somebody else has opened is there all the same.
    try {
        const COpened device(rInfo.strId);
        json["pixelFormat"] = device.node("PixelFormat").GetString().get();
        json["width"] = device.node("Width").GetInt();
        json["height"] = device.node("Height").GetInt();
    } catch (const Exceptions::IException& rError) {
        json["error"] = rError.GetErrorDescription().get();
    }
    return json;
}

}  // namespace

int runDevices(const DevicesOptions& rOptions) {
    COutput output("devices", rOptions.bJson);
    nlohmann::ordered_json& rDevices = output.json()["devices"] = nlohmann::ordered_json::array();
    for (const StandIn::DeviceInfo& rInfo : StandIn::enumerateDevices()) {
        rDevices.push_back(describeDevice(rInfo));
        const nlohmann::ordered_json& rDevice = rDevices.back();
        output.text() << shown(rInfo.strId + "  " + rInfo.strDescription) << ", ";
        if (rDevice.contains("error")) {
            output.text() << "cannot be opened: " << rDevice["error"].get<std::string>() << '\n';
        } else {
            output.text() << rDevice["pixelFormat"].get<std::string>() << ", " << rDevice["width"] << " x "
                          << rDevice["height"] << '\n';
        }
    }
    output.text() << "\nBesides, by its name, which a shell wants in quotes where it has ? or &:\n";
    nlohmann::ordered_json& rForms = output.json()["forms"] = nlohmann::ordered_json::array();
    for (const Form& rForm : FORMS) {
        output.text() << rForm.pId << "  " << rForm.pWhat << '\n';
        rForms.push_back({{"id", rForm.pId}, {"description", rForm.pWhat}});
    }
    const bool bMissing = missesRealCameras();
    output.json()["realCameras"] = !bMissing;
    if (bMissing) {
        output.text() << "\nReal cameras are not looked for. Install the package libxapel2-genicam-aravis0, or build "
                         "with libaravis-dev.\n";
    }
    return output.finish(eExitDone);
}

}  // namespace App
}  // namespace XAPEL2
