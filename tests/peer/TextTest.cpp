// Names between the wire and the user.
#include "peer/Text.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

std::string wide(std::string_view text) {
    const auto bytes = peer::utf16FromUtf8(text);
    return bytes ? std::string(peer::textOf(*bytes)) : "(none)";
}

std::string narrow(std::string_view bytes) {
    return peer::utf8FromUtf16(peer::viewOf(bytes));
}

TEST(TextTest, ConvertsEachLengthOfACharacter) {
    EXPECT_EQ(wide("a\u00E4\u20AC\U0001F600"), "a\0\xE4\0\xAC\x20\x3D\xD8\x00\xDE"s);
    EXPECT_EQ(narrow("a\0\xE4\0\xAC\x20\x3D\xD8\x00\xDE"s), "a\u00E4\u20AC\U0001F600");
}

TEST(TextTest, KeepsASurrogateWithoutItsPartner) {
    for (const std::string& bytes :
         {"\x00\xD8"s, "\x00\xDC"s, "\x00\xD8x\0"s, "\x00\xDC\x00\xD8"s}) {
        EXPECT_EQ(wide(narrow(bytes)), bytes);
    }
}

TEST(TextTest, DropsAnOddByteAtTheEnd) {
    EXPECT_EQ(narrow("a\0b"s), "a");
}

TEST(TextTest, RefusesWhatIsNoUtf8) {
    for (const char* text : {"\xFF", "\xC0\x80", "\xE2\x82", "\xF4\x90\x80\x80", "a\x80"}) {
        EXPECT_EQ(wide(text), "(none)") << text;
    }
}

TEST(TextTest, ShowsControlCharactersAsEscapes) {
    EXPECT_EQ(peer::escaped("a\nb\tc\x1B[31m\\\x7F\xFF"), "a\\nb\\tc\\033[31m\\\\\\177\\377");
    EXPECT_EQ(peer::escaped("\u202E"), "\\342\\200\\256");
    EXPECT_EQ(peer::escaped("\u00E4\u20AC"), "\u00E4\u20AC");
    EXPECT_EQ(peer::escaped("\xED\xA0\x80"), "\\355\\240\\200");
}

TEST(TextTest, QuotesForAShell) {
    EXPECT_EQ(peer::quoted("plain.txt"), "plain.txt");
    EXPECT_EQ(peer::quoted("two words"), "'two words'");
    EXPECT_EQ(peer::quoted("it's"), "'it'\\''s'");
    EXPECT_EQ(peer::quoted("a\nb'"), "$'a\\nb\\''");
    EXPECT_EQ(peer::quoted(""), "''");
}

}  // namespace
