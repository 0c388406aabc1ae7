#include "file_ops.h"

#include "bg_task.h"
#include "copy_engine.h"
#include "dir_lister.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "open_files.h"
#include "paths.h"
#include "strutil.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace file_ops {

// --- Names --------------------------------------------------------------------------------------

namespace {

// Whether the file system finds an entry under this name too, though the folder holds it under the
// other one alone: it folds case. Two names that a folder does hold may be links to one file.
bool is_another_case(const std::string& dir, const std::string& name, const std::string& current) {
    const fsops::Stat a = fsops::lstat_path(su::join_path(dir, name));
    const fsops::Stat b = fsops::lstat_path(su::join_path(dir, current));
    if (!a.exists || a.device != b.device || a.inode != b.inode)
        return false;
    const fsops::RawListing listing = fsops::list_dir_raw(dir);
    for (const fsops::RawEntry& entry : listing.entries)
        if (entry.name == name)
            return false;
    return listing.error.empty();
}

// To another case of the same name, by a third name: the kernel takes the two for one file, and a
// rename onto itself for done.
std::string rename_by_detour(const std::string& path, const std::string& target) {
    const std::string stem =
        su::join_path(su::parent_of(path), ".ferrodeck-rename-" + std::to_string(getpid()) + "-");
    std::string error;
    std::string detour;
    for (int i = 0; i < 100; ++i) {
        detour = stem + std::to_string(i);
        error = fsops::rename_no_replace(path, detour);
        if (error.empty() || fsops::last_error_code() != EEXIST)
            break;
    }
    if (!error.empty())
        return error;
    if (fsops::rename_no_replace(detour, target).empty())
        return {};
    const int code = fsops::last_error_code();
    // Should there be no way back either, this tells where the entry is now.
    error = fsops::rename_no_replace(detour, path);
    return error.empty() ? fsops::err_from(path, code) : error;
}

}  // namespace

std::string validate_name(const std::string& dir, const std::string& name,
                          const std::string& current) {
    if (name.empty())
        return tr("err.name_empty");
    if (name.find('/') != std::string::npos)
        return tr("err.name_slash");
    if (name == "." || name == "..")
        return tr("err.name_reserved");
    if (!fsops::is_valid_name(name))
        return tr("err.name_too_long");
    if (name != current && fsops::exists(su::join_path(dir, name)) &&
        !is_another_case(dir, name, current))
        return tr("err.name_exists");
    return {};
}

std::string rename_entry(const std::string& path, const std::string& new_name) {
    const std::string dir = su::parent_of(path);
    const std::string old_name = su::basename_of(path);
    std::string refusal = validate_name(dir, new_name, old_name);
    if (!refusal.empty() || new_name == old_name)
        return refusal;
    const std::string target = su::join_path(dir, new_name);
    std::string error = fsops::rename_no_replace(path, target);
    if (error.empty() || fsops::last_error_code() != EEXIST)
        return error;
    if (is_another_case(dir, new_name, old_name))
        return rename_by_detour(path, target);
    // Somebody took the name between the look and the rename.
    return tr("err.name_exists");
}

std::string create_directory(const std::string& dir, const std::string& name) {
    std::string refusal = validate_name(dir, name, {});
    return refusal.empty() ? fsops::make_dir(su::join_path(dir, name), 0755) : refusal;
}

std::string create_empty_file(const std::string& dir, const std::string& name) {
    std::string refusal = validate_name(dir, name, {});
    if (!refusal.empty())
        return refusal;
    const std::string path = su::join_path(dir, name);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return fsops::err_from(path);
    close(fd);
    return {};
}

// --- Rights -------------------------------------------------------------------------------------

