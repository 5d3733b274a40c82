// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The settings of a camera whose frames are made from a source.

#include "standin/cameras/source/SourceCamera.h"

#include <cstring>
#include <limits>
#include <utility>

#include "standin/cameras/source/SourceStream.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

const std::array<const char*, 3> SCENES = {"Dark", "Light", "Scene"};  // in the order of eScene
const std::array<const char*, 2> BINNING_MODES = {"Average", "Sum"};   // by CameraSettings::iSumX

}  // namespace

CSourceCamera::CSourceCamera(std::unique_ptr<IFrameSource> pSource)
    : m_pSource(std::move(pSource)),
      m_vecFormats(m_pSource->formats()),
      m_bCanResize(m_pSource->canResize()),
      m_x{&CameraSettings::nWidth, &CameraSettings::nOffsetX, &CameraSettings::nBinningX, &ImageGeometry::x},
      m_y{&CameraSettings::nHeight, &CameraSettings::nOffsetY, &CameraSettings::nBinningY, &ImageGeometry::y},
      m_settings(m_pSource->defaultSettings()) {
    for (std::size_t i = 0; i < m_aFrameCounts.size(); ++i) {
        m_aFrameCounts[i] = m_pSource->frameCount(static_cast<eScene>(i));
    }
    addText("DeviceModelName", m_pSource->description());
    if (!m_pSource->serialNumber().empty()) {
        addText("DeviceSerialNumber", m_pSource->serialNumber());
    }
    addFormat();
    addAxes();
    // Recorded frames are as they were taken, and nobody told with what.
    if (m_bCanResize) {
        addNumber("ExposureTime", m_settings.iExposureUs, {1, EXPOSURE_US_MAX}, true);
        addNumber("Gain", m_settings.iGainPercent, {1, GAIN_PERCENT_MAX}, true);
    }
    addNumber("AcquisitionFrameRate", m_settings.iFrameRateHz, {0, FRAME_RATE_HZ_MAX}, true);
    addScene();
}

void CSourceCamera::addAxes() {
    addSize("Width", m_x, m_x.pSize, m_x.pOffset, 1);
    addSize("Height", m_y, m_y.pSize, m_y.pOffset, 1);
    addSize("OffsetX", m_x, m_x.pOffset, m_x.pSize, 0);
    addSize("OffsetY", m_y, m_y.pOffset, m_y.pSize, 0);
    if (m_bCanResize) {
        addSensorSide("SensorWidth", m_pSource->sensorWidth());
        addSensorSide("SensorHeight", m_pSource->sensorHeight());
        addBinning("BinningHorizontal", m_x);
        addBinning("BinningVertical", m_y);
        addBinningMode("BinningHorizontalMode", m_settings.iSumX);
        addBinningMode("BinningVerticalMode", m_settings.iSumY);
        addMirror("ReverseX", m_settings.iReverseX);
        addMirror("ReverseY", m_settings.iReverseY);
    }
}

ImageGeometry CSourceCamera::geometryOf(const CameraSettings& rSettings) const {
    return m_bCanResize ? StandIn::geometryOf(rSettings, m_pSource->sensorWidth(), m_pSource->sensorHeight())
                        : ImageGeometry{};
}

uint64_t CSourceCamera::binned(const Axis& rAxis) const {
    // Recorded frames are their own sensor.
    return m_bCanResize ? (geometryOf(m_settings).*rAxis.pAxis).binned(m_settings.pFormat->isCfa())
                        : m_settings.*rAxis.pSize;
}

void CSourceCamera::useWhole(const Axis& rAxis) {
    m_settings.*rAxis.pSize = binned(rAxis);
    m_settings.*rAxis.pOffset = 0;
}

// The filter array stays where it is on the sensor: the format goes with the pixel that the image begins with.
void CSourceCamera::change(const std::function<void()>& fnChange) {
    const auto fnFirst = [this](const Axis& rAxis) {
        return (geometryOf(m_settings).*rAxis.pAxis).unmirrored(0, m_settings.pFormat->isCfa());
    };
    const uint64_t iX = fnFirst(m_x);
    const uint64_t iY = fnFirst(m_y);
    fnChange();
    m_settings.pFormat = shiftedFormat(*m_settings.pFormat, (fnFirst(m_x) ^ iX) % 2, (fnFirst(m_y) ^ iY) % 2);
}

// A node with a number, its limits and setter still to come.
NodeSpec CSourceCamera::numberNode(const char* pName, const uint64_t& rMember) {
    NodeSpec spec;
    spec.strName = pName;
    spec.fnGetInt = [this, &rMember] {
        const std::lock_guard<std::mutex> lock(m_mtx);
        return static_cast<int64_t>(rMember);
    };
    return spec;
}

