// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Ownership and errors of GLib objects.

#pragma once

#include <memory>
#include <string>

#include <arv.h>

#include "standin/cameras/interface/Camera.h"
#include "xapel2/GenTLCodes.h"

namespace XAPEL2 {
namespace StandIn {

struct GlibUnref {
    void operator()(void* pObject) const { g_object_unref(pObject); }
};
struct GlibFree {
    void operator()(void* pMemory) const { g_free(pMemory); }
};
/// One reference to an object.
template <class tObject>
using GlibPtr = std::unique_ptr<tObject, GlibUnref>;

/// Where a call leaves its error.
class CGlibError {
public:
    CGlibError() = default;
    ~CGlibError() { g_clear_error(&m_pError); }
    CGlibError(const CGlibError&) = delete;
    CGlibError& operator=(const CGlibError&) = delete;

    GError** out() { return &m_pError; }
    bool isSet() const { return m_pError != nullptr; }
    bool is(ArvDeviceError eCode) const {
        return m_pError != nullptr && g_error_matches(m_pError, ARV_DEVICE_ERROR, eCode) != FALSE;
    }
    /// Another client has control of the camera.
    bool isDenied() const {
        return is(ARV_DEVICE_ERROR_NOT_CONTROLLER) || is(ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED);
    }
    std::string text() const { return isSet() ? m_pError->message : ""; }

    /// @throws CCameraError  there was an error.
    void check() const {
        if (isSet()) {
            throw CCameraError(isDenied() ? GC_ERR_ACCESS_DENIED : GC_ERR_IO, text());
        }
    }

private:
    GError* m_pError = nullptr;
};

}  // namespace StandIn
}  // namespace XAPEL2
