#include "mounts_fixture.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mounts_fixture {

namespace {

std::string errno_text(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

bool has_program(const std::string& name) {
    return test_env::run("command -v " + name + " || PATH=/usr/sbin:/sbin command -v " + name) == 0;
}

struct Kind {
    const char* name;
    const char* program;
    const char* options;
    off_t image_bytes;  // what the kind's mkfs asks for, and some room
};

constexpr Kind kKinds[] = {
    {"ext4", "mkfs.ext4", "-q -F", off_t{192} << 20},
    {"xfs", "mkfs.xfs", "-q -m reflink=1", off_t{384} << 20},
    {"btrfs", "mkfs.btrfs", "-q", off_t{256} << 20},
};

}  // namespace

std::string enter_namespace() {
    static const std::string reason = []() -> std::string {
        if (geteuid() != 0)
            return "mounting needs root";
        if (unshare(CLONE_NEWNS) != 0)
            return errno_text("no mount namespace of our own");
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return errno_text("the mount namespace cannot be made private");
        return {};
    }();
    return reason;
}

Mount::Mount() : m_point(m_dir / "m"), m_reason(enter_namespace()) {
    mkdir(m_point.c_str(), 0755);
    // Ordinary users must get through to the mount.
    chmod(m_dir.path().c_str(), 0755);
}

Mount::~Mount() {
    unmount();
}

void Mount::unmount() {
    if (!m_mounted)
        return;
    m_mounted = false;
    if (umount2(m_point.c_str(), UMOUNT_NOFOLLOW) != 0)
        umount2(m_point.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
}

Tmpfs::Tmpfs(const std::string& options) {
    if (!ok())
        return;
    m_mounted = ::mount("tmpfs", m_point.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (!m_mounted)
        m_reason = errno_text("no tmpfs");
}

LoopImage::LoopImage(const std::string& kind, const std::string& mkfs_options) {
    if (!ok())
        return;
    const Kind* found = nullptr;
    for (const Kind& each : kKinds) {
        if (kind == each.name)
            found = &each;
    }
    if (!found || !has_program(found->program)) {
        m_reason = "no mkfs for " + kind;
        return;
    }
    const std::string image = m_dir / "image";
    const int fd = open(image.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, found->image_bytes) != 0) {
        m_reason = errno_text("no image for " + kind);
        if (fd >= 0)
            close(fd);
        return;
    }
    close(fd);
    // mount sets the loop device to free itself, so it is gone with the namespace at the latest.
    std::string output;
    const std::string command = "export PATH=$PATH:/usr/sbin:/sbin; " +
                                std::string(found->program) + " " + found->options + " " +
                                mkfs_options + " " + quoted(image) + " && mount -n -o loop -t " +
                                kind + " " + quoted(image) + " " + quoted(m_point);
    m_mounted = test_env::run(command, &output) == 0;
    if (!m_mounted)
        m_reason = "no loop mount of " + kind + ": " + output;
}

Bind::Bind(const std::string& folder) : Bind(folder, {}) {}

Bind::Bind(const std::string& folder, const std::string& point) {
    if (!point.empty())
        m_point = point;
    if (!ok())
        return;
    m_mounted = ::mount(folder.c_str(), m_point.c_str(), nullptr, MS_BIND, nullptr) == 0;
    if (!m_mounted)
        m_reason = errno_text("no bind mount of " + folder);
}

}  // namespace mounts_fixture
