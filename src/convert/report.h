// Report sites of the converters: each site passes its component's id
// string, its own error number, the historic source line and a message.
#pragma once

#include "convert/converters.h"

namespace nuv::rscp {

struct Site {
  int32_t err;  // 0: no report site here (the routine tolerates the case)
  int32_t line;
  const char16_t* msg;
};

// Calls the current hook with the fixed frame of arguments.
rscpStatus report(rscpStatus status, const char16_t* id, const Site& site);

// Identification strings of the components (from the "$Id:" on).
inline constexpr char16_t kIdU86r[] = u"$Id: krn/rscp/rscpu86r.c  UTF-8 to UTF-16  NOT thread safe $";
inline constexpr char16_t kIdU86w[] = u"$Id: krn/rscp/rscpu86w.c  UTF-16 to UTF-8  NOT thread safe $";
inline constexpr char16_t kIdU82r[] = u"$Id: krn/rscp/rscpu82r.c  UTF-8 to UCS-2  NOT thread safe $";
inline constexpr char16_t kIdU82w[] = u"$Id: krn/rscp/rscpu82w.c  UCS-2 to UTF-8  NOT thread safe $";
inline constexpr char16_t kIdU84r[] = u"$Id: krn/rscp/rscpu84r.c  UTF-8 to UCS-4  NOT thread safe $";
inline constexpr char16_t kIdU84w[] = u"$Id: krn/rscp/rscpu84w.c  UCS-4 to UTF-8  NOT thread safe $";
inline constexpr char16_t kIdU46r[] = u"$Id: krn/rscp/rscpu46r.c  UCS-4 and UTF-16  NOT thread safe $";
inline constexpr char16_t kIdU66r[] = u"$Id: krn/rscp/rscpu66r.c  UTF-16 copy  NOT thread safe $";

// Message texts, exactly as the converters have always passed them.
inline constexpr char16_t kMsgOverflow[] = u"dest buffer overflow";
inline constexpr char16_t kMsgExhaustedChar[] = u"source exhausted within a char";
inline constexpr char16_t kMsgExhausted[] = u"source exhausted";
inline constexpr char16_t kMsgStartByte[] = u"illegal start byte";
inline constexpr char16_t kMsgFollowUp[] = u"illegal follow-up byte";
inline constexpr char16_t kMsgOverlong[] = u"overlong UTF-8 sequence";
inline constexpr char16_t kMsgSurrogate[] = u"surrogate area";
inline constexpr char16_t kMsgBeyondUtf32[] = u"UTF-8 beyond UTF-32";
inline constexpr char16_t kMsgBejondUtf32[] = u"UTF-8 bejond UTF-32";
inline constexpr char16_t kMsgBejondUcs2[] = u"UTF-8 bejond UCS-2";
inline constexpr char16_t kMsgBejondUcs4[] = u"UTF-8 bejond UCS-4";
inline constexpr char16_t kMsgControlsHere[] = u"control codes not allowed here";
inline constexpr char16_t kMsgControl[] = u"control code not allowed";
inline constexpr char16_t kMsgHalfAtEnd[] = u"Half surrogate at end";
inline constexpr char16_t kMsgHalfAtEndLower[] = u"half surrogate at end";
inline constexpr char16_t kMsgHalfMiddle[] = u"Half surrogate in middle";
inline constexpr char16_t kMsgHalfLowMiddle[] = u"Half low surrogate in middle";
inline constexpr char16_t kMsgUcs4Bits[] = u"UCS-4 has only 31 bits.";

inline constexpr Site kNoSite{0, 0, nullptr};

}  // namespace nuv::rscp
