// UTF-16 units written as UTF-8 straight into the FILE buffer.  No state
// survives a call and there is no conversion buffer: units are encoded into
// the stream's own put area, and the flush entry is called only when it is
// full, exactly as a run of putc_unlocked calls would.
#include "stream/output.h"

#include <emmintrin.h>

#include <cstring>

#include "common/nuv_internal.h"
#include "convert/utf_simd.h"
#include "stream/stream_lock.h"
#include "string/scan.h"

namespace {

// One byte through the unlocked put path; -1 when the flush failed.
inline int put_byte(FILE* f, unsigned char b) {
  if (f->_IO_write_ptr < f->_IO_write_end) {
    *f->_IO_write_ptr++ = static_cast<char>(b);
    return 0;
  }
  return __overflow(f, b) == EOF ? -1 : 0;
}

inline int encode_unit(unsigned u, unsigned char* b) {
  if (u < 0x80) {
    b[0] = static_cast<unsigned char>(u);
    return 1;
  }
  if (u < 0x800) {
    b[0] = static_cast<unsigned char>(0xC0 | (u >> 6));
    b[1] = static_cast<unsigned char>(0x80 | (u & 0x3F));
    return 2;
  }
  b[0] = static_cast<unsigned char>(0xE0 | (u >> 12));
  b[1] = static_cast<unsigned char>(0x80 | ((u >> 6) & 0x3F));
  b[2] = static_cast<unsigned char>(0x80 | (u & 0x3F));
  return 3;
}

inline std::size_t room_of(const FILE* f) {
  return f->_IO_write_end > f->_IO_write_ptr ? static_cast<std::size_t>(f->_IO_write_end - f->_IO_write_ptr) : 0;
}

// Scalar steps of the kernel: encodes up to n units, same stop rules.
inline std::size_t encode_scalar(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap, std::size_t* o,
                                 bool* hit_surrogate) {
  std::size_t i = 0;
  for (; i < n; ++i) {
    const unsigned u = nuv::unit_at(src + i);
    if (u < 0x80) {
      if (*o >= cap) break;
      dst[(*o)++] = static_cast<char>(u);
      continue;
    }
    if (nuv::is_surrogate_unit(u)) {
      *hit_surrogate = true;
      break;
    }
    const std::size_t need = u < 0x800 ? 2 : 3;
    if (cap - *o < need) break;
    encode_unit(u, reinterpret_cast<unsigned char*>(dst + *o));
    *o += need;
  }
  return i;
}

}  // namespace

namespace nuv {

std::size_t encode_units_fit_ref(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                 std::size_t* bytes, bool* hit_surrogate) {
  std::size_t o = 0;
  *hit_surrogate = false;
  const std::size_t i = encode_scalar(src, n, dst, cap, &o, hit_surrogate);
  *bytes = o;
  return i;
}

// ASCII runs go sixteen units at a time (one mask test, one pack, one store);
// other blocks go unit by unit with a four-byte store per unit while there
// are at least four bytes of room, and the exact scalar steps after that.
std::size_t encode_units_fit_sse2(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap,
                                  std::size_t* bytes, bool* hit_surrogate) {
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
  std::size_t i = 0, o = 0;
  *hit_surrogate = false;
  while (i < n && cap - o >= 4) {
    if (n - i >= 16 && cap - o >= 16) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8));
      const __m128i any = _mm_and_si128(_mm_or_si128(a, b), high);
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(any, _mm_setzero_si128())) == 0xFFFF) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + o), _mm_packus_epi16(a, b));
        i += 16;
        o += 16;
        continue;
      }
    }
    const std::size_t end = n - i < 16 ? n : i + 16;
    for (; i < end && cap - o >= 4; ++i) {
      const unsigned u = unit_at(src + i);
      if (is_surrogate_unit(u)) {
        *hit_surrogate = true;
        *bytes = o;
        return i;
      }
      unsigned len;
      const std::uint32_t w = packed_utf8(u, &len);
      std::memcpy(dst + o, &w, 4);
      o += len;
    }
  }
  if (i < n) i += encode_scalar(src + i, n - i, dst, cap, &o, hit_surrogate);
  *bytes = o;
  return i;
}

