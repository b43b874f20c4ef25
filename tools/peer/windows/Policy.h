// The policy message: what the remote desktop decides about the drives it wants to see.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "peer/Bytes.h"

namespace peer::windows {

enum PolicyBit : std::uint32_t {
    kRedirect = 0x1,
    kLocalDisks = 0x2,
    kRemovableDisks = 0x8,
    kOpticalDisks = 0x10,
    kReadOnly = 0x20,
    kNetworkVolumes = 0x40,
    kLinuxDesktop = 0x400
};

struct Policy {
    std::uint32_t word =
        kRedirect | kLocalDisks | kRemovableDisks | kOpticalDisks | kNetworkVolumes;
    std::int32_t speed = 0;
    std::int32_t setEndOfFile = 1;
    std::int32_t setEndOfFileLimit = 0;  // megabytes; 0: none
    std::int32_t ramdisk = 0;
    std::int32_t compress = 0;
    std::int32_t compressPolicy = 0;
    std::int32_t compressThreshold = 900;
    std::int32_t compressBound = 512;
    std::string compressType;
    std::int32_t statisticTime = 0;
    std::int32_t logLevel = 0;
    std::int32_t rootMap = 0;  // 1: the whole file tree is a drive, within the filter

    // Lists, each one text with the delimiter between its entries.
    std::string mountParents;
    std::string localTypes, removableTypes, opticalTypes, networkTypes;
    char delimiter = '|';
    std::string filter;

    Bytes encode() const;

    // Throws BadMessage.
    static Policy decode(View message);
};

std::string joined(const std::vector<std::string>& entries, char delimiter);

}  // namespace peer::windows
