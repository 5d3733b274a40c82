// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The host's exceptions: all copies share one counted, immutable description.

#include "xapel2/XapelExceptions.h"

#include <atomic>
#include <string>
#include <utility>

#include "standin/host/objects/HostAccess.h"
#include "xapel2_standin/Host.h"

namespace XAPEL2 {
namespace Exceptions {

namespace {

struct Description {
    std::atomic<unsigned> nOwners{1};
    std::string strFile;
    std::string strFunction;
    std::string strText;
    unsigned uLine = 0;
};

Description* descriptionOf(void* pImpl) {
    return static_cast<Description*>(pImpl);
}

const char* orEmpty(const char* pText) {
    return pText == nullptr ? "" : pText;
}

void* share(void* pImpl) noexcept {
    descriptionOf(pImpl)->nOwners.fetch_add(1, std::memory_order_relaxed);
    return pImpl;
}

void drop(void* pImpl) noexcept {
    // Release and acquire: whoever frees the description has seen every other owner's last read.
    if (descriptionOf(pImpl)->nOwners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete descriptionOf(pImpl);
    }
}

}  // namespace

IException::IException(const char* pFile, unsigned uLine, const char* pFunction, const char* pDescription)
    : m_pImpl(new Description{{1}, orEmpty(pFile), orEmpty(pFunction), orEmpty(pDescription), uLine}) {}

IException::IException(const IException& rOther) noexcept : std::exception(rOther), m_pImpl(share(rOther.m_pImpl)) {}

IException& IException::operator=(const IException& rOther) noexcept {
    IException copy(rOther);
    std::swap(m_pImpl, copy.m_pImpl);
    return *this;
}

IException::~IException() {
    drop(m_pImpl);
}

String IException::GetErrorDescription() const {
    return String(descriptionOf(m_pImpl)->strText.c_str());
}

String IException::GetFileName() const {
    return String(descriptionOf(m_pImpl)->strFile.c_str());
}

String IException::GetFunctionName() const {
    return String(descriptionOf(m_pImpl)->strFunction.c_str());
}

const char* IException::what() const noexcept {
    return descriptionOf(m_pImpl)->strText.c_str();
}

#define XAPEL2_DEFINE_EXCEPTION(Kind)                                                                           \
    Xapel_##Kind##Exception::Xapel_##Kind##Exception(const char* pFile, unsigned uLine, const char* pFunction,  \
                                                     const char* pDescription)                                  \
        : IException(pFile, uLine, pFunction, pDescription) {}                                                  \
    Xapel_##Kind##Exception::Xapel_##Kind##Exception(const Xapel_##Kind##Exception& rOther) noexcept = default; \
    Xapel_##Kind##Exception::~Xapel_##Kind##Exception() = default

XAPEL2_DEFINE_EXCEPTION(Abort);
XAPEL2_DEFINE_EXCEPTION(AccessDenied);
XAPEL2_DEFINE_EXCEPTION(Error);
XAPEL2_DEFINE_EXCEPTION(InvalidBuffer);
XAPEL2_DEFINE_EXCEPTION(InvalidHandle);
XAPEL2_DEFINE_EXCEPTION(InvalidParameter);
XAPEL2_DEFINE_EXCEPTION(NoData);
XAPEL2_DEFINE_EXCEPTION(NotAvailable);
XAPEL2_DEFINE_EXCEPTION(NotImplemented);
XAPEL2_DEFINE_EXCEPTION(NotInitialized);
XAPEL2_DEFINE_EXCEPTION(ObjectInvalid);
XAPEL2_DEFINE_EXCEPTION(ResourceInUse);

#undef XAPEL2_DEFINE_EXCEPTION

}  // namespace Exceptions

unsigned StandIn::lineNumber(const Exceptions::IException& rException) {
    return Exceptions::descriptionOf(HostAccess::impl(rException))->uLine;
}

}  // namespace XAPEL2
