// The ring of 40 result buffers behind the Vola and Overlap forms.  A slot
// grows when asked for more than it holds and is never shrunk or freed, so a
// result stays valid until 40 further requests.
#include <cstdlib>

#include "convert/converters.h"

namespace {
constexpr int kSlots = 40;
struct Slot {
  void* buf;
  int32_t capacity;  // bytes
};
Slot g_ring[kSlots];
int g_next = 0;
}  // namespace

extern "C" void* rscpuc_next_buff(int32_t size) {
  Slot& slot = g_ring[g_next];
  g_next = g_next + 1 < kSlots ? g_next + 1 : 0;
  if (slot.capacity < size) {
    std::free(slot.buf);
    slot.buf = std::malloc(static_cast<std::size_t>(size));
    if (!slot.buf) std::abort();
    slot.capacity = size;
  }
  return slot.buf;
}
