// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The lock of every std::mutex of this program, failing on request.

#include "Locks.h"

#include <pthread.h>

#include <cerrno>

namespace {

thread_local uint64_t t_nUntilFailure = UINT64_MAX;
thread_local uint64_t t_nFailed = 0;
thread_local bool t_bFromThen = false;

}  // namespace

void Locks::failAfter(uint64_t nMore, bool bFromThen) {
    t_nUntilFailure = nMore;
    t_bFromThen = bFromThen;
    t_nFailed = 0;
}

uint64_t Locks::failed() {
    return t_nFailed;
}

extern "C" {

// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier): names that the linker gives
int __real_pthread_mutex_lock(pthread_mutex_t* pMutex);
// Visible: the sanitizers' libraries lock mutexes, too, and the linker looks at them.
__attribute__((visibility("default"))) int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* pMutex) {
    if (t_nUntilFailure == UINT64_MAX || t_nUntilFailure-- != 0) {
        return __real_pthread_mutex_lock(pMutex);
    }
    t_nUntilFailure = t_bFromThen ? 0 : UINT64_MAX;
    ++t_nFailed;
    return EAGAIN;
}
// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier)

}  // extern "C"
