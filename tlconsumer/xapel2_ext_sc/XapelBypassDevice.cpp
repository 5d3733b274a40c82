// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The hub's life: finding the stream, registering and removing the hooks, changing the participant lists.

#include "XapelBypassDevice.h"

#include <cxxabi.h>

#include <algorithm>

#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExceptions.h"

#include "XapelBypassHooks.h"
#include "XapelSourceFile.h"
#include "XapelTraceText.h"

using XAPEL2::Exceptions::IException;
using XAPEL2::Exceptions::Xapel_NotAvailableException;
using XAPEL2::Exceptions::Xapel_ObjectInvalidException;

namespace {

const char STREAM_INVALID[] = "The DataStream object is not valid or is no longer valid";
const char DEVICE_INVALID[] = "The Device object is not valid or is no longer valid";

/// Removes a hook. @return false when the host refused: it may call the hub for ever, so no other hub may stand there.
bool removeOrKeepSlot(eXapelHook eHook, XAPEL2::Device* pDevice, XAPEL2::DataStream* pDataStream,
                      CXapelBypassDevice* pHub) {
    bool bRemoved = false;
    try {
        bRemoved = xapelRemoveHook(eHook, pDevice, pDataStream, pHub);
    } catch (...) {
        xapelSlotKeep(pHub);
        throw;
    }
    if (!bRemoved) {
        xapelSlotKeep(pHub);
    }
    return bRemoved;
}

/// Removes a hook. @throws Xapel_ObjectInvalidException  the host refused.
void removeOrThrow(eXapelHook eHook, XAPEL2::Device* pDevice, XAPEL2::DataStream* pDataStream,
                   CXapelBypassDevice* pHub) {
    if (!removeOrKeepSlot(eHook, pDevice, pDataStream, pHub)) {
        throw Xapel_ObjectInvalidException(XAPEL_BYPASS_SOURCE_FILE, __LINE__, "deInitCallBacks",
                                           eHook == eHookClose ? DEVICE_INVALID : STREAM_INVALID);
    }
}

/// Runs a step whose failure changes nothing for the caller. @return false when it threw.
template <typename Step>
bool runInSilence(Step fnStep) {
    try {
        fnStep();
        return true;
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled: swallowing this would end the process
    } catch (...) {
        return false;
    }
}

/// Removes the first nHooks hooks, last one first, as far as the host lets it, in silence.
void takeBack(unsigned nHooks, XAPEL2::Device* pDevice, XAPEL2::DataStream* pDataStream, CXapelBypassDevice* pHub) {
    while (nHooks-- > 0) {
        runInSilence([=] { removeOrKeepSlot(static_cast<eXapelHook>(nHooks), pDevice, pDataStream, pHub); });
    }
}

/// Runs one step of a destructor: lets nothing out, traces a host exception.
template <typename Step>
void runInDestructor(Step fnStep) noexcept {
    try {
        try {
            fnStep();
        } catch (const IException& rException) {
            xapelTraceException("XapelBypass; dtor;", rException);
        }
    } catch (...) {
    }
}

}  // namespace

CXapelBypassDevice::CXapelBypassDevice(XAPEL2::Device* pDevice)
    : m_pDevice(pDevice),
      m_pDataStream(nullptr),
      m_hDataStream(nullptr),
      m_hDevice(nullptr),
      m_pfnGetFilledBuffer(nullptr),
      m_pfnCancelGetFilledBuffer(nullptr),
      m_pfnGetInfo(nullptr),
      m_pfnCloseDataStream(nullptr),
      m_Life(this) {
    try {
        XAPEL2::DataStream* pDataStream = findFirstDataStream("CXapelBypassDevice");
        if (!pDataStream->IsOpen()) {
            pDataStream->Open();
        }
        XapelHostFunctions host;
        host.pDataStream = pDataStream;
        storeHostFunctions(host);
    } catch (const IException& rException) {
        xapelTraceException("XapelBypass; ctor;", rException);
        throw;
    }
    initCallBacks(true);
}

CXapelBypassDevice::~CXapelBypassDevice() {
    m_OpenClose.close();
    m_OpenClose.waitUntilNone();
    runInDestructor([] { xapelTrace(eTraceOrdinary, "CXapelBypassDevice::; deInitCallBack called;"); });
    for (unsigned iHook = 0; iHook < eHookCount; ++iHook) {
        runInDestructor(
            [this, iHook] { removeOrThrow(static_cast<eXapelHook>(iHook), m_pDevice, getXapelDataStream(), this); });
    }
    runInDestructor([this] {
        const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eExclusive, eCallNone);
        runInDestructor([this] { waitExclusiveAccess(); });
        m_AccessData.WaitExclusive();
        clearHostFunctions();
    });
}

