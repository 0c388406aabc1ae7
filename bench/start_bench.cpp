// What a start costs, against a bare program with one empty drawing area, and what the window costs
// at rest.
//
//   start_bench [rounds]
//
// Both programs start in turn, `rounds` (15) times each, with a home of their own. The time runs
// from exec until the pixels of four places of the window have been painted, as another client of
// the display sees them. The memory is the proportional set size two seconds later.
//
// The last part is Return on a folder of 100,000 entries, until a key's frame shows it, against a
// bare loop of readdir, statx and a sort over the same folder.
//
// Run it under a display server of its own, without a window manager: tools/display.sh has one.

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtk/gtk.h>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWidth = 1100, kHeight = 720;
constexpr int kEntries = 100000;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

unsigned long pixel(Display* display, int x, int y) {
    XImage* const image =
        XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
    const unsigned long value = XGetPixel(image, 0, 0) & 0xffffff;
    XDestroyImage(image);
    return value;
}

// Neither the root's black nor the white that a new window has.
bool painted(Display* display) {
    static constexpr int kPlaces[][2] = {{5, 50}, {kWidth - 5, 50}, {5, kHeight - 6}};
    return std::all_of(std::begin(kPlaces), std::end(kPlaces), [display](const int(&place)[2]) {
        const unsigned long value = pixel(display, place[0], place[1]);
        return value != 0 && value != 0xffffff;
    });
}

class Started {
  public:
    Started(const std::vector<std::string>& command, const std::string& home) {
        m_pid = fork();
        if (m_pid == 0) {
            setenv("HOME", home.c_str(), 1);
            setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
            setenv("XDG_RUNTIME_DIR", home.c_str(), 1);
            setenv("GDK_BACKEND", "x11", 1);
            setenv("NO_AT_BRIDGE", "1", 1);
            std::vector<char*> arguments;
            for (const std::string& word : command)
                arguments.push_back(const_cast<char*>(word.c_str()));
            arguments.push_back(nullptr);
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDERR_FILENO);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Started() {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    [[nodiscard]] double pss_mib() const {
        std::ifstream rollup("/proc/" + std::to_string(m_pid) + "/smaps_rollup");
        std::string word;
        while (rollup >> word)
            if (word == "Pss:") {
                double kib = 0;
                rollup >> kib;
                return kib / 1024;
            }
        return 0;
    }

  private:
    pid_t m_pid = -1;
};

struct Cost {
    std::vector<double> seconds;
    std::vector<double> mib;
};

void wait_until_clear(Display* display) {
    while (pixel(display, 5, 50) != 0 || pixel(display, kWidth / 2, kHeight / 2) != 0)
        usleep(2000);
    usleep(50000);
}

void measure(Display* display, const std::vector<std::string>& command, const std::string& home,
             bool memory, Cost& cost) {
    wait_until_clear(display);
    const auto start = Clock::now();
    const Started program(command, home);
    while (!painted(display) && seconds_since(start) < 10)
        usleep(300);
    cost.seconds.push_back(seconds_since(start));
    if (!memory)
        return;
    sleep(2);
    cost.mib.push_back(program.pss_mib());
}

// The bare program: this one, with a word of its own.
int bare_window() {
    gtk_init(nullptr, nullptr);
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* const area = gtk_drawing_area_new();
    gtk_window_set_default_size(GTK_WINDOW(window), kWidth, kHeight);
    g_signal_connect(area, "draw", G_CALLBACK(+[](GtkWidget*, cairo_t* cr, gpointer) -> gboolean {
                         cairo_set_source_rgb(cr, 0.5, 0.6, 0.7);
                         cairo_paint(cr);
                         return TRUE;
                     }),
                     nullptr);
    gtk_container_add(GTK_CONTAINER(window), area);
    gtk_window_move(GTK_WINDOW(window), 0, 0);
    gtk_widget_show_all(window);
    gtk_main();
    return 0;
}

std::vector<std::string> sorted_names(const std::string& folder) {
    struct Entry {
        std::string name;
        struct statx facts;
    };
    std::vector<Entry> entries;
    DIR* const open_folder = opendir(folder.c_str());
    while (const dirent* const entry = readdir(open_folder)) {
        Entry found;
        found.name = entry->d_name;
        statx(dirfd(open_folder), entry->d_name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS,
              &found.facts);
        entries.push_back(std::move(found));
    }
    closedir(open_folder);
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return strcasecmp(a.name.c_str(), b.name.c_str()) < 0;
    });
    std::vector<std::string> names;
    for (Entry& entry : entries)
        names.push_back(std::move(entry.name));
    return names;
}

