// The life of a run: start, cancel, end, and what the display reads of it.
//
//   idle --start()--> measuring --> copying --last worker: end_run()--> ended --reap()--> idle
//
// The scanner and the workers end independently of each other; the worker that leaves last waits
// for the scanner and makes the transition to ended.

#include "copy_engine.h"

#include "copy_engine_internal.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace copy_engine {

namespace {

constexpr int kWakeSignal = SIGUSR2;
constexpr size_t kLoggedSources = 20;
constexpr useconds_t kLastTicksMicroseconds = 5000;

std::atomic<double> g_clock_ahead{0};

// No SA_RESTART: the only effect wanted is that a system call that hangs on a dead mount or device
// returns EINTR in its thread, which then asks whether to go on.
void install_wake_signal() {
    static const bool installed = [] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigemptyset(&action.sa_mask);
        sigaction(kWakeSignal, &action, nullptr);
        return true;
    }();
    static_cast<void>(installed);
}

}  // namespace

// The coarse reading of CLOCK_MONOTONIC: some milliseconds late, which is nothing against 15
// seconds, and without a system call on any machine, which counts for every small file.
double monotonic_seconds() {
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9 +
           g_clock_ahead.load(std::memory_order_relaxed);
}

void advance_clock_for_tests(double seconds) {
    g_clock_ahead.store(g_clock_ahead.load() + seconds);
}

double steady_seconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

Engine& instance() {
    Log::instance();  // must outlive the engine, whose end still logs
    static Engine engine;
    return engine;
}

Engine::~Engine() {
    cancel();
    while (m_running.load()) {
        watchdog_tick();
        usleep(kLastTicksMicroseconds);
    }
    reap();
}

// --- Start --------------------------------------------------------------------------------------

bool Engine::start(std::vector<std::string> sources, std::string target_dir, Operation op,
                   int threads, ConflictAction default_action) {
    if (m_running.load() || sources.empty() || target_dir.empty())
        return false;
    reap();
    // Looked at before the lock is taken: a dead disk may make this wait.
    const fsops::DeviceClass from = fsops::classify_device(sources.front());
    const fsops::DeviceClass to = fsops::classify_device(target_dir);
    const int count = threads > 0 ? fsops::recommended_threads({}, {}, threads)
                                  : fsops::threads_for(from, to, fsops::cpu_cores());
    m_device_summary = std::string(fsops::device_class_name(from)) + " → " +
                       fsops::device_class_name(to) + ", " + std::to_string(count) + "×";
    reset_run(op, default_action, count, target_dir);

    Log::infof("transfer start: %s of %zu source(s) → %s [%s]",
               op == Operation::Move ? "MOVE" : "COPY", sources.size(), target_dir.c_str(),
               m_device_summary.c_str());
    for (size_t i = 0; i < sources.size() && i < kLoggedSources; ++i)
        Log::infof("  from: %s", sources[i].c_str());
    if (sources.size() > kLoggedSources)
        Log::infof("  … and %zu more", sources.size() - kLoggedSources);

    install_wake_signal();
    start_threads(std::move(sources));
    return true;
}

void Engine::reset_run(Operation op, ConflictAction default_action, int threads,
                       const std::string& target_dir) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.clear();
    m_queue_pos = 0;
    m_queue_complete = false;
    m_failures.clear();
    m_failures_total = 0;
    m_files_copied = 0;
    m_disk_full = false;
    m_space_short = 0;
    m_target_free = -1;
    m_move_dirs.clear();
    m_conflict = ConflictRequest();
    m_conflict_answered = false;
    m_default_action = default_action;
    m_standing_rule = ConflictAction::Ask;
    m_op = op;
    m_target_dir = target_dir;
    m_thread_count = threads;
    m_current.assign(static_cast<size_t>(threads), {});
    m_in_work.assign(static_cast<size_t>(threads) + 1, {});
    m_replacing.assign(static_cast<size_t>(threads), {});
    m_shares.assign(static_cast<size_t>(threads), {});
    m_stalled_path.clear();
    m_stalled_seconds = 0;
    m_written_inodes.clear();
    m_folders.clear();
    m_created_dirs.clear();
    m_renamed_targets.clear();
    m_created.clear();
    m_reserved.clear();

    m_cancel = false;
    m_finished = false;
    m_scanning = true;
    m_running = true;
    m_files_total = 0;
    m_files_done = 0;
    m_bytes_total = 0;
    m_bytes_done = 0;
    m_retried = 0;
    m_cloned = 0;

    // The last file rate stays: it colours the first estimate of a run that follows at once.
    m_start_time = m_last_rate_time = steady_seconds();
    m_last_rate_bytes = 0;
    m_rate = 0;

    m_slots = std::make_unique<Slot[]>(static_cast<size_t>(threads));
    for (int slot = 0; slot < threads; ++slot)
        note_slot_progress(slot);
}

