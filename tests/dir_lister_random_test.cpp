// The order of a listing over random entries: it is total, and it is that of the rules written out
// plainly. The sort compares packed beginnings of names and keys first, so the entries here agree
// in long beginnings.

#include "dir_lister.h"
#include "fresh_process.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using dir_lister::SortKey;
using dir_lister::SortOrder;
using Kind = FsEntry::Kind;
using Names = std::vector<std::string>;

namespace {

FsEntry entry(const std::string& name, Kind kind = Kind::File) {
    FsEntry result;
    result.name = name;
    result.kind = kind;
    return result;
}

Names sorted_names(const Names& names) {
    std::vector<FsEntry> entries;
    for (const std::string& name : names)
        entries.push_back(entry(name));
    dir_lister::sort(entries, {});
    Names result;
    for (const FsEntry& e : entries)
        result.push_back(e.name);
    return result;
}

// Whether a comes before b from either starting position.
bool before(const std::string& a, const std::string& b) {
    const Names wanted = {a, b};
    return sorted_names({a, b}) == wanted && sorted_names({b, a}) == wanted;
}

SortOrder by(SortKey key, bool ascending = true, bool dirs_first = true) {
    return {.key = key, .ascending = ascending, .dirs_first = dirs_first};
}

// --- The plain rules ----------------------------------------------------------------------------

int sign_of(bool less) {
    return less ? -1 : 1;
}

int plain_natural(const std::string& a, const std::string& b) {
    const auto digit = [](char c) { return c >= '0' && c <= '9'; };
    const auto lower = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 'A' && byte <= 'Z' ? byte + 32 : int{byte};
    };
    size_t i = 0;
    size_t j = 0;
    while (i < a.size()) {
        if (j == b.size())
            return 1;
        if (digit(a[i]) && digit(b[j])) {
            std::string run_a;
            std::string run_b;
            while (i < a.size() && digit(a[i]))
                run_a += a[i++];
            while (j < b.size() && digit(b[j]))
                run_b += b[j++];
            const auto value = [](std::string run) {
                while (run.size() > 1 && run[0] == '0')
                    run.erase(0, 1);
                return run;
            };
            if (value(run_a).size() != value(run_b).size())
                return sign_of(value(run_a).size() < value(run_b).size());
            if (value(run_a) != value(run_b))
                return sign_of(value(run_a) < value(run_b));
            if (run_a.size() != run_b.size())
                return sign_of(run_a.size() < run_b.size());
            continue;
        }
        if (lower(a[i]) != lower(b[j]))
            return sign_of(lower(a[i]) < lower(b[j]));
        ++i;
        ++j;
    }
    if (j < b.size())
        return -1;
    return a.compare(b);
}

std::string plain_extension(const std::string& name) {
    const size_t dot = name.rfind('.');
    std::string result = dot == std::string::npos || dot == 0 ? "" : name.substr(dot + 1);
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    }
    return result;
}

template <typename T>
int three_way(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

int plain_key(const FsEntry& a, const FsEntry& b, SortKey key) {
    switch (key) {
    case SortKey::Name:
        return 0;
    case SortKey::Size:
        return a.size < 0 && b.size < 0 ? 0 : three_way(a.size, b.size);
    case SortKey::Modified:
        return three_way(a.mtime, b.mtime);
    case SortKey::Kind:
        return three_way(plain_extension(a.name), plain_extension(b.name));
    case SortKey::Permissions:
        return three_way(a.perm, b.perm);
    case SortKey::Owner:
        return three_way(a.owner, b.owner);
    case SortKey::Created:
        return three_way(a.btime, b.btime);
    case SortKey::Group:
        return three_way(a.group, b.group);
    }
    return 0;
}

bool plain_before(const FsEntry& a, const FsEntry& b, const SortOrder& order) {
    if ((a.kind == Kind::Parent) != (b.kind == Kind::Parent))
        return a.kind == Kind::Parent;
    if (order.dirs_first && a.is_dir_like() != b.is_dir_like())
        return a.is_dir_like();
    int c = plain_key(a, b, order.key);
    if (c == 0)
        c = plain_natural(a.name, b.name);
    return order.ascending ? c < 0 : c > 0;
}

// --- Random names and entries -------------------------------------------------------------------

// Names over few bytes, so that equal values, prefixes and case pairs come up often.
std::string random_name(std::mt19937& random) {
    static const std::string bytes = "0012345 _.aAbBzZ~\xC3\xA4\xFF";
    std::string name(1 + random() % 6, ' ');
    for (char& c : name)
        c = bytes[random() % bytes.size()];
    return name;
}

// A few pieces on end, some of them long.
std::string random_text(std::mt19937& random) {
    static const Names pieces = {"0",
                                 "00",
                                 "7",
                                 "12",
                                 "0012",
                                 "345678901234",
                                 "a",
                                 "A",
                                 "b",
                                 ".",
                                 "_",
                                 "IMG_",
                                 "Track ",
                                 "/",
                                 ":",
                                 "\xC3\xA4",
                                 "\xFF",
                                 "\x01",
                                 "Screenshot from ",
                                 "aaaaaaaa",
                                 "AAAAAAAA",
                                 "aaaaaaab"};
    static const Names long_pieces = {
        std::string(253, '1'), std::string(254, '1'),       std::string(255, '1'),
        std::string(256, '1'), std::string(255, '1') + "x", std::string(254, '0'),
        std::string(255, '0'), std::string(300, '0') + "1", std::string(300, '0') + "2"};
    std::string text;
    for (size_t n = 1 + random() % 6; n > 0; --n)
        text += random() % 40 == 0 ? long_pieces[random() % long_pieces.size()]
                                   : pieces[random() % pieces.size()];
    return text;
}

FsEntry random_entry(std::mt19937& random, int number) {
    static const int64_t numbers[] = {INT64_MIN, -2, -1, 0, 1, 255, 256, 257, INT64_MAX};
    const auto pick = [&] { return numbers[random() % std::size(numbers)]; };
    FsEntry result = entry(random_text(random), static_cast<Kind>(random() % 7));
    result.size = pick();
    result.mtime = pick();
    result.btime = pick();
    result.perm = static_cast<uint32_t>(random() % (random() % 3 ? 3 : 07777));
    result.owner = random_text(random);
    result.group = random() % 2 ? random_text(random) : "group";
    result.link_target = std::to_string(number);
    return result;
}

}  // namespace

