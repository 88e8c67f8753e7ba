#ifndef KESTRUM_ANALYSIS_GAMMA_CURVE_HPP
#define KESTRUM_ANALYSIS_GAMMA_CURVE_HPP

#include <cstddef>

#include "analysis/geobodies.hpp"
#include "analysis/percent_printer.hpp"
#include "core/buffer.hpp"
#include "core/object_array.hpp"
#include "core/parallel.hpp"

namespace kestrum {

// Computes a curve: entry(work, i) for i from 0 to n - 1, with lines of progress. Thread t takes i = t, t + team, and
// so on, with a Work of its own. All memory is allocated before the first entry.
// Returns 0 or the status of a failing allocation, -3 with fewer than one thread.
template <typename Work, typename Entry>
[[nodiscard]] int ComputeCurve(const VORL_GRID& grid, int n, PercentPrinter percent, Dealing dealing,
                               const Entry& entry) noexcept {
  ObjectArray<Work> works;
  if (const int status = works.Allocate(dealing.nscratch()); status != 0) return status;
  for (Work& work : works) {
    if (const int status = work.Allocate(grid); status != 0) return status;
  }
  percent.Start();
  dealing.EachThread([&](int thread, int team) {
    for (std::ptrdiff_t next = thread; next < n; next += team) {
      const int i = static_cast<int>(next);
      if (thread == 0) percent.Report(static_cast<int>(100.0 * (1.0 / n) * i));
      entry(works[static_cast<std::size_t>(thread)], i);
    }
  });
  percent.Finish();
  return 0;
}

// Sum of the squared sizes of geobodies, in the order of the geobodies.
double SumOfSquares(const int* sizes, int n) noexcept;

// The work of one thread on a curve of Gamma.
class GammaWork {
 public:
  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept;

  // Gamma of the geobodies of the nodes with values in [lower, upper], or of the other informed nodes.
  double Gamma(const real* values, Connectivity connectivity, real lower, real upper, bool complement) noexcept;

 private:
  GeobodyFinder finder_;
  Buffer<int> sizes_;
};

// The curves of Gamma of the nodes with values in [lowest, t] and of the other informed nodes. t is thresholdAt(i) for
// entry i; it is called once for each, in order if the dealing is serial.
//   values  one variable on the grid
//   thresholds, gamma, gammaComplement  out; n entries each
// Returns as ComputeCurve.
template <typename ThresholdAt>
[[nodiscard]] int GammaCurve(const VORL_GRID& grid, const real* values, Connectivity connectivity, int n, real lowest,
                             const ThresholdAt& thresholdAt, real* thresholds, real* gamma, real* gammaComplement,
                             bool verbose, Dealing dealing) noexcept {
  return ComputeCurve<GammaWork>(grid, n, PercentPrinter(verbose, "Computing Gamma curves"), dealing,
                                 [&](GammaWork& work, int i) {
                                   const real t = thresholdAt(i);
                                   thresholds[i] = t;
                                   gamma[i] = work.Gamma(values, connectivity, lowest, t, false);
                                   gammaComplement[i] = work.Gamma(values, connectivity, lowest, t, true);
                                 });
}

}  // namespace kestrum

#endif
