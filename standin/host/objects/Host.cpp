// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The application's side of the host: devices, streams and buffers, through the hooks.

#include "xapel2_standin/Host.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "standin/cameras/DeviceId.h"
#include "standin/host/hooks/HostFunctions.h"
#include "standin/host/objects/Registry.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/stream/CallFrame.h"
#include "standin/host/stream/LiveModule.h"
#include "standin/host/testing/Observation.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// The hook for one call, null when there is none. A HookHold waits here.
template <class tFunction>
tFunction lookUp(const CHooks& rHooks, Control::eHook eKind, void*& rContext) {
    const Hook hook = rHooks.find(eKind);
    if (hook.pfn != nullptr) {
        passHold(eKind);
    }
    rContext = hook.pContext;
    return reinterpret_cast<tFunction>(hook.pfn);
}

// Runs an operation of the stream, GC_ERR_INVALID_HANDLE when it is dead.
template <class tOperation>
int onStream(DataStream* pShell, tOperation fnOperation) {
    const auto pStream = Registry::findStream(pShell);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : fnOperation(*pStream);
}

// What an identifier of a live camera begins with, as the module's file name ends.
constexpr const char* LIVE_PREFIX = "aravis:";

}  // namespace

std::vector<DeviceInfo> enumerateDevices() {
    std::vector<DeviceInfo> vecDevices = {{"sim", "Simulated camera"}};
    try {
        for (const LiveCameraInfo& rInfo : liveProvider().list()) {
            vecDevices.push_back({LIVE_PREFIX + rInfo.strId, rInfo.strDescription});
        }
    } catch (const CLiveError& rError) {
        trace(1, "no real cameras are listed: ", rError.what());
    }
    return vecDevices;
}

namespace {

template <class tMake>
Device* openCamera(tMake fnMake) {
    std::shared_ptr<CCamera> pCamera;
    try {
        pCamera = std::make_shared<CCamera>(fnMake());
    } catch (const CLiveError& rError) {
        if (rError.code() == GC_ERR_ACCESS_DENIED) {
            XAPEL2_RAISE(AccessDenied, rError.what());
        }
        XAPEL2_RAISE(NotAvailable, rError.what());
    } catch (const std::invalid_argument& rError) {
        XAPEL2_RAISE(InvalidParameter, rError.what());
    } catch (const std::runtime_error& rError) {
        XAPEL2_RAISE(NotAvailable, rError.what());
    }
    const auto pDevice = std::make_shared<CDevice>(std::move(pCamera));
    Registry::add(pDevice);
    return pDevice->shell();
}

// What a node takes, where that has bounds.
std::string boundsOf(Node& rNode) {
    try {
        return ", expected " + std::to_string(rNode.GetIntMin()) + " to " + std::to_string(rNode.GetIntMax());
    } catch (const Exceptions::IException&) {
        return "";
    }
}

void writeSetting(NodeMap& rNodes, const std::string& strSetting) {
    const std::size_t iEqual = strSetting.find('=');
    const std::string strNode = strSetting.substr(0, iEqual);
    if (iEqual == std::string::npos || !rNodes.GetNodePresent(strNode.c_str())) {
        XAPEL2_RAISE(InvalidParameter, "the camera has no setting '" + strSetting +
                                           "', expected one of its nodes as in ExposureTime=5000");
    }
    Node& rNode = *rNodes.GetNode(strNode.c_str());
    try {
        rNode.SetValue(strSetting.substr(iEqual + 1).c_str());
    } catch (const Exceptions::Xapel_InvalidParameterException& rError) {
        XAPEL2_RAISE(InvalidParameter,
                     "setting " + strSetting + ": " + rError.GetErrorDescription().get() + boundsOf(rNode));
    }
}

// NODE=VALUE, joined by '&', written in this order.
void writeSettings(NodeMap& rNodes, const std::string& strSettings) {
    for (std::size_t iPos = 0; iPos <= strSettings.size();) {
        const std::size_t iEnd = std::min(strSettings.find('&', iPos), strSettings.size());
        writeSetting(rNodes, strSettings.substr(iPos, iEnd - iPos));
        iPos = iEnd + 1;
    }
}

// strRest is what follows the prefix.
Device* openLive(const std::string& strRest) {
    const std::size_t iSettings = strRest.find('?');
    Device* const pDevice = openCamera([&] { return liveProvider().open(strRest.substr(0, iSettings)); });
    try {
        if (iSettings != std::string::npos) {
            writeSettings(*remoteNodes(pDevice), strRest.substr(iSettings + 1));
        }
    } catch (...) {
        closeDevice(pDevice);
        throw;
    }
    return pDevice;
}

}  // namespace

Device* openDevice(const std::string& strId) {
    if (strId.rfind(LIVE_PREFIX, 0) == 0) {
        return openLive(strId.substr(std::strlen(LIVE_PREFIX)));
    }
    return openCamera([&] { return makeFrameSource(strId); });
}

Device* openFiles(const std::vector<std::string>& vecFiles, const std::string& strFormat) {
    return openCamera([&] { return makeFileSource(vecFiles, strFormat); });
}

