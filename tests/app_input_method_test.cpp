// Input methods in the text fields: GTK's own for dead keys, Compose and numbers, and one of this
// file's that composes as those of other scripts do.

#include "app_fixture.h"
#include "app_redraw.h"
#include "app_texts.h"

#include "settings.h"

#include <algorithm>
#include <gdk/gdkkeysyms.h>

namespace {

using test_env::write_file;

// --- An input method that says what it is told ------------------------------------------------

// Letters are composed; space or Return commits them in upper case, Escape drops them. "!" deletes
// the two characters before the caret.
struct TellingMethod {
    GtkIMContext parent;
    std::string* composed;
    std::vector<std::string>* told;
};

struct TellingMethodClass {
    GtkIMContextClass parent;
};

G_DEFINE_TYPE(TellingMethod, telling_method, GTK_TYPE_IM_CONTEXT)

TellingMethod& telling(GtkIMContext* context) {
    return *reinterpret_cast<TellingMethod*>(context);
}

void compose(GtkIMContext* context, const std::string& text) {
    *telling(context).composed = text;
    g_signal_emit_by_name(context, "preedit-changed");
}

gboolean telling_filter(GtkIMContext* context, GdkEventKey* event) {
    const std::string composed = *telling(context).composed;
    if (event->type != GDK_KEY_PRESS || event->state & (GDK_CONTROL_MASK | GDK_MOD1_MASK))
        return FALSE;
    if (event->keyval >= GDK_KEY_a && event->keyval <= GDK_KEY_z) {
        compose(context, composed + static_cast<char>(event->keyval));
        return TRUE;
    }
    if (event->keyval == GDK_KEY_exclam) {
        gboolean done = FALSE;
        g_signal_emit_by_name(context, "delete-surrounding", -2, 2, &done);
        return done;
    }
    if (composed.empty())
        return FALSE;
    compose(context, "");
    if (event->keyval == GDK_KEY_Escape)
        return TRUE;
    char* const upper = g_ascii_strup(composed.c_str(), -1);
    g_signal_emit_by_name(context, "commit", upper);
    g_free(upper);
    return TRUE;
}

void telling_preedit(GtkIMContext* context, char** text, PangoAttrList** attributes, int* caret) {
    const std::string& composed = *telling(context).composed;
    if (text)
        *text = g_strdup(composed.c_str());
    if (attributes)
        *attributes = pango_attr_list_new();
    if (caret)  // in characters
        *caret = static_cast<int>(g_utf8_strlen(composed.c_str(), -1));
}

void tell(GtkIMContext* context, const std::string& what) {
    telling(context).told->push_back(what);
}

void telling_method_class_init(TellingMethodClass* type) {
    type->parent.filter_keypress = telling_filter;
    type->parent.get_preedit_string = telling_preedit;
    type->parent.focus_in = [](GtkIMContext* context) { tell(context, "focus in"); };
    type->parent.focus_out = [](GtkIMContext* context) { tell(context, "focus out"); };
    type->parent.reset = [](GtkIMContext* context) {
        tell(context, "reset");
        telling(context).composed->clear();
    };
    type->parent.set_client_window = [](GtkIMContext* context, GdkWindow* window) {
        tell(context, window ? "window" : "no window");
    };
    type->parent.set_cursor_location = [](GtkIMContext* context, GdkRectangle* area) {
        tell(context, "caret at " + std::to_string(area->x) + "," + std::to_string(area->y) + " " +
                          std::to_string(area->width) + "x" + std::to_string(area->height));
    };
    type->parent.set_surrounding = [](GtkIMContext* context, const char* text, int length,
                                      int caret) {
        tell(context, "text " + std::string(text, static_cast<size_t>(length)) + " at " +
                          std::to_string(caret));
    };
}

void telling_method_init(TellingMethod*) {}

// --- The tests --------------------------------------------------------------------------------

class AppInputMethod : public AppTest {
  protected:
    struct Field {
        const char* name;
        std::function<void()> open;
        std::function<std::string()> text;
    };

