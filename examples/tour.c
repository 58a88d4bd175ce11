/* A short tour of libnuvucum from C: UTF-16 strings, bounded copies, a
 * trace report, files, the command line, the environment and a child.  Run by `make run`; the data folder holds the sample files. */
#define _GNU_SOURCE /* mkdtemp, fork */
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

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

/* Reads the UTF-8 sample as UTF-16 lines, upper-cases them through the
 * ICU-bound case mapping, writes them back as UTF-8 with fprintfU16 and
 * parses numbers with sscanfU16 and strtodU16. */
static int read_and_report(const char *dir) {
  char path[4096];
  NUV_UTF16 line[256], fmt[64], spec[64], name[32], *end;
  FILE *in, *out;
  int lines = 0, letters = 0, qty = 0;
  long units = 0;
  double price = 0;

  snprintf(path, sizeof path, "%s/greetings-utf8.txt", dir);
  in = fopen(path, "r");
  if (!in) {
    perror(path);
    return 1;
  }
  out = stdout;
  printf("\nThe greetings sample read as UTF-16, upper-cased, written back as UTF-8:\n");
  from_ascii(fmt, "  %2d %4d| %s");
  while (fgetsU16(line, 256, in)) {
    NUV_UTF16 *p;
    ++lines;
    units += strlenU(line);
    for (p = line; *p; ++p) letters += isalphaU(*p) != 0;
    if (lines == 1) continue; /* the title */
    strtoupperU16(line);
    fprintfU16(out, fmt, lines, (int)strlenU(line), line);
    for (p = line; *p; ++p)
      if (*p >= 0xD800 && *p <= 0xDFFF) {
        /* The block writer never pairs surrogates: from the first one on,
         * the rest of that write comes out as "#". */
        printf("\n       (surrogates: the rest of that write became \"#\")\n");
        break;
      }
  }
  fclose(in);
  from_ascii(fmt, "  %d lines, %ld UTF-16 units, %d letters\n");
  printfU16(fmt, lines, units, letters);

  from_ascii(spec, "item=widget qty=12 price=3.50");
  from_ascii(fmt, "item=%31s qty=%d price=%lf");
  if (sscanfU16(spec, fmt, name, &qty, &price) == 3) {
    from_ascii(fmt, "  sscanfU16: %s x %d at %.2f = %08.3f\n");
    printfU16(fmt, name, qty, price, qty * price);
  }
  from_ascii(spec, "  6.02214076e23 mol");
  price = strtodU16(spec, &end);
  from_ascii(fmt, "  strtodU16: %g, stopped at \"%s\"\n");
  printfU16(fmt, price, end);
  fflush(stdout);
  return 0;
}


/* UTF-8 texts to a UTF-16 array (the call start-up uses for argv). */
static NUV_UTF16 **wide(int n, const char **texts) { return nlsui_alloc_wcsar(n, (char **)texts); }

/* The operating-system wrappers: arguments and environment as UTF-16,
 * files with non-ASCII names, and a child started with UTF-16 arguments. */
