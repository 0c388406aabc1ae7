#include "i18n.h"

#include <gtest/gtest.h>
#include <string>

TEST(I18n, a_key_gives_its_text) {
    EXPECT_STREQ(tr("dlg.error"), "Caution");
    EXPECT_STREQ(I18n::instance().tr("dlg.busy_title"), "Still busy");
}

TEST(I18n, an_unknown_key_is_its_own_text) {
    const std::string key = "no.such.key";
    EXPECT_EQ(tr(key.c_str()), key.c_str());  // the pointer itself
    EXPECT_STREQ(tr("dlg.erro"), "dlg.erro");
    EXPECT_STREQ(tr("dlg.errors"), "dlg.errors");
    EXPECT_STREQ(tr(" "), " ");
    EXPECT_STREQ(tr("~"), "~");
}

TEST(I18n, nothing_stays_nothing) {
    EXPECT_STREQ(tr(""), "");
    EXPECT_EQ(tr(nullptr), nullptr);
}

TEST(I18n, arguments_are_put_into_the_text) {
    EXPECT_EQ(I18n::trf("dlg.errors_count", 3), "3 entries failed");
    EXPECT_EQ(I18n::trf("%s|%d", "x", -1), "x|-1");
    const std::string large(100000, 'y');
    EXPECT_EQ(I18n::trf("%s files", large.c_str()), large + " files");
    EXPECT_EQ(I18n::trf(""), "");
}

TEST(I18n, the_language_is_remembered_as_it_was_asked_for) {
    I18n& i18n = I18n::instance();
    EXPECT_EQ(i18n.language(), "auto");
    i18n.set_language("en");
    EXPECT_EQ(i18n.language(), "en");
    EXPECT_EQ(i18n.effective_language(), "en");
    i18n.set_language("xx");
    EXPECT_EQ(i18n.language(), "xx");
    EXPECT_EQ(i18n.effective_language(), "en");
    i18n.set_language("");
    EXPECT_EQ(i18n.language(), "auto");
}

TEST(I18n, the_font_is_the_systems_until_one_is_chosen) {
    I18n& i18n = I18n::instance();
    EXPECT_EQ(i18n.ui_font_family(), "sans-serif");
    i18n.set_ui_font("DejaVu Sans");
    EXPECT_EQ(i18n.ui_font_family(), "DejaVu Sans");
    i18n.set_ui_font("");
    EXPECT_EQ(i18n.ui_font_family(), "sans-serif");
}
