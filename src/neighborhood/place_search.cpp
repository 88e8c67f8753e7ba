#include "neighborhood/place_search.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <numeric>

#include "core/statuses.hpp"

namespace kestrum {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A range of targets whose sets are found has so many candidates at most, unless most of them serve every target.
constexpr int kFewCandidates = 64;
// So many undecided data are ranked for many targets rather than more of them decided for fewer.
constexpr int kFewUndecided = 20;

template <typename T>
[[nodiscard]] int Reserve(Buffer<T>* buffer, std::size_t size) noexcept {
  return buffer->size() < size ? buffer->Enlarge(std::max(size, 2 * buffer->size())) : 0;
}

void SetBit(std::uint64_t* words, int bit) noexcept { words[bit / 64] |= std::uint64_t{1} << bit % 64; }

std::uint64_t Hash(const std::uint64_t* words, int count) noexcept {
  std::uint64_t hash = 0;
  for (int w = 0; w < count; ++w) {
    hash = (hash ^ words[w]) * 0x9e3779b97f4a7c15;
    hash ^= hash >> 32;
  }
  return hash;
}

}  // namespace

std::int64_t PlaceTargets::count() const noexcept {
  return list != nullptr ? nlist : std::int64_t{extent[0]} * extent[1] * extent[2];
}

int PlaceTiles::Prepare(const PlaceTargets& targets, const double* scale, int most, bool inCells,
                        const Dealing& dealing, const Progress& progress) noexcept {
  targets_ = targets;
  const int bits = std::bit_width(static_cast<unsigned>(std::clamp(most, 1, PlaceNodes::kMax))) - 1;
  if (targets.list != nullptr) {
    bits_ = bits;
    std::int64_t n = 0;
    for (std::int64_t i = 0; i < targets.nlist; ++i) n += targets.mask == nullptr || targets.mask[i] != 0;
    count_ = ((n - 1) >> bits) + 1;
    if (n == 0) return 0;
    if (const int status = order_.Allocate(static_cast<std::size_t>(n)); status != 0) return status;
    constexpr std::int64_t kPlacesPerQuestion = 1 << 18;
    NumberedPlace* place = order_.data();
    for (std::int64_t i = 0; i < targets.nlist; ++i) {
      if (i % kPlacesPerQuestion == 0 && progress.Aborted()) return kAborted;
      if (targets.mask != nullptr && targets.mask[i] == 0) continue;
      const double* const at = targets.list + i * targets.dimension;
      *place++ = {{at[0], at[1], targets.dimension > 2 ? at[2] : 0.0}, i};
    }
    return OrderPlaces(n, order_.data(), scale, dealing, progress);
  }

  // The tile doubles along its shortest side.
  const double spacing[3] = {targets.grid.sx, targets.grid.sy, targets.grid.sz};
  const int whole[3] = {targets.grid.nx, targets.grid.ny, targets.grid.nz};
  const int* const extent = inCells ? whole : targets.extent;
  std::fill_n(tileExtent_, 3, 1);
  std::fill_n(place_[0], 3, 0);
  for (bits_ = 0; bits_ < bits; ++bits_) {
    int shortest = -1;
    double least = kInfinity;
    for (int a = 0; a < 3; ++a) {
      const double side = tileExtent_[a] * spacing[a] * scale[a];
      if (tileExtent_[a] < extent[a] && side < least) {
        least = side;
        shortest = a;
      }
    }
    if (shortest < 0) break;
    // Places with the next bit of their number set lie beyond the others, so that halves of halves are boxes.
    for (int i = 0; i < 1 << bits_; ++i) {
      for (int a = 0; a < 3; ++a) {
        const int beyond = a == shortest ? tileExtent_[a] : 0;
        place_[i | 1 << bits_][a] = static_cast<std::uint16_t>(place_[i][a] + beyond);
      }
    }
    tileExtent_[shortest] *= 2;
  }
  count_ = 1;
  for (int a = 0; a < 3; ++a) {
    begin_[a] = inCells ? -(targets.first[a] % tileExtent_[a]) : 0;
    tilesAlong_[a] = (targets.extent[a] - begin_[a] - 1) / tileExtent_[a] + 1;
    count_ *= tilesAlong_[a];
  }
  return 0;
}