TEST(natural_order, is_total_over_random_names) {
    std::mt19937 random(20240611);
    for (int i = 0; i < 40000; ++i) {
        const std::string a = random_name(random);
        const std::string b = random_name(random);
        const std::string c = random_name(random);
        if (a != b) {
            ASSERT_NE(before(a, b), before(b, a)) << a << " / " << b;
        }
        if (before(a, b) && before(b, c)) {
            ASSERT_TRUE(before(a, c)) << a << " / " << b << " / " << c;
        }
    }
}

TEST(natural_order, does_not_depend_on_where_the_names_started) {
    std::mt19937 random(7);
    Names names;
    for (int i = 0; i < 3000; ++i)
        names.push_back(random_name(random));
    const Names first = sorted_names(names);
    for (size_t i = 0; i + 1 < first.size(); ++i)
        ASSERT_TRUE(first[i] == first[i + 1] || before(first[i], first[i + 1])) << first[i];
    for (int round = 0; round < 5; ++round) {
        std::shuffle(names.begin(), names.end(), random);
        ASSERT_EQ(sorted_names(names), first);
    }
}

TEST(natural_order, is_that_of_the_plain_rules) {
    std::mt19937 random(99);
    for (int i = 0; i < 20000; ++i) {
        const std::string a = random_text(random);
        std::string b = random_text(random);
        if (random() % 2)
            b = a.substr(0, random() % (a.size() + 1)) + b;  // agree in the beginning
        if (a == b)
            continue;
        ASSERT_EQ(before(a, b), plain_natural(a, b) < 0) << a << "\n" << b;
    }
}

TEST(dir_lister_sort, is_that_of_the_plain_rules_for_every_order) {
    std::mt19937 random(5);
    std::vector<FsEntry> entries;
    for (int i = 0; i < 1500; ++i)
        entries.push_back(random_entry(random, i));
    for (int key = 0; key < 8; ++key) {
        for (const bool ascending : {true, false}) {
            for (const bool dirs_first : {true, false}) {
                const SortOrder order = by(static_cast<SortKey>(key), ascending, dirs_first);
                std::vector<FsEntry> expected = entries;
                std::stable_sort(
                    expected.begin(), expected.end(),
                    [&](const FsEntry& a, const FsEntry& b) { return plain_before(a, b, order); });
                std::vector<FsEntry> found = entries;
                dir_lister::sort(found, order);
                for (size_t i = 0; i < entries.size(); ++i)
                    ASSERT_EQ(found[i].link_target, expected[i].link_target)
                        << key << ascending << dirs_first << " row " << i;
            }
        }
    }
}

TEST(dir_lister_sort, needs_no_memory_of_its_own) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer ends the process when memory cannot be had";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    GTEST_SKIP() << "a sanitizer ends the process when memory cannot be had";
#endif
#endif
    constexpr int kNames = 15000;
    std::vector<FsEntry> entries;
    for (int i = 0; i < 2 * kNames; ++i) {  // every name twice
        entries.push_back(entry("f" + std::to_string(i * 7919 % kNames)));
        entries.back().size = i;
    }
    const std::string answer = test_env::answer_of_child([&] {
        std::ifstream statm("/proc/self/statm");
        size_t pages = 0;
        statm >> pages;
        const rlim_t used = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const struct rlimit limit = {used + 65536, used + 65536};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            return std::string("no limit");
        dir_lister::sort(entries, by(SortKey::Name, false));
        for (size_t i = 0; i < entries.size(); ++i) {
            if (entries[i].name != "f" + std::to_string(kNames - 1 - i / 2))
                return std::string("wrong order");
            if (i % 2 && entries[i - 1].size > entries[i].size)
                return std::string("not stable");
        }
        return std::string("sorted");
    });
    EXPECT_EQ(answer, "sorted");
}
