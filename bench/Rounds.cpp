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
#include <stdexcept>
#include <utility>

#include "xapel2/XapelExceptions.h"

namespace XapelBench {

namespace {

double quantile(std::vector<double> vValues, double dShare) {
    std::sort(vValues.begin(), vValues.end());
    const double dPlace = dShare * static_cast<double>(vValues.size() - 1);
    const auto iLow = static_cast<std::size_t>(dPlace);
    const std::size_t iHigh = std::min(iLow + 1, vValues.size() - 1);
    return vValues[iLow] + (dPlace - std::floor(dPlace)) * (vValues[iHigh] - vValues[iLow]);
}

double nowNs(clockid_t iClock) {
    timespec sTime = {};
    clock_gettime(iClock, &sTime);
    return static_cast<double>(sTime.tv_sec) * 1e9 + static_cast<double>(sTime.tv_nsec);
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Options sOptions;
    for (int i = 1; i < argc; ++i) {
        const std::string strOption = argv[i];
        const auto fnValue = [&] {
            if (++i == argc)
                throw std::invalid_argument(strOption + " needs a value");
            return std::string(argv[i]);
        };
        if (strOption == "--csv")
            sOptions.bCsv = true;
        else if (strOption == "--quick")
            sOptions.bQuick = true;
        else if (strOption == "--rounds")
            sOptions.nRounds = static_cast<unsigned>(std::clamp(std::stoi(fnValue()), 1, 1000));
        else if (strOption == "--groups")
            sOptions.strGroups = fnValue();
        else if (strOption == "--formats")
            sOptions.strFormats = fnValue();
        else
            throw std::invalid_argument(strOption + " is none of --csv --quick --rounds N --groups A,B --formats A,B");
    }
    if (sOptions.bQuick)
        sOptions.nRounds = 1;
    return sOptions;
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

std::size_t CRounds::add(Candidate sCandidate) {
    m_vCandidates.push_back(std::move(sCandidate));
    m_vNs.emplace_back();
    return m_vCandidates.size() - 1;
}

double CRounds::slice(const Candidate& rCandidate, uint64_t nTimes) const {
    const clockid_t iClock = rCandidate.bWall ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
    if (rCandidate.fnPrepare)
        rCandidate.fnPrepare();
    // As long as what is timed: those that share memory with the candidate before them find it in the caches.
    if (!rCandidate.bOnce)
        rCandidate.fnRun(nTimes);
    const double dBegin = nowNs(iClock);
    rCandidate.fnRun(nTimes);
    return nowNs(iClock) - dBegin;
}

void CRounds::run() {
    std::vector<uint64_t> vTimes;
    for (const Candidate& rCandidate : m_vCandidates) {
        const double dNs = slice(rCandidate, rCandidate.nUnit);
        const double dUnits = rCandidate.bOnce ? 1.0 : std::clamp(std::ceil(m_rOptions.sliceNs() / dNs), 1.0, 1e9);
        vTimes.push_back(rCandidate.nUnit * static_cast<uint64_t>(dUnits));
    }
    for (unsigned iRound = 0; iRound < m_rOptions.nRounds; ++iRound) {
        for (std::size_t i = 0; i < m_vCandidates.size(); ++i)
            m_vNs[i].push_back(slice(m_vCandidates[i], vTimes[i]) / static_cast<double>(vTimes[i]));
    }
}

double CRounds::ns(std::size_t i) const {
    return quantile(m_vNs[i], 0.5);
}

double CRounds::spread(std::size_t i) const {
    return (quantile(m_vNs[i], 0.75) - quantile(m_vNs[i], 0.25)) / ns(i);
}

double CRounds::ratio(std::size_t i, std::size_t iTo) const {
    std::vector<double> vRatios;
    for (std::size_t iRound = 0; iRound < m_vNs[i].size(); ++iRound)
        vRatios.push_back(m_vNs[i][iRound] / m_vNs[iTo][iRound]);
    return quantile(std::move(vRatios), 0.5);
}

std::size_t CRounds::fastest(const std::vector<std::size_t>& rCandidates) const {
    return *std::min_element(rCandidates.begin(), rCandidates.end(),
                             [this](std::size_t i, std::size_t iOther) { return ns(i) < ns(iOther); });
}

void CRounds::print(std::size_t i, const std::string& strName) const {
    if (m_rOptions.bCsv)
        std::printf("%s,%.1f\n", strName.c_str(), ns(i));
    else
        std::printf("%-28s %14.1f ns, spread %2.0f %%\n", strName.c_str(), ns(i), 100 * spread(i));
    std::fflush(stdout);
}

}  // namespace XapelBench