static int os_tour(int argc, char **argv) {
  static const char *texts[] = {"%s\n", "    %s\n", "TOUR_GREETING=Gr\xC3\xBC\xC3\x9F" "e aus K\xC3\xB6ln",
                                "TOUR_GREETING", "/Gr\xC3\xBC\xC3\x9F" "e-\xE6\x97\xA5\xE6\x9C\xAC.txt",
                                "/\xC3\x9Cn\xC3\xAF" "c\xC3\xB6" "d\xC3\xA9.txt", "w", "ok\n", "printf",
                                "  child got: [%s] [%s]\\n", "Gr\xC3\xBC\xC3\x9F" "e", "\xE6\x97\xA5\xE6\x9C\xAC"};
  NUV_UTF16 **t = wide(12, texts), **args, **name;
  NUV_UTF16 *value, *child[5];
  NUV_UTF16 first[512], second[512], dir16[256];
  char dir[] = "/tmp/nuvtour.XXXXXX";
  const char *dirp[1];
  struct dirent *e;
  DIR *d;
  FILE *f;
  pid_t pid;
  int i, status = 0;

  printf("\nOperating-system wrappers:\n");
  nlsui_initialize();
  args = nlsui_alloc_wcsar(argc, argv);
  nlsui_store_cmdline(argc, args);
  printf("  the command line as the trace keeps it: \"%s\"\n", u16_cmdline);
  printf("  the arguments as UTF-16, printed back:\n");
  for (i = 0; args[i]; ++i) printfU16(t[1], args[i]);
  nlsui_freeenvironU(args);

  putenvU16(t[2]);
  value = getenvU16(t[3]);
  printf("  getenvU16(TOUR_GREETING): ");
  printfU16(t[0], value);

  if (!mkdtemp(dir)) return 1;
  dirp[0] = dir;
  name = wide(1, dirp);
  strcpyU16(dir16, name[0]);
  nlsui_freeenvironU(name);
  strcpyU16(first, dir16);
  strcatU16(first, t[4]);
  strcpyU16(second, dir16);
  strcatU16(second, t[5]);
  f = fopenU16(first, t[6]);
  if (!f) return 1;
  fputsU16(t[7], f);
  fclose(f);
  printf("  created, renamed (%d), listed with the narrow readdir:\n", renameU16(first, second));
  d = opendir(dir);
  while (d && (e = readdir(d)) != NULL) {
    const char *entry = e->d_name;
    if (entry[0] == '.') continue;
    name = wide(1, &entry);
    printfU16(t[1], name[0]);
    nlsui_freeenvironU(name);
  }
  if (d) closedir(d);
  i = removeU16(second);
  printf("  removed (%d), folder removed (%d)\n", i, rmdirU16(dir16));

  child[0] = t[8];
  child[1] = t[9];
  child[2] = t[10];
  child[3] = t[11];
  child[4] = NULL;
  fflush(stdout);
  pid = fork();
  if (pid == 0) {
    execvpU16(t[8], child);
    _exit(127);
  }
  waitpid(pid, &status, 0);
  nlsui_freeenvironU(t);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

/* The user's own password record, the system's name, and a directory
 * listing of files this tour creates with non-ASCII names. */
static void records_and_listing(void) {
  static const NUV_UTF16 names[3][8] = {
      {'G', 'r', 0x00FC, 0x00DF, 'e', 0},       /* Gruesse with umlaut and sharp s */
      {0x65E5, 0x672C, '.', 't', 'x', 't', 0}, /* two CJK ideographs */
      {'c', 'a', 'f', 0x00E9, 0}};
  struct passwdU16 *pw = getpwuidU(getuid());
  struct utsnameU16 un;
  struct direntU16 *e;
  struct __dirstream *dir;
  char cdir[] = "/tmp/nuvtour.XXXXXX";
  NUV_UTF16 wdir[64], path[128], slash[2] = {'/', 0};
  int i, fd;

  printf("\nThe user's own record and a directory listing:\n");
  if (pw) {
    show("pw_name", pw->pw_name);
    show("pw_dir", pw->pw_dir);
    show("pw_shell", pw->pw_shell);
  }
  if (unameU(&un) == 0) show("uname sysname", un.sysname);
  if (!mkdtemp(cdir)) return;
  from_ascii(wdir, cdir);
  for (i = 0; i < 3; ++i) {
    strcpyU(path, wdir);
    strcatU(path, slash);
    strcatU(path, names[i]);
    fd = creatU(path, 0600);
    if (fd >= 0) close(fd);
  }
  dir = opendirU(wdir);
  if (dir) {
    while ((e = readdirU(dir)) != NULL)
      if (e->d_name[0] != '.') show("readdirU", e->d_name);
    closedir(dir);
  }
  for (i = 0; i < 3; ++i) {
    strcpyU(path, wdir);
    strcatU(path, slash);
    strcatU(path, names[i]);
    unlinkU(path);
  }
  rmdirU(wdir);
}

int main(int argc, char **argv) {
  NUV_UTF16 text[64], word[16], copy[8], tokens[64];
  NUV_UTF16 *tok, *saved = NULL;

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
  u16_set_trace(NULL, U16_TRACE_MEDIUM);

  if (os_tour(argc, argv) != 0) return 1;
  records_and_listing();
  return argc > 1 ? read_and_report(argv[1]) : 0;
}
