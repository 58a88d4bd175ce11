// Unicode 3.1 character classes and simple case mappings for the BMP, as
// generated data (ctype_tables.cpp, written by tools/gen_ctype_tables.py),
// with inline lookups for the library's own parsers and formatters.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace nuv {

// One bit per unit: bit (u & 31) of word u >> 5.
extern const std::uint32_t upperTab[2048];  // Lu
extern const std::uint32_t lowerTab[2048];  // Ll
extern const std::uint32_t alphaTab[2048];  // L*
extern const std::uint32_t alnumTab[2048];  // L*, N*
extern const std::uint32_t printTab[2048];  // assigned, not Cc Cf Cs Co

// Case deltas in 256-unit blocks; block 0 is all zero.
extern const std::uint8_t kToLower_block[256];
extern const std::int16_t kToLower_delta[][256];
extern const std::uint8_t kToUpper_block[256];
extern const std::int16_t kToUpper_delta[][256];
extern const int kToLowerBlocks;
extern const int kToUpperBlocks;

// One shift, one load, one mask.  The index is cut to the table, so a value
// outside 0..0xFFFF (which callers must not pass) reads no foreign memory;
// its answer is that of its low 16 bits.
inline std::int32_t class_bit(const std::uint32_t* tab, std::int32_t u) {
  const std::uint32_t x = static_cast<std::uint32_t>(u);
  return static_cast<std::int32_t>((tab[(x >> 5) & 2047u] >> (x & 31)) & 1u);
}

inline std::int32_t to_lower_unit(std::int32_t u) {
  if (static_cast<std::uint32_t>(u) < 0x80) return (u >= 'A' && u <= 'Z') ? u + 0x20 : u;
  if (static_cast<std::uint32_t>(u) > 0xFFFF) return u;
  return u + kToLower_delta[kToLower_block[u >> 8]][u & 0xFF];
}

inline std::int32_t to_upper_unit(std::int32_t u) {
  if (static_cast<std::uint32_t>(u) < 0x80) return (u >= 'a' && u <= 'z') ? u - 0x20 : u;
  if (static_cast<std::uint32_t>(u) > 0xFFFF) return u;
  return u + kToUpper_delta[kToUpper_block[u >> 8]][u & 0xFF];
}

// Bitmaps built at compile time from the rule lists of the white-space and
// control classes, so those tests are a range check and one load and mask too.
struct UnitRange {
  std::uint32_t first, last;
};
template <std::size_t N>
constexpr std::array<std::uint32_t, 2048> bitmap_of(const UnitRange (&ranges)[N]) {
  std::array<std::uint32_t, 2048> words{};
  for (const UnitRange& r : ranges)
    for (std::uint32_t u = r.first; u <= r.last; ++u) words[u >> 5] |= 1u << (u & 31);
  return words;
}

inline constexpr UnitRange kSpaceRanges[] = {{0x0009, 0x000D}, {0x001C, 0x0020}, {0x0085, 0x0085},
                                             {0x00A0, 0x00A0}, {0x1680, 0x1680}, {0x2000, 0x200B},
                                             {0x2028, 0x2029}, {0x202F, 0x202F}, {0x3000, 0x3000}};
inline constexpr UnitRange kCntrlRanges[] = {{0x0000, 0x001F}, {0x007F, 0x009F}, {0x070F, 0x070F},
                                             {0x180B, 0x180E}, {0x200C, 0x200F}, {0x2028, 0x202E},
                                             {0x206A, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};
inline constexpr std::array<std::uint32_t, 2048> spaceTab = bitmap_of(kSpaceRanges);
inline constexpr std::array<std::uint32_t, 2048> cntrlTab = bitmap_of(kCntrlRanges);

// Any value: outside 0..0xFFFF the answer is 0.
inline bool is_space_unit(std::int32_t u) {
  return static_cast<std::uint32_t>(u) <= 0xFFFF && class_bit(spaceTab.data(), u);
}

inline bool is_cntrl_unit(std::int32_t u) {
  return static_cast<std::uint32_t>(u) <= 0xFFFF && class_bit(cntrlTab.data(), u);
}

inline bool is_xdigit_unit(std::int32_t u) {
  if (u >= '0' && u <= '9') return true;
  const std::int32_t up = u & ~0x20;
  return up >= 'A' && up <= 'F';
}

}  // namespace nuv
