// Every kernel gives at every level the bits that it gives at the baseline. What these bits have to be is tested by the
// families, at the level of the machine, against plain loops and closed forms.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "analysis/add_bits.hpp"
#include "analysis/distance_lines.hpp"
#include "analysis/euler_number.hpp"
#include "analysis/extremes.hpp"
#include "analysis/geobodies.hpp"
#include "analysis/mark_block.hpp"
#include "analysis/moving_average_sums.hpp"
#include "analysis/nearest_center.hpp"
#include "analysis/nearest_in_columns.hpp"
#include "analysis/pair_counts.hpp"
#include "analysis/pyramid_rows.hpp"
#include "analysis/threshold_levels.hpp"
#include "analysis/two_point_statistics.hpp"
#include "core/buffer.hpp"
#include "numeric/gmres_batch.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
using kestrum::SimdLevel;

class Draws {
 public:
  explicit Draws(unsigned seed) : generator_(seed) {}

  int Int(int low, int high) { return low + static_cast<int>(generator_() % static_cast<unsigned>(high - low + 1)); }
  bool Flip() { return Int(0, 1) != 0; }
  // Real numbers, or numbers of which many are equal; one in `often`, if not 0, is missing.
  Values Numbers(int size, int often = 0) {
    const bool whole = Flip();
    Values values(static_cast<std::size_t>(size));
    for (double& value : values) {
      value = whole ? Int(0, 3) : std::uniform_real_distribution<double>(-2.0, 2.0)(generator_);
      if (often != 0 && Int(1, often) == 1) value = kMissing;
    }
    return values;
  }

 private:
  std::mt19937 generator_;
};

Values Marks(SimdLevel level, Draws& draws) {
  const Values lower = {1.0, 3.0}, upper = {2.0, 4.0};
  Values values = draws.Numbers(kestrum::kMarkBlock, 9);
  values[5] = kNaN;
  unsigned char marks[kestrum::kMarkBlock];
  const kestrum::IntervalSet set{draws.Int(0, 2), lower.data(), upper.data(), draws.Flip(), draws.Flip(), draws.Flip()};
  kestrum::MarkBlock(values.data(), set, level, marks);
  Values all(marks, marks + kestrum::kMarkBlock);
  const auto add = [&]<typename T, typename Set>(T, Set kind) {
    const std::vector<T> typed(values.begin(), values.end());
    kestrum::MarkBlock(typed.data(), kind, level, marks);
    all.insert(all.end(), marks, marks + kestrum::kMarkBlock);
    std::uint64_t words[2];
    all.push_back(kestrum::MarkWords(typed.data() + 1, draws.Int(1, kestrum::kMarkBlock - 1), kind, words, level));
    for (int i = 0; i < kestrum::kMarkBlock; ++i) all.push_back(static_cast<double>(words[0] >> i & 1));
  };
  add(1.0, kestrum::TrueValues{});
  add(1.0, kestrum::KnownValues{});
  add(1.0f, kestrum::TrueValues{});
  add(1.0f, kestrum::KnownValues{});
  // Whole numbers without a sign.
  for (double& value : values) value = std::abs(value) > 2.0 || std::isnan(value) ? 3.0 : std::abs(value);
  add(1, kestrum::TrueValues{});
  add(static_cast<unsigned char>(1), kestrum::TrueValues{});
  add(std::int16_t{1}, kestrum::CodeRange{1, 2});
  return all;
}

