#include "format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

TEST(format, bytes_below_a_kilobyte_are_whole) {
    EXPECT_EQ(fmt::bytes(0), "0 B");
    EXPECT_EQ(fmt::bytes(-5), "0 B");
    EXPECT_EQ(fmt::bytes(kMin), "0 B");
    EXPECT_EQ(fmt::bytes(999), "999 B");
    EXPECT_EQ(fmt::bytes(1023), "1,023 B");
}

TEST(format, kilobytes_are_whole_whatever_is_asked_for) {
    EXPECT_EQ(fmt::bytes(1024), "1 KB");
    EXPECT_EQ(fmt::bytes(1536), "2 KB");
    EXPECT_EQ(fmt::bytes_short(1536), "2 KB");
    // The unit is chosen before the rounding.
    EXPECT_EQ(fmt::bytes(1048575), "1,024 KB");
}

TEST(format, decimals_begin_with_megabytes) {
    EXPECT_EQ(fmt::bytes(1048576), "1.00 MB");
    EXPECT_EQ(fmt::bytes_short(1048576), "1.0 MB");
    EXPECT_EQ(fmt::bytes(1610612736), "1.50 GB");
    EXPECT_EQ(fmt::bytes(int64_t{1} << 40), "1.00 TB");
    EXPECT_EQ(fmt::bytes(int64_t{1} << 50), "1.00 PB");
}

TEST(format, beyond_the_last_unit_the_number_grows) {
    EXPECT_EQ(fmt::bytes(kMax), "8,192.00 PB");
}

TEST(format, count_groups_from_four_digits_up) {
    EXPECT_EQ(fmt::count(0), "0");
    EXPECT_EQ(fmt::count(999), "999");
    EXPECT_EQ(fmt::count(1000), "1,000");
    EXPECT_EQ(fmt::count(1234567), "1,234,567");
    EXPECT_EQ(fmt::count(-1234), "-1,234");
    EXPECT_EQ(fmt::count(-999), "-999");
    EXPECT_EQ(fmt::count(kMin), "-9,223,372,036,854,775,808");
}

TEST(format, files_has_a_singular_for_one_alone) {
    EXPECT_EQ(fmt::files(1), "1 file");
    EXPECT_EQ(fmt::files(0), "0 files");
    EXPECT_EQ(fmt::files(2), "2 files");
    EXPECT_EQ(fmt::files(12345), "12,345 files");
}

TEST(format, tenths_of_a_second_do_not_carry) {
    EXPECT_EQ(fmt::seconds(-1.0), "0.0 s");
    EXPECT_EQ(fmt::seconds(0), "0.0 s");
    EXPECT_EQ(fmt::seconds(1.94), "1.9 s");
    EXPECT_EQ(fmt::seconds(1.96), "1.0 s");
}

TEST(format, seconds_are_neither_grouped_nor_turned_into_minutes) {
    EXPECT_EQ(fmt::seconds(123456.25), "123456.3 s");
    EXPECT_EQ(fmt::seconds(std::nan("")), "0.0 s");
    EXPECT_EQ(fmt::seconds(std::numeric_limits<double>::infinity()).substr(0, 4), "9200");
}

TEST(format, a_saturated_int_never_wraps) {
    EXPECT_EQ(fmt::saturated(0), 0);
    EXPECT_EQ(fmt::saturated(-7), -7);
    EXPECT_EQ(fmt::saturated(kMax), 2147483647);
    EXPECT_EQ(fmt::saturated(int64_t{2147483648}), 2147483647);
    EXPECT_EQ(fmt::saturated(kMin), -2147483647 - 1);
}

}  // namespace
