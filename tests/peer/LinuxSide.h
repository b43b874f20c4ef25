// The drives' side of a session in the Linux dialect: says what the test tells it to.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "peer/RawSide.h"
#include "peer/linux/Messages.h"

class LinuxSide : public FakeDrives {
public:
    struct Message {
        peer::linux::Head head;
        peer::Bytes frame;

        peer::View payload() const { return peer::linux::payloadOf(frame); }

        // The path of a request, with its slash.
        std::string path() const {
            peer::Cursor from(payload(), "request");
            const auto size = from.number<std::uint64_t>("length");
            return std::string(peer::textOf(from.bytes(size - 1, "path")));
        }

        // The number at this place behind the path.
        std::int64_t number(std::size_t at) const {
            return peer::loadLe<std::int64_t>(payload().data() + 8 + path().size() + 1 + at);
        }
    };

    // The next message but for probes, which come until the first answer has arrived.
    Message nextFrame() {
        while (true) {
            Message message = anyFrame();
            if (message.head.idx >= 0) return message;
        }
    }
    // The next probe of this drive. One that has been answered may have been sent twice before.
    Message nextProbe(std::int32_t map) {
        while (true) {
            Message message = anyFrame();
            if (message.head.idx < 0 && message.head.map == map) return message;
        }
    }
    Message anyFrame() {
        peer::Bytes frame = next();
        const auto head = peer::linux::Head::parse(frame);
        return {head, std::move(frame)};
    }

    static peer::Bytes frame(peer::linux::Head head, peer::View payload = {}) {
        using namespace peer::linux;
        peer::Bytes bytes;
        bytes.append(kPayloadAt, '\0');
        peer::storeLe(bytes.data() + kLengthAt,
                      static_cast<std::uint32_t>(kHeadSize + payload.size()));
        peer::storeLe(bytes.data() + kMapIdAt, head.map);
        peer::storeLe(bytes.data() + kTypeAt, head.type);
        peer::storeLe(bytes.data() + kSubtypeAt, head.subtype);
        peer::storeLe(bytes.data() + kResAt, head.res);
        peer::storeLe(bytes.data() + kIdxAt, head.idx);
        peer::storeLe(bytes.data() + kExtSizeAt, static_cast<std::uint32_t>(payload.size()));
        bytes.append(payload);
        return bytes;
    }

    void say(peer::linux::Head head, peer::View payload = {}) { far().send(frame(head, payload)); }

    void reply(const Message& request, std::int64_t res, peer::View payload = {}) {
        peer::linux::Head head = request.head;
        head.res = res;
        say(head, payload);
    }

    static peer::Bytes plugRecord(const std::string& folder, std::int32_t policy = 0) {
        peer::Bytes record;
        for (const std::int32_t word : {0, 0, 2, policy}) peer::appendLe(record, word);
        for (const std::string& text : {folder, std::string("Mac")}) {
            peer::appendLe(record, static_cast<std::uint64_t>(text.size() + 1));
            record.append({text.c_str(), text.size() + 1});
        }
        return record;
    }

    static peer::Bytes stat(std::uint64_t mode, std::int64_t size = 0) {
        peer::Bytes record;
        record.append(peer::linux::kStatSize, '\0');
        peer::storeLe(record.data() + 16, mode);
        peer::storeLe(record.data() + 56, size);
        return record;
    }

    static void appendEntry(peer::Bytes& block, const std::string& name, std::uint64_t mode) {
        peer::appendLe(block, static_cast<std::uint64_t>(name.size() + 1));
        block.append({name.c_str(), name.size() + 1});
        peer::appendLe(block, std::uint64_t{104});
        block.append(stat(mode));
        block.append(32, '\0');
    }

    static peer::Bytes block(const std::vector<std::string>& names) {
        peer::Bytes bytes;
        peer::appendLe(bytes, static_cast<std::uint64_t>(names.size()));
        for (const std::string& name : names) appendEntry(bytes, name, 0100644);
        return bytes;
    }

    // Announces a drive and takes its part until it is offered.
    void offer(std::int32_t map, const std::string& folder, std::int32_t policy = 0) {
        using namespace peer::linux;
        say({map, kMapControl, kPlug, 0, 0}, plugRecord(folder, policy));
        nextFrame();  // map
        say({map, kMapControl, kMapAck, 0, 0});
        reply(nextProbe(map), 0, stat(0040755));
    }
};
