#include "analysis/step_search.hpp"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "analysis/mark_block.hpp"
#include "core/buffer.hpp"
#include "core/object_array.hpp"
#include "core/rendezvous.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// 64 nodes of a grid, a bit each, x fastest: a cube of 4^3, or where there is one section a square of 8^2.
template <bool kFlat>
struct Brick {
  static constexpr int kSide = kFlat ? 8 : 4;
  static constexpr int kSections = kFlat ? 1 : 4;

  std::uint64_t free;   // the nodes to find
  std::uint64_t found;  // those found at the distance at hand

  // From one node to the next along an axis.
  static constexpr int Step(int axis) noexcept { return axis == 0 ? 1 : axis == 1 ? kSide : kSide * kSide; }

  // The nodes at the lower and at the upper end of an axis.
  static constexpr std::uint64_t Lower(int axis) noexcept {
    std::uint64_t face = 0;
    for (int i = 0; i < 64; ++i) {
      if (i / Step(axis) % kSide == 0) face |= std::uint64_t{1} << i;
    }
    return face;
  }
  static constexpr std::uint64_t Upper(int axis) noexcept { return Lower(axis) << kAxisEnd * Step(axis); }
  static constexpr int kAxisEnd = kSide - 1;

  // The nodes and those beside them along an axis; and of those beside, the ones in the brick before and in the one after.
  template <int kAxis>
  static std::uint64_t Widened(std::uint64_t nodes) noexcept {
    return nodes | (nodes & ~Upper(kAxis)) << Step(kAxis) | (nodes & ~Lower(kAxis)) >> Step(kAxis);
  }
  template <int kAxis>
  static std::uint64_t Before(std::uint64_t nodes) noexcept {
    return (nodes & Lower(kAxis)) << kAxisEnd * Step(kAxis);
  }
  template <int kAxis>
  static std::uint64_t After(std::uint64_t nodes) noexcept {
    return nodes >> kAxisEnd * Step(kAxis) & Lower(kAxis);
  }
};

// Nodes of a brick at one distance.
struct Found {
  int brick;
  int row;             // the row of bricks that it is of
  std::int64_t first;  // index of the brick's first node
  std::uint64_t nodes;
};

// What is found at one distance.
class Front {
 public:
  int Allocate(int capacity) noexcept { return found_.Allocate(static_cast<std::size_t>(capacity)); }

  void Append(const Found& found) noexcept {
    if (size_ < found_.size() || Grow()) found_[size_++] = found;
  }

  void Clear() noexcept { size_ = 0; }
  int status() const noexcept { return status_; }
  Found* begin() noexcept { return found_.begin(); }
  Found* end() noexcept { return found_.begin() + size_; }
  const Found* begin() const noexcept { return found_.begin(); }
  const Found* end() const noexcept { return found_.begin() + size_; }

 private:
  // Doubles a table that is full: a caller may have given too small a capacity. A failure is kept.
  [[gnu::noinline]] bool Grow() noexcept {
    if (status_ == 0) status_ = found_.Enlarge(2 * size_);
    return status_ == 0;
  }

  Buffer<Found> found_;
  std::size_t size_ = 0;
  int status_ = 0;
};

// Finds the nodes at one distance after those at another, brick by brick: those of a front that lie in one brick reach its
// other nodes, and those of the bricks about it, by shifts. The grid is cut in pieces along y and z, which threads have in
// turn along both, so that slanting fronts are shared, too: a thread alone changes bricks and writes distances in its
// pieces. What is found at the sides of a piece is shown to the threads that have the pieces beyond.
template <bool kFlat>
class DistanceSearch {
 public:
  // box: of an int's indices; of one section if flat. distance: of all nodes.
  DistanceSearch(const Box& box, Connectivity connectivity, int* distance, const Progress& progress) noexcept
      : box_(box), connectivity_(connectivity), distance_(distance), progress_(progress) {
    const std::int64_t nx = box.nx();
    const std::int64_t nxy = nx * box.ny();
    nbrick_[0] = std::max(box.nx() - 1, 0) / kSide + 1;
    nbrick_[1] = std::max(box.ny() - 1, 0) / kSide + 1;
    nbrick_[2] = std::max(box.nz() - 1, 0) / kSections + 1;
    // Before each row of bricks lies one without nodes to find; so it is with rows, sections, and after all.
    steps_[0] = {1, 0, kSide};
    steps_[1] = {nbrick_[0] + 1, 1, kSide * nx};
    steps_[2] = {steps_[1].bricks * (nbrick_[1] + 1), nbrick_[1] + 1, kSections * nxy};
    for (int bit = 0; bit < 64; ++bit) {
      inBrick_[bit] = bit % kSide + bit / OneBrick::Step(1) % kSide * nx + bit / OneBrick::Step(2) * nxy;
    }
  }

