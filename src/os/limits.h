// Named buffer limits of the operating-system wrappers.  The name is part of
// the interface: it is the first argument of every "array too short" report.
// Sizes are bytes for UTF-8 buffers and units for UTF-16 buffers.
#pragma once

#include <cstddef>

namespace nuv::lim {

struct Limit {
  std::size_t size;
  const char* name;
};

inline constexpr Limit MAX_PATH_LN{4097, "MAX_PATH_LN"};
inline constexpr Limit MAX_MODE_LN{64, "MAX_MODE_LN"};
inline constexpr Limit MAX_FILENAME_LN{512, "MAX_FILENAME_LN"};
inline constexpr Limit MAX_COMMAND_LN{2048, "MAX_COMMAND_LN"};
inline constexpr Limit MAX_ENV_LN{256, "MAX_ENV_LN"};
inline constexpr Limit MAX_LOCALE_LN{256, "MAX_LOCALE_LN"};
inline constexpr Limit MAX_TIMESTR_LN{256, "MAX_TIMESTR_LN"};
inline constexpr Limit MAX_FORMATSTR_LN{256, "MAX_FORMATSTR_LN"};
inline constexpr Limit MAX_ERROR_LN{512, "MAX_ERROR_LN"};
inline constexpr Limit MAX_DB_ERROR_LN{5120, "MAX_DB_ERROR_LN"};
inline constexpr Limit MAX_SYM_LN{256, "MAX_SYM_LN"};
inline constexpr Limit MAX_HOSTNAME_LN{256, "MAX_HOSTNAME_LN"};
inline constexpr Limit MAX_USER_NAME_LN{128, "MAX_USER_NAME_LN"};
inline constexpr Limit MAX_PASSWD_LN{256, "MAX_PASSWD_LN"};
inline constexpr Limit MAX_PROMPT_LN{64, "MAX_PROMPT_LN"};
inline constexpr Limit MAX_PWNAME_LN{1024, "MAX_PWNAME_LN"};
inline constexpr Limit MAX_PWPASSWD_LN{1024, "MAX_PWPASSWD_LN"};
inline constexpr Limit MAX_PWGECOS_LN{1024, "MAX_PWGECOS_LN"};
inline constexpr Limit MAX_PWSHELL_LN{1024, "MAX_PWSHELL_LN"};
inline constexpr Limit MAX_PWDIR_LN{4097, "MAX_PWDIR_LN"};
inline constexpr Limit MAX_GRNAME_LN{64, "MAX_GRNAME_LN"};
inline constexpr Limit MAX_GRPASSWD_LN{64, "MAX_GRPASSWD_LN"};
inline constexpr Limit MAX_GRMEM_LN{64, "MAX_GRMEM_LN"};
inline constexpr Limit MAX_SERVNAME_LN{32, "MAX_SERVNAME_LN"};
inline constexpr Limit MAX_SERVPROTONAME_LN{8, "MAX_SERVPROTONAME_LN"};
inline constexpr Limit NUV_SYS_NMLN{256, "NUV_SYS_NMLN"};
// Argument slots of the list forms of exec, the last kept for the null.
inline constexpr Limit MAX_PARAM_NUMBER{64, "MAX_PARAM_NUMBER"};

}  // namespace nuv::lim
