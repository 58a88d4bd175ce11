// Runs the class/case entries in a fresh process, one step per argument, and
// prints each answer on stdout; the start-up trace goes to stderr.  Built
// twice: against the machine's ICU, and with the loader compiled for an ICU
// version that is not installed.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ctype/icu_loader.h"
#include "nuvu16.h"

namespace {

NUV_CTYPE_FUNC entry(const std::string& name) {
  static NUV_CTYPE_FUNC graph = isgraphU, punct = ispunctU, xdigit = isxdigitU;  // plain functions
  const std::pair<const char*, NUV_CTYPE_FUNC*> entries[] = {
      {"isalnum", &isalnumU}, {"isalpha", &isalphaU}, {"iscntrl", &iscntrlU}, {"islower", &islowerU},
      {"isprint", &isprintU}, {"isspace", &isspaceU}, {"isupper", &isupperU}, {"tolower", &tolowerU},
      {"toupper", &toupperU}, {"isgraph", &graph}, {"ispunct", &punct}, {"isxdigit", &xdigit}};
  for (const auto& [n, f] : entries)
    if (name == n) return *f;
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string step = argv[i];
    const auto colon = step.find(':');
    const std::string op = step.substr(0, colon), arg = colon == std::string::npos ? "" : step.substr(colon + 1);
    if (op == "7bit") {
      nlsui_set7bitUnicode();
    } else if (op == "fallback") {
      std::printf("useFallBackCtype=%d\n", useFallBackCtype());
    } else if (op == "icu") {
      std::printf("useICUCtype=%d\n", useICUCtype());
    } else if (op == "search") {
      nlsui_addIcuSearchPath(arg.c_str());
    } else if (op == "load") {
      std::printf("loadIcu=%d\n", loadIcu(std::atoi(arg.c_str())));
    } else if (op == "race") {
      // Eight threads make their first call at once; the load is guarded by
      // flags only, so several may run it.  Every answer must still be right.
      const NUV_CTYPE_FUNC* entries[] = {&isalnumU, &isalphaU, &iscntrlU, &islowerU,
                                         &isprintU, &isspaceU, &isupperU, &toupperU};
      const int32_t args[] = {'7', 0xE9, 0x7F, 'q', 'x', 0x3000, 'Q', 0xE9};
      int32_t got[8] = {};
      std::latch go(8);
      std::vector<std::thread> threads;
      for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
          go.arrive_and_wait();
          // Read as the library writes it, so the test itself has no race.
          NUV_CTYPE_FUNC f = std::atomic_ref<NUV_CTYPE_FUNC>(*const_cast<NUV_CTYPE_FUNC*>(entries[t]))
                                 .load(std::memory_order_relaxed);
          got[t] = f(args[t]);
        });
      for (auto& th : threads) th.join();
      for (int t = 0; t < 8; ++t) std::printf("%x ", static_cast<unsigned>(got[t]));
      std::printf("\n");
    } else if (op == "state") {
      std::printf("uc=%d i18n=%d called=%d\n", libicuucHandle != nullptr, libicui18nHandle != nullptr,
                  libicuucInitCalled);
    } else if (NUV_CTYPE_FUNC f = entry(op)) {
      const long c = std::strtol(arg.c_str(), nullptr, 16);
      std::printf("%s(%lx)=%x\n", op.c_str(), c, static_cast<unsigned>(f(static_cast<int32_t>(c))));
    } else {
      std::fprintf(stderr, "unknown step %s\n", step.c_str());
      return 2;
    }
    std::fflush(stdout);
  }
  return 0;
}
