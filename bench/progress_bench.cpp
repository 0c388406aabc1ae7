// What looking at a transfer costs it.
//
//   progress_bench [files [rounds]]
//
// `files` (20,000) small files are copied by the program's own window, in turns visible and
// iconified, `rounds` (7) times each. Told is the time from the command to the end of the last
// worker, and the processor's time from the command to the result, as ratios of the two.
//
// The files lie in TMPDIR. Run it under a display server with a window manager: without one nothing
// can be iconified.

#include "app.h"

#include "copy_engine.h"
#include "settings.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kContent[] = "a small file, as there are many in a source tree\n";

void fill(const std::string& folder, int files) {
    for (int i = 0; i < files; ++i) {
        const std::string sub = folder + "/" + std::to_string(i / 1000);
        if (i % 1000 == 0)
            std::filesystem::create_directories(sub);
        const std::string path = sub + "/file " + std::to_string(i) + ".txt";
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0 || write(fd, kContent, sizeof kContent) < 0)
            std::abort();
        close(fd);
    }
}

void run_loop(double seconds) {
    const double until = App::now_seconds() + seconds;
    while (App::now_seconds() < until) {
        while (gtk_events_pending())
            gtk_main_iteration_do(FALSE);
        g_usleep(2000);
    }
}

bool is_iconified(const App& app) {
    return gdk_window_get_state(gtk_widget_get_window(app.m_window)) & GDK_WINDOW_STATE_ICONIFIED;
}

// True when the window has become as asked.
bool show(App& app, bool visible) {
    if (visible)
        gtk_window_deiconify(GTK_WINDOW(app.m_window));
    else
        gtk_window_iconify(GTK_WINDOW(app.m_window));
    for (int i = 0; i < 50 && is_iconified(app) == visible; ++i)
        run_loop(0.05);
    run_loop(0.5);
    return is_iconified(app) != visible;
}

int g_frames = 0;

// The program's own handler ends the signal, so that no other would be called.
gboolean count_frame(GSignalInvocationHint*, guint, const GValue* values, gpointer canvas) {
    if (g_value_get_object(values) == canvas)
        ++g_frames;
    return TRUE;
}

struct Cost {
    double elapsed = 0;    // milliseconds
    double processor = 0;  // milliseconds, of all threads
};

double processor_ms() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The end is taken by a thread of its own, which the main loop cannot keep waiting.
Cost copy_once(App& app, const std::string& target) {
    app.m_left.select_all();
    const double processor = processor_ms();
    const Clock::time_point start = Clock::now();
    app.start_transfer(true, false);
    Clock::time_point end;
    std::thread watch([&end] {
        while (copy_engine::instance().is_running())
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        end = Clock::now();
    });
    while (App::busy() || app.m_transfer_was_running)
        gtk_main_iteration_do(TRUE);
    watch.join();
    const double used = processor_ms() - processor;
    if (app.m_result.failures > 0)
        std::abort();
    std::filesystem::remove_all(target);
    std::filesystem::create_directories(target);
    app.m_progress_hold_until = 0;
    app.m_result.valid = false;
    app.refresh_both();
    run_loop(0.3);
    return {std::chrono::duration<double, std::milli>(end - start).count(), used};
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Of neighbours in time, since other work on the machine comes and goes.
double median_ratio(const std::vector<double>& a, const std::vector<double>& b) {
    std::vector<double> ratios;
    for (size_t i = 0; i < a.size(); ++i)
        ratios.push_back(a[i] / b[i]);
    return median(ratios);
}

}  // namespace

int main(int argc, char** argv) {
    const int files = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20000;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 7;
    std::string root = std::string(g_get_tmp_dir()) + "/progress_bench.XXXXXX";
    if (!mkdtemp(root.data()))
        return 1;
    setenv("XDG_CONFIG_HOME", root.c_str(), 1);
    fill(root + "/from", files);
    std::filesystem::create_directories(root + "/to");
    std::vector<std::string> words = {argv[0], "--left=" + root + "/from",
                                      "--right=" + root + "/to"};
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    App app;
    app.begin(static_cast<int>(words.size()), arguments.data());
    g_signal_add_emission_hook(g_signal_lookup("draw", GTK_TYPE_WIDGET), 0, count_frame,
                               app.m_canvas, nullptr);
    run_loop(1);

    std::vector<double> times[2];
    std::vector<double> processor[2];
    int frames[2] = {0, 0};
    bool as_asked = true;
    for (int round = 0; round <= rounds && as_asked; ++round)
        for (const bool visible : {true, false}) {
            as_asked = show(app, visible);
            if (!as_asked)
                break;
            g_frames = 0;
            const Cost cost = copy_once(app, root + "/to");
            if (round == 0)  // warms the caches
                continue;
            times[visible ? 0 : 1].push_back(cost.elapsed);
            processor[visible ? 0 : 1].push_back(cost.processor);
            frames[visible ? 0 : 1] += g_frames;
        }
    if (as_asked)
        std::printf("%d files, %d frames a round while visible and %d while iconified\n"
                    "  time       visible %6.0f ms   iconified %6.0f ms   ratio %.3f\n"
                    "  processor  visible %6.0f ms   iconified %6.0f ms   ratio %.3f\n",
                    files, frames[0] / rounds, frames[1] / rounds, median(times[0]),
                    median(times[1]), median_ratio(times[0], times[1]), median(processor[0]),
                    median(processor[1]), median_ratio(processor[0], processor[1]));
    else
        std::fprintf(stderr, "progress_bench: no window manager that iconifies\n");
    std::filesystem::remove_all(root);
    app.finish();
    return as_asked ? 0 : 1;
}
