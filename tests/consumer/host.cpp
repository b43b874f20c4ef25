#include <ZFdClientMgr.h>

#include <cstdio>

int main() {
    // Carries each message of the plug-in to the remote desktop; here it prints the bytes instead.
    const auto write = [](char* data, int size) {
        for (int i = 0; i < size; ++i) std::printf("%02X ", static_cast<unsigned char>(data[i]));
        std::puts("");
        return size;
    };
    const auto metric = [](int, char*, unsigned) { return 0; };

    ZFdClientMgr plugin;
    if (!plugin.Init(write, metric)) return 1;
    plugin.Start();
    plugin.SendHandShake();

    // For each message that arrives from the remote desktop: plugin.PutMsg(data, size);

    plugin.Stop();
    plugin.Release();
}
