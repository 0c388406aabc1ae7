// An archiver run as a child, for the jobs and the listing. It speaks no language but C.UTF-8, has
// nothing to read, and is the leader of a session of its own, so that it finds no terminal to ask
// for a password on and can be ended with all it has started. Blocks; not for the interface thread.

#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace archive_ops {

// Cuts a stream into lines, without their ends "\n" or "\r\n". Of a line past kMaxLine bytes only
// these are kept, so that a stream without lines does not fill the memory.
class LineCutter {
  public:
    using OnLine = std::function<void(const std::string& line)>;
    static constexpr size_t kMaxLine = 65536;

    explicit LineCutter(OnLine on_line) : m_on_line(std::move(on_line)) {}
    void add(std::string_view bytes);
    // The end of the stream: what is left is a line.
    void finish();

  private:
    void append(std::string_view part);
    void give();

    OnLine m_on_line;
    std::string m_rest;
    bool m_open = false;  // something of the line has been seen
};

struct Child {
    std::vector<std::string> argv;  // argv[0] is searched for in the path
    std::string cwd;                // empty: ours
    // False: stop the child. Asked five times a second, and whenever there is something to read.
    std::function<bool()> keep_going;
    // A descriptor that becomes readable when keep_going is to be asked at once; -1: none.
    int wake_fd = -1;
    size_t block = 8192;  // bytes of standard output read at a time
    // False: stop the child.
    std::function<bool(std::string_view bytes)> on_output;
    std::function<void()> on_output_end = [] {};
    std::function<void(std::string_view bytes)> on_error_output;
    std::function<void()> on_error_end = [] {};
    // Of a child that is stopped, while it still runs: before it is told to end, and once more when
    // it is killed because it has not.
    std::function<void(int pid)> before_end = [](int) {};
};

struct ChildEnd {
    enum class Kind { NotStarted, Stopped, Failed, Ok } kind = Kind::NotStarted;
    std::string message;  // in GLib's words, of NotStarted and Failed; may be empty for the former
};

// Runs it to its end. A child that is stopped gets a second to end itself, with all of its
// session's processes, before it is killed.
[[nodiscard]] ChildEnd run_child(const Child& child);

// The program for 7z archives that runs here; null when there is none. Interface thread.
[[nodiscard]] const char* sevenzip_program();

}  // namespace archive_ops
