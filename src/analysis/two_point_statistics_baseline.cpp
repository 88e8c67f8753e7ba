#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#define KESTRUM_KERNEL_REGISTERS 16
#include "analysis/two_point_statistics_kernel.hpp"

void kestrum::SumLagsBaseline(TwoPointStatistic statistic, const PairField& field, const int* lag, int count,
                              LagSums* sums) noexcept {
  SumLags(statistic, field, lag, count, sums);
}