unsigned long row_checksum(Display* display) {
    XImage* const image =
        XGetImage(display, DefaultRootWindow(display), 0, 190, 300, 300, AllPlanes, ZPixmap);
    unsigned long sum = 0;
    for (int y = 0; y < 300; y += 2)
        for (int x = 0; x < 300; x += 2)
            sum = sum * 31 + XGetPixel(image, x, y);
    XDestroyImage(image);
    return sum;
}

void open_large_folder(Display* display, const std::string& program, const std::string& home) {
    const std::string folder = home + "/start/large";
    std::filesystem::create_directories(folder);
    for (int i = 0; i < kEntries; ++i)
        close(open((folder + "/file " + std::to_string(i * 7919 % kEntries) + ".txt").c_str(),
                   O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    std::vector<double> window, floor;
    for (int round = 0; round < 5; ++round) {
        const auto bare = Clock::now();
        const size_t names = sorted_names(folder).size();
        floor.push_back(seconds_since(bare));
        if (names < kEntries)
            return;
        wait_until_clear(display);
        const Started started(
            {program, "--left=" + home + "/start", "--right=" + home, "--geometry=1100x720+0+0"},
            home);
        while (!painted(display))
            usleep(1000);
        sleep(1);
        const KeyCode down = XKeysymToKeycode(display, XK_Down);
        const KeyCode enter = XKeysymToKeycode(display, XK_Return);
        XSetInputFocus(display, PointerRoot, RevertToPointerRoot, CurrentTime);
        XTestFakeMotionEvent(display, -1, 200, 600, 0);
        XTestFakeKeyEvent(display, down, True, 0);
        XTestFakeKeyEvent(display, down, False, 0);
        XSync(display, False);
        sleep(1);
        const unsigned long before = row_checksum(display);
        const auto start = Clock::now();
        XTestFakeKeyEvent(display, enter, True, 0);
        XTestFakeKeyEvent(display, enter, False, 0);
        XSync(display, False);
        // The first change may be that of the path alone: the rows are what is waited for.
        while (row_checksum(display) == before && seconds_since(start) < 30)
            usleep(500);
        window.push_back(seconds_since(start));
    }
    std::printf("folder of 100,000: %.3f s, bare loop %.3f s, ratio %.2f\n", median(window),
                median(floor), median(window) / median(floor));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--bare") == 0)
        return bare_window();
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
    Display* const display = XOpenDisplay(nullptr);
    if (!display || rounds < 1) {
        std::fprintf(stderr, "start_bench [ROUNDS], on a display\n");
        return 1;
    }
    XSetWindowBackground(display, DefaultRootWindow(display), BlackPixel(display, 0));
    XClearWindow(display, DefaultRootWindow(display));
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string program =
        std::filesystem::path(self).parent_path().parent_path() / "ferrodeck";
    char pattern[] = "/tmp/start-bench.XXXXXX";
    const std::string home = mkdtemp(pattern);
    Cost bare, ours;
    for (int i = 0; i < rounds; ++i) {
        const bool memory = i >= rounds - 3;
        measure(display, {self, "--bare"}, home, memory, bare);
        measure(display, {program, "--left=/usr", "--right=/etc", "--geometry=1100x720+0+0"}, home,
                memory, ours);
    }
    std::printf("start: %.0f ms, bare window %.0f ms, ratio %.2f\n", median(ours.seconds) * 1000,
                median(bare.seconds) * 1000, median(ours.seconds) / median(bare.seconds));
    std::printf("at rest: %.1f MiB, bare window %.1f MiB\n", median(ours.mib), median(bare.mib));
    open_large_folder(display, program, home);
    std::filesystem::remove_all(home);
    XCloseDisplay(display);
    return 0;
}
