// What a frame costs, against a bare program that paints the same.
//
//   frame_bench [rounds]
//
// One frame of 1920 by 1080 with two panes of 40 rows and all columns is painted to an image, and
// everything in it noted: areas, lines and texts. Then the program and a bare loop over those notes
// take turns for `rounds` (300) rounds. The loop fills the same paths in the same colours, and lays
// each text out once, in the same font, through one shared layout as the program has it.
//
// The second part is a cursor step, key and frame, in a folder of 100 and in one of 100,000.
//
// The third part is a frame with the log's dialogue open, while the log is full and work writes on,
// against the same frame without the dialogue.
//
// Run it under a display server: keys are looked up in a keymap.

#include "app.h"

#include "bg_task.h"
#include "logger.h"
#include "settings.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// One thing that the frame has painted.
struct Painted {
    enum class Kind { Fill, Stroke, Text };

    Kind kind = Kind::Fill;
    cairo_pattern_t* source = nullptr;
    cairo_path_t* path = nullptr;  // of a fill or a stroke, in logical units
    double line_width = 0;
    std::string text;
    PangoFontDescription* font = nullptr;
    int width = -1;
    PangoEllipsizeMode ellipsize = PANGO_ELLIPSIZE_NONE;
    double x = 0;
    double y = 0;
};

std::vector<Painted> g_painted;
bool g_noting = false;

template <typename Function>
Function* behind(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void note_path(cairo_t* cr, Painted::Kind kind) {
    Painted painted;
    painted.kind = kind;
    painted.source = cairo_pattern_reference(cairo_get_source(cr));
    painted.path = cairo_copy_path(cr);
    painted.line_width = cairo_get_line_width(cr);
    g_painted.push_back(std::move(painted));
}

}  // namespace

// These stand in front of the libraries' own.
extern "C" void cairo_fill(cairo_t* cr) {
    static auto* const fill = behind<void(cairo_t*)>("cairo_fill");
    if (g_noting)
        note_path(cr, Painted::Kind::Fill);
    fill(cr);
}

extern "C" void cairo_stroke(cairo_t* cr) {
    static auto* const stroke = behind<void(cairo_t*)>("cairo_stroke");
    if (g_noting)
        note_path(cr, Painted::Kind::Stroke);
    stroke(cr);
}

extern "C" void pango_cairo_show_layout(cairo_t* cr, PangoLayout* layout) {
    static auto* const show = behind<void(cairo_t*, PangoLayout*)>("pango_cairo_show_layout");
    if (g_noting) {
        Painted painted;
        painted.kind = Painted::Kind::Text;
        painted.source = cairo_pattern_reference(cairo_get_source(cr));
        painted.text = pango_layout_get_text(layout);
        painted.font = pango_font_description_copy(pango_layout_get_font_description(layout));
        painted.width = pango_layout_get_width(layout);
        painted.ellipsize = pango_layout_get_ellipsize(layout);
        cairo_get_current_point(cr, &painted.x, &painted.y);
        g_painted.push_back(std::move(painted));
    }
    show(cr, layout);
}

namespace {

void paint_bare(cairo_t* cr) {
    PangoLayout* layout = pango_cairo_create_layout(cr);
    pango_layout_set_single_paragraph_mode(layout, TRUE);
    for (const Painted& painted : g_painted) {
        cairo_set_source(cr, painted.source);
        if (painted.kind == Painted::Kind::Text) {
            pango_layout_set_font_description(layout, painted.font);
            pango_layout_set_text(layout, painted.text.c_str(), -1);
            pango_layout_set_width(layout, painted.width);
            pango_layout_set_ellipsize(layout, painted.ellipsize);
            cairo_move_to(cr, painted.x, painted.y);
            pango_cairo_show_layout(cr, layout);
            cairo_new_path(cr);
            continue;
        }
        cairo_new_path(cr);
        cairo_append_path(cr, painted.path);
        if (painted.kind == Painted::Kind::Fill) {
            cairo_fill(cr);
        } else {
            cairo_set_line_width(cr, painted.line_width);
            cairo_stroke(cr);
        }
    }
    g_object_unref(layout);
}

// On a fresh context, as GTK hands one out for each frame.
double milliseconds(cairo_surface_t* surface, const std::function<void(cairo_t*)>& paint) {
    cairo_t* cr = cairo_create(surface);
    const Clock::time_point start = Clock::now();
    paint(cr);
    cairo_surface_flush(surface);
    const double took = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    cairo_destroy(cr);
    return took;
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void fill_folder(const std::string& folder, int files) {
    std::filesystem::create_directories(folder);
    for (int i = 0; i < files; ++i) {
        const std::string path = folder + "/report number " + std::to_string(i) + ".txt";
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0 || ftruncate(fd, 1000L * i) != 0)
            std::abort();
        close(fd);
    }
}

void compare_with_bare(const std::string& scratch, unsigned rounds) {
    constexpr int kWidth = 1920;
    constexpr int kHeight = 1080;
    fill_folder(scratch + "/forty", 39);
    App app;
    app.m_left.navigate_to(scratch + "/forty", true);
    app.m_right.navigate_to(scratch + "/forty", true);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
    const auto frame = [&](cairo_t* cr) { app.draw_frame(cr, kWidth, kHeight); };
    g_noting = true;
    (void)milliseconds(surface, frame);
    g_noting = false;
    const auto texts =
        std::count_if(g_painted.begin(), g_painted.end(),
                      [](const Painted& painted) { return painted.kind == Painted::Kind::Text; });
    std::vector<double> ours;
    std::vector<double> bare;
    for (unsigned round = 0; round < rounds; ++round) {
        ours.push_back(milliseconds(surface, frame));
        bare.push_back(milliseconds(surface, paint_bare));
    }
    std::printf("frame of %d by %d: %zu areas and lines, %ld texts, rows %d\n", kWidth, kHeight,
                g_painted.size() - static_cast<size_t>(texts), static_cast<long>(texts),
                app.rows_in_view(false));
    std::printf("  ferrodeck %6.2f ms   bare %6.2f ms   ratio %.2f\n", median(ours), median(bare),
                median(ours) / median(bare));
    cairo_surface_destroy(surface);
}

double cursor_step(const std::string& folder, unsigned rounds) {
    App app;
    app.m_left.navigate_to(folder, true);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1100, 720);
    const auto frame = [&](cairo_t* cr) { app.draw_frame(cr, 1100, 720); };
    (void)milliseconds(surface, frame);
    GdkEventKey event = {};
    event.type = GDK_KEY_PRESS;
    std::vector<double> times;
    for (unsigned round = 0; round < rounds; ++round) {
        // Down and up in turn past the lower edge, so that each second step scrolls.
        event.keyval = round % 40 < 25 ? GDK_KEY_Down : GDK_KEY_Up;
        times.push_back(milliseconds(surface, [&](cairo_t* cr) {
            app.handle_key(&event);
            frame(cr);
        }));
    }
    cairo_surface_destroy(surface);
    return median(times);
}

