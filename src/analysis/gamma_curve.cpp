#include "analysis/gamma_curve.hpp"

#include <algorithm>

#include "core/constants.h"

namespace kestrum {

int GammaWork::Allocate(const VORL_GRID& grid) noexcept {
  if (const int status = finder_.Allocate(grid); status != 0) return status;
  return sizes_.Allocate(MaxGeobodies(grid));
}

double GammaWork::Gamma(const real* values, Connectivity connectivity, real lower, real upper,
                        bool complement) noexcept {
  const int count = finder_.Mark(values, IntervalSet{1, &lower, &upper, false, false, complement});
  if (count == 0) return VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY;
  const int ngeobody = finder_.Connect(connectivity);
  std::fill_n(sizes_.data(), ngeobody, 0);
  finder_.ForEachRun([sizes = sizes_.data()](int label, int, int length) { sizes[label - 1] += length; });
  return SumOfSquares(sizes_.data(), ngeobody) / (static_cast<double>(count) * count);
}

double SumOfSquares(const int* sizes, int n) noexcept {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += static_cast<double>(sizes[i]) * sizes[i];
  return sum;
}

}  // namespace kestrum
