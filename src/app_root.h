// What App keeps of a restart as root, for app_root.cpp and its tests alone. Interface thread.

#pragma once

#include "app.h"

#include <glib.h>
#include <string>
#include <sys/types.h>
#include <vector>

// One attempt to start the second instance, from the spawn to its end. What calls back holds a
// reference; `app` is null once nobody wants to know any more.
struct App::RootRestart {
    App* app = nullptr;
    std::string program;
    std::vector<pid_t> baseline;  // root's instances that were there before
    GPid child = 0;               // 0: it has ended
    std::string output;           // the first of what it wrote
    int polls = 0;
    guint timeout = 0;
    GIOChannel* channels[2] = {nullptr, nullptr};  // standard output and error; null at their end
    guint watches[2] = {0, 0};

    void listen(int which, int fd, GIOFunc callback);
    // Takes the lines that are there, or some of many. False: the stream is at its end.
    bool read_lines(int which);
    void close_stream(int which);
};
