// The benchmarks of the plug-in beside OpenSSH's sftp-server and the bare system calls, in one run
// and interleaved, since a ratio is the only figure that means something on a shared machine.
#include <benchmark/benchmark.h>

#include <vector>

#include "ComparisonTable.h"
#include "ZLogger.h"

namespace {
// In front of what the caller says, which therefore goes before it.
std::vector<char*> withDefaults(int argc, char** argv) {
    static char repetitions[] = "--benchmark_repetitions=5";
    static char interleaving[] = "--benchmark_enable_random_interleaving=true";
    static char aggregates[] = "--benchmark_report_aggregates_only=true";
    std::vector<char*> arguments = {argv[0], repetitions, interleaving, aggregates};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    arguments.push_back(nullptr);
    return arguments;
}
}  // namespace

int main(int count, char** values) {
    std::vector<char*> arguments = withDefaults(count, values);
    int argc = static_cast<int>(arguments.size()) - 1;
    char** argv = arguments.data();
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_ERROR);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    ComparisonTable table;
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return 0;
}
