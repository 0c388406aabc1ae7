// Cursor, selection, what an action works on, and scrolling.

#include "pane_fixture.h"

#include <climits>
#include <sys/stat.h>
#include <unistd.h>

using Move = Pane::Move;
using test_env::write_file;

// --- set_cursor ---------------------------------------------------------------------------------

TEST_F(PaneTest, set_cursor_is_clamped_to_the_list) {
    show({"a", "b", "c"});
    pane.set_cursor(2, false);
    EXPECT_EQ(pane.cursor(), 2);
    pane.set_cursor(99, false);
    EXPECT_EQ(pane.cursor(), 3);
    pane.set_cursor(-5, false);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_FALSE(pane.has_selection());
}

TEST_F(PaneTest, set_cursor_selects_its_row_alone_when_asked) {
    show({"a", "b", "c"});
    select({"a", "b"});
    pane.set_cursor(3, false);
    EXPECT_EQ(selection(), (Names{"a", "b"}));
    pane.set_cursor(3, true);
    EXPECT_EQ(selection(), Names{"c"});
    pane.set_cursor(0, true);
    EXPECT_FALSE(pane.has_selection());  // the parent row
}

TEST_F(PaneTest, set_cursor_moves_the_anchor) {
    show({"a", "b", "c"});
    pane.set_cursor(2, false);
    pane.extend_selection_to(3);
    EXPECT_EQ(selection(), (Names{"b", "c"}));
    pane.set_cursor(99, false);
    pane.extend_selection_to(2);
    EXPECT_EQ(selection(), (Names{"b", "c"}));
}

// --- move_cursor --------------------------------------------------------------------------------

TEST_F(PaneTest, moves_go_where_they_say_and_stay_in_the_list) {
    show({"a", "b", "c", "d", "e", "f", "g", "h", "i"});  // rows 0 to 9
    struct {
        int from;
        Move move;
        int page;
        int to;
    } const rows[] = {
        {3, Move::Up, 4, 2},           {0, Move::Up, 4, 0},       {3, Move::Down, 4, 4},
        {9, Move::Down, 4, 9},         {6, Move::PageUp, 4, 2},   {3, Move::PageUp, 4, 0},
        {3, Move::PageDown, 4, 7},     {7, Move::PageDown, 4, 9}, {5, Move::First, 4, 0},
        {5, Move::Last, 4, 9},         {5, Move::PageUp, 0, 4},   {5, Move::PageDown, 0, 6},
        {5, Move::PageDown, -7, 6},    {5, Move::PageUp, -7, 4},  {5, Move::PageDown, INT_MAX, 9},
        {5, Move::PageUp, INT_MAX, 0},
    };
    for (const auto& r : rows) {
        pane.set_cursor(r.from, false);
        pane.move_cursor(r.move, false, r.page);
        EXPECT_EQ(pane.cursor(), r.to)
            << r.from << " " << static_cast<int>(r.move) << " " << r.page;
    }
}

TEST_F(PaneTest, plain_moves_select_the_row_arrived_at) {
    show({"a", "b"});
    pane.select_all();
    pane.move_cursor(Move::Down, false, 1);
    EXPECT_EQ(selection(), Names{"a"});
    pane.move_cursor(Move::Down, false, 1);
    EXPECT_EQ(selection(), Names{"b"});
    pane.move_cursor(Move::Down, false, 1);  // at the end: the row stays selected
    EXPECT_EQ(selection(), Names{"b"});
    pane.move_cursor(Move::First, false, 1);
    EXPECT_FALSE(pane.has_selection());  // the parent row
}

TEST_F(PaneTest, extending_moves_pivot_on_the_anchor) {
    show({"a", "b", "c", "d", "e"});
    pane.set_cursor(3, true);
    pane.move_cursor(Move::Down, true, 1);
    pane.move_cursor(Move::Down, true, 1);
    EXPECT_EQ(selection(), (Names{"c", "d", "e"}));
    pane.move_cursor(Move::Up, true, 1);
    EXPECT_EQ(selection(), (Names{"c", "d"}));
    pane.move_cursor(Move::First, true, 1);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(selection(), (Names{"a", "b", "c"}));  // not the parent row
    pane.move_cursor(Move::Last, true, 1);
    EXPECT_EQ(selection(), (Names{"c", "d", "e"}));
}

