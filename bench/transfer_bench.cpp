// The transfer engine against cp and rsync on trees of several kinds. Every round goes through all
// peers in turn (A B C A B C), each into a fresh target, so that noise and caches hit all alike;
// the medians and their ratios are printed.
//
//   transfer_bench [--dir=FOLDER] [--rounds=N] [--only=NAME] [--threads=N]
//
// FOLDER is where the trees are made, and so the file system that is measured.

#include "copy_engine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using copy_engine::ConflictAction;
using copy_engine::Operation;

std::string g_dir = "/tmp";
std::string g_only;
int g_rounds = 5;
int g_threads = 0;

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void must(bool ok, const std::string& what) {
    if (ok)
        return;
    std::perror(what.c_str());
    std::exit(1);
}

// --- Trees
// ------------------------------------------------------------------------------------------

uint32_t g_seed = 1;
uint32_t random_number() {
    g_seed = g_seed * 1664525U + 1013904223U;
    return g_seed >> 8;
}

void write_file(const std::string& path, size_t size) {
    static const std::string bytes = [] {
        std::string text(1 << 20, '\0');
        for (char& c : text)
            c = static_cast<char>(random_number());
        return text;
    }();
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    must(fd >= 0, path);
    for (size_t left = size; left > 0;) {
        const size_t part = std::min(left, bytes.size());
        must(write(fd, bytes.data(), part) == static_cast<ssize_t>(part), path);
        left -= part;
    }
    close(fd);
}

void make_small(const std::string& root, int folders, int per_folder) {
    for (int d = 0; d < folders; ++d) {
        const std::string dir = root + "/d" + std::to_string(d);
        fs::create_directories(dir);
        for (int f = 0; f < per_folder; ++f)
            write_file(dir + "/file" + std::to_string(f), random_number() % 4097);
    }
}

// Sizes as in a tree of sources: most of a few KiB, a tail up to some hundred.
void make_sources(const std::string& root) {
    for (int d = 0; d < 1000; ++d) {
        const std::string dir = root + "/m" + std::to_string(d % 40) + "/s" + std::to_string(d);
        fs::create_directories(dir);
        for (int f = 0; f < 20; ++f) {
            const uint32_t kind = random_number() % 100;
            const uint32_t limit = kind < 50   ? 4096
                                   : kind < 85 ? 20000
                                   : kind < 97 ? 80000
                                               : 400000;
            write_file(dir + "/unit" + std::to_string(f) + ".c", random_number() % limit);
        }
    }
}

void make_large(const std::string& root) {
    fs::create_directories(root);
    write_file(root + "/large", size_t{4} << 30);
}

void make_sparse(const std::string& root) {
    fs::create_directories(root);
    const std::string path = root + "/sparse";
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    must(fd >= 0, path);
    const std::string data(1 << 20, 'x');
    for (int i = 0; i < 200; ++i)
        must(pwrite(fd, data.data(), data.size(), static_cast<off_t>(i) * 100 * 1048576) > 0, path);
    must(ftruncate(fd, off_t{20} << 30) == 0, path);
    close(fd);
}

// --- Peers
// ------------------------------------------------------------------------------------------

void run_engine(const std::string& source, const std::string& target, Operation op) {
    copy_engine::Engine& engine = copy_engine::instance();
    must(engine.start({source}, target, op, g_threads, ConflictAction::Ask), "start");
    while (engine.is_running())
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    engine.reap();
    const copy_engine::Progress done = engine.snapshot();
    if (done.failures_total != 0 || done.cancelled) {
        std::fprintf(stderr, "%zu failures, first: %s\n", done.failures_total,
                     done.failures.empty() ? "" : done.failures[0].message.c_str());
        std::exit(1);
    }
}

void shell(const std::string& command) {
    must(std::system(command.c_str()) == 0, command);
}

struct Peer {
    std::string name;
    std::function<void(const std::string& source, const std::string& target)> run;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Reads the data of every file, so that each peer finds the source in memory, whatever the one
// before it has pushed out.
void warm(const std::string& tree) {
    std::vector<char> buffer(1 << 20);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(tree)) {
        if (!entry.is_regular_file() || entry.is_symlink())
            continue;
        const int fd = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        must(fd >= 0, entry.path());
        for (off_t pos = 0; (pos = lseek(fd, pos, SEEK_DATA)) >= 0;) {
            const off_t end = lseek(fd, pos, SEEK_HOLE);
            while (pos < end) {
                const ssize_t got = pread(fd, buffer.data(), buffer.size(), pos);
                must(got >= 0, entry.path());
                pos += got > 0 ? got : end - pos;
            }
        }
        close(fd);
    }
}

