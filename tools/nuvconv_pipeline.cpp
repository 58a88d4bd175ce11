// The converter chain of nuvconv: text is read in fixed-size blocks (memory
// does not depend on the input size).  A block is cut before a character
// that it does not hold whole; the cut bytes are carried to the next block.
// Each block runs through a chain of steps: source -> UTF-16 (host order) ->
// target.  When a step stops on bad input, the steps before it are run again
// with their output limited to the good prefix, which yields the offset of
// the bad character in the source.
#include "nuvconv_pipeline.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace nuvconv {
namespace {

Mode g_mode = Mode::Strict;
uint32_t g_subst = rscpReplacementCharacter;

// ---- the error hook: remembers the last report ----
struct LastReport {
  rscpStatus status = 0;
  std::string msg;
};
LastReport g_report;

rscpStatus remember(rscpStatus status, int32_t, int32_t, const NUV_UTF16*, int32_t, int32_t, const NUV_UTF16* msg,
                    void*, void*, int32_t, void*, int32_t) {
  g_report.status = status;
  g_report.msg.clear();
  for (; msg && *msg; ++msg) g_report.msg.push_back(*msg < 0x80 ? static_cast<char>(*msg) : '?');
  return status;
}

// ---- steps: convert [in, inEnd) into [out, outEnd) ----
using Byte = unsigned char;
using StepFn = rscpStatus (*)(const Byte** in, const Byte* inEnd, Byte** out, Byte* outEnd);

struct Step {
  StepFn fn;
  int expand;           // output bytes per input byte at most
  const char* ownMsg;   // message when the step stops without a converter report
  bool utf8In = false;  // reads UTF-8: a value out of range is reported at its last byte
};

// Adapts a typed counted converter; calls it again while it stops early with
// 0 (the always-substituting decoder stops after a cut last character).
template <class S, class D, class F>
rscpStatus typed(const Byte** in, const Byte* inEnd, Byte** out, Byte* outEnd, F f) {
  const S* s = reinterpret_cast<const S*>(*in);
  const S* se = s + (inEnd - *in) / static_cast<std::ptrdiff_t>(sizeof(S));
  D* d = reinterpret_cast<D*>(*out);
  D* de = d + (outEnd - *out) / static_cast<std::ptrdiff_t>(sizeof(D));
  rscpStatus rc = 0;
  while (s < se) {
    const S* before = s;
    rc = f(&s, se, &d, de);
    if (rc != 0 || s == before) break;
  }
  *in = reinterpret_cast<const Byte*>(s);
  *out = reinterpret_cast<Byte*>(d);
  return rc;
}

#define STEP(S, D, call)                                                                   \
  [](const Byte** in, const Byte* inEnd, Byte** out, Byte* outEnd) -> rscpStatus {        \
    return typed<S, D>(in, inEnd, out, outEnd, [](const S** s, const S* se, D** d, D* de) { \
      return call;                                                                         \
    });                                                                                    \
  }

using U16 = NUV_UTF16;
using U4 = rscpU4;

// A single-unit transform written by the tool (swaps, single-byte forms):
// returns false for a unit it rejects (strict), stopping there.
template <class S, class D, bool (*F)(S, D*&, D*)>
rscpStatus per_unit(const Byte** in, const Byte* inEnd, Byte** out, Byte* outEnd) {
  return typed<S, D>(in, inEnd, out, outEnd, [](const S** s, const S* se, D** d, D* de) -> rscpStatus {
    for (; *s < se; ++*s) {
      if (*d >= de) return rscpeDestOverflow;
      if (!F(**s, *d, de)) return rscpeIllegal;
    }
    return 0;
  });
}

bool swap16(U16 u, U16*& d, U16*) { return *d++ = static_cast<U16>(__builtin_bswap16(u)), true; }
bool copy16(U16 u, U16*& d, U16*) { return *d++ = u, true; }
bool ascii_in(Byte b, U16*& d, U16*) {
  if (b < 0x80) return *d++ = b, true;
  if (g_mode == Mode::Strict) return false;
  return *d++ = static_cast<U16>(g_mode == Mode::Subst ? g_subst : rscpReplacementCharacter), true;
}
bool ebcdic_in(Byte b, U16*& d, U16*) { return *d++ = E8ToUc(b), true; }

// Lone surrogates in UTF-16 input: strict finds them with the checking
// encoder (its report is the message), subst replaces them.
rscpStatus check_utf16(const Byte** in, const Byte* inEnd, Byte** out, Byte* outEnd) {
  const U16* s = reinterpret_cast<const U16*>(*in);
  const U16* se = s + (inEnd - *in) / 2;
  U16* d = reinterpret_cast<U16*>(*out);
  const U16* limit = s + std::min<std::ptrdiff_t>(se - s, (outEnd - *out) / 2);
  const U16* stop = limit;  // end of what is copied
  rscpStatus rc = 0;
  if (g_mode == Mode::Strict) {
    const U16* p = s;
    for (;;) {  // into a scratch buffer: only where it stops matters
      rscpUtf8 scratch[4096];
      rscpUtf8* sd = scratch;
      rc = Utf16nToUtf8n(&p, limit, &sd, scratch + sizeof scratch);
      if (rc != rscpeDestOverflow) break;
    }
    stop = p;
  }
  auto is_high = [](U16 u) { return u >= 0xD800 && u <= 0xDBFF; };
  auto is_low = [](U16 u) { return u >= 0xDC00 && u <= 0xDFFF; };
  for (const U16* q = s; q < stop;) {
    U16 u = *q++;
    if (g_mode == Mode::Subst && (is_high(u) || is_low(u))) {
      if (is_high(u) && q < stop && is_low(*q)) {
        *d++ = u;
        u = *q++;
      } else {
        u = static_cast<U16>(g_subst);
      }
    }
    *d++ = u;
  }
  if (rc == 0 && limit < se) rc = rscpeDestOverflow;
  *in = reinterpret_cast<const Byte*>(stop);
  *out = reinterpret_cast<Byte*>(d);
  return rc;
}

// UCS-4 in subst mode: a value with bit 31 set becomes the substitute.
template <bool Swap>
rscpStatus ucs4_subst(const U4** s, const U4* se, rscpUtf8** d, rscpUtf8* de) {
  for (;;) {
    const rscpStatus rc = Swap ? U4nSwToUtf8n(s, se, d, de) : U4nToUtf8n(s, se, d, de);
    if (rc != rscpeIllegal) return rc;
    const U16 sub[1] = {static_cast<U16>(g_subst)};
    const U16* ss = sub;
    if (Utf16nToUtf8n(&ss, sub + 1, d, de) != 0) return rscpeDestOverflow;
    ++*s;
  }
}

rscpStatus to_ascii(const U16** s, const U16* se, char** d, char* de) {
  const int32_t n = static_cast<int32_t>(std::min(se - *s, de - *d));
  rscpStatus rc = 0;
  int32_t done = n;
  if (g_mode == Mode::Strict) {
    if (UcnToA7nCheck(*d, *s, n)) {
      done = 0;
      while ((*s)[done] < 0x80) ++done;
      rc = rscpeIllegal;
    }
  } else if (g_mode == Mode::Subst) {
    UcnToA7nSubst(*d, *s, n, static_cast<unsigned char>(g_subst < 0x80 ? g_subst : '#'));
  } else {
    UcnToA7n(*d, *s, n);
  }
  *s += done, *d += done;
  return rc ? rc : (*s < se ? rscpeDestOverflow : 0);
}

rscpStatus to_ebcdic(const U16** s, const U16* se, Byte** d, Byte* de) {
  const int32_t n = static_cast<int32_t>(std::min(se - *s, de - *d));
  rscpStatus rc = 0;
  int32_t done = n;
  if (g_mode == Mode::Strict) {
    if (UcnToE8nCheck(*d, *s, n)) {
      done = 0;
      while ((*s)[done] <= 0xFF) ++done;
      rc = rscpeIllegal;
    }
  } else if (g_mode == Mode::Subst) {
    UcnToE8nSubst(*d, *s, n, static_cast<U16>(g_subst));
  } else {
    UcnToE8n(*d, *s, n);
  }
  *s += done, *d += done;
  return rc ? rc : (*s < se ? rscpeDestOverflow : 0);
}

// UTF-8 -> UTF-16 for the current mode: strict rejects encoded surrogates
// as iconv does; subst replaces everything, the cut last character included.
rscpStatus utf8_in(const rscpUtf8** s, const rscpUtf8* se, U16** d, U16* de) {
  switch (g_mode) {
    case Mode::Strict: return Utf8nToUtf16nSubstStrict(s, se, d, de, nullptr, nullptr);
    case Mode::Subst: return Utf8nToUtf16nBase(s, se, d, de, &g_subst, nullptr, 3, 1);
    default: return Utf8nToUtf16nGD(s, se, d, de);
  }
}
rscpStatus utf8_out(const U16** s, const U16* se, rscpUtf8** d, rscpUtf8* de) {
  switch (g_mode) {
    case Mode::Strict: return Utf16nToUtf8n(s, se, d, de);
    case Mode::Subst: return Utf16nToUtf8nSubst(s, se, d, de, g_subst);
    default: return Utf16nToUtf8nGD(s, se, d, de);
  }
}
template <bool Swap>
rscpStatus ucs2_out(const rscpUtf8** s, const rscpUtf8* se, U16** d, U16* de) {
  const uint32_t* sub = g_mode == Mode::Subst ? &g_subst : nullptr;
  if (g_mode == Mode::Trust) return Swap ? Utf8nToU2nSwGD(s, se, d, de) : Utf8nToU2nGD(s, se, d, de);
  return Swap ? Utf8nToU2nSwSubst(s, se, d, de, sub, nullptr) : Utf8nToU2nSubst(s, se, d, de, sub, nullptr);
}
template <bool Swap>
rscpStatus ucs4_out(const rscpUtf8** s, const rscpUtf8* se, U4** d, U4* de) {
  const uint32_t* sub = g_mode == Mode::Subst ? &g_subst : nullptr;
  if (g_mode == Mode::Trust) return Swap ? Utf8nToU4nSwGD(s, se, d, de) : Utf8nToU4nGD(s, se, d, de);
  return Swap ? Utf8nToU4nSwSubst(s, se, d, de, sub, nullptr) : Utf8nToU4nSubst(s, se, d, de, sub, nullptr);
}
template <bool Swap>
rscpStatus ucs4_in(const U4** s, const U4* se, rscpUtf8** d, rscpUtf8* de) {
  switch (g_mode) {
    case Mode::Strict: return Swap ? U4nSwToUtf8n(s, se, d, de) : U4nToUtf8n(s, se, d, de);
    case Mode::Subst: return ucs4_subst<Swap>(s, se, d, de);
    default: return Swap ? U4nSwToUtf8nGD(s, se, d, de) : U4nToUtf8nGD(s, se, d, de);
  }
}

const Step kUtf8In{STEP(rscpUtf8, U16, utf8_in(s, se, d, de)), 2, nullptr, true};
const Step kUtf8Out{STEP(U16, rscpUtf8, utf8_out(s, se, d, de)), 2, nullptr};
const Step kSwap16{per_unit<U16, U16, swap16>, 1, nullptr};
const Step kCopy16{per_unit<U16, U16, copy16>, 1, nullptr};
const Step kCheck16{check_utf16, 1, nullptr};

struct Encoding {
  const char* name;
  int unit;                       // bytes per code unit of the encoding
  bool utf8, utf16;               // how a block is cut before a partial character
  std::vector<Step> in, out;      // to and from UTF-16 in host order
};

const char kNotAscii[] = "byte is not 7-bit ASCII";
const char kNoAscii[] = "character cannot be written in ascii";
const char kNoEbcdic[] = "character cannot be written in ebcdic";

const std::vector<Encoding>& encodings() {
  static const std::vector<Encoding> all = {
      {"utf-8", 1, true, false, {kUtf8In}, {kUtf8Out}},
      {"utf-16le", 2, false, true, {kCheck16}, {kCopy16}},
      {"utf-16be", 2, false, true, {kSwap16, kCheck16}, {kSwap16}},
      {"ucs-2le",
       2,
       false,
       false,
       {{STEP(U16, rscpUtf8, U2nToUtf8n(s, se, d, de)), 2, nullptr}, kUtf8In},
       {kUtf8Out, {STEP(rscpUtf8, U16, ucs2_out<false>(s, se, d, de)), 2, nullptr, true}}},
      {"ucs-2be",
       2,
       false,
       false,
       {{STEP(U16, rscpUtf8, U2nSwToUtf8n(s, se, d, de)), 2, nullptr}, kUtf8In},
       {kUtf8Out, {STEP(rscpUtf8, U16, ucs2_out<true>(s, se, d, de)), 2, nullptr, true}}},
      {"ucs-4le",
       4,
       false,
       false,
       {{STEP(U4, rscpUtf8, ucs4_in<false>(s, se, d, de)), 2, nullptr}, kUtf8In},
       {kUtf8Out, {STEP(rscpUtf8, U4, ucs4_out<false>(s, se, d, de)), 4, nullptr, true}}},
      {"ucs-4be",
       4,
       false,
       false,
       {{STEP(U4, rscpUtf8, ucs4_in<true>(s, se, d, de)), 2, nullptr}, kUtf8In},
       {kUtf8Out, {STEP(rscpUtf8, U4, ucs4_out<true>(s, se, d, de)), 4, nullptr, true}}},
      {"ascii",
       1,
       false,
       false,
       {{per_unit<Byte, U16, ascii_in>, 2, kNotAscii}},
       {{STEP(U16, char, to_ascii(s, se, d, de)), 1, kNoAscii}}},
      {"ebcdic",
       1,
       false,
       false,
       {{per_unit<Byte, U16, ebcdic_in>, 2, nullptr}},
       {{STEP(U16, Byte, to_ebcdic(s, se, d, de)), 1, kNoEbcdic}}},
  };
  return all;
}

// ---- the block pipeline ----
struct Failure {
  rscpStatus status;
  std::string msg;
  std::size_t offset;  // in the block
  bool exact;          // the output holds the conversion of the block's first `offset` bytes
};

struct Pipeline {
  std::vector<Step> steps;
  // bufs[0] input, bufs[i + 1] output of step i; left uninitialised, so a
  // large block costs only the pages a conversion touches.
  std::vector<std::unique_ptr<Byte[]>> bufs;
  std::vector<std::size_t> caps, lens;
  bool allocated = true;

