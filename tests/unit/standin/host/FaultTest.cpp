// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every host operation can be made to refuse or to throw, at exactly the call that was asked for.

#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/XapelBuffer.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

using namespace Control;

class Faults : public HostFixture {
protected:
    // One call of every operation; each reports whether it was refused.
    std::function<bool()> operation(eHostOp eOp);
    std::function<bool()> registration(int iOp, bool bRemove);
    std::function<bool()> deviceOperation(eHostOp eOp);
    std::function<bool()> nodeOperation(eHostOp eOp);

    // Hooks registered, the list fresh, a delivered buffer at hand: as the operation before did not leave it.
    void SetUp() override {
        Control::reset();
        m_pStream->Open();
        flushBuffers(m_pStream);
        m_side.putAll(m_pDevice, m_pStream);
        list().Refresh();
        allocAndAnnounceBuffer(m_pStream, payloadSize(m_pStream), &m_hBuffer);
        queueBuffer(m_pStream, m_hBuffer);
        startAcquisition(m_pStream, 1);
        ASSERT_EQ(GC_ERR_SUCCESS, fetch().iResult);
        getFuncPtr_BufferInfo(m_hBuffer, &m_pfnInfo);
        getFuncPtr_BufferGetPixelFormat(m_hBuffer, &m_pfnFormat);
        recordTraces(true);
    }
    DataStreamList& list() { return *m_pDevice->GetDataStreams(); }
    Node& shading(const char* pName) { return *m_processor.GetNodeList()->GetNode(pName); }

    HookSide m_side;
    ImageProcessor m_processor;
    BufferHandle m_hBuffer = nullptr;
    BufferInfoFunc m_pfnInfo = nullptr;
    BufferGetPixelFormatFunc m_pfnFormat = nullptr;
};

template <class tRefusal>
bool throws(const std::function<void()>& fnCall) {
    try {
        fnCall();
        return false;
    } catch (const tRefusal&) {
        return true;
    }
}

std::function<bool()> Faults::registration(int iOp, bool bRemove) {
    return [this, iOp, bRemove] { return !m_side.put(static_cast<eHook>(iOp), m_pDevice, m_pStream, bRemove); };
}

std::function<bool()> Faults::deviceOperation(eHostOp eOp) {
    switch (eOp) {
        case eGetDataStreams:
            return [this] { return m_pDevice->GetDataStreams() == nullptr; };
        case eListRefresh:
            return [this] {
                const std::size_t nBefore = list().size();
                addFirstStream(m_pDevice);
                list().Refresh();
                return list().size() == nBefore;
            };
        case eListSize:
            return [this] { return list().size() == 0; };
        case eListBegin:
            return [this] { return !(list().begin() != list().end()); };
        case eListEntry:
            return [this] {
                auto it = list().begin();
                return (*it).second == nullptr;
            };
        case eStreamIsOpen:
            return [this] { return !m_pStream->IsOpen(); };
        case eStreamOpen:
            return [this] { return throws<Exceptions::Xapel_AccessDeniedException>([this] { m_pStream->Open(); }); };
        default:
            return [this] {
                return throws<Exceptions::Xapel_NotAvailableException>([this] { m_pDevice->GetRemoteNode("Gain"); });
            };
    }
}

std::function<bool()> Faults::nodeOperation(eHostOp eOp) {
    std::function<void()> fnCall;
    switch (eOp) {
        case eCreateProcessor:
            fnCall = [] { ImageProcessor(); };
            break;
        case eGetNodeList:
            return [this] { return m_processor.GetNodeList() == nullptr; };
        case eGetNodePresent:
            return [this] { return !m_processor.GetNodeList()->GetNodePresent("ShadingWidth"); };
        case eGetNode:
            return
                [this] { return throws<Exceptions::Xapel_NotAvailableException>([this] { shading("ShadingWidth"); }); };
        case eNodeSetInt:
            fnCall = [this] { shading("ShadingWidth").SetInt(1); };
            break;
        case eNodeGetInt:
            fnCall = [this] { shading("ShadingWidth").GetInt(); };
            break;
        case eNodeGetIntMin:
            fnCall = [this] { shading("ShadingWidth").GetIntMin(); };
            break;
        case eNodeGetIntMax:
            fnCall = [this] { shading("ShadingWidth").GetIntMax(); };
            break;
        case eNodeSetString:
            fnCall = [this] { shading("ShadingBrwFilename").SetString("x"); };
            break;
        case eNodeSetValue:
            fnCall = [this] { shading("ShadingBrwFilename").SetValue("x"); };
            break;
        default:
            fnCall = [this] { shading("ShadingBrwFilename").GetString(); };
            break;
    }
    return [fnCall] { return throws<Exceptions::Xapel_AccessDeniedException>(fnCall); };
}