    // Each with "ab" in it and the caret between.
    std::vector<Field> fields() {
        return {
            {"path",
             [this] {
                 app().begin_path_edit(false);
                 app().m_path_buffer = "ab";
                 app().m_path_caret = 1;
             },
             [this] { return app().m_path_buffer; }},
            {"rename",
             [this] {
                 put_cursor_on("ab");
                 pane().begin_rename();
                 pane().rename_set_caret(1);
             },
             [this] { return pane().rename_buffer(); }},
            {"filter",
             [this] {
                 app().begin_search(false);
                 app().m_search_buffer = "ab";
                 app().m_search_caret = 1;
             },
             [this] { return app().m_search_buffer; }},
            {"input",
             [this] {
                 app().open_text_input(App::Overlay::NewFile, "dlg.new_file_title", "ab");
                 app().m_input_caret = 1;
             },
             [this] { return app().m_input_buffer; }},
            {"find",
             [this] {
                 ASSERT_TRUE(app().open_hex_view(left() + "/ab"));
                 app().open_overlay(App::Overlay::HexView, "ab");
                 app().m_hex_find = "ab";
                 app().m_hex_find_caret = 1;
                 app().m_hex_find_focus = true;
             },
             [this] { return app().m_hex_find; }},
        };
    }
    void close_all() {
        app().end_path_edit();
        pane().cancel_rename();
        app().end_search(true);
        app().cancel_overlay();
        frame();
    }
    // Runs body on each field, opened anew.
    void on_each(const std::function<void(const Field&)>& body) {
        write_file(left() + "/ab", "x");
        start();
        for (const Field& field : fields()) {
            SCOPED_TRACE(field.name);
            field.open();
            frame();
            body(field);
            close_all();
        }
    }
    void keys(std::initializer_list<guint> keyvals, guint state = 0) {
        for (const guint keyval : keyvals)
            key(keyval, state);
    }
    void release(guint keyval, guint state) {
        GdkEventKey event = {};
        event.type = GDK_KEY_RELEASE;
        event.window = gtk_widget_get_window(app().m_window);
        event.keyval = keyval;
        event.state = state;
        app().handle_key_release(&event);
        frame();
    }
    // Ctrl+Shift+U, pressed and let go.
    void begin_number() {
        key(GDK_KEY_U, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
        release(GDK_KEY_Shift_L, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
        release(GDK_KEY_Control_L, GDK_CONTROL_MASK);
    }
    void use_telling_method() {
        auto* const method =
            static_cast<GtkIMContext*>(g_object_new(telling_method_get_type(), nullptr));
        telling(method).composed = &m_composed;
        telling(method).told = &m_told;
        app().use_input_method(method);
    }
    bool told(const std::string& what) {
        return std::find(m_told.begin(), m_told.end(), what) != m_told.end();
    }
    bool redraw_due() { return test_env::redraw_due(app().m_canvas); }
    // As the method would, in characters from the caret.
    bool delete_around_caret(int offset, int count) {
        gboolean done = FALSE;
        g_signal_emit_by_name(app().m_input_method, "delete-surrounding", offset, count, &done);
        return done;
    }
    // Of the field's line, as it was painted last.
    bool line_painted(const std::string& text) { return test_env::painted_text(text) != nullptr; }

    std::string m_composed;
    std::vector<std::string> m_told;
};

TEST_F(AppInputMethod, a_dead_key_and_a_letter_make_one_character) {
    on_each([this](const Field& field) {
        key(GDK_KEY_dead_acute);
        EXPECT_EQ(field.text(), "ab");
        key(GDK_KEY_e);
        EXPECT_EQ(field.text(), "aéb");
        keys({GDK_KEY_dead_diaeresis, GDK_KEY_O});
        EXPECT_EQ(field.text(), "aéÖb");
        key(GDK_KEY_x);
        EXPECT_EQ(field.text(), "aéÖxb");
    });
}

TEST_F(AppInputMethod, compose_and_numbers) {
    on_each([this](const Field& field) {
        keys({GDK_KEY_Multi_key, GDK_KEY_o, GDK_KEY_c});
        EXPECT_EQ(field.text(), "a©b");
        begin_number();
        keys({GDK_KEY_2, GDK_KEY_0, GDK_KEY_a, GDK_KEY_c});
        EXPECT_EQ(field.text(), "a©b");
        key(GDK_KEY_Return);
        EXPECT_EQ(field.text(), "a©€b");
        // The same with the keys held down, which have no meaning of their own meanwhile.
        key(GDK_KEY_U, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
        keys({GDK_KEY_E, GDK_KEY_9}, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
        EXPECT_EQ(field.text(), "a©€b");
        release(GDK_KEY_Shift_L, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
        release(GDK_KEY_Control_L, GDK_CONTROL_MASK);
        EXPECT_EQ(field.text(), "a©€éb");
    });
}

TEST_F(AppInputMethod, what_is_composed_stands_underlined_at_the_caret) {
    on_each([this](const Field& field) {
        test_env::forget_painted();
        begin_number();
        keys({GDK_KEY_2, GDK_KEY_0});
        EXPECT_EQ(app().m_preedit, "u20");
        EXPECT_TRUE(line_painted("au20b"));
        const test_env::PaintedText* const line = test_env::painted_text("au20b");
        ASSERT_TRUE(line);
        // The rule has the colour of the text, and stands under "u20" alone.
        const App::Rect caret = app().m_caret_rect;
        const int y = static_cast<int>(caret.y + caret.h) - 1;
        const int end = static_cast<int>(caret.x);
        EXPECT_EQ(pixel(end - 4, y), line->color);
        EXPECT_EQ(pixel(end - 15, y), line->color);
        EXPECT_NE(pixel(static_cast<int>(line->x) + 2, y), line->color);
        EXPECT_NE(pixel(end + 4, y), line->color);
        shot(std::string("input-method-") + field.name);
        test_env::forget_painted();
        key(GDK_KEY_Escape);
        EXPECT_EQ(app().m_preedit, "");
        EXPECT_EQ(field.text(), "ab");
        EXPECT_TRUE(line_painted("ab"));
    });
}

TEST_F(AppInputMethod, without_a_composition_the_keys_keep_their_meaning) {
    on_each([this](const Field& field) {
        key(GDK_KEY_BackSpace);
        EXPECT_EQ(field.text(), "b");
        key(GDK_KEY_Right);
        key(GDK_KEY_x);
        EXPECT_EQ(field.text(), "bx");
        keys({GDK_KEY_y, GDK_KEY_odiaeresis, GDK_KEY_Cyrillic_es, GDK_KEY_1}, GDK_CONTROL_MASK);
        keys({GDK_KEY_y, GDK_KEY_odiaeresis, GDK_KEY_Cyrillic_es, GDK_KEY_1}, GDK_MOD1_MASK);
        EXPECT_EQ(field.text(), "bx");
        key(GDK_KEY_Escape);
        EXPECT_EQ(app().focused_field(), App::FieldFocus{});
    });
}

TEST_F(AppInputMethod, escape_ends_the_composition_first) {
    on_each([this](const Field& field) {
        begin_number();
        key(GDK_KEY_1);
        key(GDK_KEY_Escape);
        EXPECT_NE(app().focused_field(), App::FieldFocus{});
        key(GDK_KEY_e);
        EXPECT_EQ(field.text(), "aeb");
    });
}

TEST_F(AppInputMethod, the_list_below_composes_nothing) {
    write_file(left() + "/en", "x");
    write_file(left() + "/én", "x");
    start();
    keys({GDK_KEY_dead_acute, GDK_KEY_e});
    EXPECT_EQ(app().m_typeahead, "e");
    EXPECT_EQ(cursor_name(), "en");
    key(GDK_KEY_U, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_preedit, "");
}

TEST_F(AppInputMethod, a_composition_does_not_outlive_its_field) {
    write_file(left() + "/ab", "x");
    start();
    for (const Field& from : fields())
        for (const Field& to : fields()) {
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            from.open();
            frame();
            key(GDK_KEY_dead_acute);
            close_all();
            to.open();
            key(GDK_KEY_e);
            EXPECT_EQ(to.text(), "aeb");
            EXPECT_EQ(app().m_preedit, "");
            close_all();
        }
    // The same field of the other side is another one.
    app().begin_path_edit(false);
    key(GDK_KEY_dead_acute);
    app().begin_path_edit(true);
    key(GDK_KEY_e);
    EXPECT_EQ(app().m_path_buffer, right() + "e");
}

TEST_F(AppInputMethod, a_click_ends_a_composition) {
    start();
    app().begin_path_edit(false);
    frame();
    begin_number();
    EXPECT_NE(app().m_preedit, "");
    click(hit(App::Hit::PaneBanner, -1, 1));
    EXPECT_EQ(app().m_preedit, "");
    EXPECT_EQ(app().m_path_edit, 0);
    key(GDK_KEY_2);
    EXPECT_EQ(app().m_path_buffer, left() + "2");
}

TEST_F(AppInputMethod, another_scripts_method_has_all_keys_while_it_composes) {
    write_file(left() + "/ab", "x");
    start();
    use_telling_method();
    for (const Field& field : fields()) {
        SCOPED_TRACE(field.name);
        field.open();
        frame();
        keys({GDK_KEY_n, GDK_KEY_i});
        EXPECT_EQ(field.text(), "ab");
        EXPECT_EQ(app().m_preedit, "ni");
        key(GDK_KEY_Return);
        EXPECT_EQ(field.text(), "aNIb");
        EXPECT_NE(app().focused_field(), App::FieldFocus{});
        m_told.clear();
        gboolean known = FALSE;
        g_signal_emit_by_name(app().m_input_method, "retrieve-surrounding", &known);
        EXPECT_TRUE(known);
        EXPECT_TRUE(told("text aNIb at 3"));
        key(GDK_KEY_exclam);
        EXPECT_EQ(field.text(), "ab");
        key(GDK_KEY_x);
        key(GDK_KEY_space);
        EXPECT_EQ(field.text(), "aXb");
        key(GDK_KEY_x);
        key(GDK_KEY_Escape);
        EXPECT_EQ(field.text(), "aXb");
        EXPECT_NE(app().focused_field(), App::FieldFocus{});
        close_all();
    }
    EXPECT_EQ(pane().filter(), "");
}

TEST_F(AppInputMethod, a_filter_narrows_with_what_is_committed) {
    for (const char* name : {"NI", "other"})
        write_file(left() + "/" + name, "x");
    start();
    use_telling_method();
    app().begin_search(false);
    keys({GDK_KEY_n, GDK_KEY_i});
    EXPECT_EQ(names().size(), 3U);
    key(GDK_KEY_space);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "NI"}));
    key(GDK_KEY_exclam);
    EXPECT_EQ(names().size(), 3U);
}

TEST_F(AppInputMethod, the_method_knows_of_focus_caret_and_end) {
    start();
    use_telling_method();
    EXPECT_TRUE(told("window"));
    app().set_window_focus(false);
    app().begin_path_edit(false);
    app().m_path_buffer = "i";
    app().m_path_caret = 0;
    frame();
    EXPECT_FALSE(told("focus in"));
    // The path bar of the left side: 10 in, and 4 from its edges.
    EXPECT_TRUE(told("caret at 10,160 2x18"));
    app().set_window_focus(true);
    EXPECT_EQ(m_told.back(), "focus in");
    const size_t before = m_told.size();
    frame();
    EXPECT_EQ(m_told.size(), before);  // nothing has moved
    SettingsStore::instance().mutable_get().font_scale = 200;
    frame(2200, 1440);
    EXPECT_EQ(m_told.back(), "caret at 20,320 3x36");
    app().set_window_focus(false);
    EXPECT_EQ(m_told.back(), "focus out");
    app().set_window_focus(true);
    key(GDK_KEY_x);
    m_told.clear();
    app().end_path_edit();
    frame();
    EXPECT_EQ(m_told, (std::vector<std::string>{"reset", "focus out"}));
    m_told.clear();
    finish();
    EXPECT_EQ(m_told, (std::vector<std::string>{"no window"}));
    EXPECT_FALSE(app().m_input_method);
}

TEST_F(AppInputMethod, a_method_that_is_replaced_is_let_go_whole) {
    start();
    use_telling_method();
    app().set_window_focus(true);
    app().begin_path_edit(false);
    frame();
    auto* const first = static_cast<GtkIMContext*>(g_object_ref(app().m_input_method));
    m_told.clear();
    app().use_input_method(gtk_im_context_simple_new());
    EXPECT_EQ(m_told, (std::vector<std::string>{"focus out", "no window"}));
    EXPECT_EQ(G_OBJECT(first)->ref_count, 1U);
    frame();
    g_signal_emit_by_name(first, "commit", "late");
    EXPECT_EQ(app().m_path_buffer, left());
    g_object_unref(first);
}

// Another field may have had the caret in between, of another window even.
TEST_F(AppInputMethod, a_field_opened_anew_tells_its_caret_again) {
    start();
    use_telling_method();
    const auto open = [this] {
        app().begin_path_edit(false);
        app().m_path_caret = 0;
        frame();
    };
    open();
    EXPECT_TRUE(told("caret at 10,160 2x18"));
    app().end_path_edit();
    frame();
    m_told.clear();
    open();
    EXPECT_TRUE(told("caret at 10,160 2x18"));
}

TEST_F(AppInputMethod, the_caret_within_a_composition_counts_characters) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    frame();
    m_composed = "äö";
    g_signal_emit_by_name(app().m_input_method, "preedit-changed");
    EXPECT_EQ(app().m_preedit, "äö");
    EXPECT_EQ(app().m_preedit_caret, 4U);
}

// Not every method tells that what it composed has gone with a reset.
TEST_F(AppInputMethod, a_click_ends_another_scripts_composition) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    frame();
    key(GDK_KEY_x);
    ASSERT_EQ(app().m_preedit, "x");
    m_told.clear();
    click(hit(App::Hit::PaneBanner, -1, 1));
    EXPECT_TRUE(told("reset"));
    EXPECT_EQ(app().m_preedit, "");
    EXPECT_EQ(app().m_path_buffer, left());
}

TEST_F(AppInputMethod, characters_around_the_caret_are_deleted_whole) {
    struct Case {
        int offset;  // characters from the caret
        int count;
        const char* text;
        size_t caret;
    };
    write_file(left() + "/ab", "x");
    start();
    use_telling_method();
    for (const Case& c :
         {Case{-1, 1, "ä€b", 5}, Case{-2, 1, "äöb", 4}, Case{-2, 2, "äb", 2}, Case{0, 1, "ä€ö", 7},
          Case{-1, 2, "ä€", 5}, Case{1, 1, "ä€öb", 7}, Case{-9, 1, "€öb", 5}, Case{0, 9, "ä€ö", 7},
          Case{0, 0, "ä€öb", 7}, Case{0, -1, "ä€öb", 7}}) {
        SCOPED_TRACE(std::to_string(c.offset) + " " + std::to_string(c.count));
        const std::string text = "ä€öb";
        app().begin_path_edit(false);
        app().m_path_buffer = text;
        app().m_path_caret = 7;
        frame();
        EXPECT_TRUE(delete_around_caret(c.offset, c.count));
        EXPECT_EQ(app().m_path_buffer, c.text);
        EXPECT_EQ(app().m_path_caret, c.caret);
        close_all();
        put_cursor_on("ab");
        pane().begin_rename();
        pane().rename_set_caret(0);
        while (!pane().rename_buffer().empty())
            pane().rename_delete();
        pane().rename_insert(text);
        pane().rename_set_caret(7);
        frame();
        EXPECT_TRUE(delete_around_caret(c.offset, c.count));
        EXPECT_EQ(pane().rename_buffer(), c.text);
        EXPECT_EQ(pane().rename_caret(), c.caret);
        close_all();
    }
}

TEST_F(AppInputMethod, what_comes_from_another_process_is_painted) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    key(GDK_KEY_x);
    (void)redraw_due();
    m_composed = "xy";
    g_signal_emit_by_name(app().m_input_method, "preedit-changed");
    EXPECT_TRUE(redraw_due());
    ASSERT_FALSE(redraw_due());
    g_signal_emit_by_name(app().m_input_method, "commit", "late");
    EXPECT_TRUE(redraw_due());
    ASSERT_FALSE(redraw_due());
    EXPECT_TRUE(delete_around_caret(-1, 1));
    EXPECT_TRUE(redraw_due());
    EXPECT_EQ(app().m_path_buffer, left() + "lat");
}

