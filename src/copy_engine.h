// Copies or moves files in the background: one scanner measures the sources, walks them and feeds a
// queue, while a pool of workers already copies. The interface thread starts, cancels and answers,
// and polls with snapshot() and watchdog_tick(); it never waits for the engine.
//
// What a user may rely on, whatever fails: a file that is not in the list of failures is at the
// target byte for byte, with mode and times; a move lets a source go only after that; no partial
// target stays; nothing outside the target folder changes.

#pragma once

#include "fs_ops.h"
#include "inode_set.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace copy_engine {

enum class Operation { Copy = 0, Move = 1 };

enum class ConflictAction {
    Ask = 0,
    Overwrite = 1,
    Skip = 2,
    RenameNew = 3,
    RenameExisting = 4,
    OverwriteIfNewer = 5,
    Cancel = 6,
};

// The open question: a name is taken.
struct ConflictRequest {
    bool pending = false;
    std::string source_path;
    std::string target_path;
    int64_t source_size = 0;   // bytes
    int64_t target_size = 0;   // bytes
    int64_t source_mtime = 0;  // seconds since the epoch
    int64_t target_mtime = 0;  // seconds since the epoch
    bool is_dir = false;
};

struct FailedItem {
    std::string path;
    std::string target;
    std::string message;
    int attempts = 0;
    int code = 0;  // an errno; 0: no system call is behind it
    // Of a move: the copy is whole, and the source alone could not be removed.
    bool copied = false;
};

// What the display reads: a value, complete in itself.
struct Progress {
    bool running = false;
    bool scanning = false;  // the measuring pass alone
    bool finished = false;
    bool cancelled = false;
    int64_t files_total = 0;
    int64_t files_done = 0;
    int64_t bytes_total = 0;
    int64_t bytes_done = 0;
    double bytes_per_second = 0;    // smoothed
    double seconds_remaining = -1;  // -1: no estimate
    double elapsed_seconds = 0;
    int threads_active = 0;                  // the pool's size, not the live number
    std::vector<std::string> current_files;  // one per worker, empty for an idle one
    std::string device_summary;
    int64_t retried = 0;
    int64_t cloned = 0;
    std::vector<FailedItem> failures;  // at most kMaxStoredFailures
    size_t failures_total = 0;
    int64_t files_copied = 0;  // really copied, not skipped
    std::string stalled_path;
    double stalled_seconds = 0;
    int64_t target_free = -1;  // bytes; -1: unknown
    int64_t space_short = 0;   // bytes missing at the target
    bool disk_full = false;
    ConflictRequest conflict;
    Operation operation = Operation::Copy;
    std::string target_dir;
};

constexpr size_t kMaxStoredFailures = 500;
constexpr int kAttempts = 3;
constexpr double kStallReportSeconds = 15;
constexpr double kStallWakeSeconds = 90;
constexpr double kCancelWakeSeconds = 1;  // between two wakes of a cancelled run

// CLOCK_MONOTONIC in seconds, as the watchdog reads it.
[[nodiscard]] double monotonic_seconds();
// Moves that clock ahead, so that a test need not wait out a stall.
void advance_clock_for_tests(double seconds);

class Engine {
  public:
    Engine() = default;
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // --- For callers. Interface thread. ---------------------------------------------------------

    // Starts a run. False, with nothing changed, when one is running or nothing is named. threads
    // is the user's setting, 0 for automatic.
    bool start(std::vector<std::string> sources, std::string target_dir, Operation op, int threads,
               ConflictAction default_action);
    // Asks the run to end and wakes every thread out of its system call. One that was just about
    // to enter the call misses this; watchdog_tick() wakes it again.
    void cancel();
    // Joins the threads of a run that has ended.
    void reap();
    [[nodiscard]] bool is_reaped() const { return m_workers.empty() && !m_scanner.joinable(); }
    [[nodiscard]] bool is_running() const { return m_running.load(); }

