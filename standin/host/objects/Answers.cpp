// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The last error of a thread, and the note of its references.

#include "standin/host/objects/Answers.h"

#include <cstring>

#include "standin/host/objects/Throw.h"
#include "standin/processor/references/ReferenceDescription.h"
#include "xapel2_standin/ReferenceFile.h"

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
thread_local bool t_bOutliersKept = false;

std::string& noteOfThread() {
    thread_local std::string t_strNote;
    return t_strNote;
}

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

void setReferenceNote(const std::string& strJson) {
    if (!strJson.empty()) {
        try {
            checkNote(strJson);
        } catch (const CFileError& rError) {
            XAPEL2_RAISE(InvalidParameter, rError.what());
        }
    }
    std::string strNote = strJson;
    noteOfThread().swap(strNote);
}

void setOutliersKept(bool bKept) {
    t_bOutliersKept = bKept;
}

bool areOutliersKept() {
    return t_bOutliersKept;
}

const std::string& referenceNote() {
    return noteOfThread();
}

}  // namespace StandIn
}  // namespace XAPEL2
