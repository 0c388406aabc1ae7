#include "batch.h"

#include <charconv>
#include <iterator>

namespace batch {

namespace {

struct Row {
    std::string_view word;
    Verb verb;
    size_t fields;  // behind the word
};

constexpr Row kVerbs[] = {
    {"COPY", Verb::Copy, 2},   {"MKDIR", Verb::MakeDir, 2}, {"REMOVE", Verb::Remove, 1},
    {"CHMOD", Verb::Chmod, 2}, {"CHOWN", Verb::Chown, 3},
};

constexpr char kMalformed[] = "malformed line";
constexpr int64_t kModeBits = 07777;
constexpr int64_t kLargestId = 0xfffffffe;  // the next one means "unchanged" to the kernel

std::vector<std::string_view> split(std::string_view line) {
    std::vector<std::string_view> fields;
    for (;;) {
        const size_t tab = line.find('\t');
        fields.push_back(line.substr(0, tab));
        if (tab == line.npos)
            return fields;
        line.remove_prefix(tab + 1);
    }
}

// Digits alone, and all of them.
bool parse_number(std::string_view text, int base, int64_t largest, int64_t& value) {
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || stopped != end ||
        number > static_cast<uint64_t>(largest))
        return false;
    value = static_cast<int64_t>(number);
    return true;
}

bool parse_id(std::string_view text, int64_t& value) {
    if (text == "-1") {
        value = kUnchanged;
        return true;
    }
    return parse_number(text, 10, kLargestId, value);
}

// What -1 is as an unsigned number of 32 bits.
bool parse_mode(std::string_view text, bool may_be_unchanged, int64_t& value) {
    if (may_be_unchanged && text == "37777777777") {
        value = kUnchanged;
        return true;
    }
    return parse_number(text, 8, kModeBits, value);
}

// A path is walked as it stands: nothing in it may lead back.
std::string fault_of_path(std::string_view path) {
    if (path.empty() || path[0] != '/')
        return "the path is not absolute";
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view component = path.substr(0, path.find('/'));
        if (component == "." || component == "..")
            return "the path holds a \".\" or \"..\"";
        path.remove_prefix(component.size());
    }
    return {};
}

bool is_root_folder(std::string_view path) {
    return path.find_first_not_of('/') == path.npos;
}

}  // namespace

std::string parse(std::string_view line, Operation& operation) {
    operation = {};
    if (line.find('\0') != line.npos)
        return kMalformed;
    const std::vector<std::string_view> fields = split(line);
    const Row* row = nullptr;
    for (const Row& known : kVerbs)
        if (known.word == fields[0])
            row = &known;
    if (!row || fields.size() != row->fields + 1)
        return kMalformed;
    operation.verb = row->verb;
    const bool copies = row->verb == Verb::Copy;
    operation.target = fields[copies ? 2 : 1];
    if (copies)
        operation.source = fields[1];
    const bool numbers_good = row->verb == Verb::MakeDir || row->verb == Verb::Chmod
                                  ? parse_mode(fields[2], row->verb == Verb::Chmod, operation.mode)
                              : row->verb == Verb::Chown ? parse_id(fields[2], operation.uid) &&
                                                               parse_id(fields[3], operation.gid)
                                                         : true;
    if (!numbers_good)
        return kMalformed;
    if (copies)
        if (std::string fault = fault_of_path(operation.source); !fault.empty())
            return fault;
    if (std::string fault = fault_of_path(operation.target); !fault.empty())
        return fault;
    if (row->verb == Verb::Remove && is_root_folder(operation.target))
        return "the root folder cannot be removed";
    return {};
}

std::vector<std::string_view> lines_of(std::string_view input, bool& complete) {
    std::vector<std::string_view> lines;
    complete = input.empty() || input.back() == '\n';
    while (!input.empty()) {
        const size_t end = input.find('\n');
        lines.push_back(input.substr(0, end));
        input.remove_prefix(end == input.npos ? input.size() : end + 1);
    }
    return lines;
}

}  // namespace batch
