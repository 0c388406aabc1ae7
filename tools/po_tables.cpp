// Turns the translators' files into the tables that are compiled into the program.
//
//   po_tables <folder of .po files> <i18n_data.cpp to write>
//
// The folder holds ferrodeck.pot, whose msgids are the English texts, and one <code>.po for each
// other language of kLanguages. A text is found by its msgctxt, the key. Whatever would leave a
// wrong or missing text in the program is reported as "file: key: reason", all of it in one go;
// then nothing is written and the exit status is 1.
//
// A file whose header says "X-Ferrodeck-Status: untranslated" may have empty texts. English takes
// their places, and how many there are is printed as "untranslated: N". In any other file an empty
// text is a fault like the others.
//
// The output depends on the texts alone: no date, no path.

#include "i18n_data.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gettext-po.h>
#include <glib.h>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

struct Language {
    const char* code;
    const char* native_name;
    bool rtl;
};

// In strcmp order, which is that of the program's list of languages.
constexpr Language kLanguages[] = {
    {"ar", "العربية", true},       {"bg", "Български", false},   {"bn", "বাংলা", false},
    {"ca", "Català", false},       {"cs", "Čeština", false},     {"da", "Dansk", false},
    {"de", "Deutsch", false},      {"el", "Ελληνικά", false},    {"en", "English", false},
    {"es", "Español", false},      {"fa", "فارسی", true},        {"fi", "Suomi", false},
    {"fr", "Français", false},     {"he", "עברית", true},        {"hi", "हिन्दी", false},
    {"hr", "Hrvatski", false},     {"hu", "Magyar", false},      {"id", "Bahasa Indonesia", false},
    {"it", "Italiano", false},     {"ja", "日本語", false},      {"ko", "한국어", false},
    {"lt", "Lietuvių", false},     {"lv", "Latviešu", false},    {"ms", "Bahasa Melayu", false},
    {"nb", "Norsk bokmål", false}, {"ne", "नेपाली", false},       {"nl", "Nederlands", false},
    {"pl", "Polski", false},       {"pt", "Português", false},   {"ro", "Română", false},
    {"ru", "Русский", false},      {"sk", "Slovenčina", false},  {"sl", "Slovenščina", false},
    {"sr", "Српски", false},       {"sv", "Svenska", false},     {"sw", "Kiswahili", false},
    {"th", "ไทย", false},          {"tl", "Tagalog", false},     {"tr", "Türkçe", false},
    {"uk", "Українська", false},   {"ur", "اردو", true},         {"vi", "Tiếng Việt", false},
    {"zh", "中文", false},         {"zh_TW", "繁體中文", false},
};
static_assert(std::size(kLanguages) == i18n_data::kLanguageCount);
static_assert(std::is_sorted(std::begin(kLanguages), std::end(kLanguages),
                             [](const Language& a, const Language& b) {
                                 return std::string_view(a.code) < std::string_view(b.code);
                             }));

constexpr const char* kTemplate = "ferrodeck.pot";

// What a text has to be held against: the key's English text. Ordered by bytes, as strcmp does.
using Texts = std::map<std::string, std::string>;

int g_faults = 0;

void fault(const std::string& file, const std::string& key, const std::string& reason) {
    std::fprintf(stderr, "%s: %s%s%s\n", file.c_str(), key.c_str(), key.empty() ? "" : ": ",
                 reason.c_str());
    ++g_faults;
}

// --- What gettext's reader reports ------------------------------------------------------------

std::string place(const char* file, size_t line) {
    if (!file)
        return "po_tables";
    std::string text = file;
    if (line != static_cast<size_t>(-1))
        text += ":" + std::to_string(line);
    return text;
}

std::string key_of(po_message_t message) {
    const char* key = message ? po_message_msgctxt(message) : nullptr;
    return key ? key : "";
}

// Warnings count as faults: what gettext is unsure about is not for a release.
void on_report(int severity, po_message_t message, const char* file, size_t line, size_t, int,
               const char* text) {
    std::string reason = text;
    while (!reason.empty() && reason.back() == '\n')
        reason.pop_back();
    fault(place(file, line), key_of(message), reason);
    if (severity == PO_SEVERITY_FATAL_ERROR)
        std::exit(EXIT_FAILURE);  // the reader is not to be returned to
}

void on_report_of_two(int severity, po_message_t message1, const char* file1, size_t line1,
                      size_t column1, int multiline1, const char* text1, po_message_t message2,
                      const char* file2, size_t line2, size_t column2, int multiline2,
                      const char* text2) {
    on_report(PO_SEVERITY_ERROR, message1, file1, line1, column1, multiline1, text1);
    on_report(severity, message2, file2, line2, column2, multiline2, text2);
}

constexpr po_xerror_handler kReports = {on_report, on_report_of_two};

struct FreeFile {
    void operator()(po_file_t file) const { po_file_free(file); }
};
using File = std::unique_ptr<std::remove_pointer_t<po_file_t>, FreeFile>;

// --- One text ---------------------------------------------------------------------------------

