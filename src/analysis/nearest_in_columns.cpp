#include "analysis/nearest_in_columns.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <type_traits>

namespace kestrum {
namespace {

// Whole numbers of the size of T.
template <typename T>
using Word = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

// Steps from each of 8 nodes to the nearest one in a set of them; the set of byte 0 has none.
constexpr auto kStepsInByte = [] {
  std::array<std::array<float, 8>, 256> table{};
  for (int byte = 0; byte < 256; ++byte) {
    for (int i = 0; i < 8; ++i) {
      float nearest = std::numeric_limits<float>::infinity();
      for (int j = 0; j < 8; ++j) {
        if ((byte >> j & 1) != 0) nearest = std::min(nearest, static_cast<float>(i < j ? j - i : i - j));
      }
      table[static_cast<std::size_t>(byte)][static_cast<std::size_t>(i)] = nearest;
    }
  }
  return table;
}();

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "analysis/nearest_in_columns_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

bool TryColumns(const ColumnBlock<float>& block, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, TryEach<float>)(block);
}

bool TryColumns(const ColumnBlock<double>& block, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, TryEach<double>)(block);
}

void SweepColumns(const ColumnBlock<float>& block, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SweepAll<float>)(block);
}

void SweepColumns(const ColumnBlock<double>& block, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SweepAll<double>)(block);
}

void Lengths(float* values, std::ptrdiff_t n, DistanceMetric metric, float unit1, float unit2,
             SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, ToLengths<float>)(values, n, metric, unit1, unit2);
}

void Lengths(double* values, std::ptrdiff_t n, DistanceMetric metric, double unit1, double unit2,
             SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, ToLengths<double>)(values, n, metric, unit1, unit2);
}

void Negate(float* values, int n, std::uint64_t bits, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, NegateMarked<float>)(values, n, bits);
}

void Negate(double* values, int n, std::uint64_t bits, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, NegateMarked<double>)(values, n, bits);
}

void NearestInRow(const std::uint64_t* bits, std::ptrdiff_t n, DistanceMetric metric, double weight, SimdLevel level,
                  float* distance) noexcept {
  KESTRUM_KERNEL_AT(level, StepsInRow<float>)(bits, n, metric, weight, distance);
}

void NearestInRow(const std::uint64_t* bits, std::ptrdiff_t n, DistanceMetric metric, double weight, SimdLevel level,
                  double* distance) noexcept {
  KESTRUM_KERNEL_AT(level, StepsInRow<double>)(bits, n, metric, weight, distance);
}

}  // namespace kestrum
