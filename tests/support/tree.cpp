#include "tree.h"

#include "test_env.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <random>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace tree {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void set_mtime(const std::string& path, std::mt19937& random) {
    // Odd nanoseconds, and years on both sides of now.
    const time_t seconds = static_cast<time_t>(1'000'000'000 + random() % 1'500'000'000);
    const struct timespec times[2] = {{seconds + 7, 111},
                                      {seconds, static_cast<long>(random() % 999'999'999)}};
    if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        fail(path);
}

size_t some_size(std::mt19937& random, size_t max_bytes) {
    switch (random() % 4) {
    case 0:
        return 0;
    case 1:
        return std::min<size_t>(random() % 100, max_bytes);
    case 2:
        return std::min<size_t>(random() % 5000, max_bytes);
    default:
        return max_bytes ? random() % max_bytes : 0;
    }
}

void make_sparse(const std::string& path, size_t bytes) {
    const std::string tail = test_env::pattern(4096, 77);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    const off_t at = static_cast<off_t>(bytes) + (1 << 20);
    if (fd < 0 || pwrite(fd, tail.data(), tail.size(), at) < 0 ||
        ftruncate(fd, at + (off_t{1} << 20)) != 0)
        fail(path);
    close(fd);
}

struct Builder {
    std::mt19937 random;
    std::vector<std::string> folders;
    std::vector<std::string> files;
    std::vector<std::string> names;
    int counter = 0;

    explicit Builder(uint32_t seed) : random(seed) {}

    std::string fresh_path(const char* stem) {
        const std::string folder = folders[random() % folders.size()];
        std::string name = stem + std::to_string(counter++);
        if (!names.empty() && random() % 2) {
            name = names.back();
            names.pop_back();
        }
        return folder + "/" + name;
    }
};

void build_links(Builder& builder, const Shape& shape) {
    for (int i = 0; i < shape.symlinks; ++i) {
        const std::string text = i == 0                  ? "nowhere/at all"
                                 : builder.files.empty() ? "."
                                                         : builder.files[0];
        const std::string path = builder.fresh_path("link");
        if (symlink(text.c_str(), path.c_str()) != 0)
            fail(path);
    }
    for (int i = 0; i < shape.hard_links && !builder.files.empty(); ++i) {
        const std::string from = builder.files[builder.random() % builder.files.size()];
        const std::string path = builder.fresh_path("hard");
        if (link(from.c_str(), path.c_str()) != 0)
            fail(path);
    }
    for (int i = 0; i < shape.fifos; ++i) {
        const std::string path = builder.fresh_path("fifo");
        if (mkfifo(path.c_str(), 0644) != 0)
            fail(path);
    }
}

uint64_t hash_of(int fd) {
    static thread_local std::vector<char> buffer(1 << 20);
    uint64_t hash = 14695981039346656037ULL;
    uint64_t zeros = 0;  // a run of them is folded into its length: holes cost nothing
    for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) {
        for (ssize_t i = 0; i < n; ++i) {
            const auto byte = static_cast<unsigned char>(buffer[static_cast<size_t>(i)]);
            if (byte == 0) {
                ++zeros;
                continue;
            }
            hash = (hash ^ zeros ^ (uint64_t{byte} << 56)) * 1099511628211ULL;
            zeros = 0;
        }
    }
    return (hash ^ zeros) * 1099511628211ULL;
}

