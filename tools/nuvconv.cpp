// nuvconv: converts a file between UTF-8, UTF-16, UCS-2, UCS-4, 7-bit ASCII
// and the EBCDIC page with the library's converters, in the manner of iconv.
// Options and files here; the conversion itself is nuvconv::convert().
#include <getopt.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "nuvconv_pipeline.h"

namespace {

const char kHelp[] =
    "Usage: nuvconv -f FROM -t TO [--strict | --subst[=U+XXXX] | --trust] [INPUT [OUTPUT]]\n"
    "\n"
    "Converts INPUT (default: standard input) from the encoding FROM to the encoding\n"
    "TO and writes it to OUTPUT (default: standard output).  OUTPUT is created only\n"
    "once INPUT has been read from; it may not be INPUT itself.\n"
    "\n"
    "Encodings: utf-8, utf-16le, utf-16be, ucs-2le, ucs-2be, ucs-4le, ucs-4be,\n"
    "           ascii, ebcdic (the IBM500 page).  No byte-order mark is read or written.\n"
    "\n"
    "Modes:\n"
    "  --strict          (default) stop at the first character that is invalid in\n"
    "                    FROM or cannot be written in TO.  Everything before it is\n"
    "                    written; the report names its byte offset in INPUT, the\n"
    "                    converter's message and status.\n"
    "  --subst[=U+XXXX]  replace each bad or unwritable character by U+XXXX (one to\n"
    "                    six hex digits: a BMP character other than a surrogate,\n"
    "                    default U+FFFD; ascii and ebcdic targets write '#' when it\n"
    "                    does not fit there) and go on.\n"
    "  --trust           skip the checks that cost time on input known to be good\n"
    "                    (follow-up bytes, overlong forms, ranges, lone surrogates).\n"
    "                    A code unit cut by the end of INPUT is dropped.  What the\n"
    "                    trusting converters still reject (a byte that cannot start\n"
    "                    a UTF-8 character, INPUT ending inside a character or a\n"
    "                    surrogate pair) stops the conversion as in --strict.\n"
    "\n"
    "Other options:\n"
    "  --buffer-size=N   bytes read per block (default 65536, at least 8).\n"
    "  -h, --help        show this text.\n"
    "\n"
    "Exit status: 0 converted, 1 stopped on bad input (--strict or --trust; never\n"
    "with --subst), 2 usage or I/O error.\n";

int usage_error(const std::string& what) {
  std::fprintf(stderr, "nuvconv: %s\nTry 'nuvconv --help'.\n", what.c_str());
  return 2;
}

int io_error(const char* name, int err) {
  std::fprintf(stderr, "nuvconv: %s: %s\n", name, std::strerror(err));
  return 2;
}

bool is_hex(char c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'); }

// U+XXXX or XXXX: one to six hex digits and nothing else (no sign, blank or 0x).
bool parse_subst(const char* arg, uint32_t* out) {
  if ((arg[0] == 'U' || arg[0] == 'u') && arg[1] == '+') arg += 2;
  const std::size_t n = std::strlen(arg);
  if (n == 0 || n > 6) return false;
  uint32_t v = 0;
  for (const char* p = arg; *p; ++p) {
    if (!is_hex(*p)) return false;
    v = v * 16 + static_cast<uint32_t>(*p <= '9' ? *p - '0' : (*p | 0x20) - 'a' + 10);
  }
  if (v > 0xFFFF || (v >= 0xD800 && v <= 0xDFFF)) return false;
  *out = v;
  return true;
}

bool parse_size(const char* arg, std::size_t* out) {
  if (!*arg || std::strlen(arg) > 10) return false;
  uint64_t v = 0;
  for (const char* p = arg; *p; ++p) {
    if (*p < '0' || *p > '9') return false;
    v = v * 10 + static_cast<uint64_t>(*p - '0');
  }
  if (v < nuvconv::kMinBlock || v > nuvconv::kMaxBlock) return false;
  *out = static_cast<std::size_t>(v);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  nuvconv::Options opt;
  bool haveFrom = false, haveTo = false;
  static const option kLong[] = {{"help", no_argument, nullptr, 'h'},   {"strict", no_argument, nullptr, 'S'},
                                 {"subst", optional_argument, nullptr, 'U'}, {"trust", no_argument, nullptr, 'T'},
                                 {"buffer-size", required_argument, nullptr, 'B'}, {nullptr, 0, nullptr, 0}};
  opterr = 0;  // one message per mistake: ours
  for (int c; (c = getopt_long(argc, argv, ":f:t:h", kLong, nullptr)) != -1;) {
    switch (c) {
      case 'f': opt.from = optarg, haveFrom = true; break;
      case 't': opt.to = optarg, haveTo = true; break;
      case 'h': std::fputs(kHelp, stdout); return 0;
      case 'S': opt.mode = nuvconv::Mode::Strict; break;
      case 'T': opt.mode = nuvconv::Mode::Trust; break;
      case 'U':
        opt.mode = nuvconv::Mode::Subst;
        if (optarg && !parse_subst(optarg, &opt.subst))
          return usage_error("--subst takes a BMP character other than a surrogate, as U+XXXX");
        break;
      case 'B':
        if (!parse_size(optarg, &opt.block)) return usage_error("--buffer-size takes a number from 8 to 2^30");
        break;
      case ':': return usage_error(std::string("option '") + argv[optind - 1] + "' needs an argument");
      default:
        return usage_error(optopt ? std::string("unknown option '-") + static_cast<char>(optopt) + "'"
                                  : std::string("unknown option '") + argv[optind - 1] + "'");
    }
  }
  if (!haveFrom || !haveTo) return usage_error("both -f FROM and -t TO are needed");
  if (argc - optind > 2) return usage_error("too many arguments");
  for (const std::string* name : {&opt.from, &opt.to})
    if (!nuvconv::known_encoding(*name))
      return usage_error("unknown encoding '" + *name + "' (known: " + nuvconv::encoding_names() + ")");

  const char* inName = optind < argc ? argv[optind] : "-";
  const char* outName = optind + 1 < argc ? argv[optind + 1] : "-";
  const bool inStd = std::strcmp(inName, "-") == 0, outStd = std::strcmp(outName, "-") == 0;
  FILE* in = inStd ? stdin : std::fopen(inName, "rb");
  if (!in) return io_error(inName, errno);
  struct stat si{}, so{};
  if (!outStd && fstat(fileno(in), &si) == 0 && S_ISREG(si.st_mode) && stat(outName, &so) == 0 &&
      si.st_dev == so.st_dev && si.st_ino == so.st_ino)
    return usage_error(std::string(outName) + ": is the input as well; nothing was written");

  FILE* out = outStd ? stdout : nullptr;
  const nuvconv::Reader read = [in](unsigned char* p, std::size_t cap) -> long {
    const std::size_t got = std::fread(p, 1, cap, in);
    return std::ferror(in) ? -1 : static_cast<long>(got);
  };
  const nuvconv::Writer write = [&out, outName](const unsigned char* p, std::size_t n) {
    if (!out && !(out = std::fopen(outName, "wb"))) return false;
    return std::fwrite(p, 1, n, out) == n;
  };
  const nuvconv::Outcome r = nuvconv::convert(opt, read, write);
  int status = 0;
  switch (r.end) {
    case nuvconv::End::Done: break;
    case nuvconv::End::BadInput:
      std::fprintf(stderr, "nuvconv: %s: byte offset %llu: %s (status 0x%X)\n", inName,
                   static_cast<unsigned long long>(r.offset), r.msg.c_str(), static_cast<unsigned>(r.status));
      status = 1;
      break;
    case nuvconv::End::ReadError: return io_error(inName, r.err);
    case nuvconv::End::WriteError: return io_error(outName, r.err);
    case nuvconv::End::Unknown: return usage_error("unknown encoding");
    case nuvconv::End::NoMemory:
      std::fprintf(stderr, "nuvconv: not enough memory for blocks of %zu bytes\n", opt.block);
      return 2;
  }
  if (out && std::fflush(out) != 0) return io_error(outName, errno);
  if (out && out != stdout && std::fclose(out) != 0) return io_error(outName, errno);
  if (in != stdin) std::fclose(in);
  return status;
}
