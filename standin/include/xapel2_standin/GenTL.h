// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The GenTL 1.6 codes, commands and data types that pass between the host and an application, beside those that the
// library knows.

#pragma once

#include "xapel2/GenTLCodes.h"

// Results (GC_ERROR).
enum : int32_t {
    GC_ERR_INVALID_ADDRESS = -1015,
    GC_ERR_BUFFER_TOO_SMALL = -1016,
};

// Buffer information commands (BUFFER_INFO_CMD) and the type of their value.
enum : int32_t {
    BUFFER_INFO_TIMESTAMP = 3,     // UINT64
    BUFFER_INFO_IS_QUEUED = 5,     // BOOL8
    BUFFER_INFO_XOFFSET = 12,      // SIZET, pixels
    BUFFER_INFO_YOFFSET = 13,      // SIZET, pixels
    BUFFER_INFO_XPADDING = 14,     // SIZET, bytes per line
    BUFFER_INFO_FRAMEID = 16,      // UINT64
    BUFFER_INFO_PIXELFORMAT = 20,  // UINT64, PFNC
    BUFFER_INFO_CUSTOM_ID = 1000,
};

// Stream information commands (STREAM_INFO_CMD).
enum : int32_t {
    STREAM_INFO_ID = 0,                  // STRING
    STREAM_INFO_NUM_DELIVERED = 1,       // UINT64
    STREAM_INFO_NUM_UNDERRUN = 2,        // UINT64
    STREAM_INFO_NUM_ANNOUNCED = 3,       // SIZET
    STREAM_INFO_NUM_QUEUED = 4,          // SIZET
    STREAM_INFO_NUM_AWAIT_DELIVERY = 5,  // SIZET
    STREAM_INFO_NUM_STARTED = 6,         // SIZET
    STREAM_INFO_PAYLOAD_SIZE = 7,        // SIZET, bytes
    STREAM_INFO_IS_GRABBING = 8,         // BOOL8
};

// Types of an information value (INFO_DATATYPE).
enum : int32_t {
    INFO_DATATYPE_STRING = 1,
    INFO_DATATYPE_UINT64 = 8,
    INFO_DATATYPE_PTR = 10,
    INFO_DATATYPE_BOOL8 = 11,
    INFO_DATATYPE_SIZET = 12,
};
