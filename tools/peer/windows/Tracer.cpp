#include "peer/windows/Tracer.h"

#include <cstdio>

#include "peer/Text.h"
#include "peer/windows/Messages.h"
#include "peer/windows/Policy.h"
#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

constexpr std::size_t kShownEntries = 3;

std::string hex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string handleText(std::uint64_t handle) {
    return handle == kNoHandle ? "none" : std::to_string(handle);
}

std::string pathText(Cursor& from) {
    const auto size = from.number<std::uint16_t>("path size");
    return "'" + escaped(utf8FromUtf16(from.bytes(size, "path"))) + "'";
}

std::string listText(const char* name, const std::string& list) {
    return std::string(", ") + name + " '" + escaped(list) + "'";
}

std::string infoText(const ObjectInfo& info) {
    char mode[16];
    std::snprintf(mode, sizeof mode, "%06o", info.mode & 0xFFFFU);
    return "size " + std::to_string(info.size) + ", mode " + mode + ", attributes " +
           hex(info.mode >> 16);
}

std::string volumeText(const VolumeInfo& volume) {
    return "total " + std::to_string(volume.total) + ", free " + std::to_string(volume.available) +
           ", unit " + std::to_string(volume.unit) + ", serial " + hex(volume.serial);
}

std::string createText(Cursor from) {
    const std::string path = pathText(from);
    from.bytes(8, "handle");
    from.bytes(4, "result");
    const auto flags = from.number<std::uint32_t>("flags");
    const ObjectInfo info = ObjectInfo::parse(from);
    return path + ", flags " + hex(flags) + ", " + infoText(info);
}

std::string transferText(Cursor from) {
    const auto handle = from.number<std::uint64_t>("handle");
    const auto offset = from.number<std::uint64_t>("offset");
    const auto length = from.number<std::uint32_t>("length");
    return "handle " + handleText(handle) + ", offset " + std::to_string(offset) + ", length " +
           std::to_string(length);
}

std::string listText(Cursor from) {
    const auto handle = from.number<std::uint64_t>("handle");
    const std::string name = pathText(from);
    const auto flags = from.number<std::uint32_t>("flags");
    from.bytes(4, "unused word");
    const auto limit = from.number<std::int32_t>("limit");
    return "handle " + handleText(handle) + ", " + name + ", flags " + hex(flags) + ", limit " +
           std::to_string(limit);
}

std::string setInfoText(Cursor from) {
    const auto handle = from.number<std::uint64_t>("handle");
    from.bytes(4, "length");
    const ObjectInfo info = ObjectInfo::parse(from);
    return "handle " + handleText(handle) + ", " + infoText(info) + ", accessed " +
           std::to_string(info.accessed) + ", modified " + std::to_string(info.modified);
}

std::string setEndText(Cursor from) {
    const auto handle = from.number<std::uint64_t>("handle");
    from.bytes(4, "length");
    return "handle " + handleText(handle) + ", size " +
           std::to_string(from.number<std::int64_t>("size"));
}

std::string removeText(Cursor from) {
    const std::string path = pathText(from);
    return path + ", flags " + hex(from.number<std::uint32_t>("flags"));
}

std::string renameText(Cursor from) {
    const std::string source = pathText(from);
    const std::string target = pathText(from);
    return source + " to " + target + ", flags " + hex(from.number<std::uint32_t>("flags"));
}

std::string policyText(View message) {
    const Policy policy = Policy::decode(message);
    return "word " + hex(policy.word) + ", root map " + std::to_string(policy.rootMap) +
           listText("parents", policy.mountParents) + listText("local", policy.localTypes) +
           listText("removable", policy.removableTypes) + listText("optical", policy.opticalTypes) +
           listText("network", policy.networkTypes) + listText("filter", policy.filter);
}

std::string requestText(std::uint16_t code, View message) {
    const char* name = nameOf(code);
    Cursor from(message, name != nullptr ? name : "request");
    from.bytes(kHeaderSize, "header");
    switch (code) {
        case kCreate:
            return createText(from);
        case kRead:
        case kWrite:
            return transferText(from);
        case kList:
            return listText(from);
        case kSetInfo:
            return setInfoText(from);
        case kSetEndOfFile:
            return setEndText(from);
        case kRemove:
            return removeText(from);
        case kRename:
            return renameText(from);
        case kClose:
        case kFlush:
        case kQueryInfo:
        case kVolume:
        case kLocks:
            return "handle " + handleText(from.number<std::uint64_t>("handle"));
        case kMapName:
            return "id " + std::to_string(from.number<std::uint32_t>("id"));
        case kMapByName:
            return pathText(from);
        default:
            return {};
    }
}

