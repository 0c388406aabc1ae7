#include "strutil.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct OneArgument {
    std::string argument;
    std::string result;
};

struct TwoArguments {
    std::string first;
    std::string second;
    std::string result;
};

const std::string kBad = "\xEF\xBF\xBD";  // U+FFFD

TEST(StrUtil, a_step_over_a_character_never_ends_inside_one) {
    const std::string text = "aö€b";  // 1, 2, 3 and 1 bytes
    EXPECT_EQ(su::next_character(text, 0), 1U);
    EXPECT_EQ(su::next_character(text, 1), 3U);
    EXPECT_EQ(su::next_character(text, 3), 6U);
    EXPECT_EQ(su::next_character(text, 7), 7U);
    EXPECT_EQ(su::previous_character(text, 7), 6U);
    EXPECT_EQ(su::previous_character(text, 6), 3U);
    EXPECT_EQ(su::previous_character(text, 3), 1U);
    EXPECT_EQ(su::previous_character(text, 0), 0U);
}

TEST(StrUtil, isolated_text_ends_what_it_opens_and_nothing_else) {
    const std::string fsi = "\xe2\x81\xa8", pdi = "\xe2\x81\xa9";
    EXPECT_EQ(su::isolated(""), fsi + pdi);
    EXPECT_EQ(su::isolated("name"), fsi + "name" + pdi);
    // An override ends with the isolate around it.
    EXPECT_EQ(su::isolated("\xe2\x80\xaename"), fsi + "\xe2\x80\xaename" + pdi);
    for (const std::string open : {"\xe2\x81\xa6", "\xe2\x81\xa7", "\xe2\x81\xa8"}) {
        EXPECT_EQ(su::isolated("a" + open + "b"), fsi + "a" + open + "b" + pdi + pdi);
        EXPECT_EQ(su::isolated("a" + open + "b" + pdi), fsi + "a" + open + "b" + pdi + pdi);
        EXPECT_EQ(su::isolated(open + pdi + pdi + "b"), fsi + open + pdi + "b" + pdi);
    }
    EXPECT_EQ(su::isolated(pdi + pdi + "a"), fsi + "a" + pdi);
    // Neighbours of the marks, and a mark that is cut off.
    EXPECT_EQ(su::isolated("\xe2\x81\xa5\xe2\x81\xaa"), fsi + "\xe2\x81\xa5\xe2\x81\xaa" + pdi);
    EXPECT_EQ(su::isolated("\xe2\x81"), fsi + "\xe2\x81" + pdi);
}

}  // namespace