int closeDevice(Device* pShell) {
    const auto pDevice = Registry::findDevice(pShell);
    if (pDevice == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    // Copied before anything changes: the copy may want memory.
    const auto vecStreams = pDevice->streams();
    for (const auto& pStream : vecStreams) {
        if (pStream->isProducerThread()) {
            return GC_ERR_RESOURCE_IN_USE;
        }
    }
    if (!Registry::remove(*pDevice)) {
        return GC_ERR_INVALID_HANDLE;
    }
    pDevice->hooks().die();
    for (const auto& pStream : vecStreams) {
        pStream->close();
        pStream->hooks().die();
    }
    return GC_ERR_SUCCESS;
}

NodeMap* remoteNodes(Device* pShell) {
    const auto pDevice = Registry::findDevice(pShell);
    return pDevice == nullptr ? nullptr : pDevice->nodes().map();
}

DataStream* firstDataStream(Device* pShell) {
    const auto pDevice = Registry::findDevice(pShell);
    return pDevice == nullptr ? nullptr : pDevice->streams().front()->shell();
}

int openDataStream(Device* pDeviceShell, DataStream* pStreamShell) {
    const auto pDevice = Registry::findDevice(pDeviceShell);
    const auto pStream = pDevice == nullptr ? nullptr : pDevice->findStream(pStreamShell);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : pDevice->openStream(*pStream);
}

int closeDataStream(Device* pDeviceShell, DataStream* pStreamShell) {
    const auto pDevice = Registry::findDevice(pDeviceShell);
    const auto pStream = pDevice == nullptr ? nullptr : pDevice->findStream(pStreamShell);
    if (pStream == nullptr || !pStream->isOpen()) {
        return GC_ERR_INVALID_HANDLE;
    }
    void* pContext = nullptr;
    const auto pfnHook = lookUp<DeviceCloseDataStreamFunc>(pDevice->hooks(), Control::eHookClose, pContext);
    const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(pStreamShell, pContext);
    return iResult == GC_ERR_NOT_INITIALIZED ? pStream->close() : iResult;
}

std::size_t payloadSize(DataStream* pShell) {
    const auto pStream = Registry::findStream(pShell);
    return pStream == nullptr ? 0 : pStream->payloadSize();
}

int allocAndAnnounceBuffer(DataStream* pShell, std::size_t nBytes, BufferHandle* phBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.announce(nullptr, nBytes, phBuffer); });
}

int announceBuffer(DataStream* pShell, void* pMemory, std::size_t nBytes, BufferHandle* phBuffer) {
    return onStream(pShell, [&](CStream& rStream) {
        return pMemory == nullptr ? GC_ERR_INVALID_PARAMETER : rStream.announce(pMemory, nBytes, phBuffer);
    });
}

int revokeBuffer(DataStream* pShell, BufferHandle hBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.revoke(hBuffer); });
}

int queueBuffer(DataStream* pShell, BufferHandle hBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.queue(hBuffer); });
}

int startAcquisition(DataStream* pShell, uint64_t nFrames) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.start(nFrames); });
}

int stopAcquisition(DataStream* pShell) {
    return onStream(pShell, [](CStream& rStream) { return rStream.stop(); });
}

int flushBuffers(DataStream* pShell) {
    return onStream(pShell, [](CStream& rStream) { return rStream.flush(); });
}

int getFilledBuffer(DataStream* pShell, BufferHandle* phBuffer, unsigned long long iTimeoutMs) {
    return onStream(pShell, [&](CStream& rStream) {
        // Stamped first: a cancel during the look-up of the hook, or before the hook arrives, ends this call.
        const CCallFrame frame(pShell, CStream::cancelStamp());
        void* pContext = nullptr;
        const auto pfnHook = lookUp<DataStreamGetFilledBufferFunc>(rStream.hooks(), Control::eHookFetch, pContext);
        const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(phBuffer, iTimeoutMs, pContext);
        return iResult == GC_ERR_NOT_INITIALIZED ? ownFetch(rStream, phBuffer, iTimeoutMs) : iResult;
    });
}

int cancelGetFilledBuffer(DataStream* pShell) {
    return onStream(pShell, [&](CStream& rStream) {
        const CCallFrame frame(pShell, CStream::cancelStamp());
        void* pContext = nullptr;
        const auto pfnHook =
            lookUp<DataStreamCancelGetFilledBufferFunc>(rStream.hooks(), Control::eHookCancel, pContext);
        const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(pContext);
        const int iOwn = frame.ownCancelRan() ? GC_ERR_SUCCESS : rStream.cancel();
        return iResult == GC_ERR_NOT_INITIALIZED ? iOwn : iResult;
    });
}

int getStreamInfo(DataStream* pShell, int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) {
    return onStream(pShell, [&](CStream& rStream) {
        void* pContext = nullptr;
        const auto pfnHook = lookUp<DataStreamGetInfoFunc>(rStream.hooks(), Control::eHookInfo, pContext);
        const int iResult =
            pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(iInfoCmd, piType, pValue, piSize, pContext);
        return iResult == GC_ERR_NOT_INITIALIZED ? ownInfo(rStream, iInfoCmd, piType, pValue, piSize) : iResult;
    });
}

int getBufferInfo(DataStream* pShell, BufferHandle hBuffer, int iInfoCmd, int* piType, void* pValue,
                  unsigned long long* piSize) {
    return onStream(pShell, [&](const CStream&) -> int {
        const auto pBuffer = CBufferTable::instance().find(hBuffer);
        if (pBuffer == nullptr || pBuffer->pStream != pShell) {
            return GC_ERR_INVALID_HANDLE;
        }
        if (piSize == nullptr) {
            return GC_ERR_INVALID_PARAMETER;
        }
        uint64_t nSize = *piSize;
        const int iResult = CBufferTable::instance().query(hBuffer, iInfoCmd, {piType, pValue, &nSize});
        if (iResult == GC_ERR_SUCCESS) {
            *piSize = nSize;
        }
        return iResult;
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
