#include "dir_lister.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace dir_lister {

namespace {

bool is_digit(unsigned char c) {
    return c >= '0' && c <= '9';
}

// ASCII alone, whatever the locale: names are UTF-8, whose bytes mean nothing one by one.
unsigned char fold(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

unsigned char byte_at(std::string_view s, size_t i) {
    return static_cast<unsigned char>(s[i]);
}

// The number at s[at] as it is compared: without leading zeros, "0" for a run of zeros alone. end
// is set behind the run.
std::string_view digit_run(std::string_view s, size_t at, size_t& end) {
    end = at;
    while (end < s.size() && is_digit(byte_at(s, end)))
        ++end;
    while (at + 1 < end && s[at] == '0')
        ++at;
    return s.substr(at, end - at);
}

// Runs of digits compare by their value, whatever their length, the rest byte by byte without
// regard to ASCII case. Names equal so far compare by their plain bytes, so that no two different
// names are equal.
int natural_compare(const std::string& a, const std::string& b) {
    size_t i = 0;
    size_t j = 0;
    while (i < a.size()) {
        if (j >= b.size())
            return 1;
        if (is_digit(byte_at(a, i)) && is_digit(byte_at(b, j))) {
            size_t end_a = 0;
            size_t end_b = 0;
            const std::string_view value_a = digit_run(a, i, end_a);
            const std::string_view value_b = digit_run(b, j, end_b);
            if (value_a.size() != value_b.size())
                return value_a.size() < value_b.size() ? -1 : 1;
            if (const int c = value_a.compare(value_b); c != 0)
                return c < 0 ? -1 : 1;
            if (end_a - i != end_b - j)
                return end_a - i < end_b - j ? -1 : 1;
            i = end_a;
            j = end_b;
            continue;
        }
        const unsigned char folded_a = fold(byte_at(a, i));
        const unsigned char folded_b = fold(byte_at(b, j));
        if (folded_a != folded_b)
            return folded_a < folded_b ? -1 : 1;
        ++i;
        ++j;
    }
    if (j < b.size())
        return -1;
    return std::strcmp(a.c_str(), b.c_str());
}

// What follows the last dot, in its own case; empty when that dot is the first byte.
std::string_view extension(std::string_view name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {};
    return name.substr(dot + 1);
}

int compare_folded(std::string_view a, std::string_view b) {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const int c = fold(byte_at(a, i)) - fold(byte_at(b, i));
        if (c != 0)
            return c;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

template <typename T>
int compare_values(T a, T b) {
    if (a == b)
        return 0;
    return a < b ? -1 : 1;
}

// --- The order ----------------------------------------------------------------------------------
//
// An entry is large and its name may lie elsewhere, so comparing entries where they are waits for
// memory most of the time. What decides nearly every comparison is therefore put into a small Row
// beforehand, the rows are sorted, and each entry is moved once, to its final place. A row's
// numbers never contradict the rules: where they are equal and may hide a difference, the entries
// themselves are looked at.

struct Row {
    uint64_t key = 0;       // the sort key; of a text its first bytes
    uint64_t name[2] = {};  // the beginning of the name's natural order
    const FsEntry* entry = nullptr;
    int rank = 0;  // what precedes every key: the parent row, then directories
};

// Packs bytes so that the numbers compare as the bytes do. Unused bytes are 0, which no name holds.
template <size_t kWords>
class Packer {
  public:
    explicit Packer(uint64_t* words) : m_words(words) {}
    bool full() const { return m_used == kWords * 8; }
    void push(unsigned char byte) {
        if (full())
            return;
        m_words[m_used / 8] |= uint64_t{byte} << (56 - m_used % 8 * 8);
        ++m_used;
    }
    // A length, which decides before what follows it. Those past the scale are all equal, and
    // nothing behind them may decide.
    void push_length(size_t length) {
        push(static_cast<unsigned char>(std::min<size_t>(length, 255)));
        while (length >= 255 && !full())
            push(255);
    }

  private:
    uint64_t* m_words;
    size_t m_used = 0;
};

// The order of these bytes is that of natural_compare(), as far as they go. A run of digits becomes
// a digit (any, since the other side is either no digit or a run as well), the number of digits of
// its value, the value, and the number of leading zeros.
void pack_natural(std::string_view name, uint64_t (&words)[2]) {
    Packer<2> packer(words);
    for (size_t i = 0; i < name.size() && !packer.full();) {
        if (!is_digit(byte_at(name, i))) {
            packer.push(fold(byte_at(name, i)));
            ++i;
            continue;
        }
        size_t end = 0;
        const std::string_view value = digit_run(name, i, end);
        packer.push('0');
        packer.push_length(value.size());
        for (size_t k = 0; k < value.size() && !packer.full(); ++k)
            packer.push(byte_at(value, k));
        packer.push_length(end - i - value.size());
        i = end;
    }
}

uint64_t pack_text(std::string_view text, bool folded) {
    uint64_t word = 0;
    Packer<1> packer(&word);
    for (size_t i = 0; i < text.size() && !packer.full(); ++i)
        packer.push(folded ? fold(byte_at(text, i)) : byte_at(text, i));
    return word;
}

uint64_t pack_number(int64_t number) {
    return static_cast<uint64_t>(number) ^ (uint64_t{1} << 63);
}

uint64_t pack_key(const FsEntry& entry, SortKey key) {
    switch (key) {
    case SortKey::Name:
        return 0;
    case SortKey::Size:
        return pack_number(std::max<int64_t>(entry.size, -1));  // without a size all are equal
    case SortKey::Modified:
        return pack_number(entry.mtime);
    case SortKey::Kind:
        return pack_text(extension(entry.name), true);
    case SortKey::Permissions:
        return entry.perm;
    case SortKey::Owner:
        return pack_text(entry.owner, false);
    case SortKey::Created:
        return pack_number(entry.btime);
    case SortKey::Group:
        return pack_text(entry.group, false);
    }
    return 0;  // a key out of a damaged settings file sorts by name
}

// For keys that are texts, which a row may hold the beginning of only.
int compare_text_key(const FsEntry& a, const FsEntry& b, SortKey key) {
    if (key == SortKey::Kind)
        return compare_folded(extension(a.name), extension(b.name));
    if (key == SortKey::Owner)
        return a.owner.compare(b.owner);
    if (key == SortKey::Group)
        return a.group.compare(b.group);
    return 0;
}

Row make_row(const FsEntry& entry, const SortOrder& order) {
    Row row;
    row.key = pack_key(entry, order.key);
    pack_natural(entry.name, row.name);
    row.entry = &entry;
    if (entry.kind != FsEntry::Kind::Parent)
        row.rank = order.dirs_first && entry.is_dir_like() ? 1 : 2;
    return row;
}

bool goes_before(const Row& a, const Row& b, const SortOrder& order) {
    if (a.rank != b.rank)
        return a.rank < b.rank;
    int c = compare_values(a.key, b.key);
    if (c == 0 && (a.key & 0xff) != 0)  // a text that ends within the row has been compared whole
        c = compare_text_key(*a.entry, *b.entry, order.key);
    if (c == 0)
        c = compare_values(a.name[0], b.name[0]);
    if (c == 0)
        c = compare_values(a.name[1], b.name[1]);
    if (c == 0)
        c = natural_compare(a.entry->name, b.entry->name);
    return order.ascending ? c < 0 : c > 0;
}

// Moves each entry to the place of the row that stands for it.
void arrange(std::vector<FsEntry>& entries, Row* rows) {
    FsEntry* const first = entries.data();
    for (size_t start = 0; start < entries.size(); ++start) {
        if (rows[start].entry == first + start)
            continue;
        // Round the cycle that this place is part of.
        FsEntry held = std::move(first[start]);
        size_t place = start;
        while (rows[place].entry != first + start) {
            const auto from = static_cast<size_t>(rows[place].entry - first);
            first[place] = std::move(first[from]);
            rows[place].entry = first + place;
            place = from;
        }
        first[place] = std::move(held);
        rows[place].entry = first + place;
    }
}

}  // namespace

void sort(std::vector<FsEntry>& entries, const SortOrder& order) {
    const std::unique_ptr<Row[]> rows(new (std::nothrow) Row[entries.size()]);
    if (!rows) {
        // Out of memory: slower, but with no need of any.
        std::stable_sort(entries.begin(), entries.end(), [&](const FsEntry& a, const FsEntry& b) {
            return goes_before(make_row(a, order), make_row(b, order), order);
        });
        return;
    }
    for (size_t i = 0; i < entries.size(); ++i)
        rows[i] = make_row(entries[i], order);
    std::stable_sort(rows.get(), rows.get() + entries.size(),
                     [&](const Row& a, const Row& b) { return goes_before(a, b, order); });
    arrange(entries, rows.get());
}

std::string permission_string(const FsEntry& entry) {
    std::string text(10, '-');
    switch (entry.kind) {
    case FsEntry::Kind::Parent:
        return {};
    case FsEntry::Kind::File:
        break;
    case FsEntry::Kind::Dir:
        text[0] = 'd';
        break;
    case FsEntry::Kind::Symlink:
    case FsEntry::Kind::SymlinkDir:
    case FsEntry::Kind::BrokenSymlink:
        text[0] = 'l';
        break;
    case FsEntry::Kind::Special:
        text[0] = 's';
        break;
    }
    for (size_t i = 0; i < 9; ++i) {
        if (entry.perm & (0400U >> i))
            text[1 + i] = "rwx"[i % 3];
    }
    const auto mark = [&](uint32_t bit, size_t at, char with_x, char without_x) {
        if (entry.perm & bit)
            text[at] = text[at] == 'x' ? with_x : without_x;
    };
    mark(04000, 3, 's', 'S');
    mark(02000, 6, 's', 'S');
    mark(01000, 9, 't', 'T');
    return text;
}

}  // namespace dir_lister
