// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zaffo::test {

// g++ defines the first kind, clang answers the second.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZAFFO_TEST_SHADOW_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZAFFO_TEST_SHADOW_MEMORY 1
#endif
#endif

/// Whether this build runs under a sanitizer that keeps a shadow of all memory and holds freed
/// memory back: what the process uses then says nothing of what the program does.
#if defined(ZAFFO_TEST_SHADOW_MEMORY)
inline constexpr bool kHasShadowMemory = true;
#undef ZAFFO_TEST_SHADOW_MEMORY
#else
inline constexpr bool kHasShadowMemory = false;
#endif

}  // namespace zaffo::test
