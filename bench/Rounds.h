// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Interleaved rounds: every candidate is timed once in each round, so that drift of the machine meets all alike, in an
// order drawn by chance, so that none of them comes behind the same one each time.
//
// Google Benchmark runs each benchmark to its end before the next one starts, and prints in formats of its own. Ratios
// between candidates that drift apart by 15 to 30 percent need rounds, so the benches bring these few lines along.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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

/// Calls fnBench and turns what it throws into a message and the program's result.
int guarded(int argc, char** argv, void (*fnBench)(const Options& rOptions));

/// What is timed.
struct Candidate {
    std::string strName;
    std::function<void(uint64_t nTimes)> fnRun;  ///< does the work nTimes times
    std::function<void()> fnPrepare{};           ///< called before each slice, not timed; may be empty
    uint64_t nUnit = 1;                          ///< nTimes is a multiple of it (buffers of a ring)
    /// A slice is exactly nUnit times, without a run beforehand that brings the candidate's data into the caches: for
    /// work that uses up what fnPrepare made.
    bool bOnce = false;
    /// Counts time by the clock on the wall. Otherwise the time is the thread's own on a processor, so that other
    /// programs that get their turn do not count.
    bool bWall = false;
};

class CRounds {
public:
    explicit CRounds(const Options& rOptions) : m_rOptions(rOptions) {}

    /// @return the candidate's index.
    std::size_t add(Candidate candidate);

    /// Runs all rounds, after one that finds out how often a candidate fits into a slice and is not counted.
    void run();

    const std::string& name(std::size_t i) const { return m_vecCandidates[i].strName; }
    /// Nanoseconds for one time: median over the rounds.
    double ns(std::size_t i) const;
    /// Distance of the quartiles over the rounds as a share of the median.
    double spread(std::size_t i) const;
    /// Median of the ratios inside each round.
    double ratio(std::size_t i, std::size_t iTo) const;
    /// The candidate with the least median of those named.
    std::size_t fastest(const std::vector<std::size_t>& rCandidates) const;
    /// Prints a candidate's figure under a name, for programs or for people.
    void print(std::size_t i, const std::string& strName) const;

private:
    double slice(const Candidate& rCandidate, uint64_t nTimes) const;

    const Options& m_rOptions;
    std::vector<Candidate> m_vecCandidates;
    std::vector<std::vector<double>> m_vecNs;  // by candidate and round, for one time
};

}  // namespace XapelBench
