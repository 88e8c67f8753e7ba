#ifndef KESTRUM_ANALYSIS_PYRAMID_ROWS_HPP
#define KESTRUM_ANALYSIS_PYRAMID_ROWS_HPP

#include <cstddef>

#include "core/missing_mark.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// A row of nodes along x between two filters: sums and their total weights. A complete row has no missing sum, and its
// weights are those that an image without missing values has there.
struct PyramidRow {
  const double* values;
  const double* weights;
  bool complete;
};

// Where a row is stored.
struct PyramidRowStorage {
  double* values;
  double* weights;
};

// A row in a weighted sum.
struct PyramidTap {
  const double* values;
  const double* weights;
  double factor;
};

// Nodes between or at those of the input: near * A + far * B, or near * A + far * (C + B).
struct PyramidBlend {
  double near;
  double far;
};

// What is done to rows of n nodes, at a level, where missing values have a mark; images with NaN are not blended. No node depends on its neighbours in the row and each sum has one order,
// so no result depends on the level. Results do not overlap what they are made from.
struct PyramidKernels {
  bool (*hasMissing)(const double* values, std::size_t n);
  // Sums of rows without missing values, in the order of the taps. Returns whether a sum is itself the missing value.
  bool (*addTaps)(const PyramidTap* taps, std::size_t ntap, std::size_t n, double* sums);
  // Sums over what is informed, and their weights; missing where the weight is 0.
  void (*addInformedTaps)(const PyramidTap* taps, std::size_t ntap, std::size_t n, const PyramidRowStorage& to);
  // Blends without missing values. Returns whether a result is itself the missing value. Without C `c` is null.
  bool (*blend)(const PyramidBlend& blend, const double* a, const double* b, const double* c, std::size_t n,
                double* to);
  // Blends of what is informed, and their weights; missing with weight 0 where nothing is.
  void (*blendInformed)(const PyramidBlend& blend, const PyramidRow& a, const PyramidRow& b, const PyramidRow* c,
                        std::size_t n, const PyramidRowStorage& to);
  // Sums divided by their weights; missing where the weight is less than minWeight.
  void (*divide)(const double* sums, const double* weights, double minWeight, std::size_t n, double* to);
  // Takes n pairs of nodes apart, and joins them.
  void (*takeApart)(const double* pairs, std::size_t n, double* first, double* second);
  void (*join)(const double* first, const double* second, std::size_t n, double* pairs);
};

const PyramidKernels& PyramidKernelsOf(SimdLevel level, MissingMark mark = MissingMark::kNumber) noexcept;

}  // namespace kestrum

#endif
