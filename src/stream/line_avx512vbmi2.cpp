// Compiled for the avx512 level with VBMI2 (files named *_avx512vbmi2.cpp).
#include "stream/line_kernels.h"
bool nuv::line_run_avx512(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) { return line_run<Line512>(in, out, limit); }
