#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#define KESTRUM_KERNEL_REGISTERS 16
#include "analysis/two_point_statistics_kernel.hpp"

void kestrum::SumLagsAvx2(TwoPointStatistic statistic, const PairField& field, const int* lag, int count,
                          LagSums* sums) noexcept {
  SumLags(statistic, field, lag, count, sums);
}

#endif
