// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Writes the answer to a GenTL information query.

#pragma once

#include <cstdint>
#include <cstring>

#include "xapel2_standin/GenTL.h"

namespace XAPEL2 {
namespace StandIn {

/// Where an answer goes. A null pValue asks for the size; rSize is the size of the slot, then that of the value.
struct InfoSlot {
    int32_t* piType;  // may be null
    void* pValue;
    uint64_t* piSize;
};

/// Nothing is written unless GC_ERR_SUCCESS is returned.
inline int writeInfo(const InfoSlot& rSlot, int32_t iType, const void* pSource, uint64_t nBytes) {
    if (rSlot.piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (rSlot.pValue != nullptr) {
        if (*rSlot.piSize < nBytes) {
            return GC_ERR_BUFFER_TOO_SMALL;
        }
        std::memcpy(rSlot.pValue, pSource, nBytes);
    }
    *rSlot.piSize = nBytes;
    if (rSlot.piType != nullptr) {
        *rSlot.piType = iType;
    }
    return GC_ERR_SUCCESS;
}

inline int writeUint64(const InfoSlot& rSlot, uint64_t iValue) {
    return writeInfo(rSlot, INFO_DATATYPE_UINT64, &iValue, sizeof iValue);
}

inline int writeSize(const InfoSlot& rSlot, std::size_t nValue) {
    return writeInfo(rSlot, INFO_DATATYPE_SIZET, &nValue, sizeof nValue);
}

inline int writeBool(const InfoSlot& rSlot, bool bValue) {
    const uint8_t uValue = bValue ? 1 : 0;
    return writeInfo(rSlot, INFO_DATATYPE_BOOL8, &uValue, sizeof uValue);
}

inline int writeText(const InfoSlot& rSlot, const char* pText) {
    return writeInfo(rSlot, INFO_DATATYPE_STRING, pText, std::strlen(pText) + 1);
}

}  // namespace StandIn
}  // namespace XAPEL2