// The first node of a tile of a window, counted from the window's.
void PlaceTiles::FindCorner(std::int64_t tile, int* corner) const noexcept {
  for (int a = 0; a < 3; ++a) {
    corner[a] = begin_[a] + static_cast<int>(tile % tilesAlong_[a]) * tileExtent_[a];
    tile /= tilesAlong_[a];
  }
}

// The coordinate of a node, counted from the window's first.
double PlaceTiles::NodeAlong(int axis, int at) const noexcept {
  const VORL_GRID& grid = targets_.grid;
  const double origin[3] = {grid.ox, grid.oy, grid.oz};
  const double spacing[3] = {grid.sx, grid.sy, grid.sz};
  if (axis >= targets_.dimension) return 0.0;
  return origin[axis] + (targets_.first[axis] + at + VORL_SHIFT_FACTOR_FOR_POINT) * spacing[axis];
}

void PlaceTiles::FindMiddleOfCell(std::int64_t tile, int place, double* middle) const noexcept {
  int corner[3];
  FindCorner(tile, corner);
  const int cell = (1 << std::min(bits_, kCellBits)) - 1;
  for (int a = 0; a < 3; ++a) {
    middle[a] = 0.5 * (NodeAlong(a, corner[a] + place_[place & ~cell][a]) +  //
                       NodeAlong(a, corner[a] + place_[place | cell][a]));
  }
}

int PlaceTiles::Fill(std::int64_t tile, PlaceNodes* nodes) const noexcept {
  nodes->count = 0;
  const auto add = [&](double x, double y, double z, std::int64_t target) {
    const int i = nodes->count++;
    nodes->x[i] = x;
    nodes->y[i] = y;
    nodes->z[i] = z;
    nodes->target[i] = target;
  };
  if (targets_.list != nullptr) {
    const auto begin = static_cast<std::size_t>(tile) << bits_;
    const std::size_t end = std::min(order_.size(), begin + (std::size_t{1} << bits_));
    for (std::size_t i = begin; i < end; ++i) {
      add(order_[i].at[0], order_[i].at[1], order_[i].at[2], order_[i].number);
    }
    return nodes->count;
  }

  int corner[3];
  FindCorner(tile, corner);
  int held = 0;
  for (int i = 0; i < 1 << bits_; ++i) {
    int at[3];
    bool inside = true;
    for (int a = 0; a < 3; ++a) {
      at[a] = corner[a] + place_[i][a];
      inside = inside && at[a] >= 0 && at[a] < targets_.extent[a];
    }
    if (!inside) continue;
    ++held;
    const std::int64_t target = at[0] + targets_.extent[0] * (at[1] + std::int64_t{targets_.extent[1]} * at[2]);
    if (targets_.mask != nullptr && targets_.mask[target] == 0) continue;
    nodes->place[nodes->count] = i;
    add(NodeAlong(0, at[0]), NodeAlong(1, at[1]), NodeAlong(2, at[2]), target);
  }
  return held;
}

int PlaceSets::CountMembers(int set) const noexcept {
  const std::uint64_t* const own = mask + static_cast<std::ptrdiff_t>(set) * words;
  return std::accumulate(own, own + words, 0, [](int sum, std::uint64_t word) { return sum + std::popcount(word); });
}

int PlaceSets::Members(int set, int* positions) const noexcept {
  const std::uint64_t* const own = mask + static_cast<std::ptrdiff_t>(set) * words;
  int count = 0;
  for (int w = 0; w < words; ++w) {
    for (std::uint64_t rest = own[w]; rest != 0; rest &= rest - 1) positions[count++] = 64 * w + std::countr_zero(rest);
  }
  return count;
}

int PlaceSearch::Room::Reserve(std::size_t size) noexcept {
  for (Buffer<double>* vector : {&x, &y, &z}) {
    if (const int status = kestrum::Reserve(vector, size + kPlacePadding); status != 0) return status;
  }
  return kestrum::Reserve(&id, size + kPlacePadding);
}

// Copies `count` entries, picked from entry `first` on, to entry `to` and on.
void PlaceSearch::Room::Copy(const Room& from, std::size_t first, const int* picked, int count,
                             std::size_t to) noexcept {
  const auto copy = [=](const auto* source, auto* target) {
    for (int i = 0; i < count; ++i) target[i] = source[picked[i]];
  };
  copy(from.x.data() + first, x.data() + to);
  copy(from.y.data() + first, y.data() + to);
  copy(from.z.data() + first, z.data() + to);
  copy(from.id.data() + first, id.data() + to);
}

