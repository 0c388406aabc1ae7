#include "archive_ops_list.h"

#include "archive_ops_child.h"
#include "archive_ops_commands.h"
#include "logger.h"
#include "strutil.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <glib.h>
#include <memory>
#include <mutex>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace archive_ops {

namespace {

constexpr const char* kBlanks = " \t";
constexpr size_t kMaxErrorBytes = 4096;
// An archiver that is told to end does so in a few milliseconds. No frame waits longer.
constexpr int kEndWaitMs = 50;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool all_digits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), is_digit);
}

int64_t number(const std::string& text) {
    return std::strtoll(text.c_str(), nullptr, 10);
}

void cut_at(std::string& text, const char* mark) {
    text.resize(std::min(text.size(), text.find(mark)));
}

// So many entries take longer to let go of than a frame has.
constexpr size_t kLongList = 20000;

// One run. Its worker holds it as well, so that it may outlive the interest in it.
struct Listing {
    Listing() : wake_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Listing() {
        if (wake_fd >= 0)
            close(wake_fd);
    }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

    std::mutex mutex;  // guards head and entries
    ListStatus head;   // but its count, which is that of entries
    // Grows without moving what is there, which would hold up a frame. A million entries with names
    // of 25 bytes take 97 MiB.
    std::deque<ListEntry> entries;
    std::atomic<bool> ended{false};  // the worker does nothing any more
    std::atomic<bool> cancel{false};
    const int wake_fd;  // readable once it is cancelled
};

// The archiver's message without the blank lines around it.
std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
}

std::shared_ptr<Listing> g_listing;  // interface thread only; null when nothing is listed

void add(Listing& listing, ListEntry entry) {
    const std::lock_guard<std::mutex> lock(listing.mutex);
    if (entry.is_dir)
        ++listing.head.dirs;
    else if (entry.size > 0)
        listing.head.total_size += std::min(entry.size, INT64_MAX - listing.head.total_size);
    listing.entries.push_back(std::move(entry));
}

void forget_entries(Listing& listing) {
    const std::lock_guard<std::mutex> lock(listing.mutex);
    listing.entries.clear();
    listing.head.dirs = 0;
    listing.head.total_size = 0;
}

// The error's text, empty for success and when it was cancelled.
std::string run_lines(Listing& listing, const std::vector<std::string>& argv, ParseLine parse) {
    LineCutter lines([&](const std::string& line) {
        ListEntry entry;
        if (parse(line, entry))
            add(listing, std::move(entry));
        else if (parse == parse_zip_line && begins_zip_entries(line))
            forget_entries(listing);
    });
    std::string errors;
    Child child;
    child.argv = argv;
    child.keep_going = [&listing] { return !listing.cancel.load(); };
    child.wake_fd = listing.wake_fd;
    child.on_output = [&lines](std::string_view bytes) {
        lines.add(bytes);
        return true;
    };
    child.on_output_end = [&lines] { lines.finish(); };
    child.on_error_output = [&errors](std::string_view bytes) {
        errors.append(bytes.substr(0, kMaxErrorBytes - errors.size()));
    };
    switch (run_child(child).kind) {
    case ChildEnd::Kind::NotStarted:
        return "could not start the archiver";
    case ChildEnd::Kind::Failed:
        errors = trimmed(errors);
        return errors.empty() ? "the archiver reported an error" : errors;
    case ChildEnd::Kind::Stopped:
    case ChildEnd::Kind::Ok:
        break;
    }
    return {};
}

// Told in the log first: who sees that the listing is done finds it there.
void finish(Listing& listing, const std::string& error) {
    const bool cancelled = listing.cancel.load();
    const char* const archive = listing.head.archive.c_str();
    // Nobody else adds to them.
    const size_t count = listing.entries.size();
    if (!cancelled && error.empty())
        Log::infof("LIST ok: %zu entries in %s", count, archive);
    else if (!cancelled)
        Log::warnf("LIST failed: %s — %s", archive, error.c_str());
    const std::lock_guard<std::mutex> lock(listing.mutex);
    listing.head.running = false;
    listing.head.done = true;
    if (!cancelled)
        listing.head.error = error;
}

void list_plain(Listing& listing) {
    ListEntry entry;
    entry.name = plain_inner_name(listing.head.archive);
    const std::lock_guard<std::mutex> lock(listing.mutex);
    listing.entries.push_back(std::move(entry));
    listing.head.running = false;
    listing.head.done = true;
    Log::infof("LIST ok: 1 entry in %s (single compressed file)", listing.head.archive.c_str());
}

void work(Listing& listing, const std::string& sevenzip) {
    Log::name_this_thread("list");
    const std::string& archive = listing.head.archive;
    const ArchiveKind kind = kind_of(archive);
    if (kind == ArchiveKind::Plain) {
        list_plain(listing);
    } else {
        ParseLine parse = parse_tar_line;
        if (kind == ArchiveKind::Zip)
            parse = parse_zip_line;
        else if (kind == ArchiveKind::SevenZ)
            parse = parse_7z_line;
        finish(listing, run_lines(listing, list_command(archive, sevenzip), parse));
    }
    listing.ended.store(true);
}

}  // namespace