namespace {

// An errno. With `no_follow` a link is left alone, also one that has just taken the entry's place.
int chmod_one(int dir_fd, const char* name, uint32_t mode, bool is_dir, bool no_follow) {
    mode_t bits = mode & 07777;
    if (is_dir)
        bits |= (bits & 0444) >> 2;
    if (fchmodat(dir_fd, name, bits, no_follow ? AT_SYMLINK_NOFOLLOW : 0) == 0)
        return 0;
    const int code = errno;
    struct stat st = {};
    if (no_follow && code == EOPNOTSUPP && fstatat(dir_fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(st.st_mode))
        return 0;
    return code;
}

std::string failed(const char* key, const std::string& detail) {
    return tr(key) + (": " + detail);
}

}  // namespace

std::string set_permissions(const std::string& path, uint32_t mode, bool recursive) {
    Log::infof("chmod %04o%s %s", mode, recursive ? " -R" : "", path.c_str());
    std::string error;
    if (recursive)
        error = fsops::walk_apply(path, [mode](int dir_fd, const char* name, bool is_dir) {
            return chmod_one(dir_fd, name, mode, is_dir, true);
        });
    else if (const int code = chmod_one(AT_FDCWD, path.c_str(), mode, false, false); code != 0)
        error = fsops::err_from(path, code);
    return error.empty() ? error : failed("err.chmod_failed", error);
}

std::string set_owner(const std::string& path, const std::string& user, const std::string& group,
                      bool recursive) {
    auto uid = static_cast<uid_t>(-1);
    auto gid = static_cast<gid_t>(-1);
    if (!user.empty()) {
        const struct passwd* const account = getpwnam(user.c_str());
        if (!account)
            return failed("err.chown_failed", user);
        uid = account->pw_uid;
    }
    if (!group.empty()) {
        const struct group* const account = getgrnam(group.c_str());
        if (!account)
            return failed("err.chown_failed", group);
        gid = account->gr_gid;
    }
    if (user.empty() && group.empty())
        return {};
    Log::infof("chown %s:%s%s %s", user.c_str(), group.c_str(), recursive ? " -R" : "",
               path.c_str());
    std::string error;
    if (recursive)
        error = fsops::walk_apply(path, [uid, gid](int dir_fd, const char* name, bool) {
            return fchownat(dir_fd, name, uid, gid, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
        });
    else if (lchown(path.c_str(), uid, gid) != 0)
        error = fsops::err_from(path);
    return error.empty() ? error : failed("err.chown_failed", error);
}

// --- Properties, and the size of a folder -------------------------------------------------------

Properties properties_of(const FsEntry& entry, const std::string& dir) {
    Properties p;
    p.path = su::join_path(dir, entry.name);
    p.name = entry.name;
    p.is_dir = entry.kind == FsEntry::Kind::Dir;
    p.size = entry.size;
    p.mtime = entry.mtime;
    p.permissions = dir_lister::permission_string(entry);
    p.owner = entry.owner;
    p.group = entry.group;
    p.link_target = entry.link_target;
    p.free_space = fsops::free_space(dir);
    if (p.is_dir)
        folder_size::start(p.path);
    return p;
}

namespace folder_size {

namespace {

// One run. Its worker holds it as well, so that it may outlive the interest in it.
struct Sizing {
    std::atomic<bool> running{true};
    std::atomic<bool> done{false};
    std::atomic<bool> cancel{false};
    std::atomic<bool> incomplete{false};
    std::atomic<bool> ended{false};  // the worker does nothing any more
    std::atomic<int64_t> bytes{0};
    std::atomic<int64_t> files{0};
    std::atomic<int64_t> dirs{0};

    void count(int64_t new_bytes, int64_t new_files, int64_t new_dirs) {
        bytes.store(new_bytes);
        files.store(new_files);
        dirs.store(new_dirs);
    }
};

std::shared_ptr<Sizing> g_sizing;  // interface thread only; null before the first

void measure(Sizing& sizing, const std::string& path) {
    Log::name_this_thread("size");
    const fsops::TreeSize size = fsops::measure_tree(
        path, [&sizing] { return !sizing.cancel.load(); },
        [&sizing](int64_t bytes, int64_t files, int64_t dirs) {
            sizing.count(bytes, files, dirs);
        });
    if (!sizing.cancel.load()) {
        sizing.count(size.bytes, size.files, size.dirs);
        sizing.incomplete.store(size.unreadable > 0);
        sizing.done.store(true);
    }
    sizing.running.store(false);
    sizing.ended.store(true);
}

}  // namespace

void start(const std::string& path) {
    abandon();
    const auto sizing = std::make_shared<Sizing>();
    g_sizing = sizing;
    try {
        std::thread([sizing, path] { measure(*sizing, path); }).detach();
    } catch (const std::system_error& error) {
        // std::thread reports in no other way. What is shown is a count that has found nothing.
        Log::errorf("folder size: no thread: %s", error.what());
        sizing->incomplete.store(true);
        sizing->running.store(false);
        sizing->ended.store(true);
    }
}

void abandon() {
    if (!g_sizing)
        return;
    g_sizing->cancel.store(true);
    g_sizing->running.store(false);
}

void cancel() {
    constexpr int kWaitMs = 500;
    abandon();
    for (int i = 0; g_sizing && !g_sizing->ended.load() && i < kWaitMs; ++i)
        g_usleep(1000);
}

Status snapshot() {
    Status status;
    if (!g_sizing)
        return status;
    status.running = g_sizing->running.load();
    status.done = g_sizing->done.load();
    status.bytes = g_sizing->bytes.load();
    status.files = g_sizing->files.load();
    status.dirs = g_sizing->dirs.load();
    status.incomplete = g_sizing->incomplete.load();
    return status;
}

}  // namespace folder_size

// --- Trash, delete, duplicate -------------------------------------------------------------------

std::string move_to_trash(const std::string& path) {
    GError* error = nullptr;
    GFile* const file = g_file_new_for_path(path.c_str());
    const bool moved = g_file_trash(file, nullptr, &error) != FALSE;
    g_object_unref(file);
    if (moved)
        return {};
    std::string message = tr("err.trash_failed");
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED))
        message = tr("err.no_trash_here");
    else if (error)
        message = error->message;
    g_clear_error(&error);
    return message;
}

