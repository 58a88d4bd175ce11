/*
 * nuvu16.h - the C runtime in UTF-16 form.
 *
 * One header for C99 and C++.  Text is NUV_UTF16: char16_t in C++, uint16_t in C
 * (the same ABI).  All lengths and counts are in 16-bit units unless a name
 * ends in RFB or R, whose forms work on 8-bit bytes.
 *
 * Every declaration marked NUV_API is exported from libnuvucum.so; a test
 * holds the shared library's dynamic symbol table against this file, so a
 * declaration here is a promise that the symbol exists.
 */
#ifndef NUVU16_H
#define NUVU16_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdarg.h>
#include <time.h>
#include <sys/types.h>

#ifdef __cplusplus
typedef char16_t NUV_UTF16;
#define NUV_EXTERN_C_BEGIN extern "C" {
#define NUV_EXTERN_C_END }
#else
typedef uint16_t NUV_UTF16;
#define NUV_EXTERN_C_BEGIN
#define NUV_EXTERN_C_END
#endif

#define NUV_API __attribute__((visibility("default")))

NUV_EXTERN_C_BEGIN

/* ======================================================================
 * Strings (zero-terminated NUV_UTF16 text)
 * ====================================================================== */
NUV_API long strlenU16(const NUV_UTF16 *s);
NUV_API long strlenU(const NUV_UTF16 *s);
NUV_API size_t strnlenU16(const NUV_UTF16 *s, size_t max);
NUV_API size_t strnlenRFB(const char *s, size_t max);
NUV_API NUV_UTF16 *strcatU16(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API NUV_UTF16 *strcatU(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API NUV_UTF16 *strncatU16(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
NUV_API NUV_UTF16 *strncatU(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
NUV_API NUV_UTF16 *strcpyU16(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API NUV_UTF16 *strcpyU(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API NUV_UTF16 *strncpyU16(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
NUV_API NUV_UTF16 *strncpyU(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
NUV_API int strcmpU16(const NUV_UTF16 *a, const NUV_UTF16 *b);
NUV_API int strcmpU(const NUV_UTF16 *a, const NUV_UTF16 *b);
NUV_API int strncmpU16(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API int strncmpU(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API NUV_UTF16 *strchrU16(const NUV_UTF16 *s, int unit);
NUV_API NUV_UTF16 *strchrU(const NUV_UTF16 *s, int unit);
NUV_API NUV_UTF16 *strrchrU16(const NUV_UTF16 *s, int unit);
NUV_API NUV_UTF16 *strrchrU(const NUV_UTF16 *s, int unit);
NUV_API NUV_UTF16 *strpbrkU16(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API NUV_UTF16 *strpbrkU(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API size_t strspnU16(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API size_t strspnU(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API size_t strcspnU16(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API size_t strcspnU(const NUV_UTF16 *s, const NUV_UTF16 *set);
NUV_API NUV_UTF16 *strstrU16(const NUV_UTF16 *haystack, const NUV_UTF16 *needle);
NUV_API NUV_UTF16 *strstrU(const NUV_UTF16 *haystack, const NUV_UTF16 *needle);
NUV_API NUV_UTF16 *strdupU16(const NUV_UTF16 *s);
NUV_API NUV_UTF16 *strdupU(const NUV_UTF16 *s);
NUV_API NUV_UTF16 *strtokU16(NUV_UTF16 *s, const NUV_UTF16 *delim);
NUV_API NUV_UTF16 *strtokU(NUV_UTF16 *s, const NUV_UTF16 *delim);
NUV_API NUV_UTF16 *strtok_rU16(NUV_UTF16 *s, const NUV_UTF16 *delim, NUV_UTF16 **saved);
NUV_API NUV_UTF16 *strtok_rU(NUV_UTF16 *s, const NUV_UTF16 *delim, NUV_UTF16 **saved);
NUV_API char *strtok_rRFB(char *s, const char *delim, char **saved);

/* Bounded copies: 0, or ERANGE (34) returned (errno untouched). */
NUV_API int strcat_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src);
NUV_API int strcat_sRFB(char *dest, size_t size, const char *src);
NUV_API int strncat_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src, size_t count);
NUV_API int strncat_sRFB(char *dest, size_t size, const char *src, size_t count);
NUV_API int strcpy_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src);
NUV_API int strcpy_sRFB(char *dest, size_t size, const char *src);
NUV_API int strncpy_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src, size_t count);
NUV_API int strncpy_sRFB(char *dest, size_t size, const char *src, size_t count);

/* ======================================================================
 * Memory (counts in units unless RFB/R)
 * ====================================================================== */
NUV_API int memcmpU16(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API int memcmpU(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API NUV_UTF16 *memchrU16(const NUV_UTF16 *s, int unit, size_t n);
NUV_API NUV_UTF16 *memchrU(const NUV_UTF16 *s, int unit, size_t n);
NUV_API NUV_UTF16 *memsetU16(NUV_UTF16 *s, int unit, size_t n);
NUV_API NUV_UTF16 *memsetU(NUV_UTF16 *s, int unit, size_t n);
NUV_API int memcpy_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src, size_t count);
NUV_API int memcpy_sRFB(void *dest, size_t size, const void *src, size_t count);
NUV_API int memmove_sU16(NUV_UTF16 *dest, size_t size, const NUV_UTF16 *src, size_t count);
NUV_API int memmove_sRFB(void *dest, size_t size, const void *src, size_t count);
NUV_API NUV_UTF16 *memcpyU(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
NUV_API NUV_UTF16 *memmoveU(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n);
/* Overlap-guarded copies: report and abort unless NUVMEMCPYCHK is "0". */
NUV_API NUV_UTF16 *memcpyUChk(NUV_UTF16 *dest, const NUV_UTF16 *src, size_t n, const char *file, int line);
NUV_API void *memcpyRChk(void *dest, const void *src, size_t n, const char *file, int line);
NUV_API NUV_UTF16 *mallocU(size_t n);
NUV_API NUV_UTF16 *reallocU(void *p, size_t n);
NUV_API NUV_UTF16 *callocU(size_t count, size_t n);
NUV_API int mblenU(const NUV_UTF16 *s, size_t n);
NUV_API int checkArgs(const void *stream, const void *buffer, size_t size, size_t count);

/* ======================================================================
 * Diagnostics and trace
 * ====================================================================== */
typedef int (*NUV_TRACE_FUNC)(const char *text, int length);

#define U16_TRACE_NONE 0u
#define U16_TRACE_LOW 1u
#define U16_TRACE_MEDIUM 4u
#define U16_TRACE_HIGH 16u

NUV_API extern uint32_t u16_trace_level;
NUV_API extern NUV_TRACE_FUNC u16_trace_func;
NUV_API extern char u16_cmdline[257];
NUV_API extern int32_t u16_cmdline_traced;
NUV_API extern int32_t nlsui_init_trace_level;
NUV_API extern int32_t no_fgetcU_errors_max;
NUV_API extern int32_t fgetcU_errors_interval;

NUV_API void u16_set_trace(NUV_TRACE_FUNC func, uint32_t level);
NUV_API void setTraceLibu16U16(NUV_TRACE_FUNC func, uint32_t level);
NUV_API void nlsui_set_trace(NUV_TRACE_FUNC func, uint32_t level);
NUV_API void u16_set_trace_func(NUV_TRACE_FUNC func);
NUV_API void nlsui_set_trace_func(NUV_TRACE_FUNC func);
NUV_API void u16_set_cmdline(const char *text);
NUV_API void u16_set_fgetcU_error_parameters(int32_t max_count, int32_t interval_seconds);

NUV_API int u16_trace_to_stderr(const char *text, int length);
NUV_API int u16_traceMsg(const char *message, const char *source_file, int line, int with_end_line);
NUV_API int u16_endTraceMsg(void);

NUV_API void u16_internalErrorMsg(const char *source_file, int line);
NUV_API void nlsui_internalErrorMsg(const char *source_file, int line);
NUV_API void u16_array_short(const char *length_name, const char *function_name, const char *array_name,
                             const char *source_file, int line);
NUV_API void nlsui_array_short(const char *length_name, const char *function_name, const char *array_name,
                               const char *source_file, int line);
NUV_API void u16_malloc_error(const char *function_name, const char *source_file, int line);
NUV_API void nlsui_malloc_error(const char *function_name, const char *source_file, int line);
NUV_API void u16_utf8conv_error(NUV_UTF16 *target, const char *source, long target_length,
                                const char *source_file, int line, const char *function_name);
NUV_API void nlsui_utf8conv_error(NUV_UTF16 *target, const char *source, long target_length,
                                  const char *source_file, int line, const char *function_name);
NUV_API void u16_unknownFormatStr(const NUV_UTF16 *format, NUV_UTF16 ch, const char *source_file, int line);
NUV_API void u16_traceFopen(const char *path, int fd, const char *opener, const char *source_file, int line);
NUV_API void nlsui_traceFopen(const NUV_UTF16 *path, int fd, const char *opener, const char *source_file,
                              int line);
NUV_API const NUV_UTF16 *dbgAlignCheckStringU16(const NUV_UTF16 *s);
NUV_API NUV_UTF16 *nlsui_cast_raw2uc(const void *p, const NUV_UTF16 *file_name, int line);

NUV_API void u16_rawDump(const void *bytes, long count);
NUV_API void u16_rawStrDump(const char *text);
NUV_API void u16_charDump(const NUV_UTF16 *units, long count);
NUV_API void u16_rawAndCharDump(const unsigned char *bad_bytes_record, const NUV_UTF16 *buffer_start,
                                const NUV_UTF16 *buffer_position);
NUV_API void u16_rawFileDumpOpt(FILE *stream);

/* ======================================================================
 * Character classes and case (added by the ctype subsystem)
 * ====================================================================== */

/* Fixed classes and simple case mapping from the Unicode 3.1 tables (BMP).
 * Class tests answer 1 or 0.  The table-backed ones (upper, lower, alpha,
 * alnum, print, graph, punct) are meant for 0..0xFFFF and answer for the low
 * 16 bits of anything else; iscntrlU16, isspaceU16 and isxdigitU16 accept
 * any value, and the case functions return values beyond the BMP unchanged. */
NUV_API int32_t isupperU16(int32_t c);
NUV_API int32_t islowerU16(int32_t c);
NUV_API int32_t isalphaU16(int32_t c);
NUV_API int32_t isalnumU16(int32_t c);
NUV_API int32_t isprintU16(int32_t c);
NUV_API int32_t isgraphU16(int32_t c);
NUV_API int32_t ispunctU16(int32_t c);
NUV_API int32_t isxdigitU16(int32_t c);
NUV_API int32_t isspaceU16(int32_t c);
NUV_API int32_t iscntrlU16(int32_t c);
NUV_API int32_t tolowerU16(int32_t c);
NUV_API int32_t toupperU16(int32_t c);

/* The nine ICU-backed entries are writable function pointers: the first call
 * of any binds ICU (or the 7-bit fallback), later calls go straight through. */
typedef int32_t (*NUV_CTYPE_FUNC)(int32_t c);
NUV_API extern NUV_CTYPE_FUNC isalnumU;
NUV_API extern NUV_CTYPE_FUNC isalphaU;
NUV_API extern NUV_CTYPE_FUNC iscntrlU;
NUV_API extern NUV_CTYPE_FUNC islowerU;
NUV_API extern NUV_CTYPE_FUNC isprintU;
NUV_API extern NUV_CTYPE_FUNC isspaceU;
NUV_API extern NUV_CTYPE_FUNC isupperU;
NUV_API extern NUV_CTYPE_FUNC tolowerU;
NUV_API extern NUV_CTYPE_FUNC toupperU;
NUV_API int32_t isgraphU(int32_t c);
NUV_API int32_t ispunctU(int32_t c);
NUV_API int32_t isxdigitU(int32_t c);
/* Point the nine entries at the 7-bit fallbacks / back at ICU; both return 0. */
NUV_API int useFallBackCtype(void);
NUV_API int useICUCtype(void);
/* Run without ICU; call before the first use of the nine entries. */
NUV_API void nlsui_set7bitUnicode(void);

/* Case-insensitive comparison and case conversion, unit by unit through the
 * current tolowerU/toupperU (ASCII letters converted directly); the R forms
 * work on bytes with the C library's locale tables. */
NUV_API int strcasecmpU16(const NUV_UTF16 *a, const NUV_UTF16 *b);
NUV_API int strcasecmpU(const NUV_UTF16 *a, const NUV_UTF16 *b);
NUV_API int strncasecmpU16(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API int strncasecmpU(const NUV_UTF16 *a, const NUV_UTF16 *b, size_t n);
NUV_API NUV_UTF16 *strtoupperU16(NUV_UTF16 *s);
NUV_API NUV_UTF16 *strntoupperU16(NUV_UTF16 *s, size_t n);
NUV_API NUV_UTF16 *strcpytoupperU16(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API NUV_UTF16 *strtolowerU16(NUV_UTF16 *s);
NUV_API NUV_UTF16 *strntolowerU16(NUV_UTF16 *s, size_t n);
NUV_API NUV_UTF16 *strcpytolowerU16(NUV_UTF16 *dest, const NUV_UTF16 *src);
NUV_API int strcasecmpR(const char *a, const char *b);
NUV_API int strncasecmpR(const char *a, const char *b, size_t n);
NUV_API char *strtoupperR(char *s);
NUV_API char *strntoupperR(char *s, size_t n);
NUV_API char *strcpytoupperR(char *dest, const char *src);
NUV_API char *strtolowerR(char *s);
NUV_API char *strntolowerR(char *s, size_t n);
NUV_API char *strcpytolowerR(char *dest, const char *src);

/* ======================================================================
 * Formatted output (added by the printf subsystem)
 * ====================================================================== */
/* The printf family over UTF-16 formats.  Results count UTF-16 units (the
 * RFB forms: bytes) without the terminating NUL; -1 on failure.  %s and %c
 * always take UTF-16; there is no %n and no positional argument.  A bounded
 * buffer that is cut holds limit - 1 units and a NUL, and the call returns
 * the limit. */
NUV_API int vvfprintfU16(FILE *file, NUV_UTF16 *buffer, size_t *limit, const NUV_UTF16 *format, va_list args);
NUV_API int vvfprintf_sU16(FILE *file, NUV_UTF16 *buffer, size_t *limit, const NUV_UTF16 *format, size_t extra,
                           va_list args);
NUV_API int vfprintfU16(FILE *file, const NUV_UTF16 *format, va_list args);
NUV_API int vfprintfU(FILE *file, const NUV_UTF16 *format, va_list args);
NUV_API int fprintfU16(FILE *file, const NUV_UTF16 *format, ...);
NUV_API int fprintfU(FILE *file, const NUV_UTF16 *format, ...);
NUV_API int vprintfU16(const NUV_UTF16 *format, va_list args);
NUV_API int vprintfU(const NUV_UTF16 *format, va_list args);
NUV_API int printfU16(const NUV_UTF16 *format, ...);
NUV_API int printfU(const NUV_UTF16 *format, ...);
NUV_API int vsprintfU16(NUV_UTF16 *buffer, const NUV_UTF16 *format, va_list args);
NUV_API int vsprintfU(NUV_UTF16 *buffer, const NUV_UTF16 *format, va_list args);
NUV_API int sprintfU16(NUV_UTF16 *buffer, const NUV_UTF16 *format, ...);
NUV_API int sprintfU(NUV_UTF16 *buffer, const NUV_UTF16 *format, ...);
NUV_API int vsnprintfU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, va_list args);
NUV_API int vsnprintfU(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, va_list args);
NUV_API int snprintfU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, ...);
NUV_API int snprintfU(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, ...);
NUV_API int vsprintf_sU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, va_list args);
NUV_API int sprintf_sU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, ...);
NUV_API int vsnprintf_sU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, va_list args);
NUV_API int snprintf_sU16(NUV_UTF16 *buffer, size_t n, const NUV_UTF16 *format, ...);
NUV_API int vsprintf_sRFB(char *s, size_t n, const char *format, va_list args);
NUV_API int sprintf_sRFB(char *s, size_t n, const char *format, ...);
NUV_API int vsnprintf_sRFB(char *s, size_t n, const char *format, va_list args);
NUV_API int snprintf_sRFB(char *s, size_t n, const char *format, ...);
/* Appends to a malloc'ed string (*buffer may be null), growing it. */
NUV_API int vsprintf_append_U(NUV_UTF16 **buffer, const NUV_UTF16 *format, va_list args);

/* ======================================================================
 * Stream output (added by the stream subsystem)
 * ====================================================================== */
/* UTF-16 text written as UTF-8 into the FILE buffer, one unit at a time with
 * no state between calls.  Sizes count units.  The block writers write "#"
 * for a surrogate unit and for every unit after it in the same call; the
 * single-character writers encode a surrogate as its three-byte form. */
NUV_API size_t fwrite_unlockedU16(const NUV_UTF16 *units, size_t size, size_t count, FILE *stream,
                                  uint64_t *bytes_written, int32_t error_result);
NUV_API size_t fwriteU16_impl(const NUV_UTF16 *units, size_t size, size_t count, FILE *stream,
                              uint64_t *bytes_written);
NUV_API size_t u16_fwriteU16(const NUV_UTF16 *units, size_t size, size_t count, FILE *stream,
                             uint64_t *bytes_written);
NUV_API size_t u16_fwriteU(const NUV_UTF16 *units, size_t size, size_t count, FILE *stream,
                           uint64_t *bytes_written);
NUV_API size_t fwriteU16(const NUV_UTF16 *units, size_t size, size_t count, FILE *stream);
NUV_API int putc_unlockedU16(int ch, FILE *stream);
NUV_API int fputcU16(int ch, FILE *stream);
NUV_API int fputcU(int ch, FILE *stream);
/* Results are UTF-8 byte counts. */
NUV_API int fputsU16(const NUV_UTF16 *text, FILE *stream);
NUV_API int fputsU(const NUV_UTF16 *text, FILE *stream);
NUV_API int putsU16(const NUV_UTF16 *text);
NUV_API int putsU(const NUV_UTF16 *text);

/* ======================================================================
 * Stream input and typed readers (added by the stream subsystem)
 * ====================================================================== */
/* One character from a UTF-8 stream, without locking: the code point (up to
 * 0x10FFFF), '#' for a rejected sequence (errno and *status EILSEQ, its bytes
 * in bad_bytes: a count 1..4, then the bytes), or -1 at end of file. */
NUV_API int getc_unlockedU16_errno(FILE *stream, unsigned char bad_bytes[5], int *status);
NUV_API int getc_unlockedU16(FILE *stream, unsigned char bad_bytes[5]);
/* One unit; characters beyond U+FFFF come back as 0xFFFD.  Reports are throttled. */
NUV_API int fgetcU16(FILE *stream);
NUV_API int fgetcU(FILE *stream);
NUV_API NUV_UTF16 *fgetsU16(NUV_UTF16 *buffer, int capacity, FILE *stream);
NUV_API NUV_UTF16 *fgetsU(NUV_UTF16 *buffer, int capacity, FILE *stream);
NUV_API size_t freadU16(NUV_UTF16 *buffer, size_t size, size_t count, FILE *stream);
NUV_API size_t freadU(NUV_UTF16 *buffer, size_t size, size_t count, FILE *stream);
NUV_API NUV_UTF16 *getsU16(NUV_UTF16 *buffer);
NUV_API NUV_UTF16 *getsU(NUV_UTF16 *buffer);
NUV_API NUV_UTF16 *gets_sU16(NUV_UTF16 *buffer, size_t capacity);
NUV_API char *gets_sRFB(char *buffer, size_t capacity);
/* Typed readers.  Sizes include the terminator.  Word/line: units stored,
 * -1 at end of file or on a stream error, -2 when invalid UTF-8 was kept
 * (its bytes of 0x80 and above as the substitute unit).  Numbers: 0, 1 out
 * of range (ERANGE), -1 end of file or error, -2 not a number (the value
 * receives the character's code). */
NUV_API int fget_strU16(NUV_UTF16 *buffer, int size, FILE *stream, NUV_UTF16 substitute);
NUV_API int fget_strU(NUV_UTF16 *buffer, int size, FILE *stream, int substitute);
NUV_API int fget_lineU16(NUV_UTF16 *buffer, int size, FILE *stream, NUV_UTF16 substitute);
NUV_API int fget_lineU(NUV_UTF16 *buffer, int size, FILE *stream, int substitute);
NUV_API int fget_longU16(long *value, FILE *stream);
NUV_API int fget_longU(long *value, FILE *stream);
NUV_API int fget_intU16(int *value, FILE *stream);
NUV_API int fget_intU(int *value, FILE *stream);
NUV_API int fget_strR(char *buffer, int size, FILE *stream);
NUV_API int fget_lineR(char *buffer, int size, FILE *stream);
NUV_API int fget_longR(long *value, FILE *stream);
NUV_API int fget_intR(int *value, FILE *stream);
/* Grows a number buffer: state 0 inline, 2 heap, 1/3 growing failed. */
NUV_API void nlsui_enlar_nuspace(char **buffer, int *size, int *state);

/* ======================================================================
 * Number parsing (added by the number subsystem)
 * ====================================================================== */
/* White space is that of isspaceU16.  Integers: base 0 or 2..36, 64-bit
 * results; a bad base gives 0 with EINVAL. */
NUV_API long strtolU16(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API long strtolU(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API long long strtollU16(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API long long strtollU(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API unsigned long strtoulU16(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API unsigned long strtoulU(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API unsigned long long strtoullU16(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
NUV_API unsigned long long strtoullU(const NUV_UTF16 *text, NUV_UTF16 **end, int base);
/* Decimal only (no hexadecimal floating input); at most 24 significant digits
 * are used, the rest scale the exponent. */
NUV_API double strtodU16(const NUV_UTF16 *text, NUV_UTF16 **end);
NUV_API double strtodU(const NUV_UTF16 *text, NUV_UTF16 **end);
/* Digits of value in a static buffer that the next call overwrites. */
NUV_API NUV_UTF16 *ecvtU16(int ndigit, int *decpt, int *sign, double value);
NUV_API NUV_UTF16 *ecvtU(int ndigit, int *decpt, int *sign, double value);

/* ======================================================================
 * Formatted input (added by the scanf subsystem)
 * ====================================================================== */
/* Result: assignments made, or -1 when the input ended before any.  %s, %c
 * and %[ store UTF-16 units whatever the length modifier.  A file source is
 * read through fgetcU16 under its lock for the whole call. */
NUV_API int vvfscanf_sU16(const NUV_UTF16 *text, FILE *file, const NUV_UTF16 *format, va_list args);
NUV_API int vvfscanfU16(const NUV_UTF16 *text, FILE *file, const NUV_UTF16 *format, va_list args);
NUV_API int scanfU16(const NUV_UTF16 *format, ...);
NUV_API int scanfU(const NUV_UTF16 *format, ...);
NUV_API int vscanfU16(const NUV_UTF16 *format, va_list args);
NUV_API int fscanfU16(FILE *file, const NUV_UTF16 *format, ...);
NUV_API int fscanfU(FILE *file, const NUV_UTF16 *format, ...);
NUV_API int vfscanfU16(FILE *file, const NUV_UTF16 *format, va_list args);
NUV_API int sscanfU16(const NUV_UTF16 *text, const NUV_UTF16 *format, ...);
NUV_API int sscanfU(const NUV_UTF16 *text, const NUV_UTF16 *format, ...);
NUV_API int vsscanfU16(const NUV_UTF16 *text, const NUV_UTF16 *format, va_list args);

/* ======================================================================
 * Operating-system wrappers (UTF-16 in, UTF-8 to libc, UTF-16 back)
 *
 * Each argument is narrowed into a fixed stack buffer; one that does not fit
 * is reported, errno is ENAMETOOLONG and the call goes ahead with the cut
 * text.  A null argument reaches libc as null.  The U names are the same
 * functions as the U16 names.
 * ====================================================================== */
struct statvfs64;
struct utimbuf;

/* Terminated UTF-16 to terminated UTF-8, each unit by itself (a surrogate
 * pair becomes two three-byte sequences).  Returns the bytes written without
 * the terminator; dstBytes when the buffer filled (no terminator then).  A
 * null dst counts the bytes needed. */
NUV_API size_t U2sToUtf8s(char *dst, const NUV_UTF16 *src, size_t dstBytes);

NUV_API FILE *fopenU16(const NUV_UTF16 *path, const NUV_UTF16 *mode);
NUV_API FILE *fopenU(const NUV_UTF16 *path, const NUV_UTF16 *mode);
NUV_API FILE *fopen64U16(const NUV_UTF16 *path, const NUV_UTF16 *mode);
NUV_API FILE *fopen64U(const NUV_UTF16 *path, const NUV_UTF16 *mode);
NUV_API FILE *freopenU16(const NUV_UTF16 *path, const NUV_UTF16 *mode, FILE *stream);
NUV_API FILE *freopenU(const NUV_UTF16 *path, const NUV_UTF16 *mode, FILE *stream);
NUV_API FILE *fdopenU16(int fd, const NUV_UTF16 *mode);
NUV_API FILE *fdopenU(int fd, const NUV_UTF16 *mode);
/* The permission bits are read only when flags hold O_CREAT. */
NUV_API int openU16(const NUV_UTF16 *path, int flags, ...);
NUV_API int openU(const NUV_UTF16 *path, int flags, ...);
NUV_API int vopenU16(const NUV_UTF16 *path, int flags, va_list args);
NUV_API int vopenU(const NUV_UTF16 *path, int flags, va_list args);
NUV_API int creatU16(const NUV_UTF16 *path, mode_t mode);
NUV_API int creatU(const NUV_UTF16 *path, mode_t mode);

NUV_API int accessU16(const NUV_UTF16 *path, int mode);
NUV_API int accessU(const NUV_UTF16 *path, int mode);
NUV_API int chdirU16(const NUV_UTF16 *path);
NUV_API int chdirU(const NUV_UTF16 *path);
NUV_API int chmodU16(const NUV_UTF16 *path, mode_t mode);
NUV_API int chmodU(const NUV_UTF16 *path, mode_t mode);
NUV_API int chownU16(const NUV_UTF16 *path, uid_t owner, gid_t group);
NUV_API int chownU(const NUV_UTF16 *path, uid_t owner, gid_t group);
NUV_API int linkU16(const NUV_UTF16 *from, const NUV_UTF16 *to);
NUV_API int linkU(const NUV_UTF16 *from, const NUV_UTF16 *to);
NUV_API int symlinkU16(const NUV_UTF16 *target, const NUV_UTF16 *linkpath);
NUV_API int symlinkU(const NUV_UTF16 *target, const NUV_UTF16 *linkpath);
NUV_API int renameU16(const NUV_UTF16 *from, const NUV_UTF16 *to);
NUV_API int renameU(const NUV_UTF16 *from, const NUV_UTF16 *to);
NUV_API int mkdirU16(const NUV_UTF16 *path, mode_t mode);
NUV_API int mkdirU(const NUV_UTF16 *path, mode_t mode);
NUV_API int mkfifoU16(const NUV_UTF16 *path, mode_t mode);
NUV_API int mkfifoU(const NUV_UTF16 *path, mode_t mode);
NUV_API int removeU16(const NUV_UTF16 *path);
NUV_API int removeU(const NUV_UTF16 *path);
NUV_API int rmdirU16(const NUV_UTF16 *path);
NUV_API int rmdirU(const NUV_UTF16 *path);
NUV_API int unlinkU16(const NUV_UTF16 *path);
NUV_API int unlinkU(const NUV_UTF16 *path);
NUV_API int statvfsU16(const NUV_UTF16 *path, struct statvfs64 *buf);
NUV_API int statvfsU(const NUV_UTF16 *path, struct statvfs64 *buf);
NUV_API int utimeU16(const NUV_UTF16 *path, const struct utimbuf *times);
NUV_API int utimeU(const NUV_UTF16 *path, const struct utimbuf *times);
/* Units written into wbuf (terminated), or -1. */
NUV_API ssize_t readlinkU16(const NUV_UTF16 *path, NUV_UTF16 *wbuf, size_t wsize);
NUV_API ssize_t readlinkU(const NUV_UTF16 *path, NUV_UTF16 *wbuf, size_t wsize);
/* With buf null the result is malloc'ed (size units) and the caller frees it;
 * a directory that fills size units is ERANGE. */
NUV_API NUV_UTF16 *getcwdU16(NUV_UTF16 *buf, size_t size);
NUV_API NUV_UTF16 *getcwdU(NUV_UTF16 *buf, size_t size);
NUV_API int mkstempU16(NUV_UTF16 *templ);
NUV_API int mkstempU(NUV_UTF16 *templ);
/* Static results, overwritten by the next call. */
NUV_API NUV_UTF16 *setlocaleU16(int category, const NUV_UTF16 *locale);
NUV_API NUV_UTF16 *setlocaleU(int category, const NUV_UTF16 *locale);
NUV_API NUV_UTF16 *ttynameU16(int fd);
NUV_API NUV_UTF16 *ttynameU(int fd);

/* Command line and environment.  nlsui_initialize binds the character
 * functions and names the profile output; call it and nlsui_store_cmdline
 * at start-up.  Arrays are malloc'ed, closed by a null pointer. */
NUV_API int nlsui_initialize(void);
NUV_API void nlsui_store_cmdline(int argc, NUV_UTF16 **argv);
/* An argument that is not UTF-8 ends the process (status 255). */
NUV_API NUV_UTF16 **nlsui_alloc_wcsar(int argc, char **argv);
/* Entries that are not UTF-8 are left out. */
NUV_API NUV_UTF16 **nlsui_alloc_env(char **envp);
NUV_API NUV_UTF16 **nlsui_getenvironU(void);
NUV_API int nlsui_freeenvironU(NUV_UTF16 **array);
NUV_API char **nlsui_alloc_mbsar(NUV_UTF16 **array);
NUV_API int nlsui_wcsar2mbsar(int count, NUV_UTF16 **wideArray, char **byteArray, size_t *sizes);
/* The value stays valid until 128 further calls; do not free it. */
NUV_API NUV_UTF16 *getenvU16(const NUV_UTF16 *name);
NUV_API NUV_UTF16 *getenvU(const NUV_UTF16 *name);
NUV_API int putenvU16(const NUV_UTF16 *string);
NUV_API int putenvU(const NUV_UTF16 *string);

/* Processes.  The list forms take at most 63 arguments, arg0 included. */
NUV_API int execlU16(const NUV_UTF16 *path, const NUV_UTF16 *arg0, ...);
NUV_API int execlU(const NUV_UTF16 *path, const NUV_UTF16 *arg0, ...);
/* The list is closed by a null pointer and followed by the environment. */
NUV_API int execleU16(const NUV_UTF16 *path, const NUV_UTF16 *arg0, ...);
NUV_API int execleU(const NUV_UTF16 *path, const NUV_UTF16 *arg0, ...);
NUV_API int execlpU16(const NUV_UTF16 *file, const NUV_UTF16 *arg0, ...);
NUV_API int execlpU(const NUV_UTF16 *file, const NUV_UTF16 *arg0, ...);
NUV_API int execvU16(const NUV_UTF16 *path, NUV_UTF16 *const *argv);
NUV_API int execvU(const NUV_UTF16 *path, NUV_UTF16 *const *argv);
NUV_API int execveU16(const NUV_UTF16 *path, NUV_UTF16 *const *argv, NUV_UTF16 *const *envp);
NUV_API int execveU(const NUV_UTF16 *path, NUV_UTF16 *const *argv, NUV_UTF16 *const *envp);
NUV_API int execvpU16(const NUV_UTF16 *file, NUV_UTF16 *const *argv);
NUV_API int execvpU(const NUV_UTF16 *file, NUV_UTF16 *const *argv);
NUV_API int systemU16(const NUV_UTF16 *command);
NUV_API int systemU(const NUV_UTF16 *command);
NUV_API FILE *popenU16(const NUV_UTF16 *command, const NUV_UTF16 *type);
NUV_API FILE *popenU(const NUV_UTF16 *command, const NUV_UTF16 *type);
/* *ahost is a buffer of at least 256 units; it receives the official name. */
NUV_API int rexecU16(NUV_UTF16 **ahost, int port, const NUV_UTF16 *user, const NUV_UTF16 *passwd,
                     const NUV_UTF16 *cmd, int *fd2p);
NUV_API int rexecU(NUV_UTF16 **ahost, int port, const NUV_UTF16 *user, const NUV_UTF16 *passwd,
                   const NUV_UTF16 *cmd, int *fd2p);

/* ======================================================================
 * Records and other system wrappers
 *
 * Records keep libc's field order and numeric types; text fields are UTF-16.
 * Each lookup returns a static record that the next call of the same
 * function overwrites (the three host lookups share one), or null.
 * ====================================================================== */
struct passwdU16 {
  NUV_UTF16 *pw_name;
  NUV_UTF16 *pw_passwd;
  uid_t pw_uid;
  gid_t pw_gid;
  NUV_UTF16 *pw_gecos;
  NUV_UTF16 *pw_dir;
  NUV_UTF16 *pw_shell;
};
struct groupU16 {
  NUV_UTF16 *gr_name;
  NUV_UTF16 *gr_passwd;
  gid_t gr_gid;
  NUV_UTF16 **gr_mem; /* at most 1023 members, closed by null */
};
struct hostentU16 {
  NUV_UTF16 *h_name;
  NUV_UTF16 **h_aliases; /* at most 63, closed by null */
  int h_addrtype;
  int h_length;
  char **h_addr_list; /* bytes as libc gives them; at most 63 */
};
struct serventU16 {
  NUV_UTF16 *s_name;
  NUV_UTF16 **s_aliases; /* at most 63, closed by null */
  int s_port;            /* network order */
  NUV_UTF16 *s_proto;
};
struct direntU16 {
  uint64_t d_ino;
  int64_t d_off;
  unsigned short d_reclen;
  unsigned char d_type;
  NUV_UTF16 d_name[4097];
};
struct utsnameU16 {
  NUV_UTF16 sysname[256];
  NUV_UTF16 nodename[256];
  NUV_UTF16 release[256];
  NUV_UTF16 version[256];
  NUV_UTF16 machine[256];
};
struct tm;
struct __dirstream;
struct __rpc_xdr; /* XDR of libtirpc */

NUV_API struct passwdU16 *getpwnamU16(const NUV_UTF16 *name);
NUV_API struct passwdU16 *getpwnamU(const NUV_UTF16 *name);
NUV_API struct passwdU16 *getpwuidU16(uid_t uid);
NUV_API struct passwdU16 *getpwuidU(uid_t uid);
NUV_API struct groupU16 *getgrgidU16(gid_t gid);
NUV_API struct groupU16 *getgrgidU(gid_t gid);
NUV_API struct hostentU16 *gethostbynameU16(const NUV_UTF16 *name);
NUV_API struct hostentU16 *gethostbynameU(const NUV_UTF16 *name);
NUV_API struct hostentU16 *gethostbyaddrU16(const void *addr, uint32_t len, int type);
NUV_API struct hostentU16 *gethostbyaddrU(const void *addr, uint32_t len, int type);
NUV_API struct hostentU16 *gethostentU16(void);
NUV_API struct hostentU16 *gethostentU(void);
NUV_API struct serventU16 *getservbynameU16(const NUV_UTF16 *name, const NUV_UTF16 *proto);
NUV_API struct serventU16 *getservbynameU(const NUV_UTF16 *name, const NUV_UTF16 *proto);
/* port in network order */
NUV_API struct serventU16 *getservbyportU16(int port, const NUV_UTF16 *proto);
NUV_API struct serventU16 *getservbyportU(int port, const NUV_UTF16 *proto);

/* Time strings: static results (one per function) or the caller's buffer of
 * 256 units; strftimeU16 counts max and its result in units. */
NUV_API NUV_UTF16 *ctimeU16(const time_t *t);
NUV_API NUV_UTF16 *ctimeU(const time_t *t);
NUV_API NUV_UTF16 *asctimeU16(const struct tm *tm);
NUV_API NUV_UTF16 *asctimeU(const struct tm *tm);
NUV_API NUV_UTF16 *ctime_rU16(const time_t *t, NUV_UTF16 *buf);
NUV_API NUV_UTF16 *ctime_rU(const time_t *t, NUV_UTF16 *buf);
NUV_API NUV_UTF16 *asctime_rU16(const struct tm *tm, NUV_UTF16 *buf);
NUV_API NUV_UTF16 *asctime_rU(const struct tm *tm, NUV_UTF16 *buf);
NUV_API size_t strftimeU16(NUV_UTF16 *s, size_t max, const NUV_UTF16 *format, const struct tm *tm);
NUV_API size_t strftimeU(NUV_UTF16 *s, size_t max, const NUV_UTF16 *format, const struct tm *tm);

/* Error texts.  The _r forms return 0, ERANGE (null or short buffer: cut and
 * terminated), EILSEQ (substitute text written) or libc's error number. */
NUV_API NUV_UTF16 *strerrorU16(int errnum);
NUV_API NUV_UTF16 *strerrorU(int errnum);
NUV_API int strerror_rU16(int errnum, NUV_UTF16 *buf, size_t buflen);
NUV_API int strerror_rU(int errnum, NUV_UTF16 *buf, size_t buflen);
NUV_API int strerror_rR(int errnum, char *buf, size_t buflen);
NUV_API void perrorU16(const NUV_UTF16 *text);
NUV_API void perrorU(const NUV_UTF16 *text);

NUV_API int gethostnameU16(NUV_UTF16 *name, size_t units);
NUV_API int gethostnameU(NUV_UTF16 *name, size_t units);
NUV_API int unameU16(struct utsnameU16 *name);
NUV_API int unameU(struct utsnameU16 *name);
NUV_API NUV_UTF16 *getpassU16(const NUV_UTF16 *prompt);
NUV_API NUV_UTF16 *getpassU(const NUV_UTF16 *prompt);

NUV_API void *dlopenU16(const NUV_UTF16 *path, int flags);
NUV_API void *dlopenU(const NUV_UTF16 *path, int flags);
NUV_API void *dlsymU16(void *handle, const NUV_UTF16 *symbol);
NUV_API void *dlsymU(void *handle, const NUV_UTF16 *symbol);
NUV_API NUV_UTF16 *dlerrorU16(void);
NUV_API NUV_UTF16 *dlerrorU(void);

/* Directories: libc's stream (close it with closedir); readdirU16 fills a
 * static entry. */
NUV_API struct __dirstream *opendirU16(const NUV_UTF16 *name);
NUV_API struct __dirstream *opendirU(const NUV_UTF16 *name);
NUV_API struct direntU16 *readdirU16(struct __dirstream *dir);
NUV_API struct direntU16 *readdirU(struct __dirstream *dir);
NUV_API int readdir_rU16(struct __dirstream *dir, struct direntU16 *entry, struct direntU16 **result);
NUV_API int readdir_rU(struct __dirstream *dir, struct direntU16 *entry, struct direntU16 **result);

/* Option parser over UTF-16 arguments; shares optind, opterr and optopt with
 * libc. */
NUV_API extern NUV_UTF16 *optargU;
NUV_API int getoptU16(int argc, NUV_UTF16 *const argv[], const NUV_UTF16 *optstring);
NUV_API int getoptU(int argc, NUV_UTF16 *const argv[], const NUV_UTF16 *optstring);

/* xdr_string over UTF-16; maxsize counts UTF-8 bytes.  libtirpc is opened on
 * the first call; without it the call fails with errno ELIBACC.  Returns
 * libtirpc's bool_t. */
NUV_API int xdr_stringU16(struct __rpc_xdr *xdrs, NUV_UTF16 **sp, unsigned int maxsize);
NUV_API int xdr_stringU(struct __rpc_xdr *xdrs, NUV_UTF16 **sp, unsigned int maxsize);

NUV_EXTERN_C_END

#endif /* NUVU16_H */
