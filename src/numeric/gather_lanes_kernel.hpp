// Gathering from a table: text for numeric/kernel_levels.hpp. The instruction of AVX2 is no faster than single loads.

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
