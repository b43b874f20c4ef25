// The plug-in alone, in the Windows dialect: requests go in through PutMsg, results come out of the
// write callable.
#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>

#include "Contest.h"
#include "PluginHost.h"
#include "TestTree.h"
#include "common/Comm/WireNumbers.h"

namespace {
constexpr std::uint32_t kOpenRead = 0x1100;       // read, fail if new
constexpr std::uint32_t kOpenReadWrite = 0x3100;  // read and write, fail if new
constexpr std::uint32_t kOpenFolder = 0x1104;
constexpr std::int32_t kNoMoreFiles = -201;
constexpr std::size_t kOffsetAt = 20;

PluginHost& plugin() {
    static PluginHost host(testTree().root());
    return host;
}

void queryByPlugin(benchmark::State& state, int depth) {
    const auto handle = plugin().open(testTree().readFile(), kOpenRead);
    auto request = plugin().queryRequest(handle);
    pump(
        state, depth, [&] { plugin().send(request); }, [] { plugin().receive(); });
    expect(plugin().lastStatus() == 0 && plugin().lastCount() == 92, "query failed");
    plugin().close(handle);
    countOperations(state);
}

// Sends the request again and again with the offset of the next block, then closes the handle.
void moveBlocksByPlugin(benchmark::State& state, std::int64_t handle, PluginHost::Message& request,
                        std::uint32_t size) {
    BlockWalk walk(size);
    pump(
        state, 1,
        [&] {
            storeLe(request.data() + kOffsetAt, std::uint64_t{walk.next()});
            plugin().send(request);
        },
        [] { plugin().receive(); });
    expect(plugin().lastStatus() == 0 && plugin().lastCount() == size, "read or write failed");
    plugin().close(handle);
    countOperations(state);
}

void readByPlugin(benchmark::State& state, std::uint32_t size) {
    const auto handle = plugin().open(testTree().readFile(), kOpenRead);
    auto request = plugin().readRequest(handle, 0, size);
    moveBlocksByPlugin(state, handle, request, size);
}

void writeByPlugin(benchmark::State& state, std::uint32_t size) {
    const auto handle = plugin().open(testTree().writeFile(), kOpenReadWrite);
    auto request = plugin().writeRequest(handle, 0, size);
    moveBlocksByPlugin(state, handle, request, size);
}

void listByPlugin(benchmark::State& state) {
    for (auto _ : state) {
        const auto handle = plugin().open(testTree().folder(), kOpenFolder);
        auto request = plugin().listRequest(handle, testTree().folder());
        do {
            plugin().send(request);
            plugin().receive();
        } while (plugin().lastStatus() == 0);
        expect(plugin().lastStatus() == kNoMoreFiles, "listing failed");
        plugin().close(handle);
    }
    countOperations(state);
}

[[maybe_unused]] const bool added = [] {
    for (const int depth : {1, 16}) {
        const std::string work = workName("plug-in alone: query file info", depth);
        add(work + "/plugin", queryByPlugin, depth);
        addOthersOfStat(work, depth);
    }
    for (const auto& [name, size] :
         {std::pair{"4 KiB", 4096U}, {"64 KiB", 65536U}, {"1 MiB", 1U << 20}}) {
        const std::string work = std::string("plug-in alone: read ") + name;
        add(work + "/plugin", readByPlugin, size);
        addOthersOfRead(work, 1, size);
    }
    add("plug-in alone: write 64 KiB/plugin", writeByPlugin, 65536U);
    addOthersOfWrite("plug-in alone: write 64 KiB", 1, 65536);
    add("plug-in alone: list 10,000 entries/plugin", listByPlugin);
    addOthersOfList("plug-in alone: list 10,000 entries");
    return true;
}();
}  // namespace