namespace {

// Whether an entry stands in the user's trash, whatever path leads there.
bool is_in_trash(const std::string& path) {
    const fsops::Stat folder = fsops::stat_path(su::parent_of(path));
    const fsops::Stat trash = fsops::stat_path(trash_dir());
    return folder.exists && trash.exists && folder.device == trash.device &&
           folder.inode == trash.inode;
}

// The record of where an entry of the trash came from, which goes with the entry.
void remove_trash_record(const std::string& name) {
    const std::string folder = su::join_path(su::parent_of(trash_dir()), "info");
    const std::string error = fsops::remove_file(su::join_path(folder, name + ".trashinfo"));
    // The entry itself is gone, which is what was asked for.
    if (!error.empty() && fsops::last_error_code() != ENOENT)
        Log::warnf("trash: %s", error.c_str());
}

// The job of start_delete().
class Delete {
  public:
    Delete(const std::vector<std::string>& paths, bool to_trash, BgTask::Reporter& reporter)
        : m_paths(paths), m_to_trash(to_trash), m_reporter(reporter) {}

    void run() {
        measure();
        for (size_t i = 0; i < m_paths.size() && m_reporter.keep_going(); ++i) {
            m_reporter.set_detail(m_paths[i]);
            Log::infof("delete %s: %s", m_to_trash ? "to trash" : "PERMANENTLY",
                       m_paths[i].c_str());
            const std::string error = m_to_trash ? trash(i) : remove(i);
            if (!error.empty())
                m_reporter.fail(error);
        }
        // What failed has had its share of the bar; what is told of a delete that was stopped is
        // what went.
        if (!m_reporter.keep_going())
            m_reporter.advance(-m_still_there);
    }