TEST_F(PaneTest, a_plain_move_sets_the_anchor) {
    show({"a", "b", "c", "d"});
    pane.move_cursor(Move::Down, false, 1);
    pane.move_cursor(Move::Down, false, 1);
    pane.move_cursor(Move::Down, true, 1);
    EXPECT_EQ(selection(), (Names{"b", "c"}));
}

// --- Selection ----------------------------------------------------------------------------------

TEST_F(PaneTest, toggling_adds_and_removes_and_takes_the_cursor_along) {
    show({"a", "b", "c"});
    pane.toggle_selection(1);
    pane.toggle_selection(3);
    EXPECT_EQ(selection(), (Names{"a", "c"}));
    EXPECT_EQ(pane.cursor(), 3);
    pane.toggle_selection(1);
    EXPECT_EQ(selection(), Names{"c"});
    EXPECT_EQ(pane.cursor(), 1);
    pane.toggle_selection(3);
    EXPECT_FALSE(pane.has_selection());
    pane.extend_selection_to(2);  // the anchor is the row last toggled
    EXPECT_EQ(selection(), (Names{"b", "c"}));
}

TEST_F(PaneTest, toggling_the_parent_row_or_no_row_does_nothing) {
    show({"a", "b"});
    pane.set_cursor(2, true);
    for (const int index : {0, -1, 3, INT_MAX, INT_MIN}) {
        pane.toggle_selection(index);
        EXPECT_EQ(selection(), Names{"b"}) << index;
        EXPECT_EQ(pane.cursor(), 2) << index;
    }
}

TEST_F(PaneTest, extending_replaces_the_selection_and_clamps) {
    show({"a", "b", "c", "d"});
    pane.set_cursor(2, false);
    pane.extend_selection_to(99);
    EXPECT_EQ(selection(), (Names{"b", "c", "d"}));
    EXPECT_EQ(pane.cursor(), 4);
    pane.extend_selection_to(-3);
    EXPECT_EQ(selection(), (Names{"a", "b"}));
    EXPECT_EQ(pane.cursor(), 0);
    pane.extend_selection_to(2);
    EXPECT_EQ(selection(), Names{"b"});
}

TEST_F(PaneTest, select_all_and_invert_leave_parent_row_and_cursor_alone) {
    show({"a", "b", "c"});
    cursor_on("b");
    pane.select_all();
    EXPECT_EQ(selection(), (Names{"a", "b", "c"}));
    EXPECT_FALSE(pane.is_selected(0));
    pane.invert_selection();
    EXPECT_FALSE(pane.has_selection());
    pane.toggle_selection(1);
    cursor_on("b");
    pane.invert_selection();
    EXPECT_EQ(selection(), (Names{"b", "c"}));
    EXPECT_FALSE(pane.is_selected(0));
    EXPECT_EQ(at_cursor(), "b");
    pane.clear_selection();
    EXPECT_FALSE(pane.has_selection());
    EXPECT_EQ(at_cursor(), "b");
}

TEST_F(PaneTest, every_row_of_the_root_can_be_selected) {
    pane.navigate_to("/", false);
    pane.select_all();
    EXPECT_EQ(selection(), names());
    EXPECT_TRUE(pane.is_selected(0));
}

TEST_F(PaneTest, rows_out_of_the_list_are_not_selected) {
    show({"a"});
    pane.select_all();
    EXPECT_FALSE(pane.is_selected(-1));
    EXPECT_FALSE(pane.is_selected(2));
}

TEST_F(PaneTest, a_pattern_adds_to_the_selection_and_counts_matches) {
    show({"a.c", "b.c", "c.h", "D.C"});
    select({"a.c", "c.h"});
    EXPECT_EQ(pane.select_pattern("*.c", false), 2);  // one of them selected before
    EXPECT_EQ(selection(), (Names{"a.c", "b.c", "c.h"}));
    EXPECT_EQ(pane.select_pattern("*.c", true), 2);
    EXPECT_EQ(selection(), Names{"c.h"});
    EXPECT_EQ(pane.select_pattern("*.c", true), 2);  // nothing changes, matched all the same
    EXPECT_EQ(pane.select_pattern("x*", false), 0);
    EXPECT_EQ(selection(), Names{"c.h"});
}

