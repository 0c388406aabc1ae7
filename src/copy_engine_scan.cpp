// The scanner: measures the sources, walks them, makes the target folders and feeds the queue.
// A folder is made before its files are queued, so workers never make one. Everything is opened
// relative to the folder above it, and links are never followed: a folder that is swapped for
// something else in between is a failure, never another place's files.

#include "copy_engine.h"

#include "copy_engine_internal.h"
#include "logger.h"
#include "strutil.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace copy_engine {

namespace {

constexpr const char* kNotRegular = "not a regular file (pipe, socket or device)";
constexpr uint32_t kModeOfUnknown = 0755;

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// Closes a descriptor at the end of a block.
class Descriptor {
  public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return m_fd; }

  private:
    int m_fd;
};

// Whether a folder is `id` or lies somewhere below it, by identity: names prove nothing where links
// and bind mounts lead to one folder in several ways.
bool lies_in(const std::string& path, fsops::FileId id, const fsops::CopyProgress& going) {
    int fd = open_folder(AT_FDCWD, path.c_str(), true, going);
    fsops::FileId last;
    while (fd >= 0) {
        const Descriptor here(fd);
        struct stat st = {};
        if (fstat(fd, &st) != 0)
            return false;
        if (id_of(st) == id)
            return true;
        if (id_of(st) == last)
            return false;  // the root is its own parent
        last = id_of(st);
        fd = open_folder(fd, "..", false, going);
    }
    return false;
}

}  // namespace

int open_folder(int dir_fd, const char* name, bool follow_link, const fsops::CopyProgress& going) {
    const int flags = O_PATH | O_DIRECTORY | O_CLOEXEC | (follow_link ? 0 : O_NOFOLLOW);
    int fd = -1;
    do {
        fd = openat(dir_fd, name, flags);
    } while (fd < 0 && errno == EINTR && going(0));
    return fd;
}

// One folder on the scanner's stack.
struct Engine::Level {
    std::string source;
    std::string target;
    const Folder* parent = nullptr;  // null: named by the caller
};

// What the scanner keeps between sources.
struct Engine::Scan {
    fsops::CopyProgress going;  // false: the run is cancelled
    OpenFolder folder;
    const Folder* last_parent = nullptr;  // of the file that was named last
    std::vector<Level> stack;             // children are done last-pushed-first
    std::vector<const Folder*> visited;   // of the source that is walked
};

// --- The pass over all sources
// --------------------------------------------------------------------

void Engine::scan_thread(const std::vector<std::string>& sources) {
    Log::name_this_thread("scan");
    m_scanner_progress = monotonic_seconds();
    m_scanner_tid = pthread_self();
    const fsops::CopyProgress going = [this](int64_t) { return !m_cancel; };
    open_target(going);
    const std::vector<fsops::TreeSize> measured = measure(sources);
    check_space();
    {
        Scan scan;
        scan.going = going;
        for (size_t i = 0; i < sources.size() && !m_cancel; ++i) {
            const fsops::TreeSize size = i < measured.size() ? measured[i] : fsops::TreeSize();
            if (!scan_source(scan, without_trailing_slashes(sources[i]), size))
                break;
        }
    }
    m_scanner_tid = 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue_complete = true;
    m_queue_cv.notify_all();
}

// The target is held by its descriptor for the whole run. What cannot be opened now makes every
// source fail with the reason, after as many attempts as a copy has.
void Engine::open_target(const fsops::CopyProgress& going) {
    for (m_target_attempts = 1;; ++m_target_attempts) {
        m_target_fd = open_folder(AT_FDCWD, m_target_dir.c_str(), true, going);
        struct stat st = {};
        const bool opened = m_target_fd >= 0 && fstat(m_target_fd, &st) == 0;
        m_target_error = opened ? 0 : errno;
        m_target_id = id_of(st);
        if (opened)
            return;
        if (m_target_fd >= 0)
            close(m_target_fd);
        m_target_fd = -1;
        if (m_target_attempts == kAttempts || m_cancel || !fsops::is_transient(m_target_error))
            return;
        wait_before_attempt(m_target_attempts + 1);
    }
}

