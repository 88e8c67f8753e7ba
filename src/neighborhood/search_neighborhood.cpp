#include "neighborhood/search_neighborhood.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <type_traits>

#include "core/buffer.hpp"
#include "core/comparators.h"
#include "core/integers.hpp"
#include "core/memory.h"
#include "core/statuses.hpp"
#include "covariance/cov_evaluation.hpp"
#include "neighborhood/search_neighborhood.hpp"

static_assert(std::is_standard_layout_v<VORL_SEARCHNEIGHBORHOOD>);
static_assert(sizeof(void*) != 8 || sizeof(VORL_SEARCHNEIGHBORHOOD) == 72);

namespace kestrum {
namespace {

// The largest range along one axis over the elements of a model, at least 0.0.
real LargestRange(const VORL_COVMODEL& model, bool stationary, const VORL_IMAGE* mask, real VORL_COVMODELELEM::*value,
                  VORL_IMAGE* VORL_COVMODELELEM::*image) {
  real largest = 0.0;
  for (int e = 0; e < model.nelem; ++e) {
    const VORL_COVMODELELEM& element = model.covModelElem[e];
    const VORL_IMAGE* ranges = stationary ? nullptr : element.*image;
    if (ranges == nullptr) {
      largest = std::max(largest, element.*value);
      continue;
    }
    for (int node = 0; node < ranges->grid->nxyz; ++node) {
      if (mask == nullptr || mask->var[node] != 0.0) largest = std::max(largest, ranges->var[node]);
    }
  }
  return largest;
}

// A model of variable angles is searched in an ellipsoid that holds whatever rotation a node may have: the ranges of
// the axes that an angle can exchange become their maximum. A range of 0.0 stays closed.
void WidenForVariableAngles(const VORL_COVMODEL& model, real range[3]) {
  const bool variable[3] = {model.angle1ImageFlag != 0, model.angle2ImageFlag != 0, model.angle3ImageFlag != 0};
  const int nvariable = variable[0] + variable[1] + variable[2];
  if (nvariable == 0) return;
  // Axis that the only variable angle turns about: azimuth z, dip x, plunge y.
  int fixedAxis = -1;
  if (nvariable == 1) fixedAxis = variable[0] ? 2 : variable[1] ? 0 : 1;
  real widest = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    if (axis != fixedAxis) widest = std::max(widest, range[axis]);
  }
  for (int axis = 0; axis < 3; ++axis) {
    if (axis != fixedAxis && range[axis] != 0.0) range[axis] = widest;
  }
}

// Half-width of the box in nodes: no offset is kept that could not fit in the grid.
int HalfWidth(real radius, real spacing, int n) {
  const real cells = radius / spacing;
  return cells < n - 1 ? static_cast<int>(cells) : n - 1;
}

// As the sort below, by the C library's qsort: a NaN compares equal to everything, so that this sets where it goes.
int SortByComparisons(Buffer<real>& keys, Buffer<int>* indices) {
  if (indices == nullptr) {
    qsort(keys.data(), keys.size(), sizeof(real), VORLCmpReal);
    return 0;
  }
  Buffer<VORL_INFOREAVALUE> items;
  if (const int status = items.Allocate(keys.size()); status != 0) return status;
  for (std::size_t i = 0; i < items.size(); ++i) items[i] = {(*indices)[i], keys[i]};
  qsort(items.data(), items.size(), sizeof(VORL_INFOREAVALUE), VORLCmpInfoReaValue);
  for (std::size_t i = 0; i < items.size(); ++i) (*indices)[i] = items[i].index;
  return 0;
}

// Sorts keys, or indices by the keys beside them, by digits of the keys' bits, from the last digit on: equal keys stay in
// their order. Asks now and then whether to go on. Returns 0, the status of a failed allocation, or kAborted.
int Sort(Buffer<real>& keys, Buffer<int>* indices, const Progress& progress) {
  constexpr int kDigitBits = 11, kDigits = 6;
  constexpr std::size_t kRadix = std::size_t{1} << kDigitBits;
  // Unsigned numbers in the order of the keys; the two zeros are equal.
  const auto digit = [](real key, int d) {
    const auto bits = std::bit_cast<std::uint64_t>(key + 0.0);
    const std::uint64_t ordered = bits ^ (bits >> 63 != 0 ? ~std::uint64_t{0} : std::uint64_t{1} << 63);
    return static_cast<std::size_t>(ordered >> d * kDigitBits & (kRadix - 1));
  };
  if (std::any_of(keys.begin(), keys.end(), [](real key) { return std::isnan(key); })) {
    return SortByComparisons(keys, indices);
  }
  const std::size_t n = keys.size();
  Buffer<std::size_t> next;  // where the next key with a digit goes
  Buffer<real> sortedKeys;
  Buffer<int> sortedIndices;
  int status = next.Allocate(kDigits * kRadix, 0);
  if (status == 0) status = sortedKeys.Allocate(n);
  if (status == 0 && indices != nullptr) status = sortedIndices.Allocate(n);
  if (status != 0) return status;
  for (const real key : keys) {
    for (int d = 0; d < kDigits; ++d) ++next[d * kRadix + digit(key, d)];
  }
  for (int d = 0; d < kDigits; ++d) {
    if (status = progress.After(0); status != 0) return status;
    std::size_t* const place = next.data() + d * kRadix;
    if (place[digit(keys[0], d)] == n) continue;  // all have the same digit
    std::exclusive_scan(place, place + kRadix, place, std::size_t{0});
    if (indices == nullptr) {
      for (const real key : keys) sortedKeys[place[digit(key, d)]++] = key;
    } else {
      for (std::size_t i = 0; i < n; ++i) {
        const std::size_t to = place[digit(keys[i], d)]++;
        sortedKeys[to] = keys[i];
        sortedIndices[to] = (*indices)[i];
      }
      std::swap(*indices, sortedIndices);
    }
    std::swap(keys, sortedKeys);
  }
  return 0;
}

// Position i takes the value of position order[i]. `sorted` is scratch for as many values.
template <typename T>
void ApplyOrder(const Buffer<int>& order, T* values, real* sorted) {
  static_assert(sizeof(T) <= sizeof(real) && std::is_trivially_copyable_v<T>);
  T* const moved = reinterpret_cast<T*>(sorted);
  for (std::size_t i = 0; i < order.size(); ++i) moved[i] = values[order[i]];
  std::copy_n(moved, order.size(), values);
}

template <typename Function>
int ForEachArray(VORL_SEARCHNEIGHBORHOOD& list, const Function& function) {
  int status = function(list.ix);
  if (status == 0) status = function(list.iy);
  if (status == 0) status = function(list.iz);
  if (status == 0) status = function(list.distance);
  if (status == 0) status = function(list.weight);
  return status;
}

}  // namespace

