// What a listing costs over the system calls that it cannot do without.
//
//   listing_bench [folder [entries [rounds]]]
//
// Makes a folder of that many empty files below `folder` (default: TMPDIR or /tmp; 100,000; 15) and
// measures, in turn within one run, a bare loop of readdir and statx relative to the open folder,
// and dir_lister::read with dir_lister::sort. Both find everything in the kernel's caches: the
// first round is not counted. Sorting by the other keys is printed for information.

#include "dir_lister.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <numeric>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// CPU time of this thread, user and system, which a busy machine disturbs less.
double cpu_ms() {
    struct timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void print(const char* what, const std::vector<double>& values) {
    const auto [low, high] = std::minmax_element(values.begin(), values.end());
    const double mean =
        std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
    std::printf("%-28s median %8.2f   min %8.2f   mean %8.2f   max %8.2f ms\n", what,
                median(values), *low, mean, *high);
}

// The kinds of names that big folders hold, and not in the order of the list.
std::string file_name(unsigned number) {
    static const char* const forms[] = {"IMG_%05u.jpg", "report-%u.pdf", "%08x.cache",
                                        "Track %u - Some Title.flac", "frame%u.png"};
    const unsigned mixed = number * 2654435761U;
    char name[64];
    std::snprintf(name, sizeof name, forms[number % std::size(forms)], mixed % 10'000'000U);
    return std::to_string(number % 1000) + name;
}

bool make_files(const std::string& folder, unsigned count) {
    const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0)
        return false;
    bool ok = true;
    for (unsigned made = 0, number = 0; made < count && ok; ++number) {
        const int fd =
            openat(dir, file_name(number).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        ok = fd >= 0 || errno == EEXIST;
        if (fd >= 0) {
            close(fd);
            ++made;
        }
    }
    close(dir);
    return ok;
}

void remove_files(const std::string& folder) {
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return;
    std::vector<std::string> names;
    while (const struct dirent* entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    for (const std::string& name : names)
        unlinkat(dirfd(dir), name.c_str(), 0);
    closedir(dir);
    rmdir(folder.c_str());
}

// The bare loop. Returns how many entries it saw.
size_t bare(const std::string& folder) {
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return 0;
    size_t seen = 0;
    while (const struct dirent* entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        struct statx reply;
        if (statx(dirfd(dir), entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                  &reply) == 0)
            ++seen;
    }
    closedir(dir);
    return seen;
}

void measure_keys(const std::string& folder, unsigned rounds) {
    static const char* const names[] = {"sort by name",       "sort by size",  "sort by mtime",
                                        "sort by kind",       "sort by perms", "sort by owner",
                                        "sort by birth time", "sort by group"};
    for (size_t key = 0; key < std::size(names); ++key) {
        std::vector<double> times;
        for (unsigned i = 0; i < rounds; ++i) {
            dir_lister::Listing listing = dir_lister::read(folder, true);
            const Clock::time_point start = Clock::now();
            dir_lister::sort(listing.entries, {.key = static_cast<dir_lister::SortKey>(key),
                                               .ascending = true,
                                               .dirs_first = true});
            times.push_back(ms_since(start));
        }
        print(names[key], times);
    }
}

int measure(const std::string& folder, unsigned count, unsigned rounds) {
    std::vector<double> bare_times;
    std::vector<double> read_times;
    std::vector<double> sort_times;
    std::vector<double> both_times;
    std::vector<double> bare_cpu;
    std::vector<double> both_cpu;
    for (unsigned i = 0; i <= rounds; ++i) {
        const double cpu_start = cpu_ms();
        const Clock::time_point bare_start = Clock::now();
        const size_t seen = bare(folder);
        const double bare_ms = ms_since(bare_start);
        const double cpu_between = cpu_ms();

        const Clock::time_point start = Clock::now();
        dir_lister::Listing listing = dir_lister::read(folder, true);
        const double read_ms = ms_since(start);
        dir_lister::sort(listing.entries, {});
        const double both_ms = ms_since(start);
        const double cpu_end = cpu_ms();

        if (seen != count || listing.entries.size() != count + 1) {
            std::fprintf(stderr, "%zu and %zu entries instead of %u\n", seen,
                         listing.entries.size() - 1, count);
            return 1;
        }
        if (i == 0)
            continue;
        bare_times.push_back(bare_ms);
        read_times.push_back(read_ms);
        sort_times.push_back(both_ms - read_ms);
        both_times.push_back(both_ms);
        bare_cpu.push_back(cpu_between - cpu_start);
        both_cpu.push_back(cpu_end - cpu_between);
    }
    std::printf("%u entries in %s, %u rounds\n", count, folder.c_str(), rounds);
    print("readdir and statx", bare_times);
    print("dir_lister::read", read_times);
    print("dir_lister::sort", sort_times);
    print("read and sort", both_times);
    std::printf("ratio of the medians: %.2f (of CPU time alone: %.2f)\n",
                median(both_times) / median(bare_times), median(both_cpu) / median(bare_cpu));
    measure_keys(folder, std::min(rounds, 5U));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = argc > 1 ? argv[1] : tmp && *tmp ? tmp : "/tmp";
    const unsigned count = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 100'000;
    const unsigned rounds = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 15;
    folder += "/listing-bench.XXXXXX";
    if (count == 0 || rounds == 0 || !mkdtemp(folder.data())) {
        std::fprintf(stderr, "usage: listing_bench [folder [entries [rounds]]]\n");
        return 2;
    }
    int status = 1;
    if (make_files(folder, count))
        status = measure(folder, count, rounds);
    else
        std::perror(folder.c_str());
    remove_files(folder);
    return status;
}