  // The most threads that have pieces.
  int MostThreads() const noexcept { return PieceAt(nbrick_[1] - 1, nbrick_[2] - 1) + 1; }

  // frontCapacity: bricks of one distance that memory is taken for at first.
  int Allocate(int nscratch, int frontCapacity) noexcept {
    constexpr int kFirst = 1024;
    const int last = BrickAt(nbrick_[0] - 1, nbrick_[1] - 1, nbrick_[2] - 1);
    int status = shares_.Allocate(nscratch);
    for (int thread = 0; thread < nscratch && status == 0; ++thread) {
      Share& share = shares_[thread];
      for (int parity = 0; parity < 2 && status == 0; ++parity) {
        status = share.found[parity].Allocate(thread == 0 ? std::min(frontCapacity, last) : kFirst);
      }
      for (int parity = 0; parity < 2 && nscratch > 1; ++parity) {
        if (status == 0) status = share.shown[parity].Allocate(kFirst);
      }
    }
    if (status == 0) status = bricks_.Allocate(std::size_t{1} + last + BrickAt(0, 0, 0));
    const int nrow = RowAt(nbrick_[1], kFlat ? 0 : nbrick_[2]) + 1;
    for (int thread = 0; thread < nscratch && nscratch > 1 && status == 0; ++thread) {
      status = shares_[thread].rows.Allocate(static_cast<std::size_t>(nrow), 0);
    }
    return status;
  }

