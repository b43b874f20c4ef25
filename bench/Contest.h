// What the benchmarks share: how many requests are in flight, what is counted, and the two that
// every contestant is measured by, sftp-server and the bare system calls.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>

void expect(bool right, const char* what);

// Keeps `depth` requests in flight: every pass of the loop is one request sent and one answered.
void pump(benchmark::State& state, int depth, const std::function<void()>& send,
          const std::function<void()>& receive);

void countOperations(benchmark::State& state);

// "read 4 KiB" or "read 4 KiB, 16 in flight".
std::string workName(const std::string& work, int depth);

// Registers WORK/CONTESTANT, unless sftp-server is the contestant and not there.
template <typename Function, typename... Arguments>
void add(const std::string& name, Function function, Arguments... arguments);

// The other contestants of one work. The first ones stat a file by its path or descriptor.
void addOthersOfStat(const std::string& work, int depth);
void addOthersOfRead(const std::string& work, int depth, std::size_t size);
void addOthersOfWrite(const std::string& work, int depth, std::size_t size);
void addOthersOfList(const std::string& work);

bool takesPart(const std::string& name);

template <typename Function, typename... Arguments>
void add(const std::string& name, Function function, Arguments... arguments) {
    if (!takesPart(name)) return;
    benchmark::RegisterBenchmark(name.c_str(), function, arguments...)->UseRealTime();
}
