// What lets pkexec start the helper, as it is installed.

#include "i18n_data.h"
#include "test_env.h"

#include <algorithm>
#include <filesystem>
#include <glib.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace {

using test_env::TempDir;

struct Element {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::string text;
};

// The elements without another one inside, in their order.
class Elements {
  public:
    explicit Elements(const std::string& xml) {
        const GMarkupParser parser = {on_start, on_end, on_text, nullptr, nullptr};
        GMarkupParseContext* const context =
            g_markup_parse_context_new(&parser, GMarkupParseFlags{}, this, nullptr);
        GError* error = nullptr;
        EXPECT_TRUE(g_markup_parse_context_parse(context, xml.data(),
                                                 static_cast<gssize>(xml.size()), &error) &&
                    g_markup_parse_context_end_parse(context, &error))
            << (error ? error->message : "");
        g_clear_error(&error);
        g_markup_parse_context_free(context);
    }
    // Of each element of the name, by its attribute's value; "" without it.
    std::map<std::string, std::string> of(const std::string& name,
                                          const std::string& attribute) const {
        std::map<std::string, std::string> found;
        for (const Element& element : m_all)
            if (element.name == name) {
                const auto value = element.attributes.find(attribute);
                const std::string key = value == element.attributes.end() ? "" : value->second;
                EXPECT_TRUE(found.emplace(key, element.text).second) << name << " " << key;
            }
        return found;
    }
    std::string attribute(const std::string& name, const std::string& attribute) const {
        for (const Element& element : m_all)
            if (element.name == name)
                return element.attributes.at(attribute);
        return {};
    }

  private:
    static void on_start(GMarkupParseContext*, const gchar* name, const gchar** keys,
                         const gchar** values, gpointer data, GError**) {
        Element element;
        element.name = name;
        for (; *keys; ++keys, ++values)
            element.attributes[*keys] = *values;
        static_cast<Elements*>(data)->m_all.push_back(element);
    }
    static void on_end(GMarkupParseContext*, const gchar*, gpointer, GError**) {}
    static void on_text(GMarkupParseContext*, const gchar* text, gsize length, gpointer data,
                        GError**) {
        Element& last = static_cast<Elements*>(data)->m_all.back();
        if (last.text.empty())
            last.text.assign(text, length);
    }

    std::vector<Element> m_all;
};

class PolkitPolicy : public ::testing::Test {
  protected:
    // As a package is made.
    void install(const std::string& prefix) {
        std::string output;
        ASSERT_EQ(test_env::run("DESTDIR='" + m_dir.path() +
                                    "' cmake --install '" BUILD_DIR
                                    "' --component helper --prefix '" +
                                    prefix + "'",
                                &output),
                  0)
            << output;
    }
    std::string policy(const std::string& prefix) const {
        return test_env::read_file(m_dir.path() + prefix +
                                   "/share/polkit-1/actions/com.orlomar.ferrodeck.policy");
    }

    void expect_asked_each_time_for_the_helper_alone(const Elements& elements) const {
        const std::string helper = "/usr/libexec/ferrodeck/ferrodeck-helper";
        using Map = std::map<std::string, std::string>;
        EXPECT_EQ(elements.of("annotate", "key"),
                  (Map{{"org.freedesktop.policykit.exec.path", helper},
                       {"org.freedesktop.policykit.exec.argv1", "--batch"}}));
        EXPECT_EQ(elements.of("allow_any", ""), (Map{{"", "no"}}));
        EXPECT_EQ(elements.of("allow_inactive", ""), (Map{{"", "no"}}));
        EXPECT_EQ(elements.of("allow_active", ""), (Map{{"", "auth_admin"}}));
        EXPECT_EQ(elements.attribute("action", "id"), "com.orlomar.ferrodeck.retry");
        const struct stat st = test_env::lstat_of(m_dir.path() + helper);
        EXPECT_EQ(st.st_mode, S_IFREG | 0755U);
    }

    static void expect_every_language(const Elements& elements) {
        const auto descriptions = elements.of("description", "xml:lang");
        const auto messages = elements.of("message", "xml:lang");
        const auto key =
            static_cast<size_t>(std::find(i18n_data::KEYS, i18n_data::KEYS + i18n_data::kTextCount,
                                          std::string("btn.retry_admin")) -
                                i18n_data::KEYS);
        ASSERT_LT(key, i18n_data::kTextCount);
        EXPECT_EQ(descriptions.size(), i18n_data::kLanguageCount);
        EXPECT_EQ(messages.size(), i18n_data::kLanguageCount);
        for (const i18n_data::LangEntry& language : i18n_data::LANGS) {
            const std::string code = std::string(language.code) == "en" ? "" : language.code;
            const std::string text = language.values[key];
            EXPECT_EQ(descriptions.count(code) ? descriptions.at(code) : "none", text) << code;
            EXPECT_EQ(messages.count(code) ? messages.at(code) : "none", "Ferrodeck: " + text)
                << code;
        }
    }

    TempDir m_dir;
};

// One test: what they install is made in the one build folder.
TEST_F(PolkitPolicy, is_installed_with_the_helper) {
    install("/opt/else where");
    EXPECT_NE(
        policy("/opt/else where").find(">/opt/else where/libexec/ferrodeck/ferrodeck-helper<"),
        std::string::npos);
    install("/usr");
    expect_asked_each_time_for_the_helper_alone(Elements(policy("/usr")));
    expect_every_language(Elements(policy("/usr")));
    test_env::write_file(m_dir / "policy", policy("/usr"));
    std::string output;
    if (test_env::run("command -v xmllint", &output) != 0)
        return;
    EXPECT_EQ(test_env::run("xmllint --noout --nonet '" + (m_dir / "policy") + "'", &output), 0)
        << output;
}

}  // namespace
