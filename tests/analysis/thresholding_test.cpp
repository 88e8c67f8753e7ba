#include "analysis/thresholding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/seeded.hpp"

namespace {

using Reals = std::vector<double>;

using kestrum_test::Seeded;

constexpr double kMissing = VORL_MISSING_VALUE;
constexpr double kInfinity = VORL_INFINITY;

Reals RandomValues(std::mt19937& generator, int n, unsigned ndistinct) {
  Reals values;
  for (int i = 0; i < n; ++i) values.push_back(static_cast<double>(generator() % ndistinct) * 0.37);
  return values;
}

struct Otsu {
  int status;
  Reals limits, classes;
};

Otsu RunOtsu(Reals values, int nclass, int nstep, double temperature, int coolingScheme, int seed = 1) {
  Otsu out{0, Reals(std::max(nclass, 0) + 1), Reals(values.size())};
  VORL_RANDCONTEXT context = Seeded(seed);
  out.status = VORLOtsuThresholding(static_cast<int>(values.size()), values.data(), nclass, out.limits.data(),
                                    out.classes.data(), nstep, temperature, coolingScheme, &context, FALSE);
  return out;
}

// The annealing from given limits, with classes found and summed anew each time.
void AnnealPlainly(Reals values, Reals* best, int nstep, double temperature, int coolingScheme, int seed) {
  std::sort(values.begin(), values.end());
  const int nclass = static_cast<int>(best->size()) - 1;
  VORL_RANDCONTEXT context = Seeded(seed);
  const auto sum = [&](const Reals& limits, int c, bool mean) {
    double squares = 0.0;
    int count = 0;
    for (const double v : values) {
      if (v < limits[c] || (c + 1 < nclass && v >= limits[c + 1])) continue;
      squares += v * v;
      ++count;
    }
    return mean && count > 0 ? squares / count : squares;
  };
  Reals limits = *best, stored;
  double total = 0.0;
  for (int c = 0; c < nclass; ++c) {
    stored.push_back(sum(limits, c, c + 1 < nclass));
    total += sum(limits, c, true);
  }
  double bestTotal = total;
  for (int t = 0; t < nstep; ++t) {
    const double room = limits[nclass] - limits[0] + limits[nclass - 1] - limits[1];
    const double draw = VORLDoubleRand(0, &context) * room;
    int b = 1;
    for (double w = limits[2] - limits[0]; w < draw && b + 1 < nclass; w += limits[b + 1] - limits[b - 1]) ++b;
    Reals moved = limits;
    moved[b] = limits[b - 1] + VORLDoubleRand(0, &context) * (limits[b + 1] - limits[b - 1]);
    const double below = sum(moved, b - 1, true), above = sum(moved, b, true);
    const double candidate = total - stored[b - 1] - stored[b] + below + above;
    const double divisor = coolingScheme == 0 ? std::log(t + 2) : coolingScheme == 1 ? std::sqrt(t + 1) : t + 1;
    if (VORLDoubleRand(0, &context) < std::exp((candidate - total) / (temperature / divisor))) {
      limits = moved;
      stored[b - 1] = below;
      stored[b] = above;
      total = candidate;
    }
    if (candidate > bestTotal) {
      bestTotal = candidate;
      *best = limits;
    }
  }
}

// The class of each value: how many of the ascending thresholds it is not below.
Reals Classify(const Reals& values, const Reals& thresholds) {
  Reals classes;
  for (const double v : values) {
    const auto above = std::find_if(thresholds.begin(), thresholds.end(), [v](double t) { return v < t; });
    classes.push_back(v == kMissing ? kMissing : static_cast<double>(above - thresholds.begin()));
  }
  return classes;
}

TEST(OtsuThresholding, MatchesPlainAnnealing) {
  std::mt19937 generator(4);
  for (int trial = 0; trial < 60; ++trial) {
    SCOPED_TRACE(trial);
    const int nclass = 2 + trial % 4;
    const Reals values = RandomValues(generator, 50, trial % 2 == 0 ? 10 : 1000);
    Otsu expected = RunOtsu(values, nclass, 0, 1.0, 0);
    AnnealPlainly(values, &expected.limits, 200, 20.0, trial % 3, trial);
    const Otsu out = RunOtsu(values, nclass, 200, 20.0, trial % 3, trial);
    EXPECT_EQ(out.limits, expected.limits);
    EXPECT_EQ(out.classes, Classify(values, Reals(out.limits.begin() + 1, out.limits.end() - 1)));
  }
}

TEST(OtsuThresholding, CasesWithoutAnnealing) {
  const Reals four{3, 1, 2, 4, 1};
  const struct {
    Reals values;
    int nclass;
    Reals limits, classes;
  } cases[] = {{four, 5, {1, 2, 3, 4, 4, 4}, {2, 0, 1, 4, 0}},
               {four, 4, {1, 2, 3, 4, 4}, {2, 0, 1, 3, 0}},
               {four, 1, {1, 4}, {0, 0, 0, 0, 0}},
               {four, 0, {kMissing}, {kMissing, kMissing, kMissing, kMissing, kMissing}},
               {{}, 2, {kMissing, kMissing, kMissing}, {}},
               // Levels 0, 1/2 and 1 of frequencies 0.4, 0.2, 0.2, 0.2, of which the function of the distribution is
               // 0, 0.5, 0.75 and 1.
               {four, 2, {1, 2, 4}, {1, 0, 1, 1, 0}}};
  for (const auto& c : cases) {
    const Otsu out = RunOtsu(c.values, c.nclass, 0, 1.0, 0);
    EXPECT_EQ(out.limits, c.limits);
    EXPECT_EQ(out.classes, c.classes);
  }
  for (const int coolingScheme : {3, -1}) EXPECT_EQ(RunOtsu(four, 2, 5, 1.0, coolingScheme).status, -4260);
  EXPECT_EQ(RunOtsu({std::nan(""), 1, INFINITY, -INFINITY, std::nan(""), 2}, 3, 50, 0.0, 0).status, 0);
}

struct Classes {
  Reals thresholds, classes;
  bool operator==(const Classes&) const = default;
};

Classes RunPreClasses(Reals values, int npreclass, int nclass, bool verbose = false) {
  Classes out{Reals(std::max(nclass, 1) - 1, 7.0), Reals(values.size())};
  EXPECT_EQ(VORLOtsuThresholdingPreCateg(static_cast<int>(values.size()), values.data(), npreclass, nclass,
                                         out.thresholds.data(), out.classes.data(), verbose),
            0);
  return out;
}

// Of the cuts that make the same groups, which empty pre-classes allow, the first counts.
TEST(OtsuThresholdingPreCateg, IsTheFirstBestOfAllCuts) {
  std::mt19937 generator(6);
  for (int trial = 0; trial < 80; ++trial) {
    SCOPED_TRACE(trial);
    const int npreclass = 3 + trial % 7, nclass = 2 + trial % 3;
    if (npreclass <= nclass) continue;
    Reals values = RandomValues(generator, 59, trial % 2 == 0 ? 4 : 300);
    const auto [min, max] = std::minmax_element(values.begin(), values.end());
    Reals limits(1, *min);
    for (int k = 1; k <= npreclass; ++k) limits.push_back(limits.back() + (*max - *min) / npreclass);
    limits.back() = kInfinity;
    // Each set of cuts is a number whose bits are pre-classes, the first one the highest: the order goes downward.
    double bestScore = -1.0;
    Reals expected;
    for (int bits = (1 << (npreclass - 1)) - 1; bits >= 0; --bits) {
      Reals thresholds;
      double score = 0.0, p = 0.0, m = 0.0;
      for (int k = 0; k < npreclass; ++k) {
        for (const double v : values) {
          if (v < limits[k] || v >= limits[k + 1]) continue;
          p += 1.0 / 59;
          m += k / 59.0;
        }
        const bool cut = k < npreclass - 1 && (bits >> (npreclass - 2 - k) & 1) != 0;
        if (!cut && k < npreclass - 1) continue;
        if (cut) thresholds.push_back(limits[k + 1]);
        score += p < 1e-10 ? 0.0 : m * m / p;
        p = m = 0.0;
      }
      if (static_cast<int>(thresholds.size()) != nclass - 1 || score <= bestScore + 1e-11) continue;
      bestScore = score;
      expected = thresholds;
    }
    values.push_back(kMissing);
    EXPECT_EQ(RunPreClasses(values, npreclass, nclass), (Classes{expected, Classify(values, expected)}));
  }
}

TEST(OtsuThresholdingPreCateg, TiesAndCasesWithoutSearch) {
  // Groups that mirror each other score the same, 88/7: the first in the enumeration is kept.
  EXPECT_EQ(RunPreClasses({0, 1, 2, 3, 4, 5, 7}, 7, 3), (Classes{{2, 4}, {0, 0, 1, 1, 2, 2, 2}}));
  const Reals values{0, kMissing, 4, 2};
  EXPECT_EQ(RunPreClasses(values, 2, 3), (Classes{{2, kInfinity}, {0, kMissing, 1, 1}}));
  EXPECT_EQ(RunPreClasses(values, 1, 2), (Classes{{7}, {0, kMissing, 0, 0}}));
  EXPECT_EQ(RunPreClasses(values, 9, 1), (Classes{{}, {0, kMissing, 0, 0}}));
  EXPECT_EQ(RunPreClasses(values, 9, 0), (Classes{{}, Reals(4, kMissing)}));
  EXPECT_EQ(RunPreClasses(values, 0, 2), (Classes{{7}, Reals(4, kMissing)}));
  EXPECT_EQ(RunPreClasses({5, 5, kMissing}, 9, 3), (Classes{{kInfinity, kInfinity}, {0, 0, kMissing}}));
  EXPECT_EQ(RunPreClasses(Reals(2, kMissing), 9, 2), (Classes{{7}, Reals(2, kMissing)}));
  EXPECT_EQ(RunPreClasses({}, 9, 2), (Classes{{7}, {}}));
  RunPreClasses({std::nan(""), 1, INFINITY, 2}, 5, 3);
}

TEST(OtsuThresholding, Progress) {
  testing::internal::CaptureStdout();
  RunPreClasses({0, 1, 2, 5}, 4, 2, true);  // three cuts, whose moves are reported as parts of C(4, 1)
  RunPreClasses({3, 3}, 4, 2, true);
  RunPreClasses({3, 3}, 0, 2, true);
  Reals values{1, 2, 3}, limits(3), classes(3);
  VORL_RANDCONTEXT context = Seeded(1);
  VORLOtsuThresholding(3, values.data(), 2, limits.data(), classes.data(), 4, 1.0, 0, &context, TRUE);
  VORLOtsuThresholding(3, values.data(), 1, limits.data(), classes.data(), 4, 1.0, 0, &context, TRUE);
  std::string expected;
  for (const char* percent :
       {"  0", " 25", " 50", "100", "  0", "100", "  0", " 25", " 50", " 75", "100", "  0", "100"}) {
    expected += std::string("Computing Otsu thresholding: ") + percent + " %\n";
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

TEST(PdfThresholding, CutsWithTheSmallerMiss) {
  const struct {
    Reals values, pdf, thresholds;
  } cases[] = {{{1, 2, 3}, {0.5, 0.5}, {3}},  // both misses are 1/6, to a rounding
               {{1, 2, 2, 3}, {0.5, 0.5}, {3}},
               {{4, 3, 2, 1, kMissing}, {0.25, 0.25, 0.5}, {2, 3}},
               {{1, 2, 3, 4}, {0.45, 0.3, 0.25}, {3, 4}},
               {{1, 2, 3, 4}, {0.0, 0.5, 0.5}, {1, 3}},
               {{1, 2, 3, 4}, {-1.0, 2.0, 0.5}, {1, 4}},
               {{1, 2}, {0.9, 0.9, 0.9, 0.1}, {2, 2, 2}},
               {{5, 5, 5}, {0.4, 0.6}, {5}},
               {{kMissing}, {0.5, 0.5}, {kMissing}},
               {{3, kMissing}, {1.0}, {}},
               {{3, 1, std::nan("")}, {std::nan(""), 0.3}, {std::nan("")}},
               {{}, {0.5, 0.5}, {7}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.values) + testing::PrintToString(c.pdf));
    Reals values = c.values, pdf = c.pdf, thresholds(pdf.size() - 1, 7.0), classes(values.size());
    EXPECT_EQ(VORLPdfThresholding(static_cast<int>(values.size()), values.data(), static_cast<int>(pdf.size()),
                                  pdf.data(), thresholds.data(), classes.data()),
              0);
    for (std::size_t k = 0; k < thresholds.size() && !std::isnan(c.thresholds[k]); ++k) {
      EXPECT_EQ(thresholds[k], c.thresholds[k]) << k;
    }
    EXPECT_EQ(classes, Classify(values, thresholds));
  }
  double value = 3.0, classIndex = 0.0;
  EXPECT_EQ(VORLPdfThresholding(1, &value, 0, nullptr, nullptr, &classIndex), 0);
  EXPECT_EQ(classIndex, kMissing);
}

TEST(Thresholding, FailingAllocations) {
  double values[] = {1, 2, 3, 4, 6}, thresholds[4], classes[5], pdf[] = {0.5, 0.5};
  VORL_RANDCONTEXT context = Seeded(1);
  kestrum_test::ForEachFailingAllocation(
      {{"Otsu", [&] { return VORLOtsuThresholding(5, values, 2, thresholds, classes, 3, 1.0, 0, &context, FALSE); }},
       {"classes", [&] { return VORLOtsuThresholdingPreCateg(5, values, 4, 2, thresholds, classes, FALSE); }},
       {"pdf", [&] { return VORLPdfThresholding(5, values, 2, pdf, thresholds, classes); }}});
}

}  // namespace
