// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Opening a camera, its layout, and whether it still obeys.

#include "standin/cameras/aravis/AravisCamera.h"

#include <utility>

#include "standin/cameras/aravis/AravisFeatures.h"
#include "standin/cameras/aravis/AravisStream.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// Control channel privilege of GigE Vision: the register and its bits for exclusive access and control.
constexpr guint64 PRIVILEGE_REGISTER = 0x0A00;
constexpr guint32 PRIVILEGE_MASK = 3;
// Heartbeat time-out of GigE Vision, which only the client in control may write.
constexpr guint64 HEARTBEAT_REGISTER = 0x0938;
// Version of the control protocol of USB3 Vision.
constexpr guint64 VERSION_REGISTER = 0;

GlibPtr<ArvCamera> openCamera(const std::string& strId) {
    CGlibError error;
    GlibPtr<ArvCamera> pCamera(arv_camera_new(strId.c_str(), error.out()));
    if (pCamera == nullptr || error.isSet()) {
        throw CCameraError(GC_ERR_NOT_AVAILABLE, "camera " + strId + ": " + error.text());
    }
    ArvDevice* const pDevice = arv_camera_get_device(pCamera.get());
    if (ARV_IS_GV_DEVICE(pDevice) && !arv_gv_device_is_controller(ARV_GV_DEVICE(pDevice))) {
        throw CCameraError(GC_ERR_ACCESS_DENIED, "camera " + strId + ": another program controls it");
    }
    return pCamera;
}

const PixelFormat* formatOf(gint64 iPfnc) {
    for (const PixelFormat& rFormat : pixelFormats()) {
        if (rFormat.uPfnc == static_cast<uint64_t>(iPfnc)) {
            return &rFormat;
        }
    }
    return nullptr;
}

// One direction of the sensor, but for the offset. What a camera does not have it does not do; a camera that does not
// tell the size of its sensor, or bins by a number that cannot be, has no known geometry.
GeometryAxis axisOf(ArvCamera* pCamera, const char* pSensor, const char* pBinning, const char* pMode,
                    const char* pReverse) {
    const auto fnHas = [pCamera](const char* pName) {
        return arv_camera_is_feature_available(pCamera, pName, nullptr) != FALSE;
    };
    const auto fnNumber = [pCamera](const char* pName) {
        CGlibError error;
        const gint64 iValue = arv_camera_get_integer(pCamera, pName, error.out());
        error.check();
        return iValue < 0 ? uint64_t{0} : static_cast<uint64_t>(iValue);
    };
    GeometryAxis axis;
    axis.nSensor = fnHas(pSensor) ? fnNumber(pSensor) : 0;
    axis.nBinning = fnHas(pBinning) ? fnNumber(pBinning) : 1;
    if (axis.nBinning == 0 || axis.nBinning > BINNING_MAX) {
        axis.nSensor = 0;
    }
    if (fnHas(pMode)) {
        CGlibError error;
        const char* const pText = arv_camera_get_string(pCamera, pMode, error.out());
        error.check();
        const std::string strMode = pText == nullptr ? "" : pText;
        axis.eMode = strMode == "Sum" ? eBinningSum : strMode == "Average" ? eBinningAverage : eBinningUnknown;
    }
    if (fnHas(pReverse)) {
        CGlibError error;
        axis.bReverse = arv_camera_get_boolean(pCamera, pReverse, error.out()) != FALSE;
        error.check();
    }
    return axis;
}

const std::string TAKEN = "another program has taken control of it (";

guint32 readRegister(ArvDevice* pDevice, guint64 uAddress) {
    CGlibError error;
    guint32 uValue = 0;
    arv_device_read_register(pDevice, uAddress, &uValue, error.out());
    if (error.isDenied()) {
        throw CCameraError(GC_ERR_ACCESS_DENIED, TAKEN + error.text() + ")");
    }
    if (error.isSet()) {
        throw CCameraError(GC_ERR_IO, "it does not answer (" + error.text() + ")");
    }
    return uValue;
}

}  // namespace

CAravisCamera::CAravisCamera(const std::string& strId) : CAravisCamera(strId, std::make_unique<AravisEvents>()) {}

CAravisCamera::CAravisCamera(const std::string& strId, std::unique_ptr<AravisEvents> pEvents)
    : m_pEvents(pEvents.get()), m_pCamera(openCamera(strId)) {
    // The signal may be on its way while this object ends: what it writes to is the signal's own.
    g_signal_connect_data(arv_camera_get_device(arv()), "control-lost", G_CALLBACK(&onControlLost), pEvents.release(),
                          &releaseEvents, static_cast<GConnectFlags>(0));
    std::lock_guard<std::mutex> lock(m_mtxCommands);
    refreshLayout();
    m_vecTable = aravisNodes(*this);
}

CAravisCamera::~CAravisCamera() = default;