  private:
    void measure() {
        int64_t total = 0;
        for (const std::string& path : m_paths) {
            if (!m_reporter.keep_going())
                break;
            const fsops::TreeSize size =
                fsops::measure_tree(path, [this] { return m_reporter.keep_going(); }, {});
            m_counts.push_back(size.files + size.dirs);
            total += m_counts.back();
        }
        m_reporter.set_total(total);
    }

    std::string trash(size_t i) {
        std::string error = move_to_trash(m_paths[i]);
        // One call moves the whole tree.
        m_reporter.advance(m_counts[i]);
        if (!error.empty())
            m_still_there += m_counts[i];
        return error;
    }

    std::string remove(size_t i) {
        const std::string& path = m_paths[i];
        const bool has_record = is_in_trash(path);
        int64_t removed = 0;
        std::string error = fsops::remove_recursive(
            path,
            [&] {
                m_reporter.advance(1);
                ++removed;
            },
            [this] { return m_reporter.keep_going(); });
        if (has_record && !fsops::exists(path))
            remove_trash_record(su::basename_of(path));
        // So that the bar does not stall on failures.
        if (removed < m_counts[i]) {
            m_reporter.advance(m_counts[i] - removed);
            m_still_there += m_counts[i] - removed;
        }
        return error;
    }

    const std::vector<std::string>& m_paths;
    const bool m_to_trash;
    BgTask::Reporter& m_reporter;
    std::vector<int64_t> m_counts;  // entries of each path
    int64_t m_still_there = 0;      // told as done, but not gone
};

}  // namespace

bool start_delete(std::vector<std::string> paths, bool to_trash, const std::string& title) {
    return BgTask::instance().start(
        BgTask::Kind::Delete, title,
        [paths = std::move(paths), to_trash](BgTask::Reporter& reporter) {
            Delete(paths, to_trash, reporter).run();
        });
}

bool start_clone(const std::vector<std::string>& paths, int threads) {
    if (paths.empty())
        return false;
    return copy_engine::instance().start(paths, su::parent_of(paths.front()),
                                         copy_engine::Operation::Copy, threads,
                                         copy_engine::ConflictAction::RenameNew);
}

// --- Opening ------------------------------------------------------------------------------------

namespace {

// GIO's own call for this leaves no way to prepare the child, so its steps are taken one by one.
bool launch_default_for_uri(const char* uri, GError** error) {
    GFile* file = g_file_new_for_uri(uri);
    GAppInfo* app = g_file_query_default_handler(file, nullptr, nullptr);
    g_object_unref(file);
    bool launched = false;
    if (app && G_IS_DESKTOP_APP_INFO(app)) {
        char* const text = g_strdup(uri);
        GList* uris = g_list_append(nullptr, text);
        launched = g_desktop_app_info_launch_uris_as_manager(
            G_DESKTOP_APP_INFO(app), uris, nullptr, G_SPAWN_SEARCH_PATH,
            [](gpointer) { open_files::restore_limit(); }, nullptr, nullptr, nullptr, error);
        g_list_free_full(uris, g_free);
    } else {
        // In a sandbox it is the portal that launches, and no child of ours.
        launched = g_app_info_launch_default_for_uri(uri, nullptr, error);
    }
    g_clear_object(&app);
    return launched;
}

}  // namespace

std::string open_with_default_app(const std::string& path) {
    GError* error = nullptr;
    char* uri = g_filename_to_uri(path.c_str(), nullptr, &error);
    const bool opened = uri && launch_default_for_uri(uri, &error);
    g_free(uri);
    if (opened)
        return {};
    Log::warnf("open %s: %s", path.c_str(), error ? error->message : "unknown error");
    g_clear_error(&error);
    return tr("err.open_failed");
}

std::string open_address(const std::string& address) {
    GError* error = nullptr;
    if (launch_default_for_uri(address.c_str(), &error))
        return {};
    std::string text = error ? error->message : tr("err.open_failed");
    g_clear_error(&error);
    Log::warnf("open %s: %s", address.c_str(), text.c_str());
    return text;
}

// --- Terminal -----------------------------------------------------------------------------------

