// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Command line and output that the benches share.

#pragma once

#include <string>

namespace XapelBench {

/// What a bench was asked for.
struct Options {
    bool bCsv = false;       ///< "NAME,NANOSECONDS" on stdout, all else on stderr
    bool bQuick = false;     ///< one short round on small images: results are checked, figures mean nothing
    unsigned nRounds = 11;   ///< rounds that each figure is the median of
    std::string strGroups;   ///< names by commas that are measured; empty: all
    std::string strFormats;  ///< the same for pixel formats

    /// Nanoseconds that a slice of a round lasts at least.
    double sliceNs() const { return bQuick ? 2e5 : 1e7; }
};

/// Reads --csv, --quick, --rounds N, --groups A,B and --formats A,B. @throws std::invalid_argument
Options parseOptions(int argc, char** argv);

/// True when the list is empty or holds the name.
bool isListed(const std::string& strList, const std::string& strName);

/// Prints a line for people.
void note(const Options& rOptions, const char* pFormat, ...) __attribute__((format(printf, 2, 3)));

/// Prints a figure for programs, when they were asked for.
void csv(const Options& rOptions, const std::string& strName, double dNs);

/// Calls fnBench and turns what it throws into a message and the program's result.
int guarded(int argc, char** argv, void (*fnBench)(const Options& rOptions));

}  // namespace XapelBench
