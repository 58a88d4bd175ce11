#pragma once

#include <sys/time.h>

namespace nuvtest {

struct Interpose {
  static inline bool clock_fixed = false;
  static inline timeval clock{};
  static inline bool count_opens = false;
  static inline long opens = 0;
  static inline bool always_exists = false;
};

}  // namespace nuvtest
