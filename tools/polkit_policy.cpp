// Puts the texts of all languages into the template of the polkit policy.
//
//   polkit_policy <template> <file to write>
//
// A line of the template that holds {a.key} is written once for each language, with the text of the
// catalogue in its place and, but for English, with xml:lang in its first tag.

#include "i18n_data.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace {

std::optional<size_t> index_of(std::string_view key) {
    for (size_t i = 0; i < i18n_data::kTextCount; ++i)
        if (key == i18n_data::KEYS[i])
            return i;
    return std::nullopt;
}

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else
            out += c;
    }
    return out;
}

// False: the line names a key that there is none of.
bool put_line(std::ostream& out, const std::string& line) {
    const size_t open = line.find('{');
    const size_t close = line.find('}', open);
    if (open == line.npos || close == line.npos) {
        out << line << '\n';
        return true;
    }
    const std::optional<size_t> index =
        index_of(std::string_view(line).substr(open + 1, close - open - 1));
    const size_t tag_end = line.find('>');
    if (!index || tag_end > open)
        return false;
    const auto put = [&](const std::string& attribute, const char* text) {
        out << line.substr(0, tag_end) << attribute << line.substr(tag_end, open - tag_end)
            << escaped(text) << line.substr(close + 1) << '\n';
    };
    // What no language fits comes first, and is English.
    for (const bool english : {true, false})
        for (const i18n_data::LangEntry& language : i18n_data::LANGS)
            if ((std::string_view(language.code) == "en") == english)
                put(english ? "" : " xml:lang=\"" + std::string(language.code) + "\"",
                    language.values[*index]);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: polkit_policy <template> <file to write>\n");
        return 2;
    }
    std::ifstream in(argv[1]);
    std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
    bool good = static_cast<bool>(in);
    for (std::string line; good && std::getline(in, line);) {
        good = put_line(out, line);
        if (!good)
            std::fprintf(stderr, "%s: no such key: %s\n", argv[1], line.c_str());
    }
    out.close();
    if (good && out)
        return EXIT_SUCCESS;
    std::fprintf(stderr, "%s: cannot be made of %s\n", argv[2], argv[1]);
    std::remove(argv[2]);
    return EXIT_FAILURE;
}
