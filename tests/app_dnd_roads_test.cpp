// Drag and drop with the built program under a window manager: between its panes, and from and to
// another program.

#include "app_partner.h"
#include "app_roads.h"

#include <csignal>
#include <glib.h>
#include <sys/stat.h>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::Partner;
using test_env::read_file;
using test_env::run;
using test_env::TempDir;
using test_env::write_file;

class DragRoads : public PointerRoads {
  protected:
    struct Place {
        std::string window;
        int x = 0;
        int y = 0;
    };

    void SetUp() override {
        setenv("G_DEBUG", "fatal-criticals", 1);
        PointerRoads::SetUp();
    }
    void open_at_the_left() { open({"--geometry=1100x720+10+40"}); }
    void open_partner(const std::string& actions) {
        m_partner.reset();
        m_partner = std::make_unique<Partner>();
        ASSERT_TRUE(m_partner->start(actions, "300x300+1200+300"));
        sleep_ms(200);  // until the window manager has placed it
    }
    Place partner() const { return {m_partner->window(), 150, 150}; }
    Place in_row(int row, bool right = false) const {
        return {m_window, right ? 800 : 200, row_y(row)};
    }
    Place below_rows(bool right) const { return {m_window, right ? 800 : 200, 600}; }
    void go_to(const Place& place) {
        xdotool("mousemove --window " + place.window + " " + std::to_string(place.x) + " " +
                std::to_string(place.y));
        sleep_ms(60);
    }
    void drag(const Place& from, const Place& to, const std::string& key) {
        go_to(from);
        xdotool("mousedown 1");
        sleep_ms(60);
        go_to({from.window, from.x + 5, from.y + 6});
        go_to({from.window, from.x + 10, from.y + 12});
        if (!key.empty())
            xdotool("keydown " + key);
        go_to({to.window, to.x - 4, to.y});
        go_to(to);
        sleep_ms(200);  // until both programs have told each other what it would do
        xdotool("mouseup 1");
        if (!key.empty())
            xdotool("keyup " + key);
    }
    // On a machine with much to do the answer may come too late for a drop: then it is as if
    // nothing had been dragged, and a user tries again.
    template <class Condition>
    bool drag_until(const Place& from, const Place& to, const std::string& key,
                    Condition condition) {
        for (int i = 0; i < 3; ++i) {
            drag(from, to, key);
            if (wait_until(4, condition))
                return true;
        }
        return false;
    }
    size_t lines(const std::string& prefix) const {
        size_t count = 0;
        for (const std::string& line : m_program.log())
            count += line.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
        return count;
    }
    // The other program's window has taken the keyboard.
    void come_back() { xdotool("windowactivate --sync " + m_window); }
    // A drag that the program's log tells with a line that it has not had before.
    bool drag_until_logged(const Place& from, const Place& to, const std::string& key,
                           const std::string& prefix) {
        const size_t before = lines(prefix);
        return drag_until(from, to, key, [&] { return lines(prefix) > before; });
    }
    bool wait_lines(const std::string& prefix, size_t count) {
        return wait_until(20, [&] { return lines(prefix) >= count; });
    }
    static std::string uri(const std::string& path) {
        char* const text = g_filename_to_uri(path.c_str(), nullptr, nullptr);
        std::string result = text;
        g_free(text);
        return result;
    }

    std::unique_ptr<Partner> m_partner;
};

TEST_F(DragRoads, between_the_panes) {
    make_dirs(r("folder"));
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    open_at_the_left();
    // Into where they are: nothing, and nothing is said.
    ASSERT_TRUE(drag_until_logged(in_row(3), below_rows(false), "",
                                  "drag: 1 item(s) from " + m_left.path()));
    click(200, row_y(1));
    xdotool("keydown ctrl");
    click(200, row_y(2));
    xdotool("keyup ctrl");
    ASSERT_TRUE(drag_until_logged(in_row(1), below_rows(true), "",
                                  "drop: 2 item(s) -> " + m_right.path() + " (copy, from pane)"));
    ASSERT_TRUE(wait_lines("transfer done: 2/2 files", 1));
    EXPECT_EQ(read_file(r("a")), "a");
    EXPECT_EQ(read_file(r("b")), "b");
    EXPECT_TRUE(exists(l("a")) && exists(l("b")));
    sleep_ms(2800);  // until the band with the progress has shrunk to a line of 34 above the rows
    ASSERT_TRUE(drag_until_logged({m_window, 200, row_y(3) + 34}, {m_window, 800, row_y(1) + 34},
                                  "shift",
                                  "drop: 1 item(s) -> " + r("folder") + " (move, from pane)"));
    ASSERT_TRUE(wait_lines("transfer done: 1/1 files", 1));
    EXPECT_EQ(read_file(r("folder/c")), "c");
    EXPECT_FALSE(exists(l("c")));
    EXPECT_EQ(lines("drop: "), 2U);
    EXPECT_EQ(lines("dialog opened: "), 0U);
    quit();
}

