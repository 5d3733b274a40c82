// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The base of everything that takes part in the intercepted calls of a device.

#pragma once

class CXapelBypassDevice;

namespace XAPEL2 {
class DataStream;
class Device;
}  // namespace XAPEL2

/// An object that takes part in a device's intercepted calls. In neither list after construction; transparent unless it
/// overrides: each operation here carries the call on to the host.
///
/// Its operations run on the thread of the intercepted call and must not register or unregister on the same hub.
class CXapelBypass {
public:
    /// Binds to the device's hub.
    /// @param[in] pDevice  borrowed; must outlive the object.
    /// @throws Xapel_InvalidParameterException  pDevice is null.
    /// @throws what building a hub throws.
    explicit CXapelBypass(XAPEL2::Device* pDevice);

    /// Leaves both lists and hands the hub back. Not virtual: objects are destroyed as what they are, and a derived
    /// class puts a virtual destructor of its own after the operations below.
    ~CXapelBypass();

    CXapelBypass(const CXapelBypass&) = delete;
    CXapelBypass& operator=(const CXapelBypass&) = delete;

    // pbForward: set to true to ask the hub to carry the call on when all participants have been asked.
    virtual int consumer_getFilledBuffer(void** ppBuffer, unsigned long long iTimeout, bool* pbForward);
    virtual int consumer_getStreamInfo(int iInfoCmd, int* piType, void* pValue, unsigned long long* piSize,
                                       bool* pbForward);
    virtual int consumer_cancelGetFilledBuffer(bool* pbForward);
    virtual int consumer_DeviceCloseDataStream(void* pStream, bool* pbForward);
    virtual int consumer_DeviceOpenDataStream(bool* pbForward);

    /// Gets every buffer that the hub fetches, before the application does. The result is not looked at.
    virtual int extended_useFilledBuffer(void* pBuffer);

    /// The stream that the hub intercepts now.
    XAPEL2::DataStream* getXapelDataStream();

    /// Joins or leaves the hub's lists (see the hub's operations of these names).
    void registerParticipant();
    void unregisterParticipant();
    void registerParticipantForCalling();
    void unregisterParticipantForCalling();

protected:
    /// Off both lists, whatever the host does. A derived class calls it first in its destructor: after that it is no
    /// longer what intercepted calls take it for.
    void leaveLists() noexcept;

    XAPEL2::Device* getXapelDevice() const { return m_pDevice; }

private:
    XAPEL2::Device* m_pDevice;
    CXapelBypassDevice* m_pBypassDevice;
};
