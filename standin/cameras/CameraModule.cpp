// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loads the module that reaches real cameras.

#include "standin/cameras/CameraModule.h"

#include <string>

#include <dlfcn.h>

#include "xapel2/GenTLCodes.h"

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr const char* MODULE = "libxapel2_genicam_aravis.so.0";

// The folder that this library was loaded from, with a slash; empty when it is not known.
std::string ownFolder() {
    Dl_info info{};
    const void* const pHere = reinterpret_cast<const void*>(&cameraProvider);
    if (dladdr(pHere, &info) == 0 || info.dli_fname == nullptr) {
        return "";
    }
    const std::string strPath = info.dli_fname;
    return strPath.substr(0, strPath.rfind('/') + 1);
}

ICameraProvider& load() {
    void* pModule = dlopen((ownFolder() + MODULE).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pModule == nullptr) {
        const char* pReason = dlerror();  // NOLINT(concurrency-mt-unsafe): of this thread, in glibc
        throw CCameraError(GC_ERR_NOT_AVAILABLE, std::string("real cameras need the library ") + MODULE + " (" +
                                                     (pReason == nullptr ? "" : pReason) + ")");
    }
    const auto pfnProvider = reinterpret_cast<CameraProviderFunc>(dlsym(pModule, CAMERA_PROVIDER_SYMBOL));
    ICameraProvider* const pProvider = pfnProvider == nullptr ? nullptr : pfnProvider(CAMERA_PROVIDER_VERSION);
    if (pProvider == nullptr) {
        throw CCameraError(GC_ERR_NOT_AVAILABLE, std::string(MODULE) + " belongs to another version of this library");
    }
    return *pProvider;
}

}  // namespace

ICameraProvider& cameraProvider() {
    static ICameraProvider& rProvider = load();  // tried again after a failure
    return rProvider;
}

}  // namespace StandIn
}  // namespace XAPEL2