std::string listingText(View message) {
    const Listing listing = parseListing(message);
    std::string text = std::to_string(listing.entries.size()) + " entries";
    for (std::size_t i = 0; i < listing.entries.size() && i < kShownEntries; ++i) {
        text += (i == 0 ? ": '" : ", '") + escaped(listing.entries[i].name) + "'";
    }
    if (listing.entries.size() > kShownEntries) text += ", ...";
    return text + (listing.ended ? ", ended" : "");
}

std::string createdText(View message) {
    const Created created = parseCreated(message);
    return "handle " + handleText(created.handle) + ", result " + std::to_string(created.result) +
           ", flags " + hex(created.flags) + ", " + infoText(created.info);
}

std::string resultText(std::uint16_t asked, View message) {
    if (asked == kMapCount) return std::to_string(parseMapCount(message)) + " maps";
    if (asked == 0 || (asked > kMapCount && asked <= kUnmapQuery)) return {};

    Cursor from(message, "result");
    from.bytes(kHeaderSize, "header");
    const auto status = from.number<std::int32_t>("status");
    const auto count = from.number<std::uint32_t>("count");
    std::string head = "status " + std::to_string(status) +
                       (status == 0 ? "" : " " + describeStatus(status)) + ", count " +
                       std::to_string(count);
    if (asked == kList && (status == 0 || status == kNoMoreFiles)) {
        return head + ", " + listingText(message);
    }
    if (status != 0) return head;
    switch (asked) {
        case kCreate:
            return head + ", " + createdText(message);
        case kQueryInfo:
        case kSetInfo:
        case kSetEndOfFile:
            return head + ", " + infoText(parseInfo(message));
        case kVolume:
            return head + ", " + volumeText(parseVolume(message));
        default:
            return head;
    }
}

std::string addedText(View message) {
    const DriveAdded drive = parseDriveAdded(message);
    return "id " + std::to_string(drive.id) + ", '" + escaped(drive.name) + "', " +
           volumeText(drive.volume);
}

std::string namedText(View message) {
    const DriveNamed drive = parseDriveNamed(message);
    return "id " + std::to_string(drive.id) + ", root " + std::to_string(drive.rootFlag) +
           ", type " + hex(static_cast<std::uint32_t>(drive.type)) + ", computer '" +
           escaped(drive.computer) + "', folder '" + escaped(drive.share) + "'";
}

std::string deletedText(View message) {
    const DriveDeleted drive = parseDriveDeleted(message);
    return "id " + std::to_string(drive.id) + ", '" + escaped(drive.name) + "'";
}

std::string fromDrivesText(const Header& header, std::uint16_t asked, View message) {
    switch (header.type) {
        case kResult:
            return resultText(asked, message);
        case kMapAdd:
        case kPrinterAdd:
            return addedText(message);
        case kDriveName:
            return namedText(message);
        case kMapDelete:
            return deletedText(message);
        case kHandshake:
            return "version " + std::to_string(parseHandshake(message).version);
        default:
            return {};
    }
}

std::string withName(const Header& header) {
    const char* name = nameOf(header.type);
    return name != nullptr ? name : "code " + std::to_string(header.type);
}

}  // namespace

std::string Tracer::line(Direction direction, View message) {
    std::string text = direction == Direction::kToDrives ? "> " : "< ";
    const auto separator = [&text] { return std::string(text.ends_with(' ') ? "" : ": "); };
    try {
        if (direction == Direction::kToDrives && message.size() >= 2 &&
            loadLe<std::uint16_t>(message.data()) == kPolicy) {
            text += "policy: " + policyText(message);
        } else {
            const Header header = Header::parse(message);
            std::uint16_t& asked = m_asked[header.seq];
            std::string detail;
            text += withName(header);
            if (direction == Direction::kToDrives) {
                asked = header.type;
                text += " map " + std::to_string(header.map) + " seq " + std::to_string(header.seq);
                detail = requestText(header.type, message);
            } else {
                if (header.type == kResult) {
                    text += " seq " + std::to_string(header.seq);
                    if (const char* name = nameOf(asked); name != nullptr) {
                        text += std::string(" of ") + name;
                    }
                }
                detail = fromDrivesText(header, asked, message);
            }
            if (!detail.empty()) text += ": " + detail;
        }
    } catch (const BadMessage& bad) {
        text += separator() + "MALFORMED: " + bad.what();
    } catch (const StatusError& bad) {
        text += separator() + "MALFORMED: " + bad.what();
    }
    return text + " (" + std::to_string(message.size()) + " bytes)";
}

}  // namespace peer::windows
