#include "core/status.h"
#include "core/warning_messages.h"

// The numbers of the warning table, five digits each as in the names of the constants that hold the texts.
// clang-format off
#define KESTRUM_WARNING_NUMBERS(ROW) \
  ROW(00001) ROW(00002) ROW(00003) ROW(00010) ROW(00012) ROW(00014) ROW(00020) ROW(00021) \
  ROW(00025) ROW(00026) ROW(00027) ROW(00030) ROW(00031) ROW(00032) ROW(00033) ROW(00034) \
  ROW(00035) ROW(00036) ROW(00038) ROW(00039) ROW(00040) ROW(00041) ROW(00042) ROW(00043) \
  ROW(00044) ROW(00045) ROW(00046) ROW(00049) ROW(00050) ROW(00051) ROW(00055) ROW(00060) \
  ROW(00061) ROW(00062) ROW(00063) ROW(00070) ROW(00071) ROW(00075) ROW(00076) ROW(00077) \
  ROW(00078) ROW(00080) ROW(00085) ROW(00090) ROW(00100) ROW(00111) ROW(00115) ROW(00120) \
  ROW(00143) ROW(00144) ROW(00145) ROW(00146) ROW(00150) ROW(00160) ROW(00210) ROW(00212) \
  ROW(00214) ROW(01010) ROW(01011) ROW(01012) ROW(01013) ROW(01014) ROW(01015) ROW(02001) \
  ROW(02002) ROW(02005) ROW(02012) ROW(02015) ROW(02016) ROW(02020) ROW(05011) ROW(05030) \
  ROW(05044) ROW(05045) ROW(05100) ROW(05101) ROW(05102) ROW(05103) ROW(05104) ROW(05105) \
  ROW(05120) ROW(05125) ROW(05126) ROW(05127) ROW(05130) ROW(05131) ROW(05200) ROW(06830) \
  ROW(06835) ROW(06836) ROW(06837) ROW(06838) ROW(06839) ROW(06840) ROW(08001)
// clang-format on

const char* VORLGetErrorMessage(int code) noexcept {
  switch (code) {
#define KESTRUM_ERROR(number, text) \
  case number:                      \
    return text;
#define KESTRUM_STATUS(number, name, text) KESTRUM_ERROR(number, text)
#include "core/error_messages.inc"
#undef KESTRUM_STATUS
#undef KESTRUM_ERROR
    default:
      return "ERROR: unknown\n";
  }
}

const char* VORLGetWarningMessage(int number) noexcept {
  switch (number) {
// The 1 put in front keeps the leading zeros from making the number octal.
#define KESTRUM_WARNING(digits) \
  case 1##digits - 100000:      \
    return VORL_WARNING_MSG_##digits;
    KESTRUM_WARNING_NUMBERS(KESTRUM_WARNING)
#undef KESTRUM_WARNING
    default:
      return "WARNING: unknown\n";
  }
}

const char* vorl_get_error_message(int code) noexcept { return VORLGetErrorMessage(code); }

const char* vorl_get_warning_message(int number) noexcept { return VORLGetWarningMessage(number); }
