#include "safe_path.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace safe_path {

namespace {

constexpr int kLinksAtMost = 40;  // as the kernel has it
constexpr char kOnTheWay[] = "a folder on the way cannot be opened";

// Puts a path's components in front of what is still to be walked.
void prepend(std::deque<std::string>& rest, std::string_view path) {
    std::deque<std::string> parts;
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!component.empty() && component != ".")
            parts.emplace_back(component);
        path.remove_prefix(component.size() < path.size() ? component.size() + 1
                                                          : component.size());
    }
    rest.insert(rest.begin(), parts.begin(), parts.end());
}

Fd open_root() {
    return Fd(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// With O_DIRECTORY first, since only that brings up what is mounted on demand.
Fd open_component(int folder, const char* name) {
    Fd found(openat(folder, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!found.good() && (errno == ENOTDIR || errno == ELOOP))
        found = Fd(openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return found;
}

// One walk: where it stands, and what is still ahead.
struct Walk {
    Fd folder;
    std::deque<std::string> rest;
    int links = 0;

    std::string follow(const Fd& link, const struct stat& st) {
        struct stat holder = {};
        if (fstat(folder.get(), &holder) != 0)
            return error_text(kOnTheWay, errno);
        if (st.st_uid != 0 || !is_roots_alone(holder))
            return "a folder on the way is a symbolic link that others can change";
        if (++links > kLinksAtMost)
            return error_text(kOnTheWay, ELOOP);
        char text[PATH_MAX] = "";
        const ssize_t length = readlinkat(link.get(), "", text, sizeof text);
        if (length <= 0 || static_cast<size_t>(length) == sizeof text)
            return error_text(kOnTheWay, length < 0 ? errno : ENAMETOOLONG);
        const std::string_view target(text, static_cast<size_t>(length));
        if (target[0] == '/')
            folder = open_root();
        if (!folder.good())
            return error_text(kOnTheWay, errno);
        prepend(rest, target);
        return {};
    }

    std::string step(Missing missing) {
        const std::string name = rest.front();
        rest.pop_front();
        Fd next = open_component(folder.get(), name.c_str());
        if (!next.good() && errno == ENOENT && missing) {
            if (const int code = missing(folder.get(), name.c_str()); code != 0)
                return error_text("a folder on the way cannot be made", code);
            next = open_component(folder.get(), name.c_str());
        }
        struct stat st = {};
        if (!next.good() || fstat(next.get(), &st) != 0)
            return error_text(kOnTheWay, errno);
        if (S_ISLNK(st.st_mode))
            return follow(next, st);
        if (!S_ISDIR(st.st_mode))
            return error_text(kOnTheWay, ENOTDIR);
        folder = std::move(next);
        return {};
    }
};

}  // namespace

Fd& Fd::operator=(Fd&& other) noexcept {
    if (this != &other) {
        reset();
        m_fd = other.m_fd;
        other.m_fd = -1;
    }
    return *this;
}

void Fd::reset() {
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
}

bool is_roots_alone(const struct stat& folder) {
    return folder.st_uid == 0 && (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string error_text(const char* what, int code) {
    return std::string(what) + ": " + std::strerror(code);
}

std::string open_parent(const std::string& path, Place& place, Missing missing) {
    Walk walk;
    walk.folder = open_root();
    if (!walk.folder.good())
        return error_text(kOnTheWay, errno);
    prepend(walk.rest, path);
    place.name.clear();
    if (!walk.rest.empty()) {
        // The last component as it was given: a link is never followed there.
        place.name = walk.rest.back();
        walk.rest.pop_back();
    }
    while (!walk.rest.empty())
        if (std::string error = walk.step(missing); !error.empty())
            return error;
    place.folder = std::move(walk.folder);
    return {};
}

std::string open_entry(const Place& place, Fd& entry, struct stat& st) {
    entry = open_component(place.folder.get(), place.name.empty() ? "." : place.name.c_str());
    if (!entry.good() || fstat(entry.get(), &st) != 0)
        return error_text("it cannot be opened", errno);
    return {};
}

std::string name_of(const Fd& fd) {
    return "/proc/self/fd/" + std::to_string(fd.get());
}

}  // namespace safe_path
