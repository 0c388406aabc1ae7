#include "transfer_claim.h"

#include <algorithm>

namespace test_env {

namespace {

using copy_engine::Operation;
using copy_engine::Progress;
using tree::Node;
using tree::Snapshot;

// Everything that one check knows.
struct Check {
    const TransferClaim& claim;
    const Progress& progress;
    Snapshot source;
    Snapshot target;
    std::string text;

    void say(const std::string& path, const std::string& what) {
        text += path + ": " + what + "\n";
    }
};

bool lies_at_or_below(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder + "/");
}

// The file itself or a folder above it is in the list, by its name at either side.
bool is_listed(const Check& check, const std::string& path) {
    const std::string source = check.claim.source_root + "/" + path;
    const std::string target = check.claim.target_root + "/" + path;
    return std::any_of(check.progress.failures.begin(), check.progress.failures.end(),
                       [&](const copy_engine::FailedItem& item) {
                           return lies_at_or_below(source, item.path) ||
                                  lies_at_or_below(target, item.path);
                       });
}

// "report.txt" for "report.1.txt": the name that one stands for which was kept beside it.
std::string name_without_number(const std::string& name) {
    for (size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1)) {
        const size_t end = std::min(name.find_first_not_of("0123456789", dot + 1), name.size());
        if (end > dot + 1 && (end == name.size() || name[end] == '.'))
            return name.substr(0, dot) + name.substr(end);
    }
    return name;
}

// The same for each folder of a path, which may have been kept beside another one, too.
std::string without_numbers(const std::string& path) {
    std::string plain;
    for (size_t start = 0; start <= path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        plain += (start ? "/" : "") + name_without_number(path.substr(start, end - start));
        start = end + 1;
    }
    return plain;
}

bool is_whole_at(const Snapshot& where, const std::string& path, const Node& node,
                 const tree::Compare& how) {
    const auto found = where.find(path);
    if (found != where.end() && tree::same_file(node, found->second, how))
        return true;
    return std::any_of(where.begin(), where.end(), [&](const auto& entry) {
        return entry.second.hash == node.hash && tree::same_file(node, entry.second, how) &&
               without_numbers(entry.first) == path;
    });
}

void check_source(Check& check, const std::string& path, const Node& node) {
    const TransferClaim& claim = check.claim;
    const auto found = check.source.find(path);
    const bool here =
        found != check.source.end() && tree::same_file(node, found->second, claim.compare);
    if (node.kind == 'd') {
        if (claim.op == Operation::Copy && found == check.source.end())
            check.say(path, "a copy has taken a source folder away");
        return;
    }
    const bool there = is_whole_at(check.target, path, node, claim.compare);
    if (!here && claim.op == Operation::Copy)
        check.say(path, "a copy has changed its source");
    if (!here && !there)
        check.say(path, "is whole at neither side");
    const bool ended_early = check.progress.cancelled || check.progress.disk_full;
    const bool is_special = node.kind == 'o';
    if (!claim.killed && !ended_early && !is_special && !there && !is_listed(check, path))
        check.say(path, "is not listed as failed and is not at the target");
}

void check_target(Check& check, const std::string& path, const Node& node) {
    const TransferClaim& claim = check.claim;
    if (node.kind == 'd')
        return;
    const std::string plain = without_numbers(path);
    for (const std::string& name : {path, plain}) {
        const auto before = claim.target_before.find(name);
        if (before != claim.target_before.end() && tree::same_file(before->second, node))
            return;
        const auto source = claim.source_before.find(name);
        if (source != claim.source_before.end() &&
            tree::same_file(source->second, node, claim.compare))
            return;
    }
    const auto source = check.source.find(plain);
    const auto before = claim.source_before.find(plain);
    if (claim.killed && source != check.source.end() && before != claim.source_before.end() &&
        tree::same_file(before->second, source->second, claim.compare))
        return;
    check.say(path, "is at the target and is neither a whole source nor what stood there");
}

void check_what_stood_there(Check& check, const std::string& path, const Node& node) {
    if (is_whole_at(check.target, path, node, {}))
        return;
    const auto source = check.claim.source_before.find(path);
    if (node.kind == 'd' || source == check.claim.source_before.end()) {
        if (!check.target.contains(path))
            check.say(path, "stood at the target and is gone");
        else if (node.kind != 'd')
            check.say(path, "stood at the target and has changed");
        return;
    }
    // It was to be replaced: by a whole file, or by nothing where that one has failed.
    const bool ended_early =
        check.claim.killed || check.progress.cancelled || check.progress.disk_full;
    if (!is_whole_at(check.target, path, source->second, check.claim.compare) && !ended_early &&
        !is_listed(check, path))
        check.say(path, "stood at the target, is gone, and nothing has come in its place");
}

}  // namespace

void TransferClaim::look() {
    source_before = tree::snapshot(source_root);
    target_before = tree::snapshot(target_root);
}

std::string TransferClaim::broken(const Progress& progress) const {
    Check check{*this, progress, tree::snapshot(source_root), tree::snapshot(target_root), {}};
    for (const auto& [path, node] : source_before)
        check_source(check, path, node);
    for (const auto& [path, node] : check.target)
        check_target(check, path, node);
    for (const auto& [path, node] : target_before)
        check_what_stood_there(check, path, node);
    return std::move(check.text);
}

}  // namespace test_env
