// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The exported facade: names the filters and hands everything else on.

#include "xapel2_ext_sc.h"

#include <string>

#include "VexoShading.h"

namespace XAPEL2 {
namespace Ext {
namespace Sc {

namespace {

/// The image processor's name of a filter parameter; empty for a type that is no filter.
std::string filterName(Shading::eFilterType type, bool light) {
    std::string strName;
    if (type == Shading::eBoxFilter)
        strName = "BoxFilter";
    else if (type == Shading::eMedianFilter)
        strName = "MedianFilter";
    if (!strName.empty())
        strName += light ? "Light" : "Dark";
    return strName;
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
    m_pShadingObj->SetParam(filterName(type, light).c_str(), value);
}

int Shading::GetFilter(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light).c_str(), CVexoShadingObj::eParamValue);
}

int Shading::GetFilterMin(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light).c_str(), CVexoShadingObj::eParamMin);
}

int Shading::GetFilterMax(eFilterType type, bool light) {
    return m_pShadingObj->GetParam(filterName(type, light).c_str(), CVexoShadingObj::eParamMax);
}

}  // namespace Sc
}  // namespace Ext
}  // namespace XAPEL2
