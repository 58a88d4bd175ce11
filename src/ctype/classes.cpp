// Character classes and case mapping of single units from the built-in
// Unicode 3.1 tables; no locale, no outside library.
#include "common/nuv_internal.h"
#include "ctype/ctype_tables.h"

using nuv::class_bit;

extern "C" NUV_API int32_t isupperU16(int32_t c) { return class_bit(nuv::upperTab, c); }
extern "C" NUV_API int32_t islowerU16(int32_t c) { return class_bit(nuv::lowerTab, c); }
extern "C" NUV_API int32_t isalphaU16(int32_t c) { return class_bit(nuv::alphaTab, c); }
extern "C" NUV_API int32_t isalnumU16(int32_t c) { return class_bit(nuv::alnumTab, c); }
extern "C" NUV_API int32_t isprintU16(int32_t c) { return class_bit(nuv::printTab, c); }

extern "C" NUV_API int32_t isgraphU16(int32_t c) { return class_bit(nuv::printTab, c) & (c != 0x20); }

// Printable, not alphanumeric, not the space: symbols, marks and the other
// separators all count.
extern "C" NUV_API int32_t ispunctU16(int32_t c) {
  return class_bit(nuv::printTab, c) & (class_bit(nuv::alnumTab, c) ^ 1) & (c != 0x20);
}

extern "C" NUV_API int32_t isxdigitU16(int32_t c) { return nuv::is_xdigit_unit(c); }
extern "C" NUV_API int32_t isspaceU16(int32_t c) { return nuv::is_space_unit(c); }
extern "C" NUV_API int32_t iscntrlU16(int32_t c) { return nuv::is_cntrl_unit(c); }

extern "C" NUV_API int32_t tolowerU16(int32_t c) { return nuv::to_lower_unit(c); }
extern "C" NUV_API int32_t toupperU16(int32_t c) { return nuv::to_upper_unit(c); }
