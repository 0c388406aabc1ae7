// Holds the texts of all languages, and the sources that ask for them, to their rules.

#include "i18n_data.h"
#include "test_env.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <glib.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using i18n_data::KEYS;
using i18n_data::kTextCount;
using i18n_data::LANGS;
using test_env::read_file;

namespace {

const i18n_data::LangEntry& language(std::string_view code) {
    return *std::find_if(std::begin(LANGS), std::end(LANGS),
                         [&](const i18n_data::LangEntry& lang) { return lang.code == code; });
}

// Written apart from what the build uses, so that one fault does not hide the other.
std::vector<std::string> conversions_of(std::string text) {
    std::vector<std::string> found;
    text = std::regex_replace(text, std::regex("%%"), "");
    static const std::regex pattern("%([-+ #0-9.$*'a-zA-Z])?[a-zA-Z]?");
    for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it)
        found.push_back(it->str().substr(0, 2));
    return found;
}

bool is_key(const std::string& text) {
    return std::any_of(std::begin(KEYS), std::end(KEYS),
                       [&](const char* key) { return text == key; });
}

// --- The tables ---------------------------------------------------------------------------------

TEST(Catalogue, keys_stand_in_the_order_of_their_bytes) {
    ASSERT_EQ(std::size(KEYS), 299U);
    for (size_t i = 1; i < kTextCount; ++i)
        EXPECT_LT(std::strcmp(KEYS[i - 1], KEYS[i]), 0) << KEYS[i];
}

// tests/data/catalogue.tsv is a copy of the English texts that nothing generates.
TEST(Catalogue, english_is_what_was_agreed_byte_for_byte) {
    std::string built;
    for (size_t i = 0; i < kTextCount; ++i)
        built += std::string(KEYS[i]) + "\t" + language("en").values[i] + "\n";
    EXPECT_EQ(built, read_file(SOURCE_DIR "/tests/data/catalogue.tsv"));
}

TEST(Catalogue, ten_keys_are_their_own_english_text) {
    std::set<std::string> own;
    for (size_t i = 0; i < kTextCount; ++i) {
        if (std::strcmp(KEYS[i], language("en").values[i]) == 0)
            own.insert(KEYS[i]);
    }
    EXPECT_EQ(own,
              (std::set<std::string>{"%s d ago", "%s files", "%s h ago", "%s min ago", "%s mo ago",
                                     "%s w ago", "%s y ago", "1 file", "just now", "s"}));
}

TEST(Catalogue, no_text_is_missing_empty_or_unpaintable) {
    for (const i18n_data::LangEntry& lang : LANGS) {
        for (size_t i = 0; i < kTextCount; ++i) {
            const char* const text = lang.values[i];
            ASSERT_NE(text, nullptr) << lang.code << " " << KEYS[i];
            EXPECT_STRNE(text, "") << lang.code << " " << KEYS[i];
            EXPECT_TRUE(g_utf8_validate(text, -1, nullptr)) << lang.code << " " << KEYS[i];
            for (const char* c = text; *c; ++c)
                EXPECT_GE(static_cast<unsigned char>(*c), 0x20) << lang.code << " " << KEYS[i];
        }
    }
}

TEST(Catalogue, every_text_has_the_conversions_of_the_english_one) {
    size_t checked = 0;
    for (const i18n_data::LangEntry& lang : LANGS) {
        for (size_t i = 0; i < kTextCount; ++i, ++checked)
            EXPECT_EQ(conversions_of(lang.values[i]), conversions_of(language("en").values[i]))
                << lang.code << " " << KEYS[i];
    }
    EXPECT_EQ(checked, 44U * 299U);
    // That there is something to compare.
    EXPECT_EQ(conversions_of("Not enough space: %s free, %d needed"),
              (std::vector<std::string>{"%s", "%d"}));
    EXPECT_EQ(conversions_of("%%, 5%"), (std::vector<std::string>{"%"}));
}

TEST(Catalogue, formats_that_the_program_fills_take_what_it_gives) {
    // A "%d" is given an int and a "%s" a string; nothing else has a place in a text.
    for (size_t i = 0; i < kTextCount; ++i) {
        for (const std::string& conversion : conversions_of(language("en").values[i]))
            EXPECT_TRUE(conversion == "%d" || conversion == "%s") << KEYS[i];
    }
}

// --- Translators' files --------------------------------------------------------------------------

TEST(Catalogue, msgfmt_takes_every_file) {
    if (test_env::run("command -v msgfmt") != 0)
        GTEST_SKIP() << "no msgfmt (package gettext)";
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SOURCE_DIR "/po")) {
        std::string output;
        EXPECT_EQ(test_env::run("msgfmt -c -o /dev/null '" + entry.path().string() + "'", &output),
                  0)
            << output;
        EXPECT_EQ(output, "");
        ++files;
    }
    EXPECT_EQ(files, 44U);  // the template and one for each language but English
}

