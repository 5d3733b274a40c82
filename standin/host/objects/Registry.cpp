// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The registry of live addresses.

#include "standin/host/objects/Registry.h"

#include <iterator>
#include <mutex>
#include <unordered_map>

namespace XAPEL2 {
namespace StandIn {
namespace Registry {

namespace {

struct State {
    std::mutex mtx;  // guards the maps
    std::unordered_map<const void*, std::shared_ptr<CDevice>> mapDevices;
    std::unordered_map<const void*, std::shared_ptr<CDevice>> mapLists;
    std::unordered_map<const void*, StreamOfDevice> mapStreams;
};

State& state() {
    static State* const pState = new State;
    return *pState;
}

template <class tMap>
typename tMap::mapped_type findIn(const tMap& rMap, const void* pShell) {
    const auto it = rMap.find(pShell);
    return it == rMap.end() ? typename tMap::mapped_type{} : it->second;
}

// Forgets the device and every stream of it, listed or not. False when it was not known. The caller holds the lock.
bool forget(const CDevice& rDevice) {
    auto& rStreams = state().mapStreams;
    for (auto it = rStreams.begin(); it != rStreams.end();) {
        it = it->second.pDevice.get() == &rDevice ? rStreams.erase(it) : std::next(it);
    }
    state().mapLists.erase(rDevice.listShell());
    return state().mapDevices.erase(rDevice.shell()) != 0;
}

}  // namespace

void add(const std::shared_ptr<CDevice>& pDevice) {
    std::lock_guard<std::mutex> lock(state().mtx);
    try {
        state().mapDevices[pDevice->shell()] = pDevice;
        state().mapLists[pDevice->listShell()] = pDevice;
        for (const auto& pStream : pDevice->streams()) {
            state().mapStreams[pStream->shell()] = {pDevice, pStream};
        }
    } catch (...) {
        forget(*pDevice);  // nobody would close it
        throw;
    }
}

void addStream(const std::shared_ptr<CDevice>& pDevice, const std::shared_ptr<CStream>& pStream) {
    std::lock_guard<std::mutex> lock(state().mtx);
    if (state().mapDevices.count(pDevice->shell()) != 0) {
        state().mapStreams[pStream->shell()] = {pDevice, pStream};
    }
}

bool remove(const CDevice& rDevice) {
    std::lock_guard<std::mutex> lock(state().mtx);
    return forget(rDevice);
}

std::shared_ptr<CDevice> findDevice(const void* pShell) {
    std::lock_guard<std::mutex> lock(state().mtx);
    return findIn(state().mapDevices, pShell);
}

std::shared_ptr<CDevice> findDeviceOfList(const void* pListShell) {
    std::lock_guard<std::mutex> lock(state().mtx);
    return findIn(state().mapLists, pListShell);
}

std::shared_ptr<CStream> findStream(const void* pShell) {
    std::lock_guard<std::mutex> lock(state().mtx);
    const auto it = state().mapStreams.find(pShell);
    return it == state().mapStreams.end() ? nullptr : it->second.pStream;
}

StreamOfDevice findStreamOfDevice(const void* pShell) {
    std::lock_guard<std::mutex> lock(state().mtx);
    return findIn(state().mapStreams, pShell);
}

std::vector<std::shared_ptr<CDevice>> devices() {
    std::lock_guard<std::mutex> lock(state().mtx);
    std::vector<std::shared_ptr<CDevice>> vecDevices;
    for (const auto& rEntry : state().mapDevices) {
        vecDevices.push_back(rEntry.second);
    }
    return vecDevices;
}

}  // namespace Registry
}  // namespace StandIn
}  // namespace XAPEL2
