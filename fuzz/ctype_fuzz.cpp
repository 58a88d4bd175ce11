// Case-insensitive comparison and conversion: the block paths against their
// unit-by-unit references, under ICU's mapping, the built-in table and the
// 7-bit fallback, with the strings placed at arbitrary offsets.
#include <cstdint>
#include <cstring>
#include <vector>

#include "ctype/caseless.h"
#include "ctype/icu_loader.h"
#include "nuvu16.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  static const bool bound = [] {
    nlsui_init_trace_level = 0;  // the fallback's reports are not the subject here
    (void)isalphaU('a');
    return true;
  }();
  (void)bound;
  const unsigned mode = data[0] % 3, off_a = data[1] % 9, off_b = (data[1] >> 4) % 9;
  const size_t n = data[2], split = data[3];
  data += 4;
  size -= 4;
  const size_t units = size / 2, na = split < units ? split : units, nb = units - na;

  switch (mode) {
    case 0: useICUCtype(); break;
    case 1: tolowerU = tolowerU16; toupperU = toupperU16; break;
    default: useFallBackCtype(); break;
  }

  std::vector<char16_t> a(na + off_a + 1), b(nb + off_b + 1);
  std::memcpy(a.data() + off_a, data, na * 2);
  std::memcpy(b.data() + off_b, data + na * 2, nb * 2);
  a[off_a + na] = 0;
  b[off_b + nb] = 0;
  const char16_t *pa = a.data() + off_a, *pb = b.data() + off_b;

  if (strcasecmpU16(pa, pb) != nuv::strcasecmp_ref(pa, pb)) __builtin_trap();
  if (strncasecmpU16(pa, pb, n) != nuv::strncasecmp_ref(pa, pb, n)) __builtin_trap();

  for (bool up : {false, true}) {
    std::vector<char16_t> got(a), want(a);
    (up ? strntoupperU16 : strntolowerU16)(got.data() + off_a, n);
    nuv::strncase_ref(want.data() + off_a, n, up);
    if (got != want) __builtin_trap();
    (up ? strtoupperU16 : strtolowerU16)(got.data() + off_a);
    nuv::strncase_ref(want.data() + off_a, SIZE_MAX, up);
    if (got != want) __builtin_trap();
    std::vector<char16_t> dg(na + 1), dw(na + 1);
    (up ? strcpytoupperU16 : strcpytolowerU16)(dg.data(), pa);
    nuv::strcpycase_ref(dw.data(), pa, up);
    if (dg != dw) __builtin_trap();
  }
  useICUCtype();
  return 0;
}
