// Profiling start-up: names the profile output after the program.
#pragma once

extern "C" {
// Once per process: with GMON_OUT_PREFIX set, appends "_<program>" to it.
// Returns putenv's result, or 0 when nothing was done.
int Linux_initialize_gmon(void);
}

namespace nuv {
// Test hook: let the next call run again.
void reset_gmon_once_for_tests();
}
