// Whether this build has AddressSanitizer or ThreadSanitizer, whose runtime allocates and opens
// things of its own.

#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FERRODECK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FERRODECK_SANITIZED 1
#endif
#endif
#ifndef FERRODECK_SANITIZED
#define FERRODECK_SANITIZED 0
#endif

namespace test_env {

inline constexpr bool kSanitized = FERRODECK_SANITIZED != 0;

}  // namespace test_env
