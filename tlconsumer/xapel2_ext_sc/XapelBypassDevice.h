// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The interception hub of a device.
//
// Lock order: registry lock, gate of a hub, leaf lock of a hub. Nothing is called while a leaf lock is held, and none
// but the registry lock, which no hook takes, is held while the library calls a host registration.

#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <vector>

#include "XapelAccessControl.h"
#include "XapelBypassSlot.h"
#include "XapelCallCount.h"
#include "XapelHostFunctions.h"
#include "XapelSharedCopy.h"

class CXapelBypass;

/// Flag bits that guards publish at a hub's gate.
enum eCallInFlight : unsigned {
    eCallNone = 0,
    eCallFetch = 1,  ///< may be blocked in the host until its time-out: cancelled by whoever wants to be alone
    eCallInfo = 2,
};

/// The interception hub of one device: owns its five hooks at the host, hands intercepted calls to the participants,
/// and carries them on to the host's own functions. Created with new (it lives in a slot) and only by the registry.
class CXapelBypassDevice {
public:
    /// Finds the device's first data stream, opens it when closed, and registers all hooks; takes back what it has
    /// registered when it fails.
    /// @param[in] pDevice  borrowed; must outlive the hub.
    /// @throws Xapel_NotAvailableException   the device lists no data stream.
    /// @throws Xapel_ObjectInvalidException  the host refused a hook.
    /// @throws host exceptions of the list and stream operations, after a trace.
    explicit CXapelBypassDevice(XAPEL2::Device* pDevice);

    /// Removes the hooks and returns when no hook call is left inside. A host that refuses a removal is traced;
    /// whatever hook it keeps finds no hub from then on.
    ~CXapelBypassDevice();

    CXapelBypassDevice(const CXapelBypassDevice&) = delete;
    CXapelBypassDevice& operator=(const CXapelBypassDevice&) = delete;

    static void* operator new(std::size_t nBytes) { return xapelSlotAcquire(nBytes); }
    static void operator delete(void* pHub) noexcept { xapelSlotRetire(pHub); }

    /// Registers the fetch, cancel, information and close hooks, and the open hook if asked, on the present stream.
    /// @throws Xapel_ObjectInvalidException  refused; the host functions stay as they were.
    void initCallBacks(bool bRegisterOpen);

    /// Removes all hooks, stopping at the first refusal, then clears the host functions under exclusive access.
    /// @throws Xapel_ObjectInvalidException  refused; the remaining hooks and the host functions stay.
    void deInitCallBacks();

    /// For the holder of an exclusive guard: cancels a fetch in flight, once, and waits until the caller is alone.
    void waitExclusiveAccess();

    /// The cancel pass, for a caller that is inside the gate. Returns 0.
    int cancelGetFilledBuffer();

    /// Adds p to a list, or removes every entry of it, under exclusive access. Ends a fetch that is blocked in the
    /// host. A removal returns only when no call that may still reach p is under way, so p may be destroyed then. Never
    /// to be called from inside an intercepted call of this hub: it would wait for itself.
    /// @param[in] p  borrowed until it is off the list.
    void registerParticipant(CXapelBypass* p);
    void unregisterParticipant(CXapelBypass* p);
    void registerParticipantForCalling(CXapelBypass* p);
    void unregisterParticipantForCalling(CXapelBypass* p);

    /// Takes p off both lists, whatever the host does. Leaves the gate alone when p is in neither. Where a mutex cannot
    /// be locked, the hub ends its service instead: p may be destroyed all the same.
    void dropParticipant(CXapelBypass* p) noexcept;

    // Hook calls, entered from the host with the hub pinned. Exceptions of participants and host functions leave them.
    int getFilledBuffer_Callback(void** ppBuffer, unsigned long long iTimeout);
    int getInfo_Callback(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize);
    int cancelGetFilledBuffer_Callback();
    int deviceCloseDataStream_Callback(void* pStream);
    int deviceOpenDataStream_Callback();

    // Default operations: the call carried on to the host, -1002 when the host function is missing.

