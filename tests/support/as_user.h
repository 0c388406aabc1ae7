// Runs a piece of a test as an ordinary user, whom modes bind. Root's rights hide what rights do.

#pragma once

#include <functional>
#include <string>

namespace as_user {

constexpr unsigned kUid = 65534;

// Runs body in a forked child as uid 65534, or in place when the test is not root's. True when it
// came to its end without a failed expectation; what failed has then been printed.
bool run(const std::function<void()>& body);

// Lets the ordinary user reach and own a folder of the test's tree.
void give(const std::string& path);

}  // namespace as_user
