// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The roles of an exploration, played on the library's own gate, pin word and call count.

#include "Roles.h"

#include "RelacyThreading.h"

// The sources themselves, compiled over the primitives above.
#include "XapelAccessControl.cpp"
#include "XapelBypassSlot.cpp"
#include "XapelCallCount.h"
#include "XapelSharedCopy.h"

namespace {

constexpr unsigned FETCH = 1;
constexpr unsigned EXPLORE_ALL = ~0U;

/// What the threads share in one execution. The plain variables tell whether an access is ordered after all accesses
/// that it must not run beside: the model checker reports every race on them.
class World {
public:
    World() : m_Data(1), m_Hub(1), m_List(1) {
        g_uExploredAtomics = 3;  // the gate's first three: exclusive, users, the count of FETCH
        m_Gate.emplace();
        g_uExploredAtomics = EXPLORE_ALL;
        m_Slot.emplace();
        m_Life.emplace(hub());
        m_Calls.emplace();
        m_Copy.emplace();
        m_Copy->write(m_Pair);
        m_bHold.emplace(true);
        m_nInside.emplace(0U);
    }

    void play(char cWho) {
        for (unsigned i = 0; i < g_scenario.nRounds; ++i) {
            playOnce(cWho);
        }
        if (has('b') && (cWho == 'w' || cWho == 'c' || cWho == 'e')) {
            m_bHold->store(false, std::memory_order_relaxed);
        }
    }

private:
    struct Gate {
        XapelMutex mtx;
        XapelAccessControlData data;
    };

    /// Two words that are always alike, at first null.
    struct Pair {
        void* pOne = nullptr;
        void* pOther = nullptr;
    };

    static bool has(char cWho) { return g_scenario.strRoles.find(cWho) != std::string::npos; }
    void* hub() { return hubOf(&*m_Slot); }

    void playOnce(char cWho) {
        static const struct {
            char cWho;
            void (World::*pfnPlay)();
        } ROLES[] = {
            // The gate
            {'r', &World::read},            // shared, no flag
            {'f', &World::fetch},           // shared, publishes a flag
            {'b', &World::block},           // the same, and stays until it is cancelled or no writer is left
            {'w', &World::write},           // exclusive, waits while it is constructed
            {'c', &World::cancelAndWrite},  // exclusive, cancels when the flag tells it to, then waits
            {'e', &World::endGate},         // the same when all others are inside, and destroys the gate
            // The pin word
            {'l', &World::callLate},    // pins the hub and looks at it when it is alive
            {'h', &World::endHub},      // ends the hub
            {'n', &World::replaceHub},  // the same, then a new hub begins and ends in the same slot
            // Hub, pin word and gate together
            {'i', &World::intercept},   // pins the hub, publishes a flag at its gate, looks at hub and participant
            {'g', &World::changeList},  // exclusive, asks the participant to cancel when the flag tells it to
            {'s', &World::endService},  // turns all calls away, waits, destroys the participant
            {'d', &World::destroyHub},  // alone at the gate once, then ends the hub and destroys the gate
            // The call count
            {'o', &World::callOpenClose},      // counts itself and calls the participant that it finds on the list
            {'p', &World::removeParticipant},  // takes the participant off the list, waits, destroys it
            {'q', &World::closeCalls},         // closes the count, waits, ends the hub
            // The copy of the host functions
            {'v', &World::readPair},     // reads both words, under the lock where the copy is being replaced
            {'u', &World::replacePair},  // replaces both, and what the new ones lead to
        };
        for (const auto& rRole : ROLES) {
            if (rRole.cWho == cWho) {
                return (this->*rRole.pfnPlay)();
            }
        }
        throw std::invalid_argument("there is no such role");
    }

    void read() { enterShared(0, false); }
    void fetch() { enterShared(FETCH, false); }
    void block() { enterShared(FETCH, true); }
    void enterShared(unsigned uFlags, bool bBlocked) {
        const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eShared, uFlags);
        if (has('e')) {
            m_nInside->fetch_add(1, std::memory_order_relaxed);
        }
        RL_ASSERT(m_Data(RL_INFO).load() != 0);
        while (bBlocked && m_bHold->load(std::memory_order_relaxed)) {
            xapelSpinPause();
        }
        guard.WaitExclusive();  // means nothing to a shared guard
    }

    void writeAlone() {
        m_Data(RL_INFO).store(2);
        RL_ASSERT(m_Gate->data.Flags() == 0);
    }