std::vector<fsops::TreeSize> Engine::measure(const std::vector<std::string>& sources) {
    std::vector<fsops::TreeSize> measured;
    int64_t files = 0;
    int64_t bytes = 0;
    for (const std::string& source : sources) {
        if (m_cancel)
            break;
        measured.push_back(fsops::measure_tree(without_trailing_slashes(source),
                                               [this] { return !m_cancel; }, {}));
        files += measured.back().files;
        bytes = fsops::add_sizes(bytes, measured.back().bytes);
    }
    m_files_total = files;
    m_bytes_total = bytes;
    m_scanning = false;
    return measured;
}

// A warning for the display, nothing more: links and reflinks may need less than was measured.
void Engine::check_space() {
    const int64_t free = fsops::free_space(m_target_dir);
    const int64_t needed = m_bytes_total;
    m_target_free = free;
    m_space_short = free >= 0 && free < needed ? needed - free : 0;
    if (m_space_short > 0)
        Log::warnf("target may be too small: %lld bytes needed, %lld free (%s)",
                   static_cast<long long>(needed), static_cast<long long>(free),
                   m_target_dir.c_str());
}

bool Engine::scan_source(Scan& scan, const std::string& source, const fsops::TreeSize& measured) {
    const std::string name = su::basename_of(source);
    if (name.empty() || name == "/")
        return true;
    std::string target = su::join_path(m_target_dir, name);
    bool reserved = false;
    int attempts = 1;
    if (std::string message; !await_target_folder(-1, message, attempts)) {
        note_failure(source, message, target, attempts, fsops::last_error_code());
        return true;
    }
    if (source == target && m_default_action == ConflictAction::RenameNew) {
        const std::string free = reserve_unique_name(m_target_dir, name);
        reserved = !free.empty();
        if (reserved)
            target = su::join_path(m_target_dir, free);
    }
    if (source == target || su::starts_with(target, source + "/")) {
        note_failure(source, kIntoItself, "", 1, 0);
        return true;
    }
    const fsops::Stat st = fsops::lstat_path(source);
    if (!st.exists) {
        note_failure(source, "no longer exists", target, 1, 0);
        return true;
    }
    // A rename would be refused as well, but by way of an attempt that touches the target's folder.
    const bool into_itself = st.is_dir && lies_in(m_target_dir, {st.device, st.inode}, scan.going);
    if (m_op == Operation::Move && !into_itself && claim_target(m_thread_count, target, reserved)) {
        const bool renamed = try_rename(source, target, measured);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_in_work[static_cast<size_t>(m_thread_count)].clear();
        if (renamed)
            return true;
    }
    if (st.is_dir)
        return scan_folder(scan, source, std::move(target));
    scan_file(scan, source, target, reserved, st);
    return true;
}

// Inside one file system a move is one call, however large the tree. The counters take what the
// measuring pass found in it. The target is the scanner's for that time, since not every file
// system has a rename that replaces nothing.
bool Engine::try_rename(const std::string& source, const std::string& target,
                        const fsops::TreeSize& measured) {
    if (fsops::exists(target) || fsops::rename_would_cross_device(source, target))
        return false;
    if (!fsops::rename_no_replace(source, target).empty())
        return false;
    const fsops::Stat moved = fsops::lstat_path(target);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (moved.is_dir)
            m_renamed_targets.insert(target);
        else
            m_created.insert({moved.device, moved.inode});
    }
    m_files_done += measured.files;
    add_bytes(m_bytes_done, measured.bytes);
    return true;
}

const Engine::Folder* Engine::add_folder(Folder folder) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (folder.made_here)
        m_created_dirs.insert(folder.target_id);
    m_folders.push_back(std::move(folder));
    return &m_folders.back();
}

void Engine::enqueue(FileTask task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.push_back(std::move(task));
    m_queue_cv.notify_one();
}

// --- Files that were named directly
// -----------------------------------------------------------------

