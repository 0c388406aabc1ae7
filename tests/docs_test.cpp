// What docs/TESTING.md says of the tests is true of their sources.

#include "test_env.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string kTests = SOURCE_DIR "/tests";

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

bool is_word(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '_';
    });
}

// "Suite.name" of each TEST, TEST_F and TEST_P that begins a line.
std::set<std::string> tests_in(const std::string& source) {
    std::set<std::string> names;
    for (size_t at = source.find("\nTEST"); at != std::string::npos;
         at = source.find("\nTEST", at + 1)) {
        const size_t open = source.find('(', at);
        const size_t close = source.find(')', at);
        const std::string macro = source.substr(at + 1, open - at - 1);
        if (close == std::string::npos ||
            (macro != "TEST" && macro != "TEST_F" && macro != "TEST_P"))
            continue;
        std::string name;
        for (const char c : source.substr(open + 1, close - open - 1))
            if (!std::isspace(static_cast<unsigned char>(c)))
                name += c == ',' ? '.' : c;
        names.insert(name);
    }
    return names;
}

std::set<std::string> all_tests() {
    std::set<std::string> names;
    for (const fs::directory_entry& file : fs::directory_iterator(kTests))
        if (file.path().extension() == ".cpp")
            names.merge(tests_in(test_env::read_file(file.path())));
    return names;
}

// What stands between backquotes.
std::vector<std::string> quoted_in(const std::string& text) {
    std::vector<std::string> words;
    for (size_t at = text.find('`'); at != std::string::npos; at = text.find('`', at)) {
        const size_t end = text.find('`', at + 1);
        if (end == std::string::npos)
            break;
        words.push_back(text.substr(at + 1, end - at - 1));
        at = end + 1;
    }
    return words;
}

// The rows of the tables below the heading, without their heads.
std::vector<std::string> rows_below(const std::string& heading) {
    std::vector<std::string> rows;
    bool inside = false;
    int in_table = 0;
    for (const std::string& line : lines_of(test_env::read_file(SOURCE_DIR "/docs/TESTING.md"))) {
        if (line.compare(0, 3, "## ") == 0)
            inside = line == "## " + heading;
        in_table = !line.empty() && line[0] == '|' ? in_table + 1 : 0;
        if (inside && in_table > 2)
            rows.push_back(line);
    }
    return rows;
}

TEST(Docs, a_test_is_found_in_its_source_however_it_is_written) {
    EXPECT_EQ(tests_in("x\nTEST(A, b) {\n}\n\nTEST_F(C,\n       d_1) {\n}\nTEST_P(E, f) {\n// "
                       "TEST(G, h)\n  TEST(I, j)\nTESTS(K, l)\n"),
              (std::set<std::string>{"A.b", "C.d_1", "E.f"}));
}

TEST(Docs, every_case_names_tests_that_there_are) {
    const std::set<std::string> known = all_tests();
    const std::vector<std::string> rows = rows_below("Cases and their tests");
    EXPECT_GT(rows.size(), 200U);
    for (const std::string& row : rows) {
        const size_t last_cell = row.rfind('|', row.size() - 2);
        const std::vector<std::string> named = quoted_in(row.substr(last_cell));
        EXPECT_FALSE(named.empty()) << row;
        for (const std::string& name : named)
            EXPECT_TRUE(known.contains(name)) << name << " in: " << row;
    }
}

TEST(Docs, every_long_suite_is_listed_and_no_other) {
    std::set<std::string> suites;
    for (const std::string& name : all_tests())
        if (name.compare(0, 7, "Nightly") == 0)
            suites.insert(name.substr(0, name.find('.')));
    std::set<std::string> listed;
    for (const std::string& row : rows_below("Tests that take long"))
        listed.insert(quoted_in(row).at(0));
    EXPECT_EQ(listed, suites);
}

TEST(Docs, every_helper_of_the_tests_is_listed_and_no_other) {
    std::set<std::string> helpers;
    for (const fs::directory_entry& file : fs::directory_iterator(kTests + "/support"))
        if (file.path().extension() == ".h")
            helpers.insert(file.path().stem());
    std::set<std::string> listed;
    for (const std::string& row : rows_below("Writing a test"))
        for (const std::string& word : quoted_in(row.substr(0, row.find('|', 1))))
            if (is_word(word))
                listed.insert(word);
    EXPECT_EQ(listed, helpers);
}

}  // namespace
