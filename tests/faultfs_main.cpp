// The server behind tests/support/faultfs.h: passes every call on to a backing folder, after asking
// the table of faults what is to become of it. Inodes are held by O_PATH descriptors, so that
// depth, renames and unlinked files need no path.
//
//   faultfs BACKING MOUNT_POINT SOCKET_FD SUBTYPE UNKNOWN_TYPES FOLD_CASE
//
// Threads: libfuse's own, one per call in work; one that reads commands. Locks: Faults::m_mutex and
// Inodes::m_mutex, never both.

#define FUSE_USE_VERSION 312

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <fuse3/fuse_lowlevel.h>
#include <list>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// --- Faults -------------------------------------------------------------------------------------

struct Fault {
    std::string op;
    std::string name;
    int64_t from = 1;
    int64_t count = -1;
    int error = 0;
    bool stall = false;
    bool deaf = false;
    int64_t limit = 0;
    int64_t seen = 0;  // matching calls so far
};

// What one call is to do.
struct Verdict {
    int error = 0;      // 0: go on
    int64_t limit = 0;  // 0: no limit
};

class Faults {
  public:
    // Counts the call and waits when it is to stall. Every operation asks here first.
    Verdict judge(fuse_req_t req, const char* op, const std::string& name);
    std::string command(const std::string& text);

  private:
    struct Waiter {
        Faults* owner = nullptr;
        bool interrupted = false;
    };
    static void on_interrupt(fuse_req_t req, void* data);
    int wait(fuse_req_t req, bool deaf, std::unique_lock<std::mutex>& lock);
    void add(std::istringstream& words);

    std::mutex m_mutex;
    std::condition_variable m_released;
    std::list<Fault> m_faults;
    std::map<std::string, int64_t> m_calls;
    int64_t m_epoch = 0;  // grows with each release; a stall ends when it is not that of its start
    int m_stalled = 0;    // calls that stall since the last release
};

Verdict Faults::judge(fuse_req_t req, const char* op, const std::string& name) {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_calls[op];
    Verdict verdict;
    bool stall = false;
    bool deaf = false;
    for (Fault& fault : m_faults) {
        if (fault.op != op || fnmatch(fault.name.c_str(), name.c_str(), 0) != 0)
            continue;
        ++fault.seen;
        if (fault.seen < fault.from)
            continue;
        if (fault.count >= 0 && fault.seen >= fault.from + fault.count)
            continue;
        if (fault.error && !verdict.error)
            verdict.error = fault.error;
        if (fault.limit > 0)
            verdict.limit = verdict.limit ? std::min(verdict.limit, fault.limit) : fault.limit;
        stall = stall || fault.stall;
        deaf = deaf || fault.deaf;
    }
    if (stall) {
        const int error = wait(req, deaf, lock);
        if (error)
            verdict.error = error;
    }
    return verdict;
}

int Faults::wait(fuse_req_t req, bool deaf, std::unique_lock<std::mutex>& lock) {
    const int64_t epoch = m_epoch;
    Waiter waiter;
    waiter.owner = this;
    ++m_stalled;
    lock.unlock();
    if (!deaf)
        fuse_req_interrupt_func(req, on_interrupt, &waiter);
    lock.lock();
    m_released.wait(lock, [&] { return m_epoch != epoch || waiter.interrupted; });
    lock.unlock();
    fuse_req_interrupt_func(req, nullptr, nullptr);
    lock.lock();
    if (m_epoch != epoch)
        return 0;
    --m_stalled;
    return EINTR;
}

void Faults::on_interrupt(fuse_req_t, void* data) {
    auto* waiter = static_cast<Waiter*>(data);
    const std::lock_guard<std::mutex> lock(waiter->owner->m_mutex);
    waiter->interrupted = true;
    waiter->owner->m_released.notify_all();
}

