#include "format.h"

#include "i18n.h"
#include "strutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

class format : public ::testing::Test {
  protected:
    void SetUp() override { speak("en"); }
    void TearDown() override { speak("auto"); }

    static void speak(const char* code) { I18n::instance().set_language(code); }
};

TEST_F(format, bytes_below_a_kilobyte_are_whole) {
    EXPECT_EQ(fmt::bytes(0), "0 B");
    EXPECT_EQ(fmt::bytes(-5), "0 B");
    EXPECT_EQ(fmt::bytes(kMin), "0 B");
    EXPECT_EQ(fmt::bytes(999), "999 B");
    EXPECT_EQ(fmt::bytes(1023), "1,023 B");
}

TEST_F(format, kilobytes_are_whole_whatever_is_asked_for) {
    EXPECT_EQ(fmt::bytes(1024), "1 KB");
    EXPECT_EQ(fmt::bytes(1536), "2 KB");
    EXPECT_EQ(fmt::bytes_short(1536), "2 KB");
    // The unit is chosen before the rounding.
    EXPECT_EQ(fmt::bytes(1048575), "1,024 KB");
}

TEST_F(format, decimals_begin_with_megabytes) {
    EXPECT_EQ(fmt::bytes(1048576), "1.00 MB");
    EXPECT_EQ(fmt::bytes_short(1048576), "1.0 MB");
    EXPECT_EQ(fmt::bytes(1610612736), "1.50 GB");
    EXPECT_EQ(fmt::bytes(int64_t{1} << 40), "1.00 TB");
    EXPECT_EQ(fmt::bytes(int64_t{1} << 50), "1.00 PB");
}

TEST_F(format, beyond_the_last_unit_the_number_grows) {
    EXPECT_EQ(fmt::bytes(kMax), "8,192.00 PB");
}

TEST_F(format, bytes_follow_the_language_and_the_unit_does_not) {
    struct Case {
        const char* code;
        const char* small;
        const char* exact;
        const char* large;
    };
    for (const Case& c : {Case{"en", "1,023 B", "1.00 MB", "8,192.00 PB"},
                          {"de", "1.023 B", "1,00 MB", "8.192,00 PB"},
                          {"pt", "1023 B", "1,00 MB", "8192,00 PB"},
                          {"bg", "1023 B", "1,00 MB", "8192,00 PB"},
                          {"fr", "1\u202F023 B", "1,00 MB", "8\u202F192,00 PB"},
                          {"ar", "1,023 B", "1.00 MB", "8,192.00 PB"}}) {
        speak(c.code);
        EXPECT_EQ(fmt::bytes(1023), c.small) << c.code;
        EXPECT_EQ(fmt::bytes(1048576), c.exact) << c.code;
        EXPECT_EQ(fmt::bytes(kMax), c.large) << c.code;
    }
    speak("de");
    EXPECT_EQ(fmt::bytes_short(1048576), "1,0 MB");
    EXPECT_EQ(fmt::bytes(1536), "2 KB");
    EXPECT_EQ(fmt::bytes(1048575), "1.024 KB");
}

TEST_F(format, count_follows_the_language) {
    speak("fr");
    EXPECT_EQ(fmt::count(1234567), "1\u202F234\u202F567");
    EXPECT_EQ(fmt::count(-1234), "-1\u202F234");
    speak("de");
    EXPECT_EQ(fmt::count(1234567), "1.234.567");
    speak("sr");
    EXPECT_EQ(fmt::count(1234567), "1234567");
    EXPECT_EQ(fmt::count(-1234567), "-1234567");
    // A change shows in the next text.
    speak("en");
    EXPECT_EQ(fmt::count(1234567), "1,234,567");
}

TEST_F(format, count_groups_from_four_digits_up) {
    EXPECT_EQ(fmt::count(0), "0");
    EXPECT_EQ(fmt::count(999), "999");
    EXPECT_EQ(fmt::count(1000), "1,000");
    EXPECT_EQ(fmt::count(1234567), "1,234,567");
    EXPECT_EQ(fmt::count(-1234), "-1,234");
    EXPECT_EQ(fmt::count(-999), "-999");
    EXPECT_EQ(fmt::count(kMin), "-9,223,372,036,854,775,808");
}

TEST_F(format, files_has_a_singular_for_one_alone) {
    EXPECT_EQ(fmt::files(1), "1 file");
    EXPECT_EQ(fmt::files(0), "0 files");
    EXPECT_EQ(fmt::files(2), "2 files");
    EXPECT_EQ(fmt::files(12345), "12,345 files");
}

TEST_F(format, tenths_of_a_second_do_not_carry) {
    EXPECT_EQ(fmt::seconds(-1.0), "0.0 s");
    EXPECT_EQ(fmt::seconds(0), "0.0 s");
    EXPECT_EQ(fmt::seconds(1.94), "1.9 s");
    EXPECT_EQ(fmt::seconds(1.96), "1.0 s");
}

TEST_F(format, seconds_are_neither_grouped_nor_turned_into_minutes) {
    EXPECT_EQ(fmt::seconds(123456.25), "123456.3 s");
    EXPECT_EQ(fmt::seconds(std::nan("")), "0.0 s");
    EXPECT_EQ(fmt::seconds(std::numeric_limits<double>::infinity()).substr(0, 4), "9200");
}

