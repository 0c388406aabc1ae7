// Single file calls and device classes on Linux.

#include "fs_ops.h"

#include "mounts.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace fsops {

namespace {

thread_local int t_last_error = 0;

Stat to_stat(const struct stat& st) {
    Stat result;
    result.exists = true;
    result.is_dir = S_ISDIR(st.st_mode);
    result.is_symlink = S_ISLNK(st.st_mode);
    result.size = st.st_size;
    result.mtime = st.st_mtim.tv_sec;
    result.perm = st.st_mode & 07777;
    result.device = st.st_dev;
    result.is_regular = S_ISREG(st.st_mode);
    result.inode = st.st_ino;
    return result;
}

std::string result_of(int returned, const std::string& path) {
    return returned == 0 ? std::string() : err_from(path);
}

// An errno. Takes the name first, by a call that fails for a name that is taken, and then replaces
// what it has put there. Without a claim that holds nothing is left behind.
int rename_onto_claim(const std::string& from, const std::string& to) {
    struct stat source = {};
    if (lstat(from.c_str(), &source) != 0)
        return errno;
    const bool folder = S_ISDIR(source.st_mode);
    if (folder) {
        if (mkdir(to.c_str(), 0700) != 0)
            return errno;
    } else {
        const int fd = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0)
            return errno;
        close(fd);
    }
    if (std::rename(from.c_str(), to.c_str()) == 0)
        return 0;
    // Not every file system can replace what is there.
    const int code = errno;
    struct stat claim = {};
    if (folder)
        rmdir(to.c_str());
    else if (lstat(to.c_str(), &claim) == 0 && S_ISREG(claim.st_mode) && claim.st_size == 0)
        unlink(to.c_str());
    return code == EEXIST ? ENOTSUP : code;
}

}  // namespace

std::string err_from(const std::string& path) {
    return err_from(path, errno);
}

std::string err_from(const std::string& path, int code) {
    t_last_error = code;
    return path + ": " + std::strerror(code);
}

int last_error_code() {
    return t_last_error;
}

Stat lstat_path(const std::string& path) {
    struct stat st = {};
    return lstat(path.c_str(), &st) == 0 ? to_stat(st) : Stat();
}

Stat stat_path(const std::string& path) {
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 ? to_stat(st) : Stat();
}

bool exists(const std::string& path) {
    struct stat st = {};
    return lstat(path.c_str(), &st) == 0;
}

std::string make_dir(const std::string& path, uint32_t mode) {
    if (mkdir(path.c_str(), mode & 07777) == 0)
        return {};
    const int code = errno;
    if (code == EEXIST && stat_path(path).is_dir)
        return {};
    return err_from(path, code);
}

std::string remove_file(const std::string& path) {
    return result_of(unlink(path.c_str()), path);
}

std::string remove_dir(const std::string& path) {
    return result_of(rmdir(path.c_str()), path);
}

std::string rename_path(const std::string& from, const std::string& to) {
    return result_of(std::rename(from.c_str(), to.c_str()), from);
}

std::string rename_no_replace(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return {};
    const int code = errno;
    if (code != EINVAL && code != ENOSYS && code != EOPNOTSUPP)
        return err_from(from, code);
    if (const int claimed = rename_onto_claim(from, to); claimed == 0)
        return {};
    else if (claimed == EEXIST || claimed == ENOENT)
        return err_from(from, claimed);
    if (exists(to))
        return err_from(from, EEXIST);
    return rename_path(from, to);
}

std::string make_symlink(const std::string& link_text, const std::string& path) {
    return result_of(symlink(link_text.c_str(), path.c_str()), path);
}

std::string read_link(const std::string& path, std::string& out) {
    return read_link_at(AT_FDCWD, path.c_str(), path, out);
}

std::string read_link_at(int dir_fd, const char* name, const std::string& path, std::string& out) {
    constexpr size_t kLargestGrown = 1048576;
    std::string buffer(1024, '\0');
    for (;;) {
        const ssize_t length = readlinkat(dir_fd, name, buffer.data(), buffer.size());
        if (length < 0)
            return err_from(path);
        if (static_cast<size_t>(length) < buffer.size()) {
            out.assign(buffer, 0, static_cast<size_t>(length));
            return {};
        }
        if (buffer.size() > kLargestGrown)
            return path + ": symlink target too long";
        buffer.assign(buffer.size() * 2, '\0');
    }
}

