// Shared by the modules of the transfer engine, and by nobody else.

#pragma once

#include "copy_engine.h"

#include <atomic>
#include <sys/stat.h>

namespace copy_engine {

inline constexpr const char* kIntoItself = "cannot copy a folder into itself";

// Steady clock, seconds.
[[nodiscard]] double steady_seconds();

// Waits as long as is due before an attempt, counted from 1. A signal does not shorten it.
void wait_before_attempt(int number);

// The last component of a path that does not end in a slash; points into the path.
[[nodiscard]] inline const char* name_in(const std::string& path) {
    return path.c_str() + path.rfind('/') + 1;
}

[[nodiscard]] inline fsops::FileId id_of(const struct stat& st) {
    return {st.st_dev, st.st_ino};
}

// Adds to a counter of bytes, which ends at the largest number as the sums of sizes do.
inline void add_bytes(std::atomic<int64_t>& counter, int64_t bytes) {
    int64_t before = counter.load(std::memory_order_relaxed);
    while (!counter.compare_exchange_weak(before, fsops::add_sizes(before, bytes),
                                          std::memory_order_relaxed)) {
    }
}

// Opens a folder for openat() and its kin alone. -1 and errno on failure. A wake signal asks
// `going` with 0 whether to try again; EINTR is the answer if not.
[[nodiscard]] int open_folder(int dir_fd, const char* name, bool follow_link,
                              const fsops::CopyProgress& going);

// The same for a folder that the scanner has seen as `id`. Where a file's number changes whenever
// the kernel drops it from memory, one with another number is believed if none of the last `below`
// components of its path is a link. `replaced` is set when what stands there is another folder.
[[nodiscard]] int open_seen_folder(const std::string& path, fsops::FileId id, size_t below,
                                   const fsops::CopyProgress& going, bool& replaced);

// Descriptors of the folder that was used last, on both sides. A folder is believed only while it
// is the one that the scanner saw, whatever stands on the way to it by now.
class Engine::OpenFolder {
  public:
    OpenFolder() = default;
    ~OpenFolder() { close_both(); }
    OpenFolder(const OpenFolder&) = delete;
    OpenFolder& operator=(const OpenFolder&) = delete;

    // Makes `folder` the open one. The error text (with its code in last_error_code()), or empty.
    // going: as for open_folder().
    [[nodiscard]] std::string enter(const Folder& folder, const fsops::CopyProgress& going);
    // Lets go of the descriptors: the next enter() opens the folder anew.
    void leave() { close_both(); }
    [[nodiscard]] int source_fd() const { return m_source_fd; }
    [[nodiscard]] int target_fd() const { return m_target_fd; }

  private:
    [[nodiscard]] static std::string open_checked(const std::string& path, fsops::FileId id,
                                                  size_t below, const fsops::CopyProgress& going,
                                                  int& fd);
    void close_both();

    const Folder* m_folder = nullptr;
    int m_source_fd = -1;
    int m_target_fd = -1;
};

// What a worker keeps between files.
struct Engine::Worker {
    int slot = 0;
    FileTask task;
    OpenFolder folder;
    bool claimed = false;    // the task's own target was taken for it with the task
    bool keep_both = false;  // the task's answer: taken names are passed over without a question

    // The source as it was when the copy began, for the look before it is removed.
    fsops::FileId source_id;
    int64_t source_size = 0;
    struct timespec source_mtime = {};
    bool torn = false;        // the source ended early or had bytes past its end
    fsops::FileId target_id;  // what the last attempt left at the target; zeros for nothing

    fsops::CopyProgress on_progress;
    std::function<void()> before_create;
    std::function<void(fsops::FileId)> after_create;
};

}  // namespace copy_engine
