// Sums of windows: text for numeric/kernel_levels.hpp. Plain loops, for the vector units.

template <typename T>
KESTRUM_KERNEL_INLINE void Add(const T* a, const T* b, std::ptrdiff_t n, T* __restrict sum) {
  for (std::ptrdiff_t i = 0; i < n; ++i) sum[i] = a[i] + b[i];
}

template <typename T>
KESTRUM_KERNEL_INLINE void AddTo(T* __restrict sum, std::ptrdiff_t n, const T* __restrict more) {
  for (std::ptrdiff_t i = 0; i < n; ++i) sum[i] += more[i];
}

template <typename T>
KESTRUM_KERNEL_TARGET void SumAll(const WindowBlock<T>& block) noexcept {
  const auto& [n, lanes, width, values, work, sums] = block;
  T* parts = values;  // sums of `length` values
  T* other = work;
  std::ptrdiff_t done = 0;
  for (std::ptrdiff_t length = 1; length <= width; length *= 2) {
    if (length > 1) {
      Add(parts, parts + length / 2 * lanes, (n - length + 1) * lanes, other);
      std::swap(parts, other);
    }
    if ((width & length) == 0) continue;
    const std::ptrdiff_t size = (n - width + 1) * lanes;
    if (done == 0) {
      std::copy_n(parts, size, sums);
    } else {
      AddTo(sums, size, parts + done * lanes);
    }
    done += length;
  }
}
