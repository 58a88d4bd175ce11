// The record wrappers on arbitrary UTF-16 keys (null, lone surrogates, keys
// far past their buffers) and on arbitrary records: the libc lookups are
// replaced here by ones that check the narrowed key and answer with records
// built from the input (invalid UTF-8, long fields, many aliases, members
// and addresses, odd address lengths).  No real database or network is used.
#include <grp.h>
#include <netdb.h>
#include <pwd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "nuvu16.h"

namespace {

struct Source {
  const uint8_t* p;
  size_t n;
  uint8_t byte() {
    if (!n) return 0;
    --n;
    return *p++;
  }
  // A text of up to max bytes, any bytes but 0.
  std::string text(size_t max) {
    size_t len = byte();
    len = len * 8 % (max + 1);
    std::string s;
    for (size_t i = 0; i < len && n; ++i) {
      uint8_t b = byte();
      s.push_back(b ? static_cast<char>(b) : 'a');
    }
    return s;
  }
};

Source g_src{nullptr, 0};
std::vector<std::string> g_texts;
std::vector<char*> g_lists[3];
std::vector<char> g_addrs;

char* keep(std::string s) {
  g_texts.push_back(std::move(s));
  return g_texts.back().data();
}
char** list(int which, size_t count, size_t max) {
  auto& l = g_lists[which];
  l.clear();
  for (size_t i = 0; i < count; ++i) l.push_back(keep(g_src.text(max)));
  l.push_back(nullptr);
  return l.data();
}
// A key handed to libc must be terminated within its buffer.
void check_key(const char* key, size_t limit) {
  if (key && strnlen(key, limit) >= limit) abort();
}

passwd g_pw;
group g_gr;
hostent g_host;
servent g_serv;

passwd* make_passwd() {
  if (g_src.byte() % 8 == 0) return nullptr;
  g_pw = {keep(g_src.text(1100)), keep(g_src.text(40)), 1, 2, keep(g_src.text(1100)), keep(g_src.text(4200)),
          keep(g_src.text(1100))};
  return &g_pw;
}

hostent* make_host() {
  if (g_src.byte() % 8 == 0) return nullptr;
  const int len = g_src.byte() % 21;
  const size_t naddr = g_src.byte() % 70;
  g_addrs.assign(naddr * static_cast<size_t>(len) + 1, 0);
  for (auto& c : g_addrs) c = static_cast<char>(g_src.byte());
  auto& a = g_lists[2];
  a.clear();
  for (size_t i = 0; i < naddr; ++i) a.push_back(g_addrs.data() + i * static_cast<size_t>(len));
  a.push_back(nullptr);
  g_host = {keep(g_src.text(300)), list(0, g_src.byte() % 70, 300), AF_INET, len, a.data()};
  return &g_host;
}

servent* make_serv() {
  if (g_src.byte() % 8 == 0) return nullptr;
  g_serv = {keep(g_src.text(40)), list(0, g_src.byte() % 70, 40), 80, keep(g_src.text(12))};
  return &g_serv;
}

}  // namespace

extern "C" {
passwd* getpwnam(const char* name) {
  check_key(name, 1024);
  return make_passwd();
}
passwd* getpwuid(uid_t) { return make_passwd(); }
group* getgrgid(gid_t) {
  if (g_src.byte() % 8 == 0) return nullptr;
  const size_t members = g_src.byte() % 4 == 0 ? 1000 + g_src.byte() % 40 : g_src.byte() % 20;
  g_gr = {keep(g_src.text(80)), keep(g_src.text(80)), 3, list(1, members, 80)};
  return &g_gr;
}
hostent* gethostbyname(const char* name) {
  check_key(name, 256);
  return make_host();
}
hostent* gethostbyaddr(const void*, socklen_t, int) { return make_host(); }
hostent* gethostent(void) { return make_host(); }
servent* getservbyname(const char* name, const char* proto) {
  check_key(name, 32);
  check_key(proto, 8);
  return make_serv();
}
servent* getservbyport(int, const char* proto) {
  check_key(proto, 8);
  return make_serv();
}
}

static int quiet(const char*, int len) { return len; }

// Every text of a returned record must be terminated inside its buffer.
static void walk(const NUV_UTF16* s, size_t cap) {
  if (!s) return;
  size_t i = 0;
  while (i < cap && s[i]) ++i;
  if (i >= cap) abort();
}
static void walk_list(NUV_UTF16* const* l, size_t cap, size_t max) {
  size_t i = 0;
  for (; l[i]; ++i) walk(l[i], cap);
  if (i > max) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  u16_set_trace(quiet, U16_TRACE_HIGH);
  if (size < 2) return 0;
  // The key: the first part of the input as units (null when it is empty).
  const size_t key_units = (data[0] | data[1] << 8) % 5000;
  data += 2;
  size -= 2;
  std::vector<NUV_UTF16> key;
  for (size_t i = 0; i + 1 < size && key.size() < key_units; i += 2) {
    const NUV_UTF16 u = static_cast<NUV_UTF16>(data[i] | data[i + 1] << 8);
    key.push_back(u ? u : 0xD800);
  }
  const size_t used = 2 * key.size();
  key.push_back(0);
  const NUV_UTF16* k = key.size() > 1 ? key.data() : nullptr;
  g_src = {data + used, size - used};
  g_texts.clear();
  g_texts.reserve(4096);

  if (passwdU16* p = getpwnamU16(k)) {
    walk(p->pw_name, 1024), walk(p->pw_passwd, 1024), walk(p->pw_gecos, 1024);
    walk(p->pw_dir, 4097), walk(p->pw_shell, 1024);
  }
  if (passwdU16* p = getpwuidU16(1)) walk(p->pw_dir, 4097);
  if (groupU16* g = getgrgidU16(3)) {
    walk(g->gr_name, 64);
    walk_list(g->gr_mem, 64, 1023);
  }
  if (hostentU16* h = gethostbynameU16(k)) {
    walk(h->h_name, 256);
    walk_list(h->h_aliases, 256, 63);
    if (h->h_length > 16) abort();
  }
  const char addr[16] = {};
  if (hostentU16* h = gethostbyaddrU16(addr, 4, AF_INET)) walk_list(h->h_aliases, 256, 63);
  if (hostentU16* h = gethostentU16()) walk(h->h_name, 256);
  if (serventU16* s = getservbynameU16(k, k)) {
    walk(s->s_name, 32);
    walk_list(s->s_aliases, 32, 63);
    walk(s->s_proto, 8);
  }
  if (serventU16* s = getservbyportU16(80, k)) walk(s->s_proto, 8);
  return 0;
}