// Chosen when the library is loaded; SSE2 until then.
const bool g_encode_avx512 = cpu_has_avx512_vbmi2();
const EncodeFit g_encode_fit = encode_fit_for(cpu().level);
const EncodeText g_encode_text = encode_text_for(cpu().level);

EncodeText encode_text_for(int level) {
  if (level >= kCpuAvx512 && cpu_has_avx512_vbmi2()) return encode_text_fit_avx512;
  return level >= kCpuAvx2 && cpu_has_avx2() ? encode_text_fit_avx2 : nullptr;
}

bool encode_uses_avx512() { return g_encode_avx512; }

EncodeFit encode_fit_for(int level) {
  if (level >= kCpuAvx512 && cpu_has_avx512_vbmi2()) return encode_units_fit_avx512;
  if (level >= kCpuAvx2 && cpu_has_avx2()) return encode_units_fit_avx2;
  return level >= kCpuSse2 ? encode_units_fit_sse2 : encode_units_fit_ref;
}

std::size_t encode_units_fit(const NUV_UTF16* src, std::size_t n, char* dst, std::size_t cap, std::size_t* bytes,
                             bool* hit_surrogate) {
  return g_encode_fit(src, n, dst, cap, bytes, hit_surrogate);
}

std::size_t fwrite_units_ref(const NUV_UTF16* units, std::size_t size, std::size_t count, FILE* stream,
                             std::uint64_t* bytes_written, std::int32_t error_result) {
  const std::size_t total = size * count;
  std::uint64_t bytes = 0;
  std::size_t done = 0;
  bool hashes = units == nullptr;
  for (; done < total; ++done) {
    unsigned char b[3];
    int nb;
    if (!hashes && is_surrogate_unit(unit_at(units + done))) hashes = true;
    if (hashes) {
      b[0] = '#';
      nb = 1;
    } else {
      nb = encode_unit(unit_at(units + done), b);
    }
    for (int j = 0; j < nb; ++j) {
      if (put_byte(stream, b[j]) < 0) {
        if (error_result) return static_cast<std::size_t>(-1);
        bytes += static_cast<unsigned>(j);
        if (bytes_written) *bytes_written = bytes;
        return done / size;
      }
    }
    bytes += static_cast<unsigned>(nb);
  }
  if (bytes_written) *bytes_written = bytes;
  return total ? done / size : 0;
}

}  // namespace nuv

