// Whether a sanitizer watches, under which everything takes ten times as long: long tests then take a part of their cases.
#pragma once

namespace orl::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace orl::test