TEST_F(format, seconds_follow_the_language) {
    speak("de");
    EXPECT_EQ(fmt::seconds(1.94), std::string("1,9 ") + tr("s"));
    EXPECT_EQ(fmt::seconds(-1), std::string("0,0 ") + tr("s"));
    EXPECT_EQ(fmt::seconds(12345.6), std::string("12345,6 ") + tr("s"));
}

TEST_F(format, an_age_takes_the_largest_unit_that_fits) {
    struct Case {
        int64_t age;
        const char* text;
    };
    for (const Case& c : {Case{kMin, "just now"},
                          {-1, "just now"},
                          {0, "just now"},
                          {44, "just now"},
                          {45, "1 min ago"},
                          {89, "1 min ago"},
                          {90, "2 min ago"},
                          {2699, "45 min ago"},
                          {2700, "1 h ago"},
                          {5399, "1 h ago"},
                          {5400, "2 h ago"},
                          {79199, "22 h ago"},
                          {79200, "1 d ago"},
                          {129599, "1 d ago"},
                          {129600, "2 d ago"},
                          {518399, "6 d ago"},
                          {518400, "1 w ago"},
                          {907199, "1 w ago"},
                          {907200, "2 w ago"},
                          {2419199, "4 w ago"},
                          {2419200, "1 mo ago"},
                          {3944699, "1 mo ago"},
                          {3944700, "2 mo ago"},
                          {24983099, "9 mo ago"},
                          {24983100, "10 mo ago"},
                          {28927799, "11 mo ago"},
                          {28927800, "1 y ago"},
                          {47336399, "1 y ago"},
                          {47336400, "2 y ago"},
                          {31557600LL * 1234, "1,234 y ago"},
                          {kMax, "292,271,023,045 y ago"}})
        EXPECT_EQ(fmt::age(c.age), c.text) << c.age;
}

TEST_F(format, relative_is_the_age_by_the_clock) {
    EXPECT_EQ(fmt::relative(0), "");
    const int64_t now = std::time(nullptr);
    EXPECT_EQ(fmt::relative(now), "just now");
    EXPECT_EQ(fmt::relative(now + 1000000), "just now");
    EXPECT_EQ(fmt::relative(kMax), "just now");
    // Away from the edges, since the clock goes on.
    EXPECT_EQ(fmt::relative(now - 60), "1 min ago");
    EXPECT_EQ(fmt::relative(now - 3600), "1 h ago");
    EXPECT_EQ(fmt::relative(now - 86400), "1 d ago");
    EXPECT_EQ(fmt::relative(-1), fmt::age(now + 1));
    EXPECT_EQ(fmt::relative(kMin), fmt::age(kMax));
}

TEST_F(format, a_date_is_local_and_in_the_languages_order) {
    setenv("TZ", "XYZ-14", 1);  // 14 hours ahead of UTC
    tzset();
    const int64_t t = 1700000000;  // 2023-11-14 22:13:20 UTC
    EXPECT_EQ(fmt::date(t), "11/15/23");
    EXPECT_EQ(fmt::date_time(t), "11/15/23 12:13");
    struct Case {
        const char* code;
        const char* text;
    };
    for (const Case& c : {Case{"de", "15.11.23"},
                          {"da", "15-11-23"},
                          {"hu", "23-11-15"},
                          {"sv", "23-11-15"},
                          {"lt", "23-11-15"},
                          {"lv", "23.11.15"},
                          {"tl", "11/15/23"},
                          {"fa", "23/11/15"},
                          {"zh_TW", "23/11/15"},
                          {"he", "15/11/23"}}) {
        speak(c.code);
        EXPECT_EQ(fmt::date(t), c.text) << c.code;
        EXPECT_EQ(fmt::date_time(t), std::string(c.text) + " 12:13") << c.code;
        EXPECT_EQ(fmt::date_time_seconds(t), std::string(c.text) + " 12:13:20") << c.code;
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(format, what_is_no_date_is_empty) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(fmt::date(0), "");
    EXPECT_EQ(fmt::date(kMax), "");  // no year that an int holds
    EXPECT_EQ(fmt::date(kMin), "");
    EXPECT_EQ(fmt::date_time(kMax), "");
    EXPECT_EQ(fmt::date_time_seconds(kMax), "");
    EXPECT_EQ(fmt::date(-1), "12/31/69");
    EXPECT_EQ(fmt::date_time(0), "01/01/70 00:00");
    unsetenv("TZ");
    tzset();
}

TEST_F(format, a_saturated_int_never_wraps) {
    EXPECT_EQ(fmt::saturated(0), 0);
    EXPECT_EQ(fmt::saturated(-7), -7);
    EXPECT_EQ(fmt::saturated(kMax), 2147483647);
    EXPECT_EQ(fmt::saturated(int64_t{2147483648}), 2147483647);
    EXPECT_EQ(fmt::saturated(kMin), -2147483647 - 1);
}

TEST_F(format, what_stands_in_a_sentence_keeps_its_direction) {
    const std::string begin = "\u2068";
    const std::string end = "\u2069";
    EXPECT_EQ(fmt::embedded("34 KB"), "34 KB");
    EXPECT_EQ(fmt::embedded("/home/caf\u00e9/\u0436"), "/home/caf\u00e9/\u0436");
    EXPECT_EQ(fmt::embedded("\u05d0"), begin + "\u05d0" + end);
    EXPECT_EQ(fmt::embedded("a\u202e b"), su::isolated("a\u202e b"));
    speak("ar");
    EXPECT_EQ(fmt::embedded("34 KB"), begin + "34 KB" + end);
}

}  // namespace
