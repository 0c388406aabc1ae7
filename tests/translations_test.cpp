// Holds what the translators wrote to what can be told without knowing the language: script,
// typography, what is still English and what is said in two ways, and that there is a glyph for
// each letter.

#include "i18n_data.h"
#include "test_env.h"

#include <cstring>
#include <glib.h>
#include <gtest/gtest.h>
#include <map>
#include <pango/pangocairo.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using i18n_data::KEYS;
using i18n_data::kTextCount;
using i18n_data::LangEntry;
using i18n_data::LANGS;

namespace {

bool is(const LangEntry& language, const char* code) {
    return std::strcmp(language.code, code) == 0;
}

const LangEntry& english() {
    for (const LangEntry& language : LANGS)
        if (is(language, "en"))
            return language;
    return LANGS[0];
}

// Calls visit(language, key, text, English text) for every text but the English ones.
template <typename Visit>
void for_each_text(Visit visit) {
    for (const LangEntry& language : LANGS)
        for (size_t i = 0; i < kTextCount && !is(language, "en"); ++i)
            visit(language, std::string(KEYS[i]), std::string(language.values[i]),
                  std::string(english().values[i]));
}

std::vector<gunichar> characters(const std::string& text) {
    std::vector<gunichar> result;
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p))
        result.push_back(g_utf8_get_char(p));
    return result;
}

// A list in tests/data: lines "what<TAB>languages, with blanks between<TAB>reason".
class Waivers {
  public:
    explicit Waivers(const std::string& name) {
        std::istringstream lines(test_env::read_file(SOURCE_DIR "/tests/data/" + name));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string what, languages, reason;
            std::getline(fields, what, '\t');
            std::getline(fields, languages, '\t');
            std::getline(fields, reason);
            EXPECT_FALSE(reason.empty()) << name << ": no reason: " << line;
            std::istringstream codes(languages);
            for (std::string code; codes >> code;)
                EXPECT_TRUE(m_rows.emplace(code, what).second) << name << ": twice: " << line;
        }
    }
    bool take(const std::string& code, const std::string& what) {
        if (!m_rows.contains({code, what}))
            return false;
        m_taken.emplace(code, what);
        return true;
    }
    // One that nothing needs any more would hide the next fault.
    void expect_all_taken() const {
        for (const auto& row : m_rows)
            EXPECT_TRUE(m_taken.contains(row)) << row.first << " needs no waiver: " << row.second;
    }

  private:
    std::set<std::pair<std::string, std::string>> m_rows;
    std::set<std::pair<std::string, std::string>> m_taken;
};

const std::set<GUnicodeScript>& scripts_of(const LangEntry& language) {
    using Scripts = std::set<GUnicodeScript>;
    static const std::map<std::string, Scripts> others = {
        {"ar", {G_UNICODE_SCRIPT_ARABIC}},
        {"bg", {G_UNICODE_SCRIPT_CYRILLIC}},
        {"bn", {G_UNICODE_SCRIPT_BENGALI}},
        {"el", {G_UNICODE_SCRIPT_GREEK}},
        {"fa", {G_UNICODE_SCRIPT_ARABIC}},
        {"he", {G_UNICODE_SCRIPT_HEBREW}},
        {"hi", {G_UNICODE_SCRIPT_DEVANAGARI}},
        {"ja", {G_UNICODE_SCRIPT_HAN, G_UNICODE_SCRIPT_HIRAGANA, G_UNICODE_SCRIPT_KATAKANA}},
        {"ko", {G_UNICODE_SCRIPT_HANGUL}},
        {"ne", {G_UNICODE_SCRIPT_DEVANAGARI}},
        {"ru", {G_UNICODE_SCRIPT_CYRILLIC}},
        {"sr", {G_UNICODE_SCRIPT_CYRILLIC}},
        {"th", {G_UNICODE_SCRIPT_THAI}},
        {"uk", {G_UNICODE_SCRIPT_CYRILLIC}},
        {"ur", {G_UNICODE_SCRIPT_ARABIC}},
        {"zh", {G_UNICODE_SCRIPT_HAN}},
        {"zh_TW", {G_UNICODE_SCRIPT_HAN}},
    };
    static const Scripts latin = {G_UNICODE_SCRIPT_LATIN};
    const auto found = others.find(language.code);
    return found == others.end() ? latin : found->second;
}

