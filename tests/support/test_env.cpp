#include "test_env.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

// The leak checker asks for this by name. Fontconfig keeps its patterns until the process ends.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}

namespace test_env {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

struct Home {
    std::string root;
    pid_t owner = getpid();

    Home() {
        const char* base = std::getenv("TMPDIR");
        std::string name = std::string(base && *base ? base : "/tmp") + "/ferrodeck-test.XXXXXX";
        if (!mkdtemp(name.data()))
            fail(name);
        root = name;
        for (const char* part : {"home", "config", "run"})
            mkdir((root + "/" + part).c_str(), 0700);
        setenv("HOME", (root + "/home").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (root + "/config").c_str(), 1);
        setenv("XDG_DATA_HOME", (root + "/home/.local/share").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (root + "/run").c_str(), 1);
        for (const char* name_of : {"SNAP", "SNAP_NAME", "SNAP_REAL_HOME", "SUDO_USER",
                                    "PKEXEC_UID", "APPDIR", "APPIMAGE", "LANGUAGE"})
            unsetenv(name_of);
        setenv("LC_ALL", "C.UTF-8", 1);  // no language: the interface speaks English
    }
    ~Home() {
        if (getpid() != owner)
            return;  // a forked child shares the tree with its parent
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
};

// Before main(), so that nothing can read the real home first.
const Home g_home;

}  // namespace

const std::string& root() {
    return g_home.root;
}

TempDir::TempDir(const std::string& base) {
    std::string name = (base.empty() ? root() : base) + "/t.XXXXXX";
    if (!mkdtemp(name.data()))
        fail(name);
    m_path = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void write_file(const std::string& path, const std::string& content, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        fail(path);
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0) {
            close(fd);
            fail(path);
        }
        done += static_cast<size_t>(n);
    }
    fchmod(fd, mode);
    close(fd);
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail(path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void make_dirs(const std::string& path) {
    std::filesystem::create_directories(path);
}

bool exists(const std::string& path) {
    struct stat st = {};
    return lstat(path.c_str(), &st) == 0;
}

struct stat lstat_of(const std::string& path) {
    struct stat st = {};
    if (lstat(path.c_str(), &st) != 0)
        fail(path);
    return st;
}

std::string pattern(size_t size, uint32_t seed) {
    std::string bytes(size, '\0');
    uint32_t state = seed * 2654435761U + 12345U;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

int run(const std::string& command, std::string* output) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "re");
    if (!pipe)
        fail(command);
    char chunk[4096];
    std::string text;
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        text.append(chunk, n);
    const int status = pclose(pipe);
    if (output)
        *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace test_env
