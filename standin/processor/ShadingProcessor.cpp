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
#include "standin/processor/AppliedReferences.h"
#include "standin/processor/references/ReferenceDescription.h"
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
enum eReason {
    eNothingApplied,
    eOtherFormat,
    eOtherSize,
    eImpossible,
    eOtherThanRecording,
    eBusy,
    eMoved,  // the obstacles of ePlaceObstacle in their order, from the first that is one on
    eGuessed = eMoved + eHalfPlaced,
};

const char* textOf(eReason eWhy) {
    if (eWhy >= eMoved) {
        return PLACE_OBSTACLES[eWhy - eMoved + eOtherSensor];
    }
    static constexpr std::array<const char*, eMoved> TEXTS = {
        "no reference is applied",
        "a reference is applied for another format",
        "a reference is applied for another size",
        "the image is impossible",
        "the recording has another format, size or place on the sensor",
        BUSY};
    return TEXTS[eWhy];
}

std::size_t parameterIndex(const std::string& strName) {
    return static_cast<std::size_t>(std::find(PARAMETERS.begin(), PARAMETERS.end(), strName) - PARAMETERS.begin());
}

std::string toText(const std::string& strFormat, int64_t iWidth, int64_t iHeight) {
    return strFormat + " " + std::to_string(iWidth) + "x" + std::to_string(iHeight);
}

// Where an image lies, and the reference.
std::string numbers(const ReferenceImage& rMain, const ImageLayout& rLayout, const ImageGeometry& rPlace) {
    const auto fnWords = [](const ImageLayout& r, const ImageGeometry& rWhere) {
        return inWords(rWhere, r.nWidth, r.nHeight, r.pFormat->isCfa()) + " of a sensor of " +
               std::to_string(rWhere.x.nSensor) + " x " + std::to_string(rWhere.y.nSensor) + ", " + r.pFormat->pName;
    };
    return "; image: " + fnWords(rLayout, rPlace) + "; reference: " + fnWords(rMain.layout, rMain.geometry);
}

ImageLayout layoutOf(const ShadingInputs& rInputs) {
    // A negative size becomes a huge one, which is as impossible.
    return {findPixelFormat(rInputs.strPixelFormat), static_cast<uint64_t>(rInputs.iWidth),
            static_cast<uint64_t>(rInputs.iHeight)};
}

}  // namespace

struct CShadingProcessor::Impl {
    Impl(TraceFunc fnTrace, const IImagePlaces* pPlaces) : m_fnTrace(std::move(fnTrace)), m_pPlaces(pPlaces) {}

