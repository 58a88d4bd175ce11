// Temporary files with a fixed suffix, and fork with profiling restarted in
// the child.  Internal: C linkage, no exported symbol.
#pragma once

#include <sys/types.h>

#include "nuvu16.h"

extern "C" {

// tmpl ends in "XXXXXX" followed by suffixLength units; the six X are
// replaced by base-62 digits and the file is created 0600 with O_EXCL.
// Returns the descriptor, or -1 with errno (EINVAL for a bad template,
// libc's error after 1000 failures in a row other than EEXIST, EEXIST after
// 62^3 attempts).
int NUV_mkstemps(NUV_UTF16* tmpl, int suffixLength);
// The same on a narrow template; suffixLength in bytes.
int NUV_mkstempsR(char* tmpl, int suffixLength);

// fork; a child of a profiled program (GMON_OUT_PREFIX set) writes its
// profile under "<prefix>-<tag>".
pid_t fork_Linux(const NUV_UTF16* tag);
}

// Test hooks: the temporary-file counter.
unsigned long long nuv_mkstemps_counter_for_tests();
void nuv_set_mkstemps_counter_for_tests(unsigned long long value);