TEST_F(DragRoads, from_another_program_all_is_copied) {
    make_dirs(r("folder"));
    write_file(r("here"), "x");
    const TempDir from;
    const std::vector<std::string> names = {"two words", "100%41", "line\nend", "\xff\xfe"};
    std::string list = "# a comment\r\nsftp://server/home/x\r\n";
    for (const std::string& name : names) {
        write_file(from / name, name);
        list += uri(from / name) + "\r\n";
    }
    open_at_the_left();
    open_partner("both");
    m_partner->give(list + "https://example.org/two%20words\r\n");
    ASSERT_TRUE(drag_until_logged(partner(), in_row(1, true), "shift",
                                  "drop: 4 item(s) -> " + r("folder") + " (copy, from outside)"));
    ASSERT_TRUE(m_partner->wait_line("end copy"));
    ASSERT_TRUE(wait_lines("transfer done: 4/4 files", 1));
    for (const std::string& name : names) {
        EXPECT_EQ(read_file(r("folder/" + name)), name);
        EXPECT_EQ(read_file(from / name), name);
    }
    EXPECT_EQ(m_partner->count("asked to delete"), 0U);
    // One that would rather move has its file copied too.
    open_partner("move");
    m_partner->give(uri(from / "two words") + "\r\n");
    ASSERT_TRUE(drag_until_logged(partner(), below_rows(false), "",
                                  "drop: 1 item(s) -> " + m_left.path() + " (copy, from outside)"));
    ASSERT_TRUE(m_partner->wait_line("end copy"));
    ASSERT_TRUE(wait_lines("transfer done: 1/1 files", 1));
    EXPECT_TRUE(exists(l("two words")) && exists(from / "two words"));
    EXPECT_EQ(m_partner->count("asked to delete"), 0U);
    EXPECT_EQ(lines("dialog opened: "), 0U);
    // What cannot be taken is told, once for each; a list that was promised and is not given, or
    // has nothing in it, is no drop.
    m_partner->give("sftp://server/home/x\r\nno address\r\n# nor this\r\n");
    ASSERT_TRUE(drag_until_logged(partner(), below_rows(false), "", "dialog opened: Message"));
    come_back();
    keys("Escape");
    m_partner->give(uri(r("here")) + "\r\n");
    ASSERT_TRUE(drag_until_logged(partner(), below_rows(true), "", "dialog opened: Message"));
    come_back();
    keys("Escape");
    for (const char* empty : {"", "# a comment\r\n"}) {
        m_partner->give(empty);
        const size_t before = m_partner->count("end copy");
        ASSERT_TRUE(drag_until(partner(), below_rows(true), "",
                               [&] { return m_partner->count("end copy") > before; }));
    }
    m_partner->take_back();
    const size_t before = m_partner->count("end copy");
    ASSERT_TRUE(drag_until(partner(), below_rows(true), "",
                           [&] { return m_partner->count("end copy") > before; }));
    EXPECT_EQ(m_partner->count("asked to delete"), 0U);
    EXPECT_EQ(lines("drop: "), 2U);
    EXPECT_EQ(lines("dialog opened: "), 2U);
    come_back();
    quit();
}

TEST_F(DragRoads, to_another_program_which_never_makes_it_delete) {
    const std::vector<std::string> names = {"100%41", "line\nend", "two words"};
    for (const std::string& name : names)
        write_file(l(name), name);
    open_at_the_left();
    open_partner("both");
    click(200, row_y(1));
    keys("ctrl+a");
    ASSERT_TRUE(
        drag_until(in_row(2), partner(), "", [this] { return m_partner->count("drop copy") > 0; }));
    for (const std::string& name : names)
        EXPECT_EQ(m_partner->count("got " + uri(l(name))), 1U) << name;
    EXPECT_EQ(m_partner->count("over") > 0, true);
    // One that takes them as moved moves them itself.
    ASSERT_TRUE(drag_until(in_row(1), partner(), "shift",
                           [this] { return m_partner->count("drop move") > 0; }));
    sleep_ms(300);
    for (const std::string& name : names)
        EXPECT_EQ(read_file(l(name)), name);
    EXPECT_EQ(lines("drop: "), 0U);
    EXPECT_EQ(lines("transfer start: "), 0U);
    come_back();
    quit();
}

}  // namespace