// Levels as bits, and the marks of each set, some of values with NaN.
Values Levels(SimdLevel level, Draws& draws) {
  constexpr int kThresholds = 16;
  const bool above = draws.Flip();
  const int n = draws.Int(1, kThresholds);
  Values thresholds = draws.Numbers(n);
  std::sort(thresholds.begin(), thresholds.end());
  if (!above) std::reverse(thresholds.begin(), thresholds.end());
  thresholds.resize(kThresholds, kNaN);
  // Eight blocks are marked at once; the first eight may be alike, and the last value is NaN.
  const int nblock = draws.Int(1, 20);
  Values values = draws.Numbers(nblock * kestrum::kLevelBlock);
  if (draws.Flip()) std::fill_n(values.begin(), std::min(nblock, 8) * kestrum::kLevelBlock, values[0]);
  values.back() = kNaN;
  std::vector<std::uint64_t> words(5 * static_cast<std::size_t>(nblock)), marks(static_cast<std::size_t>(nblock));
  std::vector<unsigned char> smallest(marks.size()), largest(marks.size());
  const auto levelsFrom = [&](int i) {
    return kestrum::LevelBits{words.data() + i, nblock, 5, smallest.data() + i, largest.data() + i};
  };
  for (int i = 0; i < nblock; ++i) {
    kestrum::WriteLevels(values.data() + i * kestrum::kLevelBlock, kThresholds, thresholds.data(), above, level,
                         levelsFrom(i));
  }
  Values all;
  for (int k = 0; k < n; ++k) {
    const int count = kestrum::MarkFromLevel(levelsFrom(0), k + 1, nblock, level, marks.data());
    int expected = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const double threshold = thresholds[static_cast<std::size_t>(k)];
      const bool marked = above ? values[i] > threshold : values[i] <= threshold;
      EXPECT_EQ(marks[i / kestrum::kLevelBlock] >> i % kestrum::kLevelBlock & 1, static_cast<unsigned>(marked));
      expected += marked;
    }
    EXPECT_EQ(count, expected);
    for (const std::uint64_t word : marks) all.push_back(std::bit_cast<double>(word));
  }
  return all;
}

// Rows grown along themselves, some longer than are grown at once.
Values GrownRows(SimdLevel level, Draws& draws) {
  const int words = draws.Int(0, 9) == 0 ? draws.Int(250, 600) : draws.Int(1, 6);
  const int nrow = draws.Int(1, words > 6 ? 3 : 100);
  const int low = draws.Int(-150, 150);
  const int length = draws.Int(1, 64);
  const int width = words * 64;
  std::vector<std::uint64_t> from(static_cast<std::size_t>(words * nrow)), to(from.size());
  for (std::uint64_t& word : from) word = std::uint64_t{draws.Int(0, 3) == 0} << draws.Int(0, 63);
  const auto begin = draws.Int(0, nrow - 1) * words;
  kestrum::GrowBits({from.data(), std::ssize(from), words}, begin, std::ssize(from), low, length, level, to.data());
  Values all;
  for (std::size_t i = static_cast<std::size_t>(begin); i < to.size(); ++i) {
    std::uint64_t expected = 0;
    const int row = static_cast<int>(i) / words;
    for (int bit = 0; bit < 64; ++bit) {
      const int x = static_cast<int>(i) % words * 64 + bit;
      for (int at = std::max(x + low, 0); at < std::min(x + low + length, width); ++at) {
        expected |= (from[static_cast<std::size_t>(row * words + at / 64)] >> at % 64 & 1) << bit;
      }
    }
    EXPECT_EQ(to[i], expected);
    all.push_back(std::bit_cast<double>(to[i]));
  }
  return all;
}

// Signs by bits, of rows of any length up to 64; 0 has none.
Values Negations(SimdLevel level, Draws& draws) {
  const Values values = draws.Numbers(draws.Int(0, 64));
  const std::uint64_t bits = static_cast<std::uint64_t>(draws.Int(0, 0x7ffffffe)) * 0x200000001;
  Values all;
  const auto add = [&]<typename T>(T) {
    std::vector<T> typed(values.begin(), values.end());
    for (T& value : typed) value = std::abs(value);
    const std::vector<T> before = typed;
    kestrum::Negate(typed.data(), static_cast<int>(typed.size()), bits, level);
    for (std::size_t i = 0; i < typed.size(); ++i) {
      EXPECT_EQ(typed[i], (bits >> i & 1) != 0 ? -before[i] : before[i]);
      EXPECT_FALSE(typed[i] == 0 && std::signbit(typed[i]));
    }
    all.insert(all.end(), typed.begin(), typed.end());
  };
  add(1.0);
  add(1.0f);
  return all;
}

