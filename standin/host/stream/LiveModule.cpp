// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Loads the module that reaches real cameras.

#include "standin/host/stream/LiveModule.h"

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
    const void* const pHere = reinterpret_cast<const void*>(&liveProvider);
    if (dladdr(pHere, &info) == 0 || info.dli_fname == nullptr) {
        return "";
    }
    const std::string strPath = info.dli_fname;
    return strPath.substr(0, strPath.rfind('/') + 1);
}

ILiveProvider& load() {
    void* pModule = dlopen((ownFolder() + MODULE).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pModule == nullptr) {
        const char* pReason = dlerror();  // NOLINT(concurrency-mt-unsafe): of this thread, in glibc
        throw CLiveError(GC_ERR_NOT_AVAILABLE, std::string("real cameras need the library ") + MODULE + " (" +
                                                   (pReason == nullptr ? "" : pReason) + ")");
    }
    const auto pfnProvider = reinterpret_cast<LiveProviderFunc>(dlsym(pModule, LIVE_PROVIDER_SYMBOL));
    ILiveProvider* const pProvider = pfnProvider == nullptr ? nullptr : pfnProvider(LIVE_PROVIDER_VERSION);
    if (pProvider == nullptr) {
        throw CLiveError(GC_ERR_NOT_AVAILABLE, std::string(MODULE) + " belongs to another version of this library");
    }
    return *pProvider;
}

}  // namespace

ILiveProvider& liveProvider() {
    static ILiveProvider& rProvider = load();  // tried again after a failure
    return rProvider;
}

}  // namespace StandIn
}  // namespace XAPEL2
