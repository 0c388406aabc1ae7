// The kernel's table of mounted file systems, and what may be expected of a file system
// by its type. Any thread may call; nothing here touches a disk.

#pragma once

#include <istream>
#include <string>
#include <vector>

namespace mounts {

struct Mount {
    std::string point;    // unescaped
    std::string fs_type;  // such as ext4
    std::string source;   // unescaped, such as a device path
    bool read_only = false;
};

// The whole table in the kernel's order, as it was when first asked for: the answer stays for the
// rest of the run. An unreadable table is an empty one.
[[nodiscard]] const std::vector<Mount>& all();

// The same as it is now.
[[nodiscard]] std::vector<Mount> read_table();

// The mount that a path lies on. Null when the table holds none; callers treat that as an unknown
// file system. The pointer stays valid for the run.
[[nodiscard]] const Mount* for_path(const std::string& path);

[[nodiscard]] bool is_pseudo_fs(const std::string& fs_type);  // nothing to show
[[nodiscard]] bool is_risky_fs(const std::string& fs_type);   // network or user space: may hang
[[nodiscard]] bool is_image_fs(const std::string& fs_type);   // read-only by nature

// The mounts that are real storage, each device once, in table order.
[[nodiscard]] std::vector<Mount> scannable_roots();

// The steps behind the answers above, for tables that do not come from this machine's kernel.
[[nodiscard]] std::vector<Mount> parse_mountinfo(std::istream& in);
[[nodiscard]] std::string unescape(const std::string& text);
[[nodiscard]] const Mount* lookup(const std::vector<Mount>& table, const std::string& path);
[[nodiscard]] std::vector<Mount> scannable_roots_of(const std::vector<Mount>& table);

}  // namespace mounts
