// Whether the tests run under ThreadSanitizer.
#pragma once

namespace zelk::test_support {

#if defined(__SANITIZE_THREAD__)
inline constexpr bool under_thread_sanitizer = true;
#elif defined(__has_feature)
inline constexpr bool under_thread_sanitizer = __has_feature(thread_sanitizer);
#else
inline constexpr bool under_thread_sanitizer = false;
#endif

}  // namespace zelk::test_support
