// Trees of files for tests: built from a seed, looked at as a whole, compared. Works through folder
// descriptors, so no depth is too deep and no link is followed.

#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tree {

struct Shape {
    int folders = 4;
    int files = 12;
    size_t max_bytes = 200'000;  // sizes go from 0 to this, the small ones being the most
    int symlinks = 2;            // one of them dangling
    int hard_links = 0;          // further names of files of the tree
    int sparse = 0;              // files of max_bytes with a hole in front
    int fifos = 0;
    bool folder_modes = false;  // 0750, 0700 and 0555 as well as 0755
    bool hostile_names = false;
};

// Makes the tree in an existing empty folder. The same seed and shape give the same tree.
void build(const std::string& root, uint32_t seed, const Shape& shape = {});

struct Node {
    char kind = '?';  // f, d, l or o (anything else)
    mode_t mode = 0;  // the low twelve bits
    int64_t size = 0;
    struct timespec mtime = {};
    uint64_t hash = 0;  // of a file's bytes
    std::string link;   // of a symbolic link
    uint64_t inode = 0;
    uint64_t links = 0;
    int64_t blocks = 0;
    uid_t uid = 0;
};

// By path relative to the root, which is not itself in it.
using Snapshot = std::map<std::string, Node>;

Snapshot snapshot(const std::string& root);

struct Compare {
    bool modes = true;
    bool times = true;  // of regular files alone
    bool folder_modes = true;
    bool folder_times = false;  // with those of links and FIFOs
    bool links = false;         // the same names belong to one file on both sides
    bool inodes = false;        // nothing was even replaced
};

// What differs, one line each; empty when nothing does.
std::vector<std::string> differences(const Snapshot& expected, const Snapshot& found,
                                     const Compare& how = {});
// The same as one text, for a failure message.
std::string difference_text(const Snapshot& expected, const Snapshot& found,
                            const Compare& how = {});

// Whether two nodes are the same file as a copy keeps it.
bool same_file(const Node& a, const Node& b, const Compare& how = {});

// Names that break careless code: blanks, newlines, quotes, a leading dash, 255 bytes, bytes that
// are no UTF-8.
std::vector<std::string> hostile_names();

// A chain of folders of that many levels below root, with a file "leaf" in the last one.
void build_deep(const std::string& root, int levels, const std::string& name = "d");
// Removes it again, whatever its depth.
void remove_deep(const std::string& root);

}  // namespace tree
