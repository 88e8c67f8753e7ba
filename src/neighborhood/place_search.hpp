#ifndef KESTRUM_NEIGHBORHOOD_PLACE_SEARCH_HPP
#define KESTRUM_NEIGHBORHOOD_PLACE_SEARCH_HPP

#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "neighborhood/place_index.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Some targets, near each other; those that follow each other the most.
struct PlaceNodes {
  static constexpr int kMax = 1024;

  int count = 0;
  double x[kMax + kPlacePadding];
  double y[kMax + kPlacePadding];
  double z[kMax + kPlacePadding];
  std::int64_t target[kMax];  // their numbers
  int place[kMax];            // where they are in their tile
};

// Where to krige: at the nodes of a window of a grid, or at the places of a list.
struct PlaceTargets {
  // The window: `extent` nodes along each axis from the node `first` on. The target of a node is its index in the
  // window, x fastest. Its place is that of the node on the whole grid, to the bit.
  VORL_GRID grid;
  int first[3];
  int extent[3];
  // The list: coordinate a of place i at list[i*dimension + a]; null for the window.
  const double* list = nullptr;
  std::int64_t nlist = 0;
  int dimension = 3;
  // One byte per target, 0 for those to leave out; null for none.
  const unsigned char* mask = nullptr;

  std::int64_t count() const noexcept;
};

// Deals targets out in tiles.
class PlaceTiles {
 public:
  // `targets` must outlive the tiles. `scale` is the length of a unit along each axis, in the metric of the search.
  // No more than `most` targets come in a tile. Returns 0, the status of a failed allocation, or kAborted.
  //   inCells   whether tiles of a window are made of cells: those targets whose places in the tile agree but for the last
  //             kCellBits bits. Cells are the same for all windows of a grid, and all sizes of tiles that hold one.
  [[nodiscard]] int Prepare(const PlaceTargets& targets, const double* scale, int most, bool inCells,
                            const Dealing& dealing, const Progress& progress) noexcept;

  static constexpr int kCellBits = 4;

  std::int64_t count() const noexcept { return count_; }
  // Fills `nodes` with the targets of a tile that are not left out, maybe none. Returns the number of those that are.
  int Fill(std::int64_t tile, PlaceNodes* nodes) const noexcept;
  // The middle of the cell around a place in a tile, whichever of its targets there are.
  void FindMiddleOfCell(std::int64_t tile, int place, double* middle) const noexcept;

 private:
  void FindCorner(std::int64_t tile, int* corner) const noexcept;
  double NodeAlong(int axis, int at) const noexcept;

  PlaceTargets targets_;
  int bits_ = 0;                              // of a target's number in a tile
  std::uint16_t place_[PlaceNodes::kMax][3];  // for a window: in a tile
  std::int64_t tilesAlong_[3];                // for a window
  int tileExtent_[3];
  int begin_[3];  // of the first tile, counted from the window's first node
  std::int64_t count_ = 0;
  Buffer<NumberedPlace> order_;  // for a list
};

// The sets of data that serve some targets, in the order of the data.
struct PlaceSets {
  // What the sets are taken from, in the order of the data.
  int ncandidate;
  PlaceVectors candidates;
  const int* datum;  // their numbers
  // A set: its members are candidates whose bit is set in `words` 64-bit words from mask[s*words] on.
  int nset;
  int words;
  const std::uint64_t* mask;
  // The targets of set s: number member[i] in the tile, for i from start[s] to start[s + 1] - 1.
  const int* start;
  const int* member;

  int CountMembers(int set) const noexcept;
  // Writes the members of a set, as positions among the candidates, and returns their number.
  int Members(int set, int* positions) const noexcept;
};

// A cell of targets, or a part of one, and the data that serve them, those nearest to the middle of the whole cell first.
struct PlaceCell {
  // The most data of a target, of which a cell has candidates enough for all its targets.
  static constexpr int kMaxMembers = 32;
  static constexpr int kMaxTargets = 1 << PlaceTiles::kCellBits;
  static constexpr int kMaxCandidates = 64;

  int begin, count;  // targets of the tile
  int ncandidate;    // each serves at least one of them
  PlaceVectors candidates;
  const int* datum;             // their numbers
  const std::uint64_t* member;  // of each target: bits of the candidates that serve it
};

// Finds the data that serve each target of a tile; one for each thread.
//
// A box of targets has few candidates: with U the k-th least of the data's greatest distances to places in the box, a
// datum whose least distance is above U serves none of them, and one whose greatest distance is below the (k+1)-th of
// the least distances serves all. The box is halved until what is left is decided for a few targets side by side. If it
// still has many, since the data lie close together or far away, the index finds the data of each target. Where a datum
// serves a target depends on their exact distances alone, never on boxes, tiles or threads.
class PlaceSearch {
 public:
  // Sets out to search for the targets of a tile, at least 1. All arguments must outlive the search.
  void Begin(const PlaceIndex& index, const PlaceNeighborhood& neighborhood, const PlaceNodes& nodes,
             SimdLevel level = BestSimdLevel()) noexcept;

  // The sets of further targets of the tile; they are valid until the next call. *sets has no set once all targets have
  // been served. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Next(PlaceSets* sets) noexcept;

