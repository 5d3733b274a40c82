// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The application's side of the host: devices, streams and buffers, through the hooks.

#include "xapel2_standin/Host.h"

#include <stdexcept>
#include <utility>

#include "standin/cameras/DeviceId.h"
#include "standin/host/hooks/HostFunctions.h"
#include "standin/host/objects/Registry.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/objects/Trace.h"
#include "standin/host/stream/CallFrame.h"
#include "standin/host/stream/Parts.h"
#include "xapel2/XapelBypassRegistration.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

// The hook for one call, null when there is none.
template <class tFunction>
tFunction lookUp(const CHooks& rHooks, eHook eKind, void*& rContext) {
    const Hook hook = rHooks.find(eKind);
    rContext = hook.pContext;
    return reinterpret_cast<tFunction>(hook.pfn);
}

// Runs an operation of the stream, GC_ERR_INVALID_HANDLE when it is dead.
template <class tOperation>
int onStream(DataStream* pShell, tOperation fnOperation) {
    const auto pStream = Registry::findStream(pShell);
    return pStream == nullptr ? GC_ERR_INVALID_HANDLE : fnOperation(*pStream);
}

}  // namespace

std::vector<DeviceInfo> enumerateDevices() {
    std::vector<DeviceInfo> vecDevices = {{"sim", "Simulated camera"}};
    try {
        for (const CameraInfo& rInfo : findRealCameras()) {
            vecDevices.push_back({rInfo.strId, rInfo.strDescription});
        }
    } catch (const CCameraError& rError) {
        trace(1, "no real cameras are listed: ", rError.what());
    }
    return vecDevices;
}

namespace {

// What a node takes, where that has bounds.
std::string boundsOf(const Node& rNode) {
    try {
        return ", expected " + std::to_string(getIntMin(rNode)) + " to " + std::to_string(getIntMax(rNode));
    } catch (const Exceptions::IException&) {
        return "";
    }
}

void writeSetting(const CNodeMapShell& rNodes, const NodeSetting& rSetting) {
    Node* const pNode = rNodes.find(rSetting.strNode.c_str());
    if (pNode == nullptr) {
        XAPEL2_RAISE(InvalidParameter, "the camera has no setting '" + rSetting.strText +
                                           "', expected one of its nodes as in ExposureTime=5000");
    }
    try {
        setValue(*pNode, rSetting.strValue.c_str());
    } catch (const Exceptions::Xapel_InvalidParameterException& rError) {
        XAPEL2_RAISE(InvalidParameter,
                     "setting " + rSetting.strText + ": " + rError.GetErrorDescription().get() + boundsOf(*pNode));
    }
}

// Runs what makes a camera. Its refusals become the host's.
template <class tMake>
NamedCamera makeOrRaise(tMake fnMake) {
    try {
        return fnMake();
    } catch (const CCameraError& rError) {
        if (rError.code() == GC_ERR_ACCESS_DENIED) {
            XAPEL2_RAISE(AccessDenied, rError.what());
        }
        XAPEL2_RAISE(NotAvailable, rError.what());
    } catch (const std::invalid_argument& rError) {
        XAPEL2_RAISE(InvalidParameter, rError.what());
    } catch (const std::runtime_error& rError) {
        XAPEL2_RAISE(NotAvailable, rError.what());
    }
}

Device* openCamera(NamedCamera camera) {
    const auto pDevice = std::make_shared<CDevice>(fitCamera(std::move(camera.pCamera)));
    for (const NodeSetting& rSetting : camera.vecSettings) {
        writeSetting(pDevice->nodes(), rSetting);
    }
    Registry::add(pDevice);
    return pDevice->shell();
}

}  // namespace

Device* openDevice(const std::string& strId) {
    return openCamera(makeOrRaise([&] { return makeCamera(strId); }));
}

