// Unicode 3.1 character classes and simple case mappings for the BMP, as
// generated data (ctype_tables.cpp, written by tools/gen_ctype_tables.py),
// with inline lookups for the library's own parsers and formatters.
#pragma once

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

// One shift, one load, one mask; u must lie in 0..0xFFFF.
inline std::int32_t class_bit(const std::uint32_t* tab, std::int32_t u) {
  return static_cast<std::int32_t>((tab[static_cast<std::uint32_t>(u) >> 5] >> (u & 31)) & 1u);
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

inline bool is_space_unit(std::int32_t u) {
  if (u <= 0x20) return u >= 0x1C ? true : (u >= 0x09 && u <= 0x0D);
  if (u < 0x85) return false;
  switch (u) {
    case 0x0085: case 0x00A0: case 0x1680: case 0x2028: case 0x2029: case 0x202F: case 0x3000:
      return true;
    default:
      return u >= 0x2000 && u <= 0x200B;
  }
}

inline bool is_cntrl_unit(std::int32_t u) {
  if (u < 0) return false;
  if (u <= 0x1F) return true;
  if (u < 0x7F) return false;
  if (u <= 0x9F) return true;
  return u == 0x070F || (u >= 0x180B && u <= 0x180E) || (u >= 0x200C && u <= 0x200F) ||
         (u >= 0x2028 && u <= 0x202E) || (u >= 0x206A && u <= 0x206F) || u == 0xFEFF ||
         (u >= 0xFFF9 && u <= 0xFFFB);
}

inline bool is_xdigit_unit(std::int32_t u) {
  if (u >= '0' && u <= '9') return true;
  const std::int32_t up = u & ~0x20;
  return up >= 'A' && up <= 'F';
}

}  // namespace nuv