std::vector<std::string> split_fields(const std::string& line, size_t max_fields) {
    std::vector<std::string> fields;
    size_t at = line.find_first_not_of(kBlanks);
    while (at != std::string::npos && fields.size() < max_fields) {
        const bool last = fields.size() + 1 == max_fields;
        const size_t end = last ? std::string::npos : line.find_first_of(kBlanks, at);
        fields.push_back(line.substr(at, end == std::string::npos ? end : end - at));
        at = end == std::string::npos ? end : line.find_first_not_of(kBlanks, end);
    }
    return fields;
}

// "   1234  2024-05-06 07:08   the name"
bool parse_zip_line(const std::string& line, ListEntry& entry) {
    std::vector<std::string> fields = split_fields(line, 4);
    if (fields.size() < 4 || !is_digit(fields[0][0]) || fields[1].find('-') == std::string::npos)
        return false;
    entry.size = number(fields[0]);
    entry.name = std::move(fields[3]);
    entry.is_dir = entry.name.back() == '/';
    return true;
}

// "---------  ---------- -----   ----"
bool begins_zip_entries(const std::string& line) {
    return line.find_first_not_of("- ") == std::string::npos && split_fields(line, 5).size() == 4;
}

// "2024-05-06 07:08:09 ....A         1234          567  the name", without the packed size in a
// block's further entries.
bool parse_7z_line(const std::string& line, ListEntry& entry) {
    std::vector<std::string> fields = split_fields(line, 5);
    if (fields.size() < 5 || fields[0].size() != 10 || fields[0][4] != '-')
        return false;
    const std::string& attributes = fields[2];
    if (attributes.size() != 5 || attributes.find_first_not_of(".DRHSA") != std::string::npos)
        return false;
    std::vector<std::string> packed_and_name = split_fields(fields[4], 2);
    const bool has_packed = packed_and_name.size() == 2 && all_digits(packed_and_name[0]);
    entry.size = number(fields[3]);
    entry.is_dir = attributes[0] == 'D';
    entry.name = std::move(has_packed ? packed_and_name[1] : fields[4]);
    return true;
}

// "-rw-r--r-- user/group   1234 2024-05-06 07:08 the name", of links with what they link to.
bool parse_tar_line(const std::string& line, ListEntry& entry) {
    std::vector<std::string> fields = split_fields(line, 6);
    if (fields.size() < 6)
        return false;
    const char kind = fields[0][0];
    entry.size = number(fields[2]);
    entry.is_dir = kind == 'd';
    entry.name = std::move(fields[5]);
    if (kind == 'l')
        cut_at(entry.name, " -> ");
    else if (kind == 'h')
        cut_at(entry.name, " link to ");
    return true;
}

void start_list(const std::string& path) {
    cancel_list();
    const auto listing = std::make_shared<Listing>();
    listing->head.running = true;
    listing->head.archive = path;
    g_listing = listing;
    Log::infof("LIST %s", path.c_str());
    const char* const sevenzip =
        kind_of(path) == ArchiveKind::SevenZ ? sevenzip_program() : nullptr;
    try {
        std::thread([listing, program = std::string(sevenzip ? sevenzip : "")] {
            work(*listing, program);
        }).detach();
    } catch (const std::system_error& error) {
        // std::thread reports in no other way.
        Log::errorf("LIST: no thread: %s", error.what());
        finish(*listing, "listing failed");
        listing->ended.store(true);
    }
}

ListStatus list_status() {
    if (!g_listing)
        return {};
    const std::lock_guard<std::mutex> lock(g_listing->mutex);
    ListStatus status = g_listing->head;
    status.count = g_listing->entries.size();
    return status;
}

std::vector<ListEntry> list_slice(size_t first, size_t count) {
    if (!g_listing)
        return {};
    const std::lock_guard<std::mutex> lock(g_listing->mutex);
    const std::deque<ListEntry>& entries = g_listing->entries;
    if (first >= entries.size())
        return {};
    const auto begin = entries.begin() + static_cast<std::ptrdiff_t>(first);
    const size_t length = std::min(count, entries.size() - first);
    return {begin, begin + static_cast<std::ptrdiff_t>(length)};
}

void cancel_list() {
    if (!g_listing)
        return;
    std::shared_ptr<Listing> listing = std::move(g_listing);
    listing->cancel.store(true);
    (void)eventfd_write(listing->wake_fd, 1);
    for (int i = 0; !listing->ended.load() && i < kEndWaitMs; ++i)
        g_usleep(1000);
    size_t count = 0;
    {
        const std::lock_guard<std::mutex> lock(listing->mutex);
        count = listing->entries.size();
    }
    if (count <= kLongList)
        return;
    try {
        std::thread([held = std::move(listing)] {}).detach();
    } catch (const std::system_error&) {
        // Then it is let go of here.
    }
}

}  // namespace archive_ops
