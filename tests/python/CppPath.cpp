// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The same correction as a C++ program does it, for tests and benches that stand beside it in one process.

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "xapel2_ext_sc.h"
#include "xapel2_standin/Host.h"
#include "xapel2_standin/PixelFormat.h"

namespace {

using namespace XAPEL2;

/// A camera that never takes a frame, and a shading object on it.
class CPath {
public:
    CPath(const char* pDark, const char* pLight, const char* pFormat, uint64_t nWidth, uint64_t nHeight)
        : m_strFormat(pFormat),
          m_nWidth(nWidth),
          m_nHeight(nHeight),
          m_nBytes(StandIn::imageBytes(*StandIn::findPixelFormat(pFormat), nWidth, nHeight)),
          m_pDevice(StandIn::openDevice("sim:1?width=" + std::to_string(nWidth) + "&height=" + std::to_string(nHeight) +
                                        "&format=" + pFormat)),
          m_pShading(std::make_unique<Ext::Sc::Shading>(m_pDevice)) {
        m_pShading->ReferenceLoad(false, pDark);
        m_pShading->ReferenceLoad(true, pLight);
        m_pShading->ReferenceApply();
    }
    ~CPath() {
        m_pShading.reset();
        StandIn::closeDevice(m_pDevice);
    }
    CPath(const CPath&) = delete;
    CPath& operator=(const CPath&) = delete;

    void correct(void* pImage) { m_pShading->ReferenceAdd(m_strFormat.c_str(), m_nWidth, m_nHeight, pImage, m_nBytes); }

private:
    std::string m_strFormat;
    uint64_t m_nWidth, m_nHeight;
    std::size_t m_nBytes;
    Device* m_pDevice;
    std::unique_ptr<Ext::Sc::Shading> m_pShading;
};

}  // namespace

#define XAPEL2_CPP_PATH extern "C" __attribute__((visibility("default")))

/// Null where it fails.
XAPEL2_CPP_PATH void* cppOpen(const char* pDark, const char* pLight, const char* pFormat, uint64_t nWidth,
                              uint64_t nHeight) {
    try {
        return new CPath(pDark, pLight, pFormat, nWidth, nHeight);
    } catch (const std::exception&) {
        return nullptr;
    }
}

XAPEL2_CPP_PATH void cppClose(void* pPath) {
    delete static_cast<CPath*>(pPath);
}

/// Corrects so often, and yields the seconds that it took; below 0 where it fails.
XAPEL2_CPP_PATH double cppCorrect(void* pPath, void* pImage, uint64_t nCalls) {
    const auto tBegin = std::chrono::steady_clock::now();
    try {
        for (uint64_t i = 0; i < nCalls; ++i) {
            static_cast<CPath*>(pPath)->correct(pImage);
        }
    } catch (const std::exception&) {
        return -1.0;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - tBegin).count();
}
