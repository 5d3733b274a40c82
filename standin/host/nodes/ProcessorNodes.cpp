// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The node map of an image processor: the inputs of its commands, the command itself, its status, its parameters.

#include "standin/host/nodes/ProcessorNodes.h"

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "standin/host/objects/Answers.h"
#include "standin/host/objects/DeviceOperations.h"
#include "standin/host/objects/Trace.h"
#include "standin/host/stream/BufferTable.h"
#include "standin/processor/ShadingProcessor.h"
#include "xapel2/ShadingNodes.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr const auto& PARAMETERS = CShadingProcessor::PARAMETERS;

class CHostPlaces : public IImagePlaces {
public:
    bool placeOf(const void* pImage, ImageGeometry& rGeometry) const override {
        return CBufferTable::instance().geometryOf(pImage, rGeometry);
    }
    bool presentPlace(const ImageLayout& rLayout, ImageGeometry& rGeometry) const override {
        return geometryOfAsked(rGeometry) && rLayout.liesOn(rGeometry);
    }
};

class CProcessorNodes {
public:
    CProcessorNodes()
        : m_processor([](int32_t iLevel, const std::string& strText) { trace(iLevel, strText); }, &m_places) {
        addText(SHADING_NODE_PIXEL_FORMAT, &ShadingInputs::strPixelFormat);
        addInput(SHADING_NODE_WIDTH, &ShadingInputs::iWidth);
        addInput(SHADING_NODE_HEIGHT, &ShadingInputs::iHeight);
        addInput(SHADING_NODE_BUFFER_SIZE, &ShadingInputs::iBufferSize);
        addInput(SHADING_NODE_BUFFER, &ShadingInputs::iBuffer);
        addText(SHADING_NODE_FILE_NAME, &ShadingInputs::strFilename);
        addCommand();
        addParameters();
        addReport();
    }

    const NodeTable& table() const { return m_vecTable; }

private:
    void add(NodeSpec spec) { m_vecTable.push_back(std::move(spec)); }

    static NodeSpec integer(const char* pName, std::function<int64_t()> fnGet) {
        NodeSpec spec;
        spec.strName = pName;
        spec.fnGetInt = std::move(fnGet);
        spec.fnMin = [] { return std::numeric_limits<int64_t>::min(); };
        spec.fnMax = [] { return std::numeric_limits<int64_t>::max(); };
        return spec;
    }

    void addInput(const char* pName, int64_t ShadingInputs::*pMember) {
        NodeSpec spec = integer(pName, [this, pMember] {
            std::lock_guard<std::mutex> lock(m_mtx);
            return m_inputs.*pMember;
        });
        spec.fnSetInt = [this, pMember](int64_t iValue) {
            std::lock_guard<std::mutex> lock(m_mtx);
            m_inputs.*pMember = iValue;
            return eNodeDone;
        };
        add(std::move(spec));
    }

    void addText(const char* pName, std::string ShadingInputs::*pMember) {
        NodeSpec spec;
        spec.strName = pName;
        spec.eKind = eTextNode;
        spec.fnGetText = [this, pMember] {
            std::lock_guard<std::mutex> lock(m_mtx);
            return m_inputs.*pMember;
        };
        spec.fnSetText = [this, pMember](const char* pValue) {
            std::lock_guard<std::mutex> lock(m_mtx);
            m_inputs.*pMember = pValue;
            return eNodeDone;
        };
        add(std::move(spec));
    }

    void addCommand() {
        NodeSpec spec = integer(SHADING_NODE_COMMAND, [this] {
            std::lock_guard<std::mutex> lock(m_mtx);
            return m_iCommand;
        });
        spec.fnSetInt = [this](int64_t iCommand) {
            execute(iCommand);
            return eNodeDone;
        };
        add(std::move(spec));
        add(integer(SHADING_NODE_STATUS, [this] {
            std::lock_guard<std::mutex> lock(m_mtx);
            return m_iStatus;
        }));
    }

    void addParameters() {
        NodeSpec selector;
        selector.strName = SHADING_NODE_PARAM_SELECTOR;
        selector.eKind = eEnumNode;
        selector.fnGetText = [this] { return std::string(selected()); };
        selector.fnSetText = [this](const char* pEntry) { return select(pEntry); };
        add(std::move(selector));

        NodeSpec value = integer(SHADING_NODE_PARAM_VALUE, [this] { return m_processor.parameter(selected()); });
        value.fnMin = [] { return SHADING_PARAM_MIN; };
        value.fnMax = [] { return SHADING_PARAM_MAX; };
        value.fnSetInt = [this](int64_t iValue) {
            return m_processor.setParameter(selected(), iValue) ? eNodeDone : eNodeInvalid;
        };
        add(std::move(value));
    }

    // Beyond the nodes that a processor must have: what corrects the images, for benches and bug reports.
    void addReport() {
        NodeSpec spec;
        spec.strName = "StandInCorrection";
        spec.eKind = eTextNode;
        spec.fnGetText = [this] { return m_processor.correction(); };
        add(std::move(spec));
    }

    const char* selected() {
        std::lock_guard<std::mutex> lock(m_mtx);
        return PARAMETERS[m_iSelected];
    }

    eNodeResult select(const char* pEntry) {
        for (std::size_t i = 0; i < PARAMETERS.size(); ++i) {
            if (std::strcmp(PARAMETERS[i], pEntry) == 0) {
                std::lock_guard<std::mutex> lock(m_mtx);
                m_iSelected = i;
                return eNodeDone;
            }
        }
        return eNodeInvalid;
    }

    // Runs the command on a copy of the inputs, with no lock held. The copy is kept for the next command, so that
    // its texts need no new memory for each frame.
    void execute(int64_t iCommand) {
        std::unique_ptr<ShadingInputs> pInputs;
        {
            std::lock_guard<std::mutex> lock(m_mtx);
            m_iCommand = iCommand;
            pInputs = std::move(m_pSpareInputs);
            if (pInputs == nullptr) {
                pInputs = std::make_unique<ShadingInputs>();
            }
            *pInputs = m_inputs;
        }
        if (iCommand == eCommandEnd) {
            pInputs->strNote = referenceNote();
            pInputs->bKeepOutliers = areOutliersKept();
        }
        ShadingAnswer answer;
        const int64_t iStatus = m_processor.execute(iCommand, *pInputs, answer);
        if (iCommand == eCommandProcess) {
            const auto* pImage = reinterpret_cast<const void*>(static_cast<uintptr_t>(pInputs->iBuffer));
            CBufferTable::instance().noteCorrection(pImage, answer.eOutcome, answer.pReason);
        }
        if (iStatus < 0) {
            setLastError(static_cast<int32_t>(iStatus), answer.reason());
        }
        std::lock_guard<std::mutex> lock(m_mtx);
        m_iStatus = iStatus;
        m_pSpareInputs = std::move(pInputs);
    }

    const CHostPlaces m_places;
    CShadingProcessor m_processor;
    NodeTable m_vecTable;

    std::mutex m_mtx;  // guards the members below; never held while a command runs
    ShadingInputs m_inputs;
    std::unique_ptr<ShadingInputs> m_pSpareInputs;
    int64_t m_iCommand = 0;
    int64_t m_iStatus = 0;
    std::size_t m_iSelected = 0;
};

}  // namespace

std::shared_ptr<const NodeTable> makeProcessor() {
    const auto pNodes = std::make_shared<CProcessorNodes>();
    return {pNodes, &pNodes->table()};
}

}  // namespace StandIn
}  // namespace XAPEL2
