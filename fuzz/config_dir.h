// The configuration folder of a fuzzer that reads one of its files: in memory, and gone at the end.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>

inline std::string g_config_file;

// Called once; the name is that of the file.
inline void make_config_dir(const char* name) {
    std::string dir = "/dev/shm/ferrodeck-fuzz.XXXXXX";
    if (!mkdtemp(dir.data()))
        std::abort();
    setenv("XDG_CONFIG_HOME", dir.c_str(), 1);
    mkdir((dir + "/Ferrodeck").c_str(), 0700);
    g_config_file = dir + "/Ferrodeck/" + name;
    std::atexit([] {
        std::remove(g_config_file.c_str());
        for (int up = 0; up < 2; ++up) {
            g_config_file.resize(g_config_file.rfind('/'));
            std::remove(g_config_file.c_str());
        }
    });
}

inline void write_config_file(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(g_config_file.c_str(), "we");
    if (!file)
        std::abort();
    std::fwrite(data, 1, size, file);
    std::fclose(file);
}
