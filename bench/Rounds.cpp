// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Interleaved rounds.

#include "Rounds.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <exception>
#include <numeric>
#include <random>
#include <stdexcept>
#include <utility>

#include "xapel2/XapelExceptions.h"

namespace XapelBench {

namespace {

double quantile(std::vector<double> vecValues, double dShare) {
    std::sort(vecValues.begin(), vecValues.end());
    const double dPlace = dShare * static_cast<double>(vecValues.size() - 1);
    const auto iLow = static_cast<std::size_t>(dPlace);
    const std::size_t iHigh = std::min(iLow + 1, vecValues.size() - 1);
    return vecValues[iLow] + (dPlace - std::floor(dPlace)) * (vecValues[iHigh] - vecValues[iLow]);
}

double nowNs(clockid_t iClock) {
    timespec time = {};
    clock_gettime(iClock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string strOption = argv[i];
        const auto fnValue = [&] {
            if (++i == argc) {
                throw std::invalid_argument(strOption + " needs a value");
            }
            return std::string(argv[i]);
        };
        if (strOption == "--csv") {
            options.bCsv = true;
        } else if (strOption == "--quick") {
            options.bQuick = true;
        } else if (strOption == "--rounds") {
            options.nRounds = static_cast<unsigned>(std::clamp(std::stoi(fnValue()), 1, 1000));
        } else if (strOption == "--groups") {
            options.strGroups = fnValue();
        } else if (strOption == "--formats") {
            options.strFormats = fnValue();
        } else {
            throw std::invalid_argument(strOption + " is none of --csv --quick --rounds N --groups A,B --formats A,B");
        }
    }
    if (options.bQuick) {
        options.nRounds = 1;
    }
    return options;
}

bool isListed(const std::string& strList, const std::string& strName) {
    return strList.empty() || ("," + strList + ",").find("," + strName + ",") != std::string::npos;
}

void note(const Options& rOptions, const char* pFormat, ...) {
    std::FILE* const pOut = rOptions.bCsv ? stderr : stdout;
    va_list args;
    va_start(args, pFormat);
    std::vfprintf(pOut, pFormat, args);
    va_end(args);
    std::fputc('\n', pOut);
    std::fflush(pOut);
}

int guarded(int argc, char** argv, void (*fnBench)(const Options& rOptions)) {
    try {
        fnBench(parseOptions(argc, argv));
        return 0;
    } catch (const XAPEL2::Exceptions::IException& rError) {
        std::fprintf(stderr, "%s: %s\n", argv[0], rError.GetErrorDescription().get());
    } catch (const std::exception& rError) {
        std::fprintf(stderr, "%s: %s\n", argv[0], rError.what());
    }
    return 1;
}

std::size_t CRounds::add(Candidate candidate) {
    m_vecCandidates.push_back(std::move(candidate));
    m_vecNs.emplace_back();
    return m_vecCandidates.size() - 1;
}

double CRounds::slice(const Candidate& rCandidate, uint64_t nTimes) const {
    const clockid_t iClock = rCandidate.bWall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
    if (rCandidate.fnPrepare) {
        rCandidate.fnPrepare();
    }
    // As long as what is timed: those that share memory with the candidate before them find it in the caches.
    if (!rCandidate.bOnce) {
        rCandidate.fnRun(nTimes);
    }
    const double dBegin = nowNs(iClock);
    rCandidate.fnRun(nTimes);
    return nowNs(iClock) - dBegin;
}

void CRounds::run() {
    std::vector<uint64_t> vecTimes;
    for (const Candidate& rCandidate : m_vecCandidates) {
        const double dNs = slice(rCandidate, rCandidate.nUnit);
        const double dUnits = rCandidate.bOnce ? 1.0 : std::clamp(std::ceil(m_rOptions.sliceNs() / dNs), 1.0, 1e9);
        vecTimes.push_back(rCandidate.nUnit * static_cast<uint64_t>(dUnits));
    }
    std::vector<std::size_t> vecOrder(m_vecCandidates.size());
    std::iota(vecOrder.begin(), vecOrder.end(), std::size_t{0});
    std::mt19937 random(1);
    for (unsigned iRound = 0; iRound < m_rOptions.nRounds; ++iRound) {
        std::shuffle(vecOrder.begin(), vecOrder.end(), random);
        for (const std::size_t i : vecOrder) {
            m_vecNs[i].push_back(slice(m_vecCandidates[i], vecTimes[i]) / static_cast<double>(vecTimes[i]));
        }
    }
}

double CRounds::ns(std::size_t i) const {
    return quantile(m_vecNs[i], 0.5);
}

double CRounds::spread(std::size_t i) const {
    return (quantile(m_vecNs[i], 0.75) - quantile(m_vecNs[i], 0.25)) / ns(i);
}

double CRounds::ratio(std::size_t i, std::size_t iTo) const {
    std::vector<double> vecRatios;
    for (std::size_t iRound = 0; iRound < m_vecNs[i].size(); ++iRound) {
        vecRatios.push_back(m_vecNs[i][iRound] / m_vecNs[iTo][iRound]);
    }
    return quantile(std::move(vecRatios), 0.5);
}

std::size_t CRounds::fastest(const std::vector<std::size_t>& rCandidates) const {
    return *std::min_element(rCandidates.begin(), rCandidates.end(),
                             [this](std::size_t i, std::size_t iOther) { return ns(i) < ns(iOther); });
}

void CRounds::print(std::size_t i, const std::string& strName) const {
    if (m_rOptions.bCsv) {
        std::printf("%s,%.1f\n", strName.c_str(), ns(i));
    } else {
        std::printf("%-28s %14.1f ns, spread %2.0f %%\n", strName.c_str(), ns(i), 100 * spread(i));
    }
    std::fflush(stdout);
}

}  // namespace XapelBench