void CAravisCamera::releaseEvents(void* pEvents, GClosure*) {
    auto* const pOwn = static_cast<AravisEvents*>(pEvents);
    std::unique_lock<std::mutex>(pOwn->mtx).unlock();  // behind the last signal
    delete pOwn;
}

void CAravisCamera::onControlLost(ArvDevice*, void* pEvents) {
    AravisEvents& rEvents = *static_cast<AravisEvents*>(pEvents);
    std::lock_guard<std::mutex> lock(rEvents.mtx);
    rEvents.bLost = true;
    rEvents.cv.notify_all();
}

std::unique_ptr<ICameraStream> CAravisCamera::makeStream(ICameraBuffers& rBuffers) {
    std::lock_guard<std::mutex> lock(m_mtxCommands);
    if (m_bStreaming) {
        return nullptr;
    }
    refreshLayout();
    if (m_layout.pFormat == nullptr) {
        throw CCameraError(GC_ERR_NOT_AVAILABLE, unknownFormatText(m_layout.strFormat, commonFormats()));
    }
    return std::make_unique<CAravisStream>(*this, rBuffers);
}

AravisLayout CAravisCamera::layout() const {
    std::lock_guard<std::mutex> lock(m_mtxLayout);
    return m_layout;
}

void CAravisCamera::refreshLayout() {
    AravisLayout layout;
    CGlibError aErrors[4];
    const char* pFormat = arv_camera_get_pixel_format_as_string(arv(), aErrors[0].out());
    layout.strFormat = pFormat == nullptr ? "" : pFormat;
    layout.pFormat = formatOf(arv_camera_get_pixel_format(arv(), aErrors[1].out()));
    if (layout.pFormat != nullptr) {
        layout.strFormat = layout.pFormat->pName;  // older cameras have names of their own, such as RGB8Packed
    }
    gint iX = 0, iY = 0, iWidth = 0, iHeight = 0;
    arv_camera_get_region(arv(), &iX, &iY, &iWidth, &iHeight, aErrors[2].out());
    layout.nPayload = arv_camera_get_payload(arv(), aErrors[3].out());
    for (const CGlibError& rError : aErrors) {
        rError.check();
    }
    layout.geometry = {axisOf(arv(), "SensorWidth", "BinningHorizontal", "BinningHorizontalMode", "ReverseX"),
                       axisOf(arv(), "SensorHeight", "BinningVertical", "BinningVerticalMode", "ReverseY")};
    layout.geometry.x.nOffset = static_cast<uint64_t>(iX);
    layout.geometry.y.nOffset = static_cast<uint64_t>(iY);
    layout.nWidth = static_cast<uint64_t>(iWidth);
    layout.nHeight = static_cast<uint64_t>(iHeight);
    std::lock_guard<std::mutex> lock(m_mtxLayout);
    m_layout = std::move(layout);
}

std::vector<const PixelFormat*> CAravisCamera::commonFormats() const {
    CGlibError error;
    guint nFormats = 0;
    const std::unique_ptr<gint64, GlibFree> pFormats(
        arv_camera_dup_available_pixel_formats(arv(), &nFormats, error.out()));
    error.check();
    std::vector<const PixelFormat*> vecFormats;
    for (guint i = 0; i < nFormats; ++i) {
        if (const PixelFormat* pFormat = formatOf(pFormats.get()[i])) {
            vecFormats.push_back(pFormat);
        }
    }
    return vecFormats;
}

void CAravisCamera::checkControl() const {
    ArvDevice* const pDevice = arv_camera_get_device(arv());
    if (!ARV_IS_GV_DEVICE(pDevice)) {
        readRegister(pDevice, VERSION_REGISTER);
        return;
    }
    if ((readRegister(pDevice, PRIVILEGE_REGISTER) & PRIVILEGE_MASK) == 0) {
        throw CCameraError(GC_ERR_IO, "it no longer obeys this program (restarted, or lost from the network)");
    }
    // Somebody is in control. What is there already is written, not the privilege itself, which could take the camera
    // back from another client.
    CGlibError error;
    const guint32 uHeartbeat = readRegister(pDevice, HEARTBEAT_REGISTER);
    arv_device_write_register(pDevice, HEARTBEAT_REGISTER, uHeartbeat, error.out());
    if (error.is(ARV_DEVICE_ERROR_TIMEOUT)) {
        readRegister(pDevice, PRIVILEGE_REGISTER);  // does it still answer?
    }
    // To a client that is not in control cameras say so, or nothing at all. What else one says is no loss.
    if (error.isDenied() || error.is(ARV_DEVICE_ERROR_TIMEOUT)) {
        throw CCameraError(GC_ERR_ACCESS_DENIED, TAKEN + error.text() + ")");
    }
}

}  // namespace StandIn
}  // namespace XAPEL2
