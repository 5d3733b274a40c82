// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the host tells an application beside its results: traces as they come.

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

}  // namespace StandIn
}  // namespace XAPEL2
