#include "format.h"

#include "i18n.h"
#include "strutil.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

namespace fmt {

namespace {

// `text` is ASCII digits as the "C" conventions print them, with at most one point or comma.
std::string localize_number(const std::string& text) {
    const I18n::NumberFormat format = I18n::instance().number_format();
    const size_t mark = text.find_first_of(".,");
    const std::string whole = text.substr(0, mark);
    const std::string fraction = mark == std::string::npos ? "" : text.substr(mark + 1);

    std::string result;
    if (!*format.group || whole.size() < 4) {
        result = whole;
    } else {
        for (size_t i = 0; i < whole.size(); ++i) {
            if (i > 0 && (whole.size() - i) % 3 == 0)
                result += format.group;
            result += whole[i];
        }
    }
    if (!fraction.empty())
        result += format.decimal + fraction;
    return result;
}

std::string bytes_with(int64_t size, int decimals) {
    static constexpr const char* kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    double value = static_cast<double>(std::max<int64_t>(size, 0));
    int unit = 0;
    while (value >= 1024.0 && unit < 5) {
        value *= 0.0009765625;
        ++unit;
    }
    // Kilobytes are shown whole: their decimals say nothing to anybody.
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", unit < 2 ? 0 : decimals, value);
    return localize_number(text) + " " + kUnits[unit];
}

// Unix time `t` by a strftime format in the local time zone; empty when that fails.
std::string local_time(int64_t t, const char* format) {
    const auto time = static_cast<std::time_t>(t);
    std::tm local = {};
    if (!localtime_r(&time, &local))
        return {};  // a year that no int holds
    char text[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const size_t length = std::strftime(text, sizeof text, format, &local);
#pragma GCC diagnostic pop
    return std::string(text, length);
}

}  // namespace

std::string bytes(int64_t size) {
    return bytes_with(size, 2);
}

std::string bytes_short(int64_t size) {
    return bytes_with(size, 1);
}

std::string count(int64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "%" PRId64, number);
    if (text[0] == '-')
        return "-" + localize_number(text + 1);
    return localize_number(text);
}

std::string files(int64_t number) {
    if (number == 1)
        return tr("1 file");
    return I18n::instance().trf("%s files", count(number).c_str());
}

std::string seconds(double s) {
    // Beyond this a double has no 64-bit whole part; a value that is no number shows as 0.
    constexpr double kLimit = 9.2e18;
    const double positive = s > 0 ? std::min(s, kLimit) : 0;
    const auto whole = static_cast<int64_t>(positive);
    const double tenths_up = std::floor((positive - static_cast<double>(whole)) * 10.0 + 0.5);
    const int tenths = static_cast<int>(tenths_up) % 10;
    char text[64];
    std::snprintf(text, sizeof text, "%" PRId64 "%s%d", whole,
                  I18n::instance().number_format().decimal, tenths);
    return std::string(text) + " " + tr("s");
}

std::string age(int64_t seconds) {
    // The first row whose bound the age is below decides; what is older counts in years.
    struct Row {
        int64_t below;
        int64_t unit;
        const char* key;
    };
    static constexpr int64_t kYear = 31557600;  // 365.25 days
    static constexpr Row kRows[] = {
        {2700, 60, "%s min ago"},             // 45 minutes
        {79200, 3600, "%s h ago"},            // 22 hours
        {518400, 86400, "%s d ago"},          // 6 days
        {2419200, 604800, "%s w ago"},        // 28 days
        {28927800, kYear / 12, "%s mo ago"},  // 11 months
    };
    if (seconds <= 44)
        return tr("just now");
    Row row = {0, kYear, "%s y ago"};
    for (const Row& candidate : kRows) {
        if (seconds < candidate.below) {
            row = candidate;
            break;
        }
    }
    const long long units =
        std::llround(static_cast<double>(seconds) / static_cast<double>(row.unit));
    return I18n::instance().trf(row.key, count(units).c_str());
}

std::string relative(int64_t t) {
    if (t == 0)
        return {};
    int64_t seconds;
    if (__builtin_sub_overflow(static_cast<int64_t>(std::time(nullptr)), t, &seconds))
        seconds = std::numeric_limits<int64_t>::max();  // only a t far before 1970 gets here
    return age(seconds);
}

std::string date(int64_t t) {
    return t == 0 ? std::string() : local_time(t, I18n::instance().date_format());
}

std::string date_time(int64_t t) {
    return date_time(t, I18n::instance().date_format());
}

std::string date_time_seconds(int64_t t) {
    return local_time(t, (std::string(I18n::instance().date_format()) + " %H:%M:%S").c_str());
}

std::string date_time(int64_t t, const char* date_format) {
    return local_time(t, (std::string(date_format) + " %H:%M").c_str());
}

std::string embedded(const std::string& text) {
    // From U+0590 on: what runs right to left, and the marks that turn a direction.
    const bool turns = std::any_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) >= 0xd6; });
    return turns || I18n::instance().is_rtl() ? su::isolated(text) : text;
}

int saturated(int64_t number) {
    return static_cast<int>(std::clamp<int64_t>(number, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}

}  // namespace fmt