// A machine may have no thread to give. With fewer workers the run takes longer; without any, or
// without a scanner, it ends at once and says why.
void Engine::start_threads(std::vector<std::string> sources) {
    const std::string first = sources.front();
    m_active_workers = m_thread_count;
    std::string refusal;
    for (int slot = 0; slot < m_thread_count && refusal.empty(); ++slot) {
        try {
            m_workers.emplace_back(&Engine::worker_thread, this, slot);
        } catch (const std::system_error& error) {
            refusal = error.what();
        }
    }
    const int missing = m_thread_count - static_cast<int>(m_workers.size());
    if (missing > 0)
        Log::warnf("only %zu of %d worker(s) could be started: %s", m_workers.size(),
                   m_thread_count, refusal.c_str());
    // Those that never came count as left. None of the others leaves before the scanner has ended,
    // so it is never one of them for whom we end the run here.
    m_active_workers -= missing;
    if (!m_workers.empty()) {
        try {
            m_scanner = std::thread(&Engine::scan_thread, this, std::move(sources));
        } catch (const std::system_error& error) {
            refusal = error.what();
        }
    }
    if (!m_scanner.joinable()) {
        note_failure(first, "no thread could be started: " + refusal, m_target_dir, 1, 0);
        Log::errorf("transfer: no thread could be started: %s", refusal.c_str());
        std::lock_guard<std::mutex> lock(m_mutex);
        m_scanning = false;
        m_queue_complete = true;
        m_queue_cv.notify_all();
    }
    if (m_workers.empty())
        end_run();
}

// --- Cancel and end -----------------------------------------------------------------------------

void Engine::cancel() {
    m_cancel = true;
    m_woken_at = monotonic_seconds();
    size_t woken = 0;
    if (m_slots) {
        for (int slot = 0; slot < m_thread_count; ++slot) {
            const pthread_t tid = m_slots[static_cast<size_t>(slot)].tid.load();
            if (tid != 0 && pthread_kill(tid, kWakeSignal) == 0)
                ++woken;
        }
    }
    const pthread_t scanner = m_scanner_tid.load();
    if (scanner != 0)
        pthread_kill(scanner, kWakeSignal);
    Log::infof("cancel requested, woke %zu worker(s)", woken);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_conflict_cv.notify_all();
    m_queue_cv.notify_all();
}

// A signal that comes just before a call that hangs is lost on it. So a cancelled run is woken
// again until it has ended: the workers that show no sign of life, and the scanner or the end of
// the run. No timed-out flag is set, since the user wanted the end and needs no other reason told.
void Engine::wake_cancelled(double now) {
    if (now - m_woken_at < kCancelWakeSeconds)
        return;
    m_woken_at = now;
    for (int index = 0; index < m_thread_count; ++index) {
        const Slot& slot = m_slots[static_cast<size_t>(index)];
        const pthread_t tid = slot.tid.load();
        if (tid != 0 && now - slot.last_progress.load() >= kCancelWakeSeconds)
            pthread_kill(tid, kWakeSignal);
    }
    const pthread_t scanner = m_scanner_tid.load();
    if (scanner != 0 && now - m_scanner_progress.load() >= kCancelWakeSeconds)
        pthread_kill(scanner, kWakeSignal);
}

