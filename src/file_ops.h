// Single-shot commands on entries. Each returns the text to show, empty for success. Interface
// thread; all but start_clone may block on a slow device, which is accepted for single entries.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace file_ops {

// What there is to tell of one entry.
struct Properties {
    std::string path;
    std::string name;
    bool is_dir = false;
    int64_t size = 0;  // bytes, as is free_space
    int64_t file_count = 0;
    int64_t dir_count = 0;
    int64_t mtime = 0;  // seconds of the epoch; 0: unknown
    std::string permissions;
    std::string owner;
    std::string group;
    std::string link_target;  // empty: no link
    int64_t free_space = -1;  // on its file system; -1: unknown
};

// Whether an entry of `dir` may get this name. `current` is the name it has now, empty for none.
[[nodiscard]] std::string validate_name(const std::string& dir, const std::string& name,
                                        const std::string& current);

// A name equal to the old one is a success without a call. Never replaces what has the name.
[[nodiscard]] std::string rename_entry(const std::string& path, const std::string& new_name);

// The name is validated first. An empty file never takes the place of anything.
[[nodiscard]] std::string create_directory(const std::string& dir, const std::string& name);
[[nodiscard]] std::string create_empty_file(const std::string& dir, const std::string& name);

// Duplicates the paths in their own folder under free names. False when a transfer runs.
[[nodiscard]] bool start_clone(const std::vector<std::string>& paths, int threads);

// Hands the file to the desktop's default program.
[[nodiscard]] std::string open_with_default_app(const std::string& path);

// The name of the terminal to open, of the user's choice or else of a known one that is installed;
// null when there is none. Searched for once; valid for the whole run.
[[nodiscard]] const char* terminal_program();

}  // namespace file_ops
