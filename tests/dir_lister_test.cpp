// The order of a listing and the mode text. What is read from disk: dir_lister_read_test.cpp; the
// order over random entries: dir_lister_random_test.cpp.

#include "dir_lister.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
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
    if (kind == Kind::File)
        result.size = 0;
    return result;
}

FsEntry sized(const std::string& name, int64_t size, Kind kind = Kind::File) {
    FsEntry result = entry(name, kind);
    result.size = size;
    return result;
}

template <typename T>
FsEntry with(const std::string& name, T FsEntry::*field, T value) {
    FsEntry result = entry(name);
    result.*field = std::move(value);
    return result;
}

Names sorted(std::vector<FsEntry> entries, const SortOrder& order = {}) {
    dir_lister::sort(entries, order);
    Names names;
    for (const FsEntry& e : entries)
        names.push_back(e.name);
    return names;
}

Names sorted_names(const Names& names, const SortOrder& order = {}) {
    std::vector<FsEntry> entries;
    for (const std::string& name : names)
        entries.push_back(entry(name));
    return sorted(std::move(entries), order);
}

// Whether the natural order puts a in front of b from either starting position. For two different
// names exactly one of before(a, b) and before(b, a) must hold.
bool before(const std::string& a, const std::string& b) {
    const Names wanted = {a, b};
    return sorted_names({a, b}) == wanted && sorted_names({b, a}) == wanted;
}

SortOrder by(SortKey key, bool ascending = true, bool dirs_first = true) {
    return {.key = key, .ascending = ascending, .dirs_first = dirs_first};
}

}  // namespace

// --- Types --------------------------------------------------------------------------------------

TEST(fs_entry, kinds_have_their_numbers) {
    const Kind kinds[] = {Kind::File,          Kind::Dir,     Kind::Symlink, Kind::SymlinkDir,
                          Kind::BrokenSymlink, Kind::Special, Kind::Parent};
    for (size_t i = 0; i < std::size(kinds); ++i)
        EXPECT_EQ(static_cast<size_t>(kinds[i]), i);
    EXPECT_EQ(sizeof(Kind), 1U);
}

TEST(fs_entry, a_fresh_one_is_a_file_that_nothing_is_known_of) {
    const FsEntry fresh;
    EXPECT_EQ(fresh.name, "");
    EXPECT_EQ(fresh.link_target, "");
    EXPECT_EQ(fresh.kind, Kind::File);
    EXPECT_EQ(fresh.size, -1);
    EXPECT_EQ(fresh.mtime, 0);
    EXPECT_EQ(fresh.ctime, 0);
    EXPECT_EQ(fresh.btime, 0);
    EXPECT_EQ(fresh.perm, 0U);
    EXPECT_EQ(fresh.owner, "");
    EXPECT_EQ(fresh.group, "");
    EXPECT_FALSE(fresh.hidden);
}

