#include "peer/windows/Policy.h"

#include "peer/windows/Protocol.h"

namespace peer::windows {

namespace {

void appendText(Bytes& to, const std::string& text) {
    appendLe(to, static_cast<std::int32_t>(text.size()));
    append(to, viewOf(text));
}

std::string readText(Cursor& from, std::string_view field) {
    const auto length = from.number<std::int32_t>(field);
    if (length < 0)
        throw BadMessage("policy: the length of " + std::string(field) + " is negative");
    return std::string(textOf(from.bytes(static_cast<std::size_t>(length), field)));
}

}  // namespace

Bytes Policy::encode() const {
    Bytes message;
    appendLe(message, std::uint16_t{kPolicy});
    appendLe(message, std::uint16_t{0});
    appendLe(message, word);
    appendLe(message, speed);
    appendLe(message, std::uint64_t{0});
    for (const std::int32_t field : {setEndOfFile, setEndOfFileLimit, ramdisk, compress,
                                     compressPolicy, compressThreshold, compressBound}) {
        appendLe(message, field);
    }
    appendText(message, compressType);
    for (const std::int32_t field : {statisticTime, logLevel, rootMap}) appendLe(message, field);
    for (const std::string* list :
         {&mountParents, &localTypes, &removableTypes, &opticalTypes, &networkTypes}) {
        appendText(message, *list);
    }
    message.push_back(delimiter);
    appendText(message, filter);
    return message;
}

Policy Policy::decode(View message) {
    Cursor from(message, "policy");
    Policy policy;
    if (from.number<std::uint16_t>("type") != kPolicy) throw BadMessage("not a policy message");
    from.bytes(2, "header");
    policy.word = from.number<std::uint32_t>("policy word");
    policy.speed = from.number<std::int32_t>("speed");
    from.bytes(8, "reserved bytes");
    for (std::int32_t* field :
         {&policy.setEndOfFile, &policy.setEndOfFileLimit, &policy.ramdisk, &policy.compress,
          &policy.compressPolicy, &policy.compressThreshold, &policy.compressBound}) {
        *field = from.number<std::int32_t>("settings");
    }
    policy.compressType = readText(from, "compress type");
    for (std::int32_t* field : {&policy.statisticTime, &policy.logLevel, &policy.rootMap}) {
        *field = from.number<std::int32_t>("settings");
    }
    policy.mountParents = readText(from, "mount parents");
    policy.localTypes = readText(from, "local file systems");
    policy.removableTypes = readText(from, "removable file systems");
    policy.opticalTypes = readText(from, "optical file systems");
    policy.networkTypes = readText(from, "network file systems");
    policy.delimiter = from.number<char>("delimiter");
    policy.filter = readText(from, "filter");
    return policy;
}

std::string joined(const std::vector<std::string>& entries, char delimiter) {
    std::string text;
    for (const std::string& entry : entries) {
        if (!text.empty()) text.push_back(delimiter);
        text += entry;
    }
    return text;
}

}  // namespace peer::windows