void PlaceSearch::Begin(const PlaceIndex& index, const PlaceNeighborhood& neighborhood, const PlaceNodes& nodes,
                        SimdLevel level) noexcept {
  index_ = &index;
  neighborhood_ = &neighborhood;
  nodes_ = &nodes;
  kernels_ = &PlaceKernelsOf(level);
  limit_ = neighborhood.limit == 0 ? index.size() : std::min(neighborhood.limit, index.size());
  ranges_[0] = {0, nodes.count, 0, 0, Known::kNothing};
  nrange_ = 1;
}

// Among more candidates than these the data of each target are found sooner in the index, whose boxes do not serve turned
// axes well. Where data lie close together compared to targets, or far from them, halves of a range have as many
// candidates as the whole.
std::size_t PlaceSearch::MostCandidates(int ntarget) const noexcept {
  if (limit_ == index_->size()) return std::numeric_limits<std::size_t>::max();
  const std::size_t ofOne = 6 * static_cast<std::size_t>(limit_) + 100;
  return static_cast<std::size_t>(ntarget) * (neighborhood_->metric.rotated ? 2 * ofOne : ofOne);
}

// Copies what has been found in the index behind the candidates before entry `first`.
int PlaceSearch::TakeCandidates(std::size_t first) noexcept {
  if (const int status = candidates_.Reserve(first + scratch_.count); status != 0) return status;
  const PlaceVectors places = index_->places();
  for (std::size_t i = 0; i < scratch_.count; ++i) {
    const auto position = static_cast<std::uint32_t>(scratch_.found[i]);
    candidates_.x[first + i] = places.x[position];
    candidates_.y[first + i] = places.y[position];
    candidates_.z[first + i] = places.z[position];
    candidates_.id[first + i] = static_cast<int>(scratch_.found[i] >> 32);
  }
  return 0;
}

// Asks the index for the candidates of a range; they stay unknown if they are too many.
int PlaceSearch::Ask(bool inOrderOfData, Range* range) noexcept {
  const std::size_t most = MostCandidates(range->targets());
  const PlaceBox box = BoxOf(range->begin, range->end);
  const int status = index_->Collect(*neighborhood_, box, most, inOrderOfData, *kernels_, &scratch_);
  if (status != 0 || scratch_.tooMany) return status;
  range->count = static_cast<int>(scratch_.count);
  range->known = Known::kCandidates;
  return TakeCandidates(range->first);
}

void PlaceSearch::ForgetTooMany(Range* range) const noexcept {
  if (static_cast<std::size_t>(range->count) <= MostCandidates(range->targets())) return;
  range->count = 0;
  range->known = Known::kNothing;
}

// Finds the data of each of a few targets.
int PlaceSearch::FindOneByOne(int begin, int end) noexcept {
  const auto limit = static_cast<std::size_t>(limit_);
  if (const int status = Reserve(&nearest_, limit * static_cast<std::size_t>(end - begin)); status != 0) return status;
  nearestBegin_ = begin;
  for (int i = begin; i < end; ++i) {
    const double at[3] = {nodes_->x[i], nodes_->y[i], nodes_->z[i]};
    nnearest_[i - begin] = index_->FindNearest(*neighborhood_, at, *kernels_, NearestOf(i));
  }
  return 0;
}

// Makes the data of some of these targets the candidates of the range, in the order of the data.
int PlaceSearch::Unite(Range* range) noexcept {
  std::size_t count = 0;
  for (int i = range->begin; i < range->end; ++i) count += static_cast<std::size_t>(nnearest_[i - nearestBegin_]);
  if (const int status = Reserve(&scratch_.found, count); status != 0) return status;
  std::uint64_t* const found = scratch_.found.data();
  std::uint64_t* end = found;
  for (int i = range->begin; i < range->end; ++i) {
    const PlaceIndex::Near* const own = NearestOf(i);
    end = std::transform(own, own + nnearest_[i - nearestBegin_], end, [](const auto& near) { return near.found; });
  }
  std::sort(found, end);
  scratch_.count = static_cast<std::size_t>(std::unique(found, end) - found);
  range->count = static_cast<int>(scratch_.count);
  return TakeCandidates(range->first);
}

