// A word at an address where words of the other type may lie.
//
// An array of 64-bit words is handed to a product as one of 32-bit words (word_view.h). The language lets no
// u32 lvalue read what was written as a u64, and a compiler may reorder the two; through this type, or byte by
// byte as word_loops.h and the kernels do, it may not.
#pragma once

#include "core/types.h"

namespace orl {

namespace detail {
template <class W>
struct AnyWordOf;
template <>
struct AnyWordOf<u32> {
  typedef u32 __attribute__((__may_alias__)) type;
};
template <>
struct AnyWordOf<u64> {
  typedef u64 __attribute__((__may_alias__)) type;
};
}  // namespace detail

/// W, u32 or u64, through a pointer that may point into an array of either.
template <class W>
using AnyWord = typename detail::AnyWordOf<W>::type;

}  // namespace orl