void Engine::reap() {
    if (m_scanner.joinable())
        m_scanner.join();
    for (std::thread& worker : m_workers) {
        if (worker.joinable())
            worker.join();
    }
    m_workers.clear();
    m_scanner_tid = 0;
    for (int slot = 0; m_slots && slot < m_thread_count; ++slot)
        m_slots[static_cast<size_t>(slot)].tid = 0;
}

void Engine::end_run() {
    std::vector<const Folder*> move_dirs;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_queue_cv.wait(lock, [this] { return m_queue_complete; });
        if (m_op == Operation::Move && !m_cancel)
            move_dirs = m_move_dirs;
    }
    m_scanner_progress = monotonic_seconds();
    m_scanner_tid = pthread_self();  // a dead mount may keep us here, so a cancel must reach us
    // A folder that still holds something, because of a failure or a skip, stays.
    for (const Folder* dir : move_dirs) {
        if (!m_cancel)
            remove_moved_folder(*dir);
    }
    restore_folder_modes();
    m_scanner_tid = 0;
    if (m_target_fd >= 0)
        close(m_target_fd);
    m_target_fd = -1;

    double elapsed = 0;
    size_t failed = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        elapsed = steady_seconds() - m_start_time;
        failed = m_failures_total;
    }
    const auto bytes = static_cast<long long>(m_bytes_done.load());
    const double rate = elapsed > 0 ? static_cast<double>(bytes) / elapsed / 1048576 : 0;
    m_scanning = false;
    m_finished = true;
    m_running = false;
    Log::infof("transfer %s: %lld/%lld files, %lld bytes in %.1f s (%.1f MB/s), %lld failed, "
               "%lld retried, %lld reflinked",
               m_cancel ? "CANCELLED" : "done", static_cast<long long>(m_files_done.load()),
               static_cast<long long>(m_files_total.load()), bytes, elapsed, rate,
               static_cast<long long>(failed), static_cast<long long>(m_retried.load()),
               static_cast<long long>(m_cloned.load()));
}

// Removes an emptied source folder, if the name still leads to the folder that was walked: a link
// put in its way meanwhile leads to another place's folders.
void Engine::remove_moved_folder(const Folder& folder) const {
    const fsops::CopyProgress going = [this](int64_t) { return !m_cancel; };
    bool replaced = false;
    const int own =
        open_seen_folder(folder.source, folder.source_id, folder.source_below(), going, replaced);
    if (own < 0)
        return;
    const std::string parent = su::parent_of(folder.source);
    const int fd = open_folder(AT_FDCWD, parent.c_str(), true, going);
    const char* name = name_in(folder.source);
    struct stat seen = {};
    struct stat st = {};
    if (fd >= 0 && fstat(own, &seen) == 0 && fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        id_of(st) == id_of(seen))
        unlinkat(fd, name, AT_REMOVEDIR);
    if (fd >= 0)
        close(fd);
    close(own);  // held so long, so that its number stays what it is
}

// Folders were made writable for us, so that also one of mode 0555 could be filled. Now they get
// their own mode, deepest first, since a parent's may shut us out.
void Engine::restore_folder_modes() {
    const fsops::CopyProgress going = [this](int64_t) { return !m_cancel; };
    for (auto folder = m_folders.rbegin(); folder != m_folders.rend(); ++folder) {
        if (!folder->made_here)
            continue;
        m_scanner_progress = monotonic_seconds();
        int fd = -1;
        do {
            fd = open(folder->target.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        } while (fd < 0 && errno == EINTR && !m_cancel);
        if (fd < 0 && errno == EINTR)
            return;
        if (fd < 0)
            continue;
        struct stat st = {};
        if (fstat(fd, &st) == 0 && (st.st_mode & 07777) != folder->final_mode) {
            bool stands = id_of(st) == folder->target_id;
            if (!stands) {
                // Held meanwhile, the folder that is open keeps its number.
                bool replaced = false;
                const int seen = open_seen_folder(folder->target, folder->target_id,
                                                  folder->target_below(), going, replaced);
                struct stat now = {};
                stands = seen >= 0 && fstat(seen, &now) == 0 && id_of(now) == id_of(st);
                if (seen >= 0)
                    close(seen);
            }
            if (stands)
                fchmod(fd, folder->final_mode);  // a file system without modes keeps its own
        }
        close(fd);
    }
}

// --- Small steps of all threads
// -------------------------------------------------------------------

void Engine::note_failure(const std::string& path, const std::string& message,
                          const std::string& target, int attempts, int code, bool copied) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_failures_total;
    if (m_failures.size() < kMaxStoredFailures)
        m_failures.push_back({path, target, message, attempts, code, copied});
}

