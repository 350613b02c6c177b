#pragma once

// Which sanitizers this program is built with, for the few cases that their runtime cannot live through.

namespace Vantrel {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool HAS_ADDRESS_SANITIZER = true;
#elif defined(__has_feature)
constexpr bool HAS_ADDRESS_SANITIZER = __has_feature(address_sanitizer) != 0;
#else
constexpr bool HAS_ADDRESS_SANITIZER = false;
#endif

#if defined(__SANITIZE_THREAD__)
constexpr bool HAS_THREAD_SANITIZER = true;
#elif defined(__has_feature)
constexpr bool HAS_THREAD_SANITIZER = __has_feature(thread_sanitizer) != 0;
#else
constexpr bool HAS_THREAD_SANITIZER = false;
#endif

}  // namespace Vantrel
