// Walks over trees. They go by folder descriptors: no path grows too long, no link is followed, and
// a folder that is swapped during the walk leads nowhere else.

#include "fs_ops.h"

#include "strutil.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fsops {

namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool is_dot_or_dotdot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// A signal asks keep_going whether to try again; EINTR is the answer if not.
int open_folder_at(int dir_fd, const char* name, const KeepGoing& keep_going) {
    int fd = -1;
    do {
        fd = openat(dir_fd, name, kOpenFolder);
    } while (fd < 0 && errno == EINTR && (!keep_going || keep_going()));
    return fd;
}

// The open folders from the root of a walk down to where it stands. Only the deepest kMaxOpen of
// them are really open, so that a tree may be deeper than a process may have files; the way back up
// goes through ".." and is believed only if it leads to the folder that we came from.
class FolderChain {
  public:
    ~FolderChain() {
        while (!m_levels.empty())
            drop_last();
    }
    explicit FolderChain(const KeepGoing& keep_going) : m_keep_going(keep_going) {}
    FolderChain(const FolderChain&) = delete;
    FolderChain& operator=(const FolderChain&) = delete;

    // Opens `name` in the current folder, or a path when nothing is open yet. errno on failure.
    bool descend(const char* name) {
        const int fd =
            open_folder_at(m_levels.empty() ? AT_FDCWD : current_fd(), name, m_keep_going);
        return fd >= 0 && push(fd);
    }

    // Back to the parent of the current folder. False when it cannot be found again.
    bool ascend() {
        if (m_levels.size() < 2) {
            drop_last();
            return true;
        }
        Level& parent = m_levels[m_levels.size() - 2];
        if (!parent.dir && !reopen(parent))
            return false;
        drop_last();
        return true;
    }

    [[nodiscard]] bool empty() const { return m_levels.empty(); }
    // Only while not empty.
    [[nodiscard]] DIR* current() const { return m_levels.back().dir; }
    [[nodiscard]] int current_fd() const { return dirfd(m_levels.back().dir); }

  private:
    static constexpr size_t kMaxOpen = 128;

    struct Level {
        DIR* dir = nullptr;  // null while closed for the sake of deeper ones
        FileId id;
    };

    bool push(int fd) {
        struct stat st = {};
        if (fstat(fd, &st) != 0) {
            const int code = errno;
            close(fd);
            errno = code;
            return false;
        }
        DIR* dir = fdopendir(fd);
        if (!dir) {
            const int code = errno;
            close(fd);
            errno = code;
            return false;
        }
        m_levels.push_back({dir, {st.st_dev, st.st_ino}});
        if (m_levels.size() > kMaxOpen) {
            Level& far = m_levels[m_levels.size() - 1 - kMaxOpen];
            if (far.dir)
                closedir(far.dir);
            far.dir = nullptr;
        }
        return true;
    }

    bool reopen(Level& parent) {
        const int fd = open_folder_at(current_fd(), "..", m_keep_going);
        if (fd < 0)
            return false;
        struct stat st = {};
        if (fstat(fd, &st) != 0 || parent.id != FileId{st.st_dev, st.st_ino}) {
            close(fd);
            errno = ESTALE;
            return false;
        }
        parent.dir = fdopendir(fd);
        if (!parent.dir)
            close(fd);
        return parent.dir != nullptr;
    }

    void drop_last() {
        if (m_levels.back().dir)
            closedir(m_levels.back().dir);
        m_levels.pop_back();
    }

    const KeepGoing& m_keep_going;
    std::vector<Level> m_levels;
};

// Calls `visit` with each name of the current folder but "." and "..", until it returns false.
// Returns the errno of a reading that broke off, else 0.
template <typename Visit>
int for_each_name(DIR* dir, Visit visit) {
    for (;;) {
        errno = 0;
        const struct dirent* entry = readdir(dir);
        if (!entry)
            return errno;
        if (!is_dot_or_dotdot(entry->d_name) && !visit(*entry))
            return 0;
    }
}

// --- Measuring ----------------------------------------------------------------------------------

class Measure {
  public:
    using OnProgress = std::function<void(int64_t, int64_t, int64_t)>;

    Measure(const KeepGoing& keep_going, const OnProgress& on_progress)
        : m_keep_going(keep_going), m_on_progress(on_progress), m_chain(keep_going) {}

