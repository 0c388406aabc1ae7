// The folders that the user has marked, each with a name to show, in the order of marking. They
// stand in "bookmarks.txt": to a line the name, a tab, and the path. The file is read at the first
// use and replaced as a whole with each change. Interface thread only. A folder that has gone stays
// listed; paths are compared as text, so that a trailing slash makes another one.

#pragma once

#include <string>
#include <vector>

namespace bookmarks {

struct Bookmark {
    std::string name;
    std::string path;

    bool operator==(const Bookmark&) const = default;
};

// What a file with this text holds. A line without a tab is dropped.
[[nodiscard]] std::vector<Bookmark> parse(const std::string& text);

void load();  // once; later calls do nothing
void save();  // a failure is not reported: the list in memory stays as it is

[[nodiscard]] const std::vector<Bookmark>& all();
[[nodiscard]] bool contains(const std::string& path);
// False for what is no absolute path, and for a folder that is marked already.
bool add(const std::string& path);
// False when there is no such bookmark.
bool remove(const std::string& path);
// Puts an earlier list back.
void restore(const std::vector<Bookmark>& list);

}  // namespace bookmarks
