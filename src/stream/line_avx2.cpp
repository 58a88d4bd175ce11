// Compiled for the avx2 level (files named *_avx2.cpp).
#include "stream/line_kernels.h"
bool nuv::line_run_avx2(CachedBytes& in, NUV_UTF16*& out, NUV_UTF16* limit) { return line_run<Line256>(in, out, limit); }
