#include "operations.h"

#include "safe_path.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace operations {

volatile std::sig_atomic_t g_stop = 0;

namespace {

using safe_path::error_text;
using safe_path::Fd;
using safe_path::is_roots_alone;
using safe_path::open_entry;
using safe_path::open_parent;
using safe_path::Place;

constexpr mode_t kPermissions = 0777;
constexpr mode_t kModeBits = 07777;
constexpr mode_t kOwnersRights = S_ISUID | S_ISGID;  // to act as the owner, or the group
constexpr mode_t kParentMode = 0755;
constexpr char kTakenAway[] = "somebody has taken the new file away";
constexpr char kSeveralNames[] = "the file is root's and has several names";

bool same_entry(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool belongs_to_caller(const struct stat& folder, const Caller& caller) {
    return caller.uid > 0 && folder.st_uid == static_cast<uid_t>(caller.uid);
}

// --- Copy -------------------------------------------------------------------------------------

// A new entry under a name that nobody knows, in the folder that it is for. It takes the target's
// place in one step, or goes again with this object.
class Temporary {
  public:
    explicit Temporary(const Place& place) : m_place(place) {}
    ~Temporary() { discard(); }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    std::string make_file() {
        return make([this](const char* name) {
            m_entry = Fd(openat(m_place.folder.get(), name,
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
            return m_entry.good() && fstat(m_entry.get(), &m_made) == 0;
        });
    }
    std::string make_link(const char* text) {
        std::string error = make([this, text](const char* name) {
            return symlinkat(text, m_place.folder.get(), name) == 0;
        });
        return error.empty() ? hold_link(text) : error;
    }

    const Fd& file() const { return m_entry; }

    std::string give_link(uid_t uid, gid_t gid) const {
        if (fchownat(m_entry.get(), "", uid, gid, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) != 0)
            return error_text("the owner cannot be set", errno);
        return {};
    }

    // In a folder of the caller's the name may have been given to something else.
    std::string take_place() {
        if (!is_still_there())
            return kTakenAway;
        if (renameat(m_place.folder.get(), m_name.c_str(), m_place.folder.get(),
                     m_place.name.c_str()) != 0)
            return error_text("the target cannot be replaced", errno);
        m_name.clear();
        struct stat now = {};
        if (fstatat(m_place.folder.get(), m_place.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 ||
            !same_entry(now, m_made))
            return kTakenAway;
        return {};
    }

  private:
    // No call makes a link and opens it. What is under its name now must be just like it: in a
    // folder of the caller's it may be something else of root's, which would be given away.
    std::string hold_link(std::string_view text) {
        m_entry = Fd(openat(m_place.folder.get(), m_name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!m_entry.good()) {
            const int code = errno;
            unlinkat(m_place.folder.get(), m_name.c_str(), 0);
            return error_text("the new link cannot be opened", code);
        }
        struct stat st = {};
        char now[PATH_MAX] = "";
        const ssize_t length = readlinkat(m_entry.get(), "", now, sizeof now);
        if (fstat(m_entry.get(), &st) != 0 || !S_ISLNK(st.st_mode) || st.st_nlink > 1 ||
            length < 0 || std::string_view(now, static_cast<size_t>(length)) != text)
            return kTakenAway;
        m_made = st;
        return {};
    }

    template <class Make>
    std::string make(const Make& try_name) {
        for (int attempt = 0; attempt < 100; ++attempt) {
            uint64_t number = 0;
            if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number))
                return error_text("no random number", errno);
            char name[64] = "";
            std::snprintf(name, sizeof name, ".ferrodeck-%016llx",
                          static_cast<unsigned long long>(number));
            if (try_name(name)) {
                m_name = name;
                return {};
            }
            if (errno != EEXIST)
                break;
        }
        return error_text("nothing can be made in the target's folder", errno);
    }

    bool is_still_there() const {
        struct stat now = {};
        return fstatat(m_place.folder.get(), m_name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
               same_entry(now, m_made);
    }

    void discard() const {
        if (!m_name.empty() && is_still_there())
            unlinkat(m_place.folder.get(), m_name.c_str(), 0);
    }

    const Place& m_place;
    std::string m_name;  // empty: nothing to take away
    Fd m_entry;  // of a link O_PATH; open to the end, so that no other entry gets its number
    struct stat m_made = {};
};

bool is_zero(const char* bytes, size_t length) {
    return std::all_of(bytes, bytes + length, [](char byte) { return byte == 0; });
}

bool write_all(int fd, const char* bytes, size_t length) {
    while (length > 0) {
        const ssize_t written = write(fd, bytes, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

// Blocks of zeros stay holes.
std::string copy_bytes(int from, int to) {
    static std::array<char, 1 << 17> buffer;
    off_t size = 0;
    for (;;) {
        if (g_stop)
            return "stopped";
        const ssize_t length = read(from, buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR)
            continue;
        if (length < 0)
            return error_text("the source cannot be read", errno);
        if (length == 0)
            break;
        const auto bytes = static_cast<size_t>(length);
        const bool good = is_zero(buffer.data(), bytes) ? lseek(to, length, SEEK_CUR) >= 0
                                                        : write_all(to, buffer.data(), bytes);
        if (!good)
            return error_text("the target cannot be written", errno);
        size += length;
    }
    return ftruncate(to, size) == 0 ? std::string()
                                    : error_text("the target cannot be written", errno);
}

// What only a close brings to light, while the descriptor stays open.
bool close_is_good(int fd) {
    const int second = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    return second >= 0 && close(second) == 0;
}

// Whether the bits that lend an owner's rights mean anything where the file is. On a file system
// that somebody has plugged in they do not, and a copy must not bring them into force.
bool grants_rights(int fd) {
    struct statvfs fs = {};
    return fstatvfs(fd, &fs) == 0 && (fs.f_flag & ST_NOSUID) == 0;
}

// The owner first: a mode that is given before would be the new owner's to use.
std::string finish_file(int fd, const struct stat& source, bool source_grants,
                        const struct stat& folder, const Caller& caller) {
    if (belongs_to_caller(folder, caller) && fchown(fd, folder.st_uid, folder.st_gid) != 0)
        return error_text("the owner cannot be set", errno);
    struct stat now = {};
    if (fstat(fd, &now) != 0)
        return error_text("the target cannot be read", errno);
    mode_t mode = source.st_mode & kModeBits;
    if (now.st_uid != source.st_uid)
        mode &= ~kOwnersRights;
    if (now.st_gid != source.st_gid)
        mode &= ~static_cast<mode_t>(S_ISGID);
    if (!source_grants)
        mode &= ~kOwnersRights;
    const struct timespec times[] = {source.st_atim, source.st_mtim};
    if (fchmod(fd, mode) != 0)
        return error_text("the mode cannot be set", errno);
    if (futimens(fd, times) != 0)
        return error_text("the times cannot be set", errno);
    if (!close_is_good(fd))
        return error_text("the target cannot be written", errno);
    return {};
}

std::string copy_file(const Fd& entry, const struct stat& st, const Place& target,
                      const struct stat& folder, const Caller& caller) {
    // By the descriptor, so that this is the file that was looked at.
    const Fd source(open(safe_path::name_of(entry).c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!source.good())
        return error_text("the source cannot be opened", errno);
    Temporary temporary(target);
    if (std::string error = temporary.make_file(); !error.empty())
        return error;
    if (std::string error = copy_bytes(source.get(), temporary.file().get()); !error.empty())
        return error;
    if (std::string error =
            finish_file(temporary.file().get(), st, grants_rights(source.get()), folder, caller);
        !error.empty())
        return error;
    return temporary.take_place();
}

std::string copy_link(const Fd& entry, const Place& target, const struct stat& folder,
                      const Caller& caller) {
    char text[PATH_MAX] = "";
    const ssize_t length = readlinkat(entry.get(), "", text, sizeof text - 1);
    if (length < 0)
        return error_text("the source cannot be read", errno);
    Temporary temporary(target);
    if (std::string error = temporary.make_link(text); !error.empty())
        return error;
    if (belongs_to_caller(folder, caller))
        if (std::string error = temporary.give_link(folder.st_uid, folder.st_gid); !error.empty())
            return error;
    return temporary.take_place();
}

std::string copy(const batch::Operation& operation, const Caller& caller) {
    Place source;
    Place target;
    Fd entry;
    struct stat st = {};
    if (std::string error = open_parent(operation.source, source); !error.empty())
        return "source: " + error;
    if (std::string error = open_entry(source, entry, st); !error.empty())
        return "source: " + error;
    if (!S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode))
        return "the source is neither a file nor a symbolic link";
    if (std::string error = open_parent(operation.target, target); !error.empty())
        return error;
    if (target.name.empty())
        return "the target is a folder";
    struct stat folder = {};
    struct stat source_folder = {};
    if (fstat(target.folder.get(), &folder) != 0 || fstat(source.folder.get(), &source_folder) != 0)
        return error_text("the folders cannot be read", errno);
    // The copy would be the caller's to read, and anybody may have named the file there.
    if (st.st_uid == 0 && st.st_nlink > 1 && !is_roots_alone(source_folder) &&
        belongs_to_caller(folder, caller))
        return kSeveralNames;
    return S_ISLNK(st.st_mode) ? copy_link(entry, target, folder, caller)
                               : copy_file(entry, st, target, folder, caller);
}

// --- Folders ----------------------------------------------------------------------------------

bool is_empty(const Fd& folder) {
    // A description of its own, since this moves its position.
    const int fd = open(safe_path::name_of(folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const entries = fd < 0 ? nullptr : fdopendir(fd);
    if (!entries) {
        if (fd >= 0)
            close(fd);
        return false;
    }
    int count = 0;
    while (readdir(entries))
        ++count;
    closedir(entries);
    return count <= 2;
}

// What the folder's creation itself cannot give: an owner, and the bits that no mkdir() takes. In a
// folder of the caller's another one may stand under the name by now; one that is not just like a
// new one keeps what it has.
std::string finish_folder(const Place& place, mode_t mode, const Caller& caller) {
    struct stat holder = {};
    Fd made;
    struct stat st = {};
    if (fstat(place.folder.get(), &holder) != 0)
        return error_text("the folder cannot be read", errno);
    const bool given = belongs_to_caller(holder, caller);
    const mode_t missing = mode & kOwnersRights;
    if (!given && missing == 0)
        return {};
    if (std::string error = open_entry(place, made, st); !error.empty())
        return error;
    if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid() ||
        (st.st_mode & kPermissions & ~mode) != 0 || !is_empty(made))
        return "somebody has taken the new folder away";
    if (given && fchownat(made.get(), "", holder.st_uid, holder.st_gid, AT_EMPTY_PATH) != 0)
        return error_text("the owner cannot be set", errno);
    if (missing != 0 && chmod(safe_path::name_of(made).c_str(), mode) != 0)
        return error_text("the mode cannot be set", errno);
    return {};
}

// With its mode from the start: there is no moment at which it could be taken for another.
int make_folder(int folder, const char* name, mode_t mode) {
    const mode_t before = umask(0);
    const int code = mkdirat(folder, name, mode) == 0 ? 0 : errno;
    umask(before);
    return code;
}

// While parents are made; a walk's own callback has no place for it.
const Caller* g_caller = nullptr;

int make_parent(int folder, const char* name) {
    const int code = make_folder(folder, name, kParentMode);
    if (code != 0)
        return code == EEXIST ? 0 : code;
    Place place;
    place.folder = Fd(fcntl(folder, F_DUPFD_CLOEXEC, 3));
    place.name = name;
    return finish_folder(place, kParentMode, *g_caller).empty() ? 0 : EPERM;
}

std::string make_dir(const batch::Operation& operation, const Caller& caller) {
    Place place;
    g_caller = &caller;
    if (std::string error = open_parent(operation.target, place, make_parent); !error.empty())
        return error;
    const auto mode = static_cast<mode_t>(operation.mode);
    if (place.name.empty())
        return {};  // the root folder is there
    const int code = make_folder(place.folder.get(), place.name.c_str(), mode);
    if (code == 0)
        return finish_folder(place, mode, caller);
    if (code == EEXIST) {
        Fd entry;
        struct stat st = {};
        if (open_entry(place, entry, st).empty() && S_ISDIR(st.st_mode))
            return {};
    }
    return error_text("the folder cannot be made", code);
}

// --- Single entries ---------------------------------------------------------------------------

std::string remove(const batch::Operation& operation) {
    Place place;
    if (std::string error = open_parent(operation.target, place); !error.empty())
        return error;
    if (unlinkat(place.folder.get(), place.name.c_str(), 0) == 0)
        return {};
    int code = errno;
    if (code == EISDIR || code == EPERM) {
        if (unlinkat(place.folder.get(), place.name.c_str(), AT_REMOVEDIR) == 0)
            return {};
        if (errno != ENOTDIR)
            code = errno;
    }
    return error_text("it cannot be removed", code);
}

// The entry whose mode or owner is to change.
std::string open_named(const std::string& path, Fd& entry, struct stat& st) {
    Place place;
    if (std::string error = open_parent(path, place); !error.empty())
        return error;
    if (std::string error = open_entry(place, entry, st); !error.empty())
        return error;
    // Anybody may have given a file of root's a second name where he can name it to us.
    if (st.st_uid == 0 && !S_ISDIR(st.st_mode) && st.st_nlink > 1)
        return kSeveralNames;
    return {};
}

std::string change_mode(const batch::Operation& operation) {
    Fd entry;
    struct stat st = {};
    if (std::string error = open_named(operation.target, entry, st); !error.empty())
        return error;
    if (S_ISLNK(st.st_mode))
        return "a symbolic link has no mode of its own";
    if (operation.mode != batch::kUnchanged &&
        chmod(safe_path::name_of(entry).c_str(), static_cast<mode_t>(operation.mode)) != 0)
        return error_text("the mode cannot be set", errno);
    return {};
}

// Of a link the link's own.
std::string change_owner(const batch::Operation& operation) {
    Fd entry;
    struct stat st = {};
    if (std::string error = open_named(operation.target, entry, st); !error.empty())
        return error;
    const bool new_uid = operation.uid != batch::kUnchanged && operation.uid != st.st_uid;
    const bool new_gid = operation.gid != batch::kUnchanged && operation.gid != st.st_gid;
    if (!new_uid && !new_gid)
        return {};
    const bool has_rights = S_ISREG(st.st_mode) && (st.st_mode & kOwnersRights) != 0;
    // Before the owner is another one, not after.
    if (has_rights &&
        chmod(safe_path::name_of(entry).c_str(), st.st_mode & kModeBits & ~kOwnersRights) != 0)
        return error_text("the mode cannot be set", errno);
    if (fchownat(entry.get(), "", static_cast<uid_t>(operation.uid),
                 static_cast<gid_t>(operation.gid), AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) != 0)
        return error_text("the owner cannot be set", errno);
    return {};
}

}  // namespace

std::string carry_out(const batch::Operation& operation, const Caller& caller) {
    switch (operation.verb) {
    case batch::Verb::Copy:
        return copy(operation, caller);
    case batch::Verb::MakeDir:
        return make_dir(operation, caller);
    case batch::Verb::Remove:
        return remove(operation);
    case batch::Verb::Chmod:
        return change_mode(operation);
    case batch::Verb::Chown:
        return change_owner(operation);
    }
    return "unknown operation";
}

}  // namespace operations
