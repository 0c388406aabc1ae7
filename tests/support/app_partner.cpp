#include "app_partner.h"

#include "app_display.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

namespace test_env {

namespace {

constexpr useconds_t kPauseMicroseconds = 10'000;

}  // namespace

Partner::~Partner() {
    end(m_pid);
}

bool Partner::start(const std::string& actions, const std::string& geometry) {
    m_pid = spawn({"env", "NO_AT_BRIDGE=1", "GSETTINGS_BACKEND=memory", "GDK_BACKEND=x11",
                   "G_DEBUG=fatal-criticals", DND_PARTNER, m_dir / "list", actions, geometry,
                   m_dir / "log"});
    for (int i = 0; i < 1000 && m_window.empty(); ++i) {
        usleep(kPauseMicroseconds);
        run("xdotool search --onlyvisible --name '^Partner$'", &m_window);
        m_window = m_window.substr(0, m_window.find('\n'));
    }
    return !m_window.empty();
}

std::vector<std::string> Partner::lines() const {
    std::vector<std::string> result;
    std::ifstream in(m_dir / "log");
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

size_t Partner::count(const std::string& line) const {
    const std::vector<std::string> all = lines();
    return static_cast<size_t>(std::count(all.begin(), all.end(), line));
}

bool Partner::wait_line(const std::string& line, double seconds) const {
    for (int left = static_cast<int>(seconds * 100); left > 0; --left) {
        if (count(line) > 0)
            return true;
        usleep(kPauseMicroseconds);
    }
    return false;
}

}  // namespace test_env