// A number between fixed limits.
void CSourceCamera::addNumber(const char* pName, uint64_t& rMember, IntLimits limits, bool bWhileStreaming) {
    NodeSpec spec = numberNode(pName, rMember);
    spec.fnMin = [limits] { return limits[0]; };
    spec.fnMax = [limits] { return limits[1]; };
    spec.fnSetInt = [this, &rMember, limits, bWhileStreaming](int64_t iValue) {
        if (iValue < limits[0] || iValue > limits[1]) {
            return eNodeInvalid;
        }
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (m_bStreaming && !bWhileStreaming) {
            return eNodeDenied;
        }
        rMember = static_cast<uint64_t>(iValue);
        return eNodeDone;
    };
    add(std::move(spec));
}

// A side or an offset: together with its partner it stays on the sensor. A region moves while the camera streams.
void CSourceCamera::addSize(const char* pName, const Axis& rAxis, uint64_t CameraSettings::*pMember,
                            uint64_t CameraSettings::*pOther, int64_t iMin) {
    NodeSpec spec = numberNode(pName, m_settings.*pMember);
    spec.fnMin = [this, iMin, fnGet = spec.fnGetInt] { return m_bCanResize ? iMin : fnGet(); };
    spec.fnMax = [this, &rAxis, pOther, fnGet = spec.fnGetInt] {
        if (!m_bCanResize) {
            return fnGet();
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        return static_cast<int64_t>(binned(rAxis) - m_settings.*pOther);
    };
    spec.fnSetInt = [this, &rAxis, pMember, pOther, iMin](int64_t iValue) {
        std::lock_guard<std::mutex> lock(m_mtx);
        if ((m_bStreaming && pMember != rAxis.pOffset) || !m_bCanResize) {
            return eNodeDenied;
        }
        if (iValue < iMin || static_cast<uint64_t>(iValue) > binned(rAxis) - m_settings.*pOther) {
            return eNodeInvalid;
        }
        change([&] { m_settings.*pMember = static_cast<uint64_t>(iValue); });
        return eNodeDone;
    };
    add(std::move(spec));
}

// Another binning begins with the whole sensor: a region in other pixels has no natural successor.
void CSourceCamera::addBinning(const char* pName, const Axis& rAxis) {
    NodeSpec spec = numberNode(pName, m_settings.*rAxis.pBinning);
    const uint64_t nSensor = (geometryOf(m_settings).*rAxis.pAxis).nSensor;
    spec.fnMin = [] { return int64_t{1}; };
    spec.fnMax = [this, nSensor] {
        std::lock_guard<std::mutex> lock(m_mtx);
        const uint64_t nLeast = m_settings.pFormat->isCfa() ? 2 : 1;
        return int64_t{nSensor >= 4 * nLeast ? 4 : nSensor >= 2 * nLeast ? 2 : 1};
    };
    spec.fnSetInt = [this, &rAxis, fnMax = spec.fnMax](int64_t iValue) {
        if (iValue < 1 || iValue > fnMax() || !isBinning(static_cast<uint64_t>(iValue))) {
            return eNodeInvalid;
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        if (m_bStreaming) {
            return eNodeDenied;
        }
        if (m_settings.*rAxis.pBinning != static_cast<uint64_t>(iValue)) {
            change([&] {
                m_settings.*rAxis.pBinning = static_cast<uint64_t>(iValue);
                useWhole(rAxis);
            });
        }
        return eNodeDone;
    };
    add(std::move(spec));
}

void CSourceCamera::addBinningMode(const char* pName, uint64_t& rSum) {
    NodeSpec spec;
    spec.strName = pName;
    spec.eKind = eEnumNode;
    spec.fnGetText = [this, &rSum] {
        std::lock_guard<std::mutex> lock(m_mtx);
        return std::string(BINNING_MODES[rSum]);
    };
    spec.fnEntries = [] { return std::vector<std::string>(BINNING_MODES.begin(), BINNING_MODES.end()); };
    spec.fnSetText = [this, &rSum](const char* pEntry) {
        for (uint64_t i = 0; i < BINNING_MODES.size(); ++i) {
            if (std::strcmp(BINNING_MODES[i], pEntry) == 0) {
                std::lock_guard<std::mutex> lock(m_mtx);
                if (m_bStreaming) {
                    return eNodeDenied;
                }
                rSum = i;
                return eNodeDone;
            }
        }
        return eNodeInvalid;
    };
    add(std::move(spec));
}

void CSourceCamera::addMirror(const char* pName, uint64_t& rReverse) {
    NodeSpec spec = numberNode(pName, rReverse);
    spec.fnMin = [] { return int64_t{0}; };
    spec.fnMax = [] { return int64_t{1}; };
    spec.fnSetInt = [this, &rReverse](int64_t iValue) {
        if (iValue != 0 && iValue != 1) {
            return eNodeInvalid;
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        if (m_bStreaming) {
            return eNodeDenied;
        }
        change([&] { rReverse = static_cast<uint64_t>(iValue); });
        return eNodeDone;
    };
    add(std::move(spec));
}

void CSourceCamera::addSensorSide(const char* pName, uint64_t nPixels) {
    NodeSpec spec;
    spec.strName = pName;
    spec.fnGetInt = spec.fnMin = spec.fnMax = [nPixels] { return static_cast<int64_t>(nPixels); };
    add(std::move(spec));
}

void CSourceCamera::addText(const char* pName, const std::string& strText) {
    NodeSpec spec;
    spec.strName = pName;
    spec.eKind = eTextNode;
    spec.fnGetText = [strText] { return strText; };
    add(std::move(spec));
}

void CSourceCamera::addFormat() {
    NodeSpec spec;
    spec.strName = "PixelFormat";
    spec.eKind = eEnumNode;
    spec.fnGetText = [this] { return std::string(settings().pFormat->pName); };
    spec.fnEntries = [this] { return formatNames(m_vecFormats); };
    spec.fnSetText = [this](const char* pEntry) {
        for (const PixelFormat* pFormat : m_vecFormats) {
            if (std::strcmp(pFormat->pName, pEntry) == 0) {
                std::lock_guard<std::mutex> lock(m_mtx);
                if (m_bStreaming) {
                    return eNodeDenied;
                }
                const PixelFormat* const pBefore = std::exchange(m_settings.pFormat, pFormat);
                if (binned(m_x) == 0 || binned(m_y) == 0) {
                    m_settings.pFormat = pBefore;  // too few pixels to bin those of one colour
                    return eNodeInvalid;
                }
                for (const Axis* pAxis : {&m_x, &m_y}) {
                    if (m_settings.*pAxis->pOffset + m_settings.*pAxis->pSize > binned(*pAxis)) {
                        useWhole(*pAxis);
                    }
                }
                return eNodeDone;
            }
        }
        return eNodeInvalid;
    };
    add(std::move(spec));
}

void CSourceCamera::addScene() {
    NodeSpec scene;
    scene.strName = "StandInScene";
    scene.eKind = eEnumNode;
    scene.fnGetText = [this] {
        std::lock_guard<std::mutex> lock(m_mtx);
        return std::string(SCENES[m_eScene]);
    };
    scene.fnEntries = [] { return std::vector<std::string>(SCENES.begin(), SCENES.end()); };
    scene.fnSetText = [this](const char* pEntry) {
        for (std::size_t i = 0; i < SCENES.size(); ++i) {
            if (std::strcmp(SCENES[i], pEntry) == 0) {
                std::lock_guard<std::mutex> lock(m_mtx);
                m_eScene = static_cast<eScene>(i);
                m_iNextFrame = 0;
                return eNodeDone;
            }
        }
        return eNodeInvalid;
    };
    add(std::move(scene));

    addNumber("StandInFrame", m_iNextFrame, {0, std::numeric_limits<int64_t>::max()}, true);

    NodeSpec count;
    count.strName = "StandInFrameCount";
    count.fnGetInt = [this] {
        std::lock_guard<std::mutex> lock(m_mtx);
        return static_cast<int64_t>(m_aFrameCounts[m_eScene]);
    };
    count.fnMin = [] { return int64_t{0}; };
    count.fnMax = [] { return std::numeric_limits<int64_t>::max(); };
    add(std::move(count));
}

CameraSettings CSourceCamera::settings() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_settings;
}

std::size_t CSourceCamera::payloadSize() const {
    const CameraSettings now = settings();
    return imageBytes(*now.pFormat, now.nWidth, now.nHeight);
}

std::unique_ptr<ICameraStream> CSourceCamera::makeStream(ICameraBuffers& rBuffers) {
    {
        const std::lock_guard<std::mutex> lock(m_mtx);
        if (std::exchange(m_bStreaming, true)) {
            return nullptr;
        }
    }
    try {
        return std::make_unique<CSourceStream>(*this, rBuffers);
    } catch (...) {
        streamEnds();
        throw;
    }
}

void CSourceCamera::streamEnds() {
    const std::lock_guard<std::mutex> lock(m_mtx);
    m_bStreaming = false;
}

uint64_t CSourceCamera::frameRate() const {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_settings.iFrameRateHz;
}

FrameRequest CSourceCamera::nextFrame() {
    std::lock_guard<std::mutex> lock(m_mtx);
    return {m_settings, m_eScene, m_iNextFrame++};
}

}  // namespace StandIn
}  // namespace XAPEL2