void Faults::add(std::istringstream& words) {
    Fault fault;
    words >> fault.op >> fault.from >> fault.count >> fault.error >> fault.stall >> fault.deaf >>
        fault.limit;
    words.get();  // the blank before the pattern, which may hold blanks of its own
    std::getline(words, fault.name, '\0');
    m_faults.push_back(std::move(fault));
}

std::string Faults::command(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::istringstream words(text);
    std::string verb;
    words >> verb;
    if (verb == "fault") {
        add(words);
    } else if (verb == "clear" || verb == "release") {
        if (verb == "clear") {
            m_faults.clear();
            m_calls.clear();
        }
        ++m_epoch;
        m_stalled = 0;
        m_released.notify_all();
    } else if (verb == "calls") {
        std::string op;
        words >> op;
        return std::to_string(m_calls[op]);
    } else if (verb == "stalled") {
        return std::to_string(m_stalled);
    }
    return "ok";
}

Faults g_faults;

// --- Inodes -------------------------------------------------------------------------------------

struct Inode {
    int fd = -1;  // O_PATH
    uint64_t lookups = 0;
    std::string name;  // under which it was last found
    dev_t device = 0;
    ino_t number = 0;
};

Inode g_root;

Inode* inode_of(fuse_ino_t ino) {
    return ino == FUSE_ROOT_ID ? &g_root : reinterpret_cast<Inode*>(ino);
}

class Inodes {
  public:
    // Takes over fd. One object per file however many names it has.
    Inode* add(int fd, const struct stat& st, const char* name);
    void forget(Inode* inode, uint64_t lookups);
    std::string name_of(Inode* inode);

  private:
    std::mutex m_mutex;
    std::map<std::pair<dev_t, ino_t>, Inode*> m_known;
};

Inode* Inodes::add(int fd, const struct stat& st, const char* name) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Inode*& inode = m_known[{st.st_dev, st.st_ino}];
    if (inode) {
        close(fd);
    } else {
        inode = new Inode;
        inode->fd = fd;
        inode->device = st.st_dev;
        inode->number = st.st_ino;
    }
    inode->name = name;
    ++inode->lookups;
    return inode;
}

void Inodes::forget(Inode* inode, uint64_t lookups) {
    if (inode == &g_root)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    inode->lookups -= std::min(lookups, inode->lookups);
    if (inode->lookups)
        return;
    m_known.erase({inode->device, inode->number});
    close(inode->fd);
    delete inode;
}

std::string Inodes::name_of(Inode* inode) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return inode->name;
}

Inodes g_inodes;
bool g_unknown_types = false;
bool g_fold_case = false;
bool g_keep_case = false;

