// Copying one file. The order of events:
//
//   look at the source, ask whether to begin, open the source, remove what stands at the target,
//   create the target anew, try a reflink, otherwise move the data region by region in chunks of
//   1 MiB, then size, mode, times, and close.
//
// Two answers of the kernel are remembered for the life of the process, since they cost a call for
// every file and do not change: that copy_file_range is of no use here, and which pairs of devices
// refuse a reflink. Losing an update of either costs one more attempt.
//
// Not done, on purpose: no fsync, no owner and no extended attributes, no temporary name, no
// verification read.

#include "fs_ops.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <mutex>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace fsops {

namespace {

constexpr int64_t kChunk = 1048576;             // bytes moved between two signs of life
constexpr int64_t kPreallocateAbove = 1048576;  // bytes; below, it costs more than it saves
constexpr int64_t kReadAhead = 131072;          // bytes that the kernel fetches unasked
constexpr int kTries = 5;                       // of a call that signals interrupt
constexpr const char* kNotRegular = "not a regular file (pipe, socket or device)";

std::atomic<bool> cfr_supported{true};

// --- Reflink memory -----------------------------------------------------------------------------

using DevicePair = std::pair<dev_t, dev_t>;

struct RefusedPairs {
    std::mutex mutex;
    std::vector<DevicePair> pairs;  // a handful at most
};

// Never destroyed: a worker may still be copying while the process ends.
RefusedPairs& refused_pairs() {
    static RefusedPairs* const refused = new RefusedPairs;
    return *refused;
}

// The pair of this thread's last refusal, so that a tree of files does not take the lock for each.
thread_local DevicePair t_refused_pair{0, 0};

bool reflink_is_refused(const DevicePair& pair) {
    if (t_refused_pair == pair)
        return true;
    RefusedPairs& refused = refused_pairs();
    std::lock_guard<std::mutex> lock(refused.mutex);
    if (std::find(refused.pairs.begin(), refused.pairs.end(), pair) == refused.pairs.end())
        return false;
    t_refused_pair = pair;
    return true;
}

void remember_refusal(const DevicePair& pair) {
    t_refused_pair = pair;
    RefusedPairs& refused = refused_pairs();
    std::lock_guard<std::mutex> lock(refused.mutex);
    if (std::find(refused.pairs.begin(), refused.pairs.end(), pair) == refused.pairs.end())
        refused.pairs.push_back(pair);
}

bool is_lasting_refusal(int code) {
    return code == EOPNOTSUPP || code == EXDEV || code == ENOTTY;
}

// --- Small things -------------------------------------------------------------------------------

std::vector<char>& thread_buffer() {
    thread_local std::vector<char> buffer(static_cast<size_t>(kChunk));
    return buffer;
}

// Errors of the last calls on a target that mean lost data. The others (no permission bits on this
// file system, no times) leave a good copy.
bool means_lost_data(int code) {
    switch (code) {
    case EIO:
    case ENOSPC:
    case EDQUOT:
    case ESTALE:
    case EFBIG:
    case ETIMEDOUT:
    case EREMOTEIO:
        return true;
    default:
        return false;
    }
}

bool same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The mode for a copy. A set-user-ID or set-group-ID program must not change whose rights it lends.
mode_t mode_for_copy(const struct stat& source, const struct stat& target) {
    mode_t mode = source.st_mode & 07777;
    if (source.st_uid != target.st_uid)
        mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    if (source.st_gid != target.st_gid)
        mode &= ~static_cast<mode_t>(S_ISGID);
    return mode;
}

// --- One copy -----------------------------------------------------------------------------------

class Copy {
  public:
    explicit Copy(CopyJob& job) : m_job(job) {}
    ~Copy() {
        close_fd(m_source);
        close_fd(m_target);
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    CopyOutcome run() {
        if (begin() && !try_reflink() && move_data())
            finish();
        return std::move(m_out);
    }

  private:
    // --- Ends, all of which return false ---

    static void close_fd(int& fd) {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    bool fail(const std::string& text) {
        m_out.error = text;
        discard_target();
        return false;
    }
    bool fail_source(int code) { return fail(err_from(*m_job.source.path, code)); }
    bool fail_target(int code) { return fail(err_from(*m_job.target.path, code)); }

    // Asked to stop with work begun: no text, since the caller knows why.
    bool stop() {
        m_out.stopped = true;
        discard_target();
        return false;
    }

    void discard_target() {
        close_fd(m_source);
        if (m_target < 0)
            return;
        close_fd(m_target);
        note_left_behind(remove_own_target());
    }

    // Of a failed copy the caller knows anyhow.
    void note_left_behind(int code) { m_out.left_behind = m_out.stopped ? code : 0; }

    // Whether to go on, after `bytes` more.
    bool going(int64_t bytes) {
        return !m_job.on_progress || !*m_job.on_progress || (*m_job.on_progress)(bytes);
    }

    // --- Opening ---

    bool begin() {
        // Before anything is opened: opening a pipe waits, opening a device may act.
        const int follow = m_job.follow_source ? 0 : AT_SYMLINK_NOFOLLOW;
        if (!m_job.known_regular) {
            if (fstatat(m_job.source.dir_fd, m_job.source.name, &m_source_stat, follow) != 0)
                return fail_source(errno);
            if (!S_ISREG(m_source_stat.st_mode))
                return fail(kNotRegular);
        }
        if (!going(0))
            return fail("cancelled");
        return open_source() && clear_target() && create_target();
    }

    [[nodiscard]] bool source_is_regular() const {
        struct stat st = {};
        return fstatat(m_job.source.dir_fd, m_job.source.name, &st,
                       m_job.follow_source ? 0 : AT_SYMLINK_NOFOLLOW) == 0 &&
               S_ISREG(st.st_mode);
    }

    bool open_source() {
        // O_NONBLOCK: a pipe may have taken the file's place, and opening one waits for a writer.
        // It means nothing to a regular file.
        int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (m_job.follow_source ? 0 : O_NOFOLLOW);
        while ((m_source = openat(m_job.source.dir_fd, m_job.source.name, flags)) < 0) {
            const int code = errno;
            // A file server holds a lease on it. The kernel has asked for it, and waits until it
            // is given up if we let it.
            if (code == EAGAIN && (flags & O_NONBLOCK) && source_is_regular()) {
                flags &= ~O_NONBLOCK;
                continue;
            }
            if (code != EINTR)
                return fail_source(code);
            if (!going(0))
                return stop();
        }
        if (fstat(m_source, &m_source_stat) != 0)
            return fail_source(errno);
        if (!S_ISREG(m_source_stat.st_mode))
            return fail(kNotRegular);
        m_size = m_source_stat.st_size;
        m_out.source_id = {m_source_stat.st_dev, m_source_stat.st_ino};
        m_out.source_size = m_size;
        m_out.source_mtime = m_source_stat.st_mtim;
        return true;
    }

    // Takes away the entry that is to be replaced; what it links to stays as it is.
    bool clear_target() {
        if (!m_job.replace)
            return true;
        struct stat old = {};
        if (fstatat(m_job.target.dir_fd, m_job.target.name, &old, AT_SYMLINK_NOFOLLOW) != 0) {
            const int code = errno;
            m_job.replace = false;
            return code == ENOENT || fail_target(code);
        }
        if (same_file(old, m_source_stat))
            return fail(kSameFile);
        if (!S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode) && !S_ISDIR(old.st_mode))
            return fail(kInTheWay);
        if (unlinkat(m_job.target.dir_fd, m_job.target.name, 0) != 0)
            return fail_target(errno);
        m_job.replace = false;
        return true;
    }

    bool create_target() {
        if (m_job.before_create)
            (*m_job.before_create)();
        const bool created = open_new_target();
        if (m_job.after_create)
            (*m_job.after_create)(m_out.target_id);
        return created;
    }

    bool open_new_target() {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        int fd = -1;
        while ((fd = openat(m_job.target.dir_fd, m_job.target.name, kFlags,
                            m_source_stat.st_mode & 0777)) < 0) {
            const int code = errno;
            if (code == EINTR && !going(0))
                return stop();
            if (code == EINTR)
                continue;
            m_out.target_exists = code == EEXIST;
            return fail_target(code);
        }
        if (fstat(fd, &m_target_stat) != 0) {
            // Without its identity the new file cannot be told from another one: it is ours as
            // long as nobody had the time to replace it, which is now.
            const int code = errno;
            close(fd);
            unlinkat(m_job.target.dir_fd, m_job.target.name, 0);
            return fail_target(code);
        }
        m_target = fd;
        m_out.target_id = {m_target_stat.st_dev, m_target_stat.st_ino};
        return true;
    }

    // --- Reflink ---

    // True when the whole file is done, one way or the other.
    bool try_reflink() {
        const DevicePair pair{m_source_stat.st_dev, m_target_stat.st_dev};
        if (reflink_is_refused(pair))
            return false;
        if (ioctl(m_target, FICLONE, m_source) != 0) {
            if (is_lasting_refusal(errno))
                remember_refusal(pair);
            return false;
        }
        struct stat done = {};
        const bool looked = fstat(m_target, &done) == 0;
        // A clone takes what the source holds at that moment, which the descriptor tells.
        note_growth(looked && done.st_size > m_size);
        if (!set_mode_and_times() || !close_target())
            return true;
        m_out.cloned = true;
        if (looked)
            going(done.st_size);
        return true;
    }

    // --- Data ---

    // A range of the source that holds data: [start, end), bytes.
    struct Region {
        int64_t start = 0;
        int64_t end = 0;
    };

    bool move_data() {
        // Smaller files come with the first read-ahead anyhow.
        if (m_size > kReadAhead)
            posix_fadvise(m_source, 0, 0, POSIX_FADV_SEQUENTIAL);
        const bool sparse = m_source_stat.st_blocks * 512 < m_size;
        if (m_size > kPreallocateAbove && !sparse) {
            // The raw call: the C library would write zeros where a file system has none. A full
            // disk shows when the data comes.
            m_must_truncate = fallocate(m_target, 0, 0, m_size) == 0;
        }
        if (!sparse)
            return copy_region({0, m_size});
        return copy_sparse();
    }

    // Goes from one range of data to the next; holes are skipped and count as done.
    bool copy_sparse() {
        int64_t pos = 0;
        while (pos < m_size && !m_out.early_end) {
            Region region{pos, m_size};
            const off_t data = lseek(m_source, pos, SEEK_DATA);
            if (data >= 0) {
                // An answer that leads nowhere, or back, would keep us here for ever.
                region.start = std::max<int64_t>(data, pos);
                const off_t hole = lseek(m_source, region.start, SEEK_HOLE);
                if (hole > region.start)
                    region.end = hole;
            } else if (errno == ENXIO) {
                break;  // nothing but a hole from here on
            }
            region.start = std::min<int64_t>(region.start, m_size);
            region.end = std::min<int64_t>(region.end, m_size);
            if (lseek(m_source, region.start, SEEK_SET) < 0)
                return fail_source(errno);
            if (lseek(m_target, region.start, SEEK_SET) < 0)
                return fail_target(errno);
            if (region.start > pos && !going(region.start - pos))
                return stop();
            if (!copy_region(region))
                return false;
            pos = region.end;
        }
        if (m_out.early_end)
            return true;
        // The last data may end anywhere before the recorded end, also where pos stands at it: a
        // source that grows meanwhile has its next data behind it.
        m_must_truncate = true;
        return pos == m_size || going(m_size - pos) || stop();
    }

    bool copy_region(const Region& region) {
        int64_t pos = region.start;
        while (pos < region.end) {
            const int64_t want = std::min(region.end - pos, kChunk);
            const int64_t moved = move_chunk(static_cast<size_t>(want));
            if (moved < 0)
                return false;
            if (moved == 0) {
                m_out.early_end = true;
                m_must_truncate = true;
                return true;
            }
            pos += moved;
            if (!going(moved))
                return stop();
        }
        return true;
    }

    // Bytes moved, 0 at the end of the source, -1 when the copy has ended (failed or stopped).
    int64_t move_chunk(size_t want) {
        while (m_use_cfr && cfr_supported.load(std::memory_order_relaxed)) {
            const ssize_t moved =
                syscall(SYS_copy_file_range, m_source, nullptr, m_target, nullptr, want, 0U);
            if (moved > 0)
                return moved;
            if (moved == 0) {
                // Some file systems answer 0 for files that they make up as they are read: only
                // a read knows where such a file ends.
                m_use_cfr = false;
                break;
            }
            const int code = errno;
            if (code == EINTR) {
                if (!going(0)) {
                    stop();
                    return -1;
                }
            } else if (code == EBADF || code == EXDEV || code == EINVAL || code == ENOSYS ||
                       code == EOPNOTSUPP) {
                cfr_supported.store(false, std::memory_order_relaxed);
            } else {
                fail_source(code);
                return -1;
            }
        }
        return read_and_write(want);
    }

    int64_t read_and_write(size_t want) {
        char* buffer = thread_buffer().data();
        ssize_t got = 0;
        while ((got = read(m_source, buffer, want)) < 0) {
            const int code = errno;
            if (code != EINTR) {
                fail_source(code);
                return -1;
            }
            if (!going(0)) {
                stop();
                return -1;
            }
        }
        return write_all(buffer, static_cast<size_t>(got)) ? got : -1;
    }

    bool write_all(const char* bytes, size_t count) {
        while (count > 0) {
            const ssize_t put = write(m_target, bytes, count);
            if (put > 0) {
                bytes += put;
                count -= static_cast<size_t>(put);
                continue;
            }
            const int code = put == 0 ? EIO : errno;
            if (code != EINTR)
                return fail_target(code);
            if (!going(0))
                return stop();
        }
        return true;
    }

    // --- Finishing ---

    void note_growth(bool grew) { m_out.grew = m_out.grew || grew; }

    void finish() {
        if (m_job.check_past_end && !m_out.early_end) {
            char byte = 0;
            note_growth(pread(m_source, &byte, 1, m_size) > 0);
        }
        close_fd(m_source);
        if (m_must_truncate && !truncate_target())
            return;
        if (set_mode_and_times())
            close_target();
    }

    // Makes a hole at the end real, mends a source that shrank, cuts off a preallocation.
    bool truncate_target() {
        bool done = false;
        const bool may_go_on = last_call([&] {
            const int result = ftruncate(m_target, m_size);
            done = result == 0;
            return result;
        });
        return may_go_on && (done || lengthen_target());
    }

    // Where no length can be set, a last byte sets it. It is zero in a hole, and in the padding of
    // a source that shrank.
    bool lengthen_target() {
        struct stat st = {};
        if (fstat(m_target, &st) == 0 && st.st_size >= m_size)
            return true;
        while (pwrite(m_target, "", 1, m_size - 1) != 1) {
            const int code = errno;
            if (code != EINTR)
                return fail_target(code);
            if (!going(0))
                return stop();
        }
        return true;
    }

    bool set_mode_and_times() {
        const mode_t mode = mode_for_copy(m_source_stat, m_target_stat);
        if (mode != (m_target_stat.st_mode & 07777) &&
            !last_call([&] { return fchmod(m_target, mode); }))
            return false;
        const struct timespec times[2] = {m_source_stat.st_atim, m_source_stat.st_mtim};
        return last_call([&] { return futimens(m_target, times); });
    }

    // Makes one of the calls without which a copy may still be good. It ends here if not. A signal
    // spoils one call, yet nobody waits here for ever.
    template <typename LastCall>
    bool last_call(LastCall call) {
        int code = 0;
        for (int tries = 0; tries < kTries; ++tries) {
            if (call() == 0)
                return true;
            code = errno;
            if (code != EINTR)
                break;
            if (!going(0))
                return stop();
        }
        return !means_lost_data(code) || fail_target(code);
    }

    // Network file systems tell a failed write at close. The descriptor is gone in any case.
    bool close_target() {
        const int fd = m_target;
        m_target = -1;
        if (close(fd) == 0)
            return true;
        const int code = errno;
        // Interrupted: what was still on its way to the other end may not be there.
        const bool called_off = code == EINTR && !going(0);
        if (!called_off && !means_lost_data(code))
            return true;
        m_out.stopped = called_off;
        if (!called_off)
            m_out.error = err_from(*m_job.target.path, code);
        note_left_behind(remove_own_target());
        return false;
    }

    // Removes what this copy created, if the name still means that file. A signal spoils one call:
    // a user who cancels twice gets no half file for it. Yet nobody waits here for ever.
    // The errno that it is still there for, or 0.
    int remove_own_target() {
        int code = EINTR;
        for (int tries = 0; tries < kTries && code == EINTR; ++tries) {
            struct stat st = {};
            if (fstatat(m_job.target.dir_fd, m_job.target.name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
                if (!same_file(st, m_target_stat) ||
                    unlinkat(m_job.target.dir_fd, m_job.target.name, 0) == 0)
                    return 0;
            }
            code = errno;
        }
        return code == ENOENT ? 0 : code;
    }

    CopyJob& m_job;
    CopyOutcome m_out;
    int m_source = -1;
    int m_target = -1;  // -1 also means: nothing of ours stands at the target's name
    struct stat m_source_stat = {};
    struct stat m_target_stat = {};
    int64_t m_size = 0;  // bytes, as recorded when the source was opened
    bool m_use_cfr = true;
    bool m_must_truncate = false;  // the target's end is not where its last write ended
};

}  // namespace

CopyOutcome copy_file_at(CopyJob& job) {
    return Copy(job).run();
}

std::string copy_file(const std::string& source, const std::string& target,
                      const CopyProgress& on_progress, bool* cloned) {
    if (cloned)
        *cloned = false;
    CopyJob job;
    job.source = {AT_FDCWD, source.c_str(), &source};
    job.target = {AT_FDCWD, target.c_str(), &target};
    job.follow_source = true;
    job.replace = true;
    job.on_progress = &on_progress;
    CopyOutcome outcome = copy_file_at(job);
    if (cloned)
        *cloned = outcome.cloned;
    return std::move(outcome.error);
}

namespace {

int open_at_path(const std::string& path, int flags, mode_t mode = 0) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// The reflink itself, between two open files. Empty, or the reason.
std::string clone_open_files(int source, int target, const struct stat& st) {
    if (ioctl(target, FICLONE, source) != 0)
        return std::strerror(errno);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    struct stat made = {};
    if (fstat(target, &made) == 0)
        fchmod(target, mode_for_copy(st, made));
    futimens(target, times);
    return {};
}

}  // namespace

std::string clone_file(const std::string& source, const std::string& target) {
    struct stat st = {};
    if (stat(source.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return "not a regular file";
    const int source_fd = open_at_path(source, O_RDONLY);
    if (source_fd < 0)
        return "open";
    // Looked at again: the name may mean another file by now.
    struct stat old = {};
    std::string error;
    int target_fd = -1;
    if (fstat(source_fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        error = "not a regular file";
    } else if (lstat(target.c_str(), &old) == 0 && same_file(old, st)) {
        error = kSameFile;
    } else {
        unlink(target.c_str());  // never written through: it may be a link
        target_fd =
            open_at_path(target, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, st.st_mode & 0777);
        error = target_fd < 0 ? "open target" : clone_open_files(source_fd, target_fd, st);
    }
    close(source_fd);
    if (target_fd >= 0) {
        close(target_fd);
        if (!error.empty())
            unlink(target.c_str());
    }
    return error;
}

}  // namespace fsops
