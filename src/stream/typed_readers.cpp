// Typed readers: one word, one line or one decimal number from a stream,
// in UTF-16 (decoding UTF-8, keeping the raw bytes of bad sequences) and in
// narrow bytes.  Each call holds the stream's lock throughout.
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "common/nuv_internal.h"
#include "ctype/ctype_tables.h"
#include "stream/utf8_decode.h"

namespace {

constexpr int kNumberInline = 32;

// The six narrow white-space bytes that end a word even inside a bad sequence.
inline bool is_c_space(int b) { return b == ' ' || (b >= '\t' && b <= '\r'); }

// Number text: 32 bytes inline, grown by nlsui_enlar_nuspace.
struct NumberText {
  char inline_bytes[kNumberInline];
  char* p = inline_bytes;
  int size = kNumberInline;
  int state = 0;  // 0 inline, 2 heap, 1 and 3: growing failed, further digits dropped
  int len = 0;
  NumberText() = default;
  NumberText(const NumberText&) = delete;
  NumberText& operator=(const NumberText&) = delete;
  ~NumberText() {
    if (p != inline_bytes) std::free(p);
  }
  void put(int c) {
    if (len + 1 >= size) nlsui_enlar_nuspace(&p, &size, &state);
    if (len + 1 < size) p[len++] = static_cast<char>(c);
  }
  const char* c_str() {
    p[len] = 0;
    return p;
  }
};

enum class Item { Word, Line };

template <Item kind>
int read_text(NUV_UTF16* buffer, int size, FILE* f, NUV_UTF16 substitute) {
  nuv::StreamLock lock(f);
  int n = 0;
  bool at_eof = false, invalid = false;
  if (size > 1) {
    const int limit = size - 1;
    unsigned char rec[5];
    int status;
    std::int32_t c = getc_unlockedU16_errno(f, rec, &status);
    if constexpr (kind == Item::Word)
      while (c >= 0 && status == 0 && nuv::is_space_unit(c)) c = getc_unlockedU16_errno(f, rec, &status);
    for (;;) {
      if (c < 0) {
        at_eof = true;
        break;
      }
      bool ends = false;
      if (status == nuv::kBadUtf8Status) {
        // Keep the sequence's bytes; bytes of 0x80 and above become the substitute.
        invalid = true;
        const int count = rec[0];
        for (int k = 0; k < count && !ends; ++k) {
          const int b = rec[1 + k];
          const bool last = k == count - 1;
          if constexpr (kind == Item::Word) {
            if (last && is_c_space(b)) {
              ends = true;
              break;
            }
          }
          if (n == limit) {
            ends = true;
            break;
          }
          buffer[n++] = b >= 0x80 ? substitute : static_cast<NUV_UTF16>(b);
          if constexpr (kind == Item::Line) {
            if (b == '\n' && !last) {
              // A newline inside the sequence ends the line; the byte after it
              // is dropped and a newline goes back, so the next read is an empty line.
              ungetc('\n', f);
              ends = true;
            } else if (b == '\n') {
              ends = true;
            }
          }
        }
      } else if (kind == Item::Word && nuv::is_space_unit(c)) {
        break;  // consumed, not stored
      } else if (c >= 0x10000) {
        buffer[n++] = nuv::high_surrogate(c);
        if (n == limit) break;  // the low half is lost
        buffer[n++] = nuv::low_surrogate(c);
      } else {
        buffer[n++] = static_cast<NUV_UTF16>(c);
        if (kind == Item::Line && c == '\n') ends = true;
      }
      if (ends || n >= limit) break;
      c = getc_unlockedU16_errno(f, rec, &status);
    }
    buffer[n] = 0;
  }
  if (n == 0 && at_eof) return -1;
  if (ferror_unlocked(f)) return -1;
  if (invalid) return -2;
  return n;
}

template <Item kind>
int read_text_narrow(char* buffer, int size, FILE* f) {
  nuv::StreamLock lock(f);
  int n = 0;
  bool at_eof = false;
  if (size > 1) {
    const int limit = size - 1;
    int c = getc_unlocked(f);
    if constexpr (kind == Item::Word)
      while (c != EOF && std::isspace(c)) c = getc_unlocked(f);
    for (;;) {
      if (c == EOF) {
        at_eof = true;
        break;
      }
      if (kind == Item::Word && std::isspace(c)) break;
      buffer[n++] = static_cast<char>(c);
      if ((kind == Item::Line && c == '\n') || n >= limit) break;
      c = getc_unlocked(f);
    }
    buffer[n] = 0;
  }
  if (n == 0 && at_eof) return -1;
  if (ferror_unlocked(f)) return -1;
  return n;
}

enum class Width { Long, Int };

// first: the first character after white space (a code point for the UTF-16
// forms, a byte for the narrow ones).  After a sign everything is raw bytes.
template <Width w, class T>
int read_number(T* value, FILE* f, int first) {
  int c = first;
  NumberText text;
  if (c == '+' || c == '-') {
    if (c == '-') text.put('-');
    c = getc_unlocked(f);
  }
  if (c < '0' || c > '9') {
    if (c == EOF || ferror_unlocked(f)) return -1;
    *value = static_cast<T>(c);  // the character is consumed
    return -2;
  }
  while (c >= '0' && c <= '9') {
    text.put(c);
    c = getc_unlocked(f);
  }
  if (c != EOF) ungetc(c, f);
  errno = 0;
  const long v = std::strtol(text.c_str(), nullptr, 10);
  int result = 0;
  if constexpr (w == Width::Long) {
    *value = v;
    if ((v == LONG_MAX || v == LONG_MIN) && errno == ERANGE) result = 1;
  } else {
    if (errno == ERANGE || v > INT_MAX || v < INT_MIN) {
      errno = ERANGE;
      *value = v < 0 ? INT_MIN : INT_MAX;
      result = 1;
    } else {
      *value = static_cast<int>(v);
    }
  }
  return ferror_unlocked(f) ? -1 : result;
}

template <Width w, class T>
int read_number_u16(T* value, FILE* f) {
  nuv::StreamLock lock(f);
  errno = 0;
  unsigned char rec[5];
  std::int32_t c;
  while ((c = getc_unlockedU16(f, rec)) >= 0 && nuv::is_space_unit(c)) {
  }
  if (c < 0) return -1;
  return read_number<w>(value, f, c);
}

template <Width w, class T>
int read_number_narrow(T* value, FILE* f) {
  nuv::StreamLock lock(f);
  errno = 0;
  int c;
  while ((c = getc_unlocked(f)) != EOF && std::isspace(c)) {
  }
  if (c == EOF) return -1;
  return read_number<w>(value, f, c);
}

}  // namespace