TEST(Translations, every_text_is_written_in_its_script) {
    Waivers waivers("translations_script.tsv");
    for_each_text([&](const LangEntry& language, const std::string& key, const std::string& text,
                      const std::string&) {
        const std::set<GUnicodeScript>& own = scripts_of(language);
        bool has_own = false;
        for (const gunichar c : characters(text)) {
            const GUnicodeScript script = g_unichar_get_script(c);
            has_own |= own.contains(script);
            // Names of programs and formats are Latin everywhere.
            EXPECT_TRUE(own.contains(script) || script == G_UNICODE_SCRIPT_LATIN ||
                        script == G_UNICODE_SCRIPT_COMMON || script == G_UNICODE_SCRIPT_INHERITED)
                << language.code << " " << key << ": " << text;
        }
        EXPECT_TRUE(has_own || waivers.take(language.code, key))
            << language.code << " " << key << ": " << text;
    });
    waivers.expect_all_taken();
}

TEST(Translations, nothing_is_as_in_english_without_a_reason) {
    Waivers waivers("translations_same.tsv");
    for_each_text([&](const LangEntry& language, const std::string& key, const std::string& text,
                      const std::string& in_english) {
        EXPECT_TRUE(text != in_english || waivers.take(language.code, key))
            << language.code << " " << key << ": " << text;
    });
    waivers.expect_all_taken();
}

TEST(Translations, one_english_text_is_said_in_one_way_unless_there_is_a_reason) {
    Waivers waivers("translations_two_ways.tsv");
    for (const LangEntry& language : LANGS) {
        std::map<std::string, std::set<std::string>> ways;
        for (size_t i = 0; i < kTextCount; ++i)
            ways[english().values[i]].insert(language.values[i]);
        for (const auto& [in_english, texts] : ways) {
            std::string all;
            for (const std::string& text : texts)
                all += " | " + text;
            EXPECT_TRUE(texts.size() == 1 || waivers.take(language.code, in_english))
                << language.code << " " << in_english << ":" << all;
        }
    }
    waivers.expect_all_taken();
}

bool joins_letters(gunichar c) {
    return c == 0x200c || c == 0x200d;  // zero-width non-joiner and joiner
}

bool isolates(gunichar c) {
    return c == 0x2066 || c == 0x2069;  // from left to right, and the end of that
}

TEST(Translations, the_typography_is_clean) {
    for_each_text([](const LangEntry& language, const std::string& key, const std::string& text,
                     const std::string& in_english) {
        const std::string where = std::string(language.code) + " " + key + ": " + text;
        char* const normal = g_utf8_normalize(text.c_str(), -1, G_NORMALIZE_NFC);
        EXPECT_EQ(text, normal) << where << " (NFC)";
        g_free(normal);
        EXPECT_EQ(text.find("  "), std::string::npos) << where << " (double blank)";
        EXPECT_EQ(text.find("..."), std::string::npos) << where << " (three dots)";
        EXPECT_NE(text.front(), ' ') << where;
        EXPECT_NE(text.back(), ' ') << where;
        EXPECT_EQ(text.find("…") != std::string::npos, in_english.find("…") != std::string::npos)
            << where << " (ellipsis)";
        for (const gunichar c : characters(text)) {
            const GUnicodeType type = g_unichar_type(c);
            EXPECT_NE(type, G_UNICODE_CONTROL) << where;
            EXPECT_TRUE(type != G_UNICODE_FORMAT || joins_letters(c) ||
                        (language.rtl && isolates(c)))
                << where << " (U+" << std::hex << c << ")";
            EXPECT_TRUE(type != G_UNICODE_UNASSIGNED && type != G_UNICODE_PRIVATE_USE) << where;
        }
    });
}

// French sets its high punctuation and the insides of its quotation marks apart by U+202F.
TEST(Translations, french_sets_its_punctuation_apart) {
    for_each_text([](const LangEntry& language, const std::string& key, const std::string& text,
                     const std::string&) {
        if (!is(language, "fr"))
            return;
        const std::vector<gunichar> letters = characters(text);
        for (size_t i = 0; i < letters.size(); ++i) {
            const gunichar c = letters[i];
            const bool address = c == ':' && i + 1 < letters.size() && letters[i + 1] == '/';
            if ((c == ';' || c == ':' || c == '!' || c == '?' || c == 0xbb) && !address) {
                EXPECT_TRUE(i > 0 && letters[i - 1] == 0x202f) << key << ": " << text;
            }
            if (c == 0xab) {
                EXPECT_TRUE(i + 1 < letters.size() && letters[i + 1] == 0x202f)
                    << key << ": " << text;
            }
        }
    });
}