// A name as the backing folder has it: as given, or where case makes no difference in small letters
// or as the entry that is there was named.
std::string folded(fuse_ino_t parent, const char* name) {
    std::string text = name;
    if (!g_fold_case)
        return text;
    if (!g_keep_case) {
        for (char& c : text)
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        return text;
    }
    const int fd = openat(inode_of(parent)->fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const folder = fd >= 0 ? fdopendir(fd) : nullptr;
    while (const struct dirent* entry = folder ? readdir(folder) : nullptr)
        if (strcasecmp(entry->d_name, name) == 0)
            text = entry->d_name;
    if (folder)
        closedir(folder);
    return text;
}

std::string proc_path(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

struct File {
    int fd = -1;
    std::string name;
};

File* file_of(const struct fuse_file_info* info) {
    return reinterpret_cast<File*>(info->fh);
}

struct Folder {
    DIR* stream = nullptr;
    std::string name;
    off_t offset = 0;                // where the stream stands
    struct dirent* entry = nullptr;  // read but not yet given
};

Folder* folder_of(const struct fuse_file_info* info) {
    return reinterpret_cast<Folder*>(info->fh);
}

void reply_result(fuse_req_t req, int result) {
    fuse_reply_err(req, result == 0 ? 0 : errno);
}

// The error that the table of faults gives this call; the reply has then been sent.
bool refused(fuse_req_t req, const char* op, const std::string& name, int64_t* limit = nullptr) {
    const Verdict verdict = g_faults.judge(req, op, name);
    if (limit)
        *limit = verdict.limit;
    if (verdict.error)
        fuse_reply_err(req, verdict.error);
    return verdict.error != 0;
}

bool find_entry(fuse_ino_t parent, const char* name, struct fuse_entry_param& entry) {
    const int fd = openat(inode_of(parent)->fd, name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    entry = {};
    if (fstatat(fd, "", &entry.attr, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) != 0) {
        const int code = errno;
        close(fd);
        errno = code;
        return false;
    }
    entry.ino = reinterpret_cast<fuse_ino_t>(g_inodes.add(fd, entry.attr, name));
    return true;
}

void reply_entry(fuse_req_t req, fuse_ino_t parent, const char* name) {
    struct fuse_entry_param entry = {};
    if (find_entry(parent, name, entry))
        fuse_reply_entry(req, &entry);
    else
        fuse_reply_err(req, errno);
}

// What an ordinary user makes belongs to that user.
void hand_over(fuse_req_t req, int dir_fd, const char* name) {
    const struct fuse_ctx* caller = fuse_req_ctx(req);
    if (caller->uid != 0 || caller->gid != 0)
        (void)!fchownat(dir_fd, name, caller->uid, caller->gid, AT_SYMLINK_NOFOLLOW);
}

// --- Names --------------------------------------------------------------------------------------

void op_init(void*, struct fuse_conn_info* conn) {
    // Kinds come with readdir and the rest with lookup, each counted on its own.
    conn->want &= ~static_cast<unsigned>(FUSE_CAP_READDIRPLUS | FUSE_CAP_READDIRPLUS_AUTO |
                                         FUSE_CAP_SPLICE_READ | FUSE_CAP_SPLICE_WRITE |
                                         FUSE_CAP_AUTO_INVAL_DATA);
}

void op_lookup(fuse_req_t req, fuse_ino_t parent, const char* given) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (!refused(req, "lookup", name))
        reply_entry(req, parent, name);
}

void op_forget(fuse_req_t req, fuse_ino_t ino, uint64_t lookups) {
    g_inodes.forget(inode_of(ino), lookups);
    fuse_reply_none(req);
}

void op_forget_multi(fuse_req_t req, size_t count, struct fuse_forget_data* forgets) {
    for (size_t i = 0; i < count; ++i)
        g_inodes.forget(inode_of(forgets[i].ino), forgets[i].nlookup);
    fuse_reply_none(req);
}

void op_readlink(fuse_req_t req, fuse_ino_t ino) {
    if (refused(req, "readlink", g_inodes.name_of(inode_of(ino))))
        return;
    char text[PATH_MAX + 1];
    const ssize_t n = readlinkat(inode_of(ino)->fd, "", text, sizeof text - 1);
    if (n < 0) {
        fuse_reply_err(req, errno);
        return;
    }
    text[n] = '\0';
    fuse_reply_readlink(req, text);
}

void op_mknod(fuse_req_t req, fuse_ino_t parent, const char* given, mode_t mode, dev_t device) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (refused(req, "mknod", name))
        return;
    if (mknodat(inode_of(parent)->fd, name, mode, device) != 0) {
        fuse_reply_err(req, errno);
        return;
    }
    hand_over(req, inode_of(parent)->fd, name);
    reply_entry(req, parent, name);
}

void op_mkdir(fuse_req_t req, fuse_ino_t parent, const char* given, mode_t mode) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (refused(req, "mkdir", name))
        return;
    if (mkdirat(inode_of(parent)->fd, name, mode) != 0) {
        fuse_reply_err(req, errno);
        return;
    }
    hand_over(req, inode_of(parent)->fd, name);
    reply_entry(req, parent, name);
}

