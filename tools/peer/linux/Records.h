// Records that replies and announcements carry. What a record cannot say is a RemoteError or, in an
// announcement, a BadMessage.
#pragma once

#include <cstdint>
#include <string>

#include "peer/Bytes.h"
#include "peer/FileSystem.h"
#include "peer/linux/Protocol.h"

namespace peer::linux {

// `record` has kStatSize bytes.
Attributes parseStat(const char* record);

// `record` has kStatvfsSize bytes.
Volume parseStatvfs(const char* record);

struct PlugRecord {
    bool root = false;
    std::int32_t flag = 0, type = 0, policy = 0;
    std::string folder, computer;

    bool isReadOnly() const { return (policy & kReadOnlyPolicy) != 0; }

    // Throws BadMessage, also for a folder that is no plain name.
    static PlugRecord parse(View payload);
};

// Whether the text can be the name of an entry in a folder.
bool isName(std::string_view text);

}  // namespace peer::linux
