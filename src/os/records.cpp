// User, group, host and service records: libc's record converted field by
// field into static UTF-16 buffers of fixed size.  Any field or list that does
// not fit makes the whole lookup null (the record may then hold a part).
#include <grp.h>
#include <netdb.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>

#include "common/nuv_internal.h"
#include "os/narrow.h"

namespace {

using namespace nuv::os;
using nuv::lim::Limit;
using nuv::lim::MAX_GRMEM_LN;
using nuv::lim::MAX_GRNAME_LN;
using nuv::lim::MAX_GRPASSWD_LN;
using nuv::lim::MAX_HOSTNAME_LN;
using nuv::lim::MAX_PWDIR_LN;
using nuv::lim::MAX_PWGECOS_LN;
using nuv::lim::MAX_PWNAME_LN;
using nuv::lim::MAX_PWPASSWD_LN;
using nuv::lim::MAX_PWSHELL_LN;
using nuv::lim::MAX_SERVNAME_LN;
using nuv::lim::MAX_SERVPROTONAME_LN;

// Record counts: list cells, the last slot of each pointer list is the null.
constexpr Limit MAX_ALIASES{64, "MAX_ALIASES"};
constexpr Limit MAX_ADDRESSES{64, "MAX_ADDRESSES"};
constexpr Limit MAX_IPADDR_LN{16, "MAX_IPADDR_LN"};
constexpr Limit MAX_GRMEMBERS{1024, "MAX_GRMEMBERS"};

// ---- report sites ----

constexpr ArgSite kPwnamKey{MAX_PWNAME_LN, "c_name", "getpwnamU16", kNlsui6, 112};
constexpr ArgSite kHostKey{MAX_HOSTNAME_LN, "cname", "gethostbynameU16", kNlsui6, 409};
constexpr ArgSite kServKey{MAX_SERVNAME_LN, "cname", "getservbynameU16", kNlsui6, 618};
constexpr ArgSite kServProto{MAX_SERVPROTONAME_LN, "cproto", "getservbynameU16", kNlsui6, 625};
constexpr ArgSite kServPortProto{MAX_SERVPROTONAME_LN, "s_proto_char", "getservbyportU16", kNlsui6, 688};

// The password record's fields, one row per function.
struct PwSites {
  ResultSite name, passwd, gecos, dir, shell;
};
constexpr PwSites pw_sites(const char* fn, int line) {
  return {{MAX_PWNAME_LN, "pw_name_buf", fn, kNlsui6, line, line + 5},
          {MAX_PWPASSWD_LN, "pw_passwd_buf", fn, kNlsui6, line + 12, line + 17},
          {MAX_PWGECOS_LN, "pw_gecos_buf", fn, kNlsui6, line + 24, line + 29},
          {MAX_PWDIR_LN, "pw_dir_buf", fn, kNlsui6, line + 36, line + 41},
          {MAX_PWSHELL_LN, "pw_shell_buf", fn, kNlsui6, line + 48, line + 53}};
}
constexpr PwSites kPwnam = pw_sites("getpwnamU16", 131);
constexpr PwSites kPwuid = pw_sites("getpwuidU16", 221);

constexpr ResultSite kGrName{MAX_GRNAME_LN, "gr_name_buf", "getgrgidU16", kNlsui6, 318, 323};
constexpr ResultSite kGrPasswd{MAX_GRPASSWD_LN, "gr_passwd_buf", "getgrgidU16", kNlsui6, 330, 335};
constexpr ResultSite kGrMem{MAX_GRMEM_LN, "&gr_mem_buf[i * MAX_GRMEM_LN]", "getgrgidU16", kNlsui6, 349, 354};
constexpr int kGrMembersLine = 343;

constexpr ResultSite kHostName{MAX_HOSTNAME_LN, "h_name_buf", "convertToHostentU16", kNlsui6, 512, 517};
constexpr ResultSite kHostAlias{MAX_HOSTNAME_LN, "&h_aliases_buf[i*MAX_HOSTNAME_LN]", "convertToHostentU16",
                                kNlsui6, 531, 536};
constexpr int kHostAliasesLine = 525;
constexpr int kHostLengthLine = 545;
constexpr int kHostAddressesLine = 552;

struct ServSites {
  ResultSite name, alias, proto;
  int aliases_line;
};
constexpr ServSites serv_sites(const char* fn, int line) {
  return {{MAX_SERVNAME_LN, "s_name_buf", fn, kNlsui6, line, line + 5},
          {MAX_SERVNAME_LN, "&s_aliases_buf[i * MAX_SERVNAME_LN]", fn, kNlsui6, line + 19, line + 24},
          {MAX_SERVPROTONAME_LN, "s_proto_buf", fn, kNlsui6, line + 33, line + 38},
          line + 13};
}
constexpr ServSites kServByName = serv_sites("getservbynameU16", 634);
constexpr ServSites kServByPort = serv_sites("getservbyportU16", 697);

// ---- static records ----

struct PwRecord {
  passwdU16 rec;
  NUV_UTF16 pw_name_buf[MAX_PWNAME_LN.size];
  NUV_UTF16 pw_passwd_buf[MAX_PWPASSWD_LN.size];
  NUV_UTF16 pw_gecos_buf[MAX_PWGECOS_LN.size];
  NUV_UTF16 pw_dir_buf[MAX_PWDIR_LN.size];
  NUV_UTF16 pw_shell_buf[MAX_PWSHELL_LN.size];
};
PwRecord g_pwnam, g_pwuid;

struct GrRecord {
  groupU16 rec;
  NUV_UTF16 gr_name_buf[MAX_GRNAME_LN.size];
  NUV_UTF16 gr_passwd_buf[MAX_GRPASSWD_LN.size];
  NUV_UTF16 gr_mem_buf[MAX_GRMEMBERS.size * MAX_GRMEM_LN.size];
  NUV_UTF16* gr_mem_addr_buf[MAX_GRMEMBERS.size];
};
GrRecord g_grgid;

struct HostRecord {
  hostentU16 rec;
  NUV_UTF16 h_name_buf[MAX_HOSTNAME_LN.size];
  NUV_UTF16 h_aliases_buf[MAX_ALIASES.size * MAX_HOSTNAME_LN.size];
  NUV_UTF16* h_aliases_addr[MAX_ALIASES.size];
  char h_addr_list_buf[MAX_ADDRESSES.size * MAX_IPADDR_LN.size];
  char* h_addr_list_addr[MAX_ADDRESSES.size];
};
HostRecord g_host;

struct ServRecord {
  serventU16 rec;
  NUV_UTF16 s_name_buf[MAX_SERVNAME_LN.size];
  NUV_UTF16 s_aliases_buf[MAX_ALIASES.size * MAX_SERVNAME_LN.size];
  NUV_UTF16* s_aliases_addr[MAX_ALIASES.size];
  NUV_UTF16 s_proto_buf[MAX_SERVPROTONAME_LN.size];
};
ServRecord g_servbyname, g_servbyport;

// One text field into its buffer; libc's null stays null.  False after a report.
bool field(NUV_UTF16*& out, NUV_UTF16* buf, const char* text, const ResultSite& site) {
  if (!text) {
    out = nullptr;
    return true;
  }
  out = widen_static(buf, site, text);
  return out != nullptr;
}

void count_short(const Limit& count, const char* function, const char* buffer, int line) {
  nlsui_array_short(count.name, function, buffer, kNlsui6, line);
  errno = ENAMETOOLONG;
}

// A list of texts into consecutive cells of `cell` units; the pointer list
// holds `slots` entries including its null.  False after a report.
bool text_list(NUV_UTF16** ptrs, NUV_UTF16* cells, std::size_t cell, char* const* list, const Limit& slots,
               const char* list_buffer, int count_line, const ResultSite& site) {
  std::size_t i = 0;
  for (; list && list[i]; ++i) {
    if (i + 1 >= slots.size) {
      ptrs[i] = nullptr;
      count_short(slots, site.function, list_buffer, count_line);
      return false;
    }
    ptrs[i] = widen_static(cells + i * cell, site, list[i]);
    if (!ptrs[i]) return false;
  }
  ptrs[i] = nullptr;
  return true;
}

passwdU16* convert_passwd(PwRecord& r, const PwSites& s, const passwd* pw) {
  if (!pw) return nullptr;
  passwdU16& o = r.rec;
  if (!field(o.pw_name, r.pw_name_buf, pw->pw_name, s.name)) return nullptr;
  if (!field(o.pw_passwd, r.pw_passwd_buf, pw->pw_passwd, s.passwd)) return nullptr;
  o.pw_uid = pw->pw_uid;
  o.pw_gid = pw->pw_gid;
  if (!field(o.pw_gecos, r.pw_gecos_buf, pw->pw_gecos, s.gecos)) return nullptr;
  if (!field(o.pw_dir, r.pw_dir_buf, pw->pw_dir, s.dir)) return nullptr;
  if (!field(o.pw_shell, r.pw_shell_buf, pw->pw_shell, s.shell)) return nullptr;
  return &o;
}

hostentU16* convertToHostentU16(const hostent* h) {
  if (!h) return nullptr;
  HostRecord& r = g_host;
  hostentU16& o = r.rec;
  if (!field(o.h_name, r.h_name_buf, h->h_name, kHostName)) return nullptr;
  o.h_aliases = r.h_aliases_addr;
  if (!text_list(r.h_aliases_addr, r.h_aliases_buf, MAX_HOSTNAME_LN.size, h->h_aliases, MAX_ALIASES,
                 "h_aliases_buf", kHostAliasesLine, kHostAlias))
    return nullptr;
  o.h_addrtype = h->h_addrtype;
  o.h_length = h->h_length;
  if (h->h_length < 0 || static_cast<std::size_t>(h->h_length) > MAX_IPADDR_LN.size) {
    count_short(MAX_IPADDR_LN, "convertToHostentU16", "h_length", kHostLengthLine);
    return nullptr;
  }
  o.h_addr_list = r.h_addr_list_addr;
  std::size_t i = 0;
  for (; h->h_addr_list && h->h_addr_list[i]; ++i) {
    if (i + 1 >= MAX_ADDRESSES.size) {
      r.h_addr_list_addr[i] = nullptr;
      count_short(MAX_ADDRESSES, "convertToHostentU16", "h_addr_list_buf", kHostAddressesLine);
      return nullptr;
    }
    char* cell = r.h_addr_list_buf + i * MAX_IPADDR_LN.size;
    std::memcpy(cell, h->h_addr_list[i], static_cast<std::size_t>(h->h_length));
    r.h_addr_list_addr[i] = cell;
  }
  r.h_addr_list_addr[i] = nullptr;
  return &o;
}

serventU16* convert_servent(ServRecord& r, const ServSites& s, const servent* sv) {
  if (!sv) return nullptr;
  serventU16& o = r.rec;
  if (!field(o.s_name, r.s_name_buf, sv->s_name, s.name)) return nullptr;
  o.s_aliases = r.s_aliases_addr;
  if (!text_list(r.s_aliases_addr, r.s_aliases_buf, MAX_SERVNAME_LN.size, sv->s_aliases, MAX_ALIASES,
                 "s_aliases_buf", s.aliases_line, s.alias))
    return nullptr;
  o.s_port = sv->s_port;
  if (!field(o.s_proto, r.s_proto_buf, sv->s_proto, s.proto)) return nullptr;
  return &o;
}

}  // namespace