// All steps: the labels of rows of any length, as whole and as real numbers.
Values Labels(SimdLevel level, Draws& draws) {
  VORL_GRID grid = Grid(draws.Int(1, draws.Flip() ? 600 : 31), draws.Int(1, 4), draws.Int(1, 4));
  grid.nxyz = grid.nx * grid.ny * grid.nz;
  const Values values = draws.Numbers(grid.nxyz);
  const real lower = 0.5, upper = 3.0;
  const auto connectivity = static_cast<kestrum::Connectivity>(draws.Int(0, 2));
  kestrum::LimitSimdLevel(level);
  kestrum::GeobodyFinder finder;
  EXPECT_EQ(finder.Allocate(grid), 0);
  finder.Mark(values.data(), kestrum::IntervalSet{1, &lower, &upper, false, false, false});
  Values all(values.size());
  const int count = finder.LabelMarked(connectivity, all.data());
  std::vector<int> labels(values.size());
  EXPECT_EQ(finder.LabelMarked(connectivity, labels.data()), count);
  kestrum::LimitSimdLevel(SimdLevel::kAvx512);
  all.insert(all.end(), labels.begin(), labels.end());
  return all;
}

// Those of a plain loop, too.
Values EndsOf(SimdLevel level, Draws& draws) {
  Values values = draws.Numbers(draws.Int(1, 300), 9);
  for (double& value : values) {
    if (value == kMissing) value = kNaN;
    if (value == 0.0 && draws.Flip()) value = -0.0;
  }
  kestrum::LimitSimdLevel(level);
  Values all;
  const auto add = [&]<typename T>(T) {
    std::vector<T> typed;
    kestrum::Extremes expected, found;
    for (const double value : values) {
      if (std::isnan(value) && !std::is_floating_point_v<T>) continue;
      typed.push_back(static_cast<T>(value));
      if (std::isnan(value)) continue;
      expected.least = std::min(expected.least, static_cast<double>(typed.back()));
      expected.greatest = std::max(expected.greatest, static_cast<double>(typed.back()));
    }
    const auto n = static_cast<std::ptrdiff_t>(typed.size());
    const kestrum::Progress silent(nullptr, nullptr);
    EXPECT_EQ(kestrum::FindExtremes(n, typed.data(), kestrum::Dealing::Threads(draws.Int(1, 3)), silent, &found), 0);
    EXPECT_TRUE(found.least == expected.least && found.greatest == expected.greatest) << n;
    all.insert(all.end(), {found.least, found.greatest});
  };
  add(1.0);
  add(1.0F);
  add(1);
  for (double& value : values) value = std::fabs(value);
  add(static_cast<unsigned char>(1));
  kestrum::LimitSimdLevel(SimdLevel::kAvx512);
  return all;
}

Values EulerNumbers(SimdLevel level, Draws& draws) {
  VORL_GRID grid = Grid(draws.Int(1, 40), draws.Int(1, 5), draws.Int(1, 4));
  grid.nxy = grid.nx * grid.ny;
  grid.nxyz = grid.nxy * grid.nz;
  const Values values = draws.Numbers(grid.nxyz, 9);
  const std::vector<int> labels(values.begin(), values.end());
  return {double(kestrum::EulerNumberOfRows(grid, values.data(), 0, 1, level)),
          double(kestrum::EulerNumberOfRows(grid, labels.data(), 1, 2, level))};
}

