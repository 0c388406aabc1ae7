// The workers: take a file, settle its conflict, copy it with retries, and for a move let the
// source go.

#include "copy_engine.h"

#include "copy_engine_internal.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace copy_engine {

namespace {

constexpr const char* kTimedOut = "timed out — the source or target stopped responding";
constexpr const char* kNotResponding = "cancelled — the drive was not responding";
constexpr const char* kChanged = "changed while it was being moved";
constexpr const char* kFolderChanged = "this folder was replaced while the transfer was running";
constexpr std::array<int64_t, kAttempts> kWaitMilliseconds = {0, 120, 500};
// A share of the queue: so many files of one folder, or so many bytes.
constexpr size_t kShareFiles = 64;
constexpr int64_t kShareBytes = 1048576;
// How often a name may be reported as taken without being there, before that is the failure.
constexpr int kMostPhantomNames = 3;
constexpr int kTries = 5;  // of a call that signals interrupt

bool same_time(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

void wait_before_attempt(int number) {
    const int64_t milliseconds = kWaitMilliseconds[static_cast<size_t>(number) - 1];
    struct timespec left = {milliseconds / 1000, (milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

// --- Folders in use
// ---------------------------------------------------------------------------------

namespace {

// FAT and exFAT number a folder when it comes into memory, and so do most file systems in user
// space: a large transfer alone makes the kernel drop and number folders anew.
bool numbers_change(int fd) {
    struct statfs fs = {};
    if (fstatfs(fd, &fs) != 0)
        return false;
    constexpr int64_t kFat = 0x4d44;
    constexpr int64_t kExfat = 0x2011bab0;
    constexpr int64_t kFuse = 0x65735546;
    const auto type = static_cast<int64_t>(fs.f_type);
    return type == kFat || type == kExfat || type == kFuse;
}

int open_without_links(const std::string& path, size_t below, const fsops::CopyProgress& going) {
    size_t at = path.size();
    for (size_t i = 0; i < below && at > 0; ++i)
        at = path.rfind('/', at - 1);
    const std::string top = path.substr(0, at);
    int fd = open_folder(AT_FDCWD, top.empty() ? "/" : top.c_str(), true, going);
    while (fd >= 0 && at < path.size()) {
        const size_t end = std::min(path.find('/', at + 1), path.size());
        const std::string name = path.substr(at + 1, end - at - 1);
        const int child = open_folder(fd, name.c_str(), false, going);
        const int code = errno;
        close(fd);
        errno = code;
        fd = child;
        at = end;
    }
    return fd;
}

}  // namespace

int open_seen_folder(const std::string& path, fsops::FileId id, size_t below,
                     const fsops::CopyProgress& going, bool& replaced) {
    replaced = false;
    int fd = open_folder(AT_FDCWD, path.c_str(), true, going);
    struct stat st = {};
    if (fd < 0)
        return -1;
    if (fstat(fd, &st) != 0) {
        const int code = errno;
        close(fd);
        errno = code;
        return -1;
    }
    if (id_of(st) == id)
        return fd;
    const bool may_be_it = st.st_dev == id.device && numbers_change(fd);
    close(fd);
    fd = may_be_it ? open_without_links(path, below, going) : -1;
    if (fd >= 0 && fstat(fd, &st) == 0 && st.st_dev == id.device)
        return fd;
    if (fd >= 0)
        close(fd);
    replaced = true;
    errno = ENOENT;  // the folder that we mean is not there
    return -1;
}

std::string Engine::OpenFolder::open_checked(const std::string& path, fsops::FileId id,
                                             size_t below, const fsops::CopyProgress& going,
                                             int& fd) {
    bool replaced = false;
    fd = open_seen_folder(path, id, below, going, replaced);
    if (fd >= 0)
        return {};
    std::string error = fsops::err_from(path);
    return replaced ? path + ": " + kFolderChanged : error;
}

std::string Engine::OpenFolder::enter(const Folder& folder, const fsops::CopyProgress& going) {
    if (m_folder == &folder)
        return {};
    close_both();
    std::string error =
        open_checked(folder.source, folder.source_id, folder.source_below(), going, m_source_fd);
    if (error.empty())
        error = open_checked(folder.target, folder.target_id, folder.target_below(), going,
                             m_target_fd);
    if (error.empty())
        m_folder = &folder;
    else
        close_both();
    return error;
}

void Engine::OpenFolder::close_both() {
    if (m_source_fd >= 0)
        close(m_source_fd);
    if (m_target_fd >= 0)
        close(m_target_fd);
    m_source_fd = m_target_fd = -1;
    m_folder = nullptr;
}

// A mount that vanishes uncovers the folder below it, which must not be filled in its place.
bool Engine::target_folder_stands(std::string& message) const {
    if (m_target_error != 0) {
        message = fsops::err_from(m_target_dir, m_target_error);
        return false;
    }
    struct stat st = {};
    if (stat(m_target_dir.c_str(), &st) != 0) {
        message = fsops::err_from(m_target_dir);
        return false;
    }
    if (id_of(st) == m_target_id)
        return true;
    static_cast<void>(fsops::err_from(m_target_dir, ENOENT));
    message = m_target_dir + ": " + kFolderChanged;
    return false;
}

// The same, with as many looks as a copy has attempts: a server that is away for a moment costs no
// file. slot: the worker, or -1 for the scanner. attempts is a result.
bool Engine::await_target_folder(int slot, std::string& message, int& attempts) {
    for (attempts = 1;; ++attempts) {
        message.clear();
        if (target_folder_stands(message))
            return true;
        if (slot >= 0 && m_slots[static_cast<size_t>(slot)].timed_out.exchange(false) &&
            !m_cancel) {
            message = kTimedOut;
            return false;
        }
        if (m_target_error != 0) {
            attempts = m_target_attempts;  // made when the run began
            return false;
        }
        if (attempts == kAttempts || m_cancel || !fsops::is_transient(fsops::last_error_code()))
            return false;
        wait_before_attempt(attempts + 1);
    }
}

void Engine::remember_created(int slot, fsops::FileId id) {
    if (id == fsops::FileId())
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_created.insert(id);
    m_replacing[static_cast<size_t>(slot)] = {};  // the old file has gone
}

// --- The loop
// ---------------------------------------------------------------------------------------

void Engine::worker_thread(int slot) {
    Log::name_this_thread("w" + std::to_string(slot));
    Slot& own = m_slots[static_cast<size_t>(slot)];
    own.tid = pthread_self();
    note_slot_progress(slot);
    {
        Worker worker;
        worker.slot = slot;
        worker.on_progress = [this, &own, slot](int64_t bytes) {
            if (bytes > 0)
                add_bytes(m_bytes_done, bytes);
            note_slot_progress(slot);
            return !m_cancel && !own.timed_out.load();
        };
        worker.before_create = [&own] { own.creating = true; };
        worker.after_create = [this, &own, slot](fsops::FileId id) {
            remember_created(slot, id);
            own.creating = false;
        };
        while (take_task(worker)) {
            process(worker);
            if (m_cancel)
                break;
        }
    }
    set_current(slot, {});
    own.tid = 0;
    if (m_active_workers.fetch_sub(1) == 1)
        end_run();
}

bool Engine::has_task(int slot) const {
    if (m_queue_pos < m_queue.size() ||
        m_shares[static_cast<size_t>(slot)].next < m_shares[static_cast<size_t>(slot)].end)
        return true;
    return m_queue_complete &&
           std::any_of(m_shares.begin(), m_shares.end(),
                       [](const Share& share) { return share.next < share.end; });
}

// The index of a worker's next file. Small files of one folder go to one worker, a share at a time:
// two that create in one folder mostly wait for each other. Once the queue is used up, a worker
// takes over from the share that has most left, so that nothing waits behind a file that stalls.
size_t Engine::next_task(int slot) {
    Share& own = m_shares[static_cast<size_t>(slot)];
    if (own.next < own.end)
        return own.next++;
    if (m_queue_pos < m_queue.size()) {
        own.next = own.end = m_queue_pos;
        const Folder* folder = m_queue[own.end].folder;
        int64_t bytes = 0;
        while (own.end < m_queue.size() && own.end - own.next < kShareFiles &&
               m_queue[own.end].folder == folder && bytes <= kShareBytes) {
            bytes = fsops::add_sizes(bytes, m_queue[own.end].size);
            ++own.end;
        }
        m_queue_pos = own.end;
        return own.next++;
    }
    Share& longest =
        *std::max_element(m_shares.begin(), m_shares.end(), [](const Share& a, const Share& b) {
            return a.end - a.next < b.end - b.next;
        });
    return --longest.end;
}

// Waits for the next file and publishes it as the current one. False when there is no more.
bool Engine::take_task(Worker& worker) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_current[static_cast<size_t>(worker.slot)].clear();
    m_in_work[static_cast<size_t>(worker.slot)].clear();
    m_replacing[static_cast<size_t>(worker.slot)] = {};
    m_queue_cv.wait(
        lock, [this, &worker] { return m_cancel || has_task(worker.slot) || m_queue_complete; });
    if (m_cancel || !has_task(worker.slot))
        return false;
    worker.task = std::move(m_queue[next_task(worker.slot)]);
    worker.keep_both = false;
    worker.claimed = claim_target_locked(worker.slot, worker.task.target, worker.task.reserved);
    m_current[static_cast<size_t>(worker.slot)] = worker.task.source;
    // The clock of the file before is not this one's. The watchdog looks under the lock.
    note_slot_progress(worker.slot);
    m_slots[static_cast<size_t>(worker.slot)].timed_out = false;
    return true;
}

void Engine::skip(Worker& worker) {
    ++m_files_done;
    add_bytes(m_bytes_done, worker.task.size);
}

void Engine::fail_and_skip(Worker& worker, const std::string& path, const std::string& message,
                           const std::string& target) {
    note_failure(path, message, target, 1, 0);
    Log::errorf("FAILED after %d attempt(s): %s — %s (errno %d)", 1, path.c_str(), message.c_str(),
                0);
    skip(worker);
}

void Engine::process(Worker& worker) {
    const FileTask& task = worker.task;
    std::string message;
    int attempts = 1;
    if (!await_target_folder(worker.slot, message, attempts)) {
        report(worker, task.target, message, attempts, fsops::last_error_code());
        skip(worker);
        return;
    }
    for (int phantoms = 0;;) {
        std::string target = task.target;
        const Settled settled = settle_conflict(worker, target, message);
        if (settled == Settled::Skip || (settled == Settled::Failed && message.empty())) {
            skip(worker);
            return;
        }
        if (settled == Settled::Failed) {
            fail_and_skip(worker, task.source, message, target);
            return;
        }
        bool replace = settled == Settled::Replace;
        const Copied copied = copy_one_with_retry(worker, target, replace);
        if (copied == Copied::Yes && m_op == Operation::Move && !m_cancel)
            remove_moved_source(worker, target);
        if (copied != Copied::NameTaken)
            break;
        // Somebody was faster: the name is a conflict now. A file system that says so of a name
        // that it does not show must not keep us here for ever.
        if (!fsops::exists(target) && ++phantoms == kMostPhantomNames) {
            report(worker, target, fsops::err_from(target, EEXIST), 1, EEXIST);
            break;
        }
    }
    ++m_files_done;
}

// --- One file
// -----------------------------------------------------------------------------------------

// What one attempt came to.
struct Engine::Attempt {
    std::string error;        // empty: done, or stopped
    bool name_taken = false;  // nothing was touched
    bool hard_linked = false;
    std::string linked_to;  // the first name, when hard_linked
    bool cloned = false;
    int left_behind = 0;  // stopped, but this errno kept its part of a file at the target
};

Engine::Copied Engine::copy_one_with_retry(Worker& worker, const std::string& target,
                                           bool& replace) {
    std::atomic<bool>& timed_out = m_slots[static_cast<size_t>(worker.slot)].timed_out;
    const char* source = worker.task.source.c_str();
    std::string last_error;
    worker.target_id = {};
    for (int number = 1; number <= kAttempts; ++number) {
        if (m_cancel)
            return Copied::No;
        if (number > 1) {
            wait_before_attempt(number);
            Log::warnf("retry %d/%d: %s (%s)", number, kAttempts, source, last_error.c_str());
        }
        Attempt result;
        attempt(worker, target, replace, result);
        // Stale is what we hold; the path may lead to the folder again.
        if (!result.error.empty() && fsops::last_error_code() == ESTALE)
            worker.folder.leave();
        const bool woken = timed_out.exchange(false);
        if (result.name_taken)
            return Copied::NameTaken;
        if (woken && !m_cancel) {
            result.error = kTimedOut;
            // It may have become complete just then. What is listed as failed is not there.
            discard_copy(worker, target);
        }
        if (m_cancel && result.left_behind != 0) {
            // Called off, and the part that is there could not be taken away again: that is told.
            const int code = result.left_behind;
            return give_up(worker, target,
                           code == EINTR ? kNotResponding : fsops::err_from(target, code), code);
        }
        if (result.error.empty())
            return finish_attempt(worker, target, number, result);
        last_error = result.error;
        const int code = fsops::last_error_code();
        if (code == ENOSPC) {
            Log::errorf("target is full — stopping the transfer");
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_disk_full = true;
                m_cancel = true;
            }
            m_queue_cv.notify_all();
            m_conflict_cv.notify_all();
            return give_up(worker, target, last_error, code);
        }
        if (!fsops::is_transient(code))
            return m_cancel ? give_up(worker, target, last_error, code)
                            : report(worker, target, last_error, 1, code);
        if (number == kAttempts && (!m_cancel || m_disk_full))
            return report(worker, target, last_error, kAttempts, code);
    }
    return give_up(worker, target, last_error, fsops::last_error_code());
}

Engine::Copied Engine::finish_attempt(Worker& worker, const std::string& target, int number,
                                      const Attempt& result) {
    const FileTask& task = worker.task;
    if (result.hard_linked) {
        add_bytes(m_bytes_done, task.size);
        Log::debugf("hardlink %s → %s", target.c_str(), result.linked_to.c_str());
        return Copied::Yes;
    }
    if (result.cloned) {
        ++m_cloned;
        Log::debugf("reflink %s (%lld bytes, no data moved)", task.source.c_str(),
                    static_cast<long long>(task.size));
    }
    // A torn copy may be taken away again, and is not what the other names stand for.
    // Nor is one of a file that has taken this name since the listing.
    const fsops::FileId group{task.device, task.inode};
    if (task.multi_linked && !worker.torn && worker.target_id != fsops::FileId() &&
        worker.source_id == group) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_written_inodes[group] = {target, worker.target_id, worker.source_size,
                                   worker.source_mtime};
    }
    if (number > 1) {
        ++m_retried;
        Log::infof("succeeded on attempt %d: %s", number, task.source.c_str());
    }
    Log::infof("copied %s -> %s (%lld B)", task.source.c_str(), target.c_str(),
               static_cast<long long>(task.size));
    ++m_files_copied;
    return Copied::Yes;
}

// The run is being cancelled, or the target is full.
Engine::Copied Engine::give_up(Worker& worker, const std::string& target,
                               const std::string& last_error, int code) {
    if (m_disk_full)
        return report(worker, target, last_error, fsops::is_transient(code) ? kAttempts : 1, code);
    std::string message = last_error;
    if (m_slots[static_cast<size_t>(worker.slot)].timed_out.exchange(false)) {
        if (message.empty())
            message = kNotResponding;
    } else if (message.empty()) {
        return Copied::No;
    }
    note_failure(worker.task.source, message, target, 1, code);
    Log::warnf("cancelled while busy with %s", worker.task.source.c_str());
    return Copied::No;
}

Engine::Copied Engine::report(Worker& worker, const std::string& target, const std::string& message,
                              int attempts, int code) {
    note_failure(worker.task.source, message, target, attempts, code);
    Log::errorf("FAILED after %d attempt(s): %s — %s (errno %d)", attempts,
                worker.task.source.c_str(), message.c_str(), code);
    return Copied::No;
}

// --- One attempt
// --------------------------------------------------------------------------------------

void Engine::attempt(Worker& worker, const std::string& target, bool& replace, Attempt& result) {
    result.error = worker.folder.enter(*worker.task.folder, worker.on_progress);
    if (!result.error.empty())
        return;
    discard_copy(worker, target);  // where that was not possible when the last attempt ended
    worker.target_id = {};
    worker.torn = false;
    if (worker.task.is_symlink)
        attempt_symlink(worker, target, replace, result);
    else if (!worker.task.multi_linked || !attempt_hard_link(worker, target, replace, result))
        attempt_copy(worker, target, replace, result);
}

// Takes away what the last attempt left at the target, if the name still means that file. A signal
// spoils one call.
void Engine::discard_copy(const Worker& worker, const std::string& target) {
    const int fd = worker.folder.target_fd();
    for (int tries = 0; tries < kTries && worker.target_id != fsops::FileId(); ++tries) {
        struct stat st = {};
        if (fstatat(fd, name_in(target), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            (id_of(st) != worker.target_id || unlinkat(fd, name_in(target), 0) == 0))
            return;
        if (errno != EINTR)
            return;
    }
}

void Engine::attempt_copy(Worker& worker, const std::string& target, bool& replace,
                          Attempt& result) {
    fsops::CopyJob job;
    job.source = {worker.folder.source_fd(), name_in(worker.task.source), &worker.task.source};
    job.target = {worker.folder.target_fd(), name_in(target), &target};
    job.replace = replace;
    // The scanner has looked, unless it could not. One that was named directly has no number here
    // and is looked at again.
    job.known_regular = worker.task.inode != 0;
    job.check_past_end = m_op == Operation::Move;
    job.on_progress = &worker.on_progress;
    job.before_create = &worker.before_create;
    job.after_create = &worker.after_create;
    fsops::CopyOutcome outcome = fsops::copy_file_at(job);
    replace = job.replace;
    result.name_taken = outcome.target_exists;
    result.cloned = outcome.cloned;
    result.left_behind = outcome.left_behind;
    result.error = std::move(outcome.error);
    worker.source_id = outcome.source_id;
    worker.source_size = outcome.source_size;
    worker.source_mtime = outcome.source_mtime;
    worker.torn = outcome.stopped || outcome.early_end || outcome.grew;
    worker.target_id =
        outcome.stopped || !result.error.empty() ? fsops::FileId() : outcome.target_id;
}

void Engine::attempt_symlink(Worker& worker, const std::string& target, bool& replace,
                             Attempt& result) {
    const int source_fd = worker.folder.source_fd();
    const int target_fd = worker.folder.target_fd();
    const std::string& source = worker.task.source;
    // Before its text is read: a link that takes its place meanwhile is another one, which a move
    // must not remove.
    struct stat from = {};
    if (fstatat(source_fd, name_in(source), &from, AT_SYMLINK_NOFOLLOW) != 0) {
        result.error = fsops::err_from(source);
        return;
    }
    std::string text;
    result.error = fsops::read_link_at(source_fd, name_in(source), source, text);
    if (!result.error.empty())
        return;
    if (replace) {
        struct stat old = {};
        if (fstatat(target_fd, name_in(target), &old, AT_SYMLINK_NOFOLLOW) == 0 &&
            id_of(old) == id_of(from)) {
            result.error = fsops::kSameFile;
            return;
        }
        // What cannot be removed shows in the next call, as a failure and not as a new conflict.
        if (unlinkat(target_fd, name_in(target), 0) == 0 || errno == ENOENT)
            replace = false;
    }
    worker.before_create();
    struct stat made = {};
    if (symlinkat(text.c_str(), target_fd, name_in(target)) != 0) {
        const int code = errno;
        result.name_taken = code == EEXIST && !replace;
        result.error = fsops::err_from(target, code);
    } else if (fstatat(target_fd, name_in(target), &made, AT_SYMLINK_NOFOLLOW) == 0) {
        const struct timespec times[2] = {from.st_atim, from.st_mtim};
        utimensat(target_fd, name_in(target), times, AT_SYMLINK_NOFOLLOW);
        worker.target_id = id_of(made);
    }
    worker.after_create(worker.target_id);
    worker.source_id = id_of(from);
    worker.source_size = from.st_size;
    worker.source_mtime = from.st_mtim;
}

// A file that already came over under another name is linked. False: copy it in full.
bool Engine::attempt_hard_link(Worker& worker, const std::string& target, bool& replace,
                               Attempt& result) {
    const FileTask& task = worker.task;
    const fsops::FileId group{task.device, task.inode};
    WrittenFile written;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto known = m_written_inodes.find(group);
        if (known == m_written_inodes.end())
            return false;
        written = known->second;
    }
    struct stat st = {};
    // Another file may have taken this name since the listing.
    if (fstatat(worker.folder.source_fd(), name_in(task.source), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
        id_of(st) != group)
        return false;
    const int fd = worker.folder.target_fd();
    const char* name = name_in(target);
    if (replace) {
        if (fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && id_of(st) == group)
            return false;  // the copy says that they are the same file
        if (unlinkat(fd, name, 0) == 0)
            replace = false;
    }
    worker.before_create();
    bool linked = linkat(AT_FDCWD, written.target.c_str(), fd, name, 0) == 0;
    const int code = linked ? 0 : errno;
    if (linked &&
        (fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0 || id_of(st) != written.target_id)) {
        // Somebody has put another file under the first name: this must not become its second.
        unlinkat(fd, name, 0);
        linked = false;
    }
    worker.after_create(linked ? written.target_id : fsops::FileId());
    if (!linked) {
        result.name_taken = code == EEXIST && !replace;
        if (result.name_taken)
            result.error = fsops::err_from(target, code);
        return result.name_taken;
    }
    worker.target_id = written.target_id;
    worker.source_id = group;
    worker.source_size = written.source_size;
    worker.source_mtime = written.source_mtime;
    result.hard_linked = true;
    result.linked_to = written.target;
    return true;
}

// --- Moving
// -------------------------------------------------------------------------------------------

// The source goes only if it still is what was copied. Otherwise the copy goes, and the source is
// listed.
void Engine::remove_moved_source(Worker& worker, const std::string& target) {
    const FileTask& task = worker.task;
    const int fd = worker.folder.source_fd();
    const auto failed = [&](const std::string& message, int code, bool copied = true) {
        note_failure(task.source, message, target, 1, code, copied);
        Log::errorf("move: copied but could not remove source %s: %s", task.source.c_str(),
                    message.c_str());
    };
    struct stat now = {};
    if (fstatat(fd, name_in(task.source), &now, AT_SYMLINK_NOFOLLOW) != 0) {
        const std::string message = fsops::err_from(task.source);
        failed(message, fsops::last_error_code());
        return;
    }
    if (worker.torn || id_of(now) != worker.source_id || now.st_size != worker.source_size ||
        !same_time(now.st_mtim, worker.source_mtime)) {
        discard_copy(worker, target);
        failed(kChanged, 0, false);
        return;
    }
    if (unlinkat(fd, name_in(task.source), 0) != 0) {
        const std::string message = fsops::err_from(task.source);
        failed(message, fsops::last_error_code());
    }
}

}  // namespace copy_engine
