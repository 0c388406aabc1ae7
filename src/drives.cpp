#include "drives.h"

#include "fs_ops.h"
#include "i18n.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <glib.h>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace drives {

namespace {

using namespace std::chrono_literals;

// A drive that has not told its size by then gets it whenever it answers; the others' turn comes.
constexpr auto kPatience = 1s;
constexpr size_t kLongestLabel = 48;
constexpr size_t kCutLabel = 45;

// A thread that hangs outlives main(), so what it touches is never destroyed.
std::mutex& g_mutex = *new std::mutex;
std::vector<Drive>& g_drives = *new std::vector<Drive>;                // guarded by g_mutex
std::set<std::string>& g_being_measured = *new std::set<std::string>;  // guarded by g_mutex
std::atomic<bool> g_refreshing{false};

struct SpecialFolder {
    GUserDirectory directory;
    const char* key;
};

constexpr SpecialFolder kSpecialFolders[] = {
    {G_USER_DIRECTORY_DESKTOP, "drive.desktop"},     {G_USER_DIRECTORY_DOWNLOAD, "drive.downloads"},
    {G_USER_DIRECTORY_DOCUMENTS, "drive.documents"}, {G_USER_DIRECTORY_PICTURES, "drive.pictures"},
    {G_USER_DIRECTORY_MUSIC, "drive.music"},         {G_USER_DIRECTORY_VIDEOS, "drive.videos"},
};

constexpr std::array<std::string_view, 17> kNetworkTypes = {
    "nfs",        "nfs4",      "cifs",      "smb3",        "smbfs",
    "afs",        "ncpfs",     "9p",        "fuse.sshfs",  "fuse.gvfsd-fuse",
    "fuse.davfs", "davfs",     "fuse.s3fs", "fuse.rclone", "fuse.curlftpfs",
    "ceph",       "glusterfs",
};

Drive* find(std::vector<Drive>& list, const std::string& path) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Drive& drive) { return drive.path == path; });
    return found == list.end() ? nullptr : &*found;
}

void add_unique(std::vector<Drive>& list, Drive drive) {
    if (!find(list, drive.path))
        list.push_back(std::move(drive));
}

Kind kind_of(const mounts::Mount& mount) {
    if (mount.point == "/")
        return Kind::Root;
    if (is_network_fs(mount.fs_type) || su::starts_with(mount.fs_type, "fuse.gvfs"))
        return Kind::Network;
    for (const char* place : {"/media/", "/run/media/", "/mnt/"})
        if (su::starts_with(mount.point, place))
            return Kind::Removable;
    return Kind::Local;
}

std::string label_of(const mounts::Mount& mount) {
    if (mount.point == "/")
        return std::string(tr("drive.system")) + " (/)";
    std::string label = su::basename_of(mount.point);
    if (label.size() > kLongestLabel)
        label = su::truncate_utf8(label, kCutLabel) + "…";
    return label;
}

// A share's name is its scheme, a colon and settings: "smb-share:server=nas,share=films".
std::string label_of_share(const std::string& name) {
    const size_t colon = name.find(':');
    std::string label = colon == std::string::npos ? name : name.substr(colon + 1);
    std::replace(label.begin(), label.end(), ',', ' ');
    return label;
}

// The table may have changed since the program's start: a stick has been plugged in.
std::vector<Drive> current_skeleton() {
    return build_skeleton(mounts::scannable_roots_of(mounts::read_table()));
}

