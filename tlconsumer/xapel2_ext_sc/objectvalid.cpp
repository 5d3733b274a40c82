// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Object validity maps and time-stamp difference.

#include "objectvalid.h"

int xapel2InsertMap(void* pObject, long iValue, XapelObjectMap* pMap) {
    return pMap->m_mapObjects.try_emplace(pObject, iValue).second ? 1 : 0;
}

int xapel2DeleteMap(void* pObject, long iValue, XapelObjectMap* pMap) {
    const auto itEntry = pMap->m_mapObjects.find(pObject);
    if (itEntry == pMap->m_mapObjects.end() || itEntry->second != iValue) {
        return 0;
    }
    pMap->m_mapObjects.erase(itEntry);
    return 1;
}

int xapel2DeleteThisMap(void* pObject, XapelObjectMap* pMap) {
    return pMap->m_mapObjects.erase(pObject) != 0 ? 1 : 0;
}

int xapel2FindMap(XapelObjectMap& rMap, void* pObject) {
    return rMap.m_mapObjects.count(pObject) != 0 ? 1 : 0;
}

int xapel2FindMap(XapelObjectMap& rMap, void* pObject, long& riValue) {
    const auto itEntry = rMap.m_mapObjects.find(pObject);
    if (itEntry == rMap.m_mapObjects.end()) {
        return 0;
    }
    riValue = itEntry->second;
    return 1;
}

void timeval_diff(timeval& rResult, timeval a, timeval b) {
    if (a.tv_sec == b.tv_sec) {
        rResult.tv_sec = 0;
        rResult.tv_usec = a.tv_usec - b.tv_usec;
    } else {
        rResult.tv_sec = a.tv_sec - b.tv_sec - 1;
        rResult.tv_usec = a.tv_usec - b.tv_usec + 1000000;
    }
}