    int64_t run(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t record(const ImageLayout& rLayout, const void* pImage, const ShadingInputs& rInputs,
                   ShadingAnswer& rAnswer);
    int64_t process(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t apply(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t clear() noexcept;
    int64_t load(eReferenceKind eKind, const ShadingInputs& rInputs, ShadingAnswer& rAnswer);
    int64_t start(eReferenceKind eKind, ShadingAnswer& rAnswer);
    int64_t end(const ShadingInputs& rInputs, ShadingAnswer& rAnswer);

    int64_t leaveUntouched(eReason eWhy, const ShadingInputs& rInputs, int64_t iStatus, ShadingAnswer& rAnswer,
                           const ImageGeometry* pPlace = nullptr);
    const CorrectionInUse* correctionFor(const ImageLayout& rLayout, const void* pImage, const ShadingInputs& rInputs,
                                         int64_t& rStatus, ShadingAnswer& rAnswer);
    ImageGeometry placeOf(const void* pImage) const;
    ImageGeometry presentPlace(const ImageLayout& rLayout) const;
    bool firstTime(unsigned iBit) {
        return (m_uTraced.fetch_or(1U << iBit, std::memory_order_relaxed) & 1U << iBit) == 0;
    }
    std::string otherThan(const ImageLayout& rLayout) const;
    int64_t failApply(const std::string& strWhy, int64_t iStatus, ShadingAnswer& rAnswer);
    FilterRadii radii(eReferenceKind eKind) const;
    void use(const CorrectionInUse* pInUse) noexcept;
    void emit(const std::string& strText) const noexcept;

    const TraceFunc m_fnTrace;
    const IImagePlaces* const m_pPlaces;

    // Taken by exchange, released by store: a command that finds it taken is refused. No mutex, because a trace
    // function may run a command on the thread that holds it.
    std::atomic<bool> m_bBusy{false};

    // Guarded by m_bBusy.
    ReferencePair m_aReferences;
    std::unique_ptr<CReferenceRecorder> m_pRecorder;  // null: no recording runs
    ImageGeometry m_recorded;                         // where its images lie
    const PixelFormat* m_pFormat = nullptr;           // that m_pApplied was applied for
    std::unique_ptr<CAppliedReferences> m_pApplied;   // null: nothing is applied
    const CorrectionInUse* m_pInUse = nullptr;        // one of m_pApplied's, described below
    std::string m_strTrace;                           // emitted once the command is over

    // One bit for each reason that has been traced; any thread, the order does not matter.
    std::atomic<uint32_t> m_uTraced{0};

    // Protects the members below; held for a copy.
    mutable std::mutex m_mtxParameters;
    std::array<int64_t, PARAMETERS.size()> m_aParameters = {};
    std::shared_ptr<const std::string> m_pDescription;  // of m_pInUse; null: nothing is used
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

// The reason is told for each image, and traced once, with the numbers of its place where that is the reason.
int64_t CShadingProcessor::Impl::leaveUntouched(eReason eWhy, const ShadingInputs& rInputs, int64_t iStatus,
                                                ShadingAnswer& rAnswer, const ImageGeometry* pPlace) {
    rAnswer.eOutcome = iStatus < 0 ? eRefused : eLeftUntouched;
    rAnswer.pReason = textOf(eWhy);
    if (firstTime(eWhy)) {
        m_strTrace = "image left untouched; " + std::string(textOf(eWhy)) + "; image " +
                     toText(rInputs.strPixelFormat, rInputs.iWidth, rInputs.iHeight) + ", " +
                     std::to_string(rInputs.iBufferSize) + " bytes" +
                     (pPlace ? numbers(m_pApplied->main(), layoutOf(rInputs), *pPlace) : "");
    }
    return iStatus;
}

ImageGeometry CShadingProcessor::Impl::placeOf(const void* pImage) const {
    ImageGeometry place;
    try {
        return m_pPlaces && m_pPlaces->placeOf(pImage, place) ? place : ImageGeometry{};
    } catch (...) {
        return {};
    }
}

ImageGeometry CShadingProcessor::Impl::presentPlace(const ImageLayout& rLayout) const {
    ImageGeometry place;
    try {
        return m_pPlaces && m_pPlaces->presentPlace(rLayout, place) ? place : ImageGeometry{};
    } catch (...) {
        return {};
    }
}

FilterRadii CShadingProcessor::Impl::radii(eReferenceKind eKind) const {
    const std::lock_guard<std::mutex> lock(m_mtxParameters);
    const bool bLight = eKind == eReferenceLight;
    return {static_cast<unsigned>(m_aParameters[bLight ? eMedianLight : eMedianDark]),
            static_cast<unsigned>(m_aParameters[bLight ? eBoxLight : eBoxDark])};
}

void CShadingProcessor::Impl::use(const CorrectionInUse* pInUse) noexcept {
    if (pInUse && pInUse == m_pInUse) {
        return;
    }
    m_pInUse = pInUse;
    std::shared_ptr<const std::string> pDescription = pInUse ? pInUse->pDescription : nullptr;
    const std::lock_guard<std::mutex> lock(m_mtxParameters);
    m_pDescription.swap(pDescription);
}

int64_t CShadingProcessor::Impl::record(const ImageLayout& rLayout, const void* pImage, const ShadingInputs& rInputs,
                                        ShadingAnswer& rAnswer) {
    ImageGeometry place = placeOf(pImage);
    if (!rLayout.liesOn(place)) {
        place = {};  // what cannot be is not filed
    }
    const bool bFirst = m_pRecorder->images() == 0;
    if (!bFirst && (m_pRecorder->layout() != rLayout || m_recorded != place)) {
        return leaveUntouched(eOtherThanRecording, rInputs, GC_ERR_INVALID_PARAMETER, rAnswer);
    }
    m_pRecorder->add(rLayout, pImage);
    m_recorded = place;
    rAnswer.eOutcome = eRecorded;
    rAnswer.pReason = RECORDING;
    return static_cast<int64_t>(m_pRecorder->images());
}

// Null where the image is left as it is; the answer then says why.
const CorrectionInUse* CShadingProcessor::Impl::correctionFor(const ImageLayout& rLayout, const void* pImage,
                                                              const ShadingInputs& rInputs, int64_t& rStatus,
                                                              ShadingAnswer& rAnswer) {
    CAppliedReferences& rApplied = *m_pApplied;
    const ImageGeometry place = rApplied.isPlaced() ? placeOf(pImage) : ImageGeometry{};
    // The colour phase goes with the place.
    const bool bSameFormat =
        m_pFormat == rLayout.pFormat ||
        (place.isKnown() && m_pFormat->isCfa() && rLayout.pFormat->isCfa() &&
         m_pFormat->nBits == rLayout.pFormat->nBits && m_pFormat->nWireBits == rLayout.pFormat->nWireBits &&
         m_pFormat->bSplit == rLayout.pFormat->bSplit);
    if (!bSameFormat) {
        rStatus = leaveUntouched(eOtherFormat, rInputs, UNTOUCHED, rAnswer);
        return nullptr;
    }
    if (const CorrectionInUse* pFound = rApplied.find(rLayout, place)) {
        return pFound;
    }
    if (!place.isKnown() && !rApplied.isOwnSize(rLayout)) {
        rStatus = leaveUntouched(eOtherSize, rInputs, UNTOUCHED, rAnswer);
        return nullptr;
    }
    const ePlaceObstacle eWhy = rApplied.obstacleOnce(rLayout, place);
    if (eWhy != eNoObstacle) {
        rStatus =
            leaveUntouched(static_cast<eReason>(eMoved + (eWhy - eOtherSensor)), rInputs, UNTOUCHED, rAnswer, &place);
        return nullptr;
    }
    m_pInUse = nullptr;  // it may make way
    const CorrectionInUse& rBuilt = rApplied.build(rLayout, place);
    if (!place.isKnown() && rApplied.isWindow() && firstTime(eGuessed)) {
        m_strTrace = "image corrected as if it lay where the reference does, a window; nobody knows where it lies" +
                     numbers(rApplied.main(), rLayout, place);
    }
    return &rBuilt;
}

int64_t CShadingProcessor::Impl::process(const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    const ImageLayout layout = layoutOf(rInputs);
    if (!layout.isPossible() || static_cast<uint64_t>(rInputs.iBuffer) < NO_ADDRESS || rInputs.iBufferSize < 0 ||
        static_cast<uint64_t>(rInputs.iBufferSize) < layout.bytes()) {
        return leaveUntouched(eImpossible, rInputs, GC_ERR_INVALID_PARAMETER, rAnswer);
    }
    void* const pImage = reinterpret_cast<void*>(static_cast<uintptr_t>(rInputs.iBuffer));

    if (m_pRecorder) {
        return record(layout, pImage, rInputs, rAnswer);
    }
    if (!m_pApplied) {
        return leaveUntouched(eNothingApplied, rInputs, UNTOUCHED, rAnswer);
    }
    int64_t iStatus = UNTOUCHED;
    const CorrectionInUse* const pInUse = correctionFor(layout, pImage, rInputs, iStatus, rAnswer);
    if (!pInUse) {
        return iStatus;
    }
    use(pInUse);
    pInUse->pCorrection->correct(pImage);
    rAnswer.eOutcome = eCorrected;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::failApply(const std::string& strWhy, int64_t iStatus, ShadingAnswer& rAnswer) {
    rAnswer.strDetail = "cannot apply to " + strWhy;
    m_strTrace = rAnswer.strDetail;
    return iStatus;
}

// Format and size of the first reference that is not like an image.
std::string CShadingProcessor::Impl::otherThan(const ImageLayout& rLayout) const {
    const auto& rpDark = m_aReferences[eReferenceDark];
    const bool bDark = rpDark && (!rpDark->layout.hasSamplesLike(rLayout) || !m_aReferences[eReferenceLight]);
    const ImageLayout& rOther = m_aReferences[bDark ? eReferenceDark : eReferenceLight]->layout;
    return toText(rOther.pFormat->pName, static_cast<int64_t>(rOther.nWidth), static_cast<int64_t>(rOther.nHeight));
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
    std::unique_ptr<CAppliedReferences> pApplied;
    try {
        pApplied = std::make_unique<CAppliedReferences>(m_aReferences);
    } catch (const CAppliedReferences::CUnfitPair& rError) {
        return failApply(strWanted + "; " + rError.what(), GC_ERR_NOT_AVAILABLE, rAnswer);
    }
    if (!pApplied->hasSamplesLike(*layout.pFormat)) {
        return failApply(strWanted + "; a reference is of " + otherThan(layout), GC_ERR_NOT_AVAILABLE, rAnswer);
    }
    // The camera that was asked for the format need not be the one that the images come from, and where an image lies
    // is looked at again when it comes: a place that cannot be derived stands in the way of a size that does not fit
    // alone.
    ImageGeometry place = pApplied->isPlaced() ? presentPlace(layout) : ImageGeometry{};
    const ePlaceObstacle eWhy = place.isKnown() ? pApplied->obstacle(layout, place) : eNoObstacle;
    const bool bFits = pApplied->isPlaced() ? pApplied->takesSize(layout) : pApplied->isOwnSize(layout);
    if (eWhy != eNoObstacle && !bFits) {
        return failApply(strWanted + "; " + PLACE_OBSTACLES[eWhy] + numbers(pApplied->main(), layout, place),
                         GC_ERR_NOT_AVAILABLE, rAnswer);
    }
    if (!place.isKnown() && !bFits) {
        return failApply(strWanted + "; a reference is of " + otherThan(layout), GC_ERR_NOT_AVAILABLE, rAnswer);
    }
    place = eWhy == eNoObstacle ? place : ImageGeometry{};
    const bool bBuild = place.isKnown() || pApplied->isOwnSize(layout);
    pApplied->prepare({radii(eReferenceDark), radii(eReferenceLight)});
    const CorrectionInUse* const pInUse = bBuild ? &pApplied->build(layout, place) : nullptr;
    m_pApplied = std::move(pApplied);
    m_pInUse = nullptr;
    use(pInUse);
    m_pFormat = layout.pFormat;
    m_uTraced = 0;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::clear() noexcept {
    for (auto& rpReference : m_aReferences) {
        rpReference.reset();
    }
    m_pRecorder.reset();
    use(nullptr);
    m_pApplied.reset();
    m_uTraced = 0;
    return GC_ERR_SUCCESS;
}

int64_t CShadingProcessor::Impl::load(eReferenceKind eKind, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) {
    if (m_pRecorder) {
        rAnswer.pReason = RECORDING;
        return GC_ERR_RESOURCE_IN_USE;
    }
    auto pReference = std::make_shared<const ReferenceImage>(readReferenceFile(rInputs.strFilename));
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
    auto pReference = std::make_shared<ReferenceImage>(m_pRecorder->reference(rInputs.bKeepOutliers));
    pReference->strCamera = rInputs.strNote;
    pReference->geometry = m_recorded.isKnown() || rInputs.strNote.empty()
                               ? m_recorded
                               : geometryOfNote(rInputs.strNote, pReference->layout);
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

CShadingProcessor::CShadingProcessor(TraceFunc fnTrace, const IImagePlaces* pPlaces)
    : m_pImpl(std::make_unique<Impl>(std::move(fnTrace), pPlaces)) {}
CShadingProcessor::~CShadingProcessor() = default;

int64_t CShadingProcessor::execute(int64_t iCommand, const ShadingInputs& rInputs, ShadingAnswer& rAnswer) noexcept {
    Impl& rImpl = *m_pImpl;
    const eCorrection eFailed = iCommand == eCommandProcess ? eRefused : eNotHanded;
    // Acquire pairs with the release below: a command sees all that the one before it did.
    if (rImpl.m_bBusy.exchange(true, std::memory_order_acquire)) {
        if (iCommand == eCommandProcess && rImpl.firstTime(eBusy)) {
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
    return m_pImpl->m_pDescription ? *m_pImpl->m_pDescription : "none";
}

}  // namespace StandIn
}  // namespace XAPEL2
