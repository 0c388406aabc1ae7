// The last folders in which the user worked, most recent first, at most ten. They stand in
// "recent.txt", a path to a line, which is read at the first use and written over in place with
// each change. Interface thread only.

#pragma once

#include <string>
#include <vector>

namespace recent {

// What a file with this text holds: its first ten lines that are absolute paths and not there yet.
[[nodiscard]] std::vector<std::string> parse(const std::string& text);

void load();  // once; later calls do nothing
void save();  // a failure is a warning in the log

// The entries that are folders at this moment, each looked at on the disk. The others stay in the
// list, since a drive may come back.
[[nodiscard]] std::vector<std::string> all();
// Puts a folder at the front. Does nothing for what is no absolute path or stands there already.
// Does not look at the disk beyond the file.
void add(const std::string& path);

}  // namespace recent