// Finds the masks of the targets of a range that has been united.
int PlaceSearch::MarkEach(const Range& range) noexcept {
  begin_ = range.begin;
  end_ = range.end;
  words_ = std::max(1, (range.count + 63) / 64);
  const auto words = static_cast<std::size_t>(words_);
  int status = Reserve(&mask_, words * kOneByOne);
  if (status == 0) status = Reserve(&setMask_, words);
  if (status != 0) return status;
  std::fill_n(mask_.data(), words * kOneByOne, 0);
  std::fill_n(setMask_.data(), words, 0);
  const std::uint64_t* const found = scratch_.found.data();
  for (int i = begin_; i < end_; ++i) {
    std::uint64_t* const own = mask_.data() + words * static_cast<std::size_t>(i - begin_);
    for (int n = 0; n < nnearest_[i - nearestBegin_]; ++n) {
      SetBit(own, static_cast<int>(std::lower_bound(found, found + range.count, NearestOf(i)[n].found) - found));
    }
    for (std::size_t w = 0; w < words; ++w) setMask_[w] |= own[w];
  }
  return 0;
}

PlaceBox PlaceSearch::BoxOf(int begin, int end) const noexcept {
  PlaceBox box;
  kernels_->box(end - begin, {nodes_->x + begin, nodes_->y + begin, nodes_->z + begin}, &box);
  return box;
}

// Fills the vectors of distances.
int PlaceSearch::FindBounds(const PlaceBox& box, const PlaceVectors& data, int count) noexcept {
  for (Buffer<double>* vector : {&lower_, &upper_, &least_, &greatest_, &inside_}) {
    const int status = Reserve(vector, static_cast<std::size_t>(count) + kPlacePadding);
    if (status != 0) return status;
  }
  for (Buffer<int>* vector : {&picked_, &surePicked_}) {
    const int status = Reserve(vector, static_cast<std::size_t>(count) + kPlacePadding);
    if (status != 0) return status;
  }
  kernels_->bounds(neighborhood_->metric, box, count, data, lower_.data(), upper_.data());
  if (neighborhood_->bounded) {
    kernels_->bounds(neighborhood_->ellipsoid, box, count, data, least_.data(), greatest_.data());
  }
  return 0;
}

// Picks data that are within a distance of a box at most, and may be inside; and of those the ones that surely are, and
// within a lesser distance of all the box.
PlaceCounts PlaceSearch::Pick(int count, double most, double surely) noexcept {
  const bool bounded = neighborhood_->bounded;
  const PlaceBounds bounds{lower_.data(),
                           upper_.data(),
                           bounded ? least_.data() : lower_.data(),
                           bounded ? greatest_.data() : upper_.data(),
                           most,
                           surely,
                           bounded ? neighborhood_->squaredRadius : kInfinity};
  return kernels_->pick(count, bounds, picked_.data(), surePicked_.data());
}

// What no distance of the `need` nearest exceeds.
double PlaceSearch::GreatestOfNearest(int count, int need) noexcept {
  if (need >= count) return kInfinity;
  double* values = upper_.data();
  int nvalue = count;
  if (neighborhood_->bounded) {
    values = inside_.data();
    nvalue = 0;
    for (int i = 0; i < count; ++i) {
      if (greatest_[static_cast<std::size_t>(i)] <= neighborhood_->squaredRadius)
        values[nvalue++] = upper_[static_cast<std::size_t>(i)];
    }
    if (need > nvalue) return kInfinity;
  }
  return kernels_->limitOfNoFewer(nvalue, values, need);
}

// Copies the candidates of a range behind the list that they are taken from. They are few if an estimate of how many
// serve each target says so.
int PlaceSearch::Narrow(Range range, Range* narrowed, bool* few) noexcept {
  const std::size_t end = range.room();
  int status = FindBounds(BoxOf(range.begin, range.end), candidates_.From(range.first), range.count);
  if (status == 0) status = candidates_.Reserve(end + static_cast<std::size_t>(range.count));
  if (status != 0) return status;
  const double bound = GreatestOfNearest(range.count, limit_);
  const PlaceCounts counts = Pick(range.count, bound, -1.0);
  const int kept = counts.picked;
  candidates_.Copy(candidates_, range.first, picked_.data(), kept, end);
  *narrowed = {range.begin, range.end, end, kept, Known::kCandidates};
  *few = kept <= kFewCandidates || kept <= 2 * std::min(limit_, counts.inside);
  return 0;
}

