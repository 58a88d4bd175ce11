// A plain reference decoder over a byte vector, and a generator of seeded
// random UTF-8 streams with every kind of bad sequence, shared by the reader tests.
#pragma once

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace nuvtest {

struct RefChar {
  int32_t c;                  // code point or '#'
  bool bad;                   // rejected sequence
  std::vector<uint8_t> bytes; // the record: bytes of the rejected sequence
};

// Index-based decoder written independently of the library's.
inline std::vector<RefChar> ref_decode(const std::vector<uint8_t>& in) {
  std::vector<RefChar> out;
  size_t i = 0, n = in.size();
  auto cont = [](uint8_t b) { return (b & 0xC0) == 0x80; };
  while (i < n) {
    uint8_t b = in[i];
    int need = b < 0x80 ? 0 : b >= 0xC0 && b < 0xE0 ? 1 : b >= 0xE0 && b < 0xF0 ? 2 : b >= 0xF0 && b < 0xF8 ? 3 : -1;
    if (need == 0) {
      out.push_back({b, false, {}});
      ++i;
      continue;
    }
    if (need < 0) {
      out.push_back({'#', true, {b}});
      ++i;
      continue;
    }
    std::vector<uint8_t> seq{b};
    size_t j = i + 1;
    bool ok = true;
    for (int k = 0; k < need; ++k) {
      if (j >= n) {
        ok = false;
        break;
      }
      seq.push_back(in[j++]);
      if (!cont(seq.back()) && !(need == 3 && k == 2)) {
        ok = false;
        break;
      }
    }
    int32_t v = 0;
    if (ok) {
      static const uint8_t lead_mask[] = {0, 0x1F, 0x0F, 0x07};
      v = seq[0] & lead_mask[need];
      for (size_t k = 1; k < seq.size(); ++k) v = (v << 6) | (seq[k] & 0x3F);
      if (need == 3 && (!cont(seq[3]) || v >= 0x110000)) ok = false;
    }
    i = j;
    if (ok)
      out.push_back({v, false, {}});
    else
      out.push_back({'#', true, seq});
  }
  return out;
}

// A code point as UTF-16 units.
inline void put_units(std::u16string& o, int32_t c) {
  if (c < 0x10000) {
    o.push_back(static_cast<char16_t>(c));
  } else {
    o.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
    o.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
}

inline void put_utf8(std::vector<uint8_t>& o, uint32_t c) {
  if (c < 0x80) {
    o.push_back(static_cast<uint8_t>(c));
  } else if (c < 0x800) {
    o.push_back(static_cast<uint8_t>(0xC0 | (c >> 6)));
    o.push_back(static_cast<uint8_t>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    o.push_back(static_cast<uint8_t>(0xE0 | (c >> 12)));
    o.push_back(static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F)));
    o.push_back(static_cast<uint8_t>(0x80 | (c & 0x3F)));
  } else {
    o.push_back(static_cast<uint8_t>(0xF0 | (c >> 18)));
    o.push_back(static_cast<uint8_t>(0x80 | ((c >> 12) & 0x3F)));
    o.push_back(static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F)));
    o.push_back(static_cast<uint8_t>(0x80 | (c & 0x3F)));
  }
}

