#include "neighborhood/place_search.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/statuses.hpp"

namespace {

using kestrum::PlaceMetric;
using kestrum::PlaceNeighborhood;
using kestrum::PlaceNodes;
using kestrum::PlaceTargets;
using kestrum::PlaceTiles;
using kestrum::SimdLevel;

struct Places {
  std::vector<double> x, y, z;
  int size() const { return static_cast<int>(x.size()); }
  kestrum::PlaceVectors vectors() const { return {x.data(), y.data(), z.data()}; }
};

enum class Layout { kRandom, kLattice, kClustered, kLine, kFarAway, kFew, kTight };

Places MakePlaces(Layout layout, int dimension, std::mt19937& generator) {
  std::uniform_real_distribution<double> uniform(0.0, 40.0);
  std::normal_distribution<double> normal(20.0, 0.5);
  Places places;
  const int count = layout == Layout::kFew ? 3 : layout == Layout::kTight ? 2400 : 343;
  for (int i = 0; i < count; ++i) {
    double at[3];
    for (double& c : at) c = layout == Layout::kClustered && i % 8 != 0 ? normal(generator) : uniform(generator);
    // Whole numbers: many data at the same distance of a target.
    if (layout == Layout::kLattice)
      std::tie(at[0], at[1], at[2]) = std::tuple(6 * (i % 7), 6 * (i / 7 % 7), 6 * (i / 49));
    if (layout == Layout::kLine) at[1] = at[2] = 20.0;
    if (layout == Layout::kFarAway && i == 100) at[0] = 1e6;
    // About three places, many data at the same distance of a target.
    if (layout == Layout::kTight) {
      for (int a = 0; a < 3; ++a) at[a] = 9.0 + 7.0 * (i % 3) * (a == 1 ? 0.75 : 1.0) + 0x1p-6 * (i / 3 * (a + 3) % 11);
    }
    places.x.push_back(at[0]);
    places.y.push_back(at[1]);
    places.z.push_back(dimension > 2 ? at[2] : 0.0);
  }
  return places;
}

// The data of a target: all sorted by distance, then by number; cut, then put in their order.
std::vector<int> NearestOf(const Places& data, const PlaceNeighborhood& neighborhood, double x, double y, double z) {
  std::vector<std::pair<double, int>> found;
  for (int i = 0; i < data.size(); ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double dx = data.x[at] - x;
    const double dy = data.y[at] - y;
    const double dz = data.z[at] - z;
    if (neighborhood.bounded && neighborhood.ellipsoid.Square(dx, dy, dz) > neighborhood.squaredRadius) continue;
    found.emplace_back(neighborhood.metric.Square(dx, dy, dz), i);
  }
  std::sort(found.begin(), found.end());
  if (neighborhood.limit > 0 && found.size() > static_cast<std::size_t>(neighborhood.limit)) {
    found.resize(static_cast<std::size_t>(neighborhood.limit));
  }
  std::vector<int> numbers;
  for (const auto& [square, number] : found) numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

const kestrum::Progress kQuiet{nullptr, nullptr};

struct Served {
  double x, y, z;
  std::vector<int> data;
};

// Calls visit(search, tiles, tile, nodes) for every tile that has targets.
template <typename Visit>
void ForEachTile(const Places& data, const PlaceNeighborhood& neighborhood, const PlaceTargets& targets, int most,
                 bool cells, SimdLevel level, const Visit& visit) {
  const double scale[3] = {neighborhood.metric.Scale(0), neighborhood.metric.Scale(1), neighborhood.metric.Scale(2)};
  kestrum::PlaceIndex index;
  EXPECT_EQ(index.Build(data.size(), data.vectors(), scale, kestrum::Dealing::Threads(2), kQuiet), 0);
  PlaceTiles tiles;
  EXPECT_EQ(tiles.Prepare(targets, scale, most, cells, kestrum::Dealing::Serial(), kQuiet), 0);
  PlaceNodes nodes;
  kestrum::PlaceSearch search;
  for (std::int64_t tile = 0; tile < tiles.count(); ++tile) {
    tiles.Fill(tile, &nodes);
    if (nodes.count == 0) continue;
    EXPECT_LE(nodes.count, most);
    search.Begin(index, neighborhood, nodes, level);
    visit(search, tiles, tile, nodes);
  }
}

// The data of every target that is not left out.
std::map<std::int64_t, Served> Search(const Places& data, const PlaceNeighborhood& neighborhood,
                                      const PlaceTargets& targets, int most, SimdLevel level) {
  std::map<std::int64_t, Served> all;
  ForEachTile(data, neighborhood, targets, most, false, level, [&](auto& search, auto&, auto, const auto& nodes) {
    std::set<std::vector<int>> sets;
    for (;;) {
      kestrum::PlaceSets found;
      EXPECT_EQ(search.Next(&found), 0);
      if (found.nset == 0) break;
      std::vector<int> positions(static_cast<std::size_t>(found.ncandidate) + 1);
      sets.clear();
      for (int s = 0; s < found.nset; ++s) {
        const int count = found.Members(s, positions.data());
        std::vector<int> numbers;
        for (int i = 0; i < count; ++i) {
          const int position = positions[static_cast<std::size_t>(i)];
          numbers.push_back(found.datum[position]);
          EXPECT_EQ(found.candidates.x[position], data.x[static_cast<std::size_t>(numbers.back())]);
        }
        EXPECT_TRUE(sets.insert(numbers).second) << "two sets of the same data";
        for (int i = found.start[s]; i < found.start[s + 1]; ++i) {
          const int node = found.member[i];
          EXPECT_TRUE(
              all.emplace(nodes.target[node], Served{nodes.x[node], nodes.y[node], nodes.z[node], numbers}).second);
        }
      }
    }
  });
  return all;
}

// The same by cells, whose data must come in the order of their distance from the middle of the cell.
std::map<std::int64_t, Served> SearchCells(const Places& data, const PlaceNeighborhood& neighborhood,
                                           const PlaceTargets& targets, int most, SimdLevel level) {
  std::map<std::int64_t, Served> all;
  ForEachTile(
      data, neighborhood, targets, most, true, level, [&](auto& search, auto& tiles, auto tile, const auto& nodes) {
        for (;;) {
          kestrum::PlaceCell cell;
          EXPECT_EQ(search.NextCell(tiles, tile, &cell), 0);
          if (cell.count == 0) break;
          double middle[3];
          tiles.FindMiddleOfCell(tile, nodes.place[cell.begin], middle);
          std::vector<std::pair<double, int>> order;
          std::uint64_t served = 0;
          for (int c = 0; c < cell.ncandidate; ++c) {
            const auto at = static_cast<std::size_t>(cell.datum[c]);
            EXPECT_EQ(cell.candidates.x[c], data.x[at]);
            order.emplace_back(
                neighborhood.metric.Square(data.x[at] - middle[0], data.y[at] - middle[1], data.z[at] - middle[2]),
                cell.datum[c]);
          }
          EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
          for (int i = 0; i < cell.count; ++i) {
            const int node = cell.begin + i;
            EXPECT_EQ(nodes.place[node] >> PlaceTiles::kCellBits, nodes.place[cell.begin] >> PlaceTiles::kCellBits);
            std::vector<int> numbers;
            for (int c = 0; c < cell.ncandidate; ++c) {
              if ((cell.member[i] >> c & 1) != 0) numbers.push_back(cell.datum[c]);
            }
            served |= cell.member[i];
            std::sort(numbers.begin(), numbers.end());
            EXPECT_TRUE(
                all.emplace(nodes.target[node], Served{nodes.x[node], nodes.y[node], nodes.z[node], numbers}).second);
          }
          EXPECT_EQ(std::popcount(served), cell.ncandidate) << "a candidate that serves none";
        }
      });
  return all;
}

struct SearchCase {
  std::string name;
  Layout layout;
  int dimension;
  double ranges[3];
  double angles[3];
  int limit;
  double radii[3];  // 0 for none
};

class PlaceSearchTable : public testing::TestWithParam<SearchCase> {};

PlaceNeighborhood NeighborhoodOf(const SearchCase& row) {
  const kestrum::Rotation rotation = kestrum::Rotation::FromAngles(row.angles);
  const bool turned = row.angles[0] != 0.0 || row.angles[1] != 0.0 || row.angles[2] != 0.0;
  PlaceNeighborhood neighborhood;
  neighborhood.metric = PlaceMetric::FromRanges(row.ranges, turned ? &rotation : nullptr, row.dimension);
  neighborhood.limit = row.limit;
  neighborhood.bounded = row.radii[0] > 0.0;
  if (neighborhood.bounded) {
    double longest;
    neighborhood.ellipsoid = PlaceMetric::FromRanges(row.radii, turned ? &rotation : nullptr, row.dimension, &longest);
    neighborhood.squaredRadius = longest * longest;
  }
  return neighborhood;
}

// A window of a grid with a mask, in tiles of several sizes, and the same places as a list; with every instruction set.
TEST_P(PlaceSearchTable, FindsTheNearestOfAll) {
  const SearchCase& row = GetParam();
  std::mt19937 generator(7);
  const Places data = MakePlaces(row.layout, row.dimension, generator);
  const PlaceNeighborhood neighborhood = NeighborhoodOf(row);
  PlaceTargets window;
  window.grid = {};
  window.grid.sx = window.grid.sy = 1.0;
  window.grid.sz = 3.0;
  window.grid.ox = window.grid.oy = window.grid.oz = -2.5;
  std::tie(window.grid.nx, window.grid.ny, window.grid.nz) = std::tuple(40, 24, 4);
  window.dimension = row.dimension;
  std::copy_n(std::array{2, 1, 0}.data(), 3, window.first);
  std::copy_n(std::array{37, 21, row.dimension > 2 ? 3 : 1}.data(), 3, window.extent);
  std::vector<unsigned char> mask(static_cast<std::size_t>(window.count()), 1);
  for (std::size_t i = 0; i < mask.size(); i += 11) mask[i] = 0;
  for (std::size_t i = 100; i < 300; ++i) mask[i] = 0;
  window.mask = mask.data();

  const auto served = Search(data, neighborhood, window, PlaceNodes::kMax, kestrum::BestSimdLevel());
  EXPECT_EQ(static_cast<long>(served.size()), std::count(mask.begin(), mask.end(), 1));
  std::vector<double> list(mask.size() * static_cast<std::size_t>(row.dimension));
  for (const auto& [target, own] : served) {
    const auto t = static_cast<std::size_t>(target);
    EXPECT_EQ(mask[t], 1);
    EXPECT_EQ(own.x, -2.5 + (2 + static_cast<int>(t % 37) + 0.5) * 1.0);
    EXPECT_EQ(own.y, -2.5 + (1 + static_cast<int>(t / 37 % 21) + 0.5) * 1.0);
    EXPECT_EQ(own.z, row.dimension > 2 ? -2.5 + (static_cast<int>(t / 37 / 21) + 0.5) * 3.0 : 0.0);
    ASSERT_EQ(own.data, NearestOf(data, neighborhood, own.x, own.y, own.z)) << "target " << target;
    const double at[3] = {own.x, own.y, own.z};
    std::copy_n(at, row.dimension, list.data() + t * static_cast<std::size_t>(row.dimension));
  }
  PlaceTargets places;
  places.list = list.data();
  places.nlist = window.count();
  places.dimension = row.dimension;
  places.mask = mask.data();
  const struct {
    const PlaceTargets& targets;
    int most;
    SimdLevel level;
  } others[] = {{window, 1024, SimdLevel::kBaseline}, {window, 256, SimdLevel::kAvx2},
                {window, 1, SimdLevel::kAvx2},        {window, 64, SimdLevel::kAvx512},
                {places, 1024, SimdLevel::kAvx512},   {places, 5, SimdLevel::kAvx512}};
  for (const auto& other : others) {
    if (other.level > kestrum::BestSimdLevel()) continue;
    const auto again = Search(data, neighborhood, other.targets, other.most, other.level);
    EXPECT_EQ(again.size(), served.size());
    for (const auto& [target, own] : again) ASSERT_EQ(own.data, served.at(target).data) << "target " << target;
    if (other.targets.list != nullptr || row.limit == 0 || row.limit > kestrum::PlaceCell::kMaxMembers) continue;
    const auto inCells = SearchCells(data, neighborhood, window, std::max(16, other.most), other.level);
    EXPECT_EQ(inCells.size(), served.size());
    for (const auto& [target, own] : inCells) ASSERT_EQ(own.data, served.at(target).data) << "target " << target;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, PlaceSearchTable,
    testing::Values(SearchCase{"Plane", Layout::kRandom, 2, {1, 1, 0}, {0, 0, 0}, 20, {}},
                    SearchCase{"PlaneLattice", Layout::kLattice, 2, {1, 1, 0}, {0, 0, 0}, 7, {}},
                    SearchCase{"PlaneLatticeAnisotropic", Layout::kLattice, 2, {2, 1, 0}, {0, 0, 0}, 6, {}},
                    SearchCase{"PlaneTurned", Layout::kRandom, 2, {9, 2, 0}, {30, 0, 0}, 12, {}},
                    SearchCase{"PlaneDipping", Layout::kRandom, 2, {9, 2, 1}, {30, 20, 10}, 12, {}},
                    SearchCase{"One", Layout::kRandom, 2, {1, 1, 0}, {0, 0, 0}, 1, {}},
                    SearchCase{"Many", Layout::kRandom, 2, {1, 1, 0}, {0, 0, 0}, 130, {}},
                    SearchCase{"AlmostAll", Layout::kRandom, 2, {1, 1, 0}, {0, 0, 0}, 342, {}},
                    SearchCase{"All", Layout::kRandom, 3, {1, 1, 1}, {0, 0, 0}, 0, {}},
                    SearchCase{"MoreThanAll", Layout::kFew, 2, {1, 1, 1}, {0, 0, 0}, 20, {}},
                    SearchCase{"Clustered", Layout::kClustered, 3, {1, 1, 1}, {0, 0, 0}, 24, {}},
                    SearchCase{"ClusteredTurned", Layout::kClustered, 3, {100, 3, 1}, {40, 25, 70}, 9, {}},
                    SearchCase{"Line", Layout::kLine, 2, {1, 1, 1}, {0, 0, 0}, 10, {}},
                    SearchCase{"FarAway", Layout::kFarAway, 3, {3, 3, 1}, {0, 0, 0}, 16, {}},
                    SearchCase{"Tight", Layout::kTight, 2, {1, 1, 1}, {0, 0, 0}, 3, {}},
                    SearchCase{"TightManyWords", Layout::kTight, 3, {1, 1, 1}, {0, 0, 0}, 40, {}},
                    SearchCase{"TightTurned", Layout::kTight, 3, {9, 2, 1}, {30, 20, 10}, 20, {}},
                    SearchCase{"TightWithin", Layout::kTight, 3, {9, 4, 1}, {30, 0, 10}, 24, {15, 15, 5}},
                    SearchCase{"SpaceLattice", Layout::kLattice, 3, {1, 1, 1}, {0, 0, 0}, 15, {}},
                    SearchCase{"Within", Layout::kRandom, 2, {1, 1, 0}, {0, 0, 0}, 0, {6, 6, 6}},
                    SearchCase{"WithinLattice", Layout::kLattice, 2, {1, 1, 0}, {0, 0, 0}, 3, {6, 6, 6}},
                    SearchCase{"WithinEllipse", Layout::kClustered, 2, {9, 2, 0}, {30, 0, 0}, 8, {7, 3, 0}},
                    SearchCase{"WithinEllipsoid", Layout::kRandom, 3, {4, 2, 1}, {30, 20, 10}, 12, {20, 9, 4}},
                    SearchCase{"AllWithin", Layout::kClustered, 3, {4, 2, 1}, {30, 20, 10}, 0, {20, 9, 14}}),
    [](const auto& tested) { return tested.param.name; });

// Runs so long that they are cut down before they are halved: places that follow one another, equal along an axis, at
// random.
TEST(PlaceIndex, HalvesLongRuns) {
  constexpr std::int64_t kCount = 700000;
  const double scale[3] = {1, 1, 1};
  std::mt19937 generator(5);
  std::uniform_real_distribution<double> uniform(0.0, 900.0);
  for (const int layout : {0, 1, 2}) {
    std::vector<kestrum::NumberedPlace> places;
    for (std::int64_t i = 0; i < kCount; ++i) {
      const double x = layout == 2 ? uniform(generator) : static_cast<double>(i % 1000);
      const double y = layout == 0 ? static_cast<double>(i / 1000) : layout == 1 ? 0.0 : uniform(generator);
      places.push_back({{x, y, 0.0}, i});
    }
    ASSERT_EQ(kestrum::OrderPlaces(kCount, places.data(), scale, kestrum::Dealing::Threads(2), kQuiet), 0);
    std::vector<char> met(kCount, 0);
    for (const kestrum::NumberedPlace& place : places) ++met[static_cast<std::size_t>(place.number)];
    EXPECT_EQ(std::count(met.begin(), met.end(), 1), kCount);
    for (std::int64_t size = 1 << 20; size >= 1 << 17; size /= 2) {
      for (std::int64_t begin = 0; begin + size / 2 < kCount; begin += size) {
        const auto middle = places.begin() + begin + size / 2;
        const auto first = places.begin() + begin, last = places.begin() + std::min(kCount, begin + size);
        double extent[2];
        for (int a = 0; a < 2; ++a) {
          const auto [low, high] =
              std::minmax_element(first, last, [a](auto& p, auto& q) { return p.at[a] < q.at[a]; });
          extent[a] = high->at[a] - low->at[a];
        }
        const auto less = [a = extent[1] > extent[0] ? 1 : 0](auto& p, auto& q) {
          return std::pair(p.at[a], p.number) < std::pair(q.at[a], q.number);
        };
        EXPECT_TRUE(less(*std::max_element(first, middle, less), *std::min_element(middle, last, less)))
            << layout << ' ' << size << ' ' << begin;
      }
    }
  }
}

TEST(PlaceIndex, AsksWhetherToStop) {
  const std::vector<double> line(1000, 0.0);
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  monitor.abortedJobFlag = TRUE;
  const kestrum::Progress stopped(&monitor, nullptr);
  const kestrum::PlaceVectors data{line.data(), line.data(), line.data()};
  const double scale[3] = {1, 1, 1};
  kestrum::PlaceIndex index;
  kestrum::CoincidentData found;
  kestrum::PlaceTiles tiles;
  PlaceTargets targets{};
  targets.dimension = 2;
  targets.list = line.data();
  targets.nlist = 500;
  for (const auto& dealing : {kestrum::Dealing::Serial(), kestrum::Dealing::Threads(2)}) {
    EXPECT_EQ(index.Build(1000, data, scale, dealing, stopped), kestrum::kAborted);
    EXPECT_EQ(tiles.Prepare(targets, scale, 64, false, dealing, stopped), kestrum::kAborted);
  }
  EXPECT_EQ(kestrum::FindCoincidentData(1000, data, nullptr, &found, stopped), kestrum::kAborted);
}

TEST(PlaceIndex, FindsDataAtOnePlace) {
  Places data{{1, 2, 0.0, 2, 5, -0.0, 2}, {1, 2, 3, 2, 5, 3, 2}, {0, 0, 0, 0.1, 0, 0, 0}};
  const double noErrors[] = {0, 0, 0, 0, 0, 0, 0};
  const double errors[] = {0, 1, 1, 1, 1, 1, 1};
  const double someErrors[] = {0, 1, 1, 1, 1, 1, 0};
  const struct {
    int n;
    const double* mayCoincide;
    std::int64_t first, second;
  } rows[] = {
      {7, nullptr, 2, 5}, {7, noErrors, 2, 5}, {5, nullptr, -1, -1}, {7, errors, -1, -1}, {7, someErrors, 1, 6}};
  for (const auto& row : rows) {
    kestrum::CoincidentData found;
    ASSERT_EQ(kestrum::FindCoincidentData(row.n, data.vectors(), row.mayCoincide, &found, kQuiet), 0);
    EXPECT_EQ(found.first, row.first);
    EXPECT_EQ(found.second, row.second);
  }
}

}  // namespace
