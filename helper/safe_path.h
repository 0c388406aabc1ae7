// From a path to a descriptor of the folder that holds its last component, while somebody who may
// write to some of the folders on the way exchanges them. Root who follows a path that another user
// can bend does that user's bidding; so each component is opened in the folder before it, and a
// symbolic link is followed only where root alone can have made it: the link and the folder that
// holds it are root's, and nobody else may write there.

#pragma once

#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace safe_path {

// A descriptor that is closed with the object; -1: none.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    Fd& operator=(Fd&& other) noexcept;
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;

    int get() const { return m_fd; }
    bool good() const { return m_fd >= 0; }
    void reset();

  private:
    int m_fd = -1;
};

struct Place {
    Fd folder;         // O_PATH: for the ...at() calls alone
    std::string name;  // one component; empty: the path is the root folder itself
};

// What to do where a folder on the way is missing. Returns an errno; 0: it is there now.
using Missing = int (*)(int folder, const char* name);

// Both return an error text, empty for success.
[[nodiscard]] std::string open_parent(const std::string& path, Place& place,
                                      Missing missing = nullptr);
// The entry itself, O_PATH and without following a link, with what fstat() says of it.
[[nodiscard]] std::string open_entry(const Place& place, Fd& entry, struct stat& st);

// Whether a folder is root's, and nobody else may write there.
[[nodiscard]] bool is_roots_alone(const struct stat& folder);

[[nodiscard]] std::string error_text(const char* what, int code);

// Another name for what a descriptor is open on, for calls that take no O_PATH descriptor.
[[nodiscard]] std::string name_of(const Fd& fd);

}  // namespace safe_path
