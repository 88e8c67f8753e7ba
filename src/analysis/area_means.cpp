#include "analysis/area_means.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "core/buffer.hpp"

namespace kestrum {
namespace {

// The old cells of an axis that a new one covers. In units of the length over n times m, old cells are m long and new ones
// n, so that the parts are whole numbers.
struct Cover {
  std::ptrdiff_t first;
  std::ptrdiff_t last;
  std::int64_t begin;  // of the new cell
  std::int64_t end;
  std::int64_t m;

  Cover(std::ptrdiff_t cell, int n, int cells) noexcept : begin(std::int64_t{cell} * n), end(begin + n), m(cells) {
    first = begin / m;
    last = (end - 1) / m;
  }
  // Of old cell i, the part of the new one.
  double WeightOf(std::ptrdiff_t i) const noexcept {
    return static_cast<double>(std::min(end, (i + 1) * m) - std::max(begin, i * m)) / static_cast<double>(end - begin);
  }
};

}  // namespace

template <typename T>
int AreaMeans(const int (&n)[3], const T* values, const int (&m)[3], const Dealing& dealing, const Progress& progress,
              double* means) noexcept {
  std::atomic<int> failure{0};
  dealing.Blocks(std::ptrdiff_t{m[1]} * m[2], [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    // The sums over the old rows of a new one, of values and of what is known of them.
    Buffer<double> sums;
    if (const int status = sums.Allocate(2 * static_cast<std::size_t>(n[0])); status != 0) {
      failure = status;
      return;
    }
    double* const sum = sums.data();
    double* const known = sum + n[0];
    for (std::ptrdiff_t row = begin; row < end && progress.GoesOn(begin == 0, row, end); ++row) {
      std::fill(sums.begin(), sums.end(), 0.0);
      const Cover y(row % m[1], n[1], m[1]);
      const Cover z(row / m[1], n[2], m[2]);
      for (std::ptrdiff_t k = z.first; k <= z.last; ++k) {
        for (std::ptrdiff_t j = y.first; j <= y.last; ++j) {
          const T* const from = values + (k * n[1] + j) * n[0];
          const double weight = z.WeightOf(k) * y.WeightOf(j);
          for (int i = 0; i < n[0]; ++i) {
            const bool isKnown = !std::isnan(static_cast<double>(from[i]));
            sum[i] += isKnown ? weight * static_cast<double>(from[i]) : 0.0;
            known[i] += isKnown ? weight : 0.0;
          }
        }
      }
      for (int i = 0; i < m[0]; ++i) {
        const Cover x(i, n[0], m[0]);
        double total = 0.0;
        double share = 0.0;
        for (std::ptrdiff_t at = x.first; at <= x.last; ++at) {
          const double weight = x.WeightOf(at);
          total += weight * sum[at];
          share += weight * known[at];
        }
        constexpr double kLeast = 0.5 - 1e-12;  // rounding does not make half of a cell less
        means[row * m[0] + i] = share < kLeast ? std::numeric_limits<double>::quiet_NaN() : total / share;
      }
    }
  });
  return progress.After(failure);
}

#define KESTRUM_AREA_MEANS_OF(T) \
  template int AreaMeans(const int(&)[3], const T*, const int(&)[3], const Dealing&, const Progress&, double*) noexcept;
KESTRUM_AREA_MEANS_OF(unsigned char)
KESTRUM_AREA_MEANS_OF(int)
KESTRUM_AREA_MEANS_OF(float)
KESTRUM_AREA_MEANS_OF(double)
#undef KESTRUM_AREA_MEANS_OF

}  // namespace kestrum
