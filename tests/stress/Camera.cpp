// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Opening and feeding a camera.

#include "Camera.h"

namespace XapelStress {

namespace {

constexpr unsigned BUFFERS = 8;

std::string cameraId(unsigned iCamera, const ImageLayout& r) {
    return "sim:" + std::to_string(iCamera) + "?width=" + std::to_string(r.nWidth) +
           "&height=" + std::to_string(r.nHeight) + "&format=" + r.pFormat->pName;
}

}  // namespace

CCamera::CCamera(unsigned iCamera, const std::string& strFolder, bool bFacades)
    : m_iCamera(iCamera),
      m_strName("camera " + std::to_string(iCamera)),
      m_bFacades(bFacades),
      m_frames(iCamera),
      m_pDevice(openDevice(cameraId(iCamera, m_frames.m_layout))),
      m_pStream(firstDataStream(m_pDevice)) {
    const ImageLayout& rLayout = m_frames.m_layout;
    remoteNodes(m_pDevice)->GetNode("StandInScene")->SetValue("Dark");  // the fastest; the content is replaced
    for (unsigned i = 0; i < SLOTS; ++i) {
        m_aReferences[i] = strFolder + "/" + std::to_string(iCamera) + std::to_string(i) + ".tif";
        Pixels light = m_frames.lightReference(i);
        Shading recorder(m_pDevice);
        recorder.ReferenceStart(true);
        recorder.ReferenceAdd(rLayout.pFormat->pName, rLayout.nWidth, rLayout.nHeight, light.data(), rLayout.bytes());
        recorder.ReferenceEnd(m_aReferences[i].c_str());
    }
    for (unsigned i = 0; bFacades && i < 2; ++i) m_aSlots[i].pFacade = makeFacade(i);
}

CCamera::~CCamera() {
    for (Slot& rSlot : m_aSlots) rSlot.pFacade.reset();
    closeDevice(m_pDevice);
}

std::unique_ptr<Shading> CCamera::makeFacade(unsigned iSlot) const {
    auto pFacade = std::make_unique<Shading>(m_pDevice);
    pFacade->ReferenceLoad(true, m_aReferences[iSlot].c_str());
    pFacade->ReferenceApply();
    return pFacade;
}

std::string CCamera::reopen() {
    const CChanging stream(m_stream), ends(m_ends);
    // A participant makes the host close twice; a hub that comes to life opens what it finds closed.
    const int iClose = closeDataStream(m_pDevice, m_pStream);
    if (iClose != GC_ERR_SUCCESS && iClose != GC_ERR_INVALID_HANDLE)
        return "close " + std::to_string(iClose);
    const int iOpen = openDataStream(m_pDevice, m_pStream);
    if (iOpen != GC_ERR_SUCCESS && iOpen != GC_ERR_RESOURCE_IN_USE)
        return "open " + std::to_string(iOpen);
    ++m_uEpoch;
    for (unsigned i = 0; i < BUFFERS; ++i) {
        Pixels pixels(m_frames.m_layout.samples(), WIPED);
        BufferHandle hBuffer = nullptr;
        if (announceBuffer(m_pStream, pixels.data(), m_frames.m_layout.bytes(), &hBuffer) != GC_ERR_SUCCESS ||
            queueBuffer(m_pStream, hBuffer) != GC_ERR_SUCCESS)
            return "buffers";
        const std::lock_guard<std::mutex> lock(m_mtx);
        m_buffers[hBuffer] = std::move(pixels);
    }
    return startAcquisition(m_pStream, m_nFrames) == GC_ERR_SUCCESS ? "" : "start";
}

std::string CCamera::restart() {
    closeDataStream(m_pDevice, m_pStream);
    m_delivered.clear();
    m_buffers.clear();
    return reopen();
}

Pixels* CCamera::pixelsOf(BufferHandle hBuffer) {
    const std::lock_guard<std::mutex> lock(m_mtx);
    const auto it = m_buffers.find(hBuffer);
    return it == m_buffers.end() ? nullptr : &it->second;
}

}  // namespace XapelStress
