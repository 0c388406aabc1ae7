// The words of the interface, by key. Interface thread for changes; tr() may be called from any
// thread and allocates nothing.

#pragma once

#include <string>

class I18n {
  public:
    static I18n& instance();

    // "auto" or a language code. A code without a table falls back to English.
    void set_language(const std::string& code);
    [[nodiscard]] const std::string& language() const { return m_setting; }
    [[nodiscard]] const std::string& effective_language() const { return m_code; }

    // The text of a key in the language in effect, valid for the whole run. A key that is not in
    // the table is its own text.
    [[nodiscard]] const char* tr(const char* key) const;

    // The translation as a printf format. Give "%d" a saturated int (fmt::saturated).
    static std::string trf(const char* key, ...);

    // The interface font family; "sans-serif" when none is chosen.
    [[nodiscard]] std::string ui_font_family() const;
    void set_ui_font(std::string family) { m_ui_font = std::move(family); }
    // A strftime format.
    [[nodiscard]] const char* date_format() const { return "%m/%d/%y"; }

  private:
    I18n() = default;

    std::string m_setting = "auto";  // what the user asked for
    std::string m_code = "en";       // the language in effect
    std::string m_ui_font;           // empty: the default
};

[[nodiscard]] const char* tr(const char* key);
