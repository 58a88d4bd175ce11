// The classic option parser over UTF-16 arguments.  optind, opterr and
// optopt are libc's, so narrow and UTF-16 parsing can take turns.
#include <stdio.h>
#include <unistd.h>

#include "common/nuv_internal.h"
#include "convert/runtime_utf8.h"

extern "C" {
NUV_API NUV_UTF16* optargU = nullptr;
}

namespace {

// Position inside a cluster of options ("-abc"), with the argument vector
// and index it belongs to, so a reset optind or a new vector starts afresh.
const NUV_UTF16* g_next = nullptr;
const void* g_argv = nullptr;
int g_index = 0;

const NUV_UTF16* find_unit(const NUV_UTF16* s, NUV_UTF16 c) {
  for (; *s; ++s)
    if (*s == c) return s;
  return nullptr;
}

// "<program>: <what> -- <option>\n" on standard error, in UTF-8.
void complain(const NUV_UTF16* program, const char* what, NUV_UTF16 option) {
  char name[1024];
  if (program) {
    bool cut;
    U16s_To_Utf8s_Narrow(name, program, sizeof name, false, &cut);
  } else {
    name[0] = 0;
  }
  const NUV_UTF16 opt[2] = {option, 0};
  char copt[4];
  bool cut;
  U16s_To_Utf8s_Narrow(copt, opt, sizeof copt, false, &cut);
  std::fprintf(stderr, "%s: %s -- %s\n", name, what, copt);
}

}  // namespace

extern "C" {

NUV_API int getoptU16(int argc, NUV_UTF16* const argv[], const NUV_UTF16* optstring) {
  optargU = nullptr;
  if (optind <= 0) optind = 1;
  if (!argv || !optstring) return -1;
  if (g_next && (g_argv != argv || g_index != optind || !*g_next)) g_next = nullptr;
  if (!g_next) {
    if (optind >= argc || !argv[optind]) return -1;
    const NUV_UTF16* arg = argv[optind];
    if (arg[0] != u'-' || arg[1] == 0) return -1;
    if (arg[1] == u'-' && arg[2] == 0) {
      ++optind;
      return -1;
    }
    g_next = arg + 1;
    g_argv = argv;
    g_index = optind;
  }
  const NUV_UTF16 c = *g_next++;
  optopt = c;
  const NUV_UTF16* spec = c == u':' ? nullptr : find_unit(optstring, c);
  if (!spec) {
    if (opterr) complain(argv[0], "illegal option", c);
    if (!*g_next) {
      ++optind;
      g_next = nullptr;
    }
    return '?';
  }
  if (spec[1] == u':') {
    if (*g_next) {
      optargU = const_cast<NUV_UTF16*>(g_next);
      ++optind;
    } else if (optind + 1 >= argc) {
      ++optind;
      g_next = nullptr;
      if (opterr) complain(argv[0], "option requires an argument", c);
      return '?';
    } else {
      optargU = argv[optind + 1];
      optind += 2;
    }
    g_next = nullptr;
  } else if (!*g_next) {
    ++optind;
    g_next = nullptr;
  }
  return c;
}

NUV_FORWARD(getoptU, getoptU16);

}  // extern "C"