TEST_F(PaneTest, a_pattern_regards_case_and_whole_names) {
    show({"Read.me", "read.me", "x"});
    EXPECT_EQ(pane.select_pattern("R*", false), 1);
    EXPECT_EQ(selection(), Names{"Read.me"});
    EXPECT_EQ(pane.select_pattern("ead", false), 0);
    EXPECT_EQ(pane.select_pattern("[xr]*", false), 2);
}

TEST_F(PaneTest, a_pattern_never_matches_the_parent_row) {
    show({"a", ".b"}, true);
    EXPECT_EQ(pane.select_pattern("*", false), 2);
    EXPECT_EQ(selection(), (Names{".b", "a"}));
    EXPECT_EQ(pane.select_pattern("..", false), 0);
    EXPECT_EQ(pane.select_pattern("", false), 0);
    EXPECT_EQ(pane.select_pattern("", true), 0);
    EXPECT_EQ(selection(), (Names{".b", "a"}));
}

TEST_F(PaneTest, a_pattern_leaves_the_cursor_alone) {
    show({"a", "b"});
    cursor_on("b");
    pane.select_pattern("a", false);
    EXPECT_EQ(at_cursor(), "b");
}

// --- What an action works on --------------------------------------------------------------------

TEST_F(PaneTest, without_a_selection_an_action_works_on_the_cursor_row) {
    show({"a", "b"});
    cursor_on("b");
    EXPECT_EQ(action_names(), Names{"b"});
    EXPECT_EQ(pane.action_paths(), Names{folder / "b"});
    EXPECT_EQ(pane.selected_count(), 1);
    EXPECT_TRUE(pane.selected_paths().empty());  // no fallback here
}

TEST_F(PaneTest, on_the_parent_row_an_action_works_on_nothing) {
    show({"a", "b"});
    ASSERT_EQ(pane.cursor(), 0);
    EXPECT_TRUE(pane.action_entries().empty());
    EXPECT_TRUE(pane.action_paths().empty());
    EXPECT_TRUE(pane.selected_paths().empty());
    EXPECT_EQ(pane.selected_count(), 0);
    EXPECT_EQ(pane.selected_bytes(), 0);
}

TEST_F(PaneTest, with_a_selection_the_cursor_row_plays_no_part) {
    show({"a", "b", "c"});
    pane.toggle_selection(row("c"));
    pane.toggle_selection(row("a"));
    cursor_on("b");
    EXPECT_EQ(action_names(), (Names{"a", "c"}));  // in the order of rows
    EXPECT_EQ(pane.action_paths(), (Names{folder / "a", folder / "c"}));
    EXPECT_EQ(pane.selected_paths(), (Names{folder / "a", folder / "c"}));
    EXPECT_EQ(pane.selected_count(), 2);
}

TEST_F(PaneTest, paths_in_the_root_have_one_slash) {
    pane.navigate_to("/", false);
    pane.set_cursor(row("usr"), true);
    EXPECT_EQ(pane.action_paths(), Names{"/usr"});
    EXPECT_EQ(pane.selected_paths(), Names{"/usr"});
}

TEST_F(PaneTest, paths_hold_the_sanitised_name) {
    show({"caf\xE9"});
    pane.set_cursor(1, false);
    EXPECT_EQ(pane.action_paths(), Names{folder / "caf\xEF\xBF\xBD"});
    EXPECT_FALSE(test_env::exists(pane.action_paths()[0]));
}

TEST_F(PaneTest, folders_add_nothing_to_the_bytes) {
    write_file(folder / "a", "12345");
    write_file(folder / "b", "123");
    add({"d/"});
    ASSERT_EQ(symlink("d", (folder / "l").c_str()), 0);
    ASSERT_EQ(symlink("a", (folder / "m").c_str()), 0);
    pane.navigate_to(folder.path(), false);
    cursor_on("a");
    EXPECT_EQ(pane.selected_bytes(), 5);
    cursor_on("d");
    EXPECT_EQ(pane.selected_bytes(), 0);
    pane.select_all();
    EXPECT_EQ(pane.selected_count(), 5);
    EXPECT_EQ(pane.selected_bytes(), 9);  // the link to a file has its own one byte
}

