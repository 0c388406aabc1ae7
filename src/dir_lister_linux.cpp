#include "dir_lister.h"

#include "fs_ops.h"
#include "strutil.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <map>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace dir_lister {

namespace {

// What one entry's examination found.
struct Examined {
    mode_t mode = 0;
    int64_t size = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    int64_t mtime = 0;
    int64_t ctime = 0;
    int64_t btime = 0;  // 0: the file system does not tell
};

// The caches live as long as the process and never age: a name changed in the user database shows
// at the next start. An unknown id is remembered too, so that it costs one look-up only.
const std::string& user_name(uid_t uid) {
    static std::map<uid_t, std::string> names;
    const auto known = names.find(uid);
    if (known != names.end())
        return known->second;
    const struct passwd* record = getpwuid(uid);
    const bool named = record && record->pw_name && *record->pw_name;
    return names.emplace(uid, named ? record->pw_name : std::to_string(uid)).first->second;
}

const std::string& group_name(gid_t gid) {
    static std::map<gid_t, std::string> names;
    const auto known = names.find(gid);
    if (known != names.end())
        return known->second;
    const struct group* record = getgrgid(gid);
    const bool named = record && record->gr_name && *record->gr_name;
    return names.emplace(gid, named ? record->gr_name : std::to_string(gid)).first->second;
}

// An entry of the folder being read. Going by the open folder instead of the full path spares the
// kernel the walk along the path for each entry, a sixth of a big listing's time. The answers are
// the same but for paths that the kernel would refuse as too long, which reachable() sorts out.
struct Place {
    int dir_fd = -1;
    const char* name = nullptr;
};

// Whether the entry has a path that the kernel takes. What has none is as good as not there: no
// operation on it could name it.
bool reachable(const std::string& folder, const char* name) {
    const size_t slash = folder.ends_with('/') ? 0 : 1;
    return folder.size() + slash + std::strlen(name) < PATH_MAX;
}

// The entry itself, never what a link points to. False when it cannot be examined at all.
bool examine(const Place& place, Examined& out) {
    struct statx reply = {};
    const unsigned int wanted = STATX_BASIC_STATS | STATX_BTIME;
    if (statx(place.dir_fd, place.name, AT_SYMLINK_NOFOLLOW, wanted, &reply) == 0) {
        out.mode = reply.stx_mode;
        out.size = static_cast<int64_t>(reply.stx_size);
        out.uid = reply.stx_uid;
        out.gid = reply.stx_gid;
        out.mtime = reply.stx_mtime.tv_sec;
        out.ctime = reply.stx_ctime.tv_sec;
        out.btime = (reply.stx_mask & STATX_BTIME) ? reply.stx_btime.tv_sec : 0;
        return true;
    }
    // Old kernels and some sandboxes refuse statx alone.
    struct stat st = {};
    if (fstatat(place.dir_fd, place.name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    out.mode = st.st_mode;
    out.size = st.st_size;
    out.uid = st.st_uid;
    out.gid = st.st_gid;
    out.mtime = st.st_mtim.tv_sec;
    out.ctime = st.st_ctim.tv_sec;
    out.btime = 0;
    return true;
}

void describe_link(const Place& place, const Examined& found, FsEntry& entry) {
    char text[4096];
    const ssize_t length = readlinkat(place.dir_fd, place.name, text, sizeof text - 1);
    if (length > 0)
        entry.link_target = su::sanitize_utf8(std::string_view(text, static_cast<size_t>(length)));
    struct stat target = {};
    if (fstatat(place.dir_fd, place.name, &target, 0) != 0) {
        // Whatever the reason: a folder on the way that may not be searched counts as broken too.
        entry.kind = FsEntry::Kind::BrokenSymlink;
        entry.size = found.size;
    } else if (S_ISDIR(target.st_mode)) {
        entry.kind = FsEntry::Kind::SymlinkDir;
        entry.size = -1;
    } else {
        entry.kind = FsEntry::Kind::Symlink;
        entry.size = found.size;
    }
}

// Fills in what the disk says of the entry and counts it. A link counts in no total, whatever it
// points to.
void describe(const Place& place, FsEntry& entry, Listing& totals) {
    Examined found;
    if (!reachable(totals.path, place.name) || !examine(place, found)) {
        entry.kind = FsEntry::Kind::Special;
        entry.size = -1;
        return;
    }
    entry.mtime = found.mtime;
    entry.ctime = found.ctime;
    entry.btime = found.btime;
    entry.perm = found.mode & 0xfffU;
    entry.owner = user_name(found.uid);
    entry.group = group_name(found.gid);
    if (S_ISLNK(found.mode)) {
        describe_link(place, found, entry);
    } else if (S_ISDIR(found.mode)) {
        entry.kind = FsEntry::Kind::Dir;
        entry.size = -1;
        ++totals.dir_count;
    } else if (S_ISREG(found.mode)) {
        entry.kind = FsEntry::Kind::File;
        entry.size = found.size;
        ++totals.file_count;
        totals.total_bytes = fsops::add_sizes(totals.total_bytes, found.size);
    } else {
        entry.kind = FsEntry::Kind::Special;
        entry.size = 0;
    }
}

// errno is the last attempt's.
DIR* open_directory(const std::string& path) {
    DIR* dir = nullptr;
    do
        dir = opendir(path.c_str());
    while (!dir && errno == EINTR);
    return dir;
}

}  // namespace

Listing read(const std::string& path, bool show_hidden) {
    Listing listing;
    listing.path = path;
    DIR* dir = open_directory(path);
    if (!dir) {
        listing.error_code = errno;
        listing.error = std::strerror(listing.error_code);
        return listing;
    }
    if (path != "/") {
        FsEntry parent;
        parent.name = "..";
        parent.kind = FsEntry::Kind::Parent;
        listing.entries.push_back(std::move(parent));
    }
    // A readdir that fails looks like the end of the directory: what was read so far is shown.
    while (const struct dirent* raw = readdir(dir)) {
        const char* name = raw->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        const bool hidden = name[0] == '.';
        if (hidden && !show_hidden)
            continue;
        FsEntry& entry = listing.entries.emplace_back();
        entry.name = su::sanitize_utf8(name);
        entry.hidden = hidden;
        // The raw name: what is not valid UTF-8 can only be found under its own bytes.
        describe({dirfd(dir), name}, entry, listing);
    }
    closedir(dir);
    return listing;
}

}  // namespace dir_lister