extern "C" {

NUV_API void nlsui_enlar_nuspace(char** buffer, int* size, int* state) {
  if (*state == 0) {
    char* p = static_cast<char*>(std::malloc(2 * static_cast<std::size_t>(*size)));
    if (!p) {
      *state = 1;
      return;
    }
    std::memcpy(p, *buffer, static_cast<std::size_t>(*size));
    *buffer = p;
    *size *= 2;
    *state = 2;
  } else if (*state == 2) {
    char* p = static_cast<char*>(std::realloc(*buffer, 2 * static_cast<std::size_t>(*size)));
    if (!p) {
      *state = 3;  // the old block and size stay
      return;
    }
    *buffer = p;
    *size *= 2;
  }
}

NUV_API int fget_strU16(NUV_UTF16* buffer, int size, FILE* stream, NUV_UTF16 substitute) {
  return read_text<Item::Word>(buffer, size, stream, substitute);
}
NUV_API int fget_strU(NUV_UTF16* buffer, int size, FILE* stream, int substitute) {
  return fget_strU16(buffer, size, stream, static_cast<NUV_UTF16>(substitute));
}
NUV_API int fget_lineU16(NUV_UTF16* buffer, int size, FILE* stream, NUV_UTF16 substitute) {
  return read_text<Item::Line>(buffer, size, stream, substitute);
}
NUV_API int fget_lineU(NUV_UTF16* buffer, int size, FILE* stream, int substitute) {
  return fget_lineU16(buffer, size, stream, static_cast<NUV_UTF16>(substitute));
}
NUV_API int fget_longU16(long* value, FILE* stream) { return read_number_u16<Width::Long>(value, stream); }
NUV_API int fget_intU16(int* value, FILE* stream) { return read_number_u16<Width::Int>(value, stream); }

NUV_API int fget_strR(char* buffer, int size, FILE* stream) { return read_text_narrow<Item::Word>(buffer, size, stream); }
NUV_API int fget_lineR(char* buffer, int size, FILE* stream) { return read_text_narrow<Item::Line>(buffer, size, stream); }
NUV_API int fget_longR(long* value, FILE* stream) { return read_number_narrow<Width::Long>(value, stream); }
NUV_API int fget_intR(int* value, FILE* stream) { return read_number_narrow<Width::Int>(value, stream); }

}  // extern "C"

NUV_FORWARD(fget_longU, fget_longU16);
NUV_FORWARD(fget_intU, fget_intU16);