void compare_folders(const std::string& scratch, unsigned rounds) {
    fill_folder(scratch + "/hundred", 100);
    fill_folder(scratch + "/many", 100000);
    std::vector<double> ratios;
    std::vector<double> small;
    std::vector<double> large;
    for (int turn = 0; turn < 5; ++turn) {
        small.push_back(cursor_step(scratch + "/hundred", rounds));
        large.push_back(cursor_step(scratch + "/many", rounds));
        ratios.push_back(large.back() / small.back());
    }
    std::printf("cursor step: 100 entries %.2f ms, 100,000 entries %.2f ms, ratio %.2f\n",
                median(small), median(large), median(ratios));
}

void compare_log(const std::string& scratch, unsigned rounds) {
    constexpr int kWidth = 1920;
    constexpr int kHeight = 1080;
    constexpr int kLine = 120;  // characters, as a transfer's lines with their paths
    const std::string text(kLine, 'p');
    for (size_t i = 0; i < Log::kRingSize; ++i)
        Log::infof("%s %zu", text.c_str(), i);
    if (!BgTask::instance().start(BgTask::Kind::Pack, "bench", [&text](BgTask::Reporter& reporter) {
            while (reporter.keep_going()) {
                Log::infof("%s", text.c_str());
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        }))
        std::abort();
    App plain;
    App with_log;
    for (App* app : {&plain, &with_log}) {
        app->m_left.navigate_to(scratch + "/forty", true);
        app->m_right.navigate_to(scratch + "/forty", true);
    }
    with_log.perform(Action::LogWindow, 0);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
    const auto frame = [&](App& app) {
        return milliseconds(surface, [&](cairo_t* cr) { app.draw_frame(cr, kWidth, kHeight); });
    };
    std::vector<double> without;
    std::vector<double> open;
    for (App* app : {&plain, &with_log})
        (void)frame(*app);
    for (unsigned round = 0; round < rounds; ++round) {
        without.push_back(frame(plain));
        open.push_back(frame(with_log));
    }
    std::printf("log of %zu lines at work: without the dialogue %.2f ms, with it %.2f ms, "
                "ratio %.2f\n",
                Log::instance().size(), median(without), median(open),
                median(open) / median(without));
    cairo_surface_destroy(surface);
    BgTask::instance().cancel();
    while (BgTask::instance().is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    BgTask::instance().reap();
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned rounds =
        argc > 1 ? std::max(1U, static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10))) : 300;
    if (!gtk_init_check(nullptr, nullptr)) {
        std::fprintf(stderr, "frame_bench: no display\n");
        return 1;
    }
    char scratch[] = "/tmp/frame_bench.XXXXXX";
    if (!mkdtemp(scratch))
        return 1;
    setenv("XDG_CONFIG_HOME", scratch, 1);  // for the log's file
    Settings& settings = SettingsStore::instance().mutable_get();
    settings.show_size = settings.show_type = settings.show_modified = settings.show_created =
        settings.show_permissions = settings.show_owner = settings.show_group = true;
    compare_with_bare(scratch, rounds);
    compare_folders(scratch, rounds);
    compare_log(scratch, rounds);
    std::filesystem::remove_all(scratch);
    return 0;
}
