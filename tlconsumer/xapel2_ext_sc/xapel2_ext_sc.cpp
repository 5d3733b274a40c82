// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The exported facade: names the filters and hands everything else on.

#include "xapel2_ext_sc.h"

#include "xapel2/ShadingNodes.h"

#include "VexoShading.h"

namespace XAPEL2 {
namespace Ext {
namespace Sc {

namespace {

/// The image processor's name of a filter parameter; empty for a type that is no filter.
const char* filterName(Shading::eFilterType type, bool light) {
    switch (type) {
        case Shading::eBoxFilter:
            return light ? SHADING_PARAM_BOX_LIGHT : SHADING_PARAM_BOX_DARK;
        case Shading::eMedianFilter:
            return light ? SHADING_PARAM_MEDIAN_LIGHT : SHADING_PARAM_MEDIAN_DARK;
    }
    return "";
}

}  // namespace

Shading::Shading(XAPEL2::Device* device) : m_pShadingObj(new CVexoShadingObj(device)) {}

Shading::~Shading() {
    delete m_pShadingObj;
}

void Shading::ReferenceLoad(bool light, XAPEL2::String file) {
    m_pShadingObj->ReferenceLoad(light, XAPEL2::String(file.get()));
}

void Shading::ReferenceStart(bool light) {
    m_pShadingObj->ReferenceStart(light);
}

void Shading::ReferenceEnd(XAPEL2::String file) {
    m_pShadingObj->ReferenceEnd(XAPEL2::String(file.get()));
}

void Shading::ReferenceApply() {
    m_pShadingObj->ReferenceApply();
}

void Shading::ReferenceClear() {
    m_pShadingObj->ReferenceClear();
}

int Shading::ReferenceAdd(XAPEL2::String pixelFormat, unsigned long long width, unsigned long long height, void* data,
                          unsigned long long size) {
    m_pShadingObj->ProcessImage(pixelFormat, width, height, data, size);
    return 0;
}

void Shading::SetEnable(bool enable) {
    m_pShadingObj->SetEnable(enable);
}

void Shading::SetFilter(eFilterType type, bool light, unsigned int value) {
    m_pShadingObj->SetParam(filterName(type, light), value);
}

int Shading::GetFilter(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light), CVexoShadingObj::eParamValue);
}

int Shading::GetFilterMin(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light), CVexoShadingObj::eParamMin);
}

int Shading::GetFilterMax(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light), CVexoShadingObj::eParamMax);
}

}  // namespace Sc
}  // namespace Ext
}  // namespace XAPEL2