    TreeSize run(const std::string& path) {
        struct stat st = {};
        if (lstat(path.c_str(), &st) != 0)
            return {};
        if (!S_ISDIR(st.st_mode)) {
            count_file(st);
            return m_total;
        }
        enter(path.c_str());
        while (!m_pending.empty() && step()) {
        }
        return m_total;
    }

  private:
    // One folder on the way down: its subfolders that are still to be visited.
    struct Pending {
        std::vector<std::string> folders;
        bool read = false;
    };

    bool going() const { return !m_keep_going || m_keep_going(); }

    void report() const {
        if (m_on_progress)
            m_on_progress(m_total.bytes, m_total.files, m_total.dirs);
    }

    void count_file(const struct stat& st) {
        ++m_total.files;
        if (!S_ISLNK(st.st_mode))
            m_total.bytes = add_sizes(m_total.bytes, st.st_size);
    }

    // Makes a folder the current one. One that cannot be opened is counted where it stands.
    void enter(const char* name) {
        if (m_chain.descend(name)) {
            ++m_total.dirs;
            m_pending.emplace_back();
            return;
        }
        if (errno == EINTR)
            return;  // told to stop: no further look at what may be a dead mount
        struct stat st = {};
        const int parent = m_chain.empty() ? AT_FDCWD : m_chain.current_fd();
        if (fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            return;  // gone meanwhile
        if (!S_ISDIR(st.st_mode)) {
            count_file(st);
            return;
        }
        ++m_total.dirs;
        ++m_total.unreadable;
    }

    // Reads the current folder, goes into its next subfolder, or leaves it. False when the way
    // back up is lost; what stands above then stays uncounted and is told as unreadable.
    bool step() {
        Pending& here = m_pending.back();
        if (!here.read) {
            here.read = true;
            read_current(here);
            return true;
        }
        if (!here.folders.empty() && going()) {
            const std::string name = std::move(here.folders.back());
            here.folders.pop_back();
            enter(name.c_str());
            return true;
        }
        m_pending.pop_back();
        const bool found_the_way = m_chain.ascend();
        report();
        if (!found_the_way)
            m_total.unreadable += static_cast<int64_t>(m_pending.size());
        return found_the_way;
    }

    void read_current(Pending& here) {
        int names = 0;
        for_each_name(m_chain.current(), [&](const struct dirent& entry) {
            if (!going()) {
                here.folders.clear();
                return false;
            }
            count_name(entry, here);
            if (m_on_progress && ++names == 64) {
                names = 0;
                report();
            }
            return true;
        });
    }

    void count_name(const struct dirent& entry, Pending& here) {
        if (entry.d_type == DT_LNK) {
            ++m_total.files;
            return;
        }
        if (entry.d_type != DT_DIR) {
            struct stat st = {};
            if (fstatat(m_chain.current_fd(), entry.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                return;
            if (!S_ISDIR(st.st_mode)) {
                count_file(st);
                return;
            }
        }
        here.folders.emplace_back(entry.d_name);
    }

    const KeepGoing& m_keep_going;
    const OnProgress& m_on_progress;
    TreeSize m_total;
    FolderChain m_chain;
    std::vector<Pending> m_pending;  // one per level of m_chain
};

// --- Removing -----------------------------------------------------------------------------------

constexpr const char* kIsMountPoint = "this folder is a mount point";

// Whether a folder is the root of a mount, a bind mount of its own file system included.
bool is_mount_point(int dir_fd, const char* name, uint64_t parent_device) {
    struct statx info = {};
    if (statx(dir_fd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) == 0 &&
        (info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT))
        return (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    // An old kernel does not tell, a sandbox may not let us ask.
    struct stat st = {};
    return fstatat(dir_fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && st.st_dev != parent_device;
}

// The names that a walk has before it which does something with what stands in a folder before it
// comes to the folder itself, from the root down to where it is. The first error of the walk is
// kept here too.
class NameStack {
  public:
    explicit NameStack(const KeepGoing& keep_going) : m_chain(keep_going) {}

    [[nodiscard]] bool empty() const { return m_levels.empty(); }
    // Of the current folder. Without one names are full paths.
    [[nodiscard]] int fd() const { return m_chain.empty() ? AT_FDCWD : m_chain.current_fd(); }
    // These two only while not empty.
    [[nodiscard]] std::vector<std::string>& names() { return m_levels.back().names; }
    [[nodiscard]] uint64_t device() const { return m_levels.back().device; }

    // The full path of an entry of the current folder; built for messages alone, since a deep tree
    // has paths that are longer than any call takes.
    [[nodiscard]] std::string path_of(const std::string& name) const {
        std::string path;
        for (const Level& level : m_levels)
            path = su::join_path(path, level.name);
        return su::join_path(path, name);
    }

    void keep_error(const std::string& error) {
        if (m_first_error.empty())
            m_first_error = error;
    }
    [[nodiscard]] const std::string& first_error() const { return m_first_error; }

    // Opens a folder and reads its names. They are all read before anything is done with the first
    // one, since not every file system can do both at a time. False, with the error kept, for one
    // that cannot be opened.
    bool enter(const std::string& name) {
        if (!m_chain.descend(name.c_str())) {
            const int code = errno;
            keep_error(err_from(path_of(name), code));
            return false;
        }
        Level level;
        level.name = name;
        struct stat st = {};
        if (fstat(m_chain.current_fd(), &st) == 0)
            level.device = st.st_dev;
        const int code = for_each_name(m_chain.current(), [&](const struct dirent& entry) {
            level.names.emplace_back(entry.d_name);
            return true;
        });
        m_levels.push_back(std::move(level));
        if (code != 0)
            keep_error(err_from(path_of({}), code));
        return true;
    }

    // Goes back to the folder above; the name of the one that was left there. False, with the error
    // kept, when there is no way back.
    bool leave(std::string& name) {
        name = std::move(m_levels.back().name);
        m_levels.pop_back();
        if (m_chain.ascend())
            return true;
        const int code = errno;
        keep_error(err_from(path_of(name), code));
        return false;
    }

  private:
    struct Level {
        std::string name;  // in the folder above; the full path for the first
        std::vector<std::string> names;
        uint64_t device = 0;
    };

    std::string m_first_error;
    FolderChain m_chain;
    std::vector<Level> m_levels;  // one per level of m_chain
};

class Remove {
  public:
    Remove(const std::string& root, const std::function<void()>& on_removed,
           const KeepGoing& keep_going)
        : m_root(root), m_on_removed(on_removed), m_keep_going(keep_going), m_stack(keep_going) {}

    std::string run() {
        struct stat st = {};
        if (lstat(m_root.c_str(), &st) != 0)
            return err_from(m_root);
        if (!S_ISDIR(st.st_mode)) {
            if (unlink(m_root.c_str()) != 0)
                return err_from(m_root);
            removed();
            return {};
        }
        const std::string parent = su::parent_of(m_root);
        if (is_mount_point(AT_FDCWD, m_root.c_str(),
                           stat_path(parent.empty() ? "/" : parent).device))
            return m_root + ": " + kIsMountPoint;
        m_stack.enter(m_root);
        while (!m_stack.empty() && step()) {
        }
        return m_stack.first_error();
    }

  private:
    void removed() const {
        if (m_on_removed)
            m_on_removed();
    }

    // Removes the next entry, goes into the next subfolder, or leaves and removes the current
    // folder. False when the walk ends early.
    bool step() {
        if (m_keep_going && !m_keep_going())
            return false;
        std::vector<std::string>& names = m_stack.names();
        if (names.empty())
            return leave();
        const std::string name = std::move(names.back());
        names.pop_back();
        const int fd = m_stack.fd();
        if (unlinkat(fd, name.c_str(), 0) == 0) {
            removed();
            return true;
        }
        const int code = errno;
        struct stat st = {};
        const bool is_folder =
            fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        if (!is_folder)
            m_stack.keep_error(err_from(m_stack.path_of(name), code));
        else if (is_mount_point(fd, name.c_str(), m_stack.device()))
            m_stack.keep_error(m_stack.path_of(name) + ": " + kIsMountPoint);
        else
            m_stack.enter(name);
        return true;
    }

    bool leave() {
        std::string name;
        if (!m_stack.leave(name))
            return false;
        if (unlinkat(m_stack.fd(), name.c_str(), AT_REMOVEDIR) == 0) {
            removed();
            return true;
        }
        const int code = errno;
        m_stack.keep_error(err_from(m_stack.path_of(name), code));
        return true;
    }

    const std::string& m_root;
    const std::function<void()>& m_on_removed;
    const KeepGoing& m_keep_going;
    NameStack m_stack;
};

// --- Doing something with every entry --------------------------------------------------------

class Apply {
  public:
    Apply(const std::string& root, const ApplyToEntry& apply)
        : m_root(root), m_apply(apply), m_stack(m_keep_going) {}

    std::string run() {
        visit(m_root);
        while (!m_stack.empty() && step()) {
        }
        return m_stack.first_error();
    }

  private:
    // An entry of the current folder. A folder is entered; its turn comes when it is left.
    void visit(const std::string& name) {
        struct stat st = {};
        if (fstatat(m_stack.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            const int code = errno;
            m_stack.keep_error(err_from(m_stack.path_of(name), code));
            return;
        }
        if (S_ISLNK(st.st_mode) || (S_ISDIR(st.st_mode) && m_stack.enter(name)))
            return;
        apply(name, S_ISDIR(st.st_mode));
    }

    void apply(const std::string& name, bool is_dir) {
        if (const int code = m_apply(m_stack.fd(), name.c_str(), is_dir); code != 0)
            m_stack.keep_error(err_from(m_stack.path_of(name), code));
    }

    // False when the way back up is lost.
    bool step() {
        std::vector<std::string>& names = m_stack.names();
        std::string name;
        if (names.empty()) {
            if (!m_stack.leave(name))
                return false;
            apply(name, true);
            return true;
        }
        name = std::move(names.back());
        names.pop_back();
        visit(name);
        return true;
    }

    const std::string& m_root;
    const ApplyToEntry& m_apply;
    const KeepGoing m_keep_going;  // none: nothing ends this walk
    NameStack m_stack;
};

// --- Listing ------------------------------------------------------------------------------------

RawEntry raw_entry(int dir_fd, const struct dirent& entry) {
    RawEntry raw;
    raw.name = entry.d_name;
    switch (entry.d_type) {
    case DT_DIR:
        raw.is_dir = true;
        return raw;
    case DT_LNK:
        raw.is_symlink = true;
        return raw;
    case DT_FIFO:
    case DT_CHR:
    case DT_BLK:
    case DT_SOCK:
        raw.is_special = true;
        return raw;
    default:
        break;
    }
    struct stat st = {};
    if (fstatat(dir_fd, entry.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return raw;
    raw.size = st.st_size;
    if (entry.d_type == DT_REG) {
        raw.inode = st.st_ino;
        raw.device = st.st_dev;
        raw.nlink = static_cast<uint32_t>(st.st_nlink);
    } else {
        raw.is_dir = S_ISDIR(st.st_mode);
        raw.is_symlink = S_ISLNK(st.st_mode);
        raw.is_special = !raw.is_dir && !raw.is_symlink && !S_ISREG(st.st_mode);
    }
    return raw;
}

// Takes the stream over.
RawListing read_listing(DIR* dir, const std::string& path) {
    RawListing listing;
    const int code = for_each_name(dir, [&](const struct dirent& entry) {
        listing.entries.push_back(raw_entry(dirfd(dir), entry));
        return true;
    });
    closedir(dir);
    if (code != 0)
        listing.error = path + ": " + std::strerror(code);
    return listing;
}

RawListing failed_listing(const std::string& path, int code) {
    RawListing listing;
    listing.error = path + ": " + std::strerror(code);
    return listing;
}

}  // namespace

TreeSize measure_tree(const std::string& path, const KeepGoing& keep_going,
                      const std::function<void(int64_t, int64_t, int64_t)>& on_progress) {
    return Measure(keep_going, on_progress).run(path);
}

std::string remove_recursive(const std::string& path, const std::function<void()>& on_removed,
                             const KeepGoing& keep_going) {
    return Remove(path, on_removed, keep_going).run();
}

std::string walk_apply(const std::string& path, const ApplyToEntry& apply) {
    return Apply(path, apply).run();
}

RawListing list_dir_raw(const std::string& path) {
    DIR* dir = nullptr;
    do {
        dir = opendir(path.c_str());
    } while (!dir && errno == EINTR);
    return dir ? read_listing(dir, path) : failed_listing(path, errno);
}

RawListing list_dir_raw_at(int dir_fd, const std::string& path, const KeepGoing& keep_going) {
    const int fd = open_folder_at(dir_fd, ".", keep_going);
    if (fd < 0)
        return failed_listing(path, errno);
    DIR* dir = fdopendir(fd);
    if (!dir) {
        const int code = errno;
        close(fd);
        return failed_listing(path, code);
    }
    return read_listing(dir, path);
}

}  // namespace fsops