XAPEL2::DataStream* CXapelBypassDevice::findFirstDataStream(const char* pFunction) {
    XAPEL2::DataStream* pDataStream = nullptr;
    if (XAPEL2::DataStreamList* pList = m_pDevice->GetDataStreams()) {
        pList->Refresh();
        if (pList->size() != 0) {
            pDataStream = (*pList->begin()).second;
        }
    }
    if (pDataStream == nullptr) {
        throw Xapel_NotAvailableException(XAPEL_BYPASS_SOURCE_FILE, __LINE__, pFunction,
                                          "The device doesn't support any data streams.");
    }
    return pDataStream;
}

bool CXapelBypassDevice::isStreamListed(const XAPEL2::DataStream* pDataStream) {
    XAPEL2::DataStreamList* pList = m_pDevice->GetDataStreams();
    if (pList == nullptr) {
        return false;
    }
    pList->Refresh();
    const auto itEnd = pList->end();
    for (auto itStream = pList->begin(); itStream != itEnd; ++itStream) {
        if ((*itStream).second == pDataStream) {
            return true;
        }
    }
    return false;
}

XapelHostFunctions CXapelBypassDevice::hostFunctions() const {
    const std::lock_guard<std::mutex> lock(m_mtxLeaf);
    return hostFunctionsLocked();
}

XapelHostFunctions CXapelBypassDevice::hostFunctionsLocked() const {
    XapelHostFunctions host;
    host.pDataStream = m_pDataStream;
    host.hDataStream = m_hDataStream;
    host.hDevice = m_hDevice;
    host.pfnGetFilledBuffer = m_pfnGetFilledBuffer;
    host.pfnCancelGetFilledBuffer = m_pfnCancelGetFilledBuffer;
    host.pfnGetInfo = m_pfnGetInfo;
    host.pfnCloseDataStream = m_pfnCloseDataStream;
    return host;
}

XapelHostFunctions CXapelBypassDevice::storeHostFunctions(const XapelHostFunctions& rHost, bool bUnlessMoved) {
    const std::lock_guard<std::mutex> lock(m_mtxLeaf);
    const XapelHostFunctions before = hostFunctionsLocked();
    if (bUnlessMoved && m_pDataStream != rHost.pDataStream) {
        return rHost;
    }
    m_pDataStream = rHost.pDataStream;
    m_hDataStream = rHost.hDataStream;
    m_hDevice = rHost.hDevice;
    m_pfnGetFilledBuffer = rHost.pfnGetFilledBuffer;
    m_pfnCancelGetFilledBuffer = rHost.pfnCancelGetFilledBuffer;
    m_pfnGetInfo = rHost.pfnGetInfo;
    m_pfnCloseDataStream = rHost.pfnCloseDataStream;
    m_hostCopy.write(rHost);
    return before;
}

void CXapelBypassDevice::clearHostFunctions() {
    XapelHostFunctions host = hostFunctions();
    host.pfnGetFilledBuffer = nullptr;
    host.pfnCancelGetFilledBuffer = nullptr;
    host.pfnGetInfo = nullptr;
    host.pfnCloseDataStream = nullptr;
    storeHostFunctions(host);
}

void CXapelBypassDevice::initCallBacks(bool bRegisterOpen) {
    registerHooks(getXapelDataStream(), bRegisterOpen);
}

void CXapelBypassDevice::registerHooks(XAPEL2::DataStream* pDataStream, bool bRegisterOpen) {
    xapelTrace(eTraceOrdinary, "CXapelBypassDevice::; initCallBack called;");
    XapelHostFunctions host;
    host.pDataStream = pDataStream;
    unsigned nDone = 0;
    try {
        const unsigned nHooks = bRegisterOpen ? eHookCount : eHookOpen;
        // A host that throws may have registered all the same, so a hook counts until it has been refused.
        while (nDone < nHooks) {
            const auto eHook = static_cast<eXapelHook>(nDone++);
            if (xapelRegisterHook(eHook, m_pDevice, this, host)) {
                continue;
            }
            --nDone;
            throw Xapel_ObjectInvalidException(XAPEL_BYPASS_SOURCE_FILE, __LINE__, "initCallBacks", STREAM_INVALID);
        }
        // While the open hook stands, an opening may have moved the hub meanwhile: then this stream is the one to
        // leave.
        const XapelHostFunctions left = storeHostFunctions(host, bRegisterOpen);
        if (left.pDataStream != nullptr && left.pDataStream != getXapelDataStream()) {
            leaveStream(left);
        }
    } catch (...) {
        // A hub under construction takes all back; one that lives only what stands on another stream than before.
        if (bRegisterOpen) {
            // An opening that is under way would register anew what is taken back, on a stream of its choice.
            m_OpenClose.close();
            m_OpenClose.waitUntilNone();
            takeBack(nDone, m_pDevice, getXapelDataStream(), this);
        } else if (pDataStream != getXapelDataStream()) {
            takeBack(std::min(nDone, XAPEL_HOOK_FIRST_OF_DEVICE), m_pDevice, pDataStream, this);
        }
        throw;
    }
}

