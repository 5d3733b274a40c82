// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The codes of the host's exceptions.

#include "toolkit/text/Errors.h"

#include "xapel2/GenTLCodes.h"

namespace XAPEL2 {
namespace Toolkit {

namespace {

template <typename tError>
bool is(const Exceptions::IException& rError) {
    return dynamic_cast<const tError*>(&rError) != nullptr;
}

}  // namespace

int32_t gentlCode(const Exceptions::IException& rError) {
    using namespace Exceptions;
    using Test = bool (*)(const IException&);
    static constexpr struct {
        Test pfnIs;
        int32_t iCode;
    } CODES[] = {
        {is<Xapel_AbortException>, GC_ERR_ABORT},
        {is<Xapel_AccessDeniedException>, GC_ERR_ACCESS_DENIED},
        {is<Xapel_InvalidBufferException>, GC_ERR_INVALID_BUFFER},
        {is<Xapel_InvalidHandleException>, GC_ERR_INVALID_HANDLE},
        {is<Xapel_InvalidParameterException>, GC_ERR_INVALID_PARAMETER},
        {is<Xapel_NoDataException>, GC_ERR_NO_DATA},
        {is<Xapel_NotAvailableException>, GC_ERR_NOT_AVAILABLE},
        {is<Xapel_NotImplementedException>, GC_ERR_NOT_IMPLEMENTED},
        {is<Xapel_NotInitializedException>, GC_ERR_NOT_INITIALIZED},
        {is<Xapel_ObjectInvalidException>, GC_ERR_INVALID_HANDLE},
        {is<Xapel_ResourceInUseException>, GC_ERR_RESOURCE_IN_USE},
    };
    for (const auto& rEntry : CODES) {
        if (rEntry.pfnIs(rError)) {
            return rEntry.iCode;
        }
    }
    return GC_ERR_ERROR;
}

}  // namespace Toolkit
}  // namespace XAPEL2
