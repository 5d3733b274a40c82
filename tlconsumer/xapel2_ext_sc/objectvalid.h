// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Object validity maps, which tell whether an address still belongs to a registered object; time-stamp difference.
//
// Nothing is locked: whoever shares a map between threads guards every call. Calls on different maps are independent.

#pragma once

#include <sys/time.h>

#include <unordered_map>

/// Live objects by address, each with a value whose meaning is its user's. Owned by its user.
struct XapelObjectMap {
    std::unordered_map<void*, long> m_mapObjects;
};

/// Adds an entry. Returns 1, or 0 when the address is there already (its value stays).
/// @throws std::bad_alloc  the map is unchanged.
int xapel2InsertMap(void* pObject, long iValue, XapelObjectMap* pMap);

/// Removes the entry of this address and this value. Returns 1, or 0 when there is none (the map is unchanged).
int xapel2DeleteMap(void* pObject, long iValue, XapelObjectMap* pMap);

/// Removes the entry of this address, whatever its value. Returns 1, or 0 when there is none.
int xapel2DeleteThisMap(void* pObject, XapelObjectMap* pMap);

/// Returns 1 when the address is present, else 0.
int xapel2FindMap(XapelObjectMap& rMap, void* pObject);

/// Returns 1 and the value when the address is present, else 0 with riValue left alone.
int xapel2FindMap(XapelObjectMap& rMap, void* pObject, long& riValue);

/// rResult = a - b, exact in total but not normalised: with different seconds one second is always lent to the
/// microseconds, which are then in 1..1999999; with equal seconds they are in -999999..999999. No overflow check.
void timeval_diff(timeval& rResult, timeval a, timeval b);
