#ifndef KESTRUM_NEIGHBORHOOD_PLACE_INDEX_HPP
#define KESTRUM_NEIGHBORHOOD_PLACE_INDEX_HPP

#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "neighborhood/place_kernels.hpp"
#include "neighborhood/place_metric.hpp"

namespace kestrum {

// A place with its number in the order that it was given in.
struct NumberedPlace {
  double at[3];
  std::int64_t number;
};

// Orders places so that neighbours in the order are near each other: each run of 8 * 2^j places that starts at a multiple
// of its length is one half of a box cut at the median of its longest side (J. L. Bentley, Multidimensional binary search
// trees used for associative searching, CACM 18, 1975). `scale` is the length of a unit along each axis. Returns 0, or
// kAborted if the job has been asked to stop.
[[nodiscard]] int OrderPlaces(std::int64_t n, NumberedPlace* places, const double* scale, const Dealing& dealing,
                              const Progress& progress) noexcept;

// Finds the middle of a box and returns a distance that no place in it is farther away.
double FindMiddle(const PlaceMetric& metric, const PlaceBox& box, double* middle) noexcept;

// Two data at one place. `first` is below 0 if there are none.
struct CoincidentData {
  std::int64_t first = -1;
  std::int64_t second = -1;
};

// Finds the first datum that lies exactly where an earlier one does, and the first such. Where `mayCoincide` is given,
// data for which it is above 0.0 may share a place with each other. Returns 0, the status of a failed allocation, or
// kAborted.
[[nodiscard]] int FindCoincidentData(int n, const PlaceVectors& data, const double* mayCoincide, CoincidentData* found,
                                     const Progress& progress) noexcept;

// The data of a search, in an order of nearness with the boxes of its runs. Read by any number of threads at a time.
class PlaceIndex {
 public:
  // Copies n data, at least 1, with finite coordinates. Returns 0, the status of a failed allocation, or kAborted.
  [[nodiscard]] int Build(int n, const PlaceVectors& data, const double* scale, const Dealing& dealing,
                          const Progress& progress) noexcept;

  int size() const noexcept { return n_; }

  // Room for the search of one thread. It grows with what the search meets.
  struct Scratch {
    Buffer<double> nearest;       // heap of the least upper bounds
    Buffer<std::uint64_t> found;  // datum and position of candidates
    std::size_t count = 0;        // of candidates
    bool tooMany = false;         // whether there are more than were wanted, and none is given
    Buffer<std::size_t> leaves;   // where runs of data begin
  };

  // Collects every datum that may serve a target in the box, and maybe others, in the order of the data, or of the index:
  // of entry i of `found` the lower half is the datum's position in the index, the upper half its number. Gives up soon if
  // there are more than about `most`. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Collect(const PlaceNeighborhood& neighborhood, const PlaceBox& box, std::size_t most,
                            bool inOrderOfData, const PlaceKernels& kernels, Scratch* scratch) const noexcept;

  // A datum as in `found`, with the square of its distance from a target.
  struct Near {
    double square;
    std::uint64_t found;
    bool operator<(const Near& other) const noexcept {
      return square != other.square ? square < other.square : found < other.found;
    }
  };

  // Finds the data that serve a place, in no order; by a limit above 0, for which `nearest` has room. Returns how many
  // there are.
  int FindNearest(const PlaceNeighborhood& neighborhood, const double* at, const PlaceKernels& kernels,
                  Near* nearest) const noexcept;

  // The data by position in the index.
  PlaceVectors places() const noexcept { return {x_.data(), y_.data(), z_.data()}; }

 private:
  static constexpr std::size_t kLeaf = 16;
  static constexpr int kMaxLevels = 32;

  template <typename Visit>
  int ForEachLeaf(const PlaceNeighborhood& neighborhood, const PlaceBox& box, const PlaceKernels& kernels,
                  const double* bound, const Visit& visit) const noexcept;

  int n_ = 0;
  int nlevel_ = 0;
  Buffer<double> x_, y_, z_;
  Buffer<int> datum_;
  Buffer<PlaceBox> boxes_;            // of runs of kLeaf data, then of two such runs, and so on
  std::size_t firstBox_[kMaxLevels];  // of each level
};

}  // namespace kestrum

#endif
