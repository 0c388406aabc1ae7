#include "format.h"

#include "i18n.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>

namespace fmt {

namespace {

// English, the only language that has texts so far.
constexpr const char* kDecimal = ".";
constexpr const char* kGroup = ",";

// `text` is ASCII digits as the "C" conventions print them, with at most one point.
std::string localize_number(const std::string& text) {
    const size_t mark = text.find_first_of(".,");
    const std::string whole = text.substr(0, mark);
    const std::string fraction = mark == std::string::npos ? "" : text.substr(mark + 1);

    std::string result;
    if (!*kGroup || whole.size() < 4) {
        result = whole;
    } else {
        for (size_t i = 0; i < whole.size(); ++i) {
            if (i > 0 && (whole.size() - i) % 3 == 0)
                result += kGroup;
            result += whole[i];
        }
    }
    if (!fraction.empty())
        result += kDecimal + fraction;
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
    return I18n::trf("%s files", count(number).c_str());
}

std::string seconds(double s) {
    // Beyond this a double has no 64-bit whole part; a value that is no number shows as 0.
    constexpr double kLimit = 9.2e18;
    const double positive = s > 0 ? std::min(s, kLimit) : 0;
    const auto whole = static_cast<int64_t>(positive);
    const double tenths_up = std::floor((positive - static_cast<double>(whole)) * 10.0 + 0.5);
    const int tenths = static_cast<int>(tenths_up) % 10;
    char text[64];
    std::snprintf(text, sizeof text, "%" PRId64 "%s%d", whole, kDecimal, tenths);
    return std::string(text) + " " + tr("s");
}

int saturated(int64_t number) {
    return static_cast<int>(std::clamp<int64_t>(number, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}

}  // namespace fmt
