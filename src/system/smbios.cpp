#include "system/smbios.h"

#include <algorithm>

#include "core/name_table.h"
#include "system/kernel_files.h"

namespace orl {
namespace {

constexpr u8 kMemoryDevice = 17, kEndOfTable = 127;
constexpr std::size_t kHeaderBytes = 4;  // type, length, handle

// Offsets in a memory device; later versions of the standard make it longer.
constexpr std::size_t kSize = 0x0c, kLocator = 0x10, kType = 0x12, kSpeed = 0x15, kManufacturer = 0x17,
                      kPart = 0x1a, kExtendedSize = 0x1c, kConfiguredSpeed = 0x20, kExtendedSpeed = 0x54,
                      kExtendedConfiguredSpeed = 0x58;

// One structure: its formatted area, which begins with the header, and the texts behind it.
struct Structure {
  std::string_view fields;
  std::string_view texts;

  // Little-endian; 0 where the structure is too short to hold it.
  u32 number(std::size_t at, std::size_t bytes) const {
    u32 value = 0;
    if (at + bytes > fields.size()) return 0;
    for (std::size_t i = 0; i < bytes; i++) value |= u32{static_cast<u8>(fields[at + i])} << (8 * i);
    return value;
  }

  // Texts are numbered from 1; 0 is none.
  std::string text(std::size_t at) const {
    std::string_view rest = texts;
    for (u32 number_left = number(at, 1); number_left != 0 && !rest.empty(); number_left--) {
      const std::string_view one = rest.substr(0, rest.find('\0'));
      if (number_left == 1) return printable(one);
      rest.remove_prefix(std::min(rest.size(), one.size() + 1));
    }
    return {};
  }
};

// What the firmware's numbers for kinds of memory stand for.
constexpr Named<u32> kMemoryTypes[] = {
    {0x07, "RAM"},  {0x0f, "SDRAM"}, {0x12, "DDR"},    {0x13, "DDR2"},   {0x18, "DDR3"},
    {0x1a, "DDR4"}, {0x1b, "LPDDR"}, {0x1c, "LPDDR2"}, {0x1d, "LPDDR3"}, {0x1e, "LPDDR4"},
    {0x20, "HBM"},  {0x21, "HBM2"},  {0x22, "DDR5"},   {0x23, "LPDDR5"}, {0x24, "HBM3"},
};

// 0 for an empty slot and for a size that the firmware does not know.
u64 size_bytes(const Structure& device) {
  const u32 size = device.number(kSize, 2);
  if (size == 0xffff) return 0;
  if (size == 0x7fff) return u64{device.number(kExtendedSize, 4) & 0x7fffffff} << 20;
  return size & 0x8000 ? u64{size & 0x7fff} << 10 : u64{size} << 20;
}

// As it is set up, else as the module could run.
u32 speed(const Structure& device) {
  constexpr std::size_t kPlaces[][2] = {{kConfiguredSpeed, kExtendedConfiguredSpeed},
                                        {kSpeed, kExtendedSpeed}};
  for (const auto& [at, extended] : kPlaces) {
    const u32 value = device.number(at, 2);
    if (value == 0xffff) return device.number(extended, 4);
    if (value != 0) return value;
  }
  return 0;
}

// Takes one structure off the table; false at its end and where it is damaged.
bool take(std::string_view& table, Structure& structure) {
  if (table.size() < kHeaderBytes) return false;
  const std::size_t length = static_cast<u8>(table[1]);
  if (length < kHeaderBytes || length > table.size()) return false;
  const std::size_t end = table.find(std::string_view("\0\0", 2), length);
  if (end == table.npos) return false;
  structure = {table.substr(0, length), table.substr(length, end + 1 - length)};
  table.remove_prefix(end + 2);
  return true;
}

}  // namespace

std::vector<MemoryModule> parse_memory_modules(std::string_view table) {
  std::vector<MemoryModule> modules;
  Structure structure;
  while (take(table, structure)) {
    const u32 kind = structure.number(0, 1);
    if (kind == kEndOfTable) break;
    if (kind != kMemoryDevice || size_bytes(structure) == 0) continue;
    modules.push_back({size_bytes(structure), speed(structure),
                       name_of(kMemoryTypes, structure.number(kType, 1), ""), structure.text(kLocator),
                       structure.text(kManufacturer), structure.text(kPart)});
  }
  return modules;
}

}  // namespace orl
