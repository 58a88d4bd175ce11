// Internal side of the command line and environment: the general array
// conversion, the one mutex, and what tests may see of the two tables.
#pragma once

#include <pthread.h>

#include "nuvu16.h"

extern "C" {
// Guards the getenv and putenv tables.
extern pthread_mutex_t nls_mutex;
// kind 0 command line (undecodable text ends the process), 1 environment
// (undecodable entries are left out); any other kind ends the process.
NUV_UTF16** nlsui_alloc_wcsarBase(int count, char* const* array, int kind);
}

namespace nuv::os {

struct EnvTableState {
  int getenv_entries;
  int putenv_entries;
  int putenv_capacity;
};
EnvTableState env_table_state();
// Frees what the tables may free and starts them afresh.
void reset_env_tables_for_tests();

}  // namespace nuv::os
