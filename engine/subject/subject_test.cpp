// Tests of the syntax of subjects and of the plain matcher.
#include "subject/subject.h"

#include <gtest/gtest.h>

#include <string>

namespace quorl::subject {
namespace {

using std::string_literals::operator""s;

TEST(Subject, AcceptsPlainSubjects) {
    for (const std::string& text :
         {"a"s, "a.b"s, "plant.line3.temp"s, "_INBOX.x"s, "eight.by"s, "eightbyt.e"s, "1234567.89"s,
          "with space.and\ttab"s, "größe.ä"s, "\xf0\x9f\x98\x80.x"s, "\xf4\x8f\xbf\xbf"s, "\xed\x9f\xbf"s,
          "\xee\x80\x80"s, "\xe0\xa0\x80"s, "\xf0\x90\x80\x80"s, "a.b.c.d.e.f.g.h"s}) {
        EXPECT_EQ(formOf(text), Form::plain) << text;
        EXPECT_TRUE(validForSending(text)) << text;
        EXPECT_TRUE(validForListening(text)) << text;
    }
}

TEST(Subject, AcceptsWildcardsForListeningOnly) {
    for (const std::string& text :
         {"*"s, ">"s, "*.*"s, "a.*"s, "*.a"s, "a.>"s, "*.>"s, "a.*.b.>"s, "ä.*"s, "abcdefg.*"s, "abcdefgh.>"s}) {
        EXPECT_EQ(formOf(text), Form::pattern) << text;
        EXPECT_FALSE(validForSending(text)) << text;
        EXPECT_TRUE(validForListening(text)) << text;
    }
}

TEST(Subject, RefusesMalformedText) {
    for (const std::string& text :
         {""s, "."s, ".a"s, "a."s, "a..b"s, ".."s, "1234567..x"s, "12345678..x"s, "123456..x"s, "1234567."s, "a*"s,
          "*a"s, "a.b*"s, "a.*b.c"s, "**"s, ">a"s, "a>"s, ">.a"s, "a.>.b"s, ">>"s, "*>"s, "a\0b"s, "\0"s, "1234567\0"s,
          "ä\0"s,
          // not UTF-8: a lone continuation, a cut sequence, overlong forms, a surrogate, above U+10FFFF, no first byte
          "\x80"s, "a.\xc3"s, "\xc3.a"s, "\xc0\x80"s, "\xc1\xbf"s, "\xe0\x9f\xbf"s, "\xf0\x8f\xbf\xbf"s,
          "\xed\xa0\x80"s, "\xf4\x90\x80\x80"s, "\xf5\x80\x80\x80"s, "\xff"s, "\xe2\x82"s, "\xf0\x9f\x98"s,
          "\xe2\x82.x"s}) {
        EXPECT_EQ(formOf(text), Form::malformed) << testing::PrintToString(text);
        EXPECT_FALSE(wellFormed(text)) << testing::PrintToString(text);
    }
}

TEST(Subject, SaysWhichRuleIsBroken) {
    using namespace std::string_view_literals;
    const std::pair<std::string_view, std::string_view> rules[] = {
        {"", "it is empty"},
        {"a..b", "an element of it is empty"},
        {".a", "an element of it is empty"},
        {"a.", "an element of it is empty"},
        {"a.b*.c", "a wildcard must be a whole element"},
        {"a.>b", "a wildcard must be a whole element"},
        {"a.>.b", "\">\" must be the last element"},
        {"a\xff", "it is not UTF-8"},
        {"a\0b"sv, "it contains a zero byte"},
    };
    for (const auto& [text, rule] : rules) {
        ASSERT_NE(whyMalformed(text), nullptr) << text;
        EXPECT_EQ(whyMalformed(text), rule) << text;
    }
    EXPECT_STREQ(whyMalformed(std::string(255, 'a')), "it is longer than 254 bytes");
    for (const char* good : {"a", "a.*", "a.>",
                             "gr\xc3\xb6\xc3\x9f"
                             "e.b"})
        EXPECT_EQ(whyMalformed(good), nullptr) << good;
}

TEST(Subject, BoundsTheLength) {
    EXPECT_TRUE(validForSending(std::string(254, 'a')));
    EXPECT_FALSE(validForSending(std::string(255, 'a')));
    std::string longest = "ä";
    while (longest.size() < 254) longest += longest.size() % 2 == 0 ? "." : "a";
    longest.back() = 'a';
    EXPECT_TRUE(validForSending(longest)) << longest;
    EXPECT_FALSE(wellFormed(longest + "a"));
}

// A separator, a wildcard and a bad byte at every place of texts of every length around the eight bytes that are looked
// at at once: each answer follows from the place alone.
TEST(Subject, DecidesAtEveryPlace) {
    for (size_t size = 1; size <= 40; ++size) {
        for (size_t at = 0; at < size; ++at) {
            std::string text(size, 'm');
            bool edge = at == 0 || at + 1 == size;
            text[at] = '.';
            EXPECT_EQ(formOf(text), edge ? Form::malformed : Form::plain) << text;
            if (at + 1 < size) {
                std::string twice = text;
                twice[at + 1] = '.';
                EXPECT_EQ(formOf(twice), Form::malformed) << twice;
            }
            text[at] = '*';
            EXPECT_EQ(formOf(text), size == 1 ? Form::pattern : Form::malformed) << text;
            text[at] = '\0';
            EXPECT_EQ(formOf(text), Form::malformed) << size << " " << at;
            text[at] = '\xe4';
            EXPECT_EQ(formOf(text), Form::malformed) << size << " " << at;
            for (char neighbour : {'-', '/', ')', '+', '=', '?', '\x7f', '\x01'}) {
                text[at] = neighbour;
                EXPECT_EQ(formOf(text), Form::plain) << text;
            }
        }
    }
}

TEST(Subject, KnowsTheSystemsOwn) {
    EXPECT_TRUE(isSystem("_QUORL.WARN.QUEUE.LIMIT"));
    EXPECT_TRUE(isSystem("_INBOX.a"));
    EXPECT_FALSE(isSystem("a._b"));
    EXPECT_FALSE(isSystem(""));
    EXPECT_TRUE(isInbox("_INBOX.a.b"));
    EXPECT_FALSE(isInbox("_INBOX"));
    EXPECT_FALSE(isInbox("_INBOXES.a"));
    EXPECT_FALSE(isInbox("a._INBOX."));
}

TEST(Subject, Matches) {
    EXPECT_TRUE(matches("a.b", "a.b"));
    EXPECT_TRUE(matches("*.b", "a.b"));
    EXPECT_TRUE(matches("a.*", "a.b"));
    EXPECT_TRUE(matches("*.*", "a.b"));
    EXPECT_TRUE(matches(">", "a"));
    EXPECT_TRUE(matches(">", "a.b.c"));
    EXPECT_TRUE(matches("a.>", "a.b.c"));
    EXPECT_TRUE(matches("*.>", "a.b"));
    EXPECT_FALSE(matches("a.>", "a"));
    EXPECT_FALSE(matches("*.>", "a"));
    EXPECT_FALSE(matches("a", "a.b"));
    EXPECT_FALSE(matches("a.b", "a"));
    EXPECT_FALSE(matches("*", "a.b"));
    EXPECT_FALSE(matches("*.*", "a"));
    EXPECT_FALSE(matches("a.*", "b.b"));
    EXPECT_FALSE(matches("a.b", "a.bb"));
    EXPECT_FALSE(matches("a.bb", "a.b"));
}

}  // namespace
}  // namespace quorl::subject
