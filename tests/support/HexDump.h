// The annotated hex dumps of the documents, as people and tests read them. A dump is a fenced block
// with the word "dump" behind the fence: a line that says who sends what, then lines of an offset,
// bytes and a remark.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

enum class Sender { Server, Client, Nobody };

struct HexDump {
    // One byte of the message. Of a name of eight bytes, `index` says which it is.
    struct Cell {
        enum class Kind { Fixed, Any, Named } kind = Kind::Fixed;
        char value = 0;
        std::string name = {};
        std::size_t index = 0;
    };

    int line = 0;  // of the document
    Sender sender = Sender::Nobody;
    std::string title;
    std::vector<Cell> cells;
};

// Throws std::runtime_error, with the line, where a dump breaks the rules or its offsets are wrong.
std::vector<HexDump> hexDumpsOf(std::string_view document);

// The eight bytes that stand for a name, once a message has shown them.
using DumpNames = std::map<std::string, std::vector<char>>;

// The bytes of a message to be sent. Throws std::runtime_error for bytes that the dump leaves open.
std::vector<char> bytesOf(const HexDump& dump, const DumpNames& names);

// Where a message differs from its dump, or nothing. Learns the names that it has not seen before.
std::string differenceOf(const HexDump& dump, const std::vector<char>& message, DumpNames& names);
