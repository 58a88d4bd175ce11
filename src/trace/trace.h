// Internal side of the trace facility: the start-up trace used while ICU is
// being bound, and the reading of the trace levels from the environment.
#pragma once

#include <cstdint>

#include "nuvu16.h"

namespace nuv {

// Source names that reports pass with their line numbers.
inline constexpr const char kSrcAux[] = "i18n/nuvu16/u16_aux";
inline constexpr const char kSrcNlsui0[] = "flat/nlsui0";
inline constexpr const char kSrcNlsui1[] = "flat/nlsui1";

inline constexpr char kEndLine[] = "--- Unicode interface ------ End of message ------";

// Name of a trace level ("none", "low", "medium", "high", or "").
const char* trace_level_name(std::uint32_t level);

// Writes one start-up line to stderr when nlsui_init_trace_level >= threshold.
void startup_line(int threshold, int line, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

// NLSUI_INIT_TRACE_LEVEL, read once per process.
void read_init_trace_level();
// NLSUI_INIT_TRACE_LEVEL then NLSUI_TRACE_LEVEL (each once), then the
// "loadIcuDo() is called" line at start-up level high.  Called by the ICU loader.
void read_trace_levels_for_icu_load();

// Test hook: forget that the variables were read.
void reset_env_levels_read_for_tests();

}  // namespace nuv
