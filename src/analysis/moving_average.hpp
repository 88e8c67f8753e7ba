#ifndef KESTRUM_ANALYSIS_MOVING_AVERAGE_HPP
#define KESTRUM_ANALYSIS_MOVING_AVERAGE_HPP

#include "core/parallel.hpp"

namespace kestrum {

struct AxisKernel {
  int length;
  const double* weight;
};

// VORLMovingBoxSum with the kernels of one instruction set, which must run on this machine.
[[nodiscard]] int MovingBoxSum(int nx, int ny, int nz, int nvar, const AxisKernel& x, const AxisKernel& y,
                               const AxisKernel& z, const double* input, double* output, double minWeightProportion,
                               const Dealing& dealing) noexcept;

}  // namespace kestrum

#endif
