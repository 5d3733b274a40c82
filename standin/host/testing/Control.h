// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Faults on request, and a view of what the library asked of the stand-in host. In the host library for tests only.
// Every switch is off by default and holds for the whole process.
//
// @threads every operation: any thread.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "standin/host/hooks/HookKind.h"
#include "xapel2/XapelDevice.h"
#include "xapel2/XapelExport.h"

namespace XAPEL2 {
namespace StandIn {
namespace Control {

/// Every host operation that an extension library calls. eOpCount is their number.
enum eHostOp {
    // clang-format off
    eRegisterFetch, eRegisterCancel, eRegisterInfo, eRegisterClose, eRegisterOpen,
    eRemoveFetch, eRemoveCancel, eRemoveInfo, eRemoveClose, eRemoveOpen,
    eHostFetch, eHostCancel, eHostInfo, eHostClose,  // the host's own functions, as the registrations hand them out
    eGetDataStreams, eListRefresh, eListSize, eListBegin, eListEntry, eStreamIsOpen, eStreamOpen,
    eGetRemoteNode, eCreateProcessor, eGetNodeList, eGetNodePresent, eGetNode,
    eNodeSetInt, eNodeGetInt, eNodeGetIntMin, eNodeGetIntMax, eNodeSetString, eNodeSetValue, eNodeGetString,
    eGetBufferInfoFunc, eGetPixelFormatFunc, eBufferInfo, eBufferPixelFormat,
    eTrace,
    eOpCount
    // clang-format on
};

/// The name of an operation, for messages.
XAPEL2_HOST_API const char* name(eHostOp eOp);

/// How an operation fails.
enum eFaultKind {
    eRefuse,     ///< the operation's own way to say no: false, null, 0, GC_ERR_ACCESS_DENIED, nothing written; a node
                 ///< access, Open or the creation of a processor throws Xapel_AccessDeniedException, GetNode and
                 ///< GetRemoteNode throw Xapel_NotAvailableException; a list is not refreshed, a walk over it is
                 ///< empty, an entry reads as ("", null); a trace is dropped
    eThrowHost,  ///< throws Xapel_ErrorException (the operation's name, "injected")
    eThrowStd,   ///< throws std::runtime_error ("injected")
};

/// Which call of which operation fails, and how.
struct Fault {
    eHostOp eOp;             ///< the operation
    eFaultKind eKind;        ///< how it fails
    uint64_t nCall = 1;      ///< the call that it hits, counted from 1 since inject() (of the node, where one is named)
    bool bFromThen = false;  ///< every later call too
    /// For node accesses, GetNode, GetNodePresent and GetRemoteNode: this node only; empty: any.
    std::string strNode{};
};

/// Adds a fault. Several may be active.
XAPEL2_HOST_API void inject(const Fault& rFault);

/// Times that any fault has hit since the last reset().
XAPEL2_HOST_API uint64_t hits();

/// Calls of the operation since the last reset(), faulty ones included. What the host does on its own behalf, or for an
/// operation of Host.h, does not count.
XAPEL2_HOST_API uint64_t calls(eHostOp eOp);

/// Calls of the host's own cancel that are over, since the last reset().
XAPEL2_HOST_API uint64_t cancelsDone();

/// Everything off, counters and records empty, traces to the default sink; calls held by a HookHold go on.
XAPEL2_HOST_API void reset();

// --- Image processor ---------------------------------------------------------------------------------------------

/// Processors created from now on lack this node.
XAPEL2_HOST_API void dropNode(const std::string& strName);

/// Processors created from now on have no node map at all.
XAPEL2_HOST_API void dropNodeMap(bool bDrop);

/// The status of every later command with this code (0: any) reads as this value, once the command has been executed.
XAPEL2_HOST_API void forceStatus(int64_t iCommand, int64_t iStatus);

// --- Buffers -----------------------------------------------------------------------------------------------------

/// Buffer information queries with this command write nothing and return GC_ERR_NOT_AVAILABLE.
XAPEL2_HOST_API void answerNothing(int32_t iInfoCmd);

/// What is wrong with a frame.
enum eBufferFault { eGood, eIncomplete, eNoImage };

/// Asked for every frame produced, with its index since the acquisition started. Incomplete: only the first half of
/// the payload is filled and counted. No image: nothing is filled. Null: all good.
XAPEL2_HOST_API void setBufferFaults(std::function<eBufferFault(uint64_t iFrame)> fnFault);

/// Images begin this many bytes after the buffer's base; payloadSize grows by as much. Takes effect at the next
/// start of an acquisition.
XAPEL2_HOST_API void setImageOffset(std::size_t nBytes);

/// Called with the image of every frame after it has been filled, to replace its content. Null: nothing.
XAPEL2_HOST_API void setFrameContent(std::function<void(uint64_t iFrame, void* pImage, std::size_t nBytes)> fnFill);

// --- Cancel ------------------------------------------------------------------------------------------------------

/// What a cancel does.
enum eCancelMode {
    eEndsAllBegun,         ///< default: ends every fetch called before the cancel, blocked already or not; no other
    eWakesOne,             ///< GenTL: ends one waiting fetch; without one, the next fetch (sticky)
    eSticksWithoutWaiter,  ///< ends all waiting fetches; without one, the next fetch
    eForgotten,            ///< ends all waiting fetches; without one, nothing
    eIgnored,              ///< nothing
};
/// From the next cancel on.
XAPEL2_HOST_API void setCancelMode(eCancelMode eMode);

// --- Hooks -------------------------------------------------------------------------------------------------------

using StandIn::eHook;
using StandIn::eHookCancel;
using StandIn::eHookClose;
using StandIn::eHookFetch;
using StandIn::eHookInfo;
using StandIn::eHookOpen;

/// Number of registered hooks of the process.
XAPEL2_HOST_API std::size_t liveHooks();
XAPEL2_HOST_API std::size_t liveHooks(const void* pContext);  ///< Those of one context.

/// Contexts of the registered hooks, each once.
XAPEL2_HOST_API std::vector<void*> hookContexts();

/// A hook function as it stands in the host's table, with its context.
struct RegisteredHook {
    eHook eKind;     ///< which of the hooks
    void* pfnHook;   ///< the function
    void* pContext;  ///< its last argument
};
/// Every hook in the host's table.
XAPEL2_HOST_API std::vector<RegisteredHook> registeredHooks();

/// Holds the next call of a hook between its look-up in the host's table and the call of the hook.
class XAPEL2_HOST_API HookHold {
public:
    explicit HookHold(eHook eKind);  ///< Holds the next call of this hook.
    /// Lets the call go on, as release() does.
    ~HookHold();
    HookHold(const HookHold&) = delete;
    HookHold& operator=(const HookHold&) = delete;
    /// Waits until a call is held; false after the deadline.
    bool waitUntilHeld(unsigned iDeadlineMs);
    void release();  ///< Lets the call go on.

private:
    void* m_pImpl;
};

/// Waits until nCount fetches are blocked in the host's own fetch of this stream; false after the deadline.
XAPEL2_HOST_API bool waitForBlockedFetches(DataStream* pStream, unsigned nCount, unsigned iDeadlineMs);

// --- Observation -------------------------------------------------------------------------------------------------

/// One access to a node of an image processor or of a camera, by the way of hostapi/.
struct NodeAccess {
    std::string strNode;       ///< name of the node
    std::string strOperation;  ///< "SetInt", "GetInt", "GetIntMin", "GetIntMax", "SetString", "SetValue", "GetString"
    std::string strValue;      ///< written or read, integers in decimal; empty for a read that was refused
    /// True when all three agree.
    bool operator==(const NodeAccess& r) const {
        return strNode == r.strNode && strOperation == r.strOperation && strValue == r.strValue;
    }
};

/// Starts (empty) or ends the record of node accesses.
XAPEL2_HOST_API void recordNodes(bool bRecord);
XAPEL2_HOST_API std::vector<NodeAccess> nodeAccesses();  ///< The record, oldest first.

/// Called during every node access, refused ones included, outside the host's locks: for a write before it takes
/// effect, for a read with the value that it is about to return. What the observer throws leaves the access. Null:
/// nothing.
XAPEL2_HOST_API void setNodeObserver(std::function<void(const NodeAccess&)> fnObserver);

/// One line of the host's trace.
struct TraceLine {
    int32_t iLevel;       ///< 0: ordinary, 2: error path
    std::string strText;  ///< as the caller of the trace gave it
};

/// Starts (empty) or ends the record of traces. While it runs nothing is printed; otherwise level 2 goes to stderr.
XAPEL2_HOST_API void recordTraces(bool bRecord);
XAPEL2_HOST_API std::vector<TraceLine> traces();  ///< The record, oldest first.

/// Called for every trace, outside the host's locks, on the tracing thread; what it throws is dropped. Null: nothing.
XAPEL2_HOST_API void setTraceObserver(std::function<void(const TraceLine&)> fnObserver);

/// Every host registration (and removal) in order, for example "register fetch", "remove open".
XAPEL2_HOST_API void recordRegistrations(bool bRecord);
XAPEL2_HOST_API std::vector<std::string> registrations();  ///< The record, oldest first.

// --- Devices -----------------------------------------------------------------------------------------------------

/// Puts another, closed data stream at the front of the device's list, as its next Refresh shows. Null when the device
/// is not open.
XAPEL2_HOST_API DataStream* addFirstStream(Device* pDevice);

/// Takes all data streams off the device's list, as its next Refresh shows, or puts them back; the streams themselves
/// stay alive until the device is closed, and firstDataStream still tells the first.
XAPEL2_HOST_API void hideStreams(Device* pDevice, bool bHide);

}  // namespace Control
}  // namespace StandIn
}  // namespace XAPEL2