  // Takes the true values as the nodes to find, at distance -1 until they are. Returns their number.
  template <typename T>
  std::int64_t Mark(const T* mask, const Dealing& dealing) noexcept {
    const std::ptrdiff_t nx = box_.nx();
    const int ny = box_.ny();
    const int nz = box_.nz();
    std::atomic<std::int64_t> count{0};
    const Dealing blocks = dealing.ForPass(nx * ny * nz);
    blocks.Blocks(static_cast<std::ptrdiff_t>(bricks_.size()), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      std::fill(bricks_.begin() + begin, bricks_.begin() + end, OneBrick{0, 0});
    });
    const std::ptrdiff_t nrow = std::ptrdiff_t{nbrick_[1]} * nbrick_[2];
    blocks.Blocks(nrow, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      std::int64_t ntrue = 0;
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        const int by = static_cast<int>(row % nbrick_[1]);
        const int bz = static_cast<int>(row / nbrick_[1]);
        for (int iz = bz * kSections; iz < std::min((bz + 1) * kSections, nz); ++iz) {
          for (int iy = by * kSide; iy < std::min((by + 1) * kSide, ny); ++iy) {
            const std::ptrdiff_t first = (std::ptrdiff_t{iz} * ny + iy) * nx;
            std::fill_n(distance_ + first, nx, -1);
            ntrue += MarkRow(mask + first, bricks_.begin() + BrickAt(0, by, bz), BitAt(0, iy, iz));
          }
        }
      }
      count += ntrue;
    });
    return count;
  }

  // What each thread of the team does. ninside: nodes that may be found.
  void Run(int thread, int team, int nstart, const int* start, std::int64_t ninside) noexcept {
    Share& own = shares_[thread];
    if (team > 1) FindRows(thread, team, own.rows.begin());
    for (int i = 0; i < nstart; ++i) {
      const Node node = box_.NodeAt(start[i]);
      const int by = node.iy / kSide;
      const int bz = node.iz / kSections;
      if (PieceAt(by, bz) % team != thread) continue;
      const int bit = BitAt(node.ix, node.iy, node.iz);
      const Found at{BrickAt(node.ix / kSide, by, bz), RowAt(by, bz), start[i] - inBrick_[bit], 0};
      bricks_[at.brick].free |= std::uint64_t{1} << bit;
      Take(at, std::uint64_t{1} << bit, own.found[0]);
    }
    Close(own, 0, team);
    const bool crowded = Dealing::Crowded(team);
    std::int64_t ndone = 0;
    for (int level = 1;; ++level) {
      if (team > 1) rendezvous_.Await(team, crowded);
      const int last = (level - 1) % 2;
      std::int64_t count = 0;
      for (int t = 0; t < team; ++t) {
        if (shares_[t].status[last] != 0) return;
        count += shares_[t].count[last];
      }
      if (count == 0) return;
      own.Open(level % 2);
      if (thread == 0 && !progress_.GoesOn(true, std::min(ndone, ninside), ninside)) {
        own.status[level % 2] = kAborted;
        continue;
      }
      ndone += count;
      Front& next = own.found[level % 2];
      const unsigned char* rows = own.rows.begin();
      for (const Found& from : own.found[last]) GoOn(from, team > 1 && IsAtSide(own, from) ? rows : nullptr, next);
      // The pieces about one are those of the threads before and after; of the second ones, too, across its edges.
      for (int ahead = 1; ahead < team; ++ahead) {
        if (ahead > 2 && ahead < team - 2) continue;
        for (const Found& from : shares_[(thread + ahead) % team].shown[last]) GoOn(from, rows, next);
      }
      Close(own, level, team);
    }
  }

  // The first failure of a thread, once the search has run.
  int status() const noexcept {
    for (std::size_t t = 0; t < shares_.size(); ++t) {
      for (const int status : shares_[t].status) {
        if (status != 0) return status;
      }
    }
    return 0;
  }

 private:
  using OneBrick = Brick<kFlat>;
  static constexpr int kSide = OneBrick::kSide;
  static constexpr int kSections = OneBrick::kSections;

  // Bricks along y, and along z, of a piece. Smaller pieces are shared more evenly, but show more.
  static constexpr int kPiece = 16;

  // Pieces of one number are one thread's.
  static int PieceAt(int by, int bz) noexcept { return by / kPiece + bz / kPiece; }

  // What a thread has found, by even and odd distances. The others read of it what it gives when it closes it.
  struct Share {
    Front found[2];
    Front shown[2];              // of those found, the ones beside pieces of other threads
    Buffer<unsigned char> rows;  // of each row of bricks: kOwn, and the sides at which a piece of another thread lies
    std::int64_t count[2] = {};
    int status[2] = {};

    void Open(int parity) noexcept {
      found[parity].Clear();
      shown[parity].Clear();
    }
  };
  static constexpr unsigned char kOwn = 1 << 4;
  static constexpr int kSides = 4;  // below and above along y, then along z

  // The nodes of a brick at some of these sides.
  struct SideNodes {
    constexpr SideNodes() noexcept {
      for (int sides = 0; sides < 1 << kSides; ++sides) {
        for (int side = 0; side < (kFlat ? 2 : kSides); ++side) {
          const int axis = side / 2 + 1;
          if (sides >> side & 1) of[sides] |= side % 2 == 0 ? OneBrick::Lower(axis) : OneBrick::Upper(axis);
        }
      }
    }
    std::uint64_t of[1 << kSides] = {};
  };

  // From a brick to the next one along an axis.
  struct Step {
    int bricks, rows;
    std::int64_t nodes;
  };

  int RowAt(int by, int bz) const noexcept { return by + 1 + (bz + (kFlat ? 0 : 1)) * steps_[2].rows; }
  int BrickAt(int bx, int by, int bz) const noexcept { return bx + 1 + RowAt(by, bz) * steps_[1].bricks; }

  static int BitAt(int ix, int iy, int iz) noexcept {
    return ix % kSide + iy % kSide * OneBrick::Step(1) + iz % kSections * OneBrick::Step(2);
  }

  // Takes the true values of a row of nodes as the nodes to find: from a bit on in each of a row of bricks.
  template <typename T>
  int MarkRow(const T* values, OneBrick* row, int bit) noexcept {
    constexpr int kWords = 64;
    std::uint64_t words[kWords];
    int count = 0;
    for (int x = 0, n; x < box_.nx(); x += n) {
      n = std::min(box_.nx() - x, kWords * kMarkBlock);
      count += MarkWords(values + x, n, TrueValues{}, words);
      for (int i = 0; i < n; i += kSide) {
        const std::uint64_t nodes = words[i / kMarkBlock] >> i % kMarkBlock & ((1u << kSide) - 1);
        (row++)->free |= nodes << bit;
      }
    }
    return count;
  }

  // The rows of bricks that a thread has, and their sides.
  void FindRows(int thread, int team, unsigned char* rows) const noexcept {
    for (int bz = 0; bz < nbrick_[2]; ++bz) {
      for (int by = 0; by < nbrick_[1]; ++by) {
        if (PieceAt(by, bz) % team != thread) continue;
        const int at[] = {by, bz};
        int sides = 0;
        for (int axis = 0; axis < 2; ++axis) {
          const int within = at[axis] % kPiece;
          if (within == 0 && at[axis] > 0) sides |= 1 << 2 * axis;
          if (within == kPiece - 1 && at[axis] < nbrick_[axis + 1] - 1) sides |= 2 << 2 * axis;
        }
        rows[RowAt(by, bz)] = static_cast<unsigned char>(kOwn | sides);
      }
    }
  }

  // Whether nodes of pieces of other threads may be beside those found.
  bool IsAtSide(const Share& own, const Found& at) const noexcept {
    static constexpr SideNodes kAt;
    return (at.nodes & kAt.of[own.rows[at.row] & (kOwn - 1)]) != 0;
  }

  // Of some nodes of a brick, finds those not found yet.
  void Take(const Found& at, std::uint64_t nodes, Front& front) noexcept {
    OneBrick& brick = bricks_[at.brick];
    const std::uint64_t found = nodes & brick.free;
    if (found == 0) return;
    if (brick.found == 0) front.Append(at);
    brick.free ^= found;
    brick.found |= found;
  }

  // Calls body(distance) for the distances of some nodes of a brick.
  template <typename Body>
  void ForDistances(const Found& at, std::uint64_t nodes, const Body& body) const noexcept {
    for (; nodes != 0; nodes &= nodes - 1) body(distance_ + at.first + inBrick_[std::countr_zero(nodes)]);
  }

  // Writes the distances of what has been found at a level, and shows it.
  void Close(Share& own, int level, int team) noexcept {
    const int parity = level % 2;
    std::int64_t count = 0;
    Front& front = own.found[parity];
    for (Found* at = front.begin(); at != front.end(); ++at) {
      constexpr int kAhead = 2;
      if (front.end() - at > kAhead) {
        ForDistances(at[kAhead], bricks_[at[kAhead].brick].found,
                     [](int* distance) { __builtin_prefetch(distance, 1); });
      }
      at->nodes = std::exchange(bricks_[at->brick].found, 0);
      ForDistances(*at, at->nodes, [level](int* distance) { *distance = level; });
      count += std::popcount(at->nodes);
      if (team > 1 && IsAtSide(own, *at)) own.shown[parity].Append(*at);
    }
    own.count[parity] = count;
    for (const Front* each : {&front, &own.shown[parity]}) {
      if (own.status[parity] == 0) own.status[parity] = each->status();
    }
  }

  // From nodes found in a brick to those that have not been, in all rows of bricks or in a thread's own.
  void GoOn(const Found& from, const unsigned char* rows, Front& next) noexcept {
    const auto isTaken = [rows](int row) noexcept { return rows == nullptr || (rows[row] & kOwn) != 0; };
    const auto take = [&](const Found& at, std::uint64_t nodes) noexcept { Take(at, nodes, next); };
    const auto takeRow = [&](const Found& at, std::uint64_t nodes) noexcept {
      if (isTaken(at.row)) take(at, nodes);
    };
    const auto takeAlongRow = [&](const Found& at, std::uint64_t nodes) noexcept {
      if (isTaken(at.row)) Reach<0>(at, nodes, take);
    };
    // Neighbours differ along one, two or three of the axes.
    if (connectivity_ == Connectivity::k6) {
      takeAlongRow(from, from.nodes);
      Reach<1>(from, from.nodes, takeRow);
      if constexpr (!kFlat) Reach<2>(from, from.nodes, takeRow);
    } else if constexpr (kFlat) {
      Reach<1>(from, from.nodes, takeAlongRow);
    } else if (connectivity_ == Connectivity::k18) {
      Reach<1>(from, from.nodes, takeAlongRow);
      Reach<2>(from, from.nodes, takeAlongRow);
      Reach<1, 2>(from, from.nodes, takeRow);
    } else {
      Reach<1, 2>(from, from.nodes, takeAlongRow);
    }
  }

  // Calls take(brick, nodes) for the nodes themselves and those that differ along any of the axes, brick by brick.
  template <int kAxis, int... kOthers, typename Body>
  void Reach(const Found& at, std::uint64_t nodes, const Body& take) const noexcept {
    const auto goOn = [&](int side, std::uint64_t reached) noexcept {
      const Step& step = steps_[kAxis];
      const Found there{at.brick + side * step.bricks, at.row + side * step.rows, at.first + side * step.nodes, 0};
      if constexpr (sizeof...(kOthers) == 0) {
        take(there, reached);
      } else {
        Reach<kOthers...>(there, reached, take);
      }
    };
    goOn(0, OneBrick::template Widened<kAxis>(nodes));
    if (const std::uint64_t before = OneBrick::template Before<kAxis>(nodes); before != 0) goOn(-1, before);
    if (const std::uint64_t after = OneBrick::template After<kAxis>(nodes); after != 0) goOn(1, after);
  }

  const Box box_;
  const Connectivity connectivity_;
  int* const distance_;
  const Progress& progress_;
  int nbrick_[3];
  Step steps_[3];
  std::int64_t inBrick_[64];  // from the first node of a brick to the others
  Buffer<OneBrick> bricks_;
  ObjectArray<Share> shares_;
  Rendezvous rendezvous_;
};