Values NearestCenters(SimdLevel level, Draws& draws) {
  const int count = draws.Int(0, 70), nfeature = draws.Int(1, 4), ncluster = draws.Int(1, 5);
  std::vector<Values> features;
  std::vector<const double*> rows;
  for (int f = 0; f < nfeature; ++f) features.push_back(draws.Numbers(count + 1));
  for (Values& feature : features) rows.push_back(feature.data());
  if (count >= 40) {
    features[0][4] = kNaN;    // nearest to none
    features[0][40] = 1e100;  // as near to all
  }
  const Values centers = draws.Numbers(nfeature * ncluster);
  Values distances(count);
  std::vector<int> nearest(count);
  kestrum::NearestCenterKernelOf(level)(rows.data(), nfeature, 1, count, centers.data(), ncluster, nearest.data(),
                                        distances.data());
  EXPECT_TRUE(count < 40 || (nearest[3] == 0 && nearest[39] == 0));
  distances.insert(distances.end(), nearest.begin(), nearest.end());
  return distances;
}

Values Lines(SimdLevel level, Draws& draws) {
  const double weights[] = {1.0, 0.49, 25.0, 1e-3, 3e-13, 2e-16};  // the last ones round starts together
  const int n = draws.Int(2, 61), size = n * kestrum::kLineLanes, often = draws.Int(1, 4);
  const int farthest = draws.Flip() ? 3 : 99;
  kestrum::Buffer<double> cost, distance;
  kestrum::Buffer<long long> link;
  EXPECT_EQ(cost.Allocate(size) + distance.Allocate(size) + link.Allocate(size), 0);
  for (double& value : cost) value = draws.Int(1, often) == 1 ? 1.69 * std::pow(draws.Int(0, farthest), 2) : 3e5;
  kestrum::LineKernelOf(level)(draws.Flip() ? kestrum::DistanceMetric::kL1 : kestrum::DistanceMetric::kEuclidean,
                               {n, weights[draws.Int(0, 5)], cost.data(), distance.data(), link.data()});
  return {distance.begin(), distance.end()};
}

Values LagSums(SimdLevel level, Draws& draws) {
  const int sizes[][3] = {{150, 1, 1}, {1, 90, 2}, {2, 3, 40}, {21, 5, 2}};
  const auto& [nx, ny, nz] = sizes[draws.Int(0, 3)];
  TestImage image(Grid(nx, ny, nz), {"v"}, draws.Numbers(nx * ny * nz, draws.Flip() ? 3 : 0)), map;
  const kestrum::LagBox box{{{draws.Int(1 - nx, 0), nx - 1, draws.Int(1, 3)}, {0, ny - 1, 1}, {1 - nz, nz - 1, 1}}};
  EXPECT_EQ(kestrum::ComputeTwoPointStatistic(static_cast<kestrum::TwoPointStatistic>(draws.Int(0, 7)), image, &map, 0,
                                              box, false, kestrum::Dealing::Serial(), level),
            0);
  return map.Values();
}

Values PairCounts(SimdLevel level, Draws& draws) {
  const int nx = draws.Int(1, 140), n = draws.Int(2, 4);
  const int lag[] = {draws.Int(0, nx - 1), 1, 1};
  std::vector<std::int16_t> codes(static_cast<std::size_t>(6 * nx));
  for (std::int16_t& code : codes) code = static_cast<std::int16_t>(draws.Int(-1, n - 1));
  const std::vector<int> labels(codes.begin(), codes.end());
  const std::size_t size = static_cast<std::size_t>(9 * (2 * lag[0] + 1)),
                    tables = static_cast<std::size_t>(n * n + n + 2);
  std::vector<std::int64_t> counts(tables * size);
  const VORL_GRID grid = Grid(nx, 3, 2);
  const kestrum::Dealing serial = kestrum::Dealing::Serial();
  const kestrum::Progress progress(nullptr, nullptr);
  std::int64_t* const changes = counts.data() + static_cast<std::size_t>(n * n) * size;
  std::int64_t* const pairs = changes + static_cast<std::size_t>(n) * size;
  EXPECT_EQ(kestrum::CountCategoryPairs(grid, codes.data(), n, lag, serial, progress, counts.data(), level), 0);
  EXPECT_EQ(
      kestrum::CountCategoryChanges(grid, codes.data(), n, draws.Flip(), lag, serial, progress, changes, pairs, level),
      0);
  EXPECT_EQ(kestrum::CountAlikePairs(grid, labels.data(), lag, serial, progress, pairs + size, level), 0);
  return {counts.begin(), counts.end()};
}

