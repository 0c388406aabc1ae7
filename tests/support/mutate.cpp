#include "mutate.h"

#include <algorithm>

namespace test_env {

namespace {

// What readers trip over.
constexpr const char* kPieces[] = {"\"",
                                   "\\",
                                   ":",
                                   ",",
                                   "}",
                                   "\n",
                                   "\r",
                                   "\t",
                                   " ",
                                   "-",
                                   "true",
                                   "false",
                                   "99999999999999999999",
                                   "-1",
                                   "/",
                                   "\xff"};

}  // namespace

std::string mutated(std::string text, std::mt19937& random) {
    for (int changes = 1 + static_cast<int>(random() % 6); changes > 0 && !text.empty();
         --changes) {
        const size_t at = random() % text.size();
        const size_t length = 1 + random() % 20;
        switch (random() % 6) {
        case 0:
            text[at] = static_cast<char>(random());
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, text.substr(random() % text.size(), length));
            break;
        case 3:
            text.insert(at, kPieces[random() % std::size(kPieces)]);
            break;
        case 4: {
            const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
            const std::string line = text.substr(at, end - at);
            text.erase(at, end - at);
            text.insert(random() % (text.size() + 1), line);
            break;
        }
        default:
            if (random() % 8 == 0)
                text.resize(at);
        }
    }
    return text;
}

}  // namespace test_env
