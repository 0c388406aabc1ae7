// What the words and numbers of a frame cost.
//
//   text_bench [texts [rounds]]
//
// Asks for `texts` (200) of each kind, `rounds` (2000) times per language, and prints the time per
// frame; the first hundred rounds are not counted. The keys and sizes are spread over all that
// there are, so that the search is not helped by asking for the same one again.

#include "format.h"
#include "i18n.h"
#include "i18n_data.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kWarmUp = 100;

unsigned g_texts = 200;
unsigned g_rounds = 2000;
size_t g_sink = 0;  // what keeps the compiler from leaving the work out

// Prints the microseconds that `texts` calls of what(number) take.
template <typename What>
void measure(const char* name, What what) {
    std::vector<double> times;
    unsigned number = 0;
    for (unsigned round = 0; round < g_rounds + kWarmUp; ++round) {
        const Clock::time_point start = Clock::now();
        for (unsigned i = 0; i < g_texts; ++i)
            g_sink += what(number++);
        if (round >= kWarmUp)
            times.push_back(
                std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    const double mean =
        std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size());
    std::printf("  %-14s median %7.2f   min %7.2f   mean %7.2f   max %8.2f us\n", name,
                times[times.size() / 2], times.front(), mean, times.back());
}

// Sizes from bytes to terabytes, in no order.
int64_t size_of(unsigned number) {
    const uint64_t mixed = (number + 1) * 0x9E3779B97F4A7C15ULL;
    return static_cast<int64_t>(mixed >> (20 + number % 40));
}

void measure_language(const char* code) {
    I18n::instance().set_language(code);
    std::printf("%s, %u texts\n", code, g_texts);
    measure("tr", [](unsigned number) {
        const char* key = i18n_data::KEYS[number * 131 % i18n_data::kTextCount];
        return static_cast<size_t>(tr(key)[0]);
    });
    measure("fmt::bytes", [](unsigned number) { return fmt::bytes(size_of(number)).size(); });
    measure("fmt::count", [](unsigned number) { return fmt::count(size_of(number)).size(); });
    measure("fmt::date_time", [](unsigned number) {
        return fmt::date_time(1700000000 - static_cast<int64_t>(number) * 7919).size();
    });
    measure("fmt::relative", [](unsigned number) {
        return fmt::relative(1700000000 - static_cast<int64_t>(number) * 7919).size();
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1)
        g_texts = static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10));
    if (argc > 2)
        g_rounds = std::max(1U, static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    // The first, the middle and the last row of the tables that are searched in a line.
    for (const char* code : {"ar", "en", "zh_TW"})
        measure_language(code);
    return g_sink == 0;
}
