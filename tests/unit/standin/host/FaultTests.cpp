// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Every host operation can be made to refuse in its own way or to throw, at exactly the call that was asked for.

#include <stdexcept>

#include "HostFixture.h"
#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelBuffer.h"
#include "xapel2/XapelTrace.h"

namespace XAPEL2 {
namespace StandIn {
namespace {

using namespace Control;

// One call of an operation, which tells whether it was refused.
typedef std::function<bool()> Call;

template <class tRefusal>
Call refusedBy(const std::function<void()>& fnCall) {
    return [fnCall] {
        try {
            fnCall();
            return false;
        } catch (const tRefusal&) {
            return true;
        }
    };
}
const auto denied = &refusedBy<Exceptions::Xapel_AccessDeniedException>;
const auto missing = &refusedBy<Exceptions::Xapel_NotAvailableException>;

class Faults : public HostFixture {
protected:
    void SetUp() override {
        HostFixture::SetUp();
        m_side.putAll(m_pDevice, m_pStream);
        queueBuffers(1);
        startAcquisition(m_pStream, 1);
        m_hBuffer = nextFrame();
        getFuncPtr_BufferInfo(m_hBuffer, &m_pfnInfo);
        getFuncPtr_BufferGetPixelFormat(m_hBuffer, &m_pfnFormat);
    }
    DataStreamList& list() { return *m_pDevice->GetDataStreams(); }
    Node& shading(const char* pName) { return *m_processor.GetNodeList()->GetNode(pName); }

