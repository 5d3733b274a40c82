// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host tells an application beside its results: traces as they come, why an operation failed, and what became
// of a frame.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "xapel2/XapelExport.h"

namespace XAPEL2 {
namespace StandIn {

/// Receives the traces of the host, of the extension libraries and of the image processors.
/// @param[in] iLevel   0: ordinary, 1: worth knowing, 2: error path.
/// @param[in] rText    one line as a rule; borrowed for the call.
/// It runs on the thread that traces, which may be any, the camera's own too; on several at once. The operation that
/// traces waits for it, be it a fetch, the start of a camera or the destructor of an object. It may be called from
/// inside any of them, under locks of the library or the stream: a sink may read nodes, stream and buffer information
/// and the last error, but one that builds, destroys or switches an object, opens or closes a device or a stream,
/// starts or stops a camera, or fetches, waits for itself without end. What it throws is dropped. A trace from inside
/// the sink comes back to it.
using TraceSink = std::function<void(int32_t iLevel, const std::string& rText)>;

/// Sends every trace of the process to this sink instead of level 2 to stderr; null: back to stderr. The sink is
/// copied. A call that has begun may go on after this has returned, and what the sink owns lives as long: let it own
/// what it uses. Holds for the process; a library among others leaves it to the application.
/// @threads any, a sink included.
XAPEL2_HOST_API void setTraceSink(TraceSink fnSink);

/// An operation that failed.
struct LastError {
    int32_t iCode = 0;    ///< GenTL code; 0: none has failed
    std::string strText;  ///< why, in a few words without the names of modules; empty where the host cannot tell
};

/// The last error of the calling thread. It is set when a command of an image processor fails (whatever the library
/// makes of that), when a camera cannot be started, and when a fetch ends because the camera is lost. Success leaves
/// it alone: whoever asks after an operation clears it before. Texts are cut at 511 bytes.
/// @threads any; each has its own.
XAPEL2_HOST_API LastError lastError();
/// Forgets the last error of the calling thread. @threads any.
XAPEL2_HOST_API void clearLastError();

/// What became of the image of a frame, the values of BUFFER_INFO_STANDIN_CORRECTION.
enum eCorrection : uint64_t {
    eNotHanded = 0,      ///< no image processor got it: it came incomplete or without an image, or nobody corrects
    eCorrected = 1,      ///< its pixels are corrected
    eRecorded = 2,       ///< it is part of a recording, and as it was
    eLeftUntouched = 3,  ///< the processor has no correction for it; it is as it was
    eRefused = 4,        ///< the processor failed, or was busy; it is as it was
};

}  // namespace StandIn
}  // namespace XAPEL2
