// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The commands of the image processor.

#include "standin/processor/ShadingProcessor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "xapel2/GenTLCodes.h"

#include "standin/files/TiffHandle.h"
#include "standin/processor/correction/Correction.h"
#include "standin/processor/filters/ReferenceFilter.h"
#include "standin/processor/references/ReferenceRecorder.h"
#include "xapel2_standin/ReferenceFile.h"
#include "xapel2_standin/ReferenceImage.h"

namespace XAPEL2 {
namespace StandIn {

// Here, since the texts are others in each file that includes them.
const std::array<const char*, 4> CShadingProcessor::PARAMETERS = {
    SHADING_PARAM_BOX_LIGHT, SHADING_PARAM_BOX_DARK, SHADING_PARAM_MEDIAN_LIGHT, SHADING_PARAM_MEDIAN_DARK};

namespace {

constexpr const auto& PARAMETERS = CShadingProcessor::PARAMETERS;
enum eParameter : std::size_t { eBoxLight, eBoxDark, eMedianLight, eMedianDark };

constexpr const char* BUSY = "another command is running";
constexpr const char* RECORDING = "a recording is running";
constexpr int64_t UNTOUCHED = 1;  // status of an image that was left as it is because nothing is applied for it
constexpr int32_t TRACE_ERROR = 2;
// Where no image can lie: the host may not know a buffer's base, but the image's offset in it.
constexpr uint64_t NO_ADDRESS = 65536;

/// Why an image was left untouched.
enum eReason { eNothingApplied, eOtherFormat, eOtherSize, eImpossible, eOtherThanRecording, eBusy, eReasonCount };

const char* textOf(eReason eWhy) {
    static constexpr std::array<const char*, eReasonCount> TEXTS = {"no reference is applied",
                                                                    "a reference is applied for another format",
                                                                    "a reference is applied for another size",
                                                                    "the image is impossible",
                                                                    "the recording has another format or size",
                                                                    BUSY};
    return TEXTS[eWhy];
}

std::size_t parameterIndex(const std::string& strName) {
    return static_cast<std::size_t>(std::find(PARAMETERS.begin(), PARAMETERS.end(), strName) - PARAMETERS.begin());
}

std::string toText(const std::string& strFormat, int64_t iWidth, int64_t iHeight) {
    return strFormat + " " + std::to_string(iWidth) + "x" + std::to_string(iHeight);
}

ImageLayout layoutOf(const ShadingInputs& rInputs) {
    // A negative size becomes a huge one, which is as impossible.
    return {findPixelFormat(rInputs.strPixelFormat), static_cast<uint64_t>(rInputs.iWidth),
            static_cast<uint64_t>(rInputs.iHeight)};
}

}  // namespace

struct CShadingProcessor::Impl {
    explicit Impl(TraceFunc fnTrace) : m_fnTrace(std::move(fnTrace)) {}

