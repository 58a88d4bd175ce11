// Compiled with -mavx2 (files named *_avx2.cpp); reached only after a CPU check.
#include "string/scan.h"
#include "string/scan_kernels.h"

namespace nuv {
const ScanKernels kScanAvx2 = {k_strlen<V256>, k_strnlen<V256>, k_strchr<V256>, k_strchrnul<V256>, k_memchr<V256>,
                               k_memcmp<V256>};
}