TEST(StrUtil, lower_ascii_changes_a_to_z_and_leaves_all_other_bytes) {
    EXPECT_EQ(su::lower_ascii("AbZ\xC3\x84@[`{"), "abz\xC3\x84@[`{");
    EXPECT_EQ(su::lower_ascii("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), "abcdefghijklmnopqrstuvwxyz");
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte)
        every_byte.push_back(static_cast<char>(byte));
    const std::string lowered = su::lower_ascii(every_byte);
    ASSERT_EQ(lowered.size(), 256U);
    for (size_t byte = 0; byte < 256; ++byte) {
        const size_t expected = byte >= 'A' && byte <= 'Z' ? byte + 32 : byte;
        EXPECT_EQ(static_cast<unsigned char>(lowered[byte]), expected) << byte;
    }
    EXPECT_EQ(su::lower_ascii(""), "");
}

TEST(StrUtil, starts_with_compares_bytes_and_an_empty_prefix_matches) {
    EXPECT_TRUE(su::starts_with("/home/al", "/home"));
    EXPECT_TRUE(su::starts_with("/home", "/home"));
    EXPECT_TRUE(su::starts_with("/home", ""));
    EXPECT_TRUE(su::starts_with("", ""));
    EXPECT_FALSE(su::starts_with("/hom", "/home"));
    EXPECT_FALSE(su::starts_with("/Home", "/home"));
    EXPECT_FALSE(su::starts_with("", "a"));
    EXPECT_FALSE(su::starts_with("ba", "a"));
}

TEST(StrUtil, ends_with_compares_bytes_and_an_empty_suffix_matches) {
    EXPECT_TRUE(su::ends_with("a.tar.gz", ".gz"));
    EXPECT_TRUE(su::ends_with(".gz", ".gz"));
    EXPECT_TRUE(su::ends_with("a", ""));
    EXPECT_TRUE(su::ends_with("", ""));
    EXPECT_FALSE(su::ends_with("gz", ".gz"));
    EXPECT_FALSE(su::ends_with("a.GZ", ".gz"));
    EXPECT_FALSE(su::ends_with("", "a"));
    EXPECT_FALSE(su::ends_with("ab", "a"));
}

TEST(StrUtil, basename_is_the_text_after_the_last_slash) {
    const std::vector<OneArgument> cases = {
        {"/", "/"},
        {"//", "/"},
        {"", ""},
        {"a", "a"},
        {"a/", "a"},
        {"a///", "a"},
        {"/a", "a"},
        {"/a/b", "b"},
        {"/a/b/", "b"},
        {"a/b", "b"},
        {"/a//b", "b"},
        {"/a/.b", ".b"},
        {"/a/b c\n/", "b c\n"},
        {"..", ".."},
        {"/a/..", ".."},
        {"/\xFF", "\xFF"},
    };
    for (const OneArgument& c : cases)
        EXPECT_EQ(su::basename_of(c.argument), c.result) << "'" << c.argument << "'";
}

TEST(StrUtil, parent_is_the_text_before_the_last_slash) {
    const std::vector<OneArgument> cases = {
        {"/", ""},         {"//", ""},   {"", ""},         {"a", ""},      {"a/", ""},
        {"/a", "/"},       {"/a/", "/"}, {"/a//", "/"},    {"/a/b", "/a"}, {"/a/b/", "/a"},
        {"/a/b///", "/a"}, {"a/b", "a"}, {"a/b/c", "a/b"}, {"///a", "/"},
    };
    for (const OneArgument& c : cases)
        EXPECT_EQ(su::parent_of(c.argument), c.result) << "'" << c.argument << "'";
}

TEST(StrUtil, join_puts_one_slash_between_and_takes_an_empty_side_as_nothing) {
    const std::vector<TwoArguments> cases = {
        {"", "", ""},        {"", "b", "b"},       {"", "/b", "/b"},   {"a", "", "a"},
        {"a/", "", "a/"},    {"a", "b", "a/b"},    {"a/", "b", "a/b"}, {"/", "b", "/b"},
        {"a", "/b", "a//b"}, {"a//", "b", "a//b"},
    };
    for (const TwoArguments& c : cases)
        EXPECT_EQ(su::join_path(c.first, c.second), c.result) << c.first << " + " << c.second;
}

TEST(StrUtil, extension_is_the_lower_cased_text_after_the_last_point) {
    const std::vector<OneArgument> cases = {
        {"a.TXT", "txt"},
        {"a.tar.GZ", "gz"},
        {"a", ""},
        {"", ""},
        {".", ""},
        {"..", ""},
        {".bashrc", ""},
        {".a.Txt", "txt"},
        {"a.", ""},
        {"a.b.", ""},
        {"..a", "a"},
        {"a.\xC3\x84"
         "B",
         "\xC3\x84"
         "b"},
        {"a. b", " b"},
    };
    for (const OneArgument& c : cases)
        EXPECT_EQ(su::extension_of(c.argument), c.result) << "'" << c.argument << "'";
}

TEST(StrUtil, truncate_cuts_before_the_character_that_does_not_fit) {
    EXPECT_EQ(su::truncate_utf8("abc", 3), "abc");
    EXPECT_EQ(su::truncate_utf8("abc", 4), "abc");
    EXPECT_EQ(su::truncate_utf8("abc", 2), "ab");
    EXPECT_EQ(su::truncate_utf8("abc", 0), "");
    EXPECT_EQ(su::truncate_utf8("", 0), "");
    EXPECT_EQ(su::truncate_utf8("a\xC3\xA4z", 1), "a");
    EXPECT_EQ(su::truncate_utf8("a\xC3\xA4z", 2), "a");
    EXPECT_EQ(su::truncate_utf8("a\xC3\xA4z", 3), "a\xC3\xA4");
    EXPECT_EQ(su::truncate_utf8("\xE2\x82\xAC", 2), "");
    EXPECT_EQ(su::truncate_utf8("\xE2\x82\xAC", 3), "\xE2\x82\xAC");
    for (size_t limit = 1; limit < 5; ++limit)
        EXPECT_EQ(su::truncate_utf8("x\xF0\x9F\x98\x80", limit), "x") << limit;
    EXPECT_EQ(su::truncate_utf8("x\xF0\x9F\x98\x80", 5), "x\xF0\x9F\x98\x80");
}

TEST(StrUtil, truncate_looks_at_the_byte_at_the_cut_alone) {
    // Continuation bytes without a lead are stepped over backwards like any others.
    EXPECT_EQ(su::truncate_utf8("\x80\x80\x80\x80", 2), "");
    EXPECT_EQ(su::truncate_utf8("a\x80\x80\x80", 3), "");
    EXPECT_EQ(su::truncate_utf8("\xFF\xFF\xFF", 2), "\xFF\xFF");
    EXPECT_EQ(su::truncate_utf8("\x80\x80"
                                "a",
                                2),
              "\x80\x80");
}

TEST(StrUtil, valid_utf8_counts_continuation_bytes_and_nothing_more) {
    const std::vector<std::string> good = {
        "",
        "plain",
        std::string("\0", 1),
        "\x7F",
        "\xC3\xA4",
        "\xE2\x82\xAC",
        "\xF0\x9F\x98\x80",
        "\xC0\x80",          // overlong
        "\xE0\x80\x80",      // overlong
        "\xF0\x80\x80\x80",  // overlong
        "\xED\xA0\x80",      // a surrogate
        "\xF7\xBF\xBF\xBF",  // past the last code point
    };
    for (const std::string& text : good)
        EXPECT_TRUE(su::is_valid_utf8(text)) << testing::PrintToString(text);
    const std::vector<std::string> bad = {
        "\x80",
        "\xBF",
        "a\x80",
        "\xC3",          // cut off
        "\xE2\x82",      // cut off
        "\xF0\x9F\x98",  // cut off
        "\xC3"
        "a",
        "\xE2\x82"
        "a",
        "\xE2"
        "a\x82",
        "\xF0\x9F\x98"
        "a",
        "\xC3\xA4\xA4",  // one continuation byte too many
        "\xF8\x88\x80\x80\x80",
        "\xFC\x84\x80\x80\x80\x80",
        "\xFE",
        "\xFF",
        "\xC3\xC3\xA4",
    };
    for (const std::string& text : bad)
        EXPECT_FALSE(su::is_valid_utf8(text)) << testing::PrintToString(text);
}

TEST(StrUtil, a_sequence_ends_where_the_text_ends) {
    // The byte behind the text would complete it.
    EXPECT_FALSE(su::is_valid_utf8(std::string_view("\xC3\xA4", 1)));
    EXPECT_FALSE(su::is_valid_utf8(std::string_view("\xE2\x82\xAC", 2)));
    EXPECT_EQ(su::sanitize_utf8(std::string_view("\xC3\xA4", 1)), kBad);
}

TEST(StrUtil, sanitize_copies_what_is_valid) {
    const std::string text = "plain \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80 \xC0\x80 \xED\xA0\x80";
    EXPECT_EQ(su::sanitize_utf8(text), text);
    EXPECT_EQ(su::sanitize_utf8(""), "");
    const std::string with_nul("a\0b", 3);
    EXPECT_EQ(su::sanitize_utf8(with_nul), with_nul);
}

TEST(StrUtil, sanitize_makes_one_replacement_character_of_each_bad_byte) {
    const std::vector<OneArgument> cases = {
        {"\xFF", kBad},
        {"a\xFF"
         "b",
         "a" + kBad + "b"},
        {"\xFF\xFE", kBad + kBad},
        {"\x80\x80", kBad + kBad},
        // A sequence cut off: its lead is bad, and so is each continuation byte left behind.
        {"\xE2\x82", kBad + kBad},
        {"\xF0\x9F\x98", kBad + kBad + kBad},
        {"\xE2\x82"
         "a",
         kBad + kBad + "a"},
        {"\xC3", kBad},
        // What follows a bad lead is looked at afresh.
        {"\xC3\xC3\xA4", kBad + "\xC3\xA4"},
        {"\xE2\xC3\xA4", kBad + "\xC3\xA4"},
        {"\xC3\xA4\xA4", "\xC3\xA4" + kBad},
        {"\xF8\x88\x80\x80\x80", kBad + kBad + kBad + kBad + kBad},
        // Overlong forms and surrogates are well-formed by this rule, also beside a bad byte.
        {"\xC0\x80\xFF\xED\xA0\x80", "\xC0\x80" + kBad + "\xED\xA0\x80"},
        {std::string("\0\xFF", 2), std::string(1, '\0') + kBad},
    };
    for (const OneArgument& c : cases)
        EXPECT_EQ(su::sanitize_utf8(c.argument), c.result) << testing::PrintToString(c.argument);
}

TEST(StrUtil, sanitize_always_gives_valid_text) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string text = {static_cast<char>(first), static_cast<char>(second), '\x80'};
            EXPECT_TRUE(su::is_valid_utf8(su::sanitize_utf8(text))) << first << ' ' << second;
        }
    }
}
