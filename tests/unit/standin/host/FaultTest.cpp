// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every host operation can be made to refuse or to throw, at exactly the call that was asked for.

#include <map>
#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/XapelBuffer.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

using namespace Control;

template <class tRefusal>
bool throws(const std::function<void()>& fnCall) {
    try {
        fnCall();
        return false;
    } catch (const tRefusal&) {
        return true;
    }
}

class Faults : public HostFixture {
protected:
    // One call of the operation, which tells whether it was refused.
    using Call = std::function<bool()>;
    Call operation(eHostOp eOp);
    Call access(const std::function<void()>& fnAccess) {
        return [fnAccess] { return throws<Exceptions::Xapel_AccessDeniedException>(fnAccess); };
    }

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

Faults::Call Faults::operation(eHostOp eOp) {
    if (eOp < eHostFetch) {
        const bool bRemove = eOp >= eRemoveFetch;
        const auto eKind = static_cast<eHook>(eOp - (bRemove ? eRemoveFetch : eRegisterFetch));
        return [=] { return !m_side.put(eKind, m_pDevice, m_pStream, bRemove); };
    }
    const std::map<eHostOp, Call> mapCalls = {
        {eHostFetch, [=] { return fetch(0).iResult == GC_ERR_ACCESS_DENIED; }},
        {eHostCancel, [=] { return cancelGetFilledBuffer(m_pStream) == GC_ERR_ACCESS_DENIED; }},
        {eHostInfo,
         [=] {
             unsigned long long nSize = 0;
             return getStreamInfo(m_pStream, STREAM_INFO_ID, nullptr, nullptr, &nSize) == GC_ERR_ACCESS_DENIED;
         }},
        {eHostClose,
         [=] {
             const bool bRefused = m_side.pfnClose(m_pStream, m_side.pClose) == GC_ERR_ACCESS_DENIED;
             EXPECT_EQ(bRefused, m_pStream->IsOpen());
             m_pStream->Open();
             return bRefused;
         }},
        {eGetDataStreams, [=] { return m_pDevice->GetDataStreams() == nullptr; }},
        {eListRefresh,
         [=] {
             const std::size_t nBefore = list().size();
             addFirstStream(m_pDevice);
             list().Refresh();
             return list().size() == nBefore;
         }},
        {eListSize, [=] { return list().size() == 0; }},
        {eListBegin, [=] { return !(list().begin() != list().end()); }},
        {eListEntry,
         [=] {
             auto it = list().begin();
             return (*it).second == nullptr;
         }},
        {eStreamIsOpen, [=] { return !m_pStream->IsOpen(); }},
        {eStreamOpen, access([=] { m_pStream->Open(); })},
        {eGetRemoteNode,
         [=] { return throws<Exceptions::Xapel_NotAvailableException>([=] { m_pDevice->GetRemoteNode("Gain"); }); }},
        {eCreateProcessor, access([] { ImageProcessor(); })},
        {eGetNodeList, [=] { return m_processor.GetNodeList() == nullptr; }},
        {eGetNodePresent, [=] { return !m_processor.GetNodeList()->GetNodePresent("ShadingWidth"); }},
        {eGetNode, [=] { return throws<Exceptions::Xapel_NotAvailableException>([=] { shading("ShadingWidth"); }); }},
        {eNodeSetInt, access([=] { shading("ShadingWidth").SetInt(1); })},
        {eNodeGetInt, access([=] { shading("ShadingWidth").GetInt(); })},
        {eNodeGetIntMin, access([=] { shading("ShadingWidth").GetIntMin(); })},
        {eNodeGetIntMax, access([=] { shading("ShadingWidth").GetIntMax(); })},
        {eNodeSetString, access([=] { shading("ShadingBrwFilename").SetString("x"); })},
        {eNodeSetValue, access([=] { shading("ShadingBrwFilename").SetValue("x"); })},
        {eNodeGetString, access([=] { shading("ShadingBrwFilename").GetString(); })},
        {eGetBufferInfoFunc,
         [=] {
             BufferInfoFunc pfn = nullptr;
             return getFuncPtr_BufferInfo(m_hBuffer, &pfn) != 0 && pfn == nullptr;
         }},
        {eGetPixelFormatFunc,
         [=] {
             BufferGetPixelFormatFunc pfn = nullptr;
             return getFuncPtr_BufferGetPixelFormat(m_hBuffer, &pfn) != 0 && pfn == nullptr;
         }},
        {eBufferInfo,
         [=] {
             uint64_t nSize = 0;
             return m_pfnInfo(BUFFER_INFO_SIZE, nullptr, nullptr, &nSize, m_hBuffer) == GC_ERR_ACCESS_DENIED;
         }},
        {eBufferPixelFormat,
         [=] {
             std::string strFormat;
             return m_pfnFormat(strFormat, m_hBuffer) == GC_ERR_ACCESS_DENIED && strFormat.empty();
         }},
        {eTrace,
         [] {
             const std::size_t nBefore = traces().size();
             const int32_t iLevel = 2;
             extT(&iLevel, "x");
             return traces().size() == nBefore;
         }},
    };
    return mapCalls.at(eOp);
}

TEST_F(Faults, EveryOperationIsHitAtTheCallAskedFor) {
    for (int i = 0; i < eOpCount; ++i) {
        const auto eOp = static_cast<eHostOp>(i);
        const Call fnCall = operation(eOp);
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
