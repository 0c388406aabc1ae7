#include "mounts.h"

#include "config_file.h"
#include "paths.h"
#include "strutil.h"

#include <array>
#include <sstream>
#include <unordered_set>

namespace mounts {

namespace {

bool is_octal(char c) {
    return c >= '0' && c <= '7';
}

// path is root itself or lies below it.
bool is_at_or_below(const std::string& path, const std::string& root) {
    return path == root || su::starts_with(path, root + "/");
}

// Trees of the system in which mounts are no storage of the user's.
constexpr std::array kNoise = {"/run", "/usr", "/etc", "/dev", "/proc", "/sys", "/boot", "/var"};

bool is_noise(const std::string& point) {
    if (is_at_or_below(point, "/run/media"))
        return false;
    for (const char* root : kNoise) {
        if (is_at_or_below(point, root))
            return true;
    }
    return false;
}

bool may_be_storage(const Mount& mount) {
    return !is_pseudo_fs(mount.fs_type) && mount.fs_type != "tmpfs" &&
           !is_at_or_below(mount.point, "/snap") && mount.fs_type != "squashfs" &&
           !is_at_or_below(mount.point, "/var/lib/snapd") &&
           !is_at_or_below(mount.point, "/var/snap") && !is_noise(mount.point);
}

}  // namespace

std::string unescape(const std::string& text) {
    std::string plain;
    plain.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && is_octal(text[i + 1]) &&
            is_octal(text[i + 2]) && is_octal(text[i + 3])) {
            const int value =
                (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
            plain.push_back(static_cast<char>(value));
            i += 3;
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

std::vector<Mount> parse_mountinfo(std::istream& in) {
    std::vector<Mount> table;
    std::string line;
    while (std::getline(in, line)) {
        // Optional fields stand between the sixth and the separator, so the separator is looked
        // for rather than counted to.
        std::vector<std::string> first;
        std::vector<std::string> second;
        bool separated = false;
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            if (!separated && word == "-")
                separated = true;
            else
                (separated ? second : first).push_back(std::move(word));
        }
        if (first.size() < 6 || second.size() < 2)
            continue;
        Mount mount;
        mount.point = unescape(first[4]);
        mount.fs_type = second[0];
        mount.source = unescape(second[1]);
        mount.read_only = first[5] == "ro" || su::starts_with(first[5], "ro,");
        table.push_back(std::move(mount));
    }
    return table;
}

std::vector<Mount> read_table() {
    // Not by a stream, whose descriptor the programs that are started would inherit.
    std::string text;
    static_cast<void>(config_file::read("/proc/self/mountinfo", text));
    std::istringstream in(text);
    return parse_mountinfo(in);
}

const std::vector<Mount>& all() {
    static const std::vector<Mount> table = read_table();
    return table;
}

const Mount* lookup(const std::vector<Mount>& table, const std::string& path) {
    const Mount* best = nullptr;
    size_t best_length = 0;
    for (const Mount& mount : table) {
        if (mount.point != "/" && !is_at_or_below(path, mount.point))
            continue;
        // Of equal points the later one lies on top.
        if (mount.point.size() >= best_length) {
            best = &mount;
            best_length = mount.point.size();
        }
    }
    return best;
}

const Mount* for_path(const std::string& path) {
    const auto is_more_than_root = [](const Mount* mount) {
        return mount && to_display_path(mount->point) != "/";
    };
    const Mount* found = lookup(all(), path);
    if (is_more_than_root(found))
        return found;
    // A Snap's own table does not list the host's mounts under the names that the user knows.
    for (const std::string& other : {to_scan_path(path), to_display_path(path)}) {
        if (other == path)
            continue;
        const Mount* there = lookup(all(), other);
        if (is_more_than_root(there))
            return there;
    }
    return found;
}

bool is_pseudo_fs(const std::string& fs_type) {
    // tmpfs is not among them: people keep files there.
    // Never destroyed: a thread of the drive list may still ask as the process ends.
    static const auto& types = *new std::unordered_set<std::string>{
        "proc",       "sysfs",     "devtmpfs",  "devpts",   "cgroup",      "cgroup2",
        "pstore",     "bpf",       "tracefs",   "debugfs",  "securityfs",  "configfs",
        "fusectl",    "hugetlbfs", "mqueue",    "efivarfs", "binfmt_misc", "autofs",
        "rpc_pipefs", "nsfs",      "selinuxfs", "ramfs",    "swap"};
    return types.contains(fs_type);
}

bool is_risky_fs(const std::string& fs_type) {
    static const auto& types = *new std::unordered_set<std::string>{
        "nfs",       "nfs4", "cifs",  "smb3",  "smbfs", "afs",      "ceph",
        "glusterfs", "9p",   "sshfs", "davfs", "ftpfs", "curlftpfs"};
    return types.contains(fs_type) || su::starts_with(fs_type, "fuse");
}

bool is_image_fs(const std::string& fs_type) {
    return fs_type == "squashfs" || fs_type == "erofs" || fs_type == "iso9660";
}

std::vector<Mount> scannable_roots_of(const std::vector<Mount>& table) {
    std::vector<Mount> roots;
    std::unordered_set<std::string> points;
    std::unordered_set<std::string> devices;
    for (const Mount& mount : table) {
        if (!may_be_storage(mount) || !points.insert(mount.point).second)
            continue;
        // Bind mounts and subvolumes show one device several times.
        if (su::starts_with(mount.source, "/dev/") && !devices.insert(mount.source).second)
            continue;
        roots.push_back(mount);
    }
    return roots;
}

std::vector<Mount> scannable_roots() {
    return scannable_roots_of(all());
}

}  // namespace mounts
