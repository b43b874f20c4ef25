// Prints, behind the usual output, what the benchmarks of one run say about each other: a row for
// each kind of work and contestant, with its rate as a ratio to sftp-server's and to that of the
// bare system calls.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Names have the form WORK/CONTESTANT, with the contestants "sftp", "bare" and any others.
class ComparisonTable : public benchmark::ConsoleReporter {
public:
    ComparisonTable();
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    using Rates = std::map<std::string, double>;  // operations a second, by contestant

    struct Work {
        std::string name;
        Rates rates;
    };

    std::map<std::int64_t, Work> m_work;           // in the order of registration
    std::map<std::string, std::int64_t> m_places;  // where a work stands in it
};
