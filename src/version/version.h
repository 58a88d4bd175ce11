// Version string of the UTF-16 runtime and the file's version records.
// Internal to the library (C linkage, no exported symbol).
#pragma once

#include <cstdint>

#include "nuvu16.h"

extern "C" {

// "@(#) libnuvu16.MMMM.mmmm  <date> <time>"
extern const char nuv_u16_version[];

void getVersionLibu16U16(NUV_UTF16 *buffer, int capacity);
// 0 when this library serves a caller built with callerVersion, else 4.
int checkVersionLibu16U16(const char *callerVersion, int force);

// Version records of the file at path (null: of this library).  1 when
// found; the strings are heap copies the caller frees; the last two
// pointers may be null.
int GetNUVFileVersionEx(const char *path, char **fileVersion, char **productVersion, char **platform,
                        char **specialBuild, int *fileVersionNumber, int *compatibilityLevel);
int GetNUVFileVersion(const char *path, char **fileVersion, char **productVersion, char **platform,
                      char **specialBuild);

}  // extern "C"
