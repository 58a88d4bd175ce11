// Compiled with AVX-512BW (files named *_avx512.cpp); reached only after a CPU check.
#include "string/scan.h"
#include "string/scan_kernels.h"

namespace nuv {
const ScanKernels kScanAvx512 = {k_strlen<V512>, k_strnlen<V512>, k_strchr<V512>, k_strchrnul<V512>, k_memchr<V512>,
                                 k_memcmp<V512>};
}