// The printf conversions in their order, each as it is written but for "%%", which takes no
// argument. What is none gives "%" alone.
std::vector<std::string> conversions(const std::string& text) {
    std::vector<std::string> found;
    for (size_t at = text.find('%'); at < text.size(); at = text.find('%', at)) {
        if (text.compare(at, 2, "%%") == 0) {
            at += 2;
            continue;
        }
        // Flags, width, precision, positions ("1$") and lengths, up to the letter.
        const size_t letter = text.find_first_not_of("0123456789$#+- '*.hlLjzt", at + 1);
        const bool is_one =
            letter != text.npos && std::strchr("diouxXeEfFgGaAcspnm", text[letter]) != nullptr;
        found.push_back(is_one ? text.substr(at, letter + 1 - at) : "%");
        at = is_one ? letter + 1 : at + 1;
    }
    return found;
}

std::string listed(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : " ") + item;
    return text.empty() ? "none" : text;
}

// Line ends and tabs are for the English text to decide on; nothing else of the kind can be
// painted.
bool has_stray_control(const std::string& text, const std::string& english) {
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
        const gunichar c = g_utf8_get_char(p);
        const bool known = (c == '\n' || c == '\t') && english.find(*p) != english.npos;
        if (g_unichar_iscntrl(c) && !known)
            return true;
    }
    return false;
}

// What is wrong with a text that stands for an English one; empty for nothing.
std::string fault_of(const std::string& text, const std::string& english) {
    if (!g_utf8_validate(text.c_str(), -1, nullptr))
        return "the text is not UTF-8";
    if (has_stray_control(text, english))
        return "the text holds a control character";
    const std::vector<std::string> theirs = conversions(text);
    const std::vector<std::string> ours = conversions(english);
    if (theirs != ours)
        return "the conversions are " + listed(theirs) + ", and must be " + listed(ours);
    return {};
}

// --- Files ------------------------------------------------------------------------------------

std::string header_field(po_file_t file, const char* name) {
    const char* header = po_file_domain_header(file, nullptr);
    char* value = header ? po_header_field(header, name) : nullptr;
    std::string text = value ? value : "";
    std::free(value);
    return text;
}

// Null after a fault.
File read(const std::string& path, const std::string& code) {
    const int before = g_faults;
    File file(po_file_read(path.c_str(), &kReports));
    if (!file)
        fault(path, "", std::strerror(errno));  // a file that cannot be opened is not reported
    if (g_faults != before)
        return nullptr;
    const std::string type = header_field(file.get(), "Content-Type");
    if (type != "text/plain; charset=UTF-8")
        fault(path, "",
              "the header's Content-Type is \"" + type +
                  "\", and must be \"text/plain; charset=UTF-8\"");
    const std::string language = header_field(file.get(), "Language");
    if (language != code)
        fault(path, "",
              "the header's Language is \"" + language + "\", and must be \"" + code + "\"");
    // Under a header that is wrong, the texts would only repeat it.
    return g_faults == before ? std::move(file) : nullptr;
}

// Calls visit(key, message) for each message with a key, and reports those without.
template <typename Visit>
void for_each_message(po_file_t file, const std::string& path, Visit visit) {
    po_message_iterator_t iterator = po_message_iterator(file, nullptr);
    while (po_message_t message = po_next_message(iterator)) {
        const char* key = po_message_msgctxt(message);
        const std::string english = po_message_msgid(message);
        if (po_message_is_obsolete(message) || (!key && english.empty()))
            continue;  // a text that has gone, or the header
        if (!key || !*key)
            fault(path, "\"" + english + "\"", "there is no msgctxt, which holds the key");
        else if (po_message_msgid_plural(message))
            fault(path, key, "there are no plural forms here");
        else if ((po_message_is_format(message, "c-format") != 0) == conversions(english).empty())
            fault(path, key,
                  "the flag c-format is for texts with conversions, and for all of them");
        else
            visit(std::string(key), message);
    }
    po_message_iterator_free(iterator);
}

Texts read_english(const std::string& path) {
    Texts english;
    const File file = read(path, "en");
    if (!file)
        return english;
    for_each_message(file.get(), path, [&](const std::string& key, po_message_t message) {
        const std::string text = po_message_msgid(message);
        const std::string reason =
            text.empty() ? "the English text is empty" : fault_of(text, text);
        if (!reason.empty())
            fault(path, key, reason);
        if (!english.emplace(key, text).second)
            fault(path, key, "the key stands here twice");
    });
    if (english.size() != i18n_data::kTextCount)
        fault(path, "",
              "there are " + std::to_string(english.size()) + " texts, but kTextCount in " +
                  "src/i18n_data.h is " + std::to_string(i18n_data::kTextCount));
    return english;
}

struct Translation {
    Texts texts;              // by key; English where there is none yet
    size_t untranslated = 0;  // how many of them are
};