void CXapelBypassDevice::leaveStream(const XapelHostFunctions& rBefore) {
    // Nobody would remove these hooks later, nor end a fetch that waits there: the hub now cancels elsewhere.
    takeBack(XAPEL_HOOK_FIRST_OF_DEVICE, m_pDevice, rBefore.pDataStream, this);
    runInSilence([&] {
        // The handle of a stream that is gone may be dead, and nobody can wait there.
        if (rBefore.pfnCancelGetFilledBuffer != nullptr && isStreamListed(rBefore.pDataStream)) {
            rBefore.pfnCancelGetFilledBuffer(rBefore.hDataStream);
        }
    });
}

void CXapelBypassDevice::deInitCallBacks() {
    xapelTrace(eTraceOrdinary, "CXapelBypassDevice::; deInitCallBack called;");
    for (unsigned iHook = 0; iHook < eHookCount; ++iHook) {
        removeOrThrow(static_cast<eXapelHook>(iHook), m_pDevice, getXapelDataStream(), this);
    }
    const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eExclusive, eCallNone);
    waitExclusiveAccess();
    clearHostFunctions();
}

void CXapelBypassDevice::waitExclusiveAccess() {
    if (m_AccessData.IsExclusive()) {
        return;
    }
    if ((m_AccessData.Flags() & eCallFetch) != 0) {
        cancelGetFilledBuffer();
    }
    m_AccessData.WaitExclusive();
}

void CXapelBypassDevice::addTo(ParticipantList& rList, CXapelBypass* p) {
    ParticipantList entry(1, p);  // allocated before the gate is closed
    const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eExclusive, eCallNone);
    waitExclusiveAccess();
    const std::lock_guard<std::mutex> lock(m_mtxLeaf);
    rList.splice(rList.end(), entry);
}

void CXapelBypassDevice::removeFrom(ParticipantList& rList, CXapelBypass* p) {
    {
        const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eExclusive, eCallNone);
        waitExclusiveAccess();
        const std::lock_guard<std::mutex> lock(m_mtxLeaf);
        rList.remove(p);
    }
    // Outside the gate: a host's close may wait for its fetches, which may wait at the gate.
    m_OpenClose.waitUntilNone();
}

void CXapelBypassDevice::dropParticipant(CXapelBypass* p) noexcept {
    bool bMayBeListed = true;
    runInDestructor([&] { bMayBeListed = isListed(p); });
    if (!bMayBeListed) {
        return;
    }
    bool bRemoved = false;
    runInDestructor([&] {
        const CXapelAccessControl guard(m_mtxAccess, m_AccessData, CXapelAccessControl::eExclusive, eCallNone);
        runInDestructor([this] { waitExclusiveAccess(); });
        m_AccessData.WaitExclusive();
        const std::lock_guard<std::mutex> lock(m_mtxLeaf);
        m_lstParticipants.remove(p);
        m_lstParticipantsForCalling.remove(p);
        bRemoved = true;
    });
    if (!bRemoved) {
        endService();
    }
    m_OpenClose.waitUntilNone();
}

void CXapelBypassDevice::endService() noexcept {
    m_OpenClose.close();
    m_Life.refuseCalls();
    // Once, now that nobody comes after: who waits in the host is inside.
    runInDestructor([this] { consumer_cancelGetFilledBuffer(); });
    m_Life.waitForCalls();
    // A list change of another thread may still be asking the participants to cancel.
    while (!m_AccessData.IsEmpty()) {
        xapelSpinPause();
    }
}

bool CXapelBypassDevice::isListed(CXapelBypass* p) const {
    const std::lock_guard<std::mutex> lock(m_mtxLeaf);
    const auto fnHolds = [p](const ParticipantList& rList) {
        return std::find(rList.begin(), rList.end(), p) != rList.end();
    };
    return fnHolds(m_lstParticipants) || fnHolds(m_lstParticipantsForCalling);
}

void CXapelBypassDevice::registerParticipant(CXapelBypass* p) {
    addTo(m_lstParticipants, p);
}
void CXapelBypassDevice::unregisterParticipant(CXapelBypass* p) {
    removeFrom(m_lstParticipants, p);
}
void CXapelBypassDevice::registerParticipantForCalling(CXapelBypass* p) {
    addTo(m_lstParticipantsForCalling, p);
}
void CXapelBypassDevice::unregisterParticipantForCalling(CXapelBypass* p) {
    removeFrom(m_lstParticipantsForCalling, p);
}