  Pipeline(std::vector<Step> s, std::size_t inCap)
      : steps(std::move(s)), bufs(steps.size() + 1), caps(bufs.size()), lens(bufs.size()) {
    std::size_t cap = inCap;
    caps[0] = cap + 8;
    for (std::size_t i = 0; i < steps.size(); ++i) {
      cap = cap * static_cast<std::size_t>(steps[i].expand) + 16;
      caps[i + 1] = cap;
    }
    for (std::size_t i = 0; i < bufs.size() && allocated; ++i)
      allocated = (bufs[i] = std::unique_ptr<Byte[]>(new (std::nothrow) Byte[caps[i]])) != nullptr;
  }
  Byte* input() { return bufs[0].get(); }

  rscpStatus run_step(std::size_t i, std::size_t inLen, std::size_t outLimit, std::size_t* used, std::size_t* made) {
    const Byte* in = bufs[i].get();
    Byte* out = bufs[i + 1].get();
    const rscpStatus rc = steps[i].fn(&in, bufs[i].get() + inLen, &out, bufs[i + 1].get() + outLimit);
    *used = static_cast<std::size_t>(in - bufs[i].get());
    *made = static_cast<std::size_t>(out - bufs[i + 1].get());
    return rc;
  }

  // Runs the block of n input bytes; the result is in output()/outLen().
  // On bad input reports the earliest failure in source order.
  bool run(std::size_t n, Failure* fail) {
    lens[0] = n;
    bool failed = false;
    std::size_t failStep = 0, failPos = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
      g_report = {};
      std::size_t used = 0, made = 0;
      const rscpStatus rc = run_step(i, lens[i], caps[i + 1], &used, &made);
      lens[i + 1] = made;
      if (rc != 0) {  // later failures lie before earlier ones in the source
        failed = true;
        failStep = i, failPos = used;
        fail->status = g_report.status ? g_report.status : rc;
        fail->msg = g_report.status ? g_report.msg : steps[i].ownMsg ? steps[i].ownMsg : "conversion stopped";
      }
    }
    if (!failed) return true;
    // The decoders leave a value beyond the target's range at its last byte;
    // the character begins at the lead byte before its follow-up bytes.
    if (steps[failStep].utf8In && fail->msg.rfind("UTF-8 b", 0) == 0)
      while (failPos > 0 && failPos < lens[failStep] && (bufs[failStep][failPos] & 0xC0) == 0x80) --failPos;
    // Map the position back through the earlier steps: rerun each with its
    // output limited to the good prefix; it stops at the matching input.
    std::size_t pos = failPos;
    fail->exact = true;
    for (std::size_t i = failStep; i-- > 0;) {
      std::size_t used = 0, made = 0;
      run_step(i, lens[i], pos, &used, &made);
      fail->exact = fail->exact && made == pos;
      pos = used;
    }
    fail->offset = pos;
    return false;
  }
  const Byte* output() const { return bufs.back().get(); }
  std::size_t outLen() const { return lens.back(); }
};

