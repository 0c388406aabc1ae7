// What the interface thread pays for remembering: one save of the settings, of the window's place
// and of the recent folders, and one start's reading of the first two.
//
//   saving_bench [folder [rounds]]
//
// The files are made in a configuration folder below `folder` (default: TMPDIR or /tmp; 2,000
// rounds). Beside each stands the peer: the same bytes written to a file that is opened anew.

#include "recent.h"
#include "settings.h"
#include "window_manager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

void print(const char* what, int rounds, const std::function<void(int)>& step) {
    std::vector<double> us;
    for (int i = 0; i < rounds; ++i) {
        const Clock::time_point start = Clock::now();
        step(i);
        us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(us.begin(), us.end());
    const size_t n = us.size();
    std::printf("%-28s min %7.1f  median %7.1f  99 of 100 %7.1f  max %8.1f us\n", what, us[0],
                us[n / 2], us[n * 99 / 100], us[n - 1]);
}

void measure(const std::string& folder, int rounds) {
    SettingsStore& store = SettingsStore::instance();
    store.mutable_get().left_path = "/usr/share";
    store.mutable_get().right_path = "/usr/lib";
    print("1 KB to a plain file", rounds, [&folder](int) {
        if (std::FILE* file = std::fopen((folder + "/plain").c_str(), "we")) {
            const std::string bytes(1024, 'x');
            std::fwrite(bytes.data(), 1, bytes.size(), file);
            std::fclose(file);
        }
    });
    print("SettingsStore::save", rounds, [&store](int i) {
        store.mutable_get().font_scale = 70 + i % 100;
        store.save();
    });
    print("SettingsStore::load", rounds, [&store](int) { store.load(); });
    print("WindowManager::save", rounds,
          [](int i) { WindowManager::instance().save(i, i, 1100, 720, false); });
    print("WindowManager::load", rounds, [](int) { (void)WindowManager::instance().load(); });
    print("recent::add", rounds,
          [](int i) { recent::add("/some/folder/" + std::to_string(i % 20)); });
}

}  // namespace

int main(int argc, char** argv) {
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = argc > 1 ? argv[1] : tmp && *tmp ? tmp : "/tmp";
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 2000;
    folder += "/saving-bench.XXXXXX";
    if (rounds < 1 || !mkdtemp(folder.data())) {
        std::fprintf(stderr, "usage: saving_bench [folder [rounds]]\n");
        return 2;
    }
    setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    measure(folder, rounds);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return 0;
}
