// The words of the interface, by key, and what else goes with a language: how its numbers and dates
// are written, and the interface font.
//
// Changes are the interface thread's. tr(), trf(), number_format() and date_format() may be called
// from any thread at any time: the language in force is one atomic index, on which these alone
// depend, and the texts are constant. All else is for the interface thread.

#pragma once

#include <atomic>
#include <string>
#include <utility>
#include <vector>

// A language as the interface lists it.
struct LanguageInfo {
    std::string code;         // as in settings.json
    std::string native_name;  // the language's own name
    bool rtl = false;         // written right to left
};

class I18n {
  public:
    struct NumberFormat {
        const char* decimal;
        const char* group;  // empty: digits are not grouped
    };

    // Made on first use, with the language of the system.
    static I18n& instance();

    // "auto" for the system's language, which empty means too, or a language code. A code that
    // there is no language for is kept as the setting, and English takes effect. The next tr()
    // gives the new language.
    void set_language(const std::string& code);
    // What was asked for: "auto" or a code.
    [[nodiscard]] const std::string& language() const { return m_setting; }
    // The code in effect, never "auto".
    [[nodiscard]] const std::string& effective_language() const { return m_code; }
    [[nodiscard]] bool is_rtl() const { return m_rtl; }

    // The text of a key in the language in effect, valid for the whole run. A key that is not in
    // the table, null and empty are returned as they are. Allocates nothing.
    [[nodiscard]] const char* tr(const char* key) const;

    // The translation as a printf format. Give "%d" a saturated int (fmt::saturated). What cannot
    // be formatted shows as the format itself.
    [[nodiscard]] std::string trf(const char* key, ...) const;

    // The interface font family; "sans-serif" when none is chosen.
    [[nodiscard]] std::string ui_font_family() const;
    // Empty for the default.
    void set_ui_font(std::string family) { m_ui_font = std::move(family); }
    [[nodiscard]] static std::string mono_font_family() { return "monospace"; }

    [[nodiscard]] NumberFormat number_format() const;
    // A strftime format for a date without a time of day.
    [[nodiscard]] const char* date_format() const;

    // All languages, by code.
    [[nodiscard]] static std::vector<LanguageInfo> available();

    // The code of the first of the user's languages that there are texts for; "en" for none.
    [[nodiscard]] static std::string detect_system_language();
    // The same for a null-terminated list of locale names, the preferred first. Null: no names.
    [[nodiscard]] static std::string first_language_of(const char* const* names);

  private:
    I18n();

    std::string m_setting = "auto";    // what the user asked for: "auto" or a code
    std::string m_code = "en";         // the language in effect; never "auto"
    std::string m_ui_font;             // empty: the default
    bool m_rtl = false;                // the language in effect is written right to left
    std::atomic<int> m_lang_index{0};  // its row of i18n_data::LANGS; all that other threads read
};

// I18n::instance().tr(key)
[[nodiscard]] const char* tr(const char* key);
