// Source of the scanf engine: a FILE (through fgetcU16) or a UTF-16 string.
#include "ctype/ctype_tables.h"
#include "scan/scan_engine.h"

void InputStreamCtor(InputStream* s, FILE* file, const NUV_UTF16* text) {
  s->file = file;
  s->text = text;
  s->pushBack = kNoPushBack;
  s->readCount = 0;
  s->endOfInput = 0;
}

// A non-ASCII unit still held here when the call ends is dropped: the FILE
// can only take bytes back, and no state outlives the call.
void InputStreamXtor(InputStream* s) { s->pushBack = kNoPushBack; }

int32_t skipWhiteSpace(InputStream* s, int32_t* unit) {
  int32_t c;
  while ((c = InputStream_readSingleChar(s, unit)) >= 0 && nuv::is_space_unit(c)) {
  }
  return c;
}
