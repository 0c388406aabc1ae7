// The rules of the file layer that need no system call.

#include "fs_ops.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace fsops {

bool is_transient(int code) {
    switch (code) {
    case EINTR:
    case EIO:
    case EAGAIN:
    case EBUSY:
    case ETXTBSY:
    case ENETDOWN:
    case ENETUNREACH:
    case ECONNABORTED:
    case ECONNRESET:
    case ETIMEDOUT:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ESTALE:
    case EREMOTEIO:
        return true;
    default:
        return false;
    }
}

bool is_valid_name(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.size() < 256 &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

int64_t add_sizes(int64_t a, int64_t b) {
    int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<int64_t>::max() : sum;
}

std::string make_dirs(const std::string& path, uint32_t mode) {
    if (path.empty() || path[0] != '/')
        return "invalid path: " + path;
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (path[slash - 1] == '/')
            continue;  // nothing stands between two slashes
        if (std::string error = make_dir(path.substr(0, slash), mode); !error.empty())
            return error;
    }
    return path.back() == '/' ? std::string() : make_dir(path, mode);
}

const char* device_class_name(DeviceClass cls) {
    switch (cls) {
    case DeviceClass::Unknown:
        return "unknown";
    case DeviceClass::Rotational:
        return "rotational disk";
    case DeviceClass::Ssd:
        return "SSD";
    case DeviceClass::Nvme:
        return "NVMe";
    case DeviceClass::Network:
        return "network";
    case DeviceClass::Memory:
        return "memory";
    }
    return "unknown";
}

namespace {

// From slowest to fastest: a transfer runs at the pace of its slower end.
int rank_of(DeviceClass cls) {
    switch (cls) {
    case DeviceClass::Rotational:
        return 0;
    case DeviceClass::Unknown:
        return 1;
    case DeviceClass::Ssd:
        return 2;
    case DeviceClass::Network:
        return 3;
    case DeviceClass::Nvme:
        return 4;
    case DeviceClass::Memory:
        return 5;
    }
    return 1;
}

}  // namespace

int threads_for(DeviceClass source, DeviceClass target, int cores) {
    switch (rank_of(target) < rank_of(source) ? target : source) {
    case DeviceClass::Rotational:
        return 1;  // parallel seeks are what slows it down
    case DeviceClass::Nvme:
        return std::clamp(cores, 4, 16);
    case DeviceClass::Network:
        return 8;  // waits on the other end, not on our cores
    case DeviceClass::Memory:
        return std::clamp(cores, 2, 16);
    case DeviceClass::Ssd:
    case DeviceClass::Unknown:
        break;
    }
    return std::clamp(cores, 2, 4);
}

int recommended_threads(const std::string& source, const std::string& target, int requested) {
    if (requested > 0)
        return std::min(requested, 32);
    return threads_for(classify_device(source), classify_device(target), cpu_cores());
}

}  // namespace fsops