// The same for targets of cells.
int PlaceSearch::NarrowForCells(Range range, Range* narrowed) noexcept {
  bool few;
  if (neighborhood_->bounded || neighborhood_->metric.rotated) return Narrow(range, narrowed, &few);
  *narrowed = range;
  if (range.count <= limit_) return 0;
  narrowed->first = range.room();
  const std::size_t end = narrowed->room();
  int status = candidates_.Reserve(end);
  if (status == 0) status = Reserve(&upper_, static_cast<std::size_t>(range.count) + kPlacePadding);
  if (status != 0) return status;
  // The first and the last target of a whole box are at its corners.
  const int last = range.end - 1;
  const bool whole = std::has_single_bit(static_cast<unsigned>(range.end - range.begin)) &&
                     nodes_->place[last] - nodes_->place[range.begin] == last - range.begin;
  const PlaceBox box = whole ? PlaceBox{{nodes_->x[range.begin], nodes_->y[range.begin], nodes_->z[range.begin]},
                                        {nodes_->x[last], nodes_->y[last], nodes_->z[last]}}
                             : BoxOf(range.begin, range.end);
  double middle[3];
  const double reach = FindMiddle(neighborhood_->metric, box, middle);
  const std::size_t to = narrowed->first;
  narrowed->count = kernels_->keepNear(
      neighborhood_->metric, middle, reach, limit_, range.count, candidates_.From(range.first),
      candidates_.id.data() + range.first, upper_.data(),
      {candidates_.x.data() + to, candidates_.y.data() + to, candidates_.z.data() + to, candidates_.id.data() + to},
      &guess_);
  return 0;
}

int PlaceSearch::Next(PlaceSets* sets) noexcept {
  sets->nset = 0;
  while (nrange_ > 0) {
    Range range = ranges_[--nrange_];
    bool few = false;
    int status = 0;
    if (range.known == Known::kNothing) status = Ask(true, &range);
    if (status == 0 && range.known == Known::kCandidates) status = Narrow(range, &range, &few);
    if (status != 0) return status;
    few = few || (range.targets() == 1 && range.known == Known::kCandidates);
    if (!few) ForgetTooMany(&range);
    if (few || (range.targets() <= kOneByOne && range.known == Known::kNothing)) {
      status = few ? DecideAll(range) : FindOneByOne(range.begin, range.end);
      if (status == 0 && !few) status = Unite(&range);
      if (status == 0 && !few) status = MarkEach(range);
      if (status != 0) return status;
      sets->ncandidate = range.count;
      sets->candidates = candidates_.From(range.first);
      sets->datum = candidates_.id.data() + range.first;
      return GroupByMask(sets);
    }
    // Half a tile, a quarter, ...: places that follow each other lie together.
    const int half = static_cast<int>(std::bit_ceil(static_cast<unsigned>(range.targets())) / 2);
    ranges_[nrange_++] = {range.begin + half, range.end, range.first, range.count, range.known};
    ranges_[nrange_++] = {range.begin, range.begin + half, range.first, range.count, range.known};
  }
  return 0;
}