// --- Scrolling ----------------------------------------------------------------------------------

TEST_F(PaneTest, scroll_stays_where_the_last_row_can_be_seen) {
    show({"a", "b", "c", "d", "e", "f", "g", "h", "i"});  // 10 rows
    struct {
        int rows;
        int visible;
        int scroll;
    } const cases[] = {
        {3, 4, 3},       {6, 4, 6},   {7, 4, 6},  {INT_MAX, 4, 6}, {-1, 4, 0},
        {INT_MIN, 4, 0}, {3, 10, 0},  {3, 50, 0}, {9, 1, 9},       {99, 1, 9},
        {99, 0, 9},      {99, -3, 9}, {5, 5, 5},  {6, 5, 5},       {4, INT_MAX, 0},
    };
    for (const auto& c : cases) {
        pane.set_scroll(c.rows, c.visible);
        EXPECT_EQ(pane.scroll(), c.scroll) << c.rows << " " << c.visible;
    }
}

TEST_F(PaneTest, scroll_by_goes_on_from_where_it_is) {
    show({"a", "b", "c", "d", "e", "f", "g", "h", "i"});
    pane.scroll_by(3, 4);
    EXPECT_EQ(pane.scroll(), 3);
    pane.scroll_by(2, 4);
    EXPECT_EQ(pane.scroll(), 5);
    pane.scroll_by(3, 4);
    EXPECT_EQ(pane.scroll(), 6);
    pane.scroll_by(-2, 4);
    EXPECT_EQ(pane.scroll(), 4);
    pane.scroll_by(INT_MAX, 4);
    EXPECT_EQ(pane.scroll(), 6);
    pane.scroll_by(INT_MIN, 4);
    EXPECT_EQ(pane.scroll(), 0);
}

TEST_F(PaneTest, the_cursor_is_brought_into_view_by_the_shortest_way) {
    show({"a", "b", "c", "d", "e", "f", "g", "h", "i"});
    struct {
        int scroll;
        int cursor;
        int visible;
        int to;
    } const cases[] = {
        {3, 3, 4, 3},  {3, 6, 4, 3},  {3, 7, 4, 4},  {3, 2, 4, 2},       {3, 0, 4, 0},
        {3, 9, 4, 6},  {0, 9, 1, 9},  {5, 2, 1, 2},  {3, 9, 0, 3},       {3, 0, 0, 3},
        {3, 0, -1, 3}, {3, 9, -1, 3}, {0, 9, 10, 0}, {0, 9, INT_MAX, 0},
    };
    for (const auto& c : cases) {
        pane.set_scroll(c.scroll, 1);
        pane.set_cursor(c.cursor, false);
        pane.ensure_cursor_visible(c.visible);
        EXPECT_EQ(pane.scroll(), c.to) << c.scroll << " " << c.cursor << " " << c.visible;
    }
}

// The root has no parent row, so that any of its entries may be the first.
TEST_F(PaneTest, a_remembered_name_may_be_that_of_the_first_row) {
    pane.navigate_to("/", false);
    ASSERT_GT(pane.entries().size(), 2U);
    pane.set_cursor(2, false);
    pane.remember_cursor_name(pane.entries()[0].name);
    pane.reload(false);
    EXPECT_EQ(pane.cursor(), 0);
}

TEST_F(PaneTest, without_rows_there_is_no_cursor_to_move) {
    pane.navigate_to(folder / "not there", false);
    ASSERT_TRUE(pane.entries().empty());
    pane.set_cursor(0, true);
    EXPECT_EQ(pane.cursor(), 0);
    for (const Pane::Move move : {Pane::Move::Down, Pane::Move::Last, Pane::Move::PageUp}) {
        pane.move_cursor(move, false, 5);
        EXPECT_EQ(pane.cursor(), 0);
    }
    pane.extend_selection_to(3);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_FALSE(pane.has_selection());
}

TEST_F(PaneTest, files_without_bytes_add_none_to_what_is_filtered) {
    show({"a", "b", "c"});
    pane.set_filter("a", false);
    EXPECT_EQ(pane.listing().file_count, 1);
    EXPECT_EQ(pane.listing().total_bytes, 0);
}
