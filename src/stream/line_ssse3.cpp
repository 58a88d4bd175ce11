// Compiled with SSSE3 (files named *_ssse3.cpp); reached only when the CPU has it.
#include "stream/line_kernels.h"
bool nuv::line_run_ssse3(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) { return line_run<Line128>(in, out, limit); }
