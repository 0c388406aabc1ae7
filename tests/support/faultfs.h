// A pass-through FUSE file system over a backing folder whose calls fail, fall short or stall when
// a test says so. The server is a child process; it is steered through a socket and ends with the
// object, or with the test process whatever ends that.
//
// Nothing is cached: every call on the mount reaches the server, and reads and writes go to it as
// they were made. Operations by name: lookup, getattr, setattr (chmod, chown, truncate and utimens
// count under those names), open, create, read, write, flush (a close), release, unlink, rmdir,
// rename, mkdir, symlink, link, readlink, opendir, readdir, fallocate, lseek, copy_file_range,
// fsync, statfs, mknod.

#pragma once

#include "mounts_fixture.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace faultfs {

struct Fault {
    std::string op;
    std::string name = "*";  // fnmatch pattern for the entry's last component
    int from = 1;            // the first call concerned, counted from when the fault was set
    int count = -1;          // how many calls; -1: all that follow
    int error = 0;           // an errno to give
    bool stall = false;      // waits for release(), then goes on as usual (or gives error)
    bool deaf = false;       // the stall does not end when the caller is interrupted
    // The most bytes one read, write or copy_file_range moves, or entries one readdir gives.
    int64_t limit = 0;
};

Fault fail(const std::string& op, int error, int from = 1, int count = -1,
           const std::string& name = "*");
Fault stall(const std::string& op, int from = 1, int count = 1, const std::string& name = "*");
Fault limit(const std::string& op, int64_t most);

struct Options {
    std::string subtype = "faultfs";  // empty: the mount's type is plain "fuse"
    bool unknown_types = false;       // readdir tells no entry's kind
    bool fold_case = false;           // A and a are one name, kept as a
    bool keep_case = false;           // A and a are one name, kept as it was given
    std::string backing;              // empty: a folder of its own
};

class FaultFs : public mounts_fixture::Mount {
  public:
    explicit FaultFs(const Options& options = {});
    ~FaultFs();

    // The folder behind the mount, where a test looks without being disturbed.
    const std::string& backing() const { return m_backing; }

    void set(const Fault& fault);
    void clear();                          // no faults, no stalls, counters at zero
    void release();                        // lets the calls that stall go on
    int64_t calls(const std::string& op);  // since the start or the last clear()
    int stalled();                         // calls that stall right now
    bool wait_stalled(int at_least, int timeout_ms = 20000);
    // Ends the server as a crash would: every call on the mount fails from here on.
    void kill_server();

  private:
    std::string ask(const std::string& command);
    void start(const Options& options);

    std::string m_backing;
    int m_socket = -1;
    pid_t m_pid = -1;
};

}  // namespace faultfs
