// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// References that have been applied, and what corrects an image with them, wherever on the sensor it lies.

#include "standin/processor/AppliedReferences.h"

#include <algorithm>
#include <utility>

#include "standin/processor/LineCorrection.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::array<eReferenceKind, 2> KINDS = {eReferenceDark, eReferenceLight};

// Those that are added up can be darker than the format has room for; then all of the image is.
void limitDark(const PixelFormat& rFormat, std::vector<float>& rSamples) {
    const auto fFull = static_cast<float>(rFormat.fullScale());
    for (float& rSample : rSamples) {
        rSample = std::min(rSample, fFull);
    }
}

}  // namespace

CAppliedReferences::CAppliedReferences(const ReferencePair& rPair) : m_pair(rPair) {
    for (const eReferenceKind eKind : KINDS) {
        const bool bKnown = m_pair[eKind] && m_pair[eKind]->geometry.isKnown();
        m_bPlaced = m_bPlaced || bKnown;
        m_bHalfPlaced = m_bHalfPlaced || (m_pair[eKind] && !bKnown);
        m_aPlaces[eKind] = bKnown ? m_pair[eKind]->geometry : ImageGeometry{};
    }
    m_bHalfPlaced = m_bHalfPlaced && m_bPlaced;
    const auto& rpDark = m_pair[eReferenceDark];
    const auto& rpLight = m_pair[eReferenceLight];
    if (!rpDark || !rpLight) {
        return;
    }
    if (!hasSamplesLike(*rpLight->layout.pFormat) || rpDark->isLine() != rpLight->isLine() ||
        ((!m_bPlaced || m_bHalfPlaced) && !rpDark->layout.hasSamplesLike(rpLight->layout))) {
        throw CUnfitPair("the dark reference has another format or size than the light one");
    }
    // One of an older file goes with the other one, but for images of that very place alone.
    for (const eReferenceKind eKind : KINDS) {
        if (m_bHalfPlaced && !m_aPlaces[eKind].isKnown()) {
            m_aPlaces[eKind] = m_aPlaces[eKind == eReferenceDark ? eReferenceLight : eReferenceDark];
        }
    }
    const ePlaceObstacle eWhy = obstacle(rpLight->layout, m_aPlaces[eReferenceLight]);
    if (eWhy != eNoObstacle) {
        throw CUnfitPair(std::string("the dark reference does not fit the light one: as an image, ") +
                         PLACE_OBSTACLES[eWhy]);
    }
}

void CAppliedReferences::prepare(const std::array<FilterRadii, 2>& rRadii) {
    for (const eReferenceKind eKind : KINDS) {
        // As it is where nothing is filtered: a copy would take as long as the tables.
        if (m_pair[eKind] && (rRadii[eKind].nMedian != 0 || rRadii[eKind].nBox != 0)) {
            m_aFiltered[eKind] = m_pair[eKind]->vecSamples;
            filterReference(m_pair[eKind]->layout, rRadii[eKind], m_aFiltered[eKind]);
        }
    }
    setTargets();
}

const std::vector<float>& CAppliedReferences::samplesOf(eReferenceKind eKind) const {
    return m_aFiltered[eKind].empty() ? m_pair[eKind]->vecSamples : m_aFiltered[eKind];
}

CorrectionOutput CAppliedReferences::output() const {
    const auto& rpLight = m_pair[eReferenceLight];
    return rpLight ? CorrectionOutput{rpLight->output, &rpLight->vecDefects} : CorrectionOutput{};
}

void CAppliedReferences::setTargets() {
    const auto& rpLight = m_pair[eReferenceLight];
    if (!rpLight) {
        return;
    }
    const std::vector<float>* pDark = nullptr;
    std::vector<float> vecDark;
    if (m_pair[eReferenceDark]) {
        pDark = &samplesOf(eReferenceDark);
        if (m_bPlaced) {
            const CDerivation way = derivation(eReferenceDark, rpLight->layout, m_aPlaces[eReferenceLight]);
            if (!way.isSame()) {
                way.samples(*pDark, vecDark);
                pDark = &vecDark;
            }
        }
    }
    m_aTargets = classTargets(rpLight->layout, pDark, &samplesOf(eReferenceLight), output());
}

