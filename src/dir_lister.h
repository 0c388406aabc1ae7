// Reads one directory into a flat vector and orders that vector. read() lives in
// dir_lister_linux.cpp, the order and the texts in dir_lister.cpp. Reading is synchronous and does
// not sort; sorting does not touch the disk. Panes, cursors and filters are the callers' matter.
//
// read() keeps unlocked caches of user and group names: one thread at a time, the interface thread.
// The other functions work on their arguments alone and may be called from any thread.

#pragma once

#include "fs_entry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dir_lister {

struct Listing {
    std::string path;              // as it was asked for
    std::vector<FsEntry> entries;  // ".." first, unless path is exactly "/"
    std::string error;             // the text of errno; empty on success
    int error_code = 0;            // errno; 0 on success
    int64_t total_bytes = 0;       // of the regular files
    int file_count = 0;            // regular files; no link of any kind
    int dir_count = 0;             // directories; neither links to them nor the parent row
};

enum class SortKey {
    Name = 0,
    Size = 1,
    Modified = 2,
    Kind = 3,  // by the extension of the name
    Permissions = 4,
    Owner = 5,
    Created = 6,
    Group = 7,
};

struct SortOrder {
    SortKey key = SortKey::Name;
    bool ascending = true;
    bool dirs_first = true;

    bool operator==(const SortOrder&) const = default;
};

// Entries in the order of the disk. A directory that cannot be opened has an error and no entries
// at all; an entry that cannot be examined is kept as Special, without size, times and owner.
[[nodiscard]] Listing read(const std::string& path, bool show_hidden);

// Stable. The parent row stays first and, with dirs_first, directories stay before files whatever
// the direction; equal keys fall to the natural order of the names (file2 before file10).
void sort(std::vector<FsEntry>& entries, const SortOrder& order);

// "drwxr-xr-x"; empty for the parent row.
[[nodiscard]] std::string permission_string(const FsEntry& entry);

}  // namespace dir_lister
