#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#define KESTRUM_KERNEL_REGISTERS 32
#include "analysis/two_point_statistics_kernel.hpp"

void kestrum::SumLagsAvx512(TwoPointStatistic statistic, const PairField& field, const int* lag, int count,
                            LagSums* sums) noexcept {
  SumLags(statistic, field, lag, count, sums);
}

#endif