Values MovingSums(SimdLevel level, Draws& draws) {
  using kestrum::kSumLanes;
  const kestrum::SumKernels& kernels = kestrum::SumKernelsOf(level);
  const int lengthX = draws.Int(1, 9), lengthY = draws.Int(kestrum::kBoxRows, 7), lengthZ = draws.Int(1, 3);
  const int row = kSumLanes + lengthX - 1, section = row * (lengthY + kestrum::kBoxRows - 1);
  const Values values = draws.Numbers(section * lengthZ), gaps = draws.Numbers(section * lengthZ, 3);
  const Values weights = draws.Numbers(lengthX * lengthY * lengthZ);
  const std::ptrdiff_t offsets[] = {3, 0, lengthX - 1, 1};
  const kestrum::TermList list{offsets, weights.data(), std::min(4, lengthX)};
  kestrum::InformedSums informed;
  Values sums(kSumLanes * (1 + kestrum::kBoxRows));
  kernels.sumList(values.data(), list, sums.data());
  kernels.sumBoxRows(values.data(), {lengthX, lengthY, lengthZ, row, section, weights.data(), draws.Flip()},
                     sums.data() + kSumLanes, kSumLanes);
  kernels.sumInformed(gaps.data(), list, &informed);
  for (const double* part : {informed.sum, informed.weight}) sums.insert(sums.end(), part, part + kSumLanes);
  sums.insert(sums.end(), informed.missing, informed.missing + kSumLanes);
  return sums;
}

Values PyramidRows(SimdLevel level, Draws& draws) {
  const kestrum::PyramidKernels& kernels = kestrum::PyramidKernelsOf(level);
  const int n = draws.Int(0, 70);
  const std::size_t size = static_cast<std::size_t>(n);
  Values row[3], gaps[3], weights[3];
  for (int k = 0; k < 3; ++k) {
    row[k] = draws.Numbers(n);
    gaps[k] = draws.Numbers(n, 3);
    weights[k] = draws.Numbers(n);
    for (double& weight : weights[k]) weight = std::fabs(weight);
  }
  Values found;
  Values out[9];
  for (Values& values : out) values.resize(size);
  Values pairs(2 * size);

  kestrum::PyramidTap taps[3], gapTaps[3];
  for (int k = 0; k < 3; ++k) {
    taps[k] = {row[k].data(), weights[k].data(), 0.25 * (k + 1)};
    gapTaps[k] = {gaps[k].data(), weights[k].data(), 0.25 * (k + 1)};
  }
  const kestrum::PyramidBlend blend{0.75, draws.Flip() ? 0.25 : 0.125};
  const bool hasC = draws.Flip();
  const kestrum::PyramidRow blended[] = {{gaps[0].data(), weights[0].data(), false},
                                         {gaps[1].data(), weights[1].data(), false},
                                         {gaps[2].data(), weights[2].data(), false}};
  found.push_back(kernels.hasMissing(gaps[0].data(), size));
  found.push_back(kernels.hasMissing(draws.Numbers(n, 60).data(), size));
  found.push_back(kernels.addTaps(taps, 3, size, out[0].data()));
  kernels.addInformedTaps(gapTaps, 3, size, {out[1].data(), out[2].data()});
  found.push_back(
      kernels.blend(blend, row[0].data(), row[1].data(), hasC ? row[2].data() : nullptr, size, out[3].data()));
  kernels.blendInformed(blend, blended[0], blended[1], hasC ? &blended[2] : nullptr, size,
                        {out[4].data(), out[5].data()});
  kernels.divide(gaps[0].data(), weights[0].data(), 0.5, size, out[6].data());
  kernels.join(row[0].data(), gaps[0].data(), size, pairs.data());
  kernels.takeApart(pairs.data(), size, out[7].data(), out[8].data());
  for (const Values& values : out) found.insert(found.end(), values.begin(), values.end());
  found.insert(found.end(), pairs.begin(), pairs.end());
  return found;
}

