// settings.json as it may come: hand-edited, cut off, from another program. Whatever it holds, the
// values stay within their bounds.

#include "settings.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>

namespace {

std::string g_file;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    std::string dir = "/dev/shm/ferrodeck-fuzz.XXXXXX";
    if (!mkdtemp(dir.data()))
        std::abort();
    setenv("XDG_CONFIG_HOME", dir.c_str(), 1);
    mkdir((dir + "/Ferrodeck").c_str(), 0700);
    g_file = dir + "/Ferrodeck/settings.json";
    std::atexit([] {
        std::remove(g_file.c_str());
        for (int up = 0; up < 2; ++up) {
            g_file.resize(g_file.rfind('/'));
            std::remove(g_file.c_str());
        }
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(g_file.c_str(), "we");
    if (!file)
        std::abort();
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    SettingsStore& store = SettingsStore::instance();
    store.mutable_get() = Settings();
    store.load();
    if (store.get().thread_count < 0 || store.get().thread_count > 16)
        std::abort();
    if (store.get().default_conflict == copy_engine::ConflictAction::Cancel)
        std::abort();
    return 0;
}