// --- What the sources ask for --------------------------------------------------------------------

struct Literal {
    std::string text;
    bool is_asked_for;  // it stands within the arguments of tr() or trf(), in the key's place
};

// The string literals of a C++ source, without comments and includes, in their order. Escapes stay
// as written: no key holds any.
std::vector<Literal> literals_of(const std::string& source) {
    std::vector<Literal> found;
    int depth = 0;      // of parentheses
    int key_depth = 0;  // that of the innermost tr( or trf( whose key has not ended; 0: none
    std::string word;   // the identifier in front of what comes next
    for (size_t i = 0; i < source.size(); ++i) {
        const char c = source[i];
        if (source.compare(i, 2, "//") == 0) {
            i = source.find('\n', i);
            if (i == std::string::npos)
                break;
        } else if (source.compare(i, 2, "/*") == 0) {
            i = source.find("*/", i) + 1;
        } else if (c == '\'' && word.empty()) {  // not the separator in 100'000
            i += source[i + 1] == '\\' ? 3 : 2;
            i = source.find('\'', i);
        } else if (source.compare(i, 8, "#include") == 0) {
            i = source.find('\n', i);
        } else if (c == '"') {
            std::string text;
            for (++i; source[i] != '"'; ++i) {
                text += source[i];
                if (source[i] == '\\')
                    text += source[++i];
            }
            found.push_back({text, key_depth > 0});
        } else if (c == '(') {
            ++depth;
            if (word == "tr" || word == "trf")
                key_depth = depth;
        } else if (c == ')') {
            if (depth == key_depth)
                key_depth = 0;
            --depth;
        } else if (c == ',' && depth == key_depth) {
            key_depth = 0;  // what follows the key of trf() are arguments
        }
        if (g_ascii_isalnum(c) || c == '_')
            word += c;
        else if (!g_ascii_isspace(c))
            word.clear();
    }
    return found;
}

// What of a source's literals is taken for a key and is none.
std::vector<std::string> strangers_of(const std::string& source) {
    std::set<std::string> areas;
    for (const char* key : KEYS) {
        if (const char* point = std::strchr(key, '.'))
            areas.emplace(key, point);
    }
    static const std::regex dotted("([a-z]+)\\.[a-z_]+");
    std::vector<std::string> strangers;
    for (const Literal& literal : literals_of(source)) {
        // A key in a table of the program is seen by its first word.
        std::smatch match;
        const bool looks_like_one = std::regex_match(literal.text, match, dotted) &&
                                    areas.contains(match[1]) &&
                                    literal.text != "settings.json";  // the name of a file
        if ((literal.is_asked_for || looks_like_one) && !is_key(literal.text))
            strangers.push_back(literal.text);
    }
    return strangers;
}

TEST(Catalogue, every_key_in_the_sources_exists) {
    size_t asked_for = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SOURCE_DIR "/src")) {
        const std::string source = read_file(entry.path());
        EXPECT_EQ(strangers_of(source), std::vector<std::string>()) << entry.path();
        for (const Literal& literal : literals_of(source))
            asked_for += literal.is_asked_for;
    }
    EXPECT_GT(asked_for, 40U);  // that the scan finds what there is to find
}

TEST(Catalogue, a_wrong_key_in_a_source_is_found) {
    using Strings = std::vector<std::string>;
    EXPECT_EQ(strangers_of("draw(tr(\"btn.ok\"), 3);"), Strings());
    EXPECT_EQ(strangers_of("draw(tr(\"btn.okay\"), 3);"), Strings({"btn.okay"}));
    EXPECT_EQ(strangers_of("tr( // why\n \"nothing\")"), Strings({"nothing"}));
    EXPECT_EQ(strangers_of("tr(a ? \"btn.ok\" : \"b\")"), Strings({"b"}));
    EXPECT_EQ(strangers_of("tr(f(x, 'c') ? \"a\" : \"b\")"), Strings({"a", "b"}));
    EXPECT_EQ(strangers_of("I18n::instance().trf(\"%s folder\", \"an argument\")"),
              Strings({"%s folder"}));
    EXPECT_EQ(strangers_of("Row kRows[] = {{\"col.siez\", 3}};"), Strings({"col.siez"}));
    EXPECT_EQ(strangers_of("#include \"settings.h\"\nopen(\"settings.json\")"), Strings());
    EXPECT_EQ(strangers_of("attr(\"x\"); str(\"y\"); open(\"tar.gz\"); // tr(\"z\")"), Strings());
    EXPECT_EQ(strangers_of("f(without(text, '\\''), '\"'); tr(\"w\")"), Strings({"w"}));
    EXPECT_EQ(strangers_of("c == '\"'; d == '\\''; n = 100'000; tr(\"w\")"), Strings({"w"}));
}

}  // namespace