TEST(fs_entry, predicates_hold_for_their_kinds_alone) {
    struct {
        Kind kind;
        bool dir_like;
        bool symlink;
    } const rows[] = {
        {Kind::File, false, false},         {Kind::Dir, true, false},
        {Kind::Symlink, false, true},       {Kind::SymlinkDir, true, true},
        {Kind::BrokenSymlink, false, true}, {Kind::Special, false, false},
        {Kind::Parent, false, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(entry("x", row.kind).is_dir_like(), row.dir_like) << static_cast<int>(row.kind);
        EXPECT_EQ(entry("x", row.kind).is_symlink(), row.symlink) << static_cast<int>(row.kind);
    }
}

TEST(dir_lister, keys_have_their_numbers_and_the_default_order_is_by_name) {
    const SortKey keys[] = {SortKey::Name,    SortKey::Size,        SortKey::Modified,
                            SortKey::Kind,    SortKey::Permissions, SortKey::Owner,
                            SortKey::Created, SortKey::Group};
    for (size_t i = 0; i < std::size(keys); ++i)
        EXPECT_EQ(static_cast<size_t>(keys[i]), i);
    EXPECT_EQ(SortOrder{}, by(SortKey::Name, true, true));
    EXPECT_NE(SortOrder{}, by(SortKey::Name, true, false));
    EXPECT_NE(SortOrder{}, by(SortKey::Name, false, true));
    EXPECT_NE(SortOrder{}, by(SortKey::Size, true, true));
}

// --- The natural order --------------------------------------------------------------------------

TEST(natural_order, puts_the_first_name_before_the_second) {
    const std::pair<const char*, const char*> pairs[] = {
        {"file2", "file10"},
        {"file2", "file02"},  // equal values: the shorter run
        {"file02", "file002"},
        {"1", "01"},
        {"01", "2"},  // the value first, the length of the run after it
        {"0", "00"},
        {"0", "1"},
        {"000", "1"},
        {"file9", "file10"},
        {"file10", "file11"},
        {"file99", "file100"},
        {"a1b2", "a1b10"},
        {"a1b", "a01a"},  // the run decides, though what follows would say otherwise
        {"a", "a1"},
        {"a", "ab"},
        {"a1", "aa"},  // a digit against a letter goes by the bytes
        {"Readme", "readme"},
        {"ABC", "abc"},
        {"README", "readme1"},
        {"readme", "readme1"},
        {"readme", "README1"},  // no groups by case
        {"a", "B"},
        {"A", "b"},
        {"z", "\xC3\xA4"},  // a byte above 127 after every letter
        {"Z", "\xC3\xA4"},
        {"\xC3\x84", "\xC3\xA4"},  // no folding but that of ASCII letters
        {"~", "\xC3\xA4"},
        {"_x", "Z"},  // folded, though as a plain byte Z is the lower one
        {"18446744073709551616", "18446744073709551617"},  // past 64 bits
        {"99999999999999999999", "100000000000000000000"},
        {" a", "a"},
        {"a b", "ab"},
        {".a", "a"},
        {"1.2.9", "1.2.10"},
        {"v1.0", "v1.00"},
        {"x1y", "x1z"},
        {"x01y", "x01z"},
        {"x007", "x08"},
        {"file", "file0"},
        {"file0", "file00"},
    };
    for (const auto& [first, second] : pairs) {
        EXPECT_TRUE(before(first, second)) << first << " / " << second;
        EXPECT_FALSE(before(second, first)) << first << " / " << second;
    }
}

TEST(natural_order, compares_runs_of_digits_of_any_length) {
    const std::string big(5000, '9');
    const std::string bigger = "1" + std::string(5000, '0');
    EXPECT_TRUE(before("n" + big + "x", "n" + bigger));
    EXPECT_TRUE(before("n" + bigger, "n" + std::string(300, '0') + bigger));
    EXPECT_TRUE(before(std::string(5000, '0'), "1"));
}

TEST(natural_order, sorts_a_folder_as_a_reader_expects) {
    const Names wanted = {"a",      "a1",     "B2",     "b10",    "file1",  "file2",
                          "file02", "file10", "README", "Readme", "readme", "readme1"};
    Names shuffled = wanted;
    std::reverse(shuffled.begin(), shuffled.end());
    EXPECT_EQ(sorted_names(shuffled), wanted);
    std::mt19937 random(1);
    for (int i = 0; i < 50; ++i) {
        std::shuffle(shuffled.begin(), shuffled.end(), random);
        EXPECT_EQ(sorted_names(shuffled), wanted);
    }
}

// --- The parent row and the directories ---------------------------------------------------------

TEST(dir_lister_sort, keeps_the_parent_row_first_whatever_the_order) {
    for (int key = 0; key < 8; ++key) {
        for (const bool ascending : {true, false}) {
            for (const bool dirs_first : {true, false}) {
                // Each entry would beat ".." under some key or direction.
                std::vector<FsEntry> entries = {sized("!", 9), entry("zzz", Kind::Dir),
                                                entry("..", Kind::Parent), entry(" ", Kind::Dir)};
                entries[0].mtime = entries[0].btime = -5;
                const Names names =
                    sorted(entries, by(static_cast<SortKey>(key), ascending, dirs_first));
                EXPECT_EQ(names.front(), "..") << key << ascending << dirs_first;
            }
        }
    }
}

TEST(dir_lister_sort, two_parent_rows_compare_like_any_two_entries) {
    FsEntry old_one = entry("..", Kind::Parent);
    FsEntry new_one = entry("...", Kind::Parent);
    old_one.mtime = 1;
    new_one.mtime = 2;
    EXPECT_EQ(sorted({new_one, old_one}, by(SortKey::Modified)), (Names{"..", "..."}));
    EXPECT_EQ(sorted({old_one, new_one}, by(SortKey::Modified, false)), (Names{"...", ".."}));
}

TEST(dir_lister_sort, directories_and_links_to_them_precede_the_rest_in_both_directions) {
    const std::vector<FsEntry> entries = {
        entry("a", Kind::File),          entry("b", Kind::Dir),
        entry("c", Kind::Symlink),       entry("d", Kind::SymlinkDir),
        entry("e", Kind::BrokenSymlink), entry("f", Kind::Special),
        entry("..", Kind::Parent),       entry("g", Kind::Dir)};
    EXPECT_EQ(sorted(entries, by(SortKey::Name)), (Names{"..", "b", "d", "g", "a", "c", "e", "f"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Name, false)),
              (Names{"..", "g", "d", "b", "f", "e", "c", "a"}));
}

TEST(dir_lister_sort, without_dirs_first_directories_mix_with_files) {
    const std::vector<FsEntry> entries = {entry("b", Kind::Dir), entry("a"), entry("c")};
    EXPECT_EQ(sorted(entries, by(SortKey::Name, true, false)), (Names{"a", "b", "c"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Name, false, false)), (Names{"c", "b", "a"}));
}

TEST(dir_lister_sort, is_stable) {
    std::vector<FsEntry> entries;
    for (int i = 0; i < 100; ++i) {
        entries.push_back(sized("same", i % 3));
        entries.back().link_target = std::to_string(i);
    }
    dir_lister::sort(entries, by(SortKey::Name));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(entries[static_cast<size_t>(i)].link_target, std::to_string(i));
    dir_lister::sort(entries, by(SortKey::Name, false));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(entries[static_cast<size_t>(i)].link_target, std::to_string(i));
    dir_lister::sort(entries, by(SortKey::Size));
    for (size_t i = 1; i < 100; ++i) {
        if (entries[i - 1].size == entries[i].size) {
            EXPECT_LT(std::stoi(entries[i - 1].link_target), std::stoi(entries[i].link_target));
        }
    }
}

TEST(dir_lister_sort, carries_every_field_of_an_entry_along) {
    FsEntry full = entry("z", Kind::Symlink);
    full.link_target = "a target too long for the small buffer of a string";
    full.size = 7;
    full.mtime = 1;
    full.ctime = 2;
    full.btime = 3;
    full.perm = 0755;
    full.owner = "owner";
    full.group = "group";
    full.hidden = true;
    std::vector<FsEntry> entries = {full, entry("a")};
    dir_lister::sort(entries, {});
    const FsEntry& moved = entries[1];
    EXPECT_EQ(moved.name, "z");
    EXPECT_EQ(moved.link_target, full.link_target);
    EXPECT_EQ(moved.kind, Kind::Symlink);
    EXPECT_EQ(moved.size, 7);
    EXPECT_EQ(moved.mtime, 1);
    EXPECT_EQ(moved.ctime, 2);
    EXPECT_EQ(moved.btime, 3);
    EXPECT_EQ(moved.perm, 0755U);
    EXPECT_EQ(moved.owner, "owner");
    EXPECT_EQ(moved.group, "group");
    EXPECT_TRUE(moved.hidden);
}

TEST(dir_lister_sort, of_nothing_or_of_one_entry_is_no_work) {
    EXPECT_EQ(sorted({}), Names{});
    EXPECT_EQ(sorted({entry("a")}), Names{"a"});
}

// --- The keys -----------------------------------------------------------------------------------

TEST(dir_lister_sort, by_size_puts_directories_below_every_file_without_dirs_first) {
    const std::vector<FsEntry> entries = {sized("b", 0), sized("d", -1, Kind::Dir), sized("a", 5),
                                          sized("big", int64_t{1} << 40)};
    EXPECT_EQ(sorted(entries, by(SortKey::Size, true, false)), (Names{"d", "b", "a", "big"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Size, false, false)), (Names{"big", "a", "b", "d"}));
}

TEST(dir_lister_sort,
     by_size_ties_directories_and_takes_their_natural_order_reversed_when_descending) {
    const std::vector<FsEntry> entries = {sized("d10", -1, Kind::Dir), sized("d2", -1, Kind::Dir),
                                          sized("f", 3)};
    EXPECT_EQ(sorted(entries, by(SortKey::Size)), (Names{"d2", "d10", "f"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Size, false)), (Names{"d10", "d2", "f"}));
}

TEST(dir_lister_sort, by_size_ties_any_two_negative_sizes) {
    EXPECT_EQ(sorted({sized("a", -1), sized("b", -9)}, by(SortKey::Size)), (Names{"a", "b"}));
    EXPECT_EQ(sorted({sized("b", -1), sized("a", -9)}, by(SortKey::Size)), (Names{"a", "b"}));
    EXPECT_EQ(sorted({sized("a", 0), sized("b", -9)}, by(SortKey::Size)), (Names{"b", "a"}));
}

TEST(dir_lister_sort, by_time_is_signed_and_falls_to_the_name) {
    for (const auto& [key, field] : {std::pair{SortKey::Modified, &FsEntry::mtime},
                                     std::pair{SortKey::Created, &FsEntry::btime}}) {
        const std::vector<FsEntry> entries = {
            with<int64_t>("now", field, 1'700'000'000), with<int64_t>("f10", field, 50),
            with<int64_t>("f2", field, 50), with<int64_t>("past", field, -100)};
        EXPECT_EQ(sorted(entries, by(key)), (Names{"past", "f2", "f10", "now"}));
        EXPECT_EQ(sorted(entries, by(key, false)), (Names{"now", "f10", "f2", "past"}));
    }
}

TEST(dir_lister_sort, by_creation_puts_an_unknown_birth_time_among_the_oldest) {
    const std::vector<FsEntry> entries = {with<int64_t>("a", &FsEntry::btime, 1'700'000'000),
                                          with<int64_t>("unknown", &FsEntry::btime, 0),
                                          with<int64_t>("b", &FsEntry::btime, 1)};
    EXPECT_EQ(sorted(entries, by(SortKey::Created)), (Names{"unknown", "b", "a"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Created, false)), (Names{"a", "b", "unknown"}));
}

TEST(dir_lister_sort, by_modification_looks_at_no_other_time) {
    FsEntry a = with<int64_t>("a", &FsEntry::mtime, 2);
    FsEntry b = with<int64_t>("b", &FsEntry::mtime, 1);
    a.ctime = a.btime = 1;
    b.ctime = b.btime = 2;
    EXPECT_EQ(sorted({a, b}, by(SortKey::Modified)), (Names{"b", "a"}));
}

TEST(dir_lister_sort, by_kind_compares_extensions_without_case) {
    EXPECT_EQ(sorted_names({"x.tar", "archive.TAR", "a.zip", "z.c"}, by(SortKey::Kind)),
              (Names{"z.c", "archive.TAR", "x.tar", "a.zip"}));
    EXPECT_EQ(sorted_names({"x.tar", "archive.TAR", "a.zip", "z.c"}, by(SortKey::Kind, false)),
              (Names{"a.zip", "x.tar", "archive.TAR", "z.c"}));
}

TEST(dir_lister_sort, by_kind_knows_names_without_an_extension) {
    // No dot, the only dot in front, and a dot at the end all tie and go by name.
    EXPECT_EQ(sorted_names({"a.a", "z", ".bashrc", "end."}, by(SortKey::Kind)),
              (Names{".bashrc", "end.", "z", "a.a"}));
    // The last dot counts: ".tar.gz" has the extension gz, and "..x" has x.
    EXPECT_EQ(sorted_names({"..x", "m.h", ".a.gz", "b.tar.gz"}, by(SortKey::Kind)),
              (Names{".a.gz", "b.tar.gz", "m.h", "..x"}));
}

TEST(dir_lister_sort, by_kind_compares_extensions_as_bytes_and_not_as_numbers) {
    EXPECT_EQ(sorted_names({"a.2", "b.10"}, by(SortKey::Kind)), (Names{"b.10", "a.2"}));
    EXPECT_EQ(sorted_names({"a.cc", "b.c"}, by(SortKey::Kind)), (Names{"b.c", "a.cc"}));
    EXPECT_EQ(sorted_names({"a.\xC3\xA4", "b.z"}, by(SortKey::Kind)), (Names{"b.z", "a.\xC3\xA4"}));
}

TEST(dir_lister_sort, by_kind_looks_at_the_name_alone) {
    const std::vector<FsEntry> entries = {entry("b.b", Kind::Dir), entry("c.c"),
                                          entry("a.z", Kind::Special), entry("d.a", Kind::Dir)};
    EXPECT_EQ(sorted(entries, by(SortKey::Kind, true, false)), (Names{"d.a", "b.b", "c.c", "a.z"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Kind)), (Names{"d.a", "b.b", "c.c", "a.z"}));
}

TEST(dir_lister_sort, by_permissions_compares_numbers) {
    const std::vector<FsEntry> entries = {
        with<uint32_t>("setuid", &FsEntry::perm, 04000), with<uint32_t>("b", &FsEntry::perm, 0644),
        with<uint32_t>("a", &FsEntry::perm, 0644), with<uint32_t>("none", &FsEntry::perm, 0)};
    EXPECT_EQ(sorted(entries, by(SortKey::Permissions)), (Names{"none", "a", "b", "setuid"}));
    EXPECT_EQ(sorted(entries, by(SortKey::Permissions, false)),
              (Names{"setuid", "b", "a", "none"}));
}

TEST(dir_lister_sort, by_owner_and_group_compares_bytes_with_regard_to_case) {
    for (const auto& [key, field] :
         {std::pair{SortKey::Owner, &FsEntry::owner}, std::pair{SortKey::Group, &FsEntry::group}}) {
        const std::vector<FsEntry> entries = {
            with<std::string>("1", field, "bob"),    with<std::string>("2", field, "Zed"),
            with<std::string>("3", field, "user10"), with<std::string>("4", field, "user2"),
            with<std::string>("5", field, ""),       with<std::string>("0", field, "bob")};
        EXPECT_EQ(sorted(entries, by(key)), (Names{"5", "2", "0", "1", "3", "4"}));
        EXPECT_EQ(sorted(entries, by(key, false)), (Names{"4", "3", "1", "0", "2", "5"}));
    }
}

TEST(dir_lister_sort, by_an_unknown_key_is_by_name) {
    const auto unknown = static_cast<SortKey>(99);
    std::vector<FsEntry> entries = {sized("f10", 1), sized("f2", 2), entry("z", Kind::Dir)};
    EXPECT_EQ(sorted(entries, by(unknown)), (Names{"z", "f2", "f10"}));
    EXPECT_EQ(sorted(entries, by(unknown, false)), (Names{"z", "f10", "f2"}));
}

TEST(dir_lister_sort, every_key_falls_to_the_natural_order_of_names) {
    for (int key = 0; key < 8; ++key) {
        const Names names = {"f10", "F2", "f02", "f2", "f1"};
        EXPECT_EQ(sorted_names(names, by(static_cast<SortKey>(key))),
                  (Names{"f1", "F2", "f2", "f02", "f10"}))
            << key;
        EXPECT_EQ(sorted_names(names, by(static_cast<SortKey>(key), false)),
                  (Names{"f10", "f02", "f2", "F2", "f1"}))
            << key;
    }
}

// --- The mode text ------------------------------------------------------------------------------

TEST(permission_string, first_character_tells_the_kind) {
    const std::pair<Kind, char> rows[] = {
        {Kind::File, '-'},       {Kind::Dir, 'd'},           {Kind::Symlink, 'l'},
        {Kind::SymlinkDir, 'l'}, {Kind::BrokenSymlink, 'l'}, {Kind::Special, 's'},
    };
    for (const auto& [kind, first] : rows)
        EXPECT_EQ(dir_lister::permission_string(entry("x", kind)),
                  std::string(1, first) + "---------");
}

TEST(permission_string, of_the_parent_row_is_empty) {
    FsEntry parent = entry("..", Kind::Parent);
    parent.perm = 0777;
    EXPECT_EQ(dir_lister::permission_string(parent), "");
}

TEST(permission_string, shows_each_bit_at_its_place) {
    const std::pair<uint32_t, const char*> rows[] = {
        {0, "----------"},     {0400, "-r--------"},  {0200, "--w-------"},  {0100, "---x------"},
        {0040, "----r-----"},  {0020, "-----w----"},  {0010, "------x---"},  {0004, "-------r--"},
        {0002, "--------w-"},  {0001, "---------x"},  {0644, "-rw-r--r--"},  {0755, "-rwxr-xr-x"},
        {0777, "-rwxrwxrwx"},  {04000, "---S------"}, {02000, "------S---"}, {01000, "---------T"},
        {04100, "---s------"}, {02010, "------s---"}, {01001, "---------t"}, {07777, "-rwsrwsrwt"},
        {07666, "-rwSrwSrwT"}, {04755, "-rwsr-xr-x"}, {02755, "-rwxr-sr-x"}, {01777, "-rwxrwxrwt"},
        {04010, "---S--x---"}, {02001, "------S--x"}, {01010, "------x--T"},
    };
    for (const auto& [perm, text] : rows)
        EXPECT_EQ(dir_lister::permission_string(with<uint32_t>("x", &FsEntry::perm, perm)), text);
}
