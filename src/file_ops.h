// Single-shot commands on entries. Each returns the text to show, empty for success. Interface
// thread; what follows "in the background" leaves it, all else may block on a slow device, which is
// accepted for single entries.

#pragma once

#include "fs_entry.h"

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

// A name equal to the old one is a success without a call. Never replaces what has the name, also
// when it appears between the look and the rename. Another case of the same name is no clash where
// the file system takes the two for one.
[[nodiscard]] std::string rename_entry(const std::string& path, const std::string& new_name);

// The name is validated first. An empty file never takes the place of anything.
[[nodiscard]] std::string create_directory(const std::string& dir, const std::string& name);
[[nodiscard]] std::string create_empty_file(const std::string& dir, const std::string& name);

// To the trash of the file system that the entry is on. Any thread.
[[nodiscard]] std::string move_to_trash(const std::string& path);

// The bits as they stand, through a link to what it points to. Recursive: everything from path
// down, but no link; a folder gets with each read bit the execute bit that lets one enter it.
[[nodiscard]] std::string set_permissions(const std::string& path, uint32_t mode, bool recursive);

// By names of the system's accounts, not by numbers; an empty one leaves that half as it is. Of a
// link it is the link's own owner. Recursive leaves links alone.
[[nodiscard]] std::string set_owner(const std::string& path, const std::string& user,
                                    const std::string& group, bool recursive);

// What there is to tell of an entry of `dir`. For a folder the measuring is started as well.
[[nodiscard]] Properties properties_of(const FsEntry& entry, const std::string& dir);

// Opens a terminal there.
[[nodiscard]] std::string open_terminal_at(const std::string& dir);

// Hands the file to the desktop's default program.
[[nodiscard]] std::string open_with_default_app(const std::string& path);

// The same with an address: of a page, or "mailto:". The error is told in GLib's words.
[[nodiscard]] std::string open_address(const std::string& address);

// The name of the terminal to open, of the user's choice or else of a known one that is installed;
// null when there is none. Searched for once; valid for the whole run.
[[nodiscard]] const char* terminal_program();

// --- In the background --------------------------------------------------------------------------

// Deletes the paths one after the other, or moves them to the trash, as the background task. The
// title is shown with it. False when one runs.
[[nodiscard]] bool start_delete(std::vector<std::string> paths, bool to_trash,
                                const std::string& title);

// Duplicates the paths in their own folder under free names. False when a transfer runs.
[[nodiscard]] bool start_clone(const std::vector<std::string>& paths, int threads);

// How much a folder holds, counted by one worker at a time, "size". Interface thread.
namespace folder_size {

struct Status {
    bool running = false;
    bool done = false;  // counted to the end
    int64_t bytes = 0;
    int64_t files = 0;
    int64_t dirs = 0;
    bool incomplete = false;  // folders could not be read
};

// Takes the place of an earlier one. Nobody waits for that one, which may sit on a dead mount.
void start(const std::string& path);
// The worker is told to end, and from now on none is running; what it has counted stays.
void abandon();
// The same, and waits for the worker's end, half a second at most.
void cancel();
[[nodiscard]] Status snapshot();

}  // namespace folder_size

}  // namespace file_ops