// bad_percent of the pieces are broken sequences of every kind.
inline std::vector<uint8_t> random_stream(uint32_t seed, size_t pieces, int bad_percent, int newline_percent = 4) {
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
  std::vector<uint8_t> o;
  for (size_t k = 0; k < pieces; ++k) {
    uint32_t r = pick(0, 99);
    if (static_cast<int>(r) < newline_percent) {
      o.push_back('\n');
    } else if (static_cast<int>(pick(0, 99)) < bad_percent) {
      switch (pick(0, 10)) {
        case 0: o.push_back(static_cast<uint8_t>(pick(0x80, 0xBF))); break;           // lone continuation
        case 1: o.push_back(static_cast<uint8_t>(pick(0xF8, 0xFF))); break;           // never a lead
        case 2: o.push_back(static_cast<uint8_t>(pick(0xC0, 0xDF))); o.push_back(static_cast<uint8_t>(pick(0, 0x7F))); break;
        case 3: o.push_back(static_cast<uint8_t>(pick(0xE0, 0xEF))); o.push_back(static_cast<uint8_t>(pick(0xC0, 0xFF))); break;
        case 4: o.push_back(static_cast<uint8_t>(pick(0xE0, 0xEF))); o.push_back(0x80); o.push_back(static_cast<uint8_t>(pick(0, 0x7F))); break;
        case 5: o.push_back(static_cast<uint8_t>(pick(0xF0, 0xF7))); o.push_back('\n'); break;
        case 6: o.push_back(0xF1); o.push_back(0x80); o.push_back(static_cast<uint8_t>(pick(0xC0, 0xFF))); break;
        case 7: o.push_back(0xF2); o.push_back(0x80); o.push_back(0x80); o.push_back(static_cast<uint8_t>(pick(0, 0x7F))); break;
        case 8: o.push_back(static_cast<uint8_t>(pick(0xF4, 0xF7))); o.push_back(0x90); o.push_back(0x80); o.push_back(0x80); break;  // beyond U+10FFFF
        case 9:  // overlong forms, accepted: U+0000 and newlines in two and three bytes
          if (pick(0, 2) == 0) { o.push_back(0xC0); o.push_back(0x80); }
          else if (pick(0, 1)) { o.push_back(0xC0); o.push_back(0x8A); }
          else { o.push_back(0xE0); o.push_back(0x80); o.push_back(0x8A); }
          break;
        default: put_utf8(o, pick(0xD800, 0xDFFF)); break;                            // encoded surrogate, accepted
      }
    } else {
      switch (pick(0, 5)) {
        case 0: case 1: case 2: o.push_back(static_cast<uint8_t>(pick(0x20, 0x7E))); break;
        case 3: put_utf8(o, pick(0x80, 0x7FF)); break;
        case 4: put_utf8(o, pick(0x800, 0xFFFF)); break;
        default: put_utf8(o, pick(0x10000, 0x10FFFF)); break;
      }
    }
  }
  // Sometimes end inside a sequence.
  if (seed % 3 == 0) o.push_back(static_cast<uint8_t>(pick(0xC2, 0xF4)));
  return o;
}

// Mostly ASCII with two-byte characters, newlines and now and then a broken
// two-byte sequence or a stray continuation byte: the block decoder's diet.
// rare_scale stretches the odds of everything but plain ASCII (1: as below,
// 100: long runs of ASCII between them).
inline std::vector<uint8_t> latin_stream(uint32_t seed, size_t pieces, uint32_t rare_scale = 1) {
  std::mt19937 rng(seed);
  auto pick = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
  std::vector<uint8_t> o;
  for (size_t k = 0; k < pieces; ++k) {
    uint32_t r = pick(0, 1000 * rare_scale - 1);
    if (r >= 1000) r = 999;
    if (r < 15) o.push_back('\n');
    else if (r < 200) put_utf8(o, pick(0x80, 0x7FF));
    else if (r < 203) o.push_back(static_cast<uint8_t>(pick(0x80, 0xBF)));
    else if (r < 206) o.push_back(static_cast<uint8_t>(pick(0xC0, 0xDF)));  // lead without its continuation
    else if (r < 208) put_utf8(o, pick(0x800, 0x10FFFF));
    else if (r < 209) { o.push_back(0xC1); o.push_back(static_cast<uint8_t>(pick(0x80, 0xBF))); }  // overlong
    else if (r < 210) { o.push_back(0xE0); o.push_back(static_cast<uint8_t>(pick(0x80, 0x9F))); o.push_back(0x8A); }
    else o.push_back(static_cast<uint8_t>(pick(0x20, 0x7E)));
  }
  return o;
}

// The stream's buffering: default, unbuffered (a refill per byte) or a
// small buffer so that characters straddle refills.
enum class Buffering { Default, None, Tiny7 };

struct TempStream {
  FILE* f = nullptr;
  char small[7];
  TempStream(const std::vector<uint8_t>& bytes, Buffering buffering = Buffering::Default) {
    f = std::tmpfile();
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::rewind(f);
    if (buffering == Buffering::None) std::setvbuf(f, nullptr, _IONBF, 0);
    if (buffering == Buffering::Tiny7) std::setvbuf(f, small, _IOFBF, sizeof small);
  }
  ~TempStream() {
    if (f) std::fclose(f);
  }
  TempStream(const TempStream&) = delete;
  TempStream& operator=(const TempStream&) = delete;
};

}  // namespace nuvtest