void Engine::forget_failures(const std::vector<FailedItem>& items) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const FailedItem& item : items) {
        const auto found =
            std::find_if(m_failures.begin(), m_failures.end(), [&item](const FailedItem& failure) {
                return failure.path == item.path && failure.target == item.target;
            });
        if (found == m_failures.end())
            continue;
        m_failures.erase(found);
        --m_failures_total;
    }
}

void Engine::set_current(int slot, const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (slot < 0 || static_cast<size_t>(slot) >= m_current.size())
        return;
    m_current[static_cast<size_t>(slot)] = path;
    if (path.empty()) {
        m_in_work[static_cast<size_t>(slot)].clear();
        m_replacing[static_cast<size_t>(slot)] = {};
    }
}

void Engine::note_slot_progress(int slot) const {
    if (slot >= 0 && slot < m_thread_count && m_slots)
        m_slots[static_cast<size_t>(slot)].last_progress.store(monotonic_seconds(),
                                                               std::memory_order_relaxed);
}

// --- What the interface polls
// ---------------------------------------------------------------------

std::string Engine::watchdog_tick() {
    if (!m_running.load())
        return {};
    const double now = monotonic_seconds();
    std::string path;
    double seconds = 0;
    for (int index = 0; index < m_thread_count; ++index) {
        Slot& slot = m_slots[static_cast<size_t>(index)];
        if (now - slot.last_progress.load() < kStallReportSeconds)
            continue;
        double age = 0;
        bool is_first_wake = false;
        {
            // Under the lock no worker changes its file, and one that has just taken another shows
            // a fresh sign of life: the signal and the flag never hit the file after the slow one.
            std::lock_guard<std::mutex> lock(m_mutex);
            age = now - slot.last_progress.load();
            const std::string& current = m_current[static_cast<size_t>(index)];
            if (age < kStallReportSeconds || current.empty())
                continue;  // without a file it waits for work, which is no stall
            if (path.empty()) {
                path = current;
                seconds = age;
            }
            const pthread_t tid = slot.tid.load();
            if (age < kStallWakeSeconds || tid == 0)
                continue;
            // One that was woken before may hang again while it clears up behind itself.
            is_first_wake = !slot.timed_out.exchange(true);
            pthread_kill(tid, kWakeSignal);
            slot.last_progress = now;  // a fresh limit for the attempt that follows
        }
        if (is_first_wake)
            Log::warnf("watchdog: worker %d stalled for %.0f s — waking it", index, age);
    }
    if (m_cancel)
        wake_cancelled(now);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stalled_path = path;
    m_stalled_seconds = seconds;
    return path;
}

namespace {

// Seconds left, or -1 for no estimate. Bytes and files are judged apart: where the two disagree,
// as with a few large files among many small ones, no number is better than a wrong one.
double estimate(const Progress& progress, double file_rate) {
    constexpr double kLeastRate = 1024;      // bytes per second
    constexpr double kLeastFileRate = 0.01;  // files per second
    constexpr double kAgreement = 4;
    const int64_t bytes_left = progress.bytes_total - progress.bytes_done;
    const int64_t files_left = progress.files_total - progress.files_done;
    if (bytes_left <= 0 || progress.bytes_per_second <= kLeastRate || progress.scanning)
        return -1;
    const double by_bytes = static_cast<double>(bytes_left) / progress.bytes_per_second;
    if (files_left <= 4)
        return by_bytes;
    if (file_rate <= kLeastFileRate)
        return -1;
    const double by_files = static_cast<double>(files_left) / file_rate;
    const auto [smaller, larger] = std::minmax(by_bytes, by_files);
    return larger <= kAgreement * smaller ? larger : -1;
}

double smoothed(double rate, double instant) {
    return rate > 0 ? 0.4 * instant + 0.6 * rate : instant;
}

}  // namespace

