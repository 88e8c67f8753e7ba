// Levels of values: text for numeric/kernel_levels.hpp.

template <bool above>
KESTRUM_KERNEL_INLINE void CountThresholdsOf(const double* values, int n, const double* thresholds,
                                             unsigned char* levels) noexcept {
  constexpr int kVectors = 4;
  for (int first = 0; first < kLevelBlock; first += kVectors * kWidth) {
    Integers count[kVectors] = {};
    for (int k = 0; k < n; ++k) {
      const Vector threshold = Broadcast<Vector>(thresholds[k]);
      for (int j = 0; j < kVectors; ++j) {
        const Vector x = Load<Vector>(values + first + j * kWidth);
        count[j] -= above ? x > threshold : x <= threshold;
      }
    }
    for (int i = 0; i < kVectors * kWidth; ++i)
      levels[first + i] = static_cast<unsigned char>(count[i / kWidth][i % kWidth]);
  }
}

KESTRUM_KERNEL_TARGET void CountThresholds(const double* values, int n, const double* thresholds, bool above,
                                           unsigned char* levels) noexcept {
  above ? CountThresholdsOf<true>(values, n, thresholds, levels)
        : CountThresholdsOf<false>(values, n, thresholds, levels);
}