extern "C" {

NUV_API size_t fwrite_unlockedU16(const NUV_UTF16* units, size_t size, size_t count, FILE* stream,
                                  uint64_t* bytes_written, int32_t error_result) {
  const std::size_t total = size * count;  // no overflow check, as fwrite has none either
  if (total == 0 || stream == nullptr) {
    if (bytes_written) *bytes_written = 0;
    return total != 0 && error_result ? static_cast<size_t>(-1) : 0;
  }
  std::uint64_t bytes = 0;
  std::size_t done = 0;
  // After a surrogate (or with no units at all) every remaining unit is '#'.
  bool hashes = units == nullptr;
  while (done < total) {
    const std::size_t room = room_of(stream);
    if (hashes && room) {
      const std::size_t n = std::min(total - done, room);
      std::memset(stream->_IO_write_ptr, '#', n);
      stream->_IO_write_ptr += n;
      done += n;
      bytes += n;
      continue;
    }
    if (!hashes && room >= 3) {
      std::size_t nb;
      const std::size_t k = nuv::encode_units_fit(units + done, total - done, stream->_IO_write_ptr, room, &nb,
                                                  &hashes);
      stream->_IO_write_ptr += nb;
      done += k;
      bytes += nb;
      if (k || hashes) continue;
    }
    // The next unit does not fit whole: its bytes go one by one, and the
    // flush entry takes the one that meets the full buffer.
    unsigned char b[3];
    int nb;
    if (!hashes && nuv::is_surrogate_unit(nuv::unit_at(units + done))) hashes = true;
    if (hashes) {
      b[0] = '#';
      nb = 1;
    } else {
      nb = encode_unit(nuv::unit_at(units + done), b);
    }
    for (int j = 0; j < nb; ++j) {
      if (put_byte(stream, b[j]) < 0) {
        if (error_result) return static_cast<size_t>(-1);
        bytes += static_cast<unsigned>(j);
        if (bytes_written) *bytes_written = bytes;
        return done / size;
      }
    }
    bytes += static_cast<unsigned>(nb);
    ++done;
  }
  if (bytes_written) *bytes_written = bytes;
  return done / size;
}

NUV_API size_t fwriteU16_impl(const NUV_UTF16* units, size_t size, size_t count, FILE* stream,
                              uint64_t* bytes_written) {
  if (!stream) return fwrite_unlockedU16(units, size, count, stream, bytes_written, 0);
  nuv::StreamLock lock(stream);
  return fwrite_unlockedU16(units, size, count, stream, bytes_written, 0);
}

NUV_API size_t u16_fwriteU16(const NUV_UTF16* units, size_t size, size_t count, FILE* stream,
                             uint64_t* bytes_written) {
  return fwriteU16_impl(units, size, count, stream, bytes_written);
}

NUV_API size_t u16_fwriteU(const NUV_UTF16* units, size_t size, size_t count, FILE* stream,
                           uint64_t* bytes_written) {
  return fwriteU16_impl(units, size, count, stream, bytes_written);
}

NUV_API size_t fwriteU16(const NUV_UTF16* units, size_t size, size_t count, FILE* stream) {
  return fwriteU16_impl(units, size, count, stream, nullptr);
}

// Only the low 16 bits are encoded, with no surrogate test: a surrogate gets
// its three-byte form here, unlike in the block writer.
NUV_API int putc_unlockedU16(int ch, FILE* stream) {
  if (!stream) return EOF;
  unsigned char b[3];
  const int nb = encode_unit(static_cast<unsigned>(ch) & 0xFFFFu, b);
  for (int j = 0; j < nb; ++j)
    if (put_byte(stream, b[j]) < 0) return EOF;
  return ch;
}

NUV_API int fputcU16(int ch, FILE* stream) {
  if (!stream) return EOF;
  nuv::StreamLock lock(stream);
  return putc_unlockedU16(ch, stream);
}
NUV_FORWARD(fputcU, fputcU16);

}  // extern "C"

namespace {

// Text written as one block; the byte count, or -1 on a failed write.
long put_text_unlocked(const NUV_UTF16* text, FILE* stream) {
  std::uint64_t done = 0;
  if (nuv::g_encode_text) {
    // Lines usually fit the buffer whole: encode up to the terminator in one
    // pass, and leave only what stopped it (a surrogate, a full buffer) to
    // the block writer.
    const std::size_t room = room_of(stream);
    if (room) {
      std::size_t nb;
      text += nuv::g_encode_text(text, stream->_IO_write_ptr, room, &nb);
      stream->_IO_write_ptr += nb;
      done = nb;
      if (nuv::unit_at(text) == 0) return static_cast<long>(done);
    }
  }
  std::uint64_t bytes = 0;
  const size_t len = static_cast<size_t>(strlenU16(text));
  if (len == 0) return static_cast<long>(done);
  if (fwrite_unlockedU16(text, len, 1, stream, &bytes, 1) == static_cast<size_t>(-1)) return -1;
  return static_cast<long>(done + bytes);
}

}  // namespace

extern "C" {

NUV_API int fputsU16(const NUV_UTF16* text, FILE* stream) {
  if (!stream || !text) return EOF;
  nuv::StreamLock lock(stream);
  return static_cast<int>(put_text_unlocked(text, stream));
}
NUV_FORWARD(fputsU, fputsU16);

NUV_API int putsU16(const NUV_UTF16* text) {
  if (!text) return EOF;
  FILE* out = stdout;
  nuv::StreamLock lock(out);
  long r = put_text_unlocked(text, out);
  if (r >= 0) {
    const NUV_UTF16 nl[2] = {u'\n', 0};
    const long n = put_text_unlocked(nl, out);
    r = n < 0 ? -1 : r + n;
  }
  return static_cast<int>(r);
}
NUV_FORWARD(putsU, putsU16);

}  // extern "C"
