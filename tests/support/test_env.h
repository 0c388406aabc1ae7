// What every test needs: a home of its own and temporary folders that go away. A test process never
// sees the user's files: HOME, XDG_CONFIG_HOME and XDG_RUNTIME_DIR point into a throw-away tree
// from before main() on, and the locale is one without a language.

#pragma once

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace test_env {

// The root of this process's throw-away tree; it holds home/, config/ and run/.
const std::string& root();

// A fresh folder, removed with all it holds when the object goes. base is the folder in which it
// is made; empty for the throw-away tree.
class TempDir {
  public:
    explicit TempDir(const std::string& base = {});
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

// File helpers. A failure is an exception, which ends the test that asked.
void write_file(const std::string& path, const std::string& content, mode_t mode = 0644);
std::string read_file(const std::string& path);
void make_dirs(const std::string& path);
bool exists(const std::string& path);  // lstat
struct stat lstat_of(const std::string& path);
// size bytes that differ with the seed and do not repeat with a short period.
std::string pattern(size_t size, uint32_t seed = 1);
// Runs a shell command; returns its exit status, and its output through `output` when given.
int run(const std::string& command, std::string* output = nullptr);

}  // namespace test_env
