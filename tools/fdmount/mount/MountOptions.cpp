#include "fdmount/mount/MountOptions.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <stdexcept>
#include <string_view>

namespace fdmount {

namespace {

using Value = std::string_view;
using Setter = std::function<void(MountOptions&, Value)>;

constexpr unsigned kLeastRead = 4096;
constexpr unsigned kMostRead = 1U << 20;

[[noreturn]] void refuse(Value word, const std::string& why) {
    throw std::invalid_argument("-o " + std::string(word) + ": " + why);
}

template <typename Number>
Number numberFrom(Value text, int base) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument("is no number");
    }
    return number;
}

double secondsFrom(Value text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || !(seconds >= 0) ||
        seconds > 1e9) {
        throw std::invalid_argument("is no time in seconds");
    }
    return seconds;
}

unsigned readSizeFrom(Value text) {
    return std::clamp(numberFrom<unsigned>(text, 10), kLeastRead, kMostRead);
}

const std::map<Value, Setter>& settings() {
    static const std::map<Value, Setter> kSettings = {
        {"uid", [](auto& o, Value v) { o.uid = numberFrom<uid_t>(v, 10); }},
        {"gid", [](auto& o, Value v) { o.gid = numberFrom<gid_t>(v, 10); }},
        {"umask", [](auto& o, Value v) { o.umask = numberFrom<unsigned>(v, 8) & 0777U; }},
        {"attr_timeout", [](auto& o, Value v) { o.attributeTimeout = secondsFrom(v); }},
        {"entry_timeout", [](auto& o, Value v) { o.entryTimeout = secondsFrom(v); }},
        {"negative_timeout", [](auto& o, Value v) { o.negativeTimeout = secondsFrom(v); }},
        {"max_read", [](auto& o, Value v) { o.maxRead = readSizeFrom(v); }},
        {"fsname", [](auto& o, Value v) { o.fsname = v; }},
        {"subtype", [](auto& o, Value v) { o.subtype = v; }},
    };
    return kSettings;
}

const std::map<Value, Setter>& switches() {
    static const auto through = [](const char* word) {
        return [word](MountOptions& o, Value) { o.forKernel.emplace_back(word); };
    };
    static const std::map<Value, Setter> kSwitches = {
        {"ro", [](auto& o, Value) { o.readOnly = true; }},
        {"rw", [](auto& o, Value) { o.readOnly = false; }},
        {"nonempty", [](auto& o, Value) { o.overFullFolder = true; }},
        {"allow_other", through("allow_other")},
        {"default_permissions", through("default_permissions")},
        {"auto_unmount", through("auto_unmount")},
        {"dev", through("dev")},
        {"nodev", through("nodev")},
        {"suid", through("suid")},
        {"nosuid", through("nosuid")},
        {"exec", through("exec")},
        {"noexec", through("noexec")},
        {"noatime", through("noatime")},
    };
    return kSwitches;
}

void apply(MountOptions& options, Value word) {
    const std::size_t equals = word.find('=');
    const Value name = word.substr(0, equals);
    const bool hasValue = equals != Value::npos;
    if (!settings().contains(name) && !switches().contains(name)) refuse(word, "is not known");
    if (settings().contains(name) != hasValue) {
        refuse(word, hasValue ? "takes no value" : "needs a value");
    }
    const Setter& set = hasValue ? settings().at(name) : switches().at(name);
    try {
        set(options, hasValue ? word.substr(equals + 1) : Value());
    } catch (const std::invalid_argument& error) {
        refuse(word, error.what());
    }
}

}  // namespace

MountOptions parseMountOptions(const std::vector<std::string>& lists) {
    MountOptions options;
    for (const std::string& list : lists) {
        for (Value rest = list; !rest.empty();) {
            const std::size_t comma = rest.find(',');
            if (const Value word = rest.substr(0, comma); !word.empty()) apply(options, word);
            rest = comma == Value::npos ? Value() : rest.substr(comma + 1);
        }
    }
    return options;
}

}  // namespace fdmount
