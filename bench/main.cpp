// The benchmarks of the plug-in beside OpenSSH's sftp-server and the bare system calls, in one run
// and interleaved, since a ratio is the only figure that means something on a shared machine.
#include <benchmark/benchmark.h>

#include "ComparisonTable.h"
#include "ZLogger.h"

int main(int argc, char** argv) {
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_ERROR);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    ComparisonTable table;
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return 0;
}