// The folder that a named file lies in, with the target folder as the other side.
const Engine::Folder* Engine::parent_folder(Scan& scan, const std::string& source) {
    const std::string parent = su::parent_of(source);
    if (scan.last_parent && scan.last_parent->source == parent)
        return scan.last_parent;
    const Descriptor fd(open_folder(AT_FDCWD, parent.c_str(), true, scan.going));
    struct stat st = {};
    if (fd.get() < 0 || fstat(fd.get(), &st) != 0)
        return nullptr;
    Folder folder;
    folder.source = parent;
    folder.target = m_target_dir;
    folder.source_id = id_of(st);
    folder.target_id = m_target_id;
    scan.last_parent = add_folder(std::move(folder));
    return scan.last_parent;
}

void Engine::scan_file(Scan& scan, const std::string& source, const std::string& target,
                       bool reserved, const fsops::Stat& st) {
    if (!st.is_symlink && !st.is_regular) {
        note_failure(source, kNotRegular, target, 1, 0);
        Log::warnf("skipped special file: %s", source.c_str());
        return;
    }
    const Folder* folder = parent_folder(scan, source);
    if (!folder) {
        note_failure(source, fsops::err_from(su::parent_of(source)), target, 1,
                     fsops::last_error_code());
        return;
    }
    FileTask task;
    task.source = source;
    task.target = target;
    task.size = st.is_symlink ? 0 : st.size;
    task.folder = folder;
    task.is_symlink = st.is_symlink;
    task.reserved = reserved;
    enqueue(std::move(task));
}

// --- Folders
// ----------------------------------------------------------------------------------------

bool Engine::settle_folder_conflict(const std::string& source, std::string& target) {
    FileTask question;
    question.source = source;
    question.target = target;
    switch (ask_conflict(question, true, -1)) {
    case ConflictAction::Cancel:
        m_cancel = true;
        return false;
    case ConflictAction::Skip:
        Log::infof("folder conflict: skipping %s", source.c_str());
        target.clear();
        return true;
    case ConflictAction::RenameNew: {
        const std::string parent = su::parent_of(target);
        const std::string free = reserve_unique_name(parent, su::basename_of(target));
        if (!free.empty()) {
            target = su::join_path(parent, free);
            Log::infof("folder conflict: keeping both, new folder %s", target.c_str());
        }
        return true;
    }
    case ConflictAction::Ask:
    case ConflictAction::Overwrite:
    case ConflictAction::RenameExisting:
    case ConflictAction::OverwriteIfNewer:
        break;
    }
    Log::infof("folder conflict: merging into %s", target.c_str());
    return true;
}

bool Engine::scan_folder(Scan& scan, const std::string& source, std::string target) {
    const fsops::Stat from = fsops::lstat_path(source);
    const fsops::FileId id{from.device, from.inode};
    const auto goes_into_itself = [&] {
        return from.exists &&
               lies_in(fsops::stat_path(target).is_dir ? target : m_target_dir, id, scan.going);
    };
    if (goes_into_itself()) {
        note_failure(source, kIntoItself, "", 1, 0);
        return true;
    }
    if (fsops::stat_path(target).is_dir) {
        if (!settle_folder_conflict(source, target))
            return false;
        if (target.empty())
            return true;
        if (goes_into_itself()) {
            note_failure(source, kIntoItself, "", 1, 0);
            return true;
        }
    }
    scan.visited.clear();
    scan.stack.clear();
    scan.stack.push_back({source, std::move(target), nullptr});
    while (!scan.stack.empty() && !m_cancel) {
        const Level level = std::move(scan.stack.back());
        scan.stack.pop_back();
        enter_folder(scan, level);
    }
    if (m_op == Operation::Move) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_move_dirs.insert(m_move_dirs.end(), scan.visited.rbegin(), scan.visited.rend());
    }
    return true;
}