int SortByKey(VORL_SEARCHNEIGHBORHOOD& list, VORL_RANDCONTEXT* randContext, const Progress& progress) noexcept {
  const int n = list.size;
  Buffer<int> order;
  if (const int status = order.Allocate(n); status != 0) return status;
  Buffer<real> keys;
  if (const int status = keys.Allocate(n); status != 0) return status;
  std::copy_n(list.distance, n, keys.data());
  if (const int status = Sort(keys, nullptr, progress); status != 0) return status;
  const real spread = keys[n - 1] - keys[0];
  real amplitude = 1.0;
  if (spread != 0.0) {
    real gap = spread;
    for (int i = 1; i < n; ++i) {
      const real difference = keys[i] - keys[i - 1];
      if (difference > VORL_EPSILON && difference < gap) gap = difference;
    }
    amplitude = gap / 2;
  }
  VORLDoubleRand(1, randContext);
  for (int i = 0; i < n; ++i) {
    order[i] = i;
    keys[i] = list.distance[i] + amplitude * VORLDoubleRand(0, randContext);
  }
  if (const int status = Sort(keys, &order, progress); status != 0) return status;
  ApplyOrder(order, list.ix, keys.data());
  ApplyOrder(order, list.iy, keys.data());
  ApplyOrder(order, list.iz, keys.data());
  ApplyOrder(order, list.distance, keys.data());
  ApplyOrder(order, list.weight, keys.data());
  return 0;
}

