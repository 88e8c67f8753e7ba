#ifndef KESTRUM_IO_NAMES_AHEAD_HPP
#define KESTRUM_IO_NAMES_AHEAD_HPP

#include <cstddef>
#include <cstring>

#include "core/growing_buffer.hpp"
#include "core/text.h"

namespace kestrum {

// The names of variables, as a reader takes them. Very many are read before memory is allocated for them: a header
// that promises more names than there are allocates none, and the status is that of the reading.
class NamesAhead {
 public:
  // take(name) reads the next name into VORL_VARNAME_LENGTH bytes, and gives 0 or its status.
  template <typename Take>
  [[nodiscard]] int Read(std::size_t nvar, const Take& take) noexcept {
    return names_.Append(nvar, [&take](Name* name) noexcept { return take(name->text); });
  }

  // Fills `nvar` names with what has been read ahead, or by reading.
  template <typename Take>
  [[nodiscard]] int Fill(char** names, int nvar, const Take& take) const noexcept {
    for (int v = 0; v < nvar; ++v) {
      const auto i = static_cast<std::size_t>(v);
      if (i < names_.size()) {
        std::memcpy(names[v], names_[i].text, VORL_VARNAME_LENGTH);
      } else if (const int status = take(names[v]); status != 0) {
        return status;
      }
    }
    return 0;
  }

 private:
  struct Name {
    char text[VORL_VARNAME_LENGTH];
  };
  GrowingBuffer<Name> names_;
};

}  // namespace kestrum

#endif