template <bool kFlat, typename T>
int SearchDistances(const Box& box, Connectivity connectivity, const T* mask, int frontCapacity, int nstart,
                    const int* start, int* distance, const Dealing& dealing, const Progress& progress) noexcept {
  DistanceSearch<kFlat> search(box, connectivity, distance, progress);
  const Dealing ofPieces =
      dealing.threaded() ? Dealing::Threads(std::min(dealing.nthreads(), search.MostThreads())) : Dealing::Serial();
  if (const int status = search.Allocate(ofPieces.nscratch(), frontCapacity); status != 0 || box.NodeCount() == 0)
    return status;
  const std::int64_t ninside = search.Mark(mask, dealing);
  ofPieces.ForPass(ninside).EachThread(
      [&](int thread, int team) noexcept { search.Run(thread, team, nstart, start, ninside); });
  return search.status();
}

}  // namespace

template <typename T>
int FindSteps(Connectivity connectivity, const Box& box, const T* mask, int frontCapacity, int nstart, const int* start,
              int* distance, const Dealing& dealing, const Progress& progress) noexcept {
  for (int i = 0; i < nstart; ++i) {
    if (!box.Has(start[i])) return kPathStartOutside;
  }
  const Box kept = box.WithoutSingleAxes();
  const auto search = kept.nz() == 1 ? &SearchDistances<true, T> : &SearchDistances<false, T>;
  return search(kept, connectivity, mask, frontCapacity, nstart, start, distance, dealing, progress);
}
template int FindSteps(Connectivity, const Box&, const unsigned char*, int, int, const int*, int*, const Dealing&,
                       const Progress&) noexcept;
template int FindSteps(Connectivity, const Box&, const int*, int, int, const int*, int*, const Dealing&,
                       const Progress&) noexcept;
template int FindSteps(Connectivity, const Box&, const float*, int, int, const int*, int*, const Dealing&,
                       const Progress&) noexcept;
template int FindSteps(Connectivity, const Box&, const double*, int, int, const int*, int*, const Dealing&,
                       const Progress&) noexcept;

}  // namespace kestrum
