#ifndef KESTRUM_TESTS_CORE_OWNED_IMAGE_HPP
#define KESTRUM_TESTS_CORE_OWNED_IMAGE_HPP

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_image.hpp"
#include "support/text_stream.hpp"

constexpr real kMissing = VORL_MISSING_VALUE;

// An image of one row of nodes with the given variables, named a, b, c...
struct OwnedImage : kestrum_test::TestImage {
  explicit OwnedImage(const std::vector<std::vector<real>>& variables)
      : TestImage(kestrum_test::Grid(static_cast<int>(variables[0].size()), 1, 1), Names(variables.size()), {0.0}) {
    for (std::size_t v = 0; v < variables.size(); ++v) {
      std::copy(variables[v].begin(), variables[v].end(), var + v * variables[v].size());
    }
  }
  static std::vector<std::string> Names(std::size_t n) {
    std::vector<std::string> names;
    for (std::size_t v = 0; v < n; ++v) names.emplace_back(1, static_cast<char>('a' + v));
    return names;
  }
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

#endif
