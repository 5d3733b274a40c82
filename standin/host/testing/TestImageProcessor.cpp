// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The image processor: without nodes that are dropped, with a status that is forced.

#include <algorithm>
#include <mutex>
#include <optional>

#include "standin/host/nodes/ProcessorNodes.h"
#include "standin/host/objects/Answers.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Switches.h"

namespace XAPEL2 {

namespace StandIn {
namespace {

// The nodes of a processor as the switches want them. The functions in them refer to this object.
class CTestProcessor {
public:
    CTestProcessor() {
        for (const NodeSpec& rSpec : *m_pProcessor) {
            if (!isDropped(rSpec.strName)) {
                m_table.push_back(decorated(rSpec));
            }
        }
    }

    const NodeTable& table() const { return m_table; }

private:
    NodeSpec decorated(NodeSpec spec) {
        if (spec.strName == "ShadingCommand") {
            spec.fnSetInt = [this, fnExecute = spec.fnSetInt](int64_t iCommand) {
                return execute(fnExecute, iCommand);
            };
        } else if (spec.strName == "ShadingStatus") {
            spec.fnGetInt = [this, fnStatus = spec.fnGetInt] {
                {
                    const std::lock_guard<std::mutex> lock(m_mtx);
                    if (m_iForced) {
                        return *m_iForced;
                    }
                }
                return fnStatus();
            };
        }
        return spec;
    }

    eNodeResult execute(const std::function<eNodeResult(int64_t)>& rExecute, int64_t iCommand) {
        const std::optional<int64_t> iForced = statusFor(iCommand);
        const LastError before = iForced ? lastError() : LastError();
        if (iForced) {
            clearLastError();
        }
        const eNodeResult eResult = rExecute(iCommand);
        if (iForced && *iForced < 0) {
            setLastError(static_cast<int32_t>(*iForced), lastError().strText.c_str());
        } else if (iForced) {
            setLastError(before.iCode, before.strText.c_str());
        }
        const std::lock_guard<std::mutex> lock(m_mtx);
        m_iForced = iForced;
        return eResult;
    }

    const std::shared_ptr<const NodeTable> m_pProcessor = makeProcessor();
    NodeTable m_table;

    std::mutex m_mtx;                  // guards the next
    std::optional<int64_t> m_iForced;  // status of the last command, where it was forced
};

std::shared_ptr<const NodeTable> makeTestProcessor() {
    const auto pProcessor = std::make_shared<CTestProcessor>();
    return {pProcessor, &pProcessor->table()};
}

struct TestProcessorImpl {
    ProcessorImpl processor{makeTestProcessor()};
    bool bHasMap = !switches().bDropNodeMap;
};

}  // namespace
}  // namespace StandIn

using namespace StandIn;

INode::INode() : m_pImpl(nullptr) {}

INode::~INode() = default;

NodeMap* INode::GetNodeList() {
    if (faultHits(Control::eGetNodeList) || m_pImpl == nullptr) {
        return nullptr;
    }
    const auto* const pImpl = static_cast<const TestProcessorImpl*>(m_pImpl);
    return pImpl->bHasMap ? pImpl->processor.shell.map() : nullptr;
}

ImageProcessor::ImageProcessor() {
    if (faultHits(Control::eCreateProcessor)) {
        XAPEL2_RAISE(AccessDenied, "injected");
    }
    m_pImpl = new TestProcessorImpl;
}

ImageProcessor::~ImageProcessor() {
    delete static_cast<TestProcessorImpl*>(m_pImpl);
}

}  // namespace XAPEL2
