// What becomes of a file whose target is taken: the rules, and the one question at a time.

#include "copy_engine.h"

#include "copy_engine_internal.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>

namespace copy_engine {

namespace {

constexpr auto kQuestionStep = std::chrono::milliseconds(200);
constexpr auto kWaitStep = std::chrono::microseconds(100);

bool is_special(const struct stat& st) {
    return !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode) && !S_ISDIR(st.st_mode);
}

bool same_file(const std::string& source, const std::string& target) {
    const fsops::Stat a = fsops::lstat_path(source);
    const fsops::Stat b = fsops::lstat_path(target);
    return a.exists && b.exists && a.device == b.device && a.inode == b.inode;
}

}  // namespace

// --- What counts as taken
// ---------------------------------------------------------------------------

// Takes a target path for a worker, or for the scanner, whose slot is the one past the workers'.
// False when another is at it or has it reserved: two sources that would land on one name never
// write the same file. reserved: it is this one's own reservation.
bool Engine::claim_target(int slot, const std::string& target, bool reserved) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return claim_target_locked(slot, target, reserved);
}

bool Engine::claim_target_locked(int slot, const std::string& target, bool reserved) {
    std::string& own = m_in_work[static_cast<size_t>(slot)];
    own.clear();
    if (!reserved && m_reserved.contains(target))
        return false;
    for (const std::string& other : m_in_work) {
        if (other == target)
            return false;
    }
    own = target;
    return true;
}

// Whoever is creating a file right now has recorded it when this returns.
void Engine::wait_for_creators(int slot) const {
    for (int other = 0; other < m_thread_count; ++other) {
        const Slot& creator = m_slots[static_cast<size_t>(other)];
        while (other != slot && creator.creating.load() && !m_cancel) {
            note_slot_progress(slot);
            std::this_thread::sleep_for(kWaitStep);
        }
    }
}

// What stands at a target: an old file, which is then this worker's to remove until it has created
// its own; a file that this run brought there, or is about to; or nothing. Takes the target for the
// worker if it is not its own yet.
Engine::Standing Engine::claim_old_file(int slot, const std::string& target, bool reserved) {
    if (!claim_target(slot, target, reserved))
        return Standing::Ours;
    // From here on nobody else creates this name. But a file system that folds case has one file
    // for several names, so the rest goes by identity. Two workers never take one file for old:
    // the second would remove what the first has put in its place.
    while (!m_cancel) {
        const fsops::Stat there = fsops::lstat_path(target);
        const fsops::FileId id{there.device, there.inode};
        wait_for_creators(slot);
        bool somebody_elses = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            fsops::FileId& own = m_replacing[static_cast<size_t>(slot)];
            if (!there.exists || is_of_this_run(target, id) ||
                (there.is_dir && is_folder_in_use(id))) {
                own = {};
                return there.exists ? Standing::Ours : Standing::Nothing;
            }
            // Taken the round before and still there: nobody can have replaced it in between.
            if (own == id)
                return Standing::Old;
            own = {};
            somebody_elses =
                std::find(m_replacing.begin(), m_replacing.end(), id) != m_replacing.end();
            if (!somebody_elses)
                own = id;
        }
        if (somebody_elses) {
            note_slot_progress(slot);
            std::this_thread::sleep_for(kWaitStep);
        }
    }
    return Standing::Nothing;
}

bool Engine::is_of_this_run(const std::string& target, fsops::FileId id) const {
    if (m_created.contains(id))
        return true;
    for (std::string path = target; path.size() > 1; path = su::parent_of(path)) {
        if (m_renamed_targets.contains(path))
            return true;
    }
    return false;
}

// Whether files of this run go into a folder, be it a new one or an old one.
bool Engine::is_folder_in_use(fsops::FileId id) const {
    return std::any_of(m_folders.begin(), m_folders.end(),
                       [id](const Folder& folder) { return folder.target_id == id; });
}

// --- The answers
// ------------------------------------------------------------------------------------

ConflictAction Engine::rule_without_question() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_standing_rule != ConflictAction::Ask ? m_standing_rule : m_default_action;
}

