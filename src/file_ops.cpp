#include "file_ops.h"

#include "copy_engine.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "open_files.h"
#include "paths.h"
#include "strutil.h"

#include <cerrno>
#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

namespace file_ops {

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
    if (name != current && fsops::exists(su::join_path(dir, name)))
        return tr("err.name_exists");
    return {};
}

std::string rename_entry(const std::string& path, const std::string& new_name) {
    const std::string dir = su::parent_of(path);
    const std::string old_name = su::basename_of(path);
    std::string refusal = validate_name(dir, new_name, old_name);
    if (!refusal.empty() || new_name == old_name)
        return refusal;
    std::string error = fsops::rename_no_replace(path, su::join_path(dir, new_name));
    // Somebody took the name between the look and the rename.
    if (!error.empty() && fsops::last_error_code() == EEXIST)
        return tr("err.name_exists");
    return error;
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

bool start_clone(const std::vector<std::string>& paths, int threads) {
    if (paths.empty())
        return false;
    return copy_engine::instance().start(paths, su::parent_of(paths.front()),
                                         copy_engine::Operation::Copy, threads,
                                         copy_engine::ConflictAction::RenameNew);
}

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

const char* terminal_program() {
    static const std::string program = find_terminal();
    return program.empty() ? nullptr : program.c_str();
}

}  // namespace file_ops