    void write() {
        const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eExclusiveWait, 0);
        writeAlone();
    }

    void cancelAndWrite() {
        const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eExclusive, 0);
        if (!m_Gate->data.IsExclusive()) {
            if ((m_Gate->data.Flags() & FETCH) != 0) {
                m_bHold->store(false, std::memory_order_relaxed);
            }
            guard.WaitExclusive();
        }
        writeAlone();
    }

    void endGate() {
        while (m_nInside->load(std::memory_order_relaxed) + 1 != g_scenario.strRoles.size()) {
            xapelSpinPause();
        }
        cancelAndWrite();
        m_Gate.reset();
    }

    void intercept() {
        const CXapelHubPin pin(hub());
        if (!pin.isAlive()) {
            return;
        }
        const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eShared, FETCH);
        RL_ASSERT(m_Hub(RL_INFO).load() != 0);
        RL_ASSERT(m_List(RL_INFO).load() != 0);
        RL_ASSERT(m_Data(RL_INFO).load() != 0);
    }

    void changeList() {
        const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eExclusive, 0);
        if (!m_Gate->data.IsExclusive()) {
            if ((m_Gate->data.Flags() & FETCH) != 0) {
                RL_ASSERT(m_Data(RL_INFO).load() != 0);
            }
            guard.WaitExclusive();
        }
        m_List(RL_INFO).store(2);
    }

    void endService() {
        m_Life->refuseCalls();
        m_Life->waitForCalls();
        while (!m_Gate->data.IsEmpty()) {
            xapelSpinPause();
        }
        m_Data(RL_INFO).store(0);
    }

    void destroyHub() {
        {
            const CXapelAccessControl guard(m_Gate->mtx, m_Gate->data, CXapelAccessControl::eExclusiveWait, 0);
            m_List(RL_INFO).store(2);
        }
        m_Life.reset();
        m_Hub(RL_INFO).store(0);
        m_Gate.reset();
    }

    void callLate() {
        const CXapelHubPin pin(hub());
        if (pin.isAlive()) {
            RL_ASSERT(m_Hub(RL_INFO).load() != 0);
        }
    }

    void endHub() {
        m_Life.reset();
        m_Hub(RL_INFO).store(0);
    }

    void replaceHub() {
        endHub();
        m_Hub(RL_INFO).store(2);
        m_Life.emplace(hub());
        endHub();
    }

    void callOpenClose() {
        const CXapelCallCount::CEntry entry(*m_Calls);
        if (entry.isClosing()) {
            return;
        }
        RL_ASSERT(m_Hub(RL_INFO).load() != 0);
        if (copyList()) {
            RL_ASSERT(m_Data(RL_INFO).load() != 0);
        }
    }

    bool copyList() {
        const XapelLock lock(m_mtxLeaf);
        return m_bListed;
    }

    void removeParticipant() {
        {
            const XapelLock lock(m_mtxLeaf);
            m_bListed = false;
        }
        m_Calls->waitUntilNone();
        m_Data(RL_INFO).store(0);
    }

    void closeCalls() {
        m_Calls->close();
        m_Calls->waitUntilNone();
        m_Hub(RL_INFO).store(0);
    }

    void readPair() {
        Pair pair;
        if (!m_Copy->tryRead(pair, &Pair::pOne, &Pair::pOther)) {
            const XapelLock lock(m_mtxLeaf);
            pair = m_Pair;
        }
        RL_ASSERT(pair.pOne == pair.pOther);
        if (pair.pOne != nullptr) {
            RL_ASSERT(m_Data(RL_INFO).load() == 2);
        }
    }

    void replacePair() {
        const XapelLock lock(m_mtxLeaf);
        if (m_Pair.pOne == nullptr) {
            m_Data(RL_INFO).store(2);
        }
        m_Pair.pOne = m_Pair.pOther = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(m_Pair.pOne) + 1);
        m_Copy->write(m_Pair);
    }

    std::optional<Gate> m_Gate;
    std::optional<Slot> m_Slot;
    std::optional<CXapelHubLife> m_Life;
    std::optional<CXapelCallCount> m_Calls;
    std::optional<CXapelSharedCopy<Pair>> m_Copy;  // written with m_mtxLeaf
    Pair m_Pair;                                   // guarded by m_mtxLeaf
    XapelMutex m_mtxLeaf;
    bool m_bListed = true;  // guarded by m_mtxLeaf

    rl::var<int> m_Data;  // what the gate guards, or the participant; 0: destroyed
    rl::var<int> m_Hub;   // 0: destroyed
    rl::var<int> m_List;  // of participants, guarded by the gate

    // Between the roles alone. Relaxed, so that they order nothing that the explored sources leave unordered.
    std::optional<XapelAtomic<bool>> m_bHold;  // blocked readers stay inside
    std::optional<XapelAtomic<unsigned>> m_nInside;
};

/// An execution that fails leaves its world behind, so the worlds stand one after another in the same bytes.
alignas(World) unsigned char g_aWorld[sizeof(World)];

World& world() {
    return *std::launder(reinterpret_cast<World*>(g_aWorld));
}

}  // namespace

Scenario g_scenario;

void beginWorld() {
    ::new (g_aWorld) World;
}
void playRole(unsigned iThread) {
    world().play(g_scenario.strRoles[iThread]);
}
void endWorld() {
    world().~World();
}