int PlaceSearch::NextCell(const PlaceTiles& tiles, std::int64_t tile, PlaceCell* cell) noexcept {
  cell->count = 0;
  while (nrange_ > 0) {
    Range range = ranges_[--nrange_];
    const int* const place = nodes_->place;
    const int bits = std::bit_width(static_cast<unsigned>(place[range.begin] ^ place[range.end - 1]));
    const bool ofCell = bits <= PlaceTiles::kCellBits;
    const auto give = [&] {
      double middle[3];
      tiles.FindMiddleOfCell(tile, place[range.begin], middle);
      OrderCell(range, middle, cell);
      return 0;
    };
    int status = 0;
    if (range.known == Known::kDataOfEach) {
      status = Unite(&range);
      if (status == 0 && range.count <= PlaceCell::kMaxCandidates) status = MarkEach(range);
      if (status != 0) return status;
      if (range.count <= PlaceCell::kMaxCandidates) return give();
    } else {
      const bool listed = range.known == Known::kCandidates;
      if (!listed) status = Ask(false, &range);
      if (status == 0 && range.known == Known::kCandidates && (listed || ofCell)) {
        status = NarrowForCells(range, &range);
      }
      if (status != 0) return status;
      ForgetTooMany(&range);
      if (ofCell && range.known == Known::kNothing) {
        if (status = FindOneByOne(range.begin, range.end); status != 0) return status;
        range.known = Known::kDataOfEach;
        ranges_[nrange_++] = range;
        continue;
      }
      // What many targets need is too much for some; so is what is near many of them.
      constexpr int kFewOfCell = 256;
      if (ofCell && (bits == 0 || range.count <= kFewOfCell)) {
        int count;
        if (status = SelectOfCell(range, &count); status != 0) return status;
        if (count <= PlaceCell::kMaxCandidates) return give();
      }
    }
    // Quarters of a tile, and of these, down to cells; then halves.
    const int shift = ofCell ? bits - 1 : std::max(bits - 2, PlaceTiles::kCellBits);
    for (int end = range.end; end > range.begin;) {
      int begin = end - 1;
      while (begin > range.begin && place[begin - 1] >> shift == place[end - 1] >> shift) --begin;
      ranges_[nrange_++] = {begin, end, range.first, range.count, range.known};
      end = begin;
    }
  }
  return 0;
}

// Finds the masks of the targets of a cell, and of all data that serve one of them, whose number is *count.
int PlaceSearch::SelectOfCell(const Range& range, int* count) noexcept {
  words_ = std::max(1, (range.count + 63) / 64);
  const auto words = static_cast<std::size_t>(words_);
  int status = Reserve(&mask_, words * PlaceCell::kMaxTargets);
  if (status == 0) status = Reserve(&setMask_, words);
  if (status == 0) status = Reserve(&squares_, 64 * words * PlaceCell::kMaxTargets + kPlacePadding);
  if (status != 0) return status;
  std::fill_n(mask_.data(), words * PlaceCell::kMaxTargets, 0);
  if (range.count > 0) {
    const PlaceVectors targets{nodes_->x + range.begin, nodes_->y + range.begin, nodes_->z + range.begin};
    guess_ =
        kernels_->nearest(*neighborhood_, range.end - range.begin, targets, range.count, candidates_.From(range.first),
                          candidates_.id.data() + range.first, limit_, guess_, squares_.data(), mask_.data());
  }
  std::uint64_t* const all = setMask_.data();
  for (std::size_t w = 0; w < words; ++w) {
    const std::uint64_t* const own = mask_.data() + w * PlaceCell::kMaxTargets;
    all[w] = std::accumulate(own, own + PlaceCell::kMaxTargets, std::uint64_t{0}, std::bit_or<>());
  }
  *count = std::accumulate(all, all + words, 0, [](int sum, std::uint64_t word) { return sum + std::popcount(word); });
  return 0;
}

// Fills a cell with the data that serve one of its targets, ordered by their distance from its middle; of data at one
// distance the earlier ones come first.
void PlaceSearch::OrderCell(const Range& range, const double* middle, PlaceCell* cell) noexcept {
  const auto words = static_cast<std::size_t>(words_);
  const PlaceVectors places = candidates_.From(range.first);
  int position[64];
  double square[64 + kPlacePadding];
  int n = 0;
  for (std::size_t w = 0; w < words; ++w) {
    for (std::uint64_t rest = setMask_[w]; rest != 0; rest &= rest - 1) {
      const int p = static_cast<int>(64 * w) + std::countr_zero(rest);
      square[n] =
          neighborhood_->metric.Square(places.x[p] - middle[0], places.y[p] - middle[1], places.z[p] - middle[2]);
      position[n++] = p;
    }
  }
  int rank[64];
  kernels_->rank(n, square, rank);
  const auto datumAt = [&](int i) { return candidates_.id[range.first + static_cast<std::size_t>(position[i])]; };
  int order[64];
  for (int i = 0; i < n; ++i) order[rank[i]] = i;
  for (int r = 1; r < n; ++r) {
    for (int k = r; k > 0 && square[order[k]] == square[order[k - 1]] && datumAt(order[k]) < datumAt(order[k - 1]);
         --k) {
      std::swap(order[k], order[k - 1]);
      std::swap(rank[order[k]], rank[order[k - 1]]);
    }
  }
  for (int r = 0; r < n; ++r) {
    const int p = position[order[r]];
    cellPlaces_[0][r] = places.x[p];
    cellPlaces_[1][r] = places.y[p];
    cellPlaces_[2][r] = places.z[p];
    cellDatum_[r] = datumAt(order[r]);
  }
  kernels_->reorder(n, position, rank, mask_.data(), cellMember_);
  *cell = {range.begin, range.end - range.begin, n, {cellPlaces_[0], cellPlaces_[1], cellPlaces_[2]}, cellDatum_,
           cellMember_};
}

