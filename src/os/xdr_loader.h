// Test hook of xdr_stringU16: open another file instead of libtirpc on the
// next call (a missing one shows the failure path).
#pragma once

void nuv_xdr_library_for_tests(const char* name);
