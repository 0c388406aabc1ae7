// File systems of a test's own: a tmpfs of a given size, ext4, xfs and btrfs in loop images, bind
// mounts. They live in a mount namespace of the test process, so nothing outlives it, however it
// ends; a loop device frees itself with its last user.
//
// Mount before anything classifies a path: the program reads the mount table once per process.
// Make the first mount before the first thread: a namespace belongs to the thread that made it and
// to the threads that this one starts afterwards.

#pragma once

#include "test_env.h"

#include <string>

namespace mounts_fixture {

// Moves this process into a mount namespace of its own, once. Empty, or why it cannot be.
std::string enter_namespace();

// A mount for the life of the object. Ask reason() first: a test that cannot have its file system
// is skipped with it.
class Mount {
  public:
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;
    ~Mount();

    bool ok() const { return m_reason.empty(); }
    const std::string& reason() const { return m_reason; }
    const std::string& path() const { return m_point; }
    std::string operator/(const std::string& name) const { return m_point + "/" + name; }
    // Takes it away before its time, as a pulled plug does. With what is still open left usable.
    void unmount();

  protected:
    Mount();

    test_env::TempDir m_dir;  // holds the mount point "m" and an image
    std::string m_point;
    std::string m_reason;
    bool m_mounted = false;
};

class Tmpfs : public Mount {
  public:
    explicit Tmpfs(const std::string& options = "size=16m");
};

class LoopImage : public Mount {
  public:
    // ext4, xfs (with reflinks) or btrfs, in a sparse image big enough for that kind.
    explicit LoopImage(const std::string& kind, const std::string& mkfs_options = {});
};

class Bind : public Mount {
  public:
    explicit Bind(const std::string& folder);
    // Over an existing folder.
    Bind(const std::string& folder, const std::string& point);
};

}  // namespace mounts_fixture

// Ends the test as skipped when the file system could not be mounted.
#define REQUIRE_MOUNT(mount)                                                                       \
    do {                                                                                           \
        if (!(mount).ok())                                                                         \
            GTEST_SKIP() << (mount).reason();                                                      \
    } while (false)
