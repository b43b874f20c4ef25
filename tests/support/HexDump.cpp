#include "support/HexDump.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace {

using Cell = HexDump::Cell;

constexpr std::size_t kNameSize = 8;
constexpr std::string_view kFence = "```";

[[noreturn]] void fail(int line, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + what);
}

std::optional<std::size_t> numberOf(std::string_view text, int base) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return {};
    return value;
}

// "0a", "..", either with "*12" behind it, or "{name}".
void appendToken(std::string_view token, int line, std::vector<Cell>& cells) {
    if (token.size() > 2 && token.front() == '{' && token.back() == '}') {
        const std::string name(token.substr(1, token.size() - 2));
        for (std::size_t i = 0; i < kNameSize; ++i) {
            cells.push_back({Cell::Kind::Named, 0, name, i});
        }
        return;
    }
    const std::size_t star = token.find('*');
    const std::string_view byte = token.substr(0, star);
    const auto count =
        star == std::string_view::npos ? std::size_t{1} : numberOf(token.substr(star + 1), 10);
    const auto value = byte == ".." ? std::size_t{0} : numberOf(byte, 16);
    if (byte.size() != 2 || !value || !count) fail(line, "no byte: " + std::string(token));
    const Cell cell{byte == ".." ? Cell::Kind::Any : Cell::Kind::Fixed, static_cast<char>(*value)};
    cells.insert(cells.end(), *count, cell);
}

void appendLine(const std::string& text, int line, std::vector<Cell>& cells) {
    std::istringstream words(text.substr(0, text.find('|')));
    std::string word;
    words >> word;
    if (numberOf(word, 10) != cells.size()) {
        fail(line, "the offset is " + word + " instead of " + std::to_string(cells.size()));
    }
    while (words >> word) appendToken(word, line, cells);
}

HexDump headOf(const std::string& text, int line) {
    const std::pair<std::string_view, Sender> senders[] = {{"server -> client: ", Sender::Server},
                                                           {"client -> server: ", Sender::Client},
                                                           {"not sent: ", Sender::Nobody}};
    for (const auto& [words, sender] : senders) {
        if (text.starts_with(words)) return {line, sender, text.substr(words.size()), {}};
    }
    fail(line, "nobody sends this: " + text);
}

std::string hexOf(char byte) {
    char text[4];
    std::snprintf(text, sizeof text, "%02x",
                  static_cast<unsigned>(static_cast<std::uint8_t>(byte)));
    return text;
}

}  // namespace

std::vector<HexDump> hexDumpsOf(std::string_view document) {
    std::vector<HexDump> dumps;
    std::istringstream lines{std::string(document)};
    std::string text;
    bool isInside = false;
    bool isHead = false;
    for (int line = 1; std::getline(lines, text); ++line) {
        if (!isInside) {
            isInside = isHead = text == std::string(kFence) + "dump";
        } else if (text == kFence) {
            isInside = false;
        } else if (isHead) {
            dumps.push_back(headOf(text, line));
            isHead = false;
        } else {
            appendLine(text, line, dumps.back().cells);
        }
    }
    return dumps;
}

std::vector<char> bytesOf(const HexDump& dump, const DumpNames& names) {
    std::vector<char> bytes;
    for (const Cell& cell : dump.cells) {
        if (cell.kind == Cell::Kind::Any) fail(dump.line, "a request leaves bytes open");
        if (cell.kind == Cell::Kind::Fixed) {
            bytes.push_back(cell.value);
            continue;
        }
        const auto known = names.find(cell.name);
        if (known == names.end()) fail(dump.line, "nothing has shown {" + cell.name + "}");
        bytes.push_back(known->second.at(cell.index));
    }
    return bytes;
}

std::string differenceOf(const HexDump& dump, const std::vector<char>& message, DumpNames& names) {
    if (message.size() != dump.cells.size()) {
        return std::to_string(message.size()) + " bytes instead of " +
               std::to_string(dump.cells.size());
    }
    for (std::size_t at = 0; at < message.size(); ++at) {
        const Cell& cell = dump.cells[at];
        char wanted = cell.value;
        if (cell.kind == Cell::Kind::Any) continue;
        if (cell.kind == Cell::Kind::Named) {
            std::vector<char>& bytes = names[cell.name];
            if (bytes.size() == cell.index) bytes.push_back(message[at]);
            wanted = bytes.at(cell.index);
        }
        if (wanted != message[at]) {
            return "offset " + std::to_string(at) + " is " + hexOf(message[at]) + " instead of " +
                   hexOf(wanted);
        }
    }
    return {};
}