// Bytes at the end of a block that start a character it does not hold whole.
std::size_t partial_tail(const Encoding& e, const Byte* p, std::size_t n) {
  if (e.utf8) {
    for (std::size_t back = 1; back <= 6 && back <= n; ++back) {
      const Byte b = p[n - back];
      if (b < 0x80) return 0;
      if (b >= 0xC0) {
        const std::size_t need = b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF8 ? 4 : b < 0xFC ? 5 : b < 0xFE ? 6 : 1;
        return need > back ? back : 0;
      }
    }
    return 0;
  }
  std::size_t cut = n % static_cast<std::size_t>(e.unit);
  if (e.utf16 && n - cut >= 2) {
    U16 last;
    std::memcpy(&last, p + n - cut - 2, 2);
    if (std::strcmp(e.name, "utf-16be") == 0) last = static_cast<U16>(__builtin_bswap16(last));
    if (last >= 0xD800 && last <= 0xDBFF) cut += 2;
  }
  return cut;
}


// Most bytes a block may carry to the next: a character whose UTF-8 form is
// cut, up to seven UCS-4 units when a trusted value beyond 31 bits gives a
// lead byte that announces six more, and a cut unit after them.
constexpr std::size_t kMaxCarry = 32;

const Encoding* find(const std::vector<Encoding>& all, const std::string& name) {
  for (const auto& e : all)
    if (strcasecmp(e.name, name.c_str()) == 0) return &e;
  return nullptr;
}

}  // namespace

