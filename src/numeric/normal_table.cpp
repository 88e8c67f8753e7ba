#include "numeric/normal_table.hpp"

#include <algorithm>
#include <cmath>

namespace kestrum {

const double kNormalTable[kNormalTableSize] = {
#include "numeric/normal_table.inc"
};

namespace {

constexpr int kLastEntry = kNormalTableSize - 1;

}  // namespace

bool IsBeyondNormalTable(double t) noexcept { return !(std::fabs(t) / kNormalTableStep < kLastEntry); }

double NormalCdf(double t) noexcept {
  double upper = kNormalTable[kLastEntry];
  if (!IsBeyondNormalTable(t)) {
    const double position = std::fabs(t) / kNormalTableStep;
    const int i = static_cast<int>(position);
    upper = kNormalTable[i] + (position - i) * (kNormalTable[i + 1] - kNormalTable[i]);
  }
  return t < 0.0 ? 1.0 - upper : upper;
}

int NormalTableFloor(double p) noexcept {
  const double* const second = kNormalTable + 1;
  return static_cast<int>(std::upper_bound(second, kNormalTable + kNormalTableSize, p) - second);
}

double UpperNormalQuantile(double p) noexcept {
  const int k = NormalTableFloor(p);
  if (k == kLastEntry) return kNormalTableEnd;
  return ((p - kNormalTable[k]) / (kNormalTable[k + 1] - kNormalTable[k]) + k) * kNormalTableStep;
}

}  // namespace kestrum