    // Answers the open question; ignored when there is none or it has been answered.
    void resolve_conflict(ConflictAction action, bool apply_to_all);
    [[nodiscard]] Progress snapshot();
    // Takes failures off the list that have been made good by other means.
    void forget_failures(const std::vector<FailedItem>& items);
    // The path of the first worker that shows no sign of life, or empty. Wakes the ones that have
    // shown none for kStallWakeSeconds, and everybody who is still there after a cancel.
    std::string watchdog_tick();

    // A free name beside `name` in `dir` ("report.1.txt"), or empty when none was found.
    [[nodiscard]] static std::string unique_name(const std::string& dir, const std::string& name);

  private:
    // A source folder and the target folder that its files go to. The identities are those that the
    // scanner saw: a worker that opens either and finds another folder there fails its files.
    // Constant once it stands in m_folders.
    struct Folder {
        std::string source;
        std::string target;
        fsops::FileId source_id;
        fsops::FileId target_id;
        uint32_t final_mode = 0;  // put on the target when the run ends
        uint32_t level = 0;       // 1: the user named it; 0: files in it are what was named
        bool made_here = false;   // the run created the target

        // How many of a path's last components were no links when the scanner went through them.
        // A link at the target's top is the user's way of naming a folder.
        [[nodiscard]] size_t source_below() const { return level; }
        [[nodiscard]] size_t target_below() const { return level > 0 ? level - 1 : 0; }
    };

    // One queued file.
    struct FileTask {
        std::string source;
        std::string target;
        int64_t size = 0;                // bytes; 0 for a symbolic link
        uint64_t inode = 0;              // 0 for a file that was named directly
        uint64_t device = 0;             // 0 likewise
        const Folder* folder = nullptr;  // owned by m_folders
        bool is_symlink = false;
        bool multi_linked = false;
        bool reserved = false;  // the target stands in m_reserved for this very file
    };

    // The first copy of a file that has several names.
    struct WrittenFile {
        std::string target;
        fsops::FileId target_id;
        int64_t source_size = 0;            // bytes, when it was copied
        struct timespec source_mtime = {};  // when it was copied
    };

    // Files of the queue that one worker has to itself: [next, end).
    struct Share {
        size_t next = 0;
        size_t end = 0;
    };

    // What other threads see of one worker. No lock. Each on a cache line of its own: every worker
    // writes its own with every chunk.
    struct alignas(64) Slot {
        std::atomic<double> last_progress{0};  // monotonic_seconds() of the last sign of life
        std::atomic<pthread_t> tid{0};         // 0: the worker is gone
        std::atomic<bool> timed_out{false};    // set by the watchdog, taken back by the worker
        std::atomic<bool> creating{false};     // between creating a target and recording it
    };

    class OpenFolder;  // a Folder's two descriptors, checked (copy_engine_internal.h)
    struct Worker;     // what a worker keeps between files
    struct Scan;       // what the scanner keeps between sources
    struct Level;      // one folder on the scanner's stack

    // --- The run (copy_engine.cpp)
    // ----------------------------------------------------------------
    void reset_run(Operation op, ConflictAction default_action, int threads,
                   const std::string& target_dir);
    void start_threads(std::vector<std::string> sources);
    void end_run();
    void remove_moved_folder(const Folder& folder) const;
    void restore_folder_modes();
    void wake_cancelled(double now);
    void note_failure(const std::string& path, const std::string& message,
                      const std::string& target, int attempts, int code, bool copied = false);
    void set_current(int slot, const std::string& path);
    void note_slot_progress(int slot) const;

