// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The GenTL 1.6 codes, commands and data types that pass between the host and the library.

#pragma once

#include <cstdint>

// Results (GC_ERROR). 0 is success, every negative value an error. The library knows one host exception for each of
// these.
enum : int32_t {
    GC_ERR_SUCCESS = 0,
    GC_ERR_ERROR = -1001,
    GC_ERR_NOT_INITIALIZED = -1002,
    GC_ERR_NOT_IMPLEMENTED = -1003,
    GC_ERR_RESOURCE_IN_USE = -1004,
    GC_ERR_ACCESS_DENIED = -1005,
    GC_ERR_INVALID_HANDLE = -1006,
    GC_ERR_INVALID_ID = -1007,
    GC_ERR_NO_DATA = -1008,
    GC_ERR_INVALID_PARAMETER = -1009,
    GC_ERR_IO = -1010,
    GC_ERR_TIMEOUT = -1011,
    GC_ERR_ABORT = -1012,
    GC_ERR_INVALID_BUFFER = -1013,
    GC_ERR_NOT_AVAILABLE = -1014,
};

// Buffer information commands (BUFFER_INFO_CMD) and the type of their value.
enum : int32_t {
    BUFFER_INFO_BASE = 0,           // PTR
    BUFFER_INFO_SIZE = 1,           // SIZET, bytes
    BUFFER_INFO_IS_INCOMPLETE = 7,  // BOOL8
    BUFFER_INFO_SIZE_FILLED = 9,    // SIZET, bytes
    BUFFER_INFO_WIDTH = 10,         // SIZET, pixels
    BUFFER_INFO_HEIGHT = 11,        // SIZET, pixels
    BUFFER_INFO_IMAGEPRESENT = 17,  // BOOL8
    BUFFER_INFO_IMAGEOFFSET = 18,   // SIZET, bytes
};

// The type that a query is begun with (INFO_DATATYPE); the host may write another one.
enum : int32_t {
    INFO_DATATYPE_CUSTOM_ID = 1000,
};
