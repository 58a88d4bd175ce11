// strtodU16 and the integer parsers against glibc on ASCII texts, with the
// known differences allowed; any text at all must parse without a fault.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

// Texts where glibc reads differently on purpose: words and hexadecimal forms
// (ours are narrower), and the separators 0x1C-0x1F (white space here).
bool comparable(const std::string& s) {
  for (unsigned char c : s)
    if (c >= 0x80 || (c >= 0x1C && c <= 0x1F) || c == 'x' || c == 'X' || c == 'i' || c == 'I' || c == 'n' ||
        c == 'N' || c == 'p' || c == 'P')
      return false;
  return true;
}

size_t significant_digits(const std::string& s) {
  size_t n = 0;
  bool started = false;
  for (char c : s) {
    if (c == 'e' || c == 'E') break;
    if (c >= '1' && c <= '9') started = true;
    if (started && c >= '0' && c <= '9') ++n;
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  u16_trace_level = 0;
  const int base = data[0] % 38;
  std::string narrow(reinterpret_cast<const char*>(data + 1), size - 1);
  narrow = narrow.substr(0, std::strlen(narrow.c_str()));
  // Units: the bytes widened, and the raw bytes paired up as UTF-16.
  std::vector<NUV_UTF16> wide(narrow.begin(), narrow.end());
  wide.push_back(0);
  std::vector<NUV_UTF16> raw((size - 1) / 2 + 1, 0);
  std::memcpy(raw.data(), data + 1, (size - 1) / 2 * 2);
  NUV_UTF16* end;
  strtodU16(raw.data(), &end);
  if (end < raw.data() || end > raw.data() + raw.size()) abort();
  strtollU16(raw.data(), &end, base);
  strtoullU16(raw.data(), &end, base);

  if (!comparable(narrow)) return 0;
  errno = 0;
  double a = strtodU16(wide.data(), &end);
  const int ea = errno;
  const long pa = end - wide.data();
  char* nend;
  errno = 0;
  double b = std::strtod(narrow.c_str(), &nend);
  const int eb = errno;
  if (significant_digits(narrow) <= 24) {
    // The one value difference: a negative number underflowing in a
    // five-digit exponent comes back as +0.
    const bool zero_sign = a == 0.0 && b == 0.0 && ea == ERANGE;
    if ((std::memcmp(&a, &b, sizeof a) != 0 && !zero_sign) || ea != eb || pa != nend - narrow.c_str()) abort();
  }
  if (base == 1 || base > 36) return 0;
  errno = 0;
  long long i1 = strtollU16(wide.data(), &end, base);
  int e1 = errno;
  long p1 = end - wide.data();
  errno = 0;
  long long i2 = std::strtoll(narrow.c_str(), &nend, base);
  if (i1 != i2 || e1 != errno || p1 != nend - narrow.c_str()) abort();
  errno = 0;
  unsigned long long u1 = strtoullU16(wide.data(), &end, base);
  e1 = errno;
  p1 = end - wide.data();
  errno = 0;
  unsigned long long u2 = std::strtoull(narrow.c_str(), &nend, base);
  if (u1 != u2 || e1 != errno || p1 != nend - narrow.c_str()) abort();
  return 0;
}
