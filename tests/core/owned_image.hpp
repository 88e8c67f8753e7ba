#ifndef KESTRUM_TESTS_CORE_OWNED_IMAGE_HPP
#define KESTRUM_TESTS_CORE_OWNED_IMAGE_HPP

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/image.h"
#include "support/text_stream.hpp"

constexpr real kMissing = VORL_MISSING_VALUE;

// An image of one row of nodes with the given variables, named a, b, c...
struct OwnedImage : VORL_IMAGE {
  explicit OwnedImage(const std::vector<std::vector<real>>& variables) : VORL_IMAGE{} {
    const int nxyz = static_cast<int>(variables[0].size());
    nvar = static_cast<int>(variables.size());
    nxyzv = nvar * nxyz;
    VORLMallocImage(this, nxyz, nvar);
    *grid = VORL_GRID{nxyz, 1, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, nxyz, nxyz};
    for (int iv = 0; iv < nvar; ++iv) {
      varName[iv][0] = static_cast<char>('a' + iv);
      varName[iv][1] = '\0';
      std::copy(variables[iv].begin(), variables[iv].end(), var + iv * nxyz);
    }
  }
  OwnedImage(const OwnedImage&) = delete;
  ~OwnedImage() { VORLFreeImage(this); }
};

// The status of function(record, arguments...), whatever the record held before; it can be released afterwards.
template <typename Record, auto kFree, typename Function, typename... Arguments>
int MakeFromGarbage(const Function& function, Arguments... arguments) {
  Record made;
  std::memset(&made, 0x55, sizeof(made));
  const int status = function(&made, arguments...);
  kFree(&made);
  return status;
}

// What print(stream) writes.
template <typename Print>
std::string Printed(const Print& print) {
  kestrum_test::TextStream stream;
  print(stream.file);
  return stream.All();
}

#endif