Node look(int dir, const char* name) {
    struct stat st = {};
    if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        fail(name);
    Node node;
    node.kind = S_ISREG(st.st_mode)   ? 'f'
                : S_ISDIR(st.st_mode) ? 'd'
                : S_ISLNK(st.st_mode) ? 'l'
                                      : 'o';
    node.mode = st.st_mode & 07777;
    node.size = node.kind == 'd' ? 0 : st.st_size;
    node.mtime = st.st_mtim;
    node.inode = st.st_ino;
    node.links = st.st_nlink;
    node.blocks = st.st_blocks;
    node.uid = st.st_uid;
    if (node.kind == 'l') {
        char text[4097];
        const ssize_t n = readlinkat(dir, name, text, sizeof text);
        node.link.assign(text, n > 0 ? static_cast<size_t>(n) : 0);
    } else if (node.kind == 'f') {
        const int fd = openat(dir, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (fd >= 0) {
            node.hash = hash_of(fd);
            close(fd);
        }
    }
    return node;
}

// Takes over dir.
void walk(int dir, const std::string& prefix, Snapshot& into) {
    DIR* stream = fdopendir(dir);
    if (!stream)
        fail(prefix);
    std::vector<std::string> names;
    while (const struct dirent* entry = readdir(stream)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    for (const std::string& name : names) {
        const Node node = look(dir, name.c_str());
        into.emplace(prefix + name, node);
        if (node.kind != 'd')
            continue;
        const int child =
            openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (child < 0)
            fail(prefix + name);
        walk(child, prefix + name + "/", into);
    }
    closedir(stream);
}

bool same_time(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::string difference(const Node& a, const Node& b, const Compare& how) {
    if (a.kind != b.kind)
        return std::string("is a ") + b.kind + ", not a " + a.kind;
    const bool folder = a.kind == 'd';
    if (!folder && a.kind != 'l' && a.size != b.size)
        return "has " + std::to_string(b.size) + " bytes, not " + std::to_string(a.size);
    if (a.hash != b.hash)
        return "has other content";
    if (a.link != b.link)
        return "links to " + b.link + ", not to " + a.link;
    if (a.kind != 'l' && (folder ? how.folder_modes : how.modes) && a.mode != b.mode) {
        char text[64];
        snprintf(text, sizeof text, "has mode %04o, not %04o", b.mode, a.mode);
        return text;
    }
    if ((a.kind == 'f' ? how.times : how.folder_times) && !same_time(a.mtime, b.mtime))
        return "has mtime " + std::to_string(b.mtime.tv_sec) + "." +
               std::to_string(b.mtime.tv_nsec) + ", not " + std::to_string(a.mtime.tv_sec) + "." +
               std::to_string(a.mtime.tv_nsec);
    if (how.inodes && a.inode != b.inode)
        return "is another file";
    return {};
}

// Which names share a file, as "first name of the group" by name.
std::map<std::string, std::string> groups(const Snapshot& all) {
    std::map<uint64_t, std::string> first;
    std::map<std::string, std::string> result;
    for (const auto& [path, node] : all) {
        if (node.kind == 'f' && node.links > 1)
            result[path] = first.emplace(node.inode, path).first->second;
    }
    return result;
}

}  // namespace

std::vector<std::string> hostile_names() {
    return {"new\nline",
            "tab\there",
            "-rf",
            " leading blank",
            "trailing blank ",
            "\"quoted\"",
            "it's",
            "$(reboot)",
            "*?[x]",
            "back\\slash",
            "...",
            ".hidden",
            "\xff\xfe\x80",
            "caf\xc3\xa9",
            "cafe\xcc\x81",
            std::string(255, 'n'),
            "a\x01\x1b[31m",
            "%s%n%d",
            "semi;colon&amp|"};
}

void build(const std::string& root, uint32_t seed, const Shape& shape) {
    Builder builder(seed);
    builder.folders.push_back(root);
    if (shape.hostile_names) {
        builder.names = hostile_names();
        std::shuffle(builder.names.begin(), builder.names.end(), builder.random);
    }
    for (int i = 0; i < shape.folders; ++i) {
        const std::string path = builder.fresh_path("folder");
        if (mkdir(path.c_str(), 0755) != 0)
            fail(path);
        builder.folders.push_back(path);
    }
    constexpr mode_t kModes[] = {0644, 0600, 0755, 0444, 0640, 0777, 04755, 02755};
    for (int i = 0; i < shape.files; ++i) {
        const std::string path = builder.fresh_path("file");
        const mode_t mode = kModes[builder.random() % std::size(kModes)];
        const size_t size = some_size(builder.random, shape.max_bytes);
        test_env::write_file(path, test_env::pattern(size, static_cast<uint32_t>(builder.random())),
                             0600);
        if (chmod(path.c_str(), mode) != 0)
            fail(path);
        set_mtime(path, builder.random);
        builder.files.push_back(path);
    }
    for (int i = 0; i < shape.sparse; ++i) {
        const std::string path = builder.fresh_path("sparse");
        make_sparse(path, shape.max_bytes);
        set_mtime(path, builder.random);
    }
    build_links(builder, shape);
    constexpr mode_t kFolderModes[] = {0755, 0750, 0700, 0555};
    for (size_t i = builder.folders.size(); shape.folder_modes && i-- > 1;) {
        if (chmod(builder.folders[i].c_str(), kFolderModes[i % std::size(kFolderModes)]) != 0)
            fail(builder.folders[i]);
    }
}

Snapshot snapshot(const std::string& root) {
    const int dir = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0)
        fail(root);
    Snapshot all;
    walk(dir, {}, all);
    return all;
}

bool same_file(const Node& a, const Node& b, const Compare& how) {
    return difference(a, b, how).empty();
}

std::vector<std::string> differences(const Snapshot& expected, const Snapshot& found,
                                     const Compare& how) {
    std::vector<std::string> lines;
    for (const auto& [path, node] : expected) {
        const auto other = found.find(path);
        if (other == found.end()) {
            lines.push_back(path + " is missing");
            continue;
        }
        const std::string what = difference(node, other->second, how);
        if (!what.empty())
            lines.push_back(path + " " + what);
    }
    for (const auto& [path, node] : found) {
        if (!expected.contains(path))
            lines.push_back(path + " should not be there");
    }
    if (how.links && groups(expected) != groups(found))
        lines.emplace_back("other names share a file");
    return lines;
}

std::string difference_text(const Snapshot& expected, const Snapshot& found, const Compare& how) {
    std::string text;
    for (const std::string& line : differences(expected, found, how))
        text += line + "\n";
    return text;
}

void build_deep(const std::string& root, int levels, const std::string& name) {
    int dir = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < levels; ++i) {
        if (mkdirat(dir, name.c_str(), 0755) != 0)
            fail(name);
        const int child = openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(dir);
        if (child < 0)
            fail(name);
        dir = child;
    }
    const int leaf = openat(dir, "leaf", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (leaf < 0 || write(leaf, "deep", 4) != 4)
        fail("leaf");
    close(leaf);
    close(dir);
}

void remove_deep(const std::string& root) {
    test_env::run("rm -rf '" + root + "'");
}

}  // namespace tree
