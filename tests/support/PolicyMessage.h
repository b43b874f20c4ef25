// Builds the policy message of a server, field by field.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/Comm/WireNumbers.h"

struct PolicyMessage {
    // Redirection on, with local, removable, optical and network drives.
    static constexpr std::uint32_t kAllMedia = 0x5B;
    static constexpr std::uint32_t kReadOnly = 0x20;
    static constexpr std::uint32_t kLinuxDesktop = 0x400;

    std::uint32_t policy = kAllMedia;
    std::int32_t speed = 0;
    std::int32_t endOfFileEnable = 1;
    std::int32_t endOfFileSize = 100;  // MB
    std::int32_t ramdiskEnable = 0;
    std::int32_t compressEnable = 0;
    std::int32_t compressPolicy = 0;
    std::int32_t threshold = 900;
    std::int32_t sizeBound = 512;
    std::string compressType = {};
    std::int32_t statisticTime = 0;
    std::int32_t logLevel = 0;
    std::int32_t rootDirEnable = 0;
    std::string mountPath = "/media|/Volumes|/swdb/mnt|/home";
    std::string localFs = {};
    std::string removeFs = "vfat|ntfs|msdos|fuseblk";
    std::string cdromFs = "cd9660|iso9660|udf";
    std::string networkFs = "smbfs|afpfs|cifs";
    char delimiter = '|';
    std::string filterPath = "/var/log";

    std::vector<char> build() const {
        std::vector<char> out;
        put(out, std::uint16_t{521});
        put(out, std::uint16_t{0});  // map id and request tag
        put(out, policy);
        put(out, speed);
        put(out, std::uint64_t{0});  // reserved
        for (const std::int32_t value : {endOfFileEnable, endOfFileSize, ramdiskEnable,
                                         compressEnable, compressPolicy, threshold, sizeBound}) {
            put(out, value);
        }
        putText(out, compressType);
        for (const std::int32_t value : {statisticTime, logLevel, rootDirEnable}) put(out, value);
        for (const std::string* list : {&mountPath, &localFs, &removeFs, &cdromFs, &networkFs}) {
            putText(out, *list);
        }
        out.push_back(delimiter);
        putText(out, filterPath);
        return out;
    }

    // Where the length of the compress type stands, and behind it that of the nth string: 0 to 4
    // for the lists in their order, 5 for the filter path.
    static constexpr std::size_t kTypeLengthAt = 48;
    std::size_t lengthAt(int string) const {
        std::size_t at = kTypeLengthAt + 4 + compressType.size() + 12;
        const std::string* const lists[] = {&mountPath, &localFs, &removeFs, &cdromFs, &networkFs};
        for (int i = 0; i < string && i < 5; ++i) at += 4 + lists[i]->size();
        return string < 5 ? at : at + 1;  // the delimiter stands before the filter path
    }

private:
    template <std::integral T>
    static void put(std::vector<char>& out, T value) {
        char bytes[sizeof(T)];
        storeLe(bytes, value);
        for (const char byte : bytes) out.push_back(byte);
    }

    static void putText(std::vector<char>& out, std::string_view text) {
        put(out, static_cast<std::int32_t>(text.size()));
        out.insert(out.end(), text.begin(), text.end());
    }
};