bool known_encoding(const std::string& name) { return find(encodings(), name) != nullptr; }

const char* encoding_names() {
  return "utf-8, utf-16le, utf-16be, ucs-2le, ucs-2be, ucs-4le, ucs-4be, ascii, ebcdic";
}

Outcome convert(const Options& opt, const Reader& read, const Writer& write) {
  Outcome res;
  const auto& all = encodings();
  const Encoding* src = find(all, opt.from);
  const Encoding* dst = find(all, opt.to);
  if (!src || !dst) return res.end = End::Unknown, res;
  g_mode = opt.mode;
  g_subst = opt.subst;
  const std::size_t block = std::clamp(opt.block, kMinBlock, kMaxBlock);

  std::vector<Step> chain = src->in;
  chain.insert(chain.end(), dst->out.begin(), dst->out.end());
  Pipeline pipe(chain, block + kMaxCarry);
  if (!pipe.allocated) return res.end = End::NoMemory, res;
  Byte* buf = pipe.input();
  auto put = [&](const Byte* p, std::size_t n) {
    if (write(p, n)) return true;
    res.end = End::WriteError, res.err = errno;
    return false;
  };
  rscpSetHook_rscpe__error(remember);
  std::size_t carry = 0;  // bytes carried over to the next block
  uint64_t base = 0;      // input offset of buf[0]
  for (bool final = false, first = true; !final; first = false) {
    const long got = read(buf + carry, block);
    if (got < 0) {
      res.end = End::ReadError, res.err = errno;
      break;
    }
    if (first && !put(buf, 0)) break;  // the input is readable: now the output may be created
    final = static_cast<std::size_t>(got) < block;
    const std::size_t avail = carry + static_cast<std::size_t>(got);
    // At the end of the input the converters judge a cut character; only a
    // cut code unit is left to the tail.
    const std::size_t unit = static_cast<std::size_t>(src->unit);
    std::size_t n = avail - (final ? (src->utf8 ? 0 : avail % unit) : partial_tail(*src, buf, avail));
    Failure fail{};
    bool ok = pipe.run(n, &fail);
    // A character cut by the block's end (not the input's) is carried over
    // whole, so the next block judges it with the bytes that follow.  What
    // came before it keeps the output of this run: there it was followed by
    // more, as in the whole input.  Only where the output does not end on a
    // source character is the block cut there and run again.
    while (!ok && !final && fail.status == rscpeSrcExhausted && fail.offset < n && avail - fail.offset <= kMaxCarry) {
      n = fail.offset;
      if (fail.exact) {
        ok = true;
        break;
      }
      ok = pipe.run(n, &fail);
    }
    if (!put(pipe.output(), pipe.outLen())) break;
    if (!ok) {
      res.end = End::BadInput, res.status = fail.status, res.msg = fail.msg, res.offset = base + fail.offset;
      break;
    }
    const std::size_t tail = avail - n;
    if (final && tail) {  // a code unit cut by the end of the input
      if (g_mode == Mode::Strict) {
        res.end = End::BadInput, res.status = rscpeSrcExhausted, res.msg = "source exhausted within a char";
        res.offset = base + n;
        break;
      }
      if (g_mode == Mode::Subst) {  // the substitute, written through the target steps
        Pipeline last(dst->out, 8);
        if (!last.allocated) {
          res.end = End::NoMemory;
          break;
        }
        const U16 sub = static_cast<U16>(g_subst);
        std::memcpy(last.input(), &sub, 2);
        if (last.run(2, &fail) && !put(last.output(), last.outLen())) break;
      }
    }
    std::memmove(buf, buf + n, tail);
    carry = tail;
    base += n;
  }
  rscpSetHook_rscpe__error(nullptr);
  return res;
}

}  // namespace nuvconv
