// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The shading object: node accesses of each command, statuses, failures, traces, enabling, parameters.

#include "VexoShading.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "xapel2/ShadingNodes.h"
#include "xapel2/XapelExceptions.h"

#include "StreamFixture.h"

namespace {

using namespace XAPEL2::StandIn;
using namespace XAPEL2::Exceptions;
using XapelTest::thrown;
using XapelTest::traceTexts;

typedef std::vector<std::string> Texts;
typedef std::function<void(CVexoShadingObj&)> Operation;

const char* const REQUIRED[] = {"ShadingPixelFormat", "ShadingWidth",       "ShadingHeight",  "ShadingBufferSize",
                                "ShadingBuffer",      "ShadingBrwFilename", "ShadingCommand", "ShadingStatus"};

const Operation LOAD_LIGHT = [](CVexoShadingObj& r) { r.ReferenceLoad(true, "/no/l.tif"); };
const Operation LOAD_DARK = [](CVexoShadingObj& r) { r.ReferenceLoad(false, "/no/d.tif"); };
const Operation START_LIGHT = [](CVexoShadingObj& r) { r.ReferenceStart(true); };
const Operation START_DARK = [](CVexoShadingObj& r) { r.ReferenceStart(false); };
const Operation END = [](CVexoShadingObj& r) { r.ReferenceEnd("/no/e.tif"); };
const Operation APPLY = [](CVexoShadingObj& r) { r.ReferenceApply(); };
const Operation CLEAR = [](CVexoShadingObj& r) { r.ReferenceClear(); };
const Operation PROCESS = [](CVexoShadingObj& r) {
    r.ProcessImage("Mono8", 5, ~0ULL, reinterpret_cast<void*>(0x10), 77);
};
const Operation ENABLE = [](CVexoShadingObj& r) { r.SetEnable(true); };
const Operation DISABLE = [](CVexoShadingObj& r) { r.SetEnable(false); };

class ShadingObj : public XapelTest::StreamFixture {
protected:
    /// The node accesses of an operation, "node operation value" each, with every status forced.
    Texts accesses(CVexoShadingObj& rObject, const Operation& rOperation) {
        Control::recordNodes(true);
        try {
            rOperation(rObject);
        } catch (const IException&) {
        }
        const Texts vecTexts = XapelTest::nodeTexts();
        Control::recordNodes(false);
        return vecTexts;
    }
};

TEST_F(ShadingObj, CommandsWriteTheirNodesInOrder) {
    CVexoShadingObj object(m_pDevice);
    Control::forceStatus(0, 0);
    const struct {
        Operation fn;
        Texts vecAccesses;
    } rows[] = {
        {LOAD_LIGHT, {"ShadingBrwFilename SetString /no/l.tif", "ShadingCommand SetInt 6", "ShadingStatus GetInt 0"}},
        {LOAD_DARK, {"ShadingBrwFilename SetString /no/d.tif", "ShadingCommand SetInt 5", "ShadingStatus GetInt 0"}},
        {START_LIGHT, {"ShadingCommand SetInt 8", "ShadingStatus GetInt 0"}},
        {START_DARK, {"ShadingCommand SetInt 7", "ShadingStatus GetInt 0"}},
        {END, {"ShadingBrwFilename SetString /no/e.tif", "ShadingCommand SetInt 9", "ShadingStatus GetInt 0"}},
        {APPLY,
         {"PixelFormat GetString Mono8", "Width GetInt 64", "Height GetInt 48", "ShadingPixelFormat SetString Mono8",
          "ShadingWidth SetInt 64", "ShadingHeight SetInt 48", "ShadingCommand SetInt 3", "ShadingStatus GetInt 0"}},
        {CLEAR, {"ShadingCommand SetInt 4", "ShadingStatus GetInt 0"}},
        {PROCESS,
         {"ShadingPixelFormat SetString Mono8", "ShadingWidth SetInt 5", "ShadingHeight SetInt -1",
          "ShadingBufferSize SetInt 77", "ShadingBuffer SetInt 16", "ShadingCommand SetInt 2",
          "ShadingStatus GetInt 0"}},
        {ENABLE, {"ShadingCommand SetInt 1", "ShadingStatus GetInt 0"}},
        {DISABLE, {}},
    };
    for (const auto& rRow : rows) {
        EXPECT_EQ(accesses(object, rRow.fn), rRow.vecAccesses);
    }
}

constexpr int64_t HIGH_ONLY = int64_t{1} << 32;  // its low 32 bits are 0
constexpr int64_t LOW_NEGATIVE = 0x80000000LL;

struct Command {
    Operation fn;
    std::string strFailure;                // function and description of the exception
    bool (*pfnIsType)(const IException&);  // the exception's type
    std::vector<int64_t> vecGood, vecBad;  // statuses
};

template <typename Failure>
bool isA(const IException& rException) {
    return dynamic_cast<const Failure*>(&rException) != nullptr;
}

const std::vector<int64_t> NOT_ZERO{1, -1, HIGH_ONLY};
const Command COMMANDS[] = {
    {LOAD_LIGHT, "ReferenceLoad: shading load reference failed.", isA<Xapel_ErrorException>, {0}, NOT_ZERO},
    {LOAD_DARK, "ReferenceLoad: shading load reference failed.", isA<Xapel_ErrorException>, {0}, NOT_ZERO},
    {START_DARK, "ReferenceStart: shading acquire reference failed.", isA<Xapel_ResourceInUseException>, {0}, NOT_ZERO},
    {END, "ReferenceEnd: shading acquire reference failed.", isA<Xapel_ErrorException>, {0}, NOT_ZERO},
    {APPLY, "ReferenceApply: shading apply reference failed.", isA<Xapel_ErrorException>, {0}, NOT_ZERO},
    {CLEAR, "ReferenceClear: shading clear reference failed.", isA<Xapel_ErrorException>, {0}, NOT_ZERO},
    {PROCESS,
     "ProcessImage: shading process image failed.",
     isA<Xapel_InvalidParameterException>,
     {0, 5, HIGH_ONLY, -HIGH_ONLY},
     {-1, LOW_NEGATIVE}},
    {ENABLE, "SetEnable: enable shading failed.", isA<Xapel_ErrorException>, {0, 1, LOW_NEGATIVE}, {-1, -HIGH_ONLY}},
};

TEST_F(ShadingObj, StatusIsJudgedPerCommand) {
    CVexoShadingObj object(m_pDevice);
    for (const Command& rCommand : COMMANDS) {
        for (const int64_t iStatus : rCommand.vecGood) {
            Control::forceStatus(0, iStatus);
            EXPECT_NO_THROW(rCommand.fn(object)) << rCommand.strFailure << iStatus;
        }
        for (const int64_t iStatus : rCommand.vecBad) {
            Control::forceStatus(0, iStatus);
            EXPECT_EQ(thrown<IException>([&] {
                          try {
                              rCommand.fn(object);
                          } catch (const IException& rException) {
                              EXPECT_TRUE(rCommand.pfnIsType(rException)) << rCommand.strFailure;
                              EXPECT_STREQ(rException.GetFileName().get(), "tlconsumer/xapel2_ext_sc/VexoShading");
                              throw;
                          }
                      }),
                      rCommand.strFailure)
                << iStatus;
        }
        // An exception of the host's own passes, but for enabling; the lock is free.
        Control::inject({Control::eNodeGetInt, Control::eThrowHost, 1, false, XAPEL2::SHADING_NODE_STATUS});
        const bool bEnable = rCommand.strFailure.rfind("SetEnable", 0) == 0;
        EXPECT_EQ(thrown<Xapel_ErrorException>([&] { rCommand.fn(object); }),
                  bEnable ? rCommand.strFailure : "NodeGetInt: injected");
    }
    Control::forceStatus(0, HIGH_ONLY + 7);
    EXPECT_EQ(object.ProcessImage("Mono8", 1, 1, nullptr, 0), 7);
}

TEST_F(ShadingObj, MissingNodeIsToldByTheOperationThatNeedsIt) {
    const std::string strSet = "SetParam: SetParam failed.";
    std::vector<std::pair<Operation, std::string>> vecOperations = {
        {DISABLE, "SetEnable: enable shading failed."},
        {[](CVexoShadingObj& r) { r.SetParam("BoxFilterDark", 1); }, strSet},
        {[](CVexoShadingObj& r) { r.GetParam("BoxFilterDark", CVexoShadingObj::eParamMin); },
         "GetParam: GetParam failed."}};
    for (const Command& rCommand : COMMANDS) {
        vecOperations.emplace_back(rCommand.fn, rCommand.strFailure);
    }
    for (size_t i = 0; i <= std::size(REQUIRED); ++i) {
        Control::reset();
        if (i < std::size(REQUIRED)) {
            Control::dropNode(REQUIRED[i]);
        } else {
            Control::dropNodeMap(true);
        }
        CVexoShadingObj object(m_pDevice);
        for (const auto& rOperation : vecOperations) {
            EXPECT_EQ(thrown<Xapel_NotAvailableException>([&] { rOperation.first(object); }), rOperation.second) << i;
            EXPECT_TRUE(accesses(object, rOperation.first).empty()) << i;
        }
        EXPECT_EQ(object.extended_useFilledBuffer(nullptr), 0);
        for (const auto& rOperation : {LOAD_LIGHT, START_DARK, CLEAR}) {
            Control::recordTraces(true);
            EXPECT_THROW(rOperation(object), IException);
            EXPECT_EQ(traceTexts(0), Texts{"Extended-API;CExtScShadingObj; deInitCallBack called;"});
        }
    }
    for (const char* pNode : {"ShadingParamSelector", "ShadingParamValue"}) {
        Control::reset();
        Control::dropNode(pNode);
        CVexoShadingObj object(m_pDevice);
        EXPECT_NO_THROW(ENABLE(object));
        for (const char* pName : {"BoxFilterDark", ""}) {
            EXPECT_EQ(thrown<Xapel_NotAvailableException>([&] { object.SetParam(pName, 1); }), strSet);
        }
    }
}

TEST_F(ShadingObj, EnablingTracesAndRegistersOnce) {
    startStream();
    Control::recordTraces(true);
    CVexoShadingObj object(m_pDevice);
    const auto fnTraces = [](const std::function<void()>& fnCall) {
        Control::recordTraces(true);
        fnCall();
        return traceTexts(0);
    };
    const std::string strEnable = "Extended-API;CVexoShadingObj; SetEnable called;";
    const std::string strInit = "Extended-API;CExtScShadingObj; initCallBack called;";
    const std::string strDeInit = "Extended-API;CExtScShadingObj; deInitCallBack called;";
    EXPECT_EQ(traceTexts(0).back(), "Extended-API;CExtScShading created;");
    EXPECT_EQ(fnTraces([&] { object.SetEnable(false); }), (Texts{strEnable, strDeInit}));
    EXPECT_EQ(fnTraces([&] { object.SetEnable(true); }),
              (Texts{strEnable, strInit,
                     "Extended-API;CExtScShadingObj; initCallBack; image callback registered successfully"}));
    EXPECT_EQ(fnTraces([&] { object.SetEnable(true); }), (Texts{strEnable, strInit}));
    Control::recordNodes(true);
    EXPECT_EQ(fetch(), 0);
    const auto vecRecorded = Control::nodeAccesses();
    EXPECT_EQ(std::count(vecRecorded.begin(), vecRecorded.end(), Control::NodeAccess{"ShadingCommand", "SetInt", "2"}),
              1);
    EXPECT_EQ(fnTraces([&] { object.SetEnable(false); }),
              (Texts{strEnable, strDeInit,
                     "Extended-API;CExtScShadingObj; deinitCallBack; image callback unregistered successfully"}));
    auto pOther = std::make_unique<CVexoShadingObj>(m_pDevice);
    EXPECT_EQ(fnTraces([&] { pOther.reset(); }), Texts{strDeInit});
}

TEST_F(ShadingObj, LoadStartAndClearSwitchOffFirstEvenWhenTheyFail) {
    startStream();
    CVexoShadingObj object(m_pDevice);
    const auto fnSeesBuffers = [this] {
        Control::recordNodes(true);
        EXPECT_EQ(fetch(), 0);
        return !Control::nodeAccesses().empty();
    };
    for (const auto& rOperation : {LOAD_LIGHT, START_DARK, CLEAR}) {
        object.SetEnable(true);
        EXPECT_TRUE(fnSeesBuffers());
        // Off before the first node is touched, so that no frame mixes with what the command does.
        Control::forceStatus(0, -1);
        bool bOffFirst = true;
        Control::setNodeObserver([&](const Control::NodeAccess&) {
            const auto vecTexts = traceTexts(0);
            bOffFirst = bOffFirst && !vecTexts.empty() &&
                        vecTexts.back().find("unregistered successfully") != std::string::npos;
        });
        Control::recordTraces(true);
        EXPECT_THROW(rOperation(object), IException);
        Control::setNodeObserver(nullptr);
        EXPECT_TRUE(bOffFirst);
        EXPECT_FALSE(fnSeesBuffers());
        Control::forceStatus(0, 0);
    }
    for (const auto& rOperation : {END, APPLY, PROCESS}) {
        object.SetEnable(true);
        rOperation(object);
        EXPECT_TRUE(fnSeesBuffers());
    }
    Control::forceStatus(1, -1);
    EXPECT_THROW(ENABLE(object), Xapel_ErrorException);
    EXPECT_FALSE(fnSeesBuffers());
}

TEST_F(ShadingObj, FailuresOfHubAndNodesWhileSwitching) {
    startStream(0);
    CVexoShadingObj object(m_pDevice);
    const auto fnWithFailingCancel = [this](const std::function<void()>& fnCall) {
        auto blocked = blockedFetch();
        Control::recordTraces(true);
        Control::inject({Control::eHostCancel, Control::eThrowHost});
        fnCall();
        cancelGetFilledBuffer(m_pStream);
        EXPECT_EQ(blocked.get(), GC_ERR_ABORT);
    };
    fnWithFailingCancel([&] { EXPECT_NO_THROW(object.SetEnable(true)); });
    EXPECT_EQ(traceTexts(2), Texts{"Extended-API;CExtScShadingObj; initCallback; unexpected exception occurred;"});
    object.SetEnable(true);
    fnWithFailingCancel([&] { EXPECT_NO_THROW(object.SetEnable(false)); });
    EXPECT_EQ(traceTexts(2), Texts{"Extended-API;CExtScShadingObj; deinitCallback; unexpected exception occurred;"});
    Control::recordTraces(true);
    Control::inject({Control::eNodeGetInt, Control::eThrowHost, 1, false, XAPEL2::SHADING_NODE_STATUS});
    EXPECT_THROW(object.SetEnable(true), Xapel_ErrorException);
    EXPECT_EQ(traceTexts(2), Texts{"Extended-API;CVexoShadingObj; SetEnable;NodeGetInt injected"});
    // Another exception is not a host's: it passes.
    Control::inject({Control::eNodeSetInt, Control::eThrowStd, 1, false, XAPEL2::SHADING_NODE_COMMAND});
    EXPECT_THROW(object.SetEnable(true), std::runtime_error);
}

TEST_F(ShadingObj, EndWaitsWholeForABufferThatIsOnItsWay) {
    startStream(0);
    auto pObject = std::make_unique<CVexoShadingObj>(m_pDevice);
    pObject->SetEnable(true);
    auto blocked = blockedFetch();
    // Switching off fails at its first trace, and the cancel does nothing: the object is still on its list.
    Control::setCancelMode(Control::eIgnored);
    Control::inject({Control::eTrace, Control::eThrowStd, 1, true});
    auto end = std::async(std::launch::async, [&] { pObject.reset(); });
    EXPECT_TRUE(XapelTest::eventually([] { return Control::calls(Control::eHostCancel) == 1; }));
    Control::recordNodes(true);
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(allocAndAnnounceBuffer(m_pStream, payloadSize(m_pStream), &hBuffer), 0);
    ASSERT_EQ(queueBuffer(m_pStream, hBuffer), 0);
    EXPECT_EQ(blocked.get(), 0);
    EXPECT_TRUE(XapelTest::ready(end));
    const auto vecRecorded = Control::nodeAccesses();
    EXPECT_EQ(std::count(vecRecorded.begin(), vecRecorded.end(), Control::NodeAccess{"ShadingCommand", "SetInt", "2"}),
              1);
}

TEST_F(ShadingObj, ParametersGoThroughTheSelector) {
    CVexoShadingObj object(m_pDevice);
    const auto fnGet = [](CVexoShadingObj::eParamMode eMode) {
        return [eMode](CVexoShadingObj& r) { r.GetParam("BoxFilterDark", eMode); };
    };
    const std::string strSelect = "ShadingParamSelector SetValue BoxFilterDark";
    EXPECT_EQ(accesses(object, [](CVexoShadingObj& r) { r.SetParam("BoxFilterDark", 9); }),
              (Texts{strSelect, "ShadingParamValue SetInt 9"}));
    EXPECT_EQ(accesses(object, fnGet(CVexoShadingObj::eParamValue)), (Texts{strSelect, "ShadingParamValue GetInt 9"}));
    EXPECT_EQ(accesses(object, fnGet(CVexoShadingObj::eParamMin)), (Texts{strSelect, "ShadingParamValue GetIntMin 0"}));
    EXPECT_EQ(accesses(object, fnGet(CVexoShadingObj::eParamMax)),
              (Texts{strSelect, "ShadingParamValue GetIntMax 31"}));
    const auto eNone = static_cast<CVexoShadingObj::eParamMode>(3);
    EXPECT_EQ(accesses(object, fnGet(eNone)), Texts{strSelect});
    EXPECT_EQ(thrown<Xapel_InvalidParameterException>([&] { object.GetParam("BoxFilterDark", eNone); }),
              "GetParam: GetParam failed.");
    for (const char* pName : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(thrown<Xapel_InvalidParameterException>([&] { object.SetParam(pName, 1); }),
                  "SetParam: SetParam failed.");
        EXPECT_TRUE(accesses(object, [&](CVexoShadingObj& r) { r.SetParam(pName, 1); }).empty());
    }
    // Widened without sign; what the host refuses is traced and becomes an error of the operation's own.
    Control::recordTraces(true);
    Texts vecSeen = accesses(object, [](CVexoShadingObj& r) { r.SetParam("BoxFilterDark", 4294967295U); });
    ASSERT_EQ(vecSeen.size(), 2U);
    EXPECT_EQ(vecSeen[1], "ShadingParamValue SetInt 4294967295");
    EXPECT_EQ(thrown<Xapel_ErrorException>([&] { object.GetParam("NoFilter", CVexoShadingObj::eParamMin); }),
              "GetParam: GetParam failed.");
    ASSERT_EQ(traceTexts(2).size(), 2U);
    EXPECT_EQ(traceTexts(2)[0].rfind("Extended-API;CVexoShadingObj; SetParam;SetInt ", 0), 0U) << traceTexts(2)[0];
    EXPECT_EQ(traceTexts(2)[1].rfind("Extended-API;CVexoShadingObj; >GetParam;SetValue ", 0), 0U) << traceTexts(2)[1];
    EXPECT_EQ(traceTexts(0), (Texts{"Extended-API;CVexoShadingObj; SetParam called;",
                                    "Extended-API;CVexoShadingObj; GetParam called;"}));
}

TEST_F(ShadingObj, ParametersDoNotWaitForACommandNorMixTheirSelections) {
    CVexoShadingObj object(m_pDevice);
    // While a command is on its way, another thread writes and reads a parameter.
    std::future<int> read;
    Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
        if (rAccess.strNode != XAPEL2::SHADING_NODE_COMMAND) {
            return;
        }
        read = std::async(std::launch::async, [&] {
            object.SetParam("BoxFilterLight", 3);
            return object.GetParam("BoxFilterLight", CVexoShadingObj::eParamValue);
        });
        EXPECT_TRUE(XapelTest::ready(read));
    });
    object.ReferenceClear();
    Control::setNodeObserver(nullptr);
    EXPECT_EQ(read.get(), 3);
    // Between the selection and the access of one thread there is no place for another's.
    for (const bool bSet : {false, true}) {
        std::future<void> other;
        Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
            if (rAccess.strNode != XAPEL2::SHADING_NODE_PARAM_VALUE || other.valid()) {
                return;
            }
            other = std::async(std::launch::async, [&] { object.SetParam("BoxFilterDark", 1); });
            EXPECT_FALSE(XapelTest::ready(other, 30));
        });
        const auto fnGet = [&] { return object.GetParam("BoxFilterLight", CVexoShadingObj::eParamValue); };
        if (bSet) {
            object.SetParam("BoxFilterLight", 4);
        } else {
            EXPECT_EQ(fnGet(), 3);
        }
        other.get();
        Control::setNodeObserver(nullptr);
        EXPECT_EQ(fnGet(), bSet ? 4 : 3);
    }
}

