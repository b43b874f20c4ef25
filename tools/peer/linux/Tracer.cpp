#include "peer/linux/Tracer.h"

#include <cstdio>

#include "peer/Text.h"
#include "peer/linux/Messages.h"
#include "peer/linux/Results.h"

namespace peer::linux {

namespace {

constexpr std::size_t kShownEntries = 3;

std::string octal(std::uint64_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%06llo", static_cast<unsigned long long>(value));
    return text;
}

std::string hex(std::int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
    return text;
}

std::string textOfField(Cursor& from, std::string_view field) {
    const auto size = from.number<std::uint64_t>(field);
    const std::string_view text = textOf(from.bytes(size, field));
    return "'" + escaped(text.substr(0, text.find('\0'))) + "'";
}

std::string numberText(Cursor& from, const char* name) {
    return std::string(", ") + name + " " + std::to_string(from.number<std::int64_t>(name));
}

std::string requestText(std::int32_t code, Cursor from) {
    std::string text = textOfField(from, "path");
    switch (code) {
        case kMknod:
        case kMkdir:
        case kChmod:
            return text + ", mode " + octal(from.number<std::uint64_t>("mode"));
        case kSymlink:
        case kRename:
        case kLink:
            return text + " to " + textOfField(from, "second path");
        case kTruncate:
        case kWrite:
            return text + numberText(from, "size");
        case kAccess:
            return text + numberText(from, "mask");
        case kRead: {
            from.bytes(8 + kFileInfoSize, "file record");
            const std::string size = numberText(from, "length");
            return text + numberText(from, "offset") + size;
        }
        case kReaddir:
            from.bytes(8 + kFileInfoSize + 8, "file record");
            return text + numberText(from, "size");
        default:
            return text;
    }
}

std::string attributesText(const Attributes& attributes) {
    return ", mode " + octal(attributes.mode) + ", size " + std::to_string(attributes.size);
}

std::string blockText(View message) {
    const Block block = parseReaddir(message);
    if (!block.present) return ", no block";
    std::string text = ", " + std::to_string(block.entries.size()) + " entries";
    for (std::size_t i = 0; i < block.entries.size() && i < kShownEntries; ++i) {
        text += (i == 0 ? ": '" : ", '") + escaped(block.entries[i].name) + "'";
    }
    return text + (block.entries.size() > kShownEntries ? ", ..." : "");
}

std::string replyText(const Head& head, View message) {
    std::string text = "res " + std::to_string(head.res);
    if (head.res < 0 && head.subtype != kReadlink) return text + " " + errorOf(head.res).what();
    switch (head.subtype) {
        case kGetattr:
            return text + attributesText(parseGetattr(message));
        case kReadlink:
            return text + ", '" + escaped(parseReadlink(message)) + "'";
        case kReaddir:
            return text + blockText(message);
        default:
            return text;
    }
}

std::string controlText(const Head& head, View message) {
    if (head.subtype == kPlug) {
        const PlugRecord plug = PlugRecord::parse(payloadOf(message));
        return "'" + escaped(plug.folder) + "', computer '" + escaped(plug.computer) + "', type " +
               hex(plug.type) + ", policy " + hex(plug.policy);
    }
    return head.subtype == kMap || head.subtype == kUnmap ? "res " + std::to_string(head.res)
                                                          : std::string();
}

std::string headText(const Head& head) {
    const char* name = nameOf(head.type, head.subtype);
    std::string text = name != nullptr ? name
                                       : "class " + std::to_string(head.type) + " code " +
                                             std::to_string(head.subtype);
    text += " map " + std::to_string(head.map);
    return head.type == kOperation ? text + " idx " + std::to_string(head.idx) : text;
}

}  // namespace

std::string Tracer::line(Direction direction, View message) {
    // A frame begins with zeros, and no message of the other dialect does.
    if (message.size() < 2 || loadLe<std::uint16_t>(message.data()) != 0) {
        return m_before.line(direction, message);
    }
    std::string text = direction == Direction::kToDrives ? "> " : "< ";
    const auto malformed = [&text](const std::exception& bad) {
        text += std::string(text.ends_with(' ') ? "" : ": ") + "MALFORMED: " + bad.what();
    };
    try {
        const Head head = Head::parse(message);
        text += headText(head);
        const std::string detail = head.type == kMapControl ? controlText(head, message)
                                   : direction == Direction::kFromDrives
                                       ? replyText(head, message)
                                       : requestText(head.subtype, {payloadOf(message), "request"});
        if (!detail.empty()) text += ": " + detail;
    } catch (const BadMessage& bad) {
        malformed(bad);
    } catch (const RemoteError& bad) {
        malformed(bad);
    }
    return text + " (" + std::to_string(message.size()) + " bytes)";
}

}  // namespace peer::linux
