// The places of the drive bar: the home folder, the user's special folders, mounted file systems
// and the desktop's network shares. A refresh works on threads of its own and publishes the names
// first, since asking a dead server for its size may take for ever; the interface copies the
// finished list under a lock. Any thread may call, and no failure is reported.

#pragma once

#include "mounts.h"

#include <cstdint>
#include <string>
#include <vector>

namespace drives {

// In display order.
enum class Kind : int32_t {
    Home = 0,
    Bookmark = 1,
    Local = 2,
    Removable = 3,
    Network = 4,
    Root = 5,
};

struct Drive {
    std::string path;  // the folder that choosing the drive opens
    std::string label;
    std::string fs_type;  // empty for Home and Bookmark
    Kind kind = Kind::Local;
    int64_t total_bytes = 0;  // 0: not measured, or it cannot be
    int64_t free_bytes = 0;   // for ordinary users
    bool read_only = false;
};

void init();
// Starts a refresh in the background, unless one is running. The mount table is read anew.
void refresh();
// The first call may come before the first refresh has an answer; it finds the names itself.
[[nodiscard]] std::vector<Drive> list();
// Empty when no drive holds the path.
[[nodiscard]] std::string label_for_path(const std::string& path);
// Gives a running refresh so long to end. One that hangs is left behind: it touches nothing that
// goes away with the process.
void shutdown_wait(int milliseconds);

// The drive with the longest path that is the given one or a folder above it; "/" holds every path.
// Null for none, and valid as long as the list.
[[nodiscard]] const Drive* holder_of(const std::vector<Drive>& list, const std::string& path);

// The steps behind the answers above, for mounts that do not come from this machine's kernel.
[[nodiscard]] std::vector<Drive> build_skeleton(const std::vector<mounts::Mount>& roots);
[[nodiscard]] bool is_network_fs(const std::string& fs_type);

}  // namespace drives
