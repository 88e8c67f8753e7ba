#ifndef KESTRUM_NEIGHBORHOOD_PLACE_KERNELS_HPP
#define KESTRUM_NEIGHBORHOOD_PLACE_KERNELS_HPP

#include <cstdint>

#include "neighborhood/place_metric.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Places in three vectors.
struct PlaceVectors {
  const double* x;
  const double* y;
  const double* z;
};

struct PlacesToKeep {
  double* x;
  double* y;
  double* z;
  int* number;
};

// The box that holds some places.
struct PlaceBox {
  double low[3];
  double high[3];
};

// Targets that are decided side by side.
constexpr int kDecidedTogether = 8;
// The most data that SelectNearest can rank.
constexpr int kMaxRanked = 96;
// The most targets that `nearest` serves.
constexpr int kMaxSelected = 16;
// Vectors that kernels read hold this many more elements than counted, whatever their values.
constexpr int kPlacePadding = 8;

// Data by their bounds: those wanted are within `most` of a box at least, and may be inside an ellipsoid; of these the
// sure ones are within `surely` of all of the box, and surely inside.
struct PlaceBounds {
  const double* lower;  // squared distances to the box
  const double* upper;
  const double* least;  // in the metric of the ellipsoid; lower and upper if there is none
  const double* greatest;
  double most;
  double surely;
  double radius;  // squared
};
struct PlaceCounts {
  int inside;  // of those wanted: surely inside
  int picked;
  int sure;
};

// The loops of the search, compiled for each level of SimdLevel.
struct PlaceKernels {
  // Bounds of the squared distances between each of n places and all places in a box, wide enough for the rounding of
  // PlaceMetric::Square.
  void (*bounds)(const PlaceMetric& metric, const PlaceBox& box, int n, const PlaceVectors& places, double* lower,
                 double* upper) noexcept;
  // The box of n places, at least 1.
  void (*box)(int n, const PlaceVectors& places, PlaceBox* box) noexcept;
  // Finds a limit that no fewer, or no more, than k of n values are at most, 1 <= k <= n; nearly the least, or the
  // greatest. Values are at least 0.0. Overwrites values[n] to values[n + kPlacePadding - 1].
  double (*limitOfNoFewer)(int n, double* values, int k) noexcept;
  double (*limitOfNoMore)(int n, double* values, int k) noexcept;
  // Selects for each of kDecidedTogether targets the `need` nearest of n data, n at most kMaxRanked, of those inside
  // the ellipsoid, if any; of data at one distance the earlier ones.
  //   bit     the data's bits, by which a selected datum is known
  //   masks   in/out: word w of a target's mask at masks[w*kDecidedTogether + target]; bits of selected data are set
  void (*select)(const PlaceNeighborhood& neighborhood, const PlaceVectors& targets, int n, const PlaceVectors& data,
                 const int* bit, int need, std::uint64_t* masks) noexcept;
  // Lists which of n data are wanted and not sure, and which are sure, in their order. Both lists have room for
  // n + kPlacePadding numbers.
  PlaceCounts (*pick)(int n, const PlaceBounds& bounds, int* picked, int* sure) noexcept;
  // Finds for each of ntarget targets, at most kMaxSelected, the `need` nearest of n data, n at least 1, of those inside
  // the ellipsoid, if any; of data at one distance those with the least number.
  //   datum     their numbers
  //   guess     of the square of the distance that so many are within, or 0.0
  //   squares   room for 64 numbers for each word of a mask, and kPlacePadding
  //   masks     out: bit i of a target, for datum i, in word i/64 at masks[i/64*kMaxSelected + target]
  // Returns a guess for targets nearby.
  double (*nearest)(const PlaceNeighborhood& neighborhood, int ntarget, const PlaceVectors& targets, int n,
                    const PlaceVectors& data, const int* datum, int need, double guess, double* squares,
                    std::uint64_t* masks) noexcept;
  // Copies those of n data, in their order, that may be among the `need` nearest of a place no farther than `reach` from a
  // middle, 1 <= need < n; by a metric whose axes are those of the coordinates. Returns how many there are.
  //   squares   room for n + kPlacePadding numbers
  //   kept      out: their places and numbers, with room for n + kPlacePadding
  //   limit     out: of the square of a distance from the middle that `need` data are within, nearly the least
  int (*keepNear)(const PlaceMetric& metric, const double* middle, double reach, int need, int n,
                  const PlaceVectors& data, const int* number, double* squares, const PlacesToKeep& kept,
                  double* limit) noexcept;
  // The ranks of n values, n at most 64; of equal values the earlier ones come first. Overwrites values[n] to
  // values[n + kPlacePadding - 1].
  void (*rank)(int n, double* values, int* rank) noexcept;
  // Bits position[i] of the masks of kMaxSelected targets, as `nearest` leaves them, become bits rank[i] of one word.
  void (*reorder)(int n, const int* position, const int* rank, const std::uint64_t* masks,
                  std::uint64_t* reordered) noexcept;
};
const PlaceKernels& PlaceKernelsOf(SimdLevel level) noexcept;

}  // namespace kestrum

#endif
