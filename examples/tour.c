/* A short tour of libnuvucum from C: UTF-16 strings, bounded copies and a
 * trace report.  Run by `make run`; the data folder holds the sample files. */
#include <stdio.h>
#include <string.h>

#include <nuvu16.h>

/* C has no u"" literals in C99: build UTF-16 text from ASCII. */
static void from_ascii(NUV_UTF16 *dst, const char *src) {
  while ((*dst++ = (unsigned char)*src++) != 0) {
  }
}

static void show(const char *label, const NUV_UTF16 *s) {
  long len = strlenU(s);
  printf("%-22s \"", label);
  for (; *s; ++s) {
    if (*s < 0x80)
      putchar((int)*s);
    else
      printf("\\u%04X", (unsigned)*s);
  }
  printf("\" (%ld units)\n", len);
}

static int trace_to_stdout(const char *text, int length) {
  return printf("  trace| %.*s\n", length, text);
}

int main(int argc, char **argv) {
  NUV_UTF16 text[64], word[16], copy[8], tokens[64];
  NUV_UTF16 *tok, *saved = NULL;
  (void)argc;
  (void)argv;

  from_ascii(text, "Stra");
  text[4] = 0x00DF; /* sharp s */
  text[5] = 0x0065;
  text[6] = 0;
  show("text", text);
  from_ascii(word, "Caf");
  word[3] = 0x00E9;
  word[4] = 0;
  strcatU(text, word);
  show("after strcatU", text);
  printf("%-22s %d\n", "strchrU(0xDF) at", (int)(strchrU(text, 0xDF) - text));
  printf("%-22s %d\n", "strcmpU(text, word)", strcmpU(text, word) > 0);

  printf("%-22s %d\n", "strcpy_sU16 rc", strcpy_sU16(copy, 8, text));
  show("copy after ERANGE", copy);
  printf("%-22s %d\n", "strncpy_sU16 rc", strncpy_sU16(copy, 8, text, 20));
  show("truncated copy", copy);

  from_ascii(tokens, "alpha, beta,,gamma");
  from_ascii(word, ", ");
  for (tok = strtok_rU(tokens, word, &saved); tok; tok = strtok_rU(NULL, word, &saved)) show("token", tok);

  printf("\nA trace report, through a hook of this program:\n");
  u16_set_cmdline("tour");
  u16_set_trace(trace_to_stdout, U16_TRACE_LOW);
  u16_array_short("MAX_PATH_LN", "fopenU16", "pathC", "examples/tour", __LINE__);
  u16_rawDump("libnuvucum dump\n", 16);
  return 0;
}