bool CAppliedReferences::hasSamplesLike(const PixelFormat& rFormat) const {
    return std::all_of(m_pair.begin(), m_pair.end(), [&](const auto& rpReference) {
        if (!rpReference) {
            return true;
        }
        ImageLayout layout = rpReference->layout;
        if (!m_bPlaced || !layout.pFormat->isCfa() || !rFormat.isCfa()) {
            layout.pFormat = &rFormat;
            return rpReference->layout.hasSamplesLike(layout);
        }
        return layout.pFormat->nBits == rFormat.nBits;
    });
}

bool CAppliedReferences::isOwnSize(const ImageLayout& rLayout) const {
    const ReferenceImage& rMain = main();
    return rLayout.nWidth == rMain.layout.nWidth && (rMain.isLine() || rLayout.nHeight == rMain.layout.nHeight);
}

bool CAppliedReferences::takesSize(const ImageLayout& rLayout) const {
    const ReferenceImage& rMain = main();
    return rLayout.nWidth <= rMain.layout.nWidth && (rMain.isLine() || rLayout.nHeight <= rMain.layout.nHeight);
}

bool CAppliedReferences::isWindow() const {
    const ReferenceImage& rMain = main();
    const bool bCfa = rMain.layout.pFormat->isCfa();
    const uint64_t nHeight = rMain.isLine() ? place().y.binned(bCfa) : rMain.layout.nHeight;
    return m_bPlaced && !place().isWhole(rMain.layout.nWidth, nHeight, bCfa);
}

CDerivation CAppliedReferences::derivation(eReferenceKind eKind, const ImageLayout& rLayout,
                                           const ImageGeometry& rGeometry) const {
    return {m_pair[eKind]->layout, m_aPlaces[eKind], rLayout, rGeometry};
}

ePlaceObstacle CAppliedReferences::obstacle(const ImageLayout& rLayout, const ImageGeometry& rGeometry) const {
    if (!m_bPlaced) {
        return eNoObstacle;
    }
    const ImageGeometry& rPlace = rGeometry.isKnown() ? rGeometry : place();
    ePlaceObstacle eWorst = eNoObstacle;
    for (const eReferenceKind eKind : KINDS) {
        if (m_pair[eKind] && eWorst == eNoObstacle) {
            const CDerivation way = derivation(eKind, rLayout, rPlace);
            eWorst = way.obstacle() == eNoObstacle && m_bHalfPlaced && !way.isSame() ? eHalfPlaced : way.obstacle();
        }
    }
    return eWorst;
}

ePlaceObstacle CAppliedReferences::obstacleOnce(const ImageLayout& rLayout, const ImageGeometry& rGeometry) {
    for (const Refused& rRefused : m_aRefused) {
        if (rRefused.eWhy != eNoObstacle && rRefused.layout == rLayout && rRefused.geometry == rGeometry) {
            return rRefused.eWhy;
        }
    }
    const ePlaceObstacle eWhy = obstacle(rLayout, rGeometry);
    if (eWhy != eNoObstacle) {
        m_aRefused[m_iNextRefused] = {eWhy, rLayout, rGeometry};
        m_iNextRefused = (m_iNextRefused + 1) % REFUSED;
    }
    return eWhy;
}

const CorrectionInUse* CAppliedReferences::find(const ImageLayout& rLayout, const ImageGeometry& rGeometry) {
    ++m_nUses;
    for (Kept& rKept : m_vecKept) {
        if (rKept.layout == rLayout && (!m_bPlaced || rKept.geometry == rGeometry)) {
            rKept.iLastUse = m_nUses;
            return &rKept;
        }
    }
    return nullptr;
}

