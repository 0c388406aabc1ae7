// Repeats single operations with root's rights: a small installed program, the helper, is started
// by pkexec once the user has given a password, takes a batch of operations on its standard input
// and answers each.
//
// Looks at the disk with each question: for a command of the user's, not for a frame. Interface
// thread.

#pragma once

#include <string>
#include <vector>

namespace elevate {

enum class Availability { Yes = 0, AlreadyRoot = 1, NoPkexec = 2, NoHelper = 3, Sandboxed = 4 };

struct Job {
    enum class Kind { Copy = 0, MakeDir = 1, Remove = 2, Chmod = 3, Chown = 4 };

    Kind kind = Kind::Copy;
    std::string source;  // of a Copy
    std::string target;  // full path
    unsigned mode = 0;   // of a MakeDir or Chmod
    long uid = -1;       // these two of a Chown; -1: unchanged
    long gid = -1;
};

struct Result {
    bool ok = false;
    std::string path;   // the job's target
    std::string error;  // empty on success
};

[[nodiscard]] Availability availability();
// In words for the user; empty when it is available, or when we are root anyway.
[[nodiscard]] std::string unavailable_reason();
// Where the helper is, or empty.
[[nodiscard]] std::string helper_path();

// One result per job, in the jobs' order; none when the user has declined to give a password or
// pkexec could not start the helper, which sets *declined, or after abandon(). Returns once the
// helper has ended, however long the password takes: until then it runs the default main loop, so
// that the window is painted and the desktop finds it alive. The caller sees to it that nothing
// else is commanded meanwhile. No result is lost by a helper that dies: the jobs without an answer
// say so.
[[nodiscard]] std::vector<Result> run(const std::vector<Job>& jobs, bool* declined = nullptr);

// Lets a run() return that waits further out, since the program is to end. What has been asked for
// may still be carried out.
void abandon();

}  // namespace elevate
