// Packing and unpacking as background tasks.

#include "archive_ops.h"
#include "archive_ops_child.h"
#include "archive_ops_commands.h"
#include "archive_ops_list.h"
#include "bg_task.h"
#include "format.h"
#include "fs_ops.h"
#include "logger.h"
#include "strutil.h"

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <utility>

namespace archive_ops {

namespace {

constexpr size_t kLoggedSources = 50;
constexpr size_t kFileBlock = 65536;

using Reporter = BgTask::Reporter;

// What both ways of running a child do with its keep_going and its standard error.
Child child_for(Reporter& reporter, const std::vector<std::string>& argv) {
    Child child;
    child.argv = argv;
    child.keep_going = [&reporter] { return reporter.keep_going(); };
    // Blank lines are but the layout of the messages.
    const auto errors = std::make_shared<LineCutter>([&reporter](const std::string& line) {
        if (line.find_first_not_of(" \t") != std::string::npos)
            reporter.fail(line);
    });
    child.on_error_output = [errors](std::string_view bytes) { errors->add(bytes); };
    child.on_error_end = [errors] { errors->finish(); };
    return child;
}

bool ended_well(Reporter& reporter, const ChildEnd& end) {
    switch (end.kind) {
    case ChildEnd::Kind::NotStarted:
        reporter.fail(end.message.empty() ? "could not start the archiver" : end.message);
        return false;
    case ChildEnd::Kind::Failed:
        reporter.fail(end.message);
        return false;
    case ChildEnd::Kind::Stopped:
        return false;
    case ChildEnd::Kind::Ok:
        break;
    }
    return true;
}

using BeforeEnd = std::function<void(int pid)>;

bool run_with_output(
    const std::vector<std::string>& argv, const std::string& cwd, Reporter& reporter,
    const LineCutter::OnLine& on_line, const BeforeEnd& before_end = [](int) {}) {
    LineCutter lines(on_line);
    Child child = child_for(reporter, argv);
    child.cwd = cwd;
    child.before_end = before_end;
    child.on_output = [&lines](std::string_view bytes) {
        lines.add(bytes);
        return true;
    };
    child.on_output_end = [&lines] { lines.finish(); };
    return ended_well(reporter, run_child(child));
}

// The output goes to a new file, which is removed again when something fails.
bool run_to_file(const std::vector<std::string>& argv, const std::string& out_path,
                 Reporter& reporter, int64_t& bytes_written) {
    bytes_written = 0;
    FILE* const file = std::fopen(out_path.c_str(), "wbxe");
    if (!file) {
        reporter.fail("cannot write " + out_path);
        return false;
    }
    bool written = true;
    Child child = child_for(reporter, argv);
    child.block = kFileBlock;
    child.on_output = [&](std::string_view bytes) {
        written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        bytes_written += static_cast<int64_t>(bytes.size());
        return written;
    };
    bool ok = ended_well(reporter, run_child(child));
    // The last bytes may still be in the stream's buffer.
    written = std::fclose(file) == 0 && written;
    if (!written && reporter.keep_going())
        reporter.fail("writing the unpacked file failed");
    ok = ok && written;
    if (!ok)
        (void)fsops::remove_file(out_path);
    return ok;
}

std::string sized(const std::string& path, const std::string& size) {
    return su::basename_of(path) + "  ·  " + size;
}

struct PackJob {
    std::vector<std::string> sources;
    std::string base;
    std::string archive;
    Format format;
    std::string sevenzip;
};

void measure(const PackJob& job, Reporter& reporter) {
    const auto keep_going = [&reporter] { return reporter.keep_going(); };
    int64_t entries = 0;
    for (const std::string& source : job.sources) {
        if (!reporter.keep_going())
            break;
        const fsops::TreeSize size = fsops::measure_tree(source, keep_going, {});
        entries += size.files + size.dirs;
    }
    reporter.set_total(entries);
    Log::infof("PACK -> %s (%s), %zu source(s), %" PRId64 " entries, base %s", job.archive.c_str(),
               extension_for(job.format), job.sources.size(), entries, job.base.c_str());
    for (size_t i = 0; i < job.sources.size() && i < kLoggedSources; ++i)
        Log::infof("  packing: %s", job.sources[i].c_str());
    if (job.sources.size() > kLoggedSources)
        Log::infof("  … and %zu more", job.sources.size() - kLoggedSources);
}

bool same_file(const fsops::Stat& a, const fsops::Stat& b) {
    return a.exists && b.exists && a.device == b.device && a.inode == b.inode;
}

using Files = std::vector<std::pair<std::string, fsops::Stat>>;

// The files of a folder that a process has open for writing.
Files written_by(int pid, const std::string& folder) {
    Files files;
    const fsops::Stat wanted = fsops::stat_path(folder);
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
    for (const fsops::RawEntry& entry : fsops::list_dir_raw(fds).entries) {
        const std::string fd = su::join_path(fds, entry.name);
        std::string path;
        // The mode of the link itself says what the file was opened for.
        if ((fsops::lstat_path(fd).perm & 0200) == 0 || !fsops::read_link(fd, path).empty())
            continue;
        const fsops::Stat file = fsops::lstat_path(path);
        if (file.is_regular && same_file(fsops::stat_path(su::parent_of(path)), wanted))
            files.emplace_back(path, file);
    }
    return files;
}

void remove_partial(const PackJob& job, const Files& half_written) {
    if (fsops::exists(job.archive))
        (void)fsops::remove_file(job.archive);
    Log::warnf("PACK aborted, removed partial %s", job.archive.c_str());
    for (const auto& [path, file] : half_written) {
        if (same_file(fsops::lstat_path(path), file) && fsops::remove_file(path).empty())
            Log::warnf("PACK aborted, removed partial %s", path.c_str());
    }
}

void pack(const PackJob& job, Reporter& reporter) {
    // Neither to be added to nor to be removed when packing fails.
    if (fsops::exists(job.archive)) {
        reporter.fail(su::basename_of(job.archive) + ": exists already");
        return;
    }
    measure(job, reporter);
    std::vector<std::string> names;
    for (const std::string& source : job.sources)
        names.push_back(su::basename_of(source));

    const auto on_line = [&reporter](const std::string& line) {
        reporter.set_detail(line);
        reporter.advance(1);
    };
    // Some write under names of their own until all is done, and not all clean up when they end.
    Files half_written;
    const auto before_end = [&](int pid) {
        const Files files = written_by(pid, su::parent_of(job.archive));
        half_written.insert(half_written.end(), files.begin(), files.end());
    };
    const bool packed = reporter.keep_going() &&
                        run_with_output(pack_command(job.format, job.archive, names, job.sevenzip),
                                        job.base, reporter, on_line, before_end);
    if (!packed || !reporter.keep_going())
        return remove_partial(job, half_written);
    const int64_t size = fsops::lstat_path(job.archive).size;
    reporter.set_result(sized(job.archive, fmt::bytes(size)));
    Log::infof("PACK ok: %s (%" PRId64 " B)", job.archive.c_str(), size);
}

struct UnpackJob {
    std::string archive;
    std::string target_dir;
    std::string sevenzip;
};

void log_unpack_failed(const UnpackJob& job) {
    Log::warnf("UNPACK failed: %s -> %s", job.archive.c_str(), job.target_dir.c_str());
}

void unpack_plain(const UnpackJob& job, const NameReader& reader, Reporter& reporter) {
    const std::string name = plain_inner_name(job.archive);
    const std::string out = su::join_path(job.target_dir, name);
    if (fsops::exists(out)) {
        reporter.fail(name + ": exists already");
        Log::warnf("UNPACK refused: %s exists", out.c_str());
        return;
    }
    reporter.set_detail(name);
    int64_t bytes = 0;
    if (!run_to_file({reader.tool, "-dc", job.archive}, out, reporter, bytes)) {
        log_unpack_failed(job);
        return;
    }
    reporter.advance(1);
    reporter.set_result(sized(out, fmt::bytes(bytes)));
    Log::infof("UNPACK ok: %s (%" PRId64 " B)", out.c_str(), bytes);
}

// A look at the names before they are unpacked. What goes wrong is told by the unpacking.
UnzipOptions unzip_options(const UnpackJob& job, Reporter& reporter) {
    UnzipOptions options;
    LineCutter lines([&options](const std::string& line) {
        ListEntry entry;
        if (parse_zip_line(line, entry))
            add_needed(options, entry.name);
    });
    Child child;
    child.argv = list_command(job.archive, job.sevenzip);
    child.keep_going = [&reporter] { return reporter.keep_going(); };
    child.on_output = [&lines](std::string_view bytes) {
        lines.add(bytes);
        return true;
    };
    child.on_error_output = [](std::string_view) {};
    (void)run_child(child);
    return options;
}

void unpack(const UnpackJob& job, Reporter& reporter) {
    const std::string error = fsops::make_dirs(job.target_dir, 0755);
    if (!error.empty()) {
        reporter.fail(error);
        return;
    }
    reporter.set_total(0);
    Log::infof("UNPACK %s -> %s", job.archive.c_str(), job.target_dir.c_str());
    const NameReader* const reader = reader_for_name(su::basename_of(job.archive));
    if (reader && reader->plain) {
        unpack_plain(job, *reader, reporter);
        return;
    }
    if (kind_of(job.archive) == ArchiveKind::SevenZ && job.sevenzip.empty()) {
        reporter.fail("7z is not installed");
        return;
    }
    const UnzipOptions options =
        kind_of(job.archive) == ArchiveKind::Zip ? unzip_options(job, reporter) : UnzipOptions();
    const Command command = unpack_command(job.archive, job.target_dir, job.sevenzip, options);
    int64_t count = 0;
    const bool ok = reporter.keep_going() && run_with_output(command.argv, command.cwd, reporter,
                                                             [&](const std::string& line) {
                                                                 reporter.set_detail(line);
                                                                 reporter.advance(1);
                                                                 ++count;
                                                             });
    if (!ok) {
        log_unpack_failed(job);
        return;
    }
    reporter.set_result(sized(job.archive, fmt::files(count)));
    Log::infof("UNPACK ok: %" PRId64 " entries -> %s", count, job.target_dir.c_str());
}

std::string sevenzip_name() {
    const char* const program = sevenzip_program();
    return program ? program : "";
}

}  // namespace

std::string plain_inner_name(const std::string& path) {
    std::string base = su::basename_of(path);
    const NameReader* const reader = reader_for_name(base);
    if (!reader || !reader->plain)
        return base;
    std::string inner = base.substr(0, base.size() - std::string_view(reader->suffix).size());
    return inner.empty() ? base + ".out" : inner;
}

bool start_pack(std::vector<std::string> sources, const std::string& base,
                const std::string& archive, Format format, const std::string& title) {
    PackJob job{std::move(sources), base, archive, format, {}};
    if (format == Format::SevenZ)
        job.sevenzip = sevenzip_name();
    return BgTask::instance().start(
        BgTask::Kind::Pack, title,
        [job = std::move(job)](BgTask::Reporter& reporter) { pack(job, reporter); });
}

bool start_unpack(const std::string& archive, const std::string& target_dir,
                  const std::string& title) {
    UnpackJob job{archive, target_dir, {}};
    if (kind_of(archive) == ArchiveKind::SevenZ)
        job.sevenzip = sevenzip_name();
    return BgTask::instance().start(
        BgTask::Kind::Unpack, title,
        [job = std::move(job)](BgTask::Reporter& reporter) { unpack(job, reporter); });
}

}  // namespace archive_ops
