// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Queries on a buffer that the host's fetch delivered.
//
// @threads any thread that has the buffer, one query at a time.

#pragma once

#include <cstdint>
#include <string>

#include "xapel2/XapelExport.h"

/// Writes one property of a buffer (GenTL DSGetBufferInfo). In: size of the slot; out: type and size of the value.
typedef int (*BufferInfoFunc)(int32_t iInfoCmd, int32_t* piType, void* pValue, uint64_t* piSize, void* pBuffer);

/// Writes the PFNC name of a buffer's pixel format.
typedef int (*BufferGetPixelFormatFunc)(std::string& rPixelFormat, void* pBuffer);

extern "C" {

/// Yields the query function of this buffer; the out-variable is left alone when there is none.
XAPEL2_HOST_API int getFuncPtr_BufferInfo(void* pBuffer, BufferInfoFunc* ppfn);
/// As getFuncPtr_BufferInfo.
XAPEL2_HOST_API int getFuncPtr_BufferGetPixelFormat(void* pBuffer, BufferGetPixelFormatFunc* ppfn);

}  // extern "C"
