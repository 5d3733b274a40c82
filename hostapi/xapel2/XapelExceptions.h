// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's exception types. The host library exports them, so that a catch works across libraries.

#pragma once

#include <exception>

#include "xapel2/XapelExport.h"
#include "xapel2/XapelString.h"

namespace XAPEL2 {

struct HostAccess;

namespace Exceptions {

/// Base of every host exception.
/// @threads an exception object may be copied and read from any thread.
class XAPEL2_HOST_API IException : public std::exception {
public:
    IException(const IException& rOther) noexcept;             ///< Shares the texts.
    IException& operator=(const IException& rOther) noexcept;  ///< Shares the texts.
    ~IException() override;

    // The order of these three is part of the contract. The library's traces show the last and the first.
    virtual String GetErrorDescription() const;  ///< What went wrong.
    virtual String GetFileName() const;          ///< Source file of the throw, as whoever threw it names it.
    virtual String GetFunctionName() const;      ///< Short name of the throwing function.

    /// The description; borrowed from this exception and its copies.
    const char* what() const noexcept override;

protected:
    /// Copies the texts: source file and line of the throw, throwing function, description.
    IException(const char* pFile, unsigned uLine, const char* pFunction, const char* pDescription);

private:
    friend struct XAPEL2::HostAccess;
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

/// A fetch was cancelled.
XAPEL2_DECLARE_EXCEPTION(Abort);
/// The access is not permitted now.
XAPEL2_DECLARE_EXCEPTION(AccessDenied);
/// The operation failed for another reason.
XAPEL2_DECLARE_EXCEPTION(Error);
/// A buffer cannot be used.
XAPEL2_DECLARE_EXCEPTION(InvalidBuffer);
/// A handle belongs to nothing alive.
XAPEL2_DECLARE_EXCEPTION(InvalidHandle);
/// An argument is out of its range or means nothing.
XAPEL2_DECLARE_EXCEPTION(InvalidParameter);
/// There is nothing to be had yet.
XAPEL2_DECLARE_EXCEPTION(NoData);
/// A node, device or file is not there.
XAPEL2_DECLARE_EXCEPTION(NotAvailable);
/// The host lacks the operation.
XAPEL2_DECLARE_EXCEPTION(NotImplemented);
/// The host or the object is not ready.
XAPEL2_DECLARE_EXCEPTION(NotInitialized);
/// An object cannot be used any more, or not at all.
XAPEL2_DECLARE_EXCEPTION(ObjectInvalid);
/// Something else is using it.
XAPEL2_DECLARE_EXCEPTION(ResourceInUse);

#undef XAPEL2_DECLARE_EXCEPTION

}  // namespace Exceptions
}  // namespace XAPEL2