// What was wrong about the path is not about what is left of it.
TEST_F(AppInputMethod, deleting_takes_the_error_of_a_path_away) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    app().path_insert("/none");
    key(GDK_KEY_Return);
    ASSERT_NE(app().m_path_error, "");
    EXPECT_TRUE(delete_around_caret(-1, 1));
    EXPECT_EQ(app().m_path_error, "");
}

TEST_F(AppInputMethod, what_is_composed_for_no_field_is_not_kept) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    key(GDK_KEY_x);
    app().end_path_edit();
    frame();
    m_composed = "xy";
    g_signal_emit_by_name(app().m_input_method, "preedit-changed");
    EXPECT_EQ(app().m_preedit, "");
}

// Another process commits when it comes to it; the field it meant may have gone.
TEST_F(AppInputMethod, what_comes_too_late_goes_nowhere) {
    start();
    use_telling_method();
    app().begin_path_edit(false);
    key(GDK_KEY_x);
    app().end_path_edit();
    app().begin_search(false);
    g_signal_emit_by_name(app().m_input_method, "commit", "late");
    gboolean done = TRUE;
    g_signal_emit_by_name(app().m_input_method, "delete-surrounding", -1, 1, &done);
    EXPECT_FALSE(done);
    EXPECT_EQ(app().m_search_buffer, "");
    EXPECT_EQ(app().m_path_buffer, left());
    g_signal_emit_by_name(app().m_input_method, "commit", "late");
    EXPECT_EQ(app().m_search_buffer, "");
    frame();
    g_signal_emit_by_name(app().m_input_method, "commit", "now");
    EXPECT_EQ(app().m_search_buffer, "now");
}

// What is being composed stands in the field, where nothing else may.
TEST_F(AppInputMethod, a_filter_that_is_being_composed_has_no_hint) {
    start();
    use_telling_method();
    app().begin_search(false);
    test_env::forget_painted();
    frame();
    EXPECT_NE(test_env::painted_text("Filter this folder…"), nullptr);
    key(GDK_KEY_x);
    ASSERT_EQ(app().m_preedit, "x");
    test_env::forget_painted();
    frame();
    EXPECT_EQ(test_env::painted_text("Filter this folder…"), nullptr);
    EXPECT_NE(test_env::painted_text("x"), nullptr);
}

}  // namespace
