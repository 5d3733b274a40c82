// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's exception types. The host library exports them, so that a catch works across libraries.

#pragma once

#include <exception>

#include "xapel2/XapelExport.h"
#include "xapel2/XapelString.h"

namespace XAPEL2 {
namespace Exceptions {

/// Base of every host exception.
/// @threads an exception object may be copied and read from any thread.
class XAPEL2_HOST_API IException : public std::exception {
public:
    IException(const IException& rOther) noexcept;
    IException& operator=(const IException& rOther) noexcept;
    ~IException() override;

    virtual String GetErrorDescription() const;
    virtual String GetFileName() const;
    virtual String GetFunctionName() const;

    /// The description; borrowed from this exception and its copies.
    const char* what() const noexcept override;

    /// Line of the throw in GetFileName().
    unsigned GetLineNumber() const noexcept;

protected:
    IException(const char* pFile, unsigned uLine, const char* pFunction, const char* pDescription);

private:
    void* m_pImpl;
};

// One class a kind: (source file, line of the throw, throwing function's short name, description).
// The host library writes the destructors, which anchors each type there.
#define XAPEL2_DECLARE_EXCEPTION(Kind)                                                                               \
    class XAPEL2_HOST_API Xapel_##Kind##Exception : public IException {                                              \
    public:                                                                                                          \
        Xapel_##Kind##Exception(const char* pFile, unsigned uLine, const char* pFunction, const char* pDescription); \
        Xapel_##Kind##Exception(const Xapel_##Kind##Exception&) noexcept;                                            \
        ~Xapel_##Kind##Exception() override;                                                                         \
    }

XAPEL2_DECLARE_EXCEPTION(Abort);
XAPEL2_DECLARE_EXCEPTION(AccessDenied);
XAPEL2_DECLARE_EXCEPTION(Error);
XAPEL2_DECLARE_EXCEPTION(InvalidBuffer);
XAPEL2_DECLARE_EXCEPTION(InvalidHandle);
XAPEL2_DECLARE_EXCEPTION(InvalidParameter);
XAPEL2_DECLARE_EXCEPTION(NoData);
XAPEL2_DECLARE_EXCEPTION(NotAvailable);
XAPEL2_DECLARE_EXCEPTION(NotImplemented);
XAPEL2_DECLARE_EXCEPTION(NotInitialized);
XAPEL2_DECLARE_EXCEPTION(ObjectInvalid);
XAPEL2_DECLARE_EXCEPTION(ResourceInUse);

#undef XAPEL2_DECLARE_EXCEPTION

}  // namespace Exceptions
}  // namespace XAPEL2
