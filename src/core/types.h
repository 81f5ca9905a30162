// Integer types by width. Everything that counts words, bytes, digits or terms is u64.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orl {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using s8 = std::int8_t;
using s16 = std::int16_t;
using s32 = std::int32_t;
using s64 = std::int64_t;
__extension__ typedef unsigned __int128 u128;
__extension__ typedef __int128 s128;

}  // namespace orl
