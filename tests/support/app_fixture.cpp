#include "app_fixture.h"

#include "app_display.h"
#include "logger.h"
#include "settings.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The race checker sees calls of libraries that it did not compile, but not how they lock.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libfontconfig.so\n"
           "called_from_lib:libpango-1.0.so\n"
           "called_from_lib:libpangoft2-1.0.so\n"
           "called_from_lib:libpangocairo-1.0.so\n"
           "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libcairo.so\n"
           "called_from_lib:libfreetype.so\n"
           "mutex:libgdk-3.so\n"
           "deadlock:libX11.so\n";
}

AppTest::AppTest() : m_app(std::make_unique<App>()) {}

AppTest::~AppTest() {
    if (m_surface)
        cairo_surface_destroy(m_surface);
}

void AppTest::SetUp() {
    // Under ctest each test has a process of its own; these make do when a developer runs several.
    Log::instance().clear();
    SettingsStore::instance().mutable_get() = Settings{};
    for (const char* name : {"settings.json", "geometry.json", "bookmarks.txt", "recent.txt"})
        std::remove(config_file(name).c_str());
    // No desktop service is asked, so that a test does not depend on who is logged in.
    setenv("GDK_BACKEND", "x11", 1);
    setenv("NO_AT_BRIDGE", "1", 1);
    setenv("GTK_IM_MODULE", "gtk-im-context-simple", 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("GIO_USE_VFS", "local", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    setenv("XDG_DATA_DIRS", (test_env::root() + "/data").c_str(), 0);
    if (!test_env::ensure_display())
        GTEST_SKIP() << "no X server, and Xvfb cannot be started";
}

// While what a test's own class holds is still there: the program calls into it until its end.
void AppTest::TearDown() {
    if (m_started)
        finish();
}

std::string AppTest::config_file(const std::string& name) {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/" + name;
}

void AppTest::start(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"ferrodeck", "--left=" + left(), "--right=" + right()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    m_started = true;
    m_app->begin(static_cast<int>(words.size()), argv.data());
    ASSERT_TRUE(pump_until([this] { return !m_app->m_hits.empty(); }));
    frame();
}

void AppTest::finish() {
    m_started = false;
    m_app->finish();
}

void AppTest::pump() {
    while (gtk_events_pending())
        gtk_main_iteration_do(FALSE);
}

bool AppTest::pump_until(const std::function<bool()>& condition, double seconds) {
    const double until = App::now_seconds() + seconds;
    for (;;) {
        pump();
        if (condition())
            return true;
        if (App::now_seconds() > until)
            return false;
        g_usleep(2000);
    }
}

bool AppTest::idle() const {
    return !App::busy() && !m_app->m_transfer_was_running && !m_app->m_bgtask_was_running;
}

void AppTest::key(guint keyval, guint state) {
    GdkEventKey event = {};
    event.type = GDK_KEY_PRESS;
    event.window = m_app->m_window ? gtk_widget_get_window(m_app->m_window) : nullptr;
    event.keyval = keyval;
    event.state = state;
    m_app->handle_key(&event);
    frame();
}

void AppTest::click(double x, double y, int button, guint state, guint32 clicks) {
    m_app->handle_click(x, y, button, state, clicks);
    frame();
}

void AppTest::click(const App::HitRect& hit, int button, guint state, guint32 clicks) {
    click(hit.x + hit.w / 2, hit.y + hit.h / 2, button, state, clicks);
}

void AppTest::double_click(const App::HitRect& hit) {
    click(hit);
    m_app->handle_release();
    click(hit);
    click(hit, 1, 0, 2);
    m_app->handle_release();
    frame();
}

void AppTest::frame(int width, int height) {
    if (width == 0) {
        if (!m_app->m_canvas)
            return;
        width = gtk_widget_get_allocated_width(m_app->m_canvas);
        height = gtk_widget_get_allocated_height(m_app->m_canvas);
    }
    if (m_surface)
        cairo_surface_destroy(m_surface);
    m_surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t* cr = cairo_create(m_surface);
    m_app->draw_frame(cr, width, height);
    EXPECT_EQ(cairo_status(cr), CAIRO_STATUS_SUCCESS);
    cairo_destroy(cr);
    cairo_surface_flush(m_surface);
}

std::string AppTest::pixel(int x, int y) {
    if (x < 0 || y < 0 || x >= cairo_image_surface_get_width(m_surface) ||
        y >= cairo_image_surface_get_height(m_surface))
        return "outside";
    const unsigned char* row =
        cairo_image_surface_get_data(m_surface) +
        static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(m_surface);
    uint32_t value = 0;
    std::memcpy(&value, row + static_cast<ptrdiff_t>(x) * 4, sizeof value);
    char text[8];
    std::snprintf(text, sizeof text, "#%06X", value & 0xffffffU);
    return text;
}

bool AppTest::painted(int x, int y, int w, int h) {
    const std::string first = pixel(x, y);
    for (int row = y; row < y + h; ++row)
        for (int column = x; column < x + w; ++column)
            if (pixel(column, row) != first)
                return true;
    return false;
}

void AppTest::shot(const std::string& name) {
    const char* folder = std::getenv("FERRODECK_SHOTS");
    if (folder && *folder)
        cairo_surface_write_to_png(m_surface, (std::string(folder) + "/" + name + ".png").c_str());
}

App::HitRect AppTest::hit(App::Hit what, int param, int side) {
    for (auto rect = m_app->m_hits.rbegin(); rect != m_app->m_hits.rend(); ++rect)
        if (rect->what == what && (param == -1 || rect->param == param) &&
            (side == -1 || rect->right == (side == 1)))
            return *rect;
    ADD_FAILURE() << "no rectangle " << App::hit_name(what) << " " << param;
    return {};
}

size_t AppTest::count_hits(App::Hit what) const {
    size_t count = 0;
    for (const App::HitRect& rect : m_app->m_hits)
        count += rect.what == what ? 1 : 0;
    return count;
}

void AppTest::put_cursor_on(const std::string& name, bool on_the_right) {
    Pane& list = pane(on_the_right);
    for (size_t i = 0; i < list.entries().size(); ++i)
        if (list.entries()[i].name == name) {
            list.set_cursor(static_cast<int>(i), false);
            return frame();
        }
    ADD_FAILURE() << "no entry " << name;
}

std::vector<std::string> AppTest::names(bool on_the_right) {
    std::vector<std::string> result;
    for (const FsEntry& entry : pane(on_the_right).entries())
        result.push_back(entry.name);
    return result;
}

std::string AppTest::cursor_name(bool on_the_right) {
    const Pane& list = pane(on_the_right);
    const auto cursor = static_cast<size_t>(list.cursor());
    return cursor < list.entries().size() ? list.entries()[cursor].name : "";
}

std::vector<std::string> AppTest::selected_names(bool on_the_right) {
    const Pane& list = pane(on_the_right);
    std::vector<std::string> result;
    for (size_t i = 0; i < list.entries().size(); ++i)
        if (list.is_selected(static_cast<int>(i)))
            result.push_back(list.entries()[i].name);
    return result;
}

std::vector<std::string> AppTest::log_lines() const {
    std::vector<std::string> lines;
    for (const Log::Entry& entry : Log::instance().recent())
        lines.push_back(entry.text);
    return lines;
}

bool AppTest::logged(const std::string& text) const {
    for (const Log::Entry& entry : Log::instance().recent())
        if (entry.text == text)
            return true;
    return false;
}
