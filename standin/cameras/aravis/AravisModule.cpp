// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host finds in this library.

#include <mutex>

#include "standin/cameras/aravis/AravisCamera.h"
#include "xapel2/XapelExport.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

std::string textOf(const char* pText) {
    return pText == nullptr ? "" : pText;
}

class CAravisProvider : public ICameraProvider {
public:
    std::vector<CameraInfo> list() override {
        // The transport's list is the process's; an index means nothing after the next look.
        std::lock_guard<std::mutex> lock(m_mtx);
        arv_update_device_list();
        std::vector<CameraInfo> vecInfos;
        for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
            vecInfos.push_back({textOf(arv_get_device_id(i)),
                                textOf(arv_get_device_vendor(i)) + " " + textOf(arv_get_device_model(i)) + ", " +
                                    textOf(arv_get_device_protocol(i)) + " at " + textOf(arv_get_device_address(i))});
        }
        return vecInfos;
    }

    std::unique_ptr<ICamera> open(const std::string& strId) override {
        if (strId.empty()) {
            throw std::invalid_argument("device 'aravis:': no camera named, expected aravis:ID");
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        return std::make_unique<CAravisCamera>(strId);
    }

private:
    std::mutex m_mtx;  // one search at a time
};

}  // namespace

}  // namespace StandIn
}  // namespace XAPEL2

extern "C" XAPEL2_HOST_API XAPEL2::StandIn::ICameraProvider* xapel2_standin_cameraProvider(int iVersion);

XAPEL2::StandIn::ICameraProvider* xapel2_standin_cameraProvider(int iVersion) {
    using namespace XAPEL2::StandIn;
    static CAravisProvider* const pProvider = new CAravisProvider;
    return iVersion == CAMERA_PROVIDER_VERSION ? pProvider : nullptr;
}