// Lanes converge in cycles of their own, exhaust their space (2), stagnate (5) or begin at the solution (7).
Values Batches(SimdLevel level, Draws& draws) {
  const std::size_t n = static_cast<std::size_t>(draws.Int(1, 40));
  const bool shared = draws.Flip();
  const int lanes = shared || draws.Flip() ? kestrum::kLanes : kestrum::kWideBatch;
  const kestrum::GmresLimits limits{1e-10, draws.Flip() ? static_cast<int>(n) : draws.Int(1, 5), draws.Int(1, 4)};
  kestrum::Buffer<double> a, b, x, work;
  EXPECT_EQ(a.Allocate(n * n * lanes) + b.Allocate(n * lanes) + x.Allocate(n * lanes), 0);
  EXPECT_EQ(work.Allocate(kestrum::GmresBatchWorkSize(static_cast<int>(n), limits.restart, lanes)), 0);
  const Values place = draws.Numbers(static_cast<int>(n) * lanes);
  for (std::size_t k = 0; k < a.size(); ++k) {
    const std::size_t lane = k % lanes, i = k / lanes % n, j = k / lanes / n;
    const double distance = std::fabs(place[i * lanes + lane] - place[j * lanes + lane]);
    a[k] = lane % 8 == 2 ? 2.0 * (i == j) : lane % 8 == 5 ? 1.0 : std::exp(-distance) + (i == j);
  }
  for (std::size_t k = 0; k < b.size(); ++k) {
    b[k] = k % 8 == 7 ? 0.0 : place[k];
    x[k] = k % 8 == 7 ? 0.0 : 0.1 * static_cast<double>(k);
  }
  const int size = static_cast<int>(n);
  const unsigned converged =
      shared ? kestrum::GmresBatchShared(limits, size, a.data(), size, b.data(), x.data(), work.data(), level)
             : kestrum::GmresBatch(limits, size, lanes, a.data(), b.data(), x.data(), work.data(), level);
  Values out(x.begin(), x.end());
  out.push_back(converged);
  return out;
}

struct Kernel {
  const char* name;
  Values (*run)(SimdLevel, Draws&);
};

class EveryKernel : public testing::TestWithParam<std::tuple<Kernel, SimdLevel>> {};

TEST_P(EveryKernel, GivesTheBitsOfTheBaseline) {
  const auto& [kernel, level] = GetParam();
  if (level > kestrum::BestSimdLevel()) GTEST_SKIP() << "not on this machine";
  for (unsigned seed = 0; seed < 300; ++seed) {
    Draws draws(seed), again(seed);
    Values expected = kernel.run(SimdLevel::kBaseline, draws), values = kernel.run(level, again);
    // One not-a-number is like another.
    for (Values* numbers : {&expected, &values}) {
      std::replace_if(
          numbers->begin(), numbers->end(), [](double x) { return std::isnan(x); }, kNaN);
    }
    ASSERT_TRUE(SameBits(values, expected)) << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kernels, EveryKernel,
    testing::Combine(testing::Values(Kernel{"Marks", Marks}, Kernel{"Levels", Levels}, Kernel{"Negations", Negations},
                                     Kernel{"Labels", Labels}, Kernel{"EulerNumbers", EulerNumbers},
                                     Kernel{"NearestCenters", NearestCenters}, Kernel{"Lines", Lines},
                                     Kernel{"LagSums", LagSums}, Kernel{"PairCounts", PairCounts},
                                     Kernel{"MovingSums", MovingSums}, Kernel{"PyramidRows", PyramidRows},
                                     Kernel{"Batches", Batches}, Kernel{"GrownRows", GrownRows},
                                     Kernel{"Ends", EndsOf}),
                     testing::Values(SimdLevel::kAvx2, SimdLevel::kAvx512)),
    [](const auto& test) {
      return std::get<0>(test.param).name +
             std::string(std::get<1>(test.param) == SimdLevel::kAvx2 ? "Avx2" : "Avx512");
    });

}  // namespace
