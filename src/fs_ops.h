// The operating system's file calls, as the transfer engine and the file operations need them.
// Paths are absolute byte strings. A function that can fail returns the text to show, empty for
// success; nothing throws. Every function may be called from any thread at once.

#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace fsops {

// What a stat call found. exists is false when the call failed, and all else is then zero.
struct Stat {
    bool exists = false;
    bool is_dir = false;
    bool is_symlink = false;
    int64_t size = 0;   // bytes
    int64_t mtime = 0;  // seconds since the epoch
    uint32_t perm = 0;  // the low twelve mode bits
    uint64_t device = 0;
    bool is_regular = false;
    uint64_t inode = 0;
};

struct TreeSize {
    int64_t bytes = 0;
    int64_t files = 0;
    int64_t dirs = 0;
    int64_t unreadable = 0;  // folders that could not be opened
};

struct RawEntry {
    std::string name;  // the raw bytes
    bool is_dir = false;
    bool is_symlink = false;
    int64_t size = 0;
    uint64_t inode = 0;   // 0: not looked at
    uint64_t device = 0;  // 0: not looked at
    uint32_t nlink = 1;
    bool is_special = false;  // neither folder, symbolic link nor regular file
};

struct RawListing {
    std::vector<RawEntry> entries;  // in the operating system's order
    std::string error;              // a listing that broke off keeps what it read
};

enum class DeviceClass {
    Unknown = 0,
    Rotational = 1,
    Ssd = 2,
    Nvme = 3,
    Network = 4,
    Memory = 5,
};

// Texts of failures that no system call is behind.
inline constexpr const char* kSameFile = "source and target are the same file";
inline constexpr const char* kInTheWay = "a file with this name is in the way";

// One file's identity on this machine.
struct FileId {
    uint64_t device = 0;
    uint64_t inode = 0;
    auto operator<=>(const FileId&) const = default;
};

// --- Errors -------------------------------------------------------------------------------------

// The errno that the last failing call of this thread recorded. Failures that no system call is
// behind ("cancelled" and its like) leave the older value standing.
[[nodiscard]] int last_error_code();

// Keeps a failed call's errno for last_error_code() and makes its text, "path: reason". The form
// without a code reads errno.
[[nodiscard]] std::string err_from(const std::string& path);
[[nodiscard]] std::string err_from(const std::string& path, int code);

// Whether trying again may help. Everything else is permanent, a full disk included.
[[nodiscard]] bool is_transient(int code);

// --- Single calls -------------------------------------------------------------------------------

[[nodiscard]] Stat lstat_path(const std::string& path);
[[nodiscard]] Stat stat_path(const std::string& path);
[[nodiscard]] bool exists(const std::string& path);  // a dangling link exists

// An existing folder counts as success.
[[nodiscard]] std::string make_dir(const std::string& path, uint32_t mode);
// Makes what is missing of an absolute path. Nothing is rolled back.
[[nodiscard]] std::string make_dirs(const std::string& path, uint32_t mode);
[[nodiscard]] std::string remove_file(const std::string& path);
[[nodiscard]] std::string remove_dir(const std::string& path);
[[nodiscard]] std::string rename_path(const std::string& from, const std::string& to);
// Never replaces what stands at `to`: that is EEXIST in last_error_code(). Where the kernel cannot
// promise this, the name is taken by an empty entry first, which is then replaced; and where that
// cannot be done either, an ordinary rename follows a look at the name.
[[nodiscard]] std::string rename_no_replace(const std::string& from, const std::string& to);
[[nodiscard]] std::string make_symlink(const std::string& link_text, const std::string& path);
[[nodiscard]] std::string read_link(const std::string& path, std::string& out);
// The same for an entry of an open folder; path is for messages.
[[nodiscard]] std::string read_link_at(int dir_fd, const char* name, const std::string& path,
                                       std::string& out);

// Whether a rename would leave its file system. A path that cannot be examined counts as crossing,
// which sends the caller to the copy that works everywhere.
[[nodiscard]] bool rename_would_cross_device(const std::string& from, const std::string& to);

// Free bytes for ordinary users, -1 on failure.
[[nodiscard]] int64_t free_space(const std::string& path);
// False on failure, both then untouched.
[[nodiscard]] bool disk_space(const std::string& path, int64_t& total, int64_t& free);

// A name that a folder can hold: not empty, not "." or "..", no slash, no NUL, under 256 bytes.
[[nodiscard]] bool is_valid_name(const std::string& name);

// The sum of two sizes in bytes, neither negative. It ends at the largest number: sparse files may
// be of any size, and two of the largest are more than that.
[[nodiscard]] int64_t add_sizes(int64_t a, int64_t b);

// --- Trees --------------------------------------------------------------------------------------

using KeepGoing = std::function<bool()>;

