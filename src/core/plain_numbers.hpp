#ifndef KESTRUM_CORE_PLAIN_NUMBERS_HPP
#define KESTRUM_CORE_PLAIN_NUMBERS_HPP

#include <locale.h>

namespace kestrum {

// While one lives, the functions of the C library print and read numbers in this thread as in the locale "C", with a
// decimal point, whatever locale the program has chosen.
class PlainNumbers {
 public:
  PlainNumbers() noexcept : before_(uselocale(CLocale())) {}
  PlainNumbers(const PlainNumbers&) = delete;
  PlainNumbers& operator=(const PlainNumbers&) = delete;
  ~PlainNumbers() { uselocale(before_); }

 private:
  static locale_t CLocale() noexcept {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
  }

  locale_t before_;
};

}  // namespace kestrum

#endif