void ComputeBoundingBox(VORL_SEARCHNEIGHBORHOOD& list) noexcept {
  list.ixMin = list.iyMin = list.izMin = list.ixMax = list.iyMax = list.izMax = 0;
  for (int e = 0; e < list.size; ++e) {
    list.ixMin = std::min(list.ixMin, list.ix[e]);
    list.iyMin = std::min(list.iyMin, list.iy[e]);
    list.izMin = std::min(list.izMin, list.iz[e]);
    list.ixMax = std::max(list.ixMax, list.ix[e]);
    list.iyMax = std::max(list.iyMax, list.iy[e]);
    list.izMax = std::max(list.izMax, list.iz[e]);
  }
}

int BuildSearchNeighborhood(const VORL_GRID& grid, const GridModel& model, const VORL_IMAGE* mask, SearchReach reach,
                            int sortMode, VORL_SEARCHNEIGHBORHOOD& list, VORL_RANDCONTEXT* randContext,
                            const Progress& progress) noexcept {
  const real factor = reach.factor;
  if (factor <= 0.0) return kSearchRadius;
  const VORL_COVMODEL& covModel = *model.covModel;
  const bool rotated = model.rotated && model.rotationStationary;
  const real totalWeight = model.weightStationary ? StationarySill(covModel) : 0.0;
  real range[3] = {
      LargestRange(covModel, model.rangeStationary, mask, &VORL_COVMODELELEM::rxValue, &VORL_COVMODELELEM::rxImage),
      LargestRange(covModel, model.rangeStationary, mask, &VORL_COVMODELELEM::ryValue, &VORL_COVMODELELEM::ryImage),
      LargestRange(covModel, model.rangeStationary, mask, &VORL_COVMODELELEM::rzValue, &VORL_COVMODELELEM::rzImage)};
  if (reach.axes != nullptr) std::copy_n(reach.axes, 3, range);
  if (!model.rotationStationary) WidenForVariableAngles(covModel, range);
  real coefficient[3];
  for (int axis = 0; axis < 3; ++axis) {
    coefficient[axis] = range[axis] > 0.0 ? 1.0 / (range[axis] * range[axis] * factor * factor) : VORL_INFINITY;
  }
  real radius[3] = {factor * range[0], factor * range[1], factor * range[2]};
  if (rotated) radius[0] = radius[1] = radius[2] = factor * std::max({range[0], range[1], range[2]});
  const int hx = HalfWidth(radius[0], grid.sx, grid.nx);
  const int hy = HalfWidth(radius[1], grid.sy, grid.ny);
  const int hz = HalfWidth(radius[2], grid.sz, grid.nz);
  const int room = CountOf(2 * std::int64_t{hx} + 1, 2 * std::int64_t{hy} + 1, 2 * std::int64_t{hz} + 1);
  if (room == 0) return kNeighborhoodSize;
  if (const int status = VORLMallocSearchNeighborhood(&list, room); status != 0) return status;

  list.ix[0] = list.iy[0] = list.iz[0] = 0;
  list.distance[0] = sortMode == 2 ? -totalWeight : 0.0;
  list.weight[0] = totalWeight;
  int count = 1;
  // Half the box is tested; each accepted offset brings its opposite, which has the same key and covariance.
  constexpr int kOffsetsPerQuestion = 1 << 12;
  int question = 0;
  bool stopped = false;
  const auto consider = [&](int i, int j, int k) {
    if (++question == kOffsetsPerQuestion) {
      question = 0;
      stopped = progress.Aborted();
    }
    if (stopped) return;
    const Rotation::Lag lag{i * grid.sx, j * grid.sy, k * grid.sz};
    const auto [x, y, z] = rotated ? model.rotation.ToModelAxes(lag.x, lag.y, lag.z) : lag;
    const real ellipsoidal = coefficient[0] * x * x + coefficient[1] * y * y + coefficient[2] * z * z;
    if (!(ellipsoidal <= 1.0 + VORL_EPSILON)) return;
    const real covariance = model.covModelStationary ? model.Covariance(lag.x, lag.y, lag.z) : 0.0;
    real key = ellipsoidal;
    if (sortMode == 0) key = x * x + y * y + z * z;
    if (sortMode == 2 && covariance != 0.0) key = -covariance;
    for (const int sign : {1, -1}) {
      list.ix[count] = sign * i;
      list.iy[count] = sign * j;
      list.iz[count] = sign * k;
      list.distance[count] = key;
      list.weight[count] = covariance;
      ++count;
    }
  };
  ForEachHalfOffset(hx, hy, hz, consider);
  if (stopped) return kAborted;
  if (const int status = VORLReallocSearchNeighborhood(&list, count); status != 0) return status;
  list.size = count;
  if (const int status = SortByKey(list, randContext, progress); status != 0) return status;
  ComputeBoundingBox(list);
  return 0;
}

}  // namespace kestrum