  // The same by cells, for a tile that has some and a limit of PlaceCell::kMaxMembers at most: the order of a target's
  // data depends on nothing but the target. cell->count is 0 once all targets have been served.
  [[nodiscard]] int NextCell(const PlaceTiles& tiles, std::int64_t tile, PlaceCell* cell) noexcept;

 private:
  enum class Known { kNothing, kCandidates, kDataOfEach };
  struct Range {
    int begin, end;     // targets
    std::size_t first;  // of the candidates among which theirs are; else where there is room for them
    int count;
    Known known;
    int targets() const noexcept { return end - begin; }
    std::size_t room() const noexcept { return first + static_cast<std::size_t>(count); }
  };
  struct Found {
    double square;
    int id;
  };
  // Data in vectors that grow. From any entry on, kPlacePadding more entries than there are can be read.
  struct Room {
    Buffer<double> x, y, z;
    Buffer<int> id;
    [[nodiscard]] int Reserve(std::size_t size) noexcept;
    PlaceVectors From(std::size_t first) const noexcept {
      return {x.data() + first, y.data() + first, z.data() + first};
    }
    void Copy(const Room& from, std::size_t first, const int* picked, int count, std::size_t to) noexcept;
  };

  std::size_t MostCandidates(int ntarget) const noexcept;
  [[nodiscard]] int TakeCandidates(std::size_t first) noexcept;
  [[nodiscard]] int Ask(bool inOrderOfData, Range* range) noexcept;
  void ForgetTooMany(Range* range) const noexcept;
  [[nodiscard]] int FindOneByOne(int begin, int end) noexcept;
  PlaceIndex::Near* NearestOf(int target) noexcept {
    return nearest_.data() + static_cast<std::ptrdiff_t>(target - nearestBegin_) * limit_;
  }
  [[nodiscard]] int Unite(Range* range) noexcept;
  [[nodiscard]] int MarkEach(const Range& range) noexcept;
  PlaceBox BoxOf(int begin, int end) const noexcept;
  [[nodiscard]] int FindBounds(const PlaceBox& box, const PlaceVectors& data, int count) noexcept;
  PlaceCounts Pick(int count, double most, double surely) noexcept;
  double GreatestOfNearest(int count, int need) noexcept;
  [[nodiscard]] int Narrow(Range range, Range* narrowed, bool* few) noexcept;
  [[nodiscard]] int NarrowForCells(Range range, Range* narrowed) noexcept;
  [[nodiscard]] int SelectOfCell(const Range& range, int* count) noexcept;
  void OrderCell(const Range& range, const double* middle, PlaceCell* cell) noexcept;
  [[nodiscard]] int DecideAll(const Range& range) noexcept;
  [[nodiscard]] int Decide(int begin, int end, std::size_t first, int count, int need, int depth) noexcept;
  void SelectTogether(int begin, int end, std::size_t first, int count, int need, int depth) noexcept;
  [[nodiscard]] int DecideOne(int node, std::size_t first, int count, int need, std::uint64_t* mask) noexcept;
  [[nodiscard]] int GroupByMask(PlaceSets* sets) noexcept;

  const PlaceIndex* index_ = nullptr;
  const PlaceNeighborhood* neighborhood_ = nullptr;
  const PlaceNodes* nodes_ = nullptr;
  const PlaceKernels* kernels_ = nullptr;
  PlaceIndex::Scratch scratch_;
  Range ranges_[24];
  int nrange_ = 0;
  int limit_ = 0;                    // the most data of a target
  Room candidates_;                  // of the ranges; their numbers
  Room undecided_;                   // of the steps from a range to few targets; their positions among its candidates
  Buffer<double> lower_, upper_;     // squared distances to a box
  Buffer<double> least_, greatest_;  // the same in the metric of the ellipsoid
  Buffer<double> inside_;            // greatest distances of data that are surely inside
  Buffer<int> picked_, surePicked_;
  Buffer<Found> found_;

  // Targets whose data are found one by one: the data of target `nearestBegin_` first.
  static constexpr int kOneByOne = 16;
  int nearestBegin_ = 0;
  int nnearest_[kOneByOne];
  Buffer<PlaceIndex::Near> nearest_;

  static constexpr std::size_t kMaxDepth = 16;
  // The range whose sets are found: its targets, and the masks of each target, of the sure data at each step, of targets
  // that are decided side by side, and of each set.
  int begin_ = 0;
  int end_ = 0;
  int words_ = 0;
  Buffer<std::uint64_t> mask_, sure_, selected_, setMask_;
  int table_[2 * PlaceNodes::kMax];
  int setOf_[PlaceNodes::kMax];
  int start_[PlaceNodes::kMax + 1];
  int member_[PlaceNodes::kMax];

  // Of a cell.
  Buffer<double> squares_;
  double guess_ = 0.0;  // of the square of a distance that `limit_` data are within
  std::uint64_t cellMember_[PlaceCell::kMaxTargets];
  double cellPlaces_[3][64 + kPlacePadding];
  int cellDatum_[64];
};

}  // namespace kestrum

#endif
