#include "paths.h"

#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <glib.h>
#include <pwd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* kHostFs = "/var/lib/snapd/hostfs";

// The variable's value, or empty when it is not set or empty.
std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

struct Account {
    std::string name;
    std::string home;
};

// The user's entry in the password database; empty texts when there is none. The reentrant call,
// because any thread may ask and getpwuid() answers all of them in one static buffer.
Account account_of(uid_t uid) {
    struct passwd entry = {};
    struct passwd* found = nullptr;
    std::vector<char> texts(1024);
    int error = 0;
    while ((error = getpwuid_r(uid, &entry, texts.data(), texts.size(), &found)) == ERANGE)
        texts.resize(texts.size() * 2);
    if (error != 0 || !found)
        return {};
    return {found->pw_name ? found->pw_name : "", found->pw_dir ? found->pw_dir : ""};
}

bool can_open_dir(const char* path) {
    DIR* dir = opendir(path);
    if (!dir)
        return false;
    closedir(dir);
    return true;
}

// path is root itself or lies below it.
bool is_at_or_below(const std::string& path, const std::string& root) {
    return path == root || su::starts_with(path, root + "/");
}

// What a Snap can open under its own name.
bool reachable_directly(const std::string& path) {
    const std::string home = real_home();
    if (!home.empty() && is_at_or_below(path, home))
        return true;
    return is_at_or_below(path, "/media") || is_at_or_below(path, "/mnt") ||
           is_at_or_below(path, "/run/media");
}

}  // namespace

// The kernel resolves the dots, since only it knows what ".." means behind a link.
std::string tidy_path(std::string path) {
    const std::string framed = path + "/";
    if (framed.find("/./") != std::string::npos || framed.find("/../") != std::string::npos) {
        char resolved[PATH_MAX];
        if (realpath(path.c_str(), resolved))
            path = resolved;
    }
    const auto twice = [](char a, char b) { return a == '/' && b == '/'; };
    path.erase(std::unique(path.begin(), path.end(), twice), path.end());
    if (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string real_home() {
    if (std::string home = env("SNAP_REAL_HOME"); !home.empty())
        return home;
    if (std::string home = env("HOME"); !home.empty())
        return home;
    return account_of(getuid()).home;
}

std::string trash_dir() {
    const char* data = g_get_user_data_dir();
    return data && *data ? su::join_path(data, "Trash/files") : "";
}

std::string config_dir() {
    std::string base;
    if (running_as_root() && !invoking_user().empty()) {
        const std::string home = account_of(0).home;
        if (su::starts_with(home, "/"))
            base = home + "/.config";
    }
    if (base.empty())
        base = env("XDG_CONFIG_HOME");
    if (base.empty()) {
        const std::string home = env("HOME");
        if (home.empty())
            return ".";
        base = home + "/.config";
    }
    const std::string dir = base + "/Ferrodeck";
    // Both usually exist already; what cannot be made shows when a file in it cannot be opened.
    mkdir(base.c_str(), 0700);
    mkdir(dir.c_str(), 0700);
    return dir;
}

bool running_in_snap() {
    static const bool answer = !env("SNAP").empty() && !env("SNAP_NAME").empty();
    return answer;
}

bool running_in_flatpak() {
    static const bool answer = [] {
        struct stat st = {};
        return stat("/.flatpak-info", &st) == 0;
    }();
    return answer;
}

bool running_as_root() {
    static const bool answer = geteuid() == 0;
    return answer;
}

std::string invoking_user() {
    if (std::string user = env("SUDO_USER"); !user.empty())
        return user;
    const std::string uid = env("PKEXEC_UID");
    if (uid.empty())
        return {};
    return account_of(static_cast<uid_t>(std::strtol(uid.c_str(), nullptr, 10))).name;
}

const char* package_kind() {
    static const char* const answer = [] {
        if (running_in_snap())
            return "snap";
        if (running_in_flatpak())
            return "flatpak";
        if (!env("APPDIR").empty() || !env("APPIMAGE").empty())
            return "appimage";
        char link[4096] = "";
        const ssize_t length = readlink("/proc/self/exe", link, sizeof link - 1);
        if (length < 0)
            return "system";
        const std::string_view exe(link, static_cast<size_t>(length));
        if (su::starts_with(exe, "/usr/bin/") || su::starts_with(exe, "/usr/local/bin/"))
            return "system";
        return "dev";
    }();
    return answer;
}

bool hostfs_available() {
    static const bool answer = running_in_snap() && can_open_dir(kHostFs);
    return answer;
}

bool removable_media_available() {
    static const bool answer = !running_in_snap() || can_open_dir("/media") ||
                               can_open_dir("/run/media") || can_open_dir("/mnt");
    return answer;
}

const char* snap_connect_command() {
    return "sudo sh -c 'for i in removable-media system-backup mount-observe; do snap connect "
           "ferrodeck:$i; done'";
}

bool in_search_path(const char* program) {
    char* const path = g_find_program_in_path(program);
    g_free(path);
    return path != nullptr;
}

std::string to_scan_path(const std::string& path) {
    if (!hostfs_available() || path.empty() || path[0] != '/')
        return path;
    if (reachable_directly(path) || is_at_or_below(path, kHostFs))
        return path;
    return path == "/" ? kHostFs : kHostFs + path;
}

std::string to_display_path(const std::string& path) {
    if (!su::starts_with(path, kHostFs))
        return path;
    std::string rest = path.substr(std::string_view(kHostFs).size());
    return rest.empty() ? "/" : rest;
}

bool is_writable_location(const std::string& path) {
    return !running_in_snap() || reachable_directly(path);
}