Progress Engine::snapshot() {
    Progress progress;
    progress.running = m_running;
    progress.scanning = m_scanning;
    progress.finished = m_finished;
    progress.cancelled = m_cancel;
    progress.files_total = m_files_total;
    progress.files_done = m_files_done;
    progress.bytes_total = m_bytes_total;
    progress.bytes_done = m_bytes_done;
    progress.retried = m_retried;
    progress.cloned = m_cloned;
    progress.files_copied = m_files_copied;
    progress.target_free = m_target_free;
    progress.space_short = m_space_short;
    progress.disk_full = m_disk_full;

    std::lock_guard<std::mutex> lock(m_mutex);
    progress.threads_active = m_thread_count;
    progress.operation = m_op;
    progress.target_dir = m_target_dir;
    progress.device_summary = m_device_summary;
    progress.current_files = m_current;
    progress.failures = m_failures;
    progress.failures_total = m_failures_total;
    progress.stalled_path = m_stalled_path;
    progress.stalled_seconds = m_stalled_seconds;
    progress.conflict = m_conflict;
    progress.conflict.pending = m_conflict.pending && !m_conflict_answered;

    const double now = steady_seconds();
    if (m_start_time > 0)
        progress.elapsed_seconds = now - m_start_time;
    const double passed = now - m_last_rate_time;
    if (passed >= 0.5) {
        m_rate =
            smoothed(m_rate, static_cast<double>(progress.bytes_done - m_last_rate_bytes) / passed);
        m_file_rate = smoothed(
            m_file_rate, static_cast<double>(progress.files_done - m_last_rate_files) / passed);
        m_last_rate_bytes = progress.bytes_done;
        m_last_rate_files = progress.files_done;
        m_last_rate_time = now;
    }
    progress.bytes_per_second = m_rate;
    progress.seconds_remaining = estimate(progress, m_file_rate);
    return progress;
}

// --- Names
// ----------------------------------------------------------------------------------------

namespace {

struct SplitName {
    std::string stem;
    std::string extension;  // with its point, or empty
};

SplitName split_name(const std::string& name) {
    const std::string lower = su::lower_ascii(name);
    for (const char* ending : {".tar.gz", ".tar.bz2", ".tar.xz", ".tar.zst", ".tar.lz"}) {
        const size_t length = std::strlen(ending);
        if (name.size() > length && su::ends_with(lower, ending))
            return {name.substr(0, name.size() - length), name.substr(name.size() - length)};
    }
    const size_t point = name.rfind('.');
    if (point == std::string::npos || point == 0)
        return {name, {}};
    return {name.substr(0, point), name.substr(point)};
}

constexpr int kLastNumber = 9999;

// The first numbered name that `is_free` accepts, or empty.
template <typename IsFree>
std::string numbered_name(const std::string& name, IsFree is_free) {
    const SplitName split = split_name(name);
    for (int number = 1; number <= kLastNumber; ++number) {
        std::string candidate = split.stem + "." + std::to_string(number) + split.extension;
        if (is_free(candidate))
            return candidate;
    }
    return {};
}

}  // namespace

std::string Engine::unique_name(const std::string& dir, const std::string& name) {
    return numbered_name(name, [&dir](const std::string& candidate) {
        return !fsops::exists(su::join_path(dir, candidate));
    });
}

std::string Engine::reserve_unique_name(const std::string& dir, const std::string& name) {
    return numbered_name(name, [&](const std::string& candidate) {
        const std::string path = su::join_path(dir, candidate);
        if (fsops::exists(path))
            return false;
        std::lock_guard<std::mutex> lock(m_mutex);
        return std::find(m_in_work.begin(), m_in_work.end(), path) == m_in_work.end() &&
               m_reserved.insert(path).second;
    });
}

}  // namespace copy_engine
