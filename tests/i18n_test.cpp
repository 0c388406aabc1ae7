#include "i18n.h"

#include "i18n_data.h"
#include "sanitized.h"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// Counting what is allocated takes an operator new of our own, which the sanitizers have too.
#define COUNTS_ALLOCATIONS (!FERRODECK_SANITIZED)

#if COUNTS_ALLOCATIONS
namespace {
thread_local long t_allocations = 0;
}

// Inlined, the pair looks mismatched to the compiler.
[[gnu::noinline]] void* operator new(size_t size) {
    ++t_allocations;
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
#endif

namespace {

// What the languages' facts are, from a table of its own: code, native name, ltr or rtl, decimal
// point, group separator, date format.
struct Facts {
    std::string code, native_name, direction, decimal, group, date;
};

std::vector<Facts> facts() {
    std::ifstream in(SOURCE_DIR "/tests/data/languages.tsv");
    std::vector<Facts> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        Facts row;
        for (std::string* field :
             {&row.code, &row.native_name, &row.direction, &row.decimal, &row.group, &row.date})
            std::getline(fields, *field, '\t');
        rows.push_back(row);
    }
    return rows;
}

class I18nTest : public ::testing::Test {
  protected:
    void SetUp() override { i18n().set_language("en"); }
    void TearDown() override { i18n().set_language("auto"); }

    static I18n& i18n() { return I18n::instance(); }
};

// --- Texts --------------------------------------------------------------------------------------

TEST_F(I18nTest, a_key_gives_its_text) {
    EXPECT_STREQ(tr("dlg.error"), "Caution");
    EXPECT_STREQ(i18n().tr("dlg.busy_title"), "Still busy");
    EXPECT_STREQ(tr("%s d ago"), "%s d ago");                          // the first key
    EXPECT_STREQ(tr("unpack.where"), "Where should it be unpacked?");  // and the last
}

TEST_F(I18nTest, every_key_is_found_in_every_language) {
    for (const i18n_data::LangEntry& lang : i18n_data::LANGS) {
        i18n().set_language(lang.code);
        for (size_t i = 0; i < i18n_data::kTextCount; ++i)
            EXPECT_EQ(tr(i18n_data::KEYS[i]), lang.values[i]) << lang.code;
    }
}

TEST_F(I18nTest, an_unknown_key_is_its_own_text) {
    for (const char* literal :
         {"no.such.key", "dlg.erro", "dlg.errors", " ", "~", "\xFF", "unpack.where2", "%s d ag"}) {
        const std::string key = literal;
        EXPECT_EQ(tr(key.c_str()), key.c_str()) << key;  // the pointer itself
    }
}

TEST_F(I18nTest, nothing_stays_nothing) {
    const char* const empty = "";
    EXPECT_EQ(tr(empty), empty);
    EXPECT_EQ(tr(nullptr), nullptr);
}

TEST_F(I18nTest, a_key_is_found_by_its_bytes_not_by_its_address) {
    const std::string key = std::string("dlg.") + "error";
    EXPECT_STREQ(tr(key.c_str()), "Caution");
}

#if COUNTS_ALLOCATIONS
TEST_F(I18nTest, asking_for_a_text_allocates_nothing) {
    const long before = t_allocations;
    const auto* const one = new std::string("the count itself counts");
    ASSERT_GT(t_allocations, before);
    delete one;

    const long start = t_allocations;
    const char* last = nullptr;
    for (const char* key : i18n_data::KEYS)
        last = tr(key);
    last = tr("no.such.key");
    const I18n::NumberFormat format = i18n().number_format();
    const char* const date = i18n().date_format();
    EXPECT_EQ(t_allocations, start);
    EXPECT_TRUE(last && format.decimal && date);
}
#endif

TEST_F(I18nTest, arguments_are_put_into_the_text) {
    EXPECT_EQ(I18n::instance().trf("dlg.errors_count", 3), "3 entries failed");
    EXPECT_EQ(I18n::instance().trf("%s|%d", "x", -1), "x|-1");
    const std::string large(100000, 'y');
    EXPECT_EQ(I18n::instance().trf("%s files", large.c_str()), large + " files");
    EXPECT_EQ(I18n::instance().trf(""), "");
}

TEST_F(I18nTest, what_cannot_be_formatted_shows_as_the_format) {
    // No multibyte character stands for this one, which vsnprintf reports as a failure.
    const wchar_t none[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_EQ(I18n::instance().trf("a %ls b", none), "a %ls b");
}

// --- Languages ----------------------------------------------------------------------------------

TEST_F(I18nTest, the_language_is_remembered_as_it_was_asked_for) {
    i18n().set_language("de");
    EXPECT_EQ(i18n().language(), "de");
    EXPECT_EQ(i18n().effective_language(), "de");
    i18n().set_language("zh_TW");
    EXPECT_EQ(i18n().effective_language(), "zh_TW");
    i18n().set_language("");
    EXPECT_EQ(i18n().language(), "auto");
    EXPECT_EQ(i18n().effective_language(), "en");
}

TEST_F(I18nTest, a_language_without_texts_is_kept_as_the_setting_and_english_takes_effect) {
    for (const char* code : {"xx", "DE", "de_AT", "zh_CN", "de ", "z"}) {
        i18n().set_language("de");
        i18n().set_language(code);
        EXPECT_EQ(i18n().language(), code);
        EXPECT_EQ(i18n().effective_language(), "en") << code;
        EXPECT_FALSE(i18n().is_rtl());
    }
}

TEST_F(I18nTest, four_languages_are_written_right_to_left) {
    std::set<std::string> rtl;
    for (const LanguageInfo& language : I18n::available()) {
        i18n().set_language(language.code);
        EXPECT_EQ(i18n().is_rtl(), language.rtl) << language.code;
        if (i18n().is_rtl())
            rtl.insert(language.code);
    }
    EXPECT_EQ(rtl, (std::set<std::string>{"ar", "fa", "he", "ur"}));
}

TEST_F(I18nTest, the_languages_are_listed_by_code) {
    const std::vector<Facts> expected = facts();
    const std::vector<LanguageInfo> languages = I18n::available();
    ASSERT_EQ(expected.size(), 44U);
    ASSERT_EQ(languages.size(), 44U);
    EXPECT_EQ(languages.back().code, "zh_TW");
    for (size_t i = 0; i < languages.size(); ++i) {
        EXPECT_EQ(languages[i].code, expected[i].code);
        EXPECT_EQ(languages[i].native_name, expected[i].native_name);
        EXPECT_EQ(languages[i].rtl, expected[i].direction == "rtl") << languages[i].code;
        if (i > 0) {
            EXPECT_LT(languages[i - 1].code, languages[i].code);
        }
    }
}

TEST_F(I18nTest, each_language_has_its_numbers_and_dates) {
    for (const Facts& row : facts()) {
        i18n().set_language(row.code);
        EXPECT_EQ(i18n().number_format().decimal, row.decimal) << row.code;
        EXPECT_EQ(i18n().number_format().group, row.group) << row.code;
        EXPECT_EQ(i18n().date_format(), row.date) << row.code;
    }
}

// --- The system's language ----------------------------------------------------------------------

std::string first_of(std::vector<const char*> names) {
    names.push_back(nullptr);
    return I18n::first_language_of(names.data());
}

TEST(SystemLanguage, the_first_name_with_texts_decides) {
    EXPECT_EQ(first_of({"zh_TW.UTF-8", "C"}), "zh_TW");
    EXPECT_EQ(first_of({"pt_BR"}), "pt");
    EXPECT_EQ(first_of({"zh_CN"}), "zh");
    EXPECT_EQ(first_of({"zh_HK.UTF-8"}), "zh");
    EXPECT_EQ(first_of({"de_AT.UTF-8"}), "de");
    EXPECT_EQ(first_of({"sr_RS@latin"}), "sr");
    EXPECT_EQ(first_of({"sr@latin"}), "sr");
    EXPECT_EQ(first_of({"nn_NO", "da", "nb"}), "da");
    EXPECT_EQ(first_of({"C.UTF-8", "fr_FR", "C"}), "fr");
    EXPECT_EQ(first_of({"", "C", "it"}), "it");
    EXPECT_EQ(first_of({"C", "it"}), "it");
    // Cut at the first point, then at the first @ of what is left.
    EXPECT_EQ(first_of({"zh_TW@x.y"}), "zh_TW");
    EXPECT_EQ(first_of({"zh_TW.x@y"}), "zh_TW");
    // Cut at the first underline.
    EXPECT_EQ(first_of({"pt_BR_x"}), "pt");
    EXPECT_EQ(first_of({"zh_TW_x"}), "zh");
}

TEST(SystemLanguage, english_when_no_name_has_texts) {
    EXPECT_EQ(I18n::first_language_of(nullptr), "en");
    EXPECT_EQ(first_of({}), "en");
    EXPECT_EQ(first_of({"C"}), "en");
    EXPECT_EQ(first_of({"C.UTF-8"}), "en");
    EXPECT_EQ(first_of({"nn_NO"}), "en");
    EXPECT_EQ(first_of({"POSIX", ".", "@", "_", "_de", "DE", "De_de"}), "en");
}

TEST(SystemLanguage, the_users_list_of_languages_is_asked) {
    setenv("LANGUAGE", "nn:zh_TW.UTF-8:de", 1);
    EXPECT_EQ(I18n::detect_system_language(), "zh_TW");
    setenv("LANGUAGE", "nn:xx", 1);
    EXPECT_EQ(I18n::detect_system_language(), "en");
    unsetenv("LANGUAGE");
    setenv("LC_ALL", "pt_BR.UTF-8", 1);
    EXPECT_EQ(I18n::detect_system_language(), "pt");
    I18n::instance().set_language("auto");
    EXPECT_EQ(I18n::instance().language(), "auto");
    EXPECT_EQ(I18n::instance().effective_language(), "pt");
    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_EQ(I18n::detect_system_language(), "en");
    I18n::instance().set_language("auto");
}

// --- Fonts --------------------------------------------------------------------------------------

TEST_F(I18nTest, the_font_is_the_systems_until_one_is_chosen) {
    EXPECT_EQ(i18n().ui_font_family(), "sans-serif");
    i18n().set_ui_font("DejaVu Sans");
    EXPECT_EQ(i18n().ui_font_family(), "DejaVu Sans");
    EXPECT_EQ(I18n::mono_font_family(), "monospace");
    i18n().set_ui_font("");
    EXPECT_EQ(i18n().ui_font_family(), "sans-serif");
}

// --- Threads ------------------------------------------------------------------------------------

// Under ThreadSanitizer this also holds the rule that these alone are for any thread.
TEST(I18nThreads, texts_and_formats_are_read_while_the_language_changes) {
    I18n& i18n = I18n::instance();
    std::set<std::string> decimals, groups, dates;
    for (const Facts& row : facts()) {
        decimals.insert(row.decimal);
        groups.insert(row.group);
        dates.insert(row.date);
    }
    std::atomic<bool> stop{false};
    std::atomic<long> reads{0};
    std::atomic<long> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                const I18n::NumberFormat format = i18n.number_format();
                if (!*tr("dlg.error") ||
                    I18n::instance().trf("dlg.errors_count", 7).find('7') == std::string::npos ||
                    !decimals.contains(format.decimal) || !groups.contains(format.group) ||
                    *format.decimal == *format.group || !dates.contains(i18n.date_format()))
                    ++wrong;
                ++reads;
            }
        });
    }
    const std::vector<LanguageInfo> languages = I18n::available();
    while (reads < 20000) {
        for (const LanguageInfo& language : languages)
            i18n.set_language(language.code);
    }
    stop = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(wrong, 0);
    i18n.set_language("auto");
}

}  // namespace
