#include "numeric/drift_projection.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/buffer.hpp"
#include "numeric/cholesky.hpp"
#include "numeric/cholesky_layout.hpp"

namespace kestrum {

int ProjectOutDrift(int n, int q, const double* matrix, const double* drift, const Dealing& dealing,
                    const Progress& progress, double* projection, double* logDeterminant) noexcept {
  // Blocks of columns that are solved at a time.
  constexpr std::ptrdiff_t kBlocks = 6;
  const std::ptrdiff_t size = static_cast<std::ptrdiff_t>(n) + q;
  Buffer<double> factor;
  if (const int status = factor.Allocate(FactorSize(n, q)); status != 0) return status;
  for (std::ptrdiff_t i = 0; i < n; ++i) SetFactorRow(n, static_cast<int>(i), matrix + i * n, factor.data());
  for (std::ptrdiff_t j = 0; j < q; ++j) SetFactorRow(n, static_cast<int>(n + j), drift + j * n, factor.data());
  *logDeterminant = std::numeric_limits<double>::infinity();
  if (!Factorise(dealing, n, q, factor.data(), BestSimdLevel(), nullptr, progress)) return progress.After(0);
  // The pivots of the drift are below zero.
  const double* const inversePivots = factor.data() + InversePivotsStart(size);
  double sum = 0.0;
  for (std::ptrdiff_t i = 0; i < size; ++i) sum -= std::log(std::fabs(inversePivots[i]));

  std::atomic<int> word{0};
  dealing.EachThread([&](int thread, int team) noexcept {
    constexpr std::ptrdiff_t kColumns = kBlocks * kLanes;
    Buffer<double> b;
    double explained[kColumns];
    if (const int status = b.Allocate(static_cast<std::size_t>(size * kColumns)); status != 0)
      return word.store(status);
    for (std::ptrdiff_t begin = thread * kColumns; begin < n && !progress.Aborted(); begin += team * kColumns) {
      const std::ptrdiff_t count = std::min<std::ptrdiff_t>(kColumns, n - begin);
      const auto place = [&](std::ptrdiff_t i, std::ptrdiff_t column) {
        return static_cast<std::size_t>((column / kLanes * size + i) * kLanes + column % kLanes);
      };
      std::fill(b.begin(), b.end(), 0.0);
      for (std::ptrdiff_t column = 0; column < count; ++column) b[place(begin + column, column)] = 1.0;
      Krige(n, q, factor.data(), nullptr, kBlocks, b.data(), nullptr, explained);
      KrigingWeights(n, q, factor.data(), kBlocks, b.data());
      for (std::ptrdiff_t column = 0; column < count; ++column) {
        for (std::ptrdiff_t i = 0; i < n; ++i) projection[(begin + column) * n + i] = b[place(i, column)];
      }
    }
  });
  *logDeterminant = sum;
  return progress.After(word.load());
}

}  // namespace kestrum
