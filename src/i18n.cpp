#include "i18n.h"

#include "i18n_data.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <glib.h>
#include <iterator>
#include <string_view>

using i18n_data::KEYS;
using i18n_data::LANGS;

namespace {

// The row of i18n_data::LANGS of a code, exactly; -1 for none.
int row_of(std::string_view code) {
    const auto* found =
        std::find_if(std::begin(LANGS), std::end(LANGS),
                     [&](const i18n_data::LangEntry& lang) { return lang.code == code; });
    return found == std::end(LANGS) ? -1 : static_cast<int>(found - std::begin(LANGS));
}

// The row of a table of conventions for a code; null for none.
template <typename Row, size_t count>
const Row* find_code(const Row (&table)[count], std::string_view code) {
    const Row* found = std::find_if(std::begin(table), std::end(table),
                                    [&](const Row& row) { return row.code == code; });
    return found == std::end(table) ? nullptr : found;
}

}  // namespace

I18n::I18n() {
    set_language("auto");
}

I18n& I18n::instance() {
    static I18n i18n;
    return i18n;
}

void I18n::set_language(const std::string& code) {
    m_setting = code.empty() ? "auto" : code;
    int row = row_of(m_setting == "auto" ? detect_system_language() : m_setting);
    if (row < 0)
        row = row_of("en");
    const i18n_data::LangEntry& lang = LANGS[row];
    m_code = lang.code;
    m_rtl = lang.rtl;
    // Relaxed: the tables that the index leads to are constant, so nothing else must be seen first.
    m_lang_index.store(row, std::memory_order_relaxed);
}

const char* I18n::tr(const char* key) const {
    if (!key || !*key)
        return key;
    const auto* found = std::lower_bound(
        std::begin(KEYS), std::end(KEYS), key,
        [](const char* entry, const char* wanted) { return std::strcmp(entry, wanted) < 0; });
    if (found == std::end(KEYS) || std::strcmp(*found, key) != 0)
        return key;
    return LANGS[m_lang_index.load(std::memory_order_relaxed)].values[found - std::begin(KEYS)];
}

