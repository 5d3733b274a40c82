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

}  // namespace

CSourceCamera::CSourceCamera(std::unique_ptr<IFrameSource> pSource)
    : m_pSource(std::move(pSource)),
      m_vecFormats(m_pSource->formats()),
      m_bCanResize(m_pSource->canResize()),
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
    const Axis x = {&CameraSettings::nWidth, &CameraSettings::nOffsetX, &CameraSettings::nBinningX,
                    m_pSource->sensorWidth()};
    const Axis y = {&CameraSettings::nHeight, &CameraSettings::nOffsetY, &CameraSettings::nBinningY,
                    m_pSource->sensorHeight()};
    addSize("Width", x, x.pSize, x.pOffset, 1);
    addSize("Height", y, y.pSize, y.pOffset, 1);
    addSize("OffsetX", x, x.pOffset, x.pSize, 0);
    addSize("OffsetY", y, y.pOffset, y.pSize, 0);
    if (m_bCanResize) {
        addBinning("BinningHorizontal", x);
        addBinning("BinningVertical", y);
        addNumber("ReverseX", m_settings.iReverseX, {0, 1}, false);
        addNumber("ReverseY", m_settings.iReverseY, {0, 1}, false);
    }
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

// A side or an offset: together with its partner it stays on the sensor.
void CSourceCamera::addSize(const char* pName, const Axis& rAxis, uint64_t CameraSettings::*pMember,
                            uint64_t CameraSettings::*pOther, int64_t iMin) {
    NodeSpec spec = numberNode(pName, m_settings.*pMember);
    spec.fnMin = [this, iMin, fnGet = spec.fnGetInt] { return m_bCanResize ? iMin : fnGet(); };
    spec.fnMax = [this, rAxis, pOther, fnGet = spec.fnGetInt] {
        if (!m_bCanResize) {
            return fnGet();
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        return static_cast<int64_t>(rAxis.binned(m_settings) - m_settings.*pOther);
    };
    spec.fnSetInt = [this, rAxis, pMember, pOther, iMin](int64_t iValue) {
        std::lock_guard<std::mutex> lock(m_mtx);
        if (m_bStreaming || !m_bCanResize) {
            return eNodeDenied;
        }
        if (iValue < iMin || static_cast<uint64_t>(iValue) > rAxis.binned(m_settings) - m_settings.*pOther) {
            return eNodeInvalid;
        }
        m_settings.*pMember = static_cast<uint64_t>(iValue);
        return eNodeDone;
    };
    add(std::move(spec));
}

// Another binning begins with the whole sensor: a region in other pixels has no natural successor.
void CSourceCamera::addBinning(const char* pName, const Axis& rAxis) {
    NodeSpec spec = numberNode(pName, m_settings.*rAxis.pBinning);
    spec.fnMin = [] { return int64_t{1}; };
    spec.fnMax = [rAxis] { return int64_t{rAxis.nSensor >= 4 ? 4 : rAxis.nSensor >= 2 ? 2 : 1}; };
    spec.fnSetInt = [this, rAxis, fnMax = spec.fnMax](int64_t iValue) {
        if (iValue < 1 || iValue > fnMax() || !isBinning(static_cast<uint64_t>(iValue))) {
            return eNodeInvalid;
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        if (m_bStreaming) {
            return eNodeDenied;
        }
        if (m_settings.*rAxis.pBinning != static_cast<uint64_t>(iValue)) {
            m_settings.*rAxis.pBinning = static_cast<uint64_t>(iValue);
            m_settings.*rAxis.pSize = rAxis.binned(m_settings);
            m_settings.*rAxis.pOffset = 0;
        }
        return eNodeDone;
    };
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
    spec.fnSetText = [this](const char* pEntry) {
        for (const PixelFormat* pFormat : m_vecFormats) {
            if (std::strcmp(pFormat->pName, pEntry) == 0) {
                std::lock_guard<std::mutex> lock(m_mtx);
                if (m_bStreaming) {
                    return eNodeDenied;
                }
                m_settings.pFormat = pFormat;
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