TEST(Translations, arabic_script_has_its_own_punctuation) {
    for_each_text([](const LangEntry& language, const std::string& key, const std::string& text,
                     const std::string&) {
        const bool arabic = scripts_of(language).contains(G_UNICODE_SCRIPT_ARABIC);
        EXPECT_TRUE(!arabic || text.find_first_of("?;") == std::string::npos)
            << language.code << " " << key << ": " << text;
    });
}

// One text names the button that another text is.
TEST(Translations, a_text_that_quotes_another_quotes_it_truly) {
    for (const LangEntry& language : LANGS) {
        std::map<std::string, std::string> texts;
        for (size_t i = 0; i < kTextCount; ++i)
            texts[KEYS[i]] = language.values[i];
        EXPECT_NE(texts["err.root_hint_helper"].find(texts["btn.retry_admin"]), std::string::npos)
            << language.code << ": " << texts["err.root_hint_helper"] << " / "
            << texts["btn.retry_admin"];
    }
}

// A path or a pattern that begins or ends with a sign would be torn apart by the letters beside it.
TEST(Translations, latin_words_read_from_left_to_right_whatever_is_around_them) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 8, 8);
    cairo_t* cr = cairo_create(surface);
    PangoLayout* layout = pango_cairo_create_layout(cr);
    GRegex* word = g_regex_new("[/*.A-Za-z0-9_-]*[A-Za-z][/*A-Za-z0-9_-]*", G_REGEX_OPTIMIZE,
                               static_cast<GRegexMatchFlags>(0), nullptr);
    size_t words = 0;
    for_each_text([&](const LangEntry& language, const std::string& key, const std::string& text,
                      const std::string&) {
        if (!language.rtl)
            return;
        pango_layout_set_text(layout, text.c_str(), -1);
        GMatchInfo* match = nullptr;
        g_regex_match(word, text.c_str(), static_cast<GRegexMatchFlags>(0), &match);
        for (; g_match_info_matches(match); g_match_info_next(match, nullptr)) {
            int begin = 0, end = 0;
            g_match_info_fetch_pos(match, 0, &begin, &end);
            if (begin > 0 && text[static_cast<size_t>(begin) - 1] == '%')
                continue;  // a conversion
            ++words;
            PangoRectangle first, last;
            pango_layout_index_to_pos(layout, begin, &first);
            pango_layout_index_to_pos(layout, end - 1, &last);
            const std::string found =
                text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin));
            EXPECT_GE(first.width, 0) << language.code << " " << key << ": " << found;
            EXPECT_GE(last.width, 0) << language.code << " " << key << ": " << found;
            EXPECT_TRUE(begin + 1 == end || first.x < last.x)
                << language.code << " " << key << ": " << found;
        }
        g_match_info_free(match);
    });
    EXPECT_GT(words, 100U);
    g_regex_unref(word);
    g_object_unref(layout);
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}

// With the fonts that Debian calls fonts-noto-core and fonts-noto-cjk.
TEST(Translations, there_is_a_glyph_for_every_letter) {
    if (!g_file_test("/usr/share/fonts/truetype/noto/NotoSans-Regular.ttf", G_FILE_TEST_EXISTS) ||
        !g_file_test("/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc", G_FILE_TEST_EXISTS))
        GTEST_SKIP() << "fonts-noto-core and fonts-noto-cjk are not installed";
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 8, 8);
    cairo_t* cr = cairo_create(surface);
    PangoLayout* layout = pango_cairo_create_layout(cr);
    PangoFontDescription* font = pango_font_description_from_string("Noto Sans 11");
    pango_layout_set_font_description(layout, font);
    for_each_text([layout](const LangEntry& language, const std::string& key,
                           const std::string& text, const std::string&) {
        pango_layout_set_text(layout, text.c_str(), -1);
        EXPECT_EQ(pango_layout_get_unknown_glyphs_count(layout), 0)
            << language.code << " " << key << ": " << text;
    });
    // The count does count.
    pango_layout_set_text(layout, "\xf3\xb0\x80\x80", -1);  // of a private area
    EXPECT_GT(pango_layout_get_unknown_glyphs_count(layout), 0);
    pango_font_description_free(font);
    g_object_unref(layout);
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}

}  // namespace