// Where all references are of one place, and the image is a part of it.
bool CAppliedReferences::isPlainCrop(const ImageLayout& rLayout, const ImageGeometry& rGeometry) const {
    return std::all_of(KINDS.begin(), KINDS.end(), [&](eReferenceKind eKind) {
        return !m_pair[eKind] || (m_aPlaces[eKind] == place() && m_pair[eKind]->layout.nWidth == main().layout.nWidth &&
                                  derivation(eKind, rLayout, rGeometry).isCrop());
    });
}

void CAppliedReferences::derive(const ImageLayout& rLayout, const ImageGeometry& rGeometry) {
    Derived& rDerived = m_derived;
    rDerived.aTargets = m_aTargets;
    rDerived.crop = {};
    const bool bPlainCrop = m_bPlaced && isPlainCrop(rLayout, rGeometry);
    for (const eReferenceKind eKind : KINDS) {
        if (!m_pair[eKind]) {
            continue;
        }
        const bool bLight = eKind == eReferenceLight;
        rDerived.apSamples[eKind] = &samplesOf(eKind);
        if (bLight) {
            rDerived.vecDefects = m_pair[eKind]->vecDefects;
        }
        if (!m_bPlaced) {
            continue;
        }
        const CDerivation way = derivation(eKind, rLayout, rGeometry);
        if (way.isSame()) {
            continue;
        }
        if (bPlainCrop) {
            rDerived.crop = {way.origin(), m_pair[eKind]->layout.samplesPerRow()};
        } else {
            way.samples(samplesOf(eKind), rDerived.aOwned[eKind]);
            rDerived.apSamples[eKind] = &rDerived.aOwned[eKind];
        }
        if (!bLight && way.scale() > 1.0) {
            limitDark(*rLayout.pFormat, rDerived.aOwned[eKind]);
        }
        if (bLight) {
            rDerived.vecDefects = way.defects(m_pair[eKind]->vecDefects);
            for (unsigned k = 0; k < rLayout.classes(); ++k) {
                rDerived.aTargets[k] = m_aTargets[way.classOf(k)] * way.scale();
            }
        }
    }
}

const CorrectionInUse& CAppliedReferences::build(const ImageLayout& rLayout, const ImageGeometry& rGeometry) {
    const ImageGeometry& rPlace = m_bPlaced && !rGeometry.isKnown() ? place() : rGeometry;
    derive(rLayout, rPlace);
    const Derived& rDerived = m_derived;
    CorrectionOutput out = output();
    out.pDefects = &rDerived.vecDefects;
    out.pTargets = &rDerived.aTargets;
    out.crop = rDerived.crop;
    const auto fnMake = [&] {
        const auto& rapSamples = rDerived.apSamples;
        return main().isLine()
                   ? makeLineCorrection(rLayout, rapSamples[eReferenceDark], rapSamples[eReferenceLight], out)
                   : makeCorrection(rLayout, rapSamples[eReferenceDark], rapSamples[eReferenceLight], nullptr, out);
    };
    Kept kept;
    kept.pCorrection = fnMake();
    std::string strText = kept.pCorrection->description();
    if (m_bPlaced) {
        strText += ", " + inWords(rPlace, rLayout.nWidth, rLayout.nHeight, rLayout.pFormat->isCfa());
    }
    kept.pDescription = std::make_shared<const std::string>(std::move(strText));
    kept.layout = rLayout;
    kept.geometry = rGeometry;
    kept.iLastUse = ++m_nUses;
    m_vecKept.reserve(KEPT);
    if (m_vecKept.size() < KEPT) {
        m_vecKept.push_back(std::move(kept));
        return m_vecKept.back();
    }
    Kept& rOldest = *std::min_element(m_vecKept.begin(), m_vecKept.end(),
                                      [](const Kept& r1, const Kept& r2) { return r1.iLastUse < r2.iLastUse; });
    rOldest = std::move(kept);
    return rOldest;
}

}  // namespace StandIn
}  // namespace XAPEL2
