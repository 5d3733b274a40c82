// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The last error of a thread.

#include "standin/host/objects/Answers.h"

#include <cstring>

namespace XAPEL2 {
namespace StandIn {

namespace {

constexpr std::size_t TEXT_BYTES = 512;  // as Answers.h says

// No string: a failure is noted where there may be no memory left.
struct Failure {
    int32_t iCode;
    char acText[TEXT_BYTES];
};
thread_local Failure t_failure{};

}  // namespace

void setLastError(int32_t iCode, const char* pText) noexcept {
    t_failure.iCode = iCode;
    const std::size_t nText = strnlen(pText, TEXT_BYTES - 1);
    std::memcpy(t_failure.acText, pText, nText);
    t_failure.acText[nText] = '\0';
}

std::string joined(const char* pText, const char* pDetail) noexcept {
    try {
        return std::string(pText) + pDetail;
    } catch (...) {
        return {};
    }
}

LastError lastError() {
    return {t_failure.iCode, t_failure.acText};
}

void clearLastError() {
    setLastError(0, "");
}

}  // namespace StandIn
}  // namespace XAPEL2