void op_symlink(fuse_req_t req, const char* text, fuse_ino_t parent, const char* given) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (refused(req, "symlink", name))
        return;
    if (symlinkat(text, inode_of(parent)->fd, name) != 0) {
        fuse_reply_err(req, errno);
        return;
    }
    hand_over(req, inode_of(parent)->fd, name);
    reply_entry(req, parent, name);
}

void op_link(fuse_req_t req, fuse_ino_t ino, fuse_ino_t parent, const char* given) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (refused(req, "link", name))
        return;
    if (linkat(inode_of(ino)->fd, "", inode_of(parent)->fd, name, AT_EMPTY_PATH) != 0)
        fuse_reply_err(req, errno);
    else
        reply_entry(req, parent, name);
}

void op_unlink(fuse_req_t req, fuse_ino_t parent, const char* given) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (!refused(req, "unlink", name))
        reply_result(req, unlinkat(inode_of(parent)->fd, name, 0));
}

void op_rmdir(fuse_req_t req, fuse_ino_t parent, const char* given) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (!refused(req, "rmdir", name))
        reply_result(req, unlinkat(inode_of(parent)->fd, name, AT_REMOVEDIR));
}

void op_rename(fuse_req_t req, fuse_ino_t parent, const char* given, fuse_ino_t to_parent,
               const char* given_to, unsigned flags) {
    const std::string from = folded(parent, given);
    const std::string to = folded(to_parent, given_to);
    if (!refused(req, "rename", from))
        reply_result(req, renameat2(inode_of(parent)->fd, from.c_str(), inode_of(to_parent)->fd,
                                    to.c_str(), flags));
}

// --- Attributes ---------------------------------------------------------------------------------

