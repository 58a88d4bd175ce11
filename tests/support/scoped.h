// A global set for the length of a scope, and standard error captured
// around a call.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace nuvtest {

template <class T>
struct Scoped {
  T& ref;
  T saved;
  Scoped(T& r, T value) : ref(r), saved(r) { ref = value; }
  ~Scoped() { ref = saved; }
};

template <class F>
std::string stderr_of(F&& f) {
  testing::internal::CaptureStderr();
  f();
  return testing::internal::GetCapturedStderr();
}

}  // namespace nuvtest
