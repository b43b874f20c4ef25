#include "ComparisonTable.h"

#include <algorithm>
#include <cstdio>

namespace {
double rateOf(const std::map<std::string, double>& rates, const std::string& contestant) {
    const auto found = rates.find(contestant);
    return found == rates.end() ? 0 : found->second;
}

std::string cell(const char* format, double value) {
    std::string text(32, '\0');
    text.resize(static_cast<std::size_t>(
        std::max(0, std::snprintf(text.data(), text.size(), format, value))));
    return value > 0 ? text : "-";
}
}  // namespace

ComparisonTable::ComparisonTable() : ConsoleReporter(OO_None) {}

void ComparisonTable::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
        if (run.error_occurred || !(single || run.aggregate_name == "median")) continue;
        const std::string& name = run.run_name.function_name;
        const auto slash = name.rfind('/');
        const auto rate = run.counters.find("ops");
        if (slash == std::string::npos || rate == run.counters.end()) continue;
        const std::string work = name.substr(0, slash);
        const auto place = m_places.try_emplace(work, run.family_index).first->second;
        m_work[place].name = work;
        m_work[place].rates[name.substr(slash + 1)] = rate->second;
    }
}

void ComparisonTable::Finalize() {
    ConsoleReporter::Finalize();
    std::puts("\n| work | contestant | a second | : sftp-server | : bare calls |");
    std::puts("|---|---|---|---|---|");
    for (const auto& [place, work] : m_work) {
        const double sftp = rateOf(work.rates, "sftp");
        const double bare = rateOf(work.rates, "bare");
        for (const auto& [contestant, rate] : work.rates) {
            if (contestant == "sftp" || contestant == "bare") continue;
            std::printf("| %s | %s | %s | %s | %s |\n", work.name.c_str(), contestant.c_str(),
                        cell("%.0f", rate).c_str(),
                        cell("%.2f", sftp > 0 ? rate / sftp : 0).c_str(),
                        cell("%.2f", bare > 0 ? rate / bare : 0).c_str());
        }
    }
}