void reply_attributes(fuse_req_t req, fuse_ino_t ino) {
    struct stat st = {};
    if (fstatat(inode_of(ino)->fd, "", &st, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0)
        fuse_reply_attr(req, &st, 0);
    else
        fuse_reply_err(req, errno);
}

void op_getattr(fuse_req_t req, fuse_ino_t ino, struct fuse_file_info*) {
    if (!refused(req, "getattr", g_inodes.name_of(inode_of(ino))))
        reply_attributes(req, ino);
}

struct timespec wanted_time(const struct timespec& given, int to_set, int set, int now) {
    if (to_set & now)
        return {0, UTIME_NOW};
    return (to_set & set) ? given : timespec{0, UTIME_OMIT};
}

bool set_times(const std::string& path, const struct stat* attr, int to_set) {
    const struct timespec times[2] = {
        wanted_time(attr->st_atim, to_set, FUSE_SET_ATTR_ATIME, FUSE_SET_ATTR_ATIME_NOW),
        wanted_time(attr->st_mtim, to_set, FUSE_SET_ATTR_MTIME, FUSE_SET_ATTR_MTIME_NOW)};
    return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

bool set_owner(int fd, const struct stat* attr, int to_set) {
    const uid_t keep_uid = static_cast<uid_t>(-1);
    const gid_t keep_gid = static_cast<gid_t>(-1);
    return fchownat(fd, "", (to_set & FUSE_SET_ATTR_UID) ? attr->st_uid : keep_uid,
                    (to_set & FUSE_SET_ATTR_GID) ? attr->st_gid : keep_gid,
                    AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) == 0;
}

void op_setattr(fuse_req_t req, fuse_ino_t ino, struct stat* attr, int to_set,
                struct fuse_file_info*) {
    constexpr int kOwner = FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID;
    constexpr int kTimes = FUSE_SET_ATTR_ATIME | FUSE_SET_ATTR_MTIME | FUSE_SET_ATTR_ATIME_NOW |
                           FUSE_SET_ATTR_MTIME_NOW;
    const char* op = "setattr";
    if (to_set & FUSE_SET_ATTR_SIZE)
        op = "truncate";
    else if (to_set & kOwner)
        op = "chown";
    else if (to_set & FUSE_SET_ATTR_MODE)
        op = "chmod";
    else if (to_set & kTimes)
        op = "utimens";
    if (refused(req, op, g_inodes.name_of(inode_of(ino))))
        return;
    const int fd = inode_of(ino)->fd;
    const std::string path = proc_path(fd);
    bool done = true;
    if (to_set & FUSE_SET_ATTR_MODE)
        done = chmod(path.c_str(), attr->st_mode & 07777) == 0;
    if (done && (to_set & kOwner))
        done = set_owner(fd, attr, to_set);
    if (done && (to_set & FUSE_SET_ATTR_SIZE))
        done = truncate(path.c_str(), attr->st_size) == 0;
    if (done && (to_set & kTimes))
        done = set_times(path, attr, to_set);
    if (done)
        reply_attributes(req, ino);
    else
        fuse_reply_err(req, errno);
}

void op_statfs(fuse_req_t req, fuse_ino_t ino) {
    if (refused(req, "statfs", g_inodes.name_of(inode_of(ino))))
        return;
    struct statvfs space = {};
    if (fstatvfs(inode_of(ino)->fd, &space) == 0)
        fuse_reply_statfs(req, &space);
    else
        fuse_reply_err(req, errno);
}

// --- Files --------------------------------------------------------------------------------------

void give_file(struct fuse_file_info* info, int fd, const std::string& name) {
    auto* file = new File;
    file->fd = fd;
    file->name = name;
    info->fh = reinterpret_cast<uint64_t>(file);
    info->direct_io = 1;
}

void op_open(fuse_req_t req, fuse_ino_t ino, struct fuse_file_info* info) {
    const std::string name = g_inodes.name_of(inode_of(ino));
    if (refused(req, "open", name))
        return;
    const int flags = (info->flags & ~(O_NOFOLLOW | O_APPEND)) | O_CLOEXEC;
    const int fd = open(proc_path(inode_of(ino)->fd).c_str(), flags);
    if (fd < 0) {
        fuse_reply_err(req, errno);
        return;
    }
    give_file(info, fd, name);
    fuse_reply_open(req, info);
}

void op_create(fuse_req_t req, fuse_ino_t parent, const char* given, mode_t mode,
               struct fuse_file_info* info) {
    const std::string folded_name = folded(parent, given);
    const char* const name = folded_name.c_str();
    if (refused(req, "create", name))
        return;
    const int flags = (info->flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC) & ~O_APPEND;
    const int fd = openat(inode_of(parent)->fd, name, flags, mode);
    if (fd < 0) {
        fuse_reply_err(req, errno);
        return;
    }
    hand_over(req, inode_of(parent)->fd, name);
    struct fuse_entry_param entry = {};
    if (!find_entry(parent, name, entry)) {
        const int code = errno;
        close(fd);
        fuse_reply_err(req, code);
        return;
    }
    give_file(info, fd, name);
    fuse_reply_create(req, &entry, info);
}

void op_read(fuse_req_t req, fuse_ino_t, size_t size, off_t offset, struct fuse_file_info* info) {
    int64_t limit = 0;
    if (refused(req, "read", file_of(info)->name, &limit))
        return;
    if (limit > 0)
        size = std::min(size, static_cast<size_t>(limit));
    std::vector<char> buffer(size);
    const ssize_t n = pread(file_of(info)->fd, buffer.data(), size, offset);
    if (n < 0)
        fuse_reply_err(req, errno);
    else
        fuse_reply_buf(req, buffer.data(), static_cast<size_t>(n));
}

void op_write(fuse_req_t req, fuse_ino_t, const char* data, size_t size, off_t offset,
              struct fuse_file_info* info) {
    int64_t limit = 0;
    if (refused(req, "write", file_of(info)->name, &limit))
        return;
    if (limit > 0)
        size = std::min(size, static_cast<size_t>(limit));
    const ssize_t n = pwrite(file_of(info)->fd, data, size, offset);
    if (n < 0)
        fuse_reply_err(req, errno);
    else
        fuse_reply_write(req, static_cast<size_t>(n));
}

void op_copy_file_range(fuse_req_t req, fuse_ino_t, off_t from_offset, struct fuse_file_info* from,
                        fuse_ino_t, off_t to_offset, struct fuse_file_info* to, size_t size,
                        int flags) {
    int64_t limit = 0;
    if (refused(req, "copy_file_range", file_of(from)->name, &limit))
        return;
    if (limit > 0)
        size = std::min(size, static_cast<size_t>(limit));
    const ssize_t n = copy_file_range(file_of(from)->fd, &from_offset, file_of(to)->fd, &to_offset,
                                      size, static_cast<unsigned>(flags));
    if (n < 0)
        fuse_reply_err(req, errno);
    else
        fuse_reply_write(req, static_cast<size_t>(n));
}

void op_fallocate(fuse_req_t req, fuse_ino_t, int mode, off_t offset, off_t length,
                  struct fuse_file_info* info) {
    if (!refused(req, "fallocate", file_of(info)->name))
        reply_result(req, fallocate(file_of(info)->fd, mode, offset, length));
}

void op_lseek(fuse_req_t req, fuse_ino_t, off_t offset, int whence, struct fuse_file_info* info) {
    if (refused(req, "lseek", file_of(info)->name))
        return;
    const off_t at = lseek(file_of(info)->fd, offset, whence);
    if (at < 0)
        fuse_reply_err(req, errno);
    else
        fuse_reply_lseek(req, at);
}

void op_flush(fuse_req_t req, fuse_ino_t, struct fuse_file_info* info) {
    if (!refused(req, "flush", file_of(info)->name))
        reply_result(req, close(dup(file_of(info)->fd)));
}

void op_release(fuse_req_t req, fuse_ino_t, struct fuse_file_info* info) {
    File* file = file_of(info);
    const Verdict verdict = g_faults.judge(req, "release", file->name);
    close(file->fd);
    delete file;
    fuse_reply_err(req, verdict.error);
}

void op_fsync(fuse_req_t req, fuse_ino_t, int, struct fuse_file_info* info) {
    if (!refused(req, "fsync", file_of(info)->name))
        reply_result(req, fsync(file_of(info)->fd));
}

// --- Folders ------------------------------------------------------------------------------------

void op_opendir(fuse_req_t req, fuse_ino_t ino, struct fuse_file_info* info) {
    const std::string name = g_inodes.name_of(inode_of(ino));
    if (refused(req, "opendir", name))
        return;
    const int fd = openat(inode_of(ino)->fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* stream = fd < 0 ? nullptr : fdopendir(fd);
    if (!stream) {
        fuse_reply_err(req, errno);
        return;
    }
    auto* folder = new Folder;
    folder->stream = stream;
    folder->name = name;
    info->fh = reinterpret_cast<uint64_t>(folder);
    fuse_reply_open(req, info);
}

void op_readdir(fuse_req_t req, fuse_ino_t, size_t size, off_t offset,
                struct fuse_file_info* info) {
    Folder* folder = folder_of(info);
    int64_t limit = 0;
    if (refused(req, "readdir", folder->name, &limit))
        return;
    if (offset != folder->offset) {
        seekdir(folder->stream, offset);
        folder->entry = nullptr;
        folder->offset = offset;
    }
    std::vector<char> buffer(size);
    size_t used = 0;
    for (int64_t given = 0; limit == 0 || given < limit; ++given) {
        if (!folder->entry) {
            errno = 0;
            folder->entry = readdir(folder->stream);
            if (!folder->entry)
                break;
        }
        struct stat st = {};
        st.st_ino = folder->entry->d_ino;
        if (!g_unknown_types)
            st.st_mode = static_cast<mode_t>(DTTOIF(folder->entry->d_type));
        const size_t need = fuse_add_direntry(req, buffer.data() + used, size - used,
                                              folder->entry->d_name, &st, folder->entry->d_off);
        if (need > size - used)
            break;
        used += need;
        folder->offset = folder->entry->d_off;
        folder->entry = nullptr;
    }
    fuse_reply_buf(req, buffer.data(), used);
}

void op_releasedir(fuse_req_t req, fuse_ino_t, struct fuse_file_info* info) {
    closedir(folder_of(info)->stream);
    delete folder_of(info);
    fuse_reply_err(req, 0);
}

struct fuse_lowlevel_ops operations() {
    struct fuse_lowlevel_ops ops = {};
    ops.init = op_init;
    ops.lookup = op_lookup;
    ops.forget = op_forget;
    ops.forget_multi = op_forget_multi;
    ops.readlink = op_readlink;
    ops.mknod = op_mknod;
    ops.mkdir = op_mkdir;
    ops.symlink = op_symlink;
    ops.link = op_link;
    ops.unlink = op_unlink;
    ops.rmdir = op_rmdir;
    ops.rename = op_rename;
    ops.getattr = op_getattr;
    ops.setattr = op_setattr;
    ops.statfs = op_statfs;
    ops.open = op_open;
    ops.create = op_create;
    ops.read = op_read;
    ops.write = op_write;
    ops.copy_file_range = op_copy_file_range;
    ops.fallocate = op_fallocate;
    ops.lseek = op_lseek;
    ops.flush = op_flush;
    ops.release = op_release;
    ops.fsync = op_fsync;
    ops.opendir = op_opendir;
    ops.readdir = op_readdir;
    ops.releasedir = op_releasedir;
    return ops;
}

// The socket's end is the test's end: whatever still waits here dies with us.
void serve_commands(int socket) {
    char text[1024];
    for (;;) {
        const ssize_t n = recv(socket, text, sizeof text, 0);
        if (n <= 0)
            _exit(0);
        const std::string answer = g_faults.command(std::string(text, static_cast<size_t>(n)));
        if (send(socket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
            _exit(0);
    }
}

int serve(const char* point, int socket, const std::string& subtype) {
    std::string options = "fsname=faultfs,allow_other,default_permissions";
    if (!subtype.empty())
        options += ",subtype=" + subtype;
    struct fuse_args args = FUSE_ARGS_INIT(0, nullptr);
    fuse_opt_add_arg(&args, "faultfs");
    fuse_opt_add_arg(&args, "-o");
    fuse_opt_add_arg(&args, options.c_str());
    const struct fuse_lowlevel_ops ops = operations();
    struct fuse_session* session = fuse_session_new(&args, &ops, sizeof ops, nullptr);
    if (!session || fuse_session_mount(session, point) != 0)
        return 1;
    if (send(socket, "ready", 5, MSG_NOSIGNAL) != 5)
        return 1;
    std::thread(serve_commands, socket).detach();
    struct fuse_loop_config* config = fuse_loop_cfg_create();
    // Each call that stalls holds a thread.
    fuse_loop_cfg_set_max_threads(config, 64);
    fuse_loop_cfg_set_clone_fd(config, 0);
    const int looped = fuse_session_loop_mt(session, config);
    // Threads may still be at work on what an ordinary end would destroy.
    _exit(looped == 0 ? 0 : 1);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7)
        return 2;
    umask(0);
    struct rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    struct stat st = {};
    g_root.fd = open(argv[1], O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (g_root.fd < 0 || fstat(g_root.fd, &st) != 0)
        return 2;
    g_root.name = "/";
    g_unknown_types = std::strcmp(argv[5], "1") == 0;
    g_fold_case = std::strcmp(argv[6], "0") != 0;
    g_keep_case = std::strcmp(argv[6], "2") == 0;
    return serve(argv[2], std::atoi(argv[3]), argv[4]);
}
