#include "numeric/cholesky.hpp"

#include <algorithm>

#include "core/step_items.hpp"
#include "numeric/cholesky_layout.hpp"

namespace kestrum {
namespace {

// Columns that are taken at a time: with them as many rows of two blocks of right sides fit the first level of cache,
// and as many rows of L the second.
constexpr int kChunk = 128;
// Panels of a factorisation that one thread takes at a time.
constexpr int kGroup = 8;

// A system to factorise, of n data among `size` rows.
struct DenseSystem {
  int n;
  int size;
  double* panels;
  double* inversePivots;
  SystemFlaws* flaws;
  double rounding;  // a pivot this small, relative to its diagonal element, may be nothing but rounding
};

// Whether the pivots of the drift are above rounding. That of a column is its diagonal element of the Schur complement, less
// what the columns before it account for: w[j] times column j, so that errors of the elements of column j count w[j]^2 times.
//   extents   out: the columns' sums of these, 3 * q numbers in all
bool DetermineDrift(const DenseSystem& system, int q, double* extents) noexcept {
  const int n = system.n;
  const auto l = [&system](int i, int j) noexcept { return system.panels[Place(i, j)]; };
  double* const whole = extents + q;
  double* const w = whole + q;
  for (int i = 0; i < q; ++i) {
    whole[i] = 0.0;
    for (int k = 0; k < n; ++k) {
      if (system.inversePivots[k] != 0.0) whole[i] += l(n + i, k) * (l(n + i, k) / system.inversePivots[k]);
    }
    extents[i] = whole[i];
    for (int j = i - 1; j >= 0; --j) {
      w[j] = l(n + i, n + j);
      for (int k = j + 1; k < i; ++k) w[j] -= l(n + k, n + j) * w[k];
      extents[i] += w[j] * (w[j] * whole[j]);
    }
    if (!(-1.0 / system.inversePivots[n + i] > system.rounding * extents[i])) return false;
  }
  return true;
}

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "numeric/cholesky_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

std::size_t FactorSize(int n, int q) noexcept {
  // With three numbers for each drift column, in whole vectors.
  return static_cast<std::size_t>(DriftExtentsStart(n + q) + Panels(3 * q) * kLanes);
}

void SetFactorRow(int n, int i, const double* row, double* factor) noexcept {
  for (int j = 0; j <= i; ++j) factor[Place(i, j)] = j < n ? row[j] : 0.0;
}

bool Factorise(const Dealing& dealing, int n, int q, double* factor, SimdLevel level, SystemFlaws* flaws,
               const Progress& progress) noexcept {
  if (progress.Aborted()) return false;
  const int size = n + q;
  const int panels = static_cast<int>(Panels(size));
  double* const inverse = factor + InversePivotsStart(size);
  const DenseSystem system{n, size, factor, inverse, flaws, PivotRounding(size)};
  for (int i = 0; i < panels * kLanes; ++i) {
    inverse[i] = i < size ? factor[Place(i, i)] : 0.0;
    // No row of L reaches beyond its diagonal, and no row of a panel beyond the last.
    const int first = i < size ? i + 1 : 0;
    for (int j = first; j < (i / kLanes + 1) * kLanes; ++j) factor[Place(i, j)] = 0.0;
  }
  StepItems items(progress);
  dealing.EachThread([&](int /*thread*/, int /*team*/) noexcept {
    StepItems::Worker worker(items);
    for (int begin = 0; begin < size; begin += kChunk) {
      const int end = std::min(begin + kChunk, size);
      const int below = static_cast<int>(Panels(end));
      const int groups = (panels - below + kGroup - 1) / kGroup;
      const bool goesOn = worker.Step(1, [&](std::int64_t) {
        return KESTRUM_KERNEL_AT(level, FactoriseChunk)(system, begin, end);
      }) && worker.Step(panels - below, [&](std::int64_t i) {
        KESTRUM_KERNEL_AT(level, SolvePanel)(system, below + static_cast<int>(i), begin, end);
        return true;
      }) && worker.Step(groups, [&](std::int64_t i) {
        // The longest panels first.
        const int panel = below + (groups - 1 - static_cast<int>(i)) * kGroup;
        KESTRUM_KERNEL_AT(level, UpdatePanels)(system, panel, std::min(panel + kGroup, panels), begin, end);
        return true;
      });
      if (!goesOn) return;
    }
    worker.Step(panels, [&](std::int64_t i) {
      const int panel = static_cast<int>(i);
      KESTRUM_KERNEL_AT(level, ScalePanel)(system, panel, panel * kLanes / kChunk * kChunk);
      return true;
    });
  });
  if (items.ended()) return false;
  if (DetermineDrift(system, q, factor + DriftExtentsStart(size))) return true;
  if (flaws != nullptr) flaws->dependent = true;
  return false;
}

void PrepareValues(int n, int q, const double* factor, const double* z, double* values) noexcept {
  const int size = n + q;
  std::copy_n(z, n, values);
  std::fill_n(values + n, q, 0.0);
  for (int i = 0; i < size; ++i) {
    for (int k = 0; k < i; ++k) values[i] -= factor[Place(i, k)] * values[k];
  }
  for (int i = 0; i < size; ++i) values[i] *= factor[InversePivotsStart(size) + i];
}

void Krige(int n, int q, const double* factor, const double* values, std::ptrdiff_t nblock, double* b, double* estimate,
           double* explained, SimdLevel level) noexcept {
  const int size = n + q;
  KESTRUM_KERNEL_AT(level, SolveForward)(size, factor, nblock, b);
  KESTRUM_KERNEL_AT(level, SumProducts)
  (size, factor + InversePivotsStart(size), values, nblock, b, estimate, explained);
}

void KrigingWeights(int n, int q, const double* factor, std::ptrdiff_t nblock, double* b, SimdLevel level) noexcept {
  const int size = n + q;
  KESTRUM_KERNEL_AT(level, SolveTransposed)(size, factor, factor + InversePivotsStart(size), nblock, b);
}

void DualWeights(int n, int q, const double* factor, double* values) noexcept {
  for (int i = n + q - 1; i >= 0; --i) {
    for (int k = 0; k < i; ++k) values[k] -= factor[Place(i, k)] * values[i];
  }
}

}  // namespace kestrum