    // --- The scanner (copy_engine_scan.cpp)
    // ---------------------------------------------------------
    void scan_thread(const std::vector<std::string>& sources);
    [[nodiscard]] std::vector<fsops::TreeSize> measure(const std::vector<std::string>& sources);
    void check_space();
    void open_target(const fsops::CopyProgress& going);
    // False when the run is to end.
    bool scan_source(Scan& scan, const std::string& source, const fsops::TreeSize& measured);
    bool try_rename(const std::string& source, const std::string& target,
                    const fsops::TreeSize& measured);
    void scan_file(Scan& scan, const std::string& source, const std::string& target, bool reserved,
                   const fsops::Stat& st);
    bool scan_folder(Scan& scan, const std::string& source, std::string target);
    // False when the run is to end. An emptied target means: leave this folder out.
    bool settle_folder_conflict(const std::string& source, std::string& target);
    void enter_folder(Scan& scan, const Level& level);
    [[nodiscard]] bool open_target_folder(Scan& scan, const Level& level, uint32_t mode,
                                          Folder& folder);
    bool queue_entries(Scan& scan, const Folder& folder, int source_fd);
    void enqueue(FileTask task);
    const Folder* add_folder(Folder folder);
    [[nodiscard]] const Folder* parent_folder(Scan& scan, const std::string& source);

    // --- The workers (copy_engine_worker.cpp)
    // -------------------------------------------------------
    void worker_thread(int slot);
    bool take_task(Worker& worker);
    [[nodiscard]] bool has_task(int slot) const;  // m_mutex is held
    [[nodiscard]] size_t next_task(int slot);     // m_mutex is held
    bool claim_target_locked(int slot, const std::string& target, bool reserved);
    void process(Worker& worker);
    void skip(Worker& worker);
    void fail_and_skip(Worker& worker, const std::string& path, const std::string& message,
                       const std::string& target);
    enum class Copied { Yes, No, NameTaken };
    Copied copy_one_with_retry(Worker& worker, const std::string& target, bool& replace);
    struct Attempt;
    void attempt(Worker& worker, const std::string& target, bool& replace, Attempt& result);
    void attempt_symlink(Worker& worker, const std::string& target, bool& replace, Attempt& result);
    bool attempt_hard_link(Worker& worker, const std::string& target, bool& replace,
                           Attempt& result);
    void attempt_copy(Worker& worker, const std::string& target, bool& replace, Attempt& result);
    static void discard_copy(const Worker& worker, const std::string& target);
    Copied finish_attempt(Worker& worker, const std::string& target, int number,
                          const Attempt& result);
    Copied give_up(Worker& worker, const std::string& target, const std::string& last_error,
                   int code);
    Copied report(Worker& worker, const std::string& target, const std::string& message,
                  int attempts, int code);
    void remove_moved_source(Worker& worker, const std::string& target);
    [[nodiscard]] bool target_folder_stands(std::string& message) const;
    [[nodiscard]] bool await_target_folder(int slot, std::string& message, int& attempts);
    void remember_created(int slot, fsops::FileId id);

    // --- Conflicts (copy_engine_conflict.cpp)
    // -------------------------------------------------------
    enum class Settled { Copy, Replace, Skip, Failed };
    // Decides what becomes of a task whose target may be taken; target and message are results.
    Settled settle_conflict(Worker& worker, std::string& target, std::string& message);
    Settled settle_kept_both(Worker& worker, std::string& target);
    Settled settle_old_renamed(const std::string& target);
    ConflictAction ask_conflict(const FileTask& task, bool is_dir, int slot);
    [[nodiscard]] ConflictAction rule_without_question();
    [[nodiscard]] bool claim_target(int slot, const std::string& target, bool reserved = false);
    enum class Standing { Nothing, Old, Ours };
    [[nodiscard]] Standing claim_old_file(int slot, const std::string& target, bool reserved);
    void wait_for_creators(int slot) const;
    // m_mutex is held.
    [[nodiscard]] bool is_of_this_run(const std::string& target, fsops::FileId id) const;
    [[nodiscard]] bool is_folder_in_use(fsops::FileId id) const;
    [[nodiscard]] std::string reserve_unique_name(const std::string& dir, const std::string& name);

