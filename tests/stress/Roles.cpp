// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The steps of the roles.

#include "Roles.h"

#include <algorithm>

#include "Invariants.h"
#include "XapelBypass.h"

namespace XapelStress {

namespace {

constexpr unsigned TRANSIENT = 2;  // the slot of facades that come and go beside the lasting ones

uint64_t tick() {
    static std::atomic<uint64_t> s_uTick{0};
    return ++s_uTick;
}

template <typename Change>
void changeList(CWorker& rWorker, const char* pWhat, Change fnChange) {
    const int64_t tBegan = nowUs();
    rWorker.doing(pWhat, fnChange);
    raiseFigure(eListChangeUs, nowUs() - tBegan);
    ++figure(eListChanges);
}

void require(const CCamera& rCamera, const char* pWhat, int iResult, int iAlsoAllowed) {
    if (iResult != GC_ERR_SUCCESS && iResult != iAlsoAllowed)
        broken(rCamera.m_strName, pWhat + std::string(" returned ") + std::to_string(iResult));
}

void fetchStep(CWorker& rWorker, CCamera& rCamera, unsigned iFetch) {
    static constexpr unsigned long long TIMEOUTS_MS[] = {0, 1, 5, 20, 50, 50, TIMEOUT_INFINITE, TIMEOUT_INFINITE};
    const unsigned long long iTimeoutMs = TIMEOUTS_MS[rWorker.pick(8)];
    BufferHandle hBuffer = nullptr;
    const CameraLook before(rCamera);
    rCamera.m_atFirstCancel[iFetch] = 0;
    const int64_t tBegan = nowUs();
    const int iResult =
        rWorker.doing("getFilledBuffer", [&] { return getFilledBuffer(rCamera.m_pStream, &hBuffer, iTimeoutMs); });
    const int64_t tEnded = nowUs(), tCancel = rCamera.m_atFirstCancel[iFetch];
    checkFetch(rCamera, {before, CameraLook(rCamera), tBegan, tEnded, tCancel, iTimeoutMs, iResult, hBuffer});
    if (iResult == GC_ERR_INVALID_HANDLE || rWorker.oneIn(16))
        rWorker.pause();
    if (Pixels* pPixels = rCamera.pixelsOf(hBuffer)) {
        std::fill(pPixels->begin(), pPixels->end(), WIPED);
        require(rCamera, "queueBuffer", queueBuffer(rCamera.m_pStream, hBuffer), GC_ERR_INVALID_HANDLE);
    }
}

void enable(CWorker& rWorker, CCamera& rCamera, Slot& rSlot) {
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    rSlot.uEnterBegan = tick();
    changeList(rWorker, "SetEnable(true)", [&] { rSlot.pFacade->SetEnable(true); });
    rSlot.uEntered = tick();
    rSlot.bOn = true;
}

void disable(CWorker& rWorker, CCamera& rCamera, Slot& rSlot, unsigned iSlot) {
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    if (rWorker.oneIn(8))
        changeList(rWorker, "ReferenceLoad",
                   [&] { rSlot.pFacade->ReferenceLoad(true, rCamera.m_aReferences[iSlot].c_str()); });
    else
        changeList(rWorker, "SetEnable(false)", [&] { rSlot.pFacade->SetEnable(false); });
    rSlot.bOn = false;
}

/// A facade that lives for a moment; with it a hub, where no other facade holds one.
void liveShortly(CWorker& rWorker, CCamera& rCamera, unsigned iSlot) {
    Slot& rSlot = rCamera.m_aSlots[iSlot];
    const bool bEnable = rWorker.oneIn(2);
    rWorker.doing("Shading", [&] {
        rSlot.pFacade = bEnable ? rCamera.makeFacade(iSlot) : std::make_unique<Shading>(rCamera.m_pDevice);
    });
    if (bEnable) {
        enable(rWorker, rCamera, rSlot);
        rWorker.pause();
    }
    if (bEnable && rWorker.oneIn(2))
        disable(rWorker, rCamera, rSlot, iSlot);
    const CChanging ends(rCamera.m_ends), change(rSlot.change);
    rWorker.doing("~Shading", [&] { rSlot.pFacade.reset(); });
    figure(eListChanges) += rSlot.bOn.exchange(false) ? 1U : 0U;
}

void switchStep(CWorker& rWorker, CCamera& rCamera, unsigned iSlot) {
    Slot& rSlot = rCamera.m_aSlots[iSlot];
    if (!rCamera.m_bFacades)
        liveShortly(rWorker, rCamera, iSlot);
    else if (rSlot.bOn)
        disable(rWorker, rCamera, rSlot, iSlot);
    else
        enable(rWorker, rCamera, rSlot);
    rWorker.pause();
}

/// Carries every call on.
class CGuest final : public CXapelBypass {
public:
    using CXapelBypass::CXapelBypass;
};

void takePart(CWorker& rWorker, CCamera& rCamera) {
    auto pParticipant = std::make_unique<CGuest>(rCamera.m_pDevice);
    {
        const CChanging ends(rCamera.m_ends);
        changeList(rWorker, "registerParticipant", [&] { pParticipant->registerParticipant(); });
    }
    rWorker.pause();
    const CChanging ends(rCamera.m_ends);
    if (rWorker.oneIn(2))
        changeList(rWorker, "unregisterParticipant", [&] { pParticipant->unregisterParticipant(); });
    rWorker.doing("~CGuest", [&] { pParticipant.reset(); });
}

void createStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    rWorker.oneIn(4) ? takePart(rWorker, rCamera) : liveShortly(rWorker, rCamera, TRANSIENT);
    rWorker.pause();
}

void cancelStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    cancelFetches(rWorker, rCamera);
    uint64_t nValue = 0;
    unsigned long long nSize = sizeof(nValue);
    const int iInfo = rWorker.doing("getStreamInfo", [&] {
        return getStreamInfo(rCamera.m_pStream, STREAM_INFO_NUM_DELIVERED, nullptr, &nValue, &nSize);
    });
    require(rCamera, "getStreamInfo", iInfo, GC_ERR_INVALID_HANDLE);
    rWorker.pause();
    rWorker.pause();
}