// Finds the masks of the targets of a range.
int PlaceSearch::DecideAll(const Range& range) noexcept {
  begin_ = range.begin;
  end_ = range.end;
  words_ = std::max(1, (range.count + 63) / 64);
  const auto words = static_cast<std::size_t>(words_);
  const auto count = static_cast<std::size_t>(range.count);
  int status = Reserve(&mask_, words * static_cast<std::size_t>(end_ - begin_));
  if (status == 0) status = Reserve(&sure_, words * kMaxDepth);
  if (status == 0) status = Reserve(&selected_, words * kDecidedTogether);
  if (status == 0) status = undecided_.Reserve(count);
  if (status != 0) return status;
  std::fill_n(sure_.data(), words, 0);
  std::copy_n(candidates_.x.data() + range.first, count, undecided_.x.data());
  std::copy_n(candidates_.y.data() + range.first, count, undecided_.y.data());
  std::copy_n(candidates_.z.data() + range.first, count, undecided_.z.data());
  std::iota(undecided_.id.data(), undecided_.id.data() + count, 0);
  return Decide(begin_, end_, 0, range.count, limit_, 0);
}

// Finds the masks of targets of which each has `need` further neighbours, or as many as there are inside, among some
// undecided data, beside the sure ones of this depth.
int PlaceSearch::Decide(int begin, int end, std::size_t first, int count, int need, int depth) noexcept {
  const auto words = static_cast<std::size_t>(words_);
  const std::size_t sure = words * static_cast<std::size_t>(depth);
  const auto copySure = [&](std::uint64_t* to) { std::copy_n(sure_.data() + sure, words, to); };
  const auto maskOf = [&](int node) { return mask_.data() + words * static_cast<std::size_t>(node - begin_); };
  if (!neighborhood_->bounded && count <= need) {
    for (int i = 0; i < count; ++i) SetBit(sure_.data() + sure, undecided_.id[first + static_cast<std::size_t>(i)]);
    count = 0;
  }
  if (need == 0 || count == 0) {
    for (int node = begin; node < end; ++node) copySure(maskOf(node));
    return 0;
  }
  if (end - begin == 1 && count > kMaxRanked) {
    copySure(maskOf(begin));
    return DecideOne(begin, first, count, need, maskOf(begin));
  }
  if (count <= (end - begin <= kDecidedTogether ? kMaxRanked : kFewUndecided)) {
    for (int node = begin; node < end; node += kDecidedTogether) {
      SelectTogether(node, std::min(end, node + kDecidedTogether), first, count, need, depth);
    }
    return 0;
  }

  // Parts of a quarter, but for the first, so that the last have as many targets as are decided side by side.
  int part = 1;
  if (end - begin > kDecidedTogether) part = kDecidedTogether;
  while (4 * part < end - begin) part *= 4;
  const std::size_t own = first + static_cast<std::size_t>(count);
  if (const int status = undecided_.Reserve(own + static_cast<std::size_t>(count)); status != 0) return status;
  for (int from = begin; from < end; from += part) {
    const int to = std::min(end, from + part);
    if (const int status = FindBounds(BoxOf(from, to), undecided_.From(first), count); status != 0) return status;
    const double greatest = GreatestOfNearest(count, need);
    const double surely = need < count ? kernels_->limitOfNoMore(count, lower_.data(), need) : kInfinity;
    std::uint64_t* const partSure = sure_.data() + sure + words;
    copySure(partSure);
    const PlaceCounts counts = Pick(count, greatest, surely);
    const int left = counts.picked;
    for (int i = 0; i < counts.sure; ++i) {
      SetBit(partSure, undecided_.id[first + static_cast<std::size_t>(surePicked_[static_cast<std::size_t>(i)])]);
    }
    undecided_.Copy(undecided_, first, picked_.data(), left, own);
    if (const int status = Decide(from, to, own, left, need - counts.sure, depth + 1); status != 0) return status;
  }
  return 0;
}