    // The one lock, held for short sections. Copying, sleeping and walking happen outside it.
    std::mutex m_mutex;
    std::condition_variable m_conflict_cv;  // a question was answered or withdrawn
    std::condition_variable m_queue_cv;     // a file was queued, or the scanner has ended

    // Guarded by m_mutex. The queue never shrinks during a run, but a task that is handed out
    // takes its paths along.
    std::vector<FileTask> m_queue;
    size_t m_queue_pos = 0;         // the next file that is nobody's
    std::vector<Share> m_shares;    // per worker
    bool m_queue_complete = false;  // the scanner has ended

    // Interface thread.
    std::vector<std::thread> m_workers;
    std::thread m_scanner;
    double m_woken_at = 0;  // monotonic_seconds() of the last wake after a cancel

    // Atomic.
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_cancel{false};
    std::atomic<bool> m_scanning{false};
    std::atomic<bool> m_finished{false};
    std::atomic<int> m_active_workers{0};  // not yet ended
    std::atomic<int64_t> m_files_total{0};
    std::atomic<int64_t> m_files_done{0};
    std::atomic<int64_t> m_files_copied{0};
    std::atomic<int64_t> m_bytes_total{0};
    std::atomic<int64_t> m_bytes_done{0};
    std::atomic<int64_t> m_target_free{-1};  // bytes; -1: unknown
    std::atomic<int64_t> m_space_short{0};   // bytes missing
    std::atomic<bool> m_disk_full{false};
    std::atomic<int64_t> m_retried{0};
    std::atomic<int64_t> m_cloned{0};
    std::atomic<pthread_t> m_scanner_tid{0};    // later the worker that ends the run; 0: nobody
    std::atomic<double> m_scanner_progress{0};  // monotonic_seconds() of the last sign of life
    std::unique_ptr<Slot[]> m_slots;            // m_thread_count of them; replaced by start() alone

    // Constant while threads run; written by start().
    Operation m_op = Operation::Copy;
    std::string m_target_dir;
    int m_thread_count = 1;
    ConflictAction m_default_action = ConflictAction::Ask;
    std::string m_device_summary;

    // The target folder, held open so that it stays what it is. Written by the scanner before the
    // first task is queued, constant afterwards.
    int m_target_fd = -1;
    int m_target_error = 0;     // errno of what kept it from being opened
    int m_target_attempts = 1;  // how often that was tried
    fsops::FileId m_target_id;

    // Guarded by m_mutex.
    ConflictAction m_standing_rule = ConflictAction::Ask;
    ConflictRequest m_conflict;
    ConflictAction m_conflict_answer = ConflictAction::Ask;
    bool m_conflict_answered = false;
    std::vector<FailedItem> m_failures;  // at most kMaxStoredFailures
    size_t m_failures_total = 0;
    std::vector<std::string> m_current;  // per worker: the file it is busy with
    // Per worker, and one for the scanner: the target that it may be writing.
    std::vector<std::string> m_in_work;
    std::vector<fsops::FileId> m_replacing;  // per worker: the old file that it may remove
    std::string m_stalled_path;
    double m_stalled_seconds = 0;
    std::vector<const Folder*> m_move_dirs;  // sources to remove after a move, deepest first
    std::map<fsops::FileId, WrittenFile> m_written_inodes;
    std::deque<Folder> m_folders;             // parents before children; addresses are stable
    std::set<fsops::FileId> m_created_dirs;   // never walked as sources
    std::set<std::string> m_renamed_targets;  // trees that arrived by a rename
    InodeSet m_created;                       // files that this run created
    std::set<std::string> m_reserved;         // targets that unique_name has given out

    // Rate. Guarded by m_mutex; steady clock, seconds.
    double m_start_time = 0;
    double m_last_rate_time = 0;
    int64_t m_last_rate_bytes = 0;
    double m_rate = 0;  // bytes per second
    int64_t m_last_rate_files = 0;
    double m_file_rate = 0;  // files per second
};

// The process's engine, made on first use.
Engine& instance();

}  // namespace copy_engine