bool rename_would_cross_device(const std::string& from, const std::string& to) {
    const std::string parent = su::parent_of(to);
    const uint64_t source = lstat_path(from).device;
    const uint64_t target = stat_path(parent.empty() ? "/" : parent).device;
    return source == 0 || target == 0 || source != target;
}

int64_t free_space(const std::string& path) {
    int64_t total = 0;
    int64_t free = -1;
    return disk_space(path, total, free) ? free : -1;
}

bool disk_space(const std::string& path, int64_t& total, int64_t& free) {
    struct statvfs vfs = {};
    if (statvfs(path.c_str(), &vfs) != 0)
        return false;
    total = static_cast<int64_t>(vfs.f_blocks * vfs.f_frsize);
    free = static_cast<int64_t>(vfs.f_bavail * vfs.f_frsize);
    return true;
}

// --- Devices ------------------------------------------------------------------------------------

namespace {

bool is_network_type(const std::string& fs_type) {
    for (const char* type :
         {"nfs", "nfs4", "cifs", "smb3", "smbfs", "afs", "9p", "ceph", "glusterfs"}) {
        if (fs_type == type)
            return true;
    }
    // A bare "fuse" says nothing about what lies behind it, so it is judged by its device.
    constexpr std::string_view kFuse = "fuse.";
    return fs_type.size() > kFuse.size() && su::starts_with(fs_type, kFuse);
}

// The kernel's name of the whole disk that a partition belongs to.
std::string whole_disk(const std::string& name) {
    constexpr std::string_view kCard = "mmcblk";
    if (name.size() > 5 && su::starts_with(name, kCard)) {
        const size_t partition = name.rfind('p');
        return partition == std::string::npos ? name : name.substr(0, partition);
    }
    const size_t last = name.find_last_not_of("0123456789");
    return last == std::string::npos ? name : name.substr(0, last + 1);
}

DeviceClass class_of_rotational_file(const std::string& disk) {
    const std::string path = "/sys/block/" + disk + "/queue/rotational";
    std::FILE* file = std::fopen(path.c_str(), "re");
    if (!file)
        return DeviceClass::Unknown;
    char line[64] = "";
    const bool read = std::fgets(line, sizeof line, file) != nullptr;
    std::fclose(file);
    std::string value = read ? line : "";
    while (!value.empty() && (value.back() == '\n' || value.back() == ' '))
        value.pop_back();
    if (value == "1")
        return DeviceClass::Rotational;
    return value == "0" ? DeviceClass::Ssd : DeviceClass::Unknown;
}

}  // namespace

DeviceClass classify_device(const std::string& path) {
    if (const mounts::Mount* mount = mounts::for_path(path)) {
        if (is_network_type(mount->fs_type))
            return DeviceClass::Network;
        if (mount->fs_type == "tmpfs" || mount->fs_type == "ramfs")
            return DeviceClass::Memory;
    }
    struct stat st = {};
    if (stat(path.c_str(), &st) != 0 || major(st.st_dev) == 0)
        return DeviceClass::Unknown;
    const std::string link = "/sys/dev/block/" + std::to_string(major(st.st_dev)) + ":" +
                             std::to_string(minor(st.st_dev));
    char resolved[PATH_MAX] = "";
    if (!realpath(link.c_str(), resolved))
        return DeviceClass::Unknown;
    const std::string name = su::basename_of(resolved);
    if (name.size() > 3 && su::starts_with(name, "nvme"))
        return DeviceClass::Nvme;
    return class_of_rotational_file(whole_disk(name));
}

int cpu_cores() {
    cpu_set_t* set = CPU_ALLOC(1024);
    int cores = 0;
    if (set) {
        const size_t size = CPU_ALLOC_SIZE(1024);
        CPU_ZERO_S(size, set);
        if (sched_getaffinity(0, size, set) == 0)
            cores = CPU_COUNT_S(size, set);
        CPU_FREE(set);
    }
    if (cores <= 0)
        cores = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    return std::max(cores, 1);
}

}  // namespace fsops