// A signal meant for the process, such as that a child has ended, would break off what a server is
// being asked. False when no thread can be had.
bool start_thread(std::function<void()> work) {
    try {
        std::thread([work = std::move(work)] {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, nullptr);
            work();
        }).detach();
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

void measure(const std::string& path) {
    int64_t total = 0;
    int64_t free = 0;
    // A drive that cannot tell shows no sizes.
    static_cast<void>(fsops::disk_space(path, total, free));
    const std::lock_guard lock(g_mutex);
    g_being_measured.erase(path);
    if (Drive* const drive = find(g_drives, path)) {
        drive->total_bytes = total;
        drive->free_bytes = free;
    }
}

// Nothing is asked of a drive that has not answered yet: each question would leave a thread.
void measure_with_patience(const std::string& path) {
    {
        const std::lock_guard lock(g_mutex);
        if (!g_being_measured.insert(path).second)
            return;
    }
    const auto answered = std::make_shared<std::promise<void>>();
    std::future<void> answer = answered->get_future();
    const bool started = start_thread([path, answered] {
        measure(path);
        answered->set_value();
    });
    if (started) {
        answer.wait_for(kPatience);
    } else {
        const std::lock_guard lock(g_mutex);
        g_being_measured.erase(path);
    }
}

// The names with the sizes known so far, then the sizes.
void refresh_now() {
    std::vector<Drive> fresh = current_skeleton();
    std::vector<std::string> paths;
    for (const Drive& drive : fresh)
        paths.push_back(drive.path);
    {
        const std::lock_guard lock(g_mutex);
        for (Drive& drive : fresh) {
            if (const Drive* const known = find(g_drives, drive.path)) {
                drive.total_bytes = known->total_bytes;
                drive.free_bytes = known->free_bytes;
            }
        }
        g_drives.swap(fresh);
    }
    for (const std::string& path : paths)
        measure_with_patience(path);
    g_refreshing = false;
}

}  // namespace

bool is_network_fs(const std::string& fs_type) {
    return std::find(kNetworkTypes.begin(), kNetworkTypes.end(), fs_type) != kNetworkTypes.end();
}

std::vector<Drive> build_skeleton(const std::vector<mounts::Mount>& roots) {
    std::vector<Drive> list;
    const std::string home = real_home();
    if (!home.empty())
        add_unique(list, {home, tr("drive.home"), "", Kind::Home});
    for (const SpecialFolder& special : kSpecialFolders) {
        const char* const path = g_get_user_special_dir(special.directory);
        if (path && path != home && fsops::lstat_path(path).exists)
            add_unique(list, {path, tr(special.key), "", Kind::Bookmark});
    }
    for (const mounts::Mount& mount : roots)
        add_unique(list, {mount.point, label_of(mount), mount.fs_type, kind_of(mount), 0, 0,
                          mount.read_only});
    const std::string shares = "/run/user/" + std::to_string(getuid()) + "/gvfs";
    for (const fsops::RawEntry& entry : fsops::list_dir_raw(shares).entries)
        add_unique(list, {su::join_path(shares, entry.name), label_of_share(entry.name), "gvfs",
                          Kind::Network});
    std::stable_sort(list.begin(), list.end(),
                     [](const Drive& a, const Drive& b) { return a.kind < b.kind; });
    return list;
}

void init() {
    refresh();
}

void refresh() {
    bool idle = false;
    if (!g_refreshing.compare_exchange_strong(idle, true))
        return;
    if (!start_thread(refresh_now))
        g_refreshing = false;
}

std::vector<Drive> list() {
    const std::lock_guard lock(g_mutex);
    if (g_drives.empty())
        g_drives = current_skeleton();
    return g_drives;
}

const Drive* holder_of(const std::vector<Drive>& list, const std::string& path) {
    const Drive* best = nullptr;
    for (const Drive& drive : list) {
        const bool holds =
            drive.path == "/" || path == drive.path || su::starts_with(path, drive.path + "/");
        if (holds && (!best || drive.path.size() > best->path.size()))
            best = &drive;
    }
    return best;
}

std::string label_for_path(const std::string& path) {
    const std::lock_guard lock(g_mutex);
    const Drive* const drive = holder_of(g_drives, path);
    return drive ? drive->label : "";
}

void shutdown_wait(int milliseconds) {
    constexpr int kStep = 10;
    for (int waited = 0; waited < milliseconds && g_refreshing; waited += kStep)
        std::this_thread::sleep_for(std::chrono::milliseconds(kStep));
}

}  // namespace drives