    int64_t run(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t process(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t apply(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t clear() noexcept;
    int64_t load(eReferenceKind eKind, const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t start(eReferenceKind eKind, ShadingAnswer& rAnswer);
    int64_t end(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);

    int64_t leaveUntouched(eReason eWhy, const ShadingInputs& rInputs, int64_t iStatus, ShadingAnswer& rAnswer);
    int64_t failApply(const std::string& strWhy, int64_t iStatus, ShadingAnswer& rAnswer);
    FilterRadii radii(eReferenceKind eKind) const;
    void describe(std::string strCorrection) noexcept;
    void emit(const std::string& strText) const noexcept;

    const TraceFunc m_fnTrace;

    // Taken by exchange, released by store: a command that finds it taken is refused. No mutex, because a trace
    // function may run a command on the thread that holds it.
    std::atomic<bool> m_bBusy{false};

    // Guarded by m_bBusy.
    std::array<std::unique_ptr<ReferenceImage>, 2> m_aReferences;  // by eReferenceKind
    std::unique_ptr<CReferenceRecorder> m_pRecorder;               // null: no recording runs
    ImageLayout m_applied;                                         // what m_pCorrection is for
    std::unique_ptr<ICorrection> m_pCorrection;                    // null: nothing is applied
    std::string m_strTrace;                                        // emitted once the command is over

    // One bit for each reason that has been traced; any thread, the order does not matter.
    std::atomic<uint32_t> m_uTraced{0};

    // Protects the members below; held for a copy.
    mutable std::mutex m_mtxParameters;
    std::array<int64_t, PARAMETERS.size()> m_aParameters = {};
    std::string m_strCorrection;  // of m_pCorrection; empty: nothing is applied
};

void CShadingProcessor::Impl::emit(const std::string& strText) const noexcept {
    if (strText.empty() || !m_fnTrace) {
        return;
    }
    try {
        m_fnTrace(TRACE_ERROR, "ImageProcessor; " + strText);
    } catch (...) {
        // A trace that cannot be delivered changes no status.
    }
}

// The reason is told for each image, and traced once.
int64_t CShadingProcessor::Impl::leaveUntouched(eReason eWhy, const ShadingInputs& rInputs, int64_t iStatus,
                                                ShadingAnswer& rAnswer) {
    rAnswer.eOutcome = iStatus < 0 ? eRefused : eLeftUntouched;
    rAnswer.pReason = textOf(eWhy);
    const uint32_t uBit = 1U << eWhy;
    if ((m_uTraced.fetch_or(uBit, std::memory_order_relaxed) & uBit) == 0) {
        m_strTrace = "image left untouched; " + std::string(textOf(eWhy)) + "; image " +
                     toText(rInputs.strPixelFormat, rInputs.iWidth, rInputs.iHeight) + ", " +
                     std::to_string(rInputs.iBufferSize) + " bytes";
    }
    return iStatus;
}

FilterRadii CShadingProcessor::Impl::radii(eReferenceKind eKind) const {
    const std::lock_guard<std::mutex> lock(m_mtxParameters);
    const bool bLight = eKind == eReferenceLight;
    return {static_cast<unsigned>(m_aParameters[bLight ? eMedianLight : eMedianDark]),
            static_cast<unsigned>(m_aParameters[bLight ? eBoxLight : eBoxDark])};
}

void CShadingProcessor::Impl::describe(std::string strCorrection) noexcept {
    const std::lock_guard<std::mutex> lock(m_mtxParameters);
    m_strCorrection.swap(strCorrection);
}

int64_t CShadingProcessor::Impl::process(const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    const ImageLayout layout = layoutOf(rInputs);
    if (!layout.isPossible() || static_cast<uint64_t>(rInputs.iBuffer) < NO_ADDRESS || rInputs.iBufferSize < 0 ||
        static_cast<uint64_t>(rInputs.iBufferSize) < layout.bytes()) {
        return leaveUntouched(eImpossible, rInputs, GC_ERR_INVALID_PARAMETER, rAnswer);
    }
    void* const pImage = reinterpret_cast<void*>(static_cast<uintptr_t>(rInputs.iBuffer));

    if (m_pRecorder) {
        if (m_pRecorder->images() != 0 && m_pRecorder->layout() != layout) {
            return leaveUntouched(eOtherThanRecording, rInputs, GC_ERR_INVALID_PARAMETER, rAnswer);
        }
        m_pRecorder->add(layout, pImage);
        rAnswer.eOutcome = eRecorded;
        rAnswer.pReason = RECORDING;
        return static_cast<int64_t>(m_pRecorder->images());
    }
    if (!m_pCorrection) {
        return leaveUntouched(eNothingApplied, rInputs, UNTOUCHED, rAnswer);
    }
    if (m_applied.pFormat != layout.pFormat) {
        return leaveUntouched(eOtherFormat, rInputs, UNTOUCHED, rAnswer);
    }
    if (m_applied != layout) {
        return leaveUntouched(eOtherSize, rInputs, UNTOUCHED, rAnswer);
    }
    m_pCorrection->correct(pImage);
    rAnswer.eOutcome = eCorrected;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::failApply(const std::string& strWhy, int64_t iStatus, ShadingAnswer& rAnswer) {
    rAnswer.strDetail = "cannot apply to " + strWhy;
    m_strTrace = rAnswer.strDetail;
    return iStatus;
}

int64_t CShadingProcessor::Impl::apply(const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    const ImageLayout layout = layoutOf(rInputs);
    const std::string strWanted = toText(rInputs.strPixelFormat, rInputs.iWidth, rInputs.iHeight);
    if (!layout.isPossible()) {
        return failApply(strWanted + "; unknown format or impossible size", GC_ERR_INVALID_PARAMETER, rAnswer);
    }
    if (!m_aReferences[eReferenceDark] && !m_aReferences[eReferenceLight]) {
        return failApply(strWanted + "; there is no reference", GC_ERR_NOT_AVAILABLE, rAnswer);
    }
    for (const auto& rpReference : m_aReferences) {
        if (rpReference && !rpReference->layout.hasSamplesLike(layout)) {
            const ImageLayout& rOther = rpReference->layout;
            return failApply(strWanted + "; a reference is of " +
                                 toText(rOther.pFormat->pName, static_cast<int64_t>(rOther.nWidth),
                                        static_cast<int64_t>(rOther.nHeight)),
                             GC_ERR_NOT_AVAILABLE, rAnswer);
        }
    }
    std::array<std::vector<float>, 2> aFiltered;
    std::array<const std::vector<float>*, 2> apSamples = {};
    for (const eReferenceKind eKind : {eReferenceDark, eReferenceLight}) {
        if (!m_aReferences[eKind]) {
            continue;
        }
        apSamples[eKind] = &m_aReferences[eKind]->vecSamples;
        const FilterRadii filters = radii(eKind);
        if (filters.nMedian == 0 && filters.nBox == 0) {
            continue;  // as it is: a copy would take as long as the tables
        }
        aFiltered[eKind] = *apSamples[eKind];
        filterReference(layout, filters, aFiltered[eKind]);
        apSamples[eKind] = &aFiltered[eKind];
    }
    CorrectionOutput output;
    if (m_aReferences[eReferenceLight]) {
        output = {m_aReferences[eReferenceLight]->output, &m_aReferences[eReferenceLight]->vecDefects};
    }
    auto pCorrection = makeCorrection(layout, apSamples[eReferenceDark], apSamples[eReferenceLight], nullptr, output);
    std::string strCorrection = pCorrection->description();
    m_pCorrection = std::move(pCorrection);
    describe(std::move(strCorrection));
    m_applied = layout;
    m_uTraced = 0;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::clear() noexcept {
    for (auto& rpReference : m_aReferences) {
        rpReference.reset();
    }
    m_pRecorder.reset();
    m_pCorrection.reset();
    describe({});
    m_uTraced = 0;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::load(eReferenceKind eKind, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    if (m_pRecorder) {
        rAnswer.pReason = RECORDING;
        return GC_ERR_RESOURCE_IN_USE;
    }
    auto pReference = std::make_unique<ReferenceImage>(readReferenceFile(rInputs.strFilename));
    if (pReference->eKind != eKind) {
        throw CFileError(eKind == eReferenceLight ? "it is a dark reference" : "it is a light reference");
    }
    m_aReferences[eKind] = std::move(pReference);
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::start(eReferenceKind eKind, ShadingAnswer& rAnswer) {
    if (m_pRecorder) {
        rAnswer.pReason = RECORDING;
        return GC_ERR_RESOURCE_IN_USE;
    }
    m_pRecorder = std::make_unique<CReferenceRecorder>(eKind);
    m_uTraced = 0;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::end(const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    if (!m_pRecorder || m_pRecorder->images() == 0) {
        rAnswer.pReason = m_pRecorder ? "the recording has no image" : "no recording is running";
        return GC_ERR_NO_DATA;
    }
    auto pReference = std::make_unique<ReferenceImage>(m_pRecorder->reference(rInputs.bKeepOutliers));
    pReference->strCamera = rInputs.strNote;
    writeReferenceFile(rInputs.strFilename, *pReference);
    const RecordingOutliers& rOutliers = pReference->outliers;
    if (!rOutliers.isEmpty()) {
        m_strTrace = "recording " + rInputs.strFilename + "; left the others: " + std::to_string(rOutliers.nFrames) +
                     " of " + std::to_string(m_pRecorder->images()) + " images, of the others " +
                     std::to_string(rOutliers.nSamples) +
                     " samples; left out of the mean: " + std::to_string(rOutliers.nFramesLeftOut) + " and " +
                     std::to_string(rOutliers.nSamplesLeftOut);
    }
    m_aReferences[m_pRecorder->kind()] = std::move(pReference);
    m_pRecorder.reset();
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::run(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    try {
        switch (iCommand) {
            case eCommandEnable:
                return GC_ERR_SUCCESS;
            case eCommandProcess:
                return process(rInputs, rAnswer);
            case eCommandApply:
                return apply(rInputs, rAnswer);
            case eCommandClear:
                return clear();
            case eCommandLoadDark:
                return load(eReferenceDark, rInputs, rAnswer);
            case eCommandLoadLight:
                return load(eReferenceLight, rInputs, rAnswer);
            case eCommandStartDark:
                return start(eReferenceDark, rAnswer);
            case eCommandStartLight:
                return start(eReferenceLight, rAnswer);
            case eCommandEnd:
                return end(rInputs, rAnswer);
            default:
                rAnswer.pReason = "there is no such command";
                return GC_ERR_INVALID_PARAMETER;
        }
    } catch (const CFileError& rError) {
        rAnswer.strDetail = rError.what();
        m_strTrace = "reference file " + rInputs.strFilename + "; " + rError.what();
        return GC_ERR_IO;
    }
}

CShadingProcessor::CShadingProcessor(TraceFunc fnTrace) : m_pImpl(std::make_unique<Impl>(std::move(fnTrace))) {}
CShadingProcessor::~CShadingProcessor() = default;

int64_t CShadingProcessor::execute(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) noexcept {
    Impl& rImpl = *m_pImpl;
    const eCorrection eFailed = iCommand == eCommandProcess ? eRefused : eNotHanded;
    // Acquire pairs with the release below: a command sees all that the one before it did.
    if (rImpl.m_bBusy.exchange(true, std::memory_order_acquire)) {
        const uint32_t uBit = 1U << eBusy;
        if (iCommand == eCommandProcess && (rImpl.m_uTraced.fetch_or(uBit, std::memory_order_relaxed) & uBit) == 0) {
            rImpl.emit(std::string("image left untouched; ") + BUSY);
        }
        rAnswer.eOutcome = eFailed;
        rAnswer.pReason = BUSY;
        return GC_ERR_RESOURCE_IN_USE;
    }
    int64_t iStatus = GC_ERR_ERROR;
    try {
        iStatus = rImpl.run(iCommand, rInputs, rAnswer);
    } catch (...) {
        // Want of memory, or a failure that nobody foresaw. The commands change nothing before their last step.
        rAnswer = {eFailed, "the image processor failed, perhaps for want of memory", {}};
    }
    const std::string strTrace = std::exchange(rImpl.m_strTrace, {});
    rImpl.m_bBusy.store(false, std::memory_order_release);
    rImpl.emit(strTrace);
    return iStatus;
}

bool CShadingProcessor::setParameter(const std::string& strName, int64_t iValue) {
    const std::size_t iParameter = parameterIndex(strName);
    if (iParameter == PARAMETERS.size() || iValue < SHADING_PARAM_MIN || iValue > SHADING_PARAM_MAX) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_pImpl->m_mtxParameters);
    m_pImpl->m_aParameters[iParameter] = iValue;
    return true;
}

int64_t CShadingProcessor::parameter(const std::string& strName) const {
    const std::size_t iParameter = parameterIndex(strName);
    if (iParameter == PARAMETERS.size()) {
        return 0;
    }
    const std::lock_guard<std::mutex> lock(m_pImpl->m_mtxParameters);
    return m_pImpl->m_aParameters[iParameter];
}

std::string CShadingProcessor::correction() const {
    const std::lock_guard<std::mutex> lock(m_pImpl->m_mtxParameters);
    return m_pImpl->m_strCorrection.empty() ? "none" : m_pImpl->m_strCorrection;
}

}  // namespace StandIn
}  // namespace XAPEL2
