#include "open_files.h"

#include <sys/resource.h>

namespace open_files {

namespace {

bool g_raised = false;
rlimit g_given = {};  // as the session gave it to us

}  // namespace

// A worker holds descriptors for the folders on its way and for both ends of a copy; the soft limit
// of a desktop session is far below what the hard one allows.
void raise_limit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max)
        return;
    g_given = limit;
    limit.rlim_cur = limit.rlim_max;
    g_raised = setrlimit(RLIMIT_NOFILE, &limit) == 0;  // a refusal leaves the limit that we have
}

void restore_limit() {
    if (g_raised)
        setrlimit(RLIMIT_NOFILE, &g_given);
}

}  // namespace open_files
