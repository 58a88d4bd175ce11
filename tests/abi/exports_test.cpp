// The shared library exports exactly what the public header declares.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::set<std::string> declared_in_header() {
  std::ifstream in(NUV_SOURCE_DIR "/include/nuvu16.h");
  std::stringstream ss;
  ss << in.rdbuf();
  // Comments and preprocessor lines declare nothing.
  std::string text = std::regex_replace(ss.str(), std::regex(R"(/\*[\s\S]*?\*/|//[^\n]*|#[^\n]*)"), " ");
  std::set<std::string> names;
  // Each NUV_API declaration runs to its semicolon.
  for (std::size_t at = text.find("NUV_API "); at != std::string::npos; at = text.find("NUV_API ", at + 1)) {
    std::string decl = text.substr(at, text.find(';', at) - at);
    std::smatch m;
    if (std::regex_search(decl, m, std::regex(R"(\(\s*\*\s*(\w+)\s*\))"))) {
      names.insert(m[1]);  // function pointer variable
    } else if (std::regex_search(decl, m, std::regex(R"((\w+)\s*\()"))) {
      names.insert(m[1]);  // function
    } else if (std::regex_search(decl, m, std::regex(R"((\w+)\s*(\[[^\]]*\])?\s*$)"))) {
      names.insert(m[1]);  // variable
    }
  }
  return names;
}

std::set<std::string> exported_by_library() {
  std::set<std::string> names;
  std::string cmd = "nm -D --defined-only '" NUV_SHARED_LIB "'";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return names;
  char line[512];
  while (std::fgets(line, sizeof line, p)) {
    std::istringstream ls(line);
    std::string addr, type, name;
    ls >> addr >> type >> name;
    if (name.empty() || type == "A") continue;  // version nodes
    names.insert(name);
  }
  pclose(p);
  return names;
}

bool is_runtime_symbol(const std::string& n) {
  // Left in by the toolchain, not by us.
  static const std::set<std::string> known = {"_init", "_fini", "_edata", "_end", "__bss_start"};
  return known.count(n) || n.rfind("__asan", 0) == 0 || n.rfind("__ubsan", 0) == 0 || n.rfind("__sanitizer", 0) == 0 ||
         n.rfind("__lsan", 0) == 0 || n.rfind("__tsan", 0) == 0 || n.rfind("__odr_asan", 0) == 0 || n.rfind("_ZN6__asan", 0) == 0;
}

TEST(Exports, ExactlyTheDocumentedSet) {
  std::set<std::string> declared = declared_in_header(), exported = exported_by_library();
  ASSERT_GT(declared.size(), 90u);
  ASSERT_FALSE(exported.empty()) << "could not read " NUV_SHARED_LIB;
  for (const auto& n : declared) EXPECT_TRUE(exported.count(n)) << "declared but not exported: " << n;
  for (const auto& n : exported)
    if (!is_runtime_symbol(n)) EXPECT_TRUE(declared.count(n)) << "exported but not declared: " << n;
}

TEST(Exports, SonameCarriesTheMajorVersion) {
  std::string cmd = "objdump -p '" NUV_SHARED_LIB "' | grep SONAME";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  char line[256] = {};
  ASSERT_NE(std::fgets(line, sizeof line, p), nullptr);
  pclose(p);
  EXPECT_NE(std::string(line).find("libnuvucum.so.1"), std::string::npos);
}

}  // namespace

namespace {

// Run time needs glibc and nothing else (sanitizer runtimes aside).
TEST(Exports, NeedsOnlyTheCLibrary) {
  std::string cmd = "readelf -d '" NUV_SHARED_LIB "'";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  char line[512];
  int needed = 0;
  static const std::regex allowed(R"(\[(libc|libm|libdl|libpthread|ld-linux-x86-64|libasan|libubsan|libtsan)\.so[.0-9]*\])");
  while (std::fgets(line, sizeof line, p)) {
    std::string l(line);
    if (l.find("(NEEDED)") == std::string::npos) continue;
    ++needed;
    EXPECT_TRUE(std::regex_search(l, allowed)) << l;
  }
  pclose(p);
  EXPECT_GT(needed, 0);
}

}  // namespace

namespace {

std::vector<std::string> command_lines(const std::string& cmd) {
  std::vector<std::string> lines;
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return lines;
  char line[1024];
  while (std::fgets(line, sizeof line, p)) lines.emplace_back(line);
  pclose(p);
  return lines;
}

// Calls between the library's own exported functions (scanf reading through
// fgetcU16, printf writing through the stream writer) bind inside the
// library: none may go through a PLT slot or a GOT entry that an
// interposing definition could take over.
TEST(Exports, OwnFunctionsBindDirectly) {
  std::set<std::string> functions;
  for (const auto& l : command_lines("nm -D --defined-only '" NUV_SHARED_LIB "'")) {
    std::istringstream ls(l);
    std::string addr, type, name;
    ls >> addr >> type >> name;
    if (type == "T" || type == "W" || type == "i") functions.insert(name);
  }
  ASSERT_TRUE(functions.count("fgetcU16"));
  int relocations = 0;
  for (const auto& l : command_lines("readelf -rW '" NUV_SHARED_LIB "'")) {
    if (l.find("R_X86_64_JUMP_SLOT") == std::string::npos && l.find("R_X86_64_GLOB_DAT") == std::string::npos)
      continue;
    ++relocations;
    std::istringstream ls(l);
    std::string offset, info, type, value, name;
    ls >> offset >> info >> type >> value >> name;
    EXPECT_FALSE(functions.count(name)) << "bound through the dynamic linker: " << name;
  }
  EXPECT_GT(relocations, 0);  // the C library's functions still come that way
}

}  // namespace