// Ranks the undecided data for up to kDecidedTogether targets.
void PlaceSearch::SelectTogether(int begin, int end, std::size_t first, int count, int need, int depth) noexcept {
  const auto words = static_cast<std::size_t>(words_);
  const std::uint64_t* const sure = sure_.data() + words * static_cast<std::size_t>(depth);
  std::uint64_t* const together = selected_.data();
  for (std::size_t w = 0; w < words; ++w) std::fill_n(together + w * kDecidedTogether, kDecidedTogether, sure[w]);
  kernels_->select(*neighborhood_, {nodes_->x + begin, nodes_->y + begin, nodes_->z + begin}, count,
                   undecided_.From(first), undecided_.id.data() + first, need, together);
  for (int node = begin; node < end; ++node) {
    std::uint64_t* const mask = mask_.data() + words * static_cast<std::size_t>(node - begin_);
    for (std::size_t w = 0; w < words; ++w) {
      mask[w] = together[w * kDecidedTogether + static_cast<std::size_t>(node - begin)];
    }
  }
}

int PlaceSearch::DecideOne(int node, std::size_t first, int count, int need, std::uint64_t* mask) noexcept {
  if (const int status = Reserve(&found_, static_cast<std::size_t>(count)); status != 0) return status;
  Found* const found = found_.data();
  Found* end = found;
  for (std::size_t i = first; i < first + static_cast<std::size_t>(count); ++i) {
    const double dx = undecided_.x[i] - nodes_->x[node];
    const double dy = undecided_.y[i] - nodes_->y[node];
    const double dz = undecided_.z[i] - nodes_->z[node];
    if (neighborhood_->bounded && !(neighborhood_->ellipsoid.Square(dx, dy, dz) <= neighborhood_->squaredRadius)) {
      continue;
    }
    *end++ = {neighborhood_->metric.Square(dx, dy, dz), undecided_.id[i]};
  }
  if (end - found > need) {
    std::nth_element(found, found + need, end, [](const Found& a, const Found& b) {
      return a.square != b.square ? a.square < b.square : a.id < b.id;
    });
    end = found + need;
  }
  for (const Found* i = found; i < end; ++i) SetBit(mask, i->id);
  return 0;
}

int PlaceSearch::GroupByMask(PlaceSets* sets) noexcept {
  const auto words = static_cast<std::size_t>(words_);
  const int n = end_ - begin_;
  if (const int status = Reserve(&setMask_, words * static_cast<std::size_t>(n)); status != 0) return status;
  const std::size_t size = std::bit_ceil(2 * static_cast<std::size_t>(n));
  std::fill_n(table_, size, -1);
  // Most masks are of one word, for which a call takes longer than the loop.
  const auto differ = [words](const std::uint64_t* a, const std::uint64_t* b) {
    std::size_t w = 0;
    while (w < words && a[w] == b[w]) ++w;
    return w < words;
  };
  int nset = 0;
  for (int i = 0; i < n; ++i) {
    const std::uint64_t* const mask = mask_.data() + words * static_cast<std::size_t>(i);
    std::size_t slot = Hash(mask, words_) & (size - 1);
    while (table_[slot] >= 0 && differ(mask, setMask_.data() + words * static_cast<std::size_t>(table_[slot]))) {
      slot = (slot + 1) & (size - 1);
    }
    if (table_[slot] < 0) {
      std::copy_n(mask, words, setMask_.data() + words * static_cast<std::size_t>(nset));
      start_[nset] = 0;
      table_[slot] = nset++;
    }
    setOf_[i] = table_[slot];
    ++start_[setOf_[i]];
  }
  // The targets by set, filled from behind.
  for (int s = 1; s < nset; ++s) start_[s] += start_[s - 1];
  start_[nset] = n;
  for (int i = n - 1; i >= 0; --i) member_[--start_[setOf_[i]]] = begin_ + i;
  sets->nset = nset;
  sets->words = words_;
  sets->mask = setMask_.data();
  sets->start = start_;
  sets->member = member_;
  return 0;
}

}  // namespace kestrum
