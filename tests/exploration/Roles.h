// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// What the threads of an exploration do.

#pragma once

#include <string>

struct Scenario {
    std::string strRoles;  // one letter a thread, from the table in Roles.cpp
    unsigned nRounds = 1;  // how often each thread plays its role
};
extern Scenario g_scenario;

// One execution: begin, each thread its role, end. An execution in which something is found has no end.
void beginWorld();
void playRole(unsigned iThread);
void endWorld();
