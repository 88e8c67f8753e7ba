// Gathering from a table: text for numeric/kernel_levels.hpp. In Gather the instruction of AVX2 is no faster than single loads.

KESTRUM_KERNEL_TARGET void Gather(int n, const double* table, const int* start, const int* position,
                                  double* out) noexcept {
#if KESTRUM_KERNEL_BYTES == 64
  const __m256i first = _mm256_loadu_si256((const __m256i*)start);
  for (int i = 0; i < n * kLanes; i += kLanes) {
    const __m256i index = _mm256_add_epi32(first, _mm256_loadu_si256((const __m256i*)(position + i)));
    Store(out + i, (Vector)_mm512_mask_i32gather_pd(_mm512_setzero_pd(), 0xff, index, table, sizeof(double)));
  }
#else
  for (int i = 0; i < n * kLanes; i += kLanes) {
    for (int lane = 0; lane < kLanes; ++lane) out[i + lane] = table[start[lane] + position[i + lane]];
  }
#endif
}

KESTRUM_KERNEL_TARGET bool GatherSymmetric(int n, const double* table, double missing, const int* from, const int* to,
                                           double* row, std::ptrdiff_t stride, double* column,
                                           std::ptrdiff_t step) noexcept {
#if KESTRUM_KERNEL_BYTES == 64
  const __m256i first = _mm256_loadu_si256((const __m256i*)from);
  const Vector none = Broadcast<Vector>(missing);
  Integers found = Integers{};
  for (int i = 0; i < n; ++i, row += stride, to += kLanes, column += step) {
    const __m256i index = _mm256_abs_epi32(_mm256_sub_epi32(_mm256_loadu_si256((const __m256i*)to), first));
    const Vector value = (Vector)_mm512_mask_i32gather_pd(_mm512_setzero_pd(), 0xff, index, table, sizeof(double));
    found |= value == none;
    Store(row, value);
    Store(column, value);
  }
  return _mm512_test_epi64_mask((__m512i)found, (__m512i)found) == 0;
#elif KESTRUM_KERNEL_BYTES == 32
  const __m256i first = _mm256_loadu_si256((const __m256i*)from);
  const Vector none = Broadcast<Vector>(missing);
  const __m256d all = _mm256_castsi256_pd(_mm256_set1_epi32(-1));
  Integers found = Integers{};
  for (int i = 0; i < n; ++i, row += stride, to += kLanes, column += step) {
    const __m256i index = _mm256_abs_epi32(_mm256_sub_epi32(_mm256_loadu_si256((const __m256i*)to), first));
    for (int half = 0; half < 2; ++half) {
      const __m128i some = half == 0 ? _mm256_castsi256_si128(index) : _mm256_extracti128_si256(index, 1);
      // Unmasked, the intrinsic reads a variable that is not set.
      const Vector value = (Vector)_mm256_mask_i32gather_pd(_mm256_setzero_pd(), table, some, all, sizeof(double));
      found |= value == none;
      Store(row + half * kWidth, value);
      Store(column + half * kWidth, value);
    }
  }
  return _mm256_testz_si256((__m256i)found, (__m256i)found) != 0;
#else
  int found = 0;
  for (int i = 0; i < n; ++i, row += stride, to += kLanes, column += step) {
    for (int lane = 0; lane < kLanes; ++lane) {
      // Without a branch: signs cannot be predicted.
      const int difference = to[lane] - from[lane];
      const int sign = difference >> 31;
      __atomic_load(table + ((difference ^ sign) - sign), row + lane, __ATOMIC_RELAXED);
      found |= row[lane] == missing ? 1 : 0;
      column[lane] = row[lane];
    }
  }
  return found == 0;
#endif
}
