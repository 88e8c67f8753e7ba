#include "numeric/normal_table.hpp"

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
  int low = 0;
  for (int high = kNormalTableSize; high - low > 1;) {
    const int mid = (low + high) / 2;
    if (kNormalTable[mid] > p) {
      high = mid;
    } else {
      low = mid;
    }
  }
  return low;
}

double UpperNormalQuantile(double p) noexcept {
  const int k = NormalTableFloor(p);
  if (k == kLastEntry) return 7.495;
  return ((p - kNormalTable[k]) / (kNormalTable[k + 1] - kNormalTable[k]) + k) * kNormalTableStep;
}

}  // namespace kestrum
