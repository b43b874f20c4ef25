// Prints, behind the usual output, what the benchmarks of one run say about each other: a row for
// each kind of work, with the plug-in's rate as a ratio to sftp-server's and to the bare system
// calls'.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// Names have the form WORK/CONTESTANT, with the contestants "plugin", "sftp" and "bare".
class ComparisonTable : public benchmark::ConsoleReporter {
public:
    ComparisonTable();
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    using Rates = std::map<std::string, double>;  // operations a second, by contestant

    std::vector<std::string> m_order;
    std::map<std::string, Rates> m_work;
};