    HookSide m_side;
    ImageProcessor m_processor;
    BufferHandle m_hBuffer = nullptr;
    BufferInfoFunc m_pfnInfo = nullptr;
    BufferGetPixelFormatFunc m_pfnFormat = nullptr;
    unsigned long long m_nSize = 0;
    uint64_t m_nBytes = 0;
    std::string m_strFormat;
};

TEST_F(Faults, EveryOperationRefusesInItsOwnWay) {
    std::vector<std::pair<eHostOp, Call>> vecRows = {
        {eHostFetch, [&] { return fetch(0) == GC_ERR_ACCESS_DENIED; }},
        {eHostCancel, [&] { return cancelGetFilledBuffer(m_pStream) == GC_ERR_ACCESS_DENIED; }},
        {eHostInfo, [&] { return getStreamInfo(m_pStream, 0, nullptr, nullptr, &m_nSize) == GC_ERR_ACCESS_DENIED; }},
        {eGetDataStreams, [&] { return m_pDevice->GetDataStreams() == nullptr; }},
        {eListRefresh,
         [&] {
             const std::size_t nBefore = list().size();
             addFirstStream(m_pDevice);
             list().Refresh();
             return list().size() == nBefore;
         }},
        {eListSize, [&] { return list().size() == 0; }},
        {eListBegin, [&] { return !(list().begin() != list().end()); }},
        {eListEntry, [&] { return (*list().begin()).second == nullptr; }},
        {eStreamIsOpen, [&] { return !m_pStream->IsOpen(); }},
        {eStreamOpen, denied([&] { m_pStream->Open(); })},
        {eGetRemoteNode, missing([&] { m_pDevice->GetRemoteNode("Gain"); })},
        {eCreateProcessor, denied([] { ImageProcessor(); })},
        {eGetNodeList, [&] { return m_processor.GetNodeList() == nullptr; }},
        {eGetNodePresent, [&] { return !m_processor.GetNodeList()->GetNodePresent(SHADING_NODE_WIDTH); }},
        {eGetNode, missing([&] { shading(SHADING_NODE_WIDTH); })},
        {eNodeSetInt, denied([&] { shading(SHADING_NODE_WIDTH).SetInt(1); })},
        {eNodeGetInt, denied([&] { shading(SHADING_NODE_WIDTH).GetInt(); })},
        {eNodeGetIntMin, denied([&] { shading(SHADING_NODE_WIDTH).GetIntMin(); })},
        {eNodeGetIntMax, denied([&] { shading(SHADING_NODE_WIDTH).GetIntMax(); })},
        {eNodeSetString, denied([&] { shading(SHADING_NODE_FILE_NAME).SetString("x"); })},
        {eNodeSetValue, denied([&] { shading(SHADING_NODE_FILE_NAME).SetValue("x"); })},
        {eNodeGetString, denied([&] { shading(SHADING_NODE_FILE_NAME).GetString(); })},
        {eGetBufferInfoFunc,
         [&] {
             BufferInfoFunc pfn = nullptr;
             return getFuncPtr_BufferInfo(m_hBuffer, &pfn) != 0 && pfn == nullptr;
         }},
        {eGetPixelFormatFunc,
         [&] {
             BufferGetPixelFormatFunc pfn = nullptr;
             return getFuncPtr_BufferGetPixelFormat(m_hBuffer, &pfn) != 0 && pfn == nullptr;
         }},
        {eBufferInfo, [&] { return m_pfnInfo(0, nullptr, nullptr, &m_nBytes, m_hBuffer) == GC_ERR_ACCESS_DENIED; }},
        {eBufferPixelFormat, [&] { return m_pfnFormat(m_strFormat, m_hBuffer) == GC_ERR_ACCESS_DENIED; }},
        {eTrace,
         [] {
             const std::size_t nBefore = traces().size();
             const int32_t iLevel = 2;
             extT(&iLevel, "x");
             return traces().size() == nBefore;
         }},
        {eHostClose,
         [&] {
             const bool bRefused = m_side.pfnClose(m_pStream, m_side.pClose) == GC_ERR_ACCESS_DENIED;
             EXPECT_EQ(bRefused, m_pStream->IsOpen());
             m_pStream->Open();
             return bRefused;
         }},
    };
    for (int i = eRegisterFetch; i <= eRemoveOpen; ++i) {
        const auto eKind = static_cast<eHook>(i % eRemoveFetch);
        vecRows.emplace_back(static_cast<eHostOp>(i),
                             [=] { return !m_side.put(eKind, m_pDevice, m_pStream, i >= eRemoveFetch); });
    }
    ASSERT_EQ(static_cast<std::size_t>(eOpCount), vecRows.size());
    for (const auto& [eOp, fnCall] : vecRows) {
        SCOPED_TRACE(name(eOp));
        Control::reset();
        recordTraces(true);
        inject({eOp, eRefuse, 2});
        std::string strRefused;
        for (int iCall = 0; iCall < 3; ++iCall) {
            strRefused += fnCall() ? 'x' : '.';
        }
        EXPECT_EQ(".x.", strRefused);
        EXPECT_EQ(3U, calls(eOp));
    }
}

TEST_F(Faults, HitTheCallAskedForOnceOrFromThenOn) {
    for (const bool bFromThen : {false, true}) {
        for (const eFaultKind eKind : {eRefuse, eThrowHost, eThrowStd}) {
            Control::reset();
            inject({eGetNodeList, eKind, 2, bFromThen});
            std::string strHits;
            for (int iCall = 0; iCall < 4; ++iCall) {
                bool bHit = false;
                try {
                    bHit = m_processor.GetNodeList() == nullptr;
                } catch (const Exceptions::Xapel_ErrorException& rError) {
                    bHit = eKind == eThrowHost && std::string("injected") == rError.what();
                } catch (const std::runtime_error& rError) {
                    bHit = eKind == eThrowStd && std::string("injected") == rError.what();
                }
                strHits += bHit ? 'x' : '.';
            }
            EXPECT_EQ(bFromThen ? ".xxx" : ".x..", strHits);
            EXPECT_EQ(bFromThen ? 3U : 1U, hits());
        }
    }
}

TEST_F(Faults, RefusalChangesNothingElse) {
    setCancelMode(eWakesOne);
    for (const eHostOp eOp : {eHostCancel, eRegisterFetch, eRemoveFetch}) {
        inject({eOp, eRefuse});
    }
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, cancelGetFilledBuffer(m_pStream));
    EXPECT_EQ(GC_ERR_TIMEOUT, fetch(0));
    HookSide other;
    EXPECT_FALSE(other.put(eHookFetch, m_pDevice, m_pStream));
    EXPECT_EQ(nullptr, other.pfnFetch);
    EXPECT_FALSE(m_side.put(eHookFetch, m_pDevice, m_pStream, true));
    EXPECT_EQ(5U, liveHooks(&m_side));
    inject({eNodeSetInt, eRefuse, 1, false, SHADING_NODE_HEIGHT});
    EXPECT_NO_THROW(shading(SHADING_NODE_WIDTH).SetInt(6));
    EXPECT_THROW(shading(SHADING_NODE_HEIGHT).SetInt(7), Exceptions::Xapel_AccessDeniedException);
}

}  // namespace
}  // namespace StandIn
}  // namespace XAPEL2
