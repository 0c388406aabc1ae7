// One entry of a directory, as the panes list it. A plain value: no disk, no lock, any thread.
// dir_lister fills it; every name in it is valid UTF-8 and may be shown as it stands.

#pragma once

#include <cstdint>
#include <string>

struct FsEntry {
    enum class Kind : uint8_t {
        File = 0,
        Dir = 1,
        Symlink = 2,        // the target exists and is not a directory
        SymlinkDir = 3,     // the target is a directory
        BrokenSymlink = 4,  // the target cannot be examined
        Special = 5,        // device, socket, FIFO; also what could not be examined at all
        Parent = 6,         // the synthetic ".." row
    };

    std::string name;         // sanitised; ".." for the parent row
    std::string link_target;  // the text of a symbolic link, sanitised; empty when not known
    Kind kind = Kind::File;
    int64_t size = -1;  // bytes; -1: the entry has no size
    int64_t mtime = 0;  // seconds since the epoch, as are the next two
    int64_t ctime = 0;  // inode change
    int64_t btime = 0;  // birth; 0: not known
    uint32_t perm = 0;  // the low twelve mode bits
    std::string owner;  // name, or the decimal id
    std::string group;
    bool hidden = false;  // the name begins with a dot

    [[nodiscard]] bool is_dir_like() const { return kind == Kind::Dir || kind == Kind::SymlinkDir; }
    [[nodiscard]] bool is_symlink() const {
        return kind == Kind::Symlink || kind == Kind::SymlinkDir || kind == Kind::BrokenSymlink;
    }
};