void Engine::enter_folder(Scan& scan, const Level& level) {
    if (level.source.size() >= PATH_MAX || level.target.size() >= PATH_MAX) {
        note_failure(level.source, fsops::err_from(level.source, ENAMETOOLONG), level.target, 1,
                     ENAMETOOLONG);
        return;
    }
    std::string message;
    int attempts = 1;
    if (level.parent)
        message = scan.folder.enter(*level.parent, scan.going);
    else
        static_cast<void>(await_target_folder(-1, message, attempts));
    if (!message.empty()) {
        note_failure(level.source, message, level.target, attempts, fsops::last_error_code());
        return;
    }
    const Descriptor source(
        level.parent
            ? open_folder(scan.folder.source_fd(), name_in(level.source), false, scan.going)
            : open_folder(AT_FDCWD, level.source.c_str(), false, scan.going));
    const int open_error = errno;
    struct stat st = {};
    const bool readable = source.get() >= 0 && fstat(source.get(), &st) == 0;
    Folder folder;
    folder.source = level.source;
    folder.target = level.target;
    folder.source_id = id_of(st);
    folder.level = level.parent ? level.parent->level + 1 : 1;
    if (readable) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_created_dirs.contains(folder.source_id)) {
            lock.unlock();
            note_failure(level.source, kIntoItself, "", 1, 0);
            return;
        }
    }
    if (!open_target_folder(scan, level, readable ? st.st_mode & 07777 : kModeOfUnknown, folder))
        return;
    const Folder* added = add_folder(std::move(folder));
    if (!readable)
        note_failure(level.source, fsops::err_from(level.source, open_error), "", 1, 0);
    else if (queue_entries(scan, *added, source.get()))
        scan.visited.push_back(added);  // others stay where they are, also if they are empty
}

// Finds or makes a target folder; fills in its identity, and its mode if it is new. A failure is
// noted, and the folder is left out with all below it.
bool Engine::open_target_folder(Scan& scan, const Level& level, uint32_t mode, Folder& folder) {
    const int above = level.parent ? scan.folder.target_fd() : m_target_fd;
    const char* name = name_in(level.target);
    const auto failed = [&](const std::string& message) {
        note_failure(level.target, message, "", 1, 0);
        return false;
    };
    struct stat st = {};
    bool there = fstatat(above, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (!there) {
        // Writable for us until the run ends, whatever its own mode.
        if (mkdirat(above, name, (mode | 0700) & 07777) == 0)
            folder.made_here = true;
        else if (errno != EEXIST)
            return failed(fsops::err_from(level.target));
        there = fstatat(above, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
    }
    // The user may have named a link as the place for a folder. Further down nobody has.
    const bool follow = !level.parent && there && S_ISLNK(st.st_mode);
    if (there && !S_ISDIR(st.st_mode) && !follow)
        return failed(fsops::kInTheWay);
    const Descriptor fd(open_folder(above, name, follow, scan.going));
    if (fd.get() < 0)
        return failed(follow ? fsops::kInTheWay : fsops::err_from(level.target));
    if (fstat(fd.get(), &st) != 0)
        return failed(fsops::err_from(level.target));
    folder.target_id = id_of(st);
    folder.final_mode = mode;
    return true;
}

// False, with the failure noted, when the folder cannot be listed.
bool Engine::queue_entries(Scan& scan, const Folder& folder, int source_fd) {
    fsops::RawListing listing =
        fsops::list_dir_raw_at(source_fd, folder.source, [this] { return !m_cancel; });
    if (!listing.error.empty()) {
        note_failure(folder.source, listing.error, "", 1, 0);
        return false;
    }
    for (const fsops::RawEntry& entry : listing.entries) {
        std::string source = su::join_path(folder.source, entry.name);
        std::string target = su::join_path(folder.target, entry.name);
        if (entry.is_dir && !entry.is_symlink) {
            scan.stack.push_back({std::move(source), std::move(target), &folder});
            continue;
        }
        if (entry.is_special) {
            note_failure(source, kNotRegular, target, 1, 0);
            Log::warnf("skipped special file: %s", source.c_str());
            continue;
        }
        FileTask task;
        task.source = std::move(source);
        task.target = std::move(target);
        task.folder = &folder;
        task.is_symlink = entry.is_symlink;
        if (!entry.is_symlink) {
            task.size = entry.size;
            task.inode = entry.inode;
            task.device = entry.device;
            task.multi_linked = entry.nlink > 1;
        }
        enqueue(std::move(task));
    }
    return true;
}

}  // namespace copy_engine
