// System calls that misbehave where no file system can make them: the kernel hands chosen calls of
// this process to a thread of the shim, whose rules carry them out, answer in their stead, let them
// wait, or do something else first (pull a file away between two steps of the code under test).
// It works below libc, so it makes no difference by which wrapper a call is made, nor whether a
// sanitizer stands in between.
//
// install() names the calls, once per process and before the threads that are to be watched; from
// then on their calls go through the shim until the process ends. Rules come and go. A rule runs on
// the shim's thread, which is itself not watched, and may read the caller's memory.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/syscall.h>
#include <sys/types.h>
#include <vector>

namespace shim {

struct Call {
    long number = 0;  // SYS_...
    uint64_t args[6] = {};
    pid_t thread = 0;
    int64_t nth = 0;  // among the calls that this rule matches, from 1

    int arg_fd(int index) const { return static_cast<int>(args[index]); }
    std::string arg_text(int index) const;  // a path or a name; empty for a null pointer
    // The last component of the file that a descriptor argument is open on.
    std::string arg_file(int index) const;
};

// What becomes of a call.
struct Answer {
    enum class Kind { Go, Give, Wait } kind = Kind::Go;
    int64_t value = 0;  // Give: the result, or a negative errno
};

Answer go();                 // carry it out
Answer give(int64_t value);  // the result, without carrying it out
Answer refuse(int error);    // the same with an errno
Answer wait();               // until release(), then as usual; a signal ends it with EINTR
// For close: carried out, and then reported as failed.
Answer close_and_refuse(const Call& call, int error);

using Action = std::function<Answer(const Call&)>;
using Match = std::function<bool(const Call&)>;

// Empty, or why the kernel does not let us.
std::string install(const std::vector<long>& numbers);

// Every rule whose number and match fit sees the call, in order, until one does not say Go.
void rule(long number, const Action& action, const Match& match = {});
// The nth matching call alone, or with count -1 all from there on, answered with an errno.
void fail(long number, int error, int64_t nth = 1, int64_t count = -1, const Match& match = {});
void clear();    // no rules, counters at zero; what waits goes on
void release();  // what waits goes on
int64_t calls(long number);
int waiting();
bool wait_waiting(int at_least, int timeout_ms = 20000);

// Matches for the calls that take them at these places.
Match path_ends(int index, const std::string& end);  // a path argument
Match on_file(int index, const std::string& name);   // a descriptor argument
// Calls by any thread but this one.
Match not_this_thread();

}  // namespace shim

#define REQUIRE_SHIM(...)                                                                          \
    do {                                                                                           \
        const std::string why_not = shim::install({__VA_ARGS__});                                  \
        if (!why_not.empty())                                                                      \
            GTEST_SKIP() << why_not;                                                               \
    } while (false)
