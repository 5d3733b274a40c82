// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Explores the executions of the gate, the pin word and the call count: each thread plays a role, and a model checker
// runs every order of their steps and every value that a load may see.

#include "RelacyThreading.h"

#include "Roles.h"

namespace {

template <unsigned nThreads>
struct Suite : rl::test_suite<Suite<nThreads>, nThreads> {
    void before() { beginWorld(); }
    void thread(unsigned iThread) { playRole(iThread); }
    void after() { endWorld(); }
};

/// Explores one scenario, ROLES[:ROUNDS[:BOUND]] or ROLES:ROUNDS:~EXECUTIONS, and tells whether nothing was found.
/// BOUND limits how often threads lose their turn without giving it away; 0: no limit. Every order is tried then, and
/// each load sees the newest value or the one before it. EXECUTIONS are so many drawn at random, from the same seed
/// each time, in which a load may also see the value before that.
bool explore(const std::string& strScenario) {
    unsigned uBound = 0;
    bool bDrawn = false;
    std::istringstream scenario(strScenario);
    std::getline(scenario, g_scenario.strRoles, ':');
    g_scenario.nRounds = 1;
    scenario >> g_scenario.nRounds;
    scenario.ignore(1);
    if (scenario.peek() == '~') {
        bDrawn = true;
        scenario.ignore(1);
    }
    scenario >> uBound;
    if (g_scenario.strRoles.size() < 2 || g_scenario.strRoles.size() > 3) {
        throw std::invalid_argument(strScenario);
    }

    std::ostream silence(nullptr);
    rl::test_params params;
    params.search_type = bDrawn ? rl::sched_random : uBound == 0 ? rl::sched_full : rl::sched_bound;
    if (bDrawn) {
        params.iteration_count = uBound;
    } else {
        params.context_bound = uBound;
    }
    params.progress_stream = &silence;
    const bool bClean =
        g_scenario.strRoles.size() == 2 ? rl::simulate<Suite<2>>(params) : rl::simulate<Suite<3>>(params);
    std::cout << strScenario << (bClean ? ": explored: " : ": found: ") << rl::test_result_str(params.test_result)
              << '\n';
    return bClean;
}

}  // namespace

/// xapel2-exploration SCENARIO...: explores them until one finds something; returns 0 when none does.
int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        if (!explore(argv[i])) {
            return 1;
        }
    }
    std::cout << "all explored\n";
    return 0;
}