Device* openFiles(const std::vector<std::string>& vecFiles, const std::string& strFormat) {
    return openCamera(makeOrRaise([&] { return makeFileCamera(vecFiles, strFormat); }));
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

std::vector<NodeInfo> describeNodes(Device* pShell) {
    const auto pDevice = Registry::findDevice(pShell);
    return pDevice == nullptr ? std::vector<NodeInfo>() : describe(*pDevice->nodes().map());
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
    const auto pfnHook = lookUp<DeviceCloseDataStreamFunc>(pDevice->hooks(), eHookClose, pContext);
    const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(pStreamShell, pContext);
    return iResult == GC_ERR_NOT_INITIALIZED ? pStream->close() : iResult;
}

std::size_t payloadSize(DataStream* pShell) {
    const auto pStream = Registry::findStream(pShell);
    return pStream == nullptr ? 0 : pStream->payloadSize();
}

int allocAndAnnounceBuffer(DataStream* pShell, std::size_t nBytes, BufferHandle* phBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.buffers().announce(nullptr, nBytes, phBuffer); });
}

int announceBuffer(DataStream* pShell, void* pMemory, std::size_t nBytes, BufferHandle* phBuffer) {
    return onStream(pShell, [&](CStream& rStream) {
        return pMemory == nullptr ? GC_ERR_INVALID_PARAMETER : rStream.buffers().announce(pMemory, nBytes, phBuffer);
    });
}

int revokeBuffer(DataStream* pShell, BufferHandle hBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.buffers().revoke(hBuffer); });
}

int queueBuffer(DataStream* pShell, BufferHandle hBuffer) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.buffers().queue(hBuffer, rStream.payloadSize()); });
}

int startAcquisition(DataStream* pShell, uint64_t nFrames) {
    return onStream(pShell, [&](CStream& rStream) { return rStream.start(nFrames); });
}

int stopAcquisition(DataStream* pShell) {
    return onStream(pShell, [](CStream& rStream) { return rStream.stop(); });
}

int flushBuffers(DataStream* pShell) {
    return onStream(pShell, [](CStream& rStream) { return rStream.buffers().flush(); });
}

int getFilledBuffer(DataStream* pShell, BufferHandle* phBuffer, unsigned long long iTimeoutMs) {
    return onStream(pShell, [&](CStream& rStream) {
        // Stamped first: a cancel during the look-up of the hook, or before the hook arrives, ends this call.
        const CCallFrame frame(pShell, CWaiters::cancelStamp());
        void* pContext = nullptr;
        const auto pfnHook = lookUp<DataStreamGetFilledBufferFunc>(rStream.hooks(), eHookFetch, pContext);
        const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(phBuffer, iTimeoutMs, pContext);
        return iResult == GC_ERR_NOT_INITIALIZED ? ownFetch(rStream, phBuffer, iTimeoutMs) : iResult;
    });
}

int cancelGetFilledBuffer(DataStream* pShell) {
    return onStream(pShell, [&](CStream& rStream) {
        const CCallFrame frame(pShell, CWaiters::cancelStamp());
        void* pContext = nullptr;
        const auto pfnHook = lookUp<DataStreamCancelGetFilledBufferFunc>(rStream.hooks(), eHookCancel, pContext);
        const int iResult = pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(pContext);
        const int iOwn = frame.ownCancelRan() ? GC_ERR_SUCCESS : rStream.waiters().cancel();
        return iResult == GC_ERR_NOT_INITIALIZED ? iOwn : iResult;
    });
}

int getStreamInfo(DataStream* pShell, int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize) {
    return onStream(pShell, [&](CStream& rStream) {
        void* pContext = nullptr;
        const auto pfnHook = lookUp<DataStreamGetInfoFunc>(rStream.hooks(), eHookInfo, pContext);
        const int iResult =
            pfnHook == nullptr ? GC_ERR_NOT_INITIALIZED : pfnHook(iInfoCmd, piType, pValue, piSize, pContext);
        return iResult == GC_ERR_NOT_INITIALIZED ? ownInfo(rStream, iInfoCmd, piType, pValue, piSize) : iResult;
    });
}

}  // namespace StandIn
}  // namespace XAPEL2