std::function<bool()> Faults::operation(eHostOp eOp) {
    switch (eOp) {
        case eHostFetch:
            return [this] { return fetch(0).iResult == GC_ERR_ACCESS_DENIED; };
        case eHostCancel:
            return [this] { return cancelGetFilledBuffer(m_pStream) == GC_ERR_ACCESS_DENIED; };
        case eHostInfo:
            return [this] {
                unsigned long long nSize = 0;
                return getStreamInfo(m_pStream, STREAM_INFO_ID, nullptr, nullptr, &nSize) == GC_ERR_ACCESS_DENIED;
            };
        case eHostClose:
            return [this] {
                const bool bRefused = m_side.pfnClose(m_pStream, m_side.pClose) == GC_ERR_ACCESS_DENIED;
                EXPECT_EQ(bRefused, m_pStream->IsOpen());
                m_pStream->Open();
                return bRefused;
            };
        case eGetBufferInfoFunc:
            return [this] {
                BufferInfoFunc pfn = nullptr;
                return getFuncPtr_BufferInfo(m_hBuffer, &pfn) != 0 && pfn == nullptr;
            };
        case eGetPixelFormatFunc:
            return [this] {
                BufferGetPixelFormatFunc pfn = nullptr;
                return getFuncPtr_BufferGetPixelFormat(m_hBuffer, &pfn) != 0 && pfn == nullptr;
            };
        case eBufferInfo:
            return [this] {
                uint64_t nSize = 0;
                return m_pfnInfo(BUFFER_INFO_SIZE, nullptr, nullptr, &nSize, m_hBuffer) == GC_ERR_ACCESS_DENIED;
            };
        case eBufferPixelFormat:
            return [this] {
                std::string strFormat;
                return m_pfnFormat(strFormat, m_hBuffer) == GC_ERR_ACCESS_DENIED && strFormat.empty();
            };
        case eTrace:
            return [] {
                const std::size_t nBefore = traces().size();
                const int32_t iLevel = 2;
                extT(&iLevel, "x");
                return traces().size() == nBefore;
            };
        default:
            break;
    }
    if (eOp < eRemoveFetch) {
        return registration(eOp - eRegisterFetch, false);
    }
    if (eOp < eHostFetch) {
        return registration(eOp - eRemoveFetch, true);
    }
    return eOp <= eGetRemoteNode ? deviceOperation(eOp) : nodeOperation(eOp);
}

TEST_F(Faults, EveryOperationIsHitAtTheCallAskedFor) {
    for (int i = 0; i < eOpCount; ++i) {
        const auto eOp = static_cast<eHostOp>(i);
        const std::function<bool()> fnCall = operation(eOp);
        SCOPED_TRACE(name(eOp));
        SetUp();
        for (const bool bFromThen : {false, true}) {
            for (const eFaultKind eKind : {eRefuse, eThrowHost, eThrowStd}) {
                Control::reset();
                recordTraces(true);
                EXPECT_FALSE(fnCall()) << "refused without a fault";
                EXPECT_EQ(1U, calls(eOp));
                inject({eOp, eKind, 2, bFromThen, ""});
                std::string strHits;
                for (int iCall = 0; iCall < 4; ++iCall) {
                    bool bHit = false;
                    try {
                        bHit = fnCall();
                    } catch (const Exceptions::Xapel_ErrorException& rError) {
                        bHit = eKind == eThrowHost && std::string("injected") == rError.what();
                    } catch (const std::runtime_error& rError) {
                        bHit = eKind == eThrowStd && std::string("injected") == rError.what();
                    }
                    strHits += bHit ? 'x' : '.';
                }
                EXPECT_EQ(bFromThen ? ".xxx" : ".x..", strHits);
                EXPECT_EQ(bFromThen ? 3U : 1U, hits());
                EXPECT_EQ(5U, calls(eOp));
            }
        }
    }
}

TEST_F(Faults, FaultOfOneNodeLeavesTheOthersAlone) {
    inject({eNodeSetInt, eRefuse, 2, false, "ShadingHeight"});
    inject({eGetNode, eRefuse, 1, true, "ShadingBuffer"});
    shading("ShadingHeight").SetInt(5);
    shading("ShadingWidth").SetInt(6);
    EXPECT_THROW(shading("ShadingHeight").SetInt(7), Exceptions::Xapel_AccessDeniedException);
    shading("ShadingHeight").SetInt(8);
    EXPECT_THROW(shading("ShadingBuffer"), Exceptions::Xapel_NotAvailableException);
    EXPECT_EQ(2U, hits());
    EXPECT_EQ(8, shading("ShadingHeight").GetInt());
}

TEST_F(Faults, RefusedCancelEndsNothing) {
    setCancelMode(eWakesOne);
    inject({eHostCancel, eRefuse, 1, false, ""});
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, cancelGetFilledBuffer(m_pStream));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0).iResult);
}

TEST_F(Faults, RefusedRegistrationChangesNothing) {
    inject({eRegisterFetch, eRefuse, 1, true, ""});
    inject({eRemoveFetch, eRefuse, 1, true, ""});
    HookSide other;
    EXPECT_FALSE(other.put(eHookFetch, m_pDevice, m_pStream));
    EXPECT_EQ(nullptr, other.pfnFetch);
    EXPECT_FALSE(m_side.put(eHookFetch, m_pDevice, m_pStream, true));
    EXPECT_EQ(5U, liveHooks(&m_side));
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
