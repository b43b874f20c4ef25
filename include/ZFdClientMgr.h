// The drive redirection plug-in as a host application sees it. The host creates one ZFdClientMgr
// for a connection and calls, in this order: constructor, SetListener, Init, Start, SendHandShake,
// PutMsg for each inbound channel message, Stop, Release, destructor. All of them run on one thread
// of the host's, except that PutMsg may have a thread of its own, which makes no call while Init,
// Stop or Release runs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

// Writes `size` bytes to the virtual channel. Returns the number of bytes written, which is `size`,
// or a negative number if that failed. The bytes are valid during the call only. Called from
// several threads at once. `data` may be null with `size` 0, which is a successful empty write.
using ChannelWriteFn = std::function<int(char* data, int size)>;

// Reports a metric event. `size` counts the text's terminating zero. The result is ignored.
using MetricReportFn = std::function<int(int code, char* text, unsigned size)>;

enum FDREDIR_UI_MSG : std::int32_t { FDREDIR_UI_MSG_NONE = 0 };

#pragma pack(push, 1)
struct ZUiEvent {
    FDREDIR_UI_MSG msg;
    void* context;
    const void* data;
};
#pragma pack(pop)

// Receives UI events. `context` is the host's own word and comes back in every event.
struct ZListener {
    void* context = nullptr;
    int (*callback)(ZUiEvent event) = nullptr;
};

class __attribute__((visibility("default"))) ZFdClientMgr {
public:
    ZFdClientMgr();

    // Calls neither Stop nor Release: the host has called both.
    ~ZFdClientMgr();

    ZFdClientMgr(const ZFdClientMgr&) = delete;
    ZFdClientMgr& operator=(const ZFdClientMgr&) = delete;

    // Takes copies of both callables. True if and only if neither is empty.
    bool Init(ChannelWriteFn write, MetricReportFn metric);

    // Takes effect for what Start creates, so it comes before Start.
    void SetListener(const ZListener& listener);

    // Starts the service. Always true.
    bool Start();

    // Writes the 15-byte handshake. Throws std::bad_function_call if Init was given no write
    // callable.
    bool SendHandShake();

    // Takes a copy of one whole inbound channel message of `dataSize` bytes. False if the message
    // was not taken: no data, no size, or no Init before.
    bool PutMsg(char* data, int dataSize);

    // Ends all threads, waiting at most 10 seconds for each. Always true. Start may follow again.
    bool Stop();

    // Frees what Init made, messages that are still queued included. Init may follow again.
    void Release();

private:
    struct Wiring;
    std::shared_ptr<Wiring> m_wiring;
};