using namespace kestrum;

void VORLInitSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) noexcept {
  *searchNeighborhood = VORL_SEARCHNEIGHBORHOOD{};
}

int VORLMallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) noexcept {
  const std::size_t count = size > 0 ? size : 0;
  return ForEachArray(*searchNeighborhood, [count](auto*& array) {
    int status = 0;
    array = static_cast<std::remove_reference_t<decltype(array)>>(VORLMalloc(count, sizeof(*array), &status));
    return status;
  });
}

int VORLReallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) noexcept {
  const std::size_t count = size > 0 ? size : 0;
  return ForEachArray(*searchNeighborhood, [count](auto*& array) {
    int status = 0;
    array = static_cast<std::remove_reference_t<decltype(array)>>(VORLRealloc(array, count, sizeof(*array), &status));
    return status;
  });
}

void VORLFreeSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) noexcept {
  if (searchNeighborhood == nullptr) return;
  ForEachArray(*searchNeighborhood, [](auto* array) {
    VORLFree(array);
    return 0;
  });
}

int VORLPrintSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, char* prefix, FILE* stream) noexcept {
  fprintf(stream, "%ssize : %10d\n", prefix, searchNeighborhood->size);
  fprintf(stream, "%sixMin: %10d\n", prefix, searchNeighborhood->ixMin);
  fprintf(stream, "%siyMin: %10d\n", prefix, searchNeighborhood->iyMin);
  fprintf(stream, "%sizMin: %10d\n", prefix, searchNeighborhood->izMin);
  fprintf(stream, "%sixMax: %10d\n", prefix, searchNeighborhood->ixMax);
  fprintf(stream, "%siyMax: %10d\n", prefix, searchNeighborhood->iyMax);
  fprintf(stream, "%sizMax: %10d\n", prefix, searchNeighborhood->izMax);
  return 0;
}

int VORLKestrumBuildSearchNeighborhoodForCovModel(
    real sx, real sy, real sz, real searchRadiusRelative, int nx, int ny, int nz, VORL_IMAGE* maskImage,
    VORL_COVMODEL* covModel, BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary,
    BOOLEAN covModelStationary, BOOLEAN rotationSupplied, real** rotationMatrix, int searchNeighborhoodSortMode,
    VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_RANDCONTEXT* randContext) noexcept {
  VORL_GRID grid{};
  grid.nx = nx;
  grid.ny = ny;
  grid.nz = nz;
  grid.sx = sx;
  grid.sy = sy;
  grid.sz = sz;
  GridModel model{covModel, rotationStationary != 0, weightStationary != 0, rangeStationary != 0,
                  covModelStationary != 0};
  if (rotationStationary && rotationSupplied) model.SetRotation(rotationMatrix);
  if (rotationStationary && !rotationSupplied) model.SetRotationFromAngles();
  return BuildSearchNeighborhood(grid, model, maskImage, {searchRadiusRelative}, searchNeighborhoodSortMode,
                                 *searchNeighborhood, randContext);
}
