// Every decoder and encoder family of the converters on arbitrary input and
// destination sizes, checking bounds (the sanitizers) and the invariants of
// the pointer convention; the vector paths of the checking UTF-8 <-> UTF-16
// converters against the scalar base routines, result for result.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "convert/converters.h"
#include "convert/runtime_utf8.h"
#include "convert/utf_simd.h"
#include "string/scan.h"

namespace {

int g_reports = 0;
int g_lastErr = 0;
rscpStatus counting(rscpStatus st, int32_t, int32_t, const NUV_UTF16*, int32_t err, int32_t, const NUV_UTF16*, void*,
                    void*, int32_t, void*, int32_t) {
  ++g_reports;
  g_lastErr = err;
  return st;
}

void check(bool ok) {
  if (!ok) __builtin_trap();
}

// Runs a counted converter into a buffer of `room` units and checks that the
// pointers stay inside their buffers (the repairing copy may pass by one).
template <class S, class D, class F>
rscpStatus run(F f, const std::vector<S>& in, std::size_t room, std::vector<D>& out, std::size_t slack = 0,
               bool stopsEarly = false) {
  out.assign(room + slack, D{});
  const S* s = in.data();
  D* d = out.data();
  const rscpStatus rc = f(&s, in.data() + in.size(), &d, out.data() + room);
  // One byte before the source is where a C1 control code reported twice leaves it.
  const auto sa = reinterpret_cast<std::uintptr_t>(s), sb = reinterpret_cast<std::uintptr_t>(in.data());
  check(sa + sizeof(S) >= sb && sa <= sb + in.size() * sizeof(S));
  check(d >= out.data() && d <= out.data() + room + slack);
  if (rc == 0 && g_reports == 0 && !stopsEarly) check(s == in.data() + in.size());
  out.resize(static_cast<std::size_t>(d - out.data()));
  return rc;
}

template <class T>
std::vector<T> as(const uint8_t* p, std::size_t n) {
  std::vector<T> v(n / sizeof(T));
  if (!v.empty()) std::memcpy(v.data(), p, v.size() * sizeof(T));
  return v;
}

struct Outcome {
  rscpStatus rc;
  std::size_t consumed;
  int reports, lastErr;
};

template <class S, class D, class F>
Outcome outcome(F f, const std::vector<S>& in, std::size_t room, std::vector<D>& out) {
  g_reports = 0, g_lastErr = 0;
  out.assign(room, D{});
  const S* s = in.data();
  D* d = out.data();
  const rscpStatus rc = f(&s, in.data() + in.size(), &d, out.data() + room);
  out.resize(static_cast<std::size_t>(d - out.data()));
  return {rc, static_cast<std::size_t>(s - in.data()), g_reports, g_lastErr};
}

bool same(const Outcome& a, const Outcome& b) {
  return a.rc == b.rc && a.consumed == b.consumed && a.reports == b.reports && a.lastErr == b.lastErr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  rscpSetHook_rscpe__error(counting);
  const unsigned sel = data[0];
  const uint32_t subst = data[1] % 3 == 0 ? 0x3F : data[1] % 3 == 1 ? 0x1F600 : 0x80000000u;
  data += 2, size -= 2;
  const std::vector<rscpUtf8> u8(data, data + size);
  const auto u16 = as<char16_t>(data, size);
  const auto u32 = as<uint32_t>(data, size);
  const std::size_t room = sel & 1 ? size * 2 + 8 : (size * 7) % 97;
  std::vector<char16_t> o16;
  std::vector<uint32_t> o32;
  std::vector<rscpUtf8> o8;
  uint32_t errs = 0;
  g_reports = 0;

  // Decoders from UTF-8.
  for (int mode = 0; mode < 4; ++mode)
    for (unsigned char surr = 0; surr < 2; ++surr) {
      g_reports = 0;
      run<rscpUtf8, char16_t>([&](auto s, auto se, auto d, auto de) {
        return Utf8nToUtf16nBase(s, se, d, de, sel & 2 ? &subst : nullptr, &errs, mode, surr);
      }, u8, room, o16, 0, mode == 3);  // a cut last character ends mode 3 early
    }
  using D16 = rscpStatus (*)(const rscpUtf8**, const rscpUtf8*, char16_t**, char16_t*, const uint32_t*, uint32_t*);
  for (D16 f : {Utf8nToUtf16nSubstOld, Utf8nToUtf16nNoCCSubstOld, Utf8nToUtf16nSubstAllOld, Utf8nToUtf16nSwSubst,
                Utf8nToUtf16nSwNoCCSubst, Utf8nToU2nSubst, Utf8nToU2nNoCCSubst, Utf8nToU2nSwSubst,
                Utf8nToU2nSwNoCCSubst}) {
    g_reports = 0;
    run<rscpUtf8, char16_t>([&](auto s, auto se, auto d, auto de) { return f(s, se, d, de, sel & 2 ? &subst : nullptr, &errs); },
                            u8, room, o16, 0, f == Utf8nToUtf16nSubstAllOld);
  }
  for (auto f : {Utf8nToUtf16nGDOld, Utf8nToUtf16nSwGD, Utf8nToU2nGD, Utf8nToU2nSwGD}) {
    g_reports = 0;
    run<rscpUtf8, char16_t>(f, u8, room, o16);
  }
  using D32 = rscpStatus (*)(const rscpUtf8**, const rscpUtf8*, uint32_t**, uint32_t*, const uint32_t*, uint32_t*);
  for (D32 f : {Utf8nToU4nSubst, Utf8nToU4nNoCCSubst, Utf8nToU4nSwSubst, Utf8nToU4nSwNoCCSubst}) {
    g_reports = 0;
    run<rscpUtf8, uint32_t>([&](auto s, auto se, auto d, auto de) { return f(s, se, d, de, sel & 2 ? &subst : nullptr, &errs); },
                            u8, room, o32);
  }
  for (auto f : {Utf8nToU4nGD, Utf8nToU4nSwGD}) {
    g_reports = 0;
    run<rscpUtf8, uint32_t>(f, u8, room, o32);
  }

  // Encoders to UTF-8.
  for (int mode = 0; mode < 4; ++mode) {
    g_reports = 0;
    run<char16_t, rscpUtf8>([&](auto s, auto se, auto d, auto de) { return Utf16nToUtf8nBase(s, se, d, de, subst, mode); },
                            u16, room, o8);
  }
  for (auto f : {Utf16nToUtf8nOld, Utf16nToUtf8nNoCCOld, Utf16nToUtf8nGDOld, Utf16nToUtf8nSubstAllOld, Utf16nSwToUtf8n,
                 Utf16nSwToUtf8nNoCC, Utf16nSwToUtf8nGD, U2nToUtf8n, U2nToUtf8nNoCC, U2nSwToUtf8n, U2nSwToUtf8nNoCC}) {
    g_reports = 0;
    run<char16_t, rscpUtf8>(f, u16, room, o8);
  }
  for (auto f : {U4nToUtf8n, U4nToUtf8nNoCC, U4nToUtf8nGD, U4nSwToUtf8n, U4nSwToUtf8nNoCC, U4nSwToUtf8nGD}) {
    g_reports = 0;
    run<uint32_t, rscpUtf8>(f, u32, room, o8);
  }

  // UTF-16 / UCS-4 routines and the repairing copy (one unit of slack).
  g_reports = 0;
  run<uint32_t, char16_t>(U4nToUtf16n, u32, room, o16);
  g_reports = 0;
  run<char16_t, uint32_t>(Utf16nToU4n, u16, room, o32);
  g_reports = 1;  // the repairing copy reports and goes on
  run<char16_t, char16_t>(Utf16nToUtf16n, u16, room, o16, 1);

  // Runtime decoders, counted and zero-terminated.
  {
    std::vector<char> z(data, data + size);
    z.push_back(0);
    std::vector<char16_t> out(room + 1);
    std::size_t cnt = 0;
    Utf8n_To_U16(out.data(), room, z.data(), size, sel & 4 ? &cnt : nullptr, 0xFFFD);
    Utf8n_To_U16(nullptr, 0, z.data(), static_cast<std::size_t>(-1), &cnt, 0xFFFD);
    const std::size_t n = Utf8s_To_U16(out.data(), z.data(), room);
    check(n == static_cast<std::size_t>(-1) || n <= room);
    Utf8s_To_U16(nullptr, z.data(), 0);
  }

  // Single-byte forms.
  {
    const int32_t n = static_cast<int32_t>(u16.size());
    std::vector<char> a(u16.size() + 1);
    std::vector<unsigned char> e(u16.size() + 1);
    UcnToA7nSubst(a.data(), u16.data(), n, data[0]);
    UcnToA7nCheck(a.data(), u16.data(), n);
    UcnToE8nSubst(e.data(), u16.data(), n, static_cast<char16_t>(subst));
    UcnToE8nCheck(e.data(), u16.data(), n);
    std::vector<char16_t> w(size + 1);
    E8nToUcn(w.data(), data, static_cast<int32_t>(size));
  }

  // Vector paths against the scalar base routines.
  const nuv::rscp::UtfKernels* kernels[] = {
      &nuv::rscp::kUtfSse2, nuv::cpu_has_avx2() ? &nuv::rscp::kUtfAvx2 : &nuv::rscp::kUtfSse2,
      nuv::rscp::cpu_has_avx512_vbmi2() ? &nuv::rscp::kUtfAvx512 : &nuv::rscp::kUtfSse2};
  std::vector<char16_t> ref16, got16;
  std::vector<rscpUtf8> ref8, got8;
  const Outcome ref = outcome<rscpUtf8, char16_t>(
      [](auto s, auto se, auto d, auto de) { return Utf8nToUtf16nBase(s, se, d, de, nullptr, nullptr, 1, 0); }, u8,
      room, ref16);
  const Outcome refEnc = outcome<char16_t, rscpUtf8>(
      [](auto s, auto se, auto d, auto de) { return Utf16nToUtf8nBase(s, se, d, de, 0xFFFD, 0); }, u16, room, ref8);
  for (const auto* k : kernels) {
    nuv::rscp::set_utf_kernels(k);
    const Outcome got = outcome<rscpUtf8, char16_t>(
        [](auto s, auto se, auto d, auto de) { return Utf8nToUtf16nSubst(s, se, d, de, nullptr, nullptr); }, u8, room,
        got16);
    check(same(ref, got) && ref16 == got16);
    const Outcome gotEnc = outcome<char16_t, rscpUtf8>(Utf16nToUtf8n, u16, room, got8);
    check(same(refEnc, gotEnc) && ref8 == got8);
  }
  nuv::rscp::set_utf_kernels(nuv::rscp::best_utf_kernels());
  rscpSetHook_rscpe__error(nullptr);
  return 0;
}
