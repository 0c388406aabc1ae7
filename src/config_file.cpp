#include "config_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace config_file {

namespace {

int open_file(const std::string& path, int flags) {
    int fd = -1;
    do
        fd = open(path.c_str(), flags | O_CLOEXEC, 0666);
    while (fd < 0 && errno == EINTR);
    return fd;
}

bool write_all(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// A disk may tell only here that it is full. EINTR is no failure: the descriptor is gone, and what
// was written is with the kernel.
bool close_file(int fd) {
    return close(fd) == 0 || errno == EINTR;
}

// Makes sure of the room first, since a write that breaks off would leave half of either text. File
// systems that cannot promise room are taken at their word.
bool reserve(int fd, size_t size) {
    if (size == 0 || fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0)
        return true;
    return errno == EOPNOTSUPP || errno == ENOSYS || errno == EINTR;
}

// A write that is cut short by a kill ends between two pages of the file.
constexpr size_t kWholeWrite = 4096;

enum class InPlace { Done, Failed, TooLong };

InPlace overwrite_open(int fd, const std::string& text) {
    struct stat st = {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        return InPlace::Failed;
    std::string bytes = text;
    bytes.resize(std::max(text.size(), static_cast<size_t>(st.st_size)), '\n');
    if (bytes.size() > kWholeWrite)
        return InPlace::TooLong;
    const bool done = reserve(fd, text.size()) && write_all(fd, bytes) &&
                      ftruncate(fd, static_cast<off_t>(text.size())) == 0;
    return done ? InPlace::Done : InPlace::Failed;
}

}  // namespace

bool read(const std::string& path, std::string& text) {
    // Not waiting: a FIFO under the name would hold up the start for ever.
    const int fd = open_file(path, O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return false;
    std::string content;
    char chunk[8192];
    ssize_t n = 0;
    while ((n = ::read(fd, chunk, sizeof chunk)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0)
            content.append(chunk, static_cast<size_t>(n));
    close(fd);
    if (n < 0)
        return false;
    text = std::move(content);
    return true;
}

bool replace(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".tmp";
    const int fd = open_file(temporary, O_WRONLY | O_CREAT | O_TRUNC);
    if (fd < 0)
        return false;
    const bool written = write_all(fd, text);
    if (!close_file(fd) || !written)
        return false;
    if (rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    unlink(temporary.c_str());
    return false;
}

bool overwrite(const std::string& path, const std::string& text) {
    const int fd = open_file(path, O_WRONLY | O_CREAT);
    if (fd < 0)
        return false;
    const InPlace result = overwrite_open(fd, text);
    const bool closed = close_file(fd);
    return result == InPlace::TooLong ? replace(path, text) : closed && result == InPlace::Done;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find('\n', start), text.size());
        size_t last = end;
        while (last > start && text[last - 1] == '\r')
            --last;
        result.push_back(text.substr(start, last - start));
        start = end + 1;
    }
    return result;
}

size_t value_start(const std::string& text, const char* key) {
    const std::string quoted = std::string("\"") + key + "\"";
    const size_t found = text.find(quoted);
    if (found == std::string::npos)
        return found;
    const size_t colon = text.find(':', found + quoted.size());
    return colon == std::string::npos ? colon : colon + 1;
}

}  // namespace config_file