Engine::Settled Engine::settle_conflict(Worker& worker, std::string& target, std::string& message) {
    const FileTask& task = worker.task;
    if (worker.keep_both)
        return settle_kept_both(worker, target);
    const bool claimed = worker.claimed || claim_target(worker.slot, target, worker.task.reserved);
    const bool first_look = worker.claimed;
    worker.claimed = false;
    // Nothing can stand in a folder that this run has just made. Should somebody have put something
    // there all the same, the creation says so, and we come back.
    if (first_look && task.folder->made_here)
        return Settled::Copy;
    struct stat there = {};
    // A folder that cannot be entered is told by the copy, which tries more than once.
    const bool found =
        worker.folder.enter(*task.folder, worker.on_progress).empty() &&
        fstatat(worker.folder.target_fd(), name_in(target), &there, AT_SYMLINK_NOFOLLOW) == 0;
    if (claimed && !found)
        return Settled::Copy;
    if (rule_without_question() == ConflictAction::Skip)
        return Settled::Skip;
    if (found && is_special(there)) {
        message = fsops::kInTheWay;
        return Settled::Failed;
    }
    if (found && same_file(task.source, target)) {
        message = fsops::kSameFile;
        return Settled::Failed;
    }
    const ConflictAction action = ask_conflict(task, false, worker.slot);
    if (action == ConflictAction::Cancel) {
        m_cancel = true;
        m_queue_cv.notify_all();
        return Settled::Skip;
    }
    if (action == ConflictAction::Skip)
        return Settled::Skip;
    // The answer may have come after a long while.
    if (same_file(task.source, target)) {
        message = fsops::kSameFile;
        return Settled::Failed;
    }
    if (action == ConflictAction::RenameNew)
        return settle_kept_both(worker, target);

    if (action == ConflictAction::OverwriteIfNewer &&
        fsops::lstat_path(task.source).mtime <= fsops::lstat_path(target).mtime)
        return Settled::Skip;
    switch (claim_old_file(worker.slot, target, task.reserved)) {
    case Standing::Nothing:
        return Settled::Copy;
    case Standing::Ours:
        // What this run has brought here itself is not the old file that the user meant.
        return settle_kept_both(worker, target);
    case Standing::Old:
        break;
    }
    if (action == ConflictAction::RenameExisting)
        return settle_old_renamed(target);
    return Settled::Replace;
}

Engine::Settled Engine::settle_kept_both(Worker& worker, std::string& target) {
    const std::string dir = su::parent_of(worker.task.target);
    const std::string name = reserve_unique_name(dir, su::basename_of(worker.task.target));
    if (name.empty()) {
        note_failure(target, "no free name available", "", 1, 0);
        return Settled::Failed;
    }
    worker.keep_both = true;
    target = su::join_path(dir, name);
    static_cast<void>(claim_target(worker.slot, target, true));
    return Settled::Copy;
}

// The old file steps aside and the copy gets the name that it asked for.
Engine::Settled Engine::settle_old_renamed(const std::string& target) {
    const std::string dir = su::parent_of(target);
    for (;;) {
        const std::string name = reserve_unique_name(dir, su::basename_of(target));
        if (name.empty()) {
            note_failure(target, "no free name available", "", 1, 0);
            return Settled::Failed;
        }
        const std::string aside = su::join_path(dir, name);
        const std::string error = fsops::rename_no_replace(target, aside);
        if (error.empty())
            return Settled::Copy;
        if (fsops::last_error_code() == EEXIST)
            continue;  // somebody took that name first
        note_failure(target, error, aside, 1, 0);
        return Settled::Failed;
    }
}

// --- The question
// -----------------------------------------------------------------------------------

ConflictAction Engine::ask_conflict(const FileTask& task, bool is_dir, int slot) {
    std::unique_lock<std::mutex> lock(m_mutex);
    fsops::Stat source;
    fsops::Stat target;
    bool looked = false;
    for (;;) {
        if (m_standing_rule != ConflictAction::Ask)
            return m_standing_rule;
        if (m_default_action != ConflictAction::Ask)
            return m_default_action;
        note_slot_progress(slot);
        if (m_cancel)
            return ConflictAction::Cancel;
        // An answer for all that is given to the question ahead serves everybody behind it.
        if (m_conflict.pending) {
            m_conflict_cv.wait_for(lock, kQuestionStep);
            looked = false;
            continue;
        }
        if (looked)
            break;
        // A look at a dead disk may take long, and the interface must not wait for the lock.
        lock.unlock();
        source = fsops::lstat_path(task.source);
        target = fsops::lstat_path(task.target);
        looked = true;
        lock.lock();
    }

    m_conflict.pending = true;
    m_conflict.source_path = task.source;
    m_conflict.target_path = task.target;
    m_conflict.source_size = source.size;
    m_conflict.target_size = target.size;
    m_conflict.source_mtime = source.mtime;
    m_conflict.target_mtime = target.mtime;
    m_conflict.is_dir = is_dir;
    m_conflict_answered = false;
    // A worker that waits for the user is no stalled one, however long it takes.
    while (!m_conflict_answered && !m_cancel) {
        note_slot_progress(slot);
        m_conflict_cv.wait_for(lock, kQuestionStep);
    }
    note_slot_progress(slot);
    const ConflictAction answer = m_conflict_answered ? m_conflict_answer : ConflictAction::Cancel;
    m_conflict.pending = false;
    m_conflict_answered = false;
    lock.unlock();
    m_conflict_cv.notify_all();
    return answer;
}

void Engine::resolve_conflict(ConflictAction action, bool apply_to_all) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_conflict.pending || m_conflict_answered)
            return;
        m_conflict_answer = action;
        m_conflict_answered = true;
        if (action == ConflictAction::Cancel)
            m_cancel = true;
        else if (apply_to_all)
            m_standing_rule = action;
    }
    m_conflict_cv.notify_all();
    m_queue_cv.notify_all();
}

}  // namespace copy_engine