    /// The host's fetch; a delivered buffer goes to every participant for calling. -1001 when one of them throws.
    /// The caller is inside the gate.
    int consumer_getFilledBuffer(void** ppBuffer, unsigned long long iTimeout);
    int consumer_getStreamInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize);
    int consumer_cancelGetFilledBuffer();
    int consumer_DeviceCloseDataStream(void* pStream);
    /// Moves the hub to the stream that the device lists first, and registers the hooks again. A stream that it moves
    /// away from loses its hooks, and where it is still listed, fetches that wait there are cancelled once. Follows
    /// openings that overlap, a bounded number of times. Returns 0.
    /// @throws Xapel_NotAvailableException   the device lists no data stream; nothing has changed.
    /// @throws Xapel_ObjectInvalidException  the host refused a hook; the hub stays on its stream.
    /// @throws what the host throws from the first look-up or a registration.
    int consumer_DeviceOpenDataStream();

    XAPEL2::Device* getXapelDevice() const { return m_pDevice; }
    XAPEL2::DataStream* getXapelDataStream() const { return hostFields(&XapelHostFunctions::pDataStream).pDataStream; }

private:
    typedef std::list<CXapelBypass*> ParticipantList;

    XapelHostFunctions hostFunctions() const;
    /// These fields, all of one set; the others may be null. Takes the leaf lock only while the set is replaced.
    template <typename... Fields>
    XapelHostFunctions hostFields(Fields XapelHostFunctions::*... pFields) const {
        XapelHostFunctions host;
        return m_hostCopy.tryRead(host, pFields...) ? host : hostFunctions();
    }
    XapelHostFunctions hostFunctionsLocked() const;  // caller holds m_mtxLeaf
    /// Replaces the set as a whole and returns the one before. bUnlessMoved: where the hub stands on another stream by
    /// now, it keeps its set and rHost comes back.
    XapelHostFunctions storeHostFunctions(const XapelHostFunctions& rHost, bool bUnlessMoved = false);
    /// The hub has moved: takes its hooks off the stream before, and cancels the fetches there once. What the host
    /// throws stays here.
    void leaveStream(const XapelHostFunctions& rBefore);
    void registerHooks(XAPEL2::DataStream* pDataStream, bool bRegisterOpen);
    void clearHostFunctions();
    XAPEL2::DataStream* findFirstDataStream(const char* pFunction);
    bool isStreamListed(const XAPEL2::DataStream* pDataStream);

    /// Turns every call away from here on, as if the hub were gone, and returns when none is inside: for a list that
    /// cannot be changed. Price: no participant of the device is called again while the hub is held.
    void endService() noexcept;

    void addTo(ParticipantList& rList, CXapelBypass* p);
    void removeFrom(ParticipantList& rList, CXapelBypass* p);
    bool isListed(CXapelBypass* p) const;
    std::vector<CXapelBypass*> copyParticipants() const;

    XAPEL2::Device* m_pDevice;
    XAPEL2::DataStream* m_pDataStream;                               // guarded by m_mtxLeaf
    void* m_hDataStream;                                             // guarded by m_mtxLeaf
    void* m_hDevice;                                                 // guarded by m_mtxLeaf
    DataStreamGetFilledBufferFunc m_pfnGetFilledBuffer;              // guarded by m_mtxLeaf
    DataStreamCancelGetFilledBufferFunc m_pfnCancelGetFilledBuffer;  // guarded by m_mtxLeaf
    DataStreamGetInfoFunc m_pfnGetInfo;                              // guarded by m_mtxLeaf
    DeviceCloseDataStreamFunc m_pfnCloseDataStream;                  // guarded by m_mtxLeaf

    // Changed with the gate held exclusively and m_mtxLeaf; read with either.
    ParticipantList m_lstParticipants;
    ParticipantList m_lstParticipantsForCalling;

    // The set of the fields from m_pDataStream on, for calls, which take no lock for it. Written with m_mtxLeaf.
    alignas(XAPEL_CACHE_LINE) CXapelSharedCopy<XapelHostFunctions> m_hostCopy;

    /// Entry mutex of the gate, on one cache line with the words that it guards.
    alignas(XAPEL_CACHE_LINE) XapelMutex m_mtxAccess;
    XapelAccessControlData m_AccessData;

    /// The leaf lock: copy out or change, release, call.
    mutable std::mutex m_mtxLeaf;

    CXapelCallCount m_OpenClose;  // open and close calls, which take no gate

    CXapelHubLife m_Life;  // the last member
};
