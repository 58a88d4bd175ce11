#include "string/scan.h"
#include "string/scan_kernels.h"

namespace nuv {
const ScanKernels kScanSse2 = {k_strlen<V128>, k_strnlen<V128>, k_strchr<V128>, k_strchrnul<V128>, k_memchr<V128>,
                               k_memcmp<V128>};
}
