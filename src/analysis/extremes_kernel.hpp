// The least and the greatest of values: text for numeric/kernel_levels.hpp.

// kWidth values as doubles.
template <typename T>
KESTRUM_KERNEL_INLINE Vector LoadDoubles(const T* from) {
  if constexpr (std::is_same_v<T, double>) {
    return Load<Vector>(from);
  } else {
    typedef T Narrow __attribute__((vector_size(kWidth * sizeof(T))));
    Narrow values;
    __builtin_memcpy(&values, from, sizeof values);
    return __builtin_convertvector(values, Vector);
  }
}

template <typename T>
KESTRUM_KERNEL_TARGET void WidenExtremes(std::ptrdiff_t n, const T* values, Extremes* found) noexcept {
  const auto take = [&](double low, double high) {
    if (low < found->least) found->least = low;
    if (high > found->greatest) found->greatest = high;
  };
  std::ptrdiff_t i = 0;
  if constexpr (std::is_integral_v<T>) {
    T least = std::numeric_limits<T>::max(), greatest = std::numeric_limits<T>::lowest();
    for (; i < n; ++i) {
      least = values[i] < least ? values[i] : least;
      greatest = values[i] > greatest ? values[i] : greatest;
    }
    if (n > 0) take(least, greatest);
  } else {
    // Several at a time: each comparison waits for the one before.
    constexpr int kChains = 4;
    Vector least[kChains], greatest[kChains];
    for (int c = 0; c < kChains; ++c) {
      least[c] = Broadcast<Vector>(found->least);
      greatest[c] = Broadcast<Vector>(found->greatest);
    }
    for (; i + kChains * kWidth <= n; i += kChains * kWidth) {
      FetchAhead<kChains * kWidth>(values + i);
      for (int c = 0; c < kChains; ++c) {
        const Vector x = LoadDoubles(values + i + c * kWidth);
        least[c] = x < least[c] ? x : least[c];
        greatest[c] = x > greatest[c] ? x : greatest[c];
      }
    }
    for (int c = 0; c < kChains; ++c) {
      for (int k = 0; k < kWidth; ++k) take(least[c][k], greatest[c][k]);
    }
    for (; i < n; ++i) take(static_cast<double>(values[i]), static_cast<double>(values[i]));
  }
}
