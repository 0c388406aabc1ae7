#include "log_lines.h"

#include "logger.h"

namespace test_env {

int logged(const std::string& text) {
    int count = 0;
    for (const Log::Entry& entry : Log::instance().recent())
        count += entry.text == text;
    return count;
}

int logged_with(const std::string& part) {
    int count = 0;
    for (const Log::Entry& entry : Log::instance().recent())
        count += entry.text.find(part) != std::string::npos;
    return count;
}

std::string log_text() {
    std::string all;
    for (const Log::Entry& entry : Log::instance().recent())
        all += "[" + entry.thread + "] " + entry.text + "\n";
    return all;
}

}  // namespace test_env