/// Writes filters of the dark reference alone: there is none, so the gains stay when they are applied.
void filterStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    const CChanging ends(rCamera.m_ends);  // a facade of its own, which may be a hub's last
    const auto pOwn = rCamera.m_bFacades ? nullptr : std::make_unique<Shading>(rCamera.m_pDevice);
    Shading& rFacade = pOwn ? *pOwn : *rCamera.m_aSlots[rWorker.pick(2)].pFacade;
    const auto eType = rWorker.oneIn(2) ? Shading::eBoxFilter : Shading::eMedianFilter;
    const unsigned uRadius = rWorker.pick(32);
    rWorker.doing("filter values", [&] {
        rFacade.SetFilter(eType, false, uRadius);
        if (rFacade.GetFilter(eType, false) != static_cast<int>(uRadius) || rFacade.GetFilter(eType, true) != 0 ||
            rFacade.GetFilterMax(eType, rWorker.oneIn(2)) != 31)
            broken("filter", "a value is wrong");
    });
    figure(eFilterCalls) += 4;
    rWorker.pause();
}

}  // namespace

void reopenStep(CWorker& rWorker, CCamera& rCamera, unsigned) {
    const std::string strWrong = rWorker.doing("closing and opening the stream", [&] { return rCamera.reopen(); });
    if (!strWrong.empty())
        broken(rCamera.m_strName, "cannot open its stream again: " + strWrong);
    ++figure(eReopened);
    rWorker.pause();
    rWorker.pause();
}

void cancelFetches(CWorker& rWorker, CCamera& rCamera) {
    const CChanging ends(rCamera.m_ends);
    for (auto& rFirst : rCamera.m_atFirstCancel) {
        int64_t tNone = 0;
        rFirst.compare_exchange_strong(tNone, nowUs());
    }
    require(rCamera, "cancelGetFilledBuffer",
            rWorker.doing("cancelGetFilledBuffer", [&] { return cancelGetFilledBuffer(rCamera.m_pStream); }),
            GC_ERR_INVALID_HANDLE);
    ++figure(eCancels);
}

const std::vector<Role>& roles() {
    static const std::vector<Role> s_roles = {
        {"fetch", 0, fetchStep},   {"fetch", 1, fetchStep},   {"switch", 0, switchStep}, {"switch", 1, switchStep},
        {"create", 0, createStep}, {"reopen", 0, reopenStep}, {"cancel", 0, cancelStep}, {"filter", 0, filterStep}};
    return s_roles;
}

}  // namespace XapelStress