std::string I18n::trf(const char* key, ...) const {
    const char* format = tr(key);
    va_list args;
    va_start(args, key);
    va_list measure;
    va_copy(measure, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string text = format;
    if (length >= 0) {
        text.assign(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, args);
        text.resize(static_cast<size_t>(length));
    }
#pragma GCC diagnostic pop
    va_end(args);
    return text;
}

std::string I18n::ui_font_family() const {
    return m_ui_font.empty() ? "sans-serif" : m_ui_font;
}

I18n::NumberFormat I18n::number_format() const {
    struct Row {
        std::string_view code;
        const char* decimal;
        const char* group;
    };
    static constexpr const char* kNarrow = "\xE2\x80\xAF";  // U+202F, a narrow no-break space
    static constexpr Row TABLE[] = {
        {"ar", ".", ","},     {"bg", ",", ""},  {"bn", ".", ","},     {"ca", ",", "."},
        {"cs", ",", kNarrow}, {"da", ",", "."}, {"de", ",", "."},     {"el", ",", "."},
        {"en", ".", ","},     {"es", ",", "."}, {"fa", ".", ","},     {"fi", ",", kNarrow},
        {"fr", ",", kNarrow}, {"he", ".", ","}, {"hi", ".", ","},     {"hr", ",", "."},
        {"hu", ",", "."},     {"id", ",", "."}, {"it", ",", "."},     {"ja", ".", ","},
        {"ko", ".", ","},     {"lt", ",", "."}, {"lv", ",", kNarrow}, {"ms", ".", ","},
        {"nb", ",", kNarrow}, {"ne", ".", ","}, {"nl", ",", "."},     {"pl", ",", kNarrow},
        {"pt", ",", ""},      {"ro", ",", "."}, {"ru", ",", kNarrow}, {"sk", ",", kNarrow},
        {"sl", ",", "."},     {"sr", ",", ""},  {"sv", ",", kNarrow}, {"sw", ".", ","},
        {"th", ".", ","},     {"tl", ".", ","}, {"tr", ",", "."},     {"uk", ",", kNarrow},
        {"ur", ".", ","},     {"vi", ",", "."}, {"zh", ".", ","},     {"zh_TW", ".", ","},
    };
    static_assert(std::size(TABLE) == i18n_data::kLanguageCount);
    const Row* row = find_code(TABLE, LANGS[m_lang_index.load(std::memory_order_relaxed)].code);
    return row ? NumberFormat{row->decimal, row->group} : NumberFormat{".", ","};
}

const char* I18n::date_format() const {
    struct Row {
        std::string_view code;
        const char* format;
    };
    static constexpr Row TABLE[] = {
        {"ar", "%d/%m/%y"}, {"bg", "%d.%m.%y"}, {"bn", "%d/%m/%y"}, {"ca", "%d/%m/%y"},
        {"cs", "%d.%m.%y"}, {"da", "%d-%m-%y"}, {"de", "%d.%m.%y"}, {"el", "%d/%m/%y"},
        {"en", "%m/%d/%y"}, {"es", "%d/%m/%y"}, {"fa", "%y/%m/%d"}, {"fi", "%d.%m.%y"},
        {"fr", "%d/%m/%y"}, {"he", "%d/%m/%y"}, {"hi", "%d/%m/%y"}, {"hr", "%d.%m.%y"},
        {"hu", "%y-%m-%d"}, {"id", "%d/%m/%y"}, {"it", "%d/%m/%y"}, {"ja", "%y/%m/%d"},
        {"ko", "%y/%m/%d"}, {"lt", "%y-%m-%d"}, {"lv", "%y.%m.%d"}, {"ms", "%d/%m/%y"},
        {"nb", "%d.%m.%y"}, {"ne", "%y/%m/%d"}, {"nl", "%d-%m-%y"}, {"pl", "%d.%m.%y"},
        {"pt", "%d/%m/%y"}, {"ro", "%d.%m.%y"}, {"ru", "%d.%m.%y"}, {"sk", "%d.%m.%y"},
        {"sl", "%d.%m.%y"}, {"sr", "%d.%m.%y"}, {"sv", "%y-%m-%d"}, {"sw", "%d/%m/%y"},
        {"th", "%d/%m/%y"}, {"tl", "%m/%d/%y"}, {"tr", "%d-%m-%y"}, {"uk", "%d.%m.%y"},
        {"ur", "%d/%m/%y"}, {"vi", "%d/%m/%y"}, {"zh", "%y/%m/%d"}, {"zh_TW", "%y/%m/%d"},
    };
    static_assert(std::size(TABLE) == i18n_data::kLanguageCount);
    const Row* row = find_code(TABLE, LANGS[m_lang_index.load(std::memory_order_relaxed)].code);
    return row ? row->format : "%m/%d/%y";
}

std::vector<LanguageInfo> I18n::available() {
    std::vector<LanguageInfo> languages;
    languages.reserve(std::size(LANGS));
    for (const i18n_data::LangEntry& lang : LANGS)
        languages.push_back({lang.code, lang.native_name, lang.rtl});
    return languages;
}

std::string I18n::detect_system_language() {
    return first_language_of(g_get_language_names());
}

std::string I18n::first_language_of(const char* const* names) {
    for (; names && *names; ++names) {
        std::string_view name = *names;
        if (name.empty() || name == "C")
            continue;
        name = name.substr(0, name.find('.'));
        name = name.substr(0, name.find('@'));
        // The whole of it first, which is how "zh_TW" is not taken for "zh".
        if (row_of(name) >= 0)
            return std::string(name);
        const size_t country = name.find('_');
        if (country != name.npos && row_of(name.substr(0, country)) >= 0)
            return std::string(name.substr(0, country));
    }
    return "en";
}

const char* tr(const char* key) {
    return I18n::instance().tr(key);
}