void compare(const std::string& title, const std::string& source, const std::vector<Peer>& peers,
             bool moves = false) {
    std::vector<std::vector<double>> seconds(peers.size());
    for (int round = 0; round <= g_rounds; ++round) {
        for (size_t i = 0; i < peers.size(); ++i) {
            const std::string target = g_dir + "/target";
            shell("rm -rf '" + target + "'");
            fs::create_directories(target);
            warm(source);
            sync();
            const double begin = now();
            peers[i].run(source, target);
            const double took = now() - begin;
            if (round > 0)  // the first one warms up
                seconds[i].push_back(took);
            if (moves)
                shell("mv '" + target + "'/tree '" + source + "'");
        }
    }
    shell("rm -rf '" + g_dir + "/target'");
    std::printf("%-10s", title.c_str());
    for (size_t i = 0; i < peers.size(); ++i)
        std::printf("  %s %.3f s", peers[i].name.c_str(), median(seconds[i]));
    for (size_t i = 1; i < peers.size(); ++i)
        std::printf("  ratio to %s %.2f", peers[i].name.c_str(),
                    median(seconds[0]) / median(seconds[i]));
    std::printf("\n");
    std::fflush(stdout);
}

const Peer kEngine{"ferrodeck", [](const std::string& s, const std::string& t) {
                       run_engine(s, t, Operation::Copy);
                   }};
const Peer kCp{"cp -a", [](const std::string& s, const std::string& t) {
                   shell("cp -a '" + s + "' '" + t + "'");
               }};
const Peer kRsync{"rsync -a", [](const std::string& s, const std::string& t) {
                      shell("rsync -a '" + s + "' '" + t + "'");
                  }};
// Without -S it would fill the holes, and the room for that is not everywhere.
const Peer kRsyncSparse{"rsync -aS", [](const std::string& s, const std::string& t) {
                            shell("rsync -aS '" + s + "' '" + t + "'");
                        }};
const Peer kCpReflink{"cp -a --reflink=always", [](const std::string& s, const std::string& t) {
                          shell("cp -a --reflink=always '" + s + "' '" + t + "'");
                      }};
const Peer kEngineMove{"ferrodeck", [](const std::string& s, const std::string& t) {
                           run_engine(s, t, Operation::Move);
                       }};
const Peer kMvAndMeasure{"mv + du", [](const std::string& s, const std::string& t) {
                             shell("mv '" + s + "' '" + t + "' && du -s '" + t + "' >/dev/null");
                         }};

bool wanted(const char* name) {
    return g_only.empty() || g_only == name;
}

void with_tree(const char* name, const std::function<void(const std::string&)>& make,
               const std::vector<Peer>& peers, bool moves = false) {
    if (!wanted(name))
        return;
    const std::string tree = g_dir + "/source/tree";
    shell("rm -rf '" + g_dir + "/source'");
    g_seed = 1;
    fs::create_directories(tree);
    make(tree);
    compare(name, tree, peers, moves);
    shell("rm -rf '" + g_dir + "/source'");
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto value = [&arg](const char* key) {
            return arg.rfind(key, 0) == 0 ? arg.substr(std::strlen(key)) : std::string();
        };
        if (!value("--dir=").empty())
            g_dir = value("--dir=");
        if (!value("--rounds=").empty())
            g_rounds = std::atoi(value("--rounds=").c_str());
        if (!value("--only=").empty())
            g_only = value("--only=");
        if (!value("--threads=").empty())
            g_threads = std::atoi(value("--threads=").c_str());
    }
    std::string name = g_dir + "/ferrodeck-bench.XXXXXX";
    must(mkdtemp(name.data()) != nullptr, name);
    g_dir = name;
    // The log belongs to what is measured, but not to the user's.
    setenv("XDG_CONFIG_HOME", name.c_str(), 1);

    const auto small = [](const std::string& root) { make_small(root, 1000, 100); };
    with_tree("small", small, {kEngine, kCp, kRsync});
    with_tree("sources", make_sources, {kEngine, kCp, kRsync});
    with_tree("large", make_large, {kEngine, kCp, kRsync});
    with_tree("sparse", make_sparse, {kEngine, kCp, kRsyncSparse});
    with_tree("move", small, {kEngineMove, kMvAndMeasure}, true);
    if (wanted("reflink") && !g_only.empty())
        with_tree("reflink", make_sources, {kEngine, kCpReflink});
    shell("rm -rf '" + name + "'");
    return 0;
}