namespace {

// In the order in which they are looked for.
constexpr const char* kTerminals[] = {
    "x-terminal-emulator",
    "gnome-terminal",
    "konsole",
    "xfce4-terminal",
    "mate-terminal",
    "lxterminal",
    "tilix",
    "terminator",
    "kgx",
    "alacritty",
    "kitty",
    "foot",
    "wezterm",
    "urxvt",
    "st",
    "xterm",
};

// Empty for none.
std::string find_terminal() {
    const char* const chosen = g_getenv("TERMINAL");
    if (chosen && *chosen && in_search_path(chosen)) {
        Log::infof("terminal: %s (from $TERMINAL)", chosen);
        return chosen;
    }
    for (const char* name : kTerminals) {
        if (!in_search_path(name))
            continue;
        Log::infof("terminal: %s", name);
        return name;
    }
    Log::infof("terminal: %s", "(none found)");
    return {};
}

// How a terminal is told the folder, by words before it. One that is not here begins in the folder
// that it is started in.
struct TerminalFlags {
    std::string_view program;
    std::array<const char*, 2> words;  // null: none
    bool joined;                       // the last word, "=" and the folder are one word
};

constexpr TerminalFlags kFlags[] = {
    {"gnome-terminal", {"--working-directory"}, true},
    {"mate-terminal", {"--working-directory"}, true},
    {"xfce4-terminal", {"--working-directory"}, true},
    {"lxterminal", {"--working-directory"}, true},
    {"tilix", {"--working-directory"}, true},
    {"terminator", {"--working-directory"}, true},
    {"kgx", {"--working-directory"}, true},
    {"foot", {"--working-directory"}, true},
    {"alacritty", {"--working-directory"}, true},
    {"konsole", {"--workdir"}, false},
    {"kitty", {"--directory"}, false},
    {"wezterm", {"start", "--cwd"}, false},
};

// The name behind the links and the wrapper script of a program.
std::string real_name(const std::string& file) {
    char resolved[PATH_MAX] = "";
    std::string name = su::basename_of(realpath(file.c_str(), resolved) ? resolved : file);
    constexpr std::string_view kWrapper = ".wrapper";
    if (su::ends_with(name, kWrapper))
        name.resize(name.size() - kWrapper.size());
    return name;
}

std::vector<std::string> folder_words(const std::string& program, const std::string& dir) {
    std::vector<std::string> words;
    for (const TerminalFlags& flags : kFlags) {
        if (flags.program != program)
            continue;
        for (const char* word : flags.words)
            if (word)
                words.emplace_back(word);
        if (flags.joined)
            words.back() += "=" + dir;
        else
            words.push_back(dir);
    }
    return words;
}

}  // namespace

const char* terminal_program() {
    static const std::string program = find_terminal();
    return program.empty() ? nullptr : program.c_str();
}

std::string open_terminal_at(const std::string& dir) {
    const char* const program = terminal_program();
    if (!program)
        return tr("err.no_terminal");
    // The file found here is the one that is run. The child would search again, and by then it
    // stands in the folder, which may be one of the path's.
    char* const found = g_find_program_in_path(program);
    const std::string file = found ? found : program;
    g_free(found);
    std::vector<std::string> words = {file, program};
    for (std::string& word : folder_words(real_name(file), dir))
        words.push_back(std::move(word));
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const auto flags =
        static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_FILE_AND_ARGV_ZERO |
                                 G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    GError* error = nullptr;
    if (g_spawn_async(
            dir.c_str(), argv.data(), nullptr, flags, [](gpointer) { open_files::restore_limit(); },
            nullptr, nullptr, &error)) {
        Log::infof("terminal %s opened in %s", program, dir.c_str());
        return {};
    }
    const std::string message = error ? error->message : tr("err.no_terminal");
    g_clear_error(&error);
    Log::warnf("terminal %s in %s failed: %s", program, dir.c_str(), message.c_str());
    return message;
}

}  // namespace file_ops