TEST_F(ShadingObj, CommandWaitsUntilTheOneUnderWayHasEnded) {
    startStream(1, 1);
    BufferHandle hBuffer = nullptr;
    ASSERT_EQ(getFilledBuffer(m_pStream, &hBuffer, 5000), 0);
    CVexoShadingObj object(m_pDevice);
    Control::forceStatus(0, 0);
    const Operation USE_BUFFER = [&](CVexoShadingObj& r) { EXPECT_EQ(r.extended_useFilledBuffer(hBuffer), 0); };
    // While the first touches its last node, the second begins: nothing of it may show until the first is done.
    const struct {
        Operation fnFirst;
        const char* pLastNode;
    } firsts[] = {{PROCESS, "ShadingStatus"}, {ENABLE, "ShadingStatus"}, {USE_BUFFER, "ShadingCommand"}};
    for (const auto& rFirst : firsts) {
        for (const auto& rSecond : {PROCESS, ENABLE, USE_BUFFER}) {
            const Texts vecAlone = accesses(object, rFirst.fnFirst);
            std::future<void> second;
            Control::setNodeObserver([&](const Control::NodeAccess& rAccess) {
                if (rAccess.strNode != rFirst.pLastNode || second.valid()) {
                    return;
                }
                second = std::async(std::launch::async, [&] { rSecond(object); });
                EXPECT_FALSE(XapelTest::ready(second, 30));
                EXPECT_LE(Control::nodeAccesses().size(), vecAlone.size());
            });
            accesses(object, rFirst.fnFirst);
            second.get();
            Control::setNodeObserver(nullptr);
        }
    }
}

}  // namespace