// Removes a file or a whole tree, working through folder descriptors, so that no link is followed
// and no depth is too deep. A failing entry does not stop the rest; the first error is the result.
// on_removed is called once for each entry that really went. A mount point inside the tree is not
// entered: it fails with "this folder is a mount point". keep_going false ends the walk.
std::string remove_recursive(const std::string& path, const std::function<void()>& on_removed,
                             const KeepGoing& keep_going = {});

// Counts a tree without following links. on_progress gets the running bytes, files and dirs of the
// whole tree, every 64 names of a folder and at each folder's end. Either callable may be empty.
[[nodiscard]] TreeSize
measure_tree(const std::string& path, const KeepGoing& keep_going,
             const std::function<void(int64_t bytes, int64_t files, int64_t dirs)>& on_progress);

// Does something with an entry of an open folder; the answer is an errno, 0 for success.
using ApplyToEntry = std::function<int(int dir_fd, const char* name, bool is_dir)>;

// Applies to every entry of a tree, what stands in a folder before the folder itself. Symbolic
// links are left out, also for path itself, and no link is followed on the way. A failing entry
// does not stop the rest; the first error is the result.
[[nodiscard]] std::string walk_apply(const std::string& path, const ApplyToEntry& apply);

// The names of one folder, with a stat only where the kind or the size asks for one.
[[nodiscard]] RawListing list_dir_raw(const std::string& path);
// The same for an open folder, whose descriptor stays the caller's; path is for messages alone.
// keep_going false ends an opening that a signal interrupts.
[[nodiscard]] RawListing list_dir_raw_at(int dir_fd, const std::string& path,
                                         const KeepGoing& keep_going = {});

// --- Copying one file ---------------------------------------------------------------------------

// Asked with the bytes done since the last call (0: a sign of life). False stops the copy.
using CopyProgress = std::function<bool(int64_t bytes)>;

// A whole-file reflink under the target's name, replacing what is there. The texts are internal
// and last_error_code() is not touched.
[[nodiscard]] std::string clone_file(const std::string& source, const std::string& target);

// Copies a regular file with its mode and times, by reflink where the file system has it, sparse
// where the source is. An existing target is removed once the source is open; what it linked to is
// not touched. A failed copy leaves no target. A stop by on_progress before the start gives
// "cancelled"; a stop in mid-copy removes the target and returns EMPTY: the caller knows why it
// stopped. cloned may be null.
[[nodiscard]] std::string copy_file(const std::string& source, const std::string& target,
                                    const CopyProgress& on_progress, bool* cloned);

// An entry of an open folder. The descriptor and the texts stay the caller's; path is the entry's
// full path, for messages.
struct Place {
    int dir_fd = -1;  // AT_FDCWD: name is a full path
    const char* name = nullptr;
    const std::string* path = nullptr;
};

struct CopyJob {
    Place source;
    Place target;
    // Remove what stands at the target. Cleared as soon as it is removed, so that a later attempt
    // never removes what somebody else has put there since.
    bool replace = false;
    bool known_regular = false;  // the caller has looked: the source is opened without a stat first
    bool follow_source = false;  // a source that is a link means what it points to
    // Look for bytes past the recorded end, as a move must before it lets the source go.
    bool check_past_end = false;
    const CopyProgress* on_progress = nullptr;
    // Called right before the target is created and right after, with its identity (zeros when the
    // creation failed). Either may be null.
    const std::function<void()>* before_create = nullptr;
    const std::function<void(FileId)>* after_create = nullptr;
};

struct CopyOutcome {
    std::string error;  // empty: done, or stopped in mid-copy
    bool cloned = false;
    bool stopped = false;        // on_progress said so in mid-copy; the target is gone
    bool target_exists = false;  // the name was taken at creation; nothing was touched
    int left_behind = 0;         // stopped, but this errno kept the target's part where it is
    bool early_end = false;      // the source ended before its recorded size
    bool grew = false;           // the source has bytes past its recorded size
    FileId source_id;            // what was copied, as it was when the copy began
    int64_t source_size = 0;
    struct timespec source_mtime = {};
    FileId target_id;
};

// The copy behind copy_file(), relative to folder descriptors. Neither end follows a link in its
// last component, and the target is always created anew (O_EXCL).
[[nodiscard]] CopyOutcome copy_file_at(CopyJob& job);

// --- Devices (which workers a transfer gets)
// ------------------------------------------------------

[[nodiscard]] DeviceClass classify_device(const std::string& path);
[[nodiscard]] const char* device_class_name(DeviceClass cls);
// CPUs that this process may run on, at least 1.
[[nodiscard]] int cpu_cores();
// The count for two classes on so many cores.
[[nodiscard]] int threads_for(DeviceClass source, DeviceClass target, int cores);
// The worker count of a transfer. requested above 0 is taken as it is, at most 32.
[[nodiscard]] int recommended_threads(const std::string& source, const std::string& target,
                                      int requested);

}  // namespace fsops