extern "C" {

// A null key is refused here: libc's lookups do not take one.
NUV_API passwdU16* getpwnamU16(const NUV_UTF16* name) {
  if (!name) {
    errno = EINVAL;
    return nullptr;
  }
  return convert_passwd(g_pwnam, kPwnam, getpwnam(Arg<kPwnamKey>(name)));
}

NUV_API passwdU16* getpwuidU16(uid_t uid) { return convert_passwd(g_pwuid, kPwuid, getpwuid(uid)); }

NUV_API groupU16* getgrgidU16(gid_t gid) {
  const group* g = getgrgid(gid);
  if (!g) return nullptr;
  GrRecord& r = g_grgid;
  groupU16& o = r.rec;
  if (!field(o.gr_name, r.gr_name_buf, g->gr_name, kGrName)) return nullptr;
  if (!field(o.gr_passwd, r.gr_passwd_buf, g->gr_passwd, kGrPasswd)) return nullptr;
  o.gr_gid = g->gr_gid;
  o.gr_mem = r.gr_mem_addr_buf;
  if (!text_list(r.gr_mem_addr_buf, r.gr_mem_buf, MAX_GRMEM_LN.size, g->gr_mem, MAX_GRMEMBERS, "gr_mem_buf",
                 kGrMembersLine, kGrMem))
    return nullptr;
  return &o;
}

NUV_API hostentU16* gethostbynameU16(const NUV_UTF16* name) {
  if (!name) {
    errno = EINVAL;
    return nullptr;
  }
  return convertToHostentU16(gethostbyname(Arg<kHostKey>(name)));
}

NUV_API hostentU16* gethostbyaddrU16(const void* addr, socklen_t len, int type) {
  if (!addr) {
    errno = EINVAL;
    return nullptr;
  }
  return convertToHostentU16(gethostbyaddr(addr, len, type));
}

NUV_API hostentU16* gethostentU16(void) { return convertToHostentU16(gethostent()); }

NUV_API serventU16* getservbynameU16(const NUV_UTF16* name, const NUV_UTF16* proto) {
  if (!name) {
    errno = EINVAL;
    return nullptr;
  }
  return convert_servent(g_servbyname, kServByName, getservbyname(Arg<kServKey>(name), Arg<kServProto>(proto)));
}

NUV_API serventU16* getservbyportU16(int port, const NUV_UTF16* proto) {
  return convert_servent(g_servbyport, kServByPort, getservbyport(port, Arg<kServPortProto>(proto)));
}

NUV_FORWARD(getpwnamU, getpwnamU16);
NUV_FORWARD(getpwuidU, getpwuidU16);
NUV_FORWARD(getgrgidU, getgrgidU16);
NUV_FORWARD(gethostbynameU, gethostbynameU16);
NUV_FORWARD(gethostbyaddrU, gethostbyaddrU16);
NUV_FORWARD(gethostentU, gethostentU16);
NUV_FORWARD(getservbynameU, getservbynameU16);
NUV_FORWARD(getservbyportU, getservbyportU16);

}  // extern "C"