Translation read_translation(const std::string& path, const std::string& code,
                             const Texts& english) {
    Translation result;
    const File file = read(path, code);
    if (!file)
        return result;
    const bool may_lack = header_field(file.get(), "X-Ferrodeck-Status") == "untranslated";
    for_each_message(file.get(), path, [&](const std::string& key, po_message_t message) {
        const auto wanted = english.find(key);
        if (wanted == english.end())
            return fault(path, key, std::string("there is no such key in ") + kTemplate);
        // An entry of its own even after a fault, so that the key does not count as missing too.
        auto [entry, is_new] = result.texts.emplace(key, wanted->second);
        if (!is_new)
            return fault(path, key, "the key stands here twice");
        if (po_message_msgid(message) != wanted->second)
            return fault(path, key,
                         std::string("the msgid is not the English text of ") + kTemplate);
        const std::string text = po_message_msgstr(message);
        const bool fuzzy = po_message_is_fuzzy(message) != 0;
        if (text.empty() || fuzzy) {
            ++result.untranslated;
            if (!may_lack)
                fault(path, key, fuzzy ? "the text is marked fuzzy" : "the text is empty");
            return;
        }
        const std::string reason = fault_of(text, wanted->second);
        if (!reason.empty())
            return fault(path, key, reason);
        entry->second = text;
    });
    for (const auto& [key, text] : english) {
        if (!result.texts.contains(key))
            fault(path, key, "the key is missing");
    }
    if (may_lack && result.untranslated == 0)
        std::printf("%s: nothing is untranslated; X-Ferrodeck-Status can go\n", path.c_str());
    return result;
}

// A language that the program does not list would be left out without a word.
void look_for_strangers(const std::string& folder) {
    std::error_code error;
    std::vector<std::string> strangers;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::filesystem::path& path = entry.path();
        const bool known =
            std::any_of(std::begin(kLanguages), std::end(kLanguages),
                        [&](const Language& language) { return path.stem() == language.code; });
        if (path.extension() == ".po" && (!known || path.stem() == "en"))
            strangers.push_back(path.string());
    }
    std::sort(strangers.begin(), strangers.end());
    for (const std::string& path : strangers)
        fault(path, "", "this language is not in kLanguages of tools/po_tables.cpp, or is English");
    if (error)
        fault(folder, "", error.message());
}

// --- Output -----------------------------------------------------------------------------------

std::string literal(const std::string& text) {
    std::string out = "\"";
    for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
        const gunichar c = g_utf8_get_char(p);
        const char* const end = g_utf8_next_char(p);
        const bool turns = (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += *p;
        } else if (c < ' ' || turns) {
            // Characters that turn the direction of a line are what compilers warn of.
            for (const char* byte = p; byte < end; ++byte) {
                char octal[8];
                std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(*byte));
                out += octal;
            }
        } else {
            out.append(p, end);
        }
    }
    return out + "\"";
}

std::string tables(const Texts& english, const std::vector<Texts>& languages) {
    std::string out = "// Generated by tools/po_tables from po/. Do not edit.\n\n"
                      "#include \"i18n_data.h\"\n\nnamespace i18n_data {\n\n";
    out += "static_assert(kTextCount == " + std::to_string(english.size()) + ");\n\n";
    out += "const char* const KEYS[kTextCount] = {\n";
    for (const auto& [key, text] : english)
        out += "    " + literal(key) + ",\n";
    out += "};\n\nnamespace {\n";
    for (size_t i = 0; i < std::size(kLanguages); ++i) {
        out +=
            std::string("\nconst char* const VALUES_") + kLanguages[i].code + "[kTextCount] = {\n";
        for (const auto& [key, text] : languages[i])
            out += "    " + literal(text) + ",\n";
        out += "};\n";
    }
    out += "\n}  // namespace\n\nconst LangEntry LANGS[kLanguageCount] = {\n";
    for (const Language& language : kLanguages) {
        out += std::string("    {\"") + language.code + "\", " + literal(language.native_name) +
               (language.rtl ? ", true, " : ", false, ") + "VALUES_" + language.code + "},\n";
    }
    return out + "};\n\n}  // namespace i18n_data\n";
}

bool write(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (out)
        return true;
    std::fprintf(stderr, "%s: cannot be written\n", path.c_str());
    std::remove(path.c_str());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: po_tables <folder of .po files> <i18n_data.cpp>\n");
        return 2;
    }
    const std::string folder = argv[1];
    const Texts english = read_english(folder + "/" + kTemplate);
    if (g_faults > 0)
        return EXIT_FAILURE;  // the other files would only repeat it

    std::vector<Texts> languages;
    size_t untranslated = 0;
    std::string which;
    for (const Language& language : kLanguages) {
        if (std::strcmp(language.code, "en") == 0) {
            languages.push_back(english);
            continue;
        }
        const std::string path = folder + "/" + language.code + ".po";
        Translation translation = read_translation(path, language.code, english);
        if (translation.untranslated > 0)
            which +=
                std::string(" ") + language.code + " " + std::to_string(translation.untranslated);
        untranslated += translation.untranslated;
        languages.push_back(std::move(translation.texts));
    }
    look_for_strangers(folder);
    if (g_faults > 0)
        return EXIT_FAILURE;
    if (!write(argv[2], tables(english, languages)))
        return EXIT_FAILURE;
    std::printf("untranslated: %zu%s%s\n", untranslated, which.empty() ? "" : " -", which.c_str());
}
