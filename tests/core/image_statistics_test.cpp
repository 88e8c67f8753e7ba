#include "core/image_statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "core/memory.h"
#include "core/owned_image.hpp"
#include "support/allocation_failure.hpp"

namespace {

// Small whole numbers, some missing: their sums are exact in any order.
std::vector<std::vector<real>> RandomVariables(int nvar, int nxyz, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::vector<real>> variables(nvar, std::vector<real>(nxyz));
  for (auto& variable : variables) {
    for (real& value : variable) value = random() % 4 == 0 ? kMissing : static_cast<int>(random() % 9) - 3.0;
  }
  return variables;
}

// Distributions as handed over, released at their end.
struct Pdfs {
  int nvalue[3] = {}, nmissing[3] = {};
  real* value[3] = {};
  double* pdf[3] = {};
  ~Pdfs() {
    for (int k = 0; k < 3; ++k) {
      VORLFree(value[k]);
      VORLFree(pdf[k]);
    }
  }
  std::map<real, double> Map(int k) const {
    std::map<real, double> map;
    for (int i = 0; i < nvalue[k]; ++i) map[value[k][i]] = pdf[k][i];
    return map;
  }
};

void ExpectPdf(const Pdfs& result, int k, const std::vector<real>& values) {
  std::map<real, double> expected;
  int nmissing = 0;
  for (const real v : values) v == kMissing ? ++nmissing : ++expected[v];
  for (auto& [value, proportion] : expected) proportion *= 1.0 / static_cast<double>(values.size() - nmissing);
  EXPECT_EQ(result.nmissing[k], nmissing);
  EXPECT_EQ(result.Map(k), expected);
  EXPECT_EQ(result.nvalue[k], static_cast<int>(expected.size()));
  EXPECT_TRUE(std::is_sorted(result.value[k], result.value[k] + result.nvalue[k]));
}

}  // namespace

TEST(ImageStatistics, MeanDeviationAndRange) {
  struct Summary {
    real mean, sd;
    int ninformed;
    real min, max, range;
    bool operator==(const Summary&) const = default;
  };
  const struct {
    std::vector<real> values;
    Summary expected;
  } rows[] = {
      {{2.0, kMissing, 4.0, 9.0}, {5.0, std::sqrt(13.0), 3, 2.0, 9.0, 7.0}},
      {{kMissing, kMissing, 4.0, kMissing}, {4.0, 0.0, 1, 4.0, 4.0, 0.0}},
      {{kMissing, kMissing, kMissing, kMissing}, {kMissing, kMissing, 0, kMissing, kMissing, kMissing}},
      {{-3.0, -3.0, -3.0, 5.0}, {-1.0, 4.0, 4, -3.0, 5.0, 8.0}},
  };
  OwnedImage image({rows[0].values, rows[1].values, rows[2].values, rows[3].values});
  real mean[4], sd[4], min[4], max[4], range[4];
  int ninformed[4], nmissing[4];
  EXPECT_EQ(VORLGetImageVarValueMean(&image, mean), 0);
  EXPECT_EQ(VORLGetImageVarValueSD(&image, mean, sd), 0);
  EXPECT_EQ(VORLGetImageVarValueRange(&image, ninformed, min, max, range), 0);
  EXPECT_EQ(VORLGetImageNumberVarValueMissing(&image, nmissing), 0);
  for (int iv = 0; iv < 4; ++iv) {
    Summary one;
    EXPECT_EQ(VORLGetImageOneVarValueMean(&image, iv, &one.mean), 0);
    EXPECT_EQ(VORLGetImageOneVarValueSD(&image, iv, &mean[iv], &one.sd), 0);
    EXPECT_EQ(VORLGetImageOneVarValueRange(&image, iv, &one.ninformed, &one.min, &one.max, &one.range), 0);
    EXPECT_TRUE((one == Summary{mean[iv], sd[iv], ninformed[iv], min[iv], max[iv], range[iv]})) << iv;
    EXPECT_DOUBLE_EQ(one.sd, rows[iv].expected.sd);
    one.sd = rows[iv].expected.sd;
    EXPECT_TRUE(one == rows[iv].expected) << iv;
    EXPECT_EQ(nmissing[iv], 4 - one.ninformed);
  }
  real given = 1.5, sdOfOne = 0.0;
  EXPECT_EQ(VORLGetImageOneVarValueSD(&image, 1, &given, &sdOfOne), 0);
  EXPECT_EQ(sdOfOne, 2.5);  // the distance from the given mean

  BOOLEAN missing[4];
  int count = 0;
  image.nvar = 2;
  EXPECT_EQ(VORLGetImageVarVectorMissing(&image, missing, &count), 0);
  EXPECT_EQ(std::vector<int>(missing, missing + 4), (std::vector<int>{1, 1, 0, 1}));
  EXPECT_EQ(count, 3);
}

TEST(ImageStatistics, BadArguments) {
  OwnedImage two({{1.0}, {2.0}}), one({std::vector<real>{1.0}});
  VORL_IMAGE* const image = &two;
  VORL_IMAGE records[2] = {two, one};
  real r[4] = {};
  int n[4] = {};
  real* value = nullptr;
  double* pdf = nullptr;
  for (const int iv : {-1, 2}) {
    EXPECT_EQ(VORLGetImageOneVarValueMean(image, iv, r), -1100);
    EXPECT_EQ(VORLGetNImageOneVarValuePdf(0, records, iv, n, &value, &pdf, n), -1100);
  }
  EXPECT_EQ(VORLGetNImageOneVarValuePdf(2, records, 7, n, &value, &pdf, n), -30);
  EXPECT_EQ(VORLGetNImageVarValuePdf(2, records, nullptr, &value, &pdf, n), -30);
  EXPECT_EQ(VORLGetNImageVarValuePdf(1, records, nullptr, &value, &pdf, n), -20);
  EXPECT_EQ(VORLGetNImageOneVarValuePdf(0, records, 0, n, &value, &pdf, n), -3);
  EXPECT_EQ(VORLGetImageVarValueMean(image, nullptr), -20);
  EXPECT_EQ(VORLGetImageVarValueSD(image, r, nullptr), -20);
  EXPECT_EQ(VORLGetImageVarValueRange(image, n, r, nullptr, r), -20);
  EXPECT_EQ(VORLGetImageVarValuePdf(image, n, &value, nullptr, n), -20);
  EXPECT_EQ(VORLGetImageNumberVarValueMissing(image, nullptr), -20);
  EXPECT_EQ(VORLGetImageVarVectorMissing(image, nullptr, n), -20);
  EXPECT_EQ(VORLGetImageVarStats(image, nullptr, r, r, r, &pdf), -20);
  EXPECT_EQ(VORLGetImageVarStatsLocal(image, image, 0, nullptr), -20);
  EXPECT_EQ(VORLGetImageVarStatsLocal(image, &records[1], 1, nullptr), -20);
}

TEST(ImageStatistics, DistributionOfDistinctValues) {
  const auto first = RandomVariables(3, 200, 1);
  auto second = RandomVariables(3, 77, 2);
  second[2].assign(77, kMissing);
  OwnedImage a(first), b(second);
  VORL_IMAGE both[2] = {a, b};
  Pdfs ofAll, ofB;
  ASSERT_EQ(VORLGetNImageVarValuePdf(2, both, ofAll.nvalue, ofAll.value, ofAll.pdf, ofAll.nmissing), 0);
  ASSERT_EQ(VORLGetImageVarValuePdf(&b, ofB.nvalue, ofB.value, ofB.pdf, ofB.nmissing), 0);
  for (int iv = 0; iv < 3; ++iv) {
    Pdfs ofA, ofBoth;
    std::vector<real> joint = first[iv];
    joint.insert(joint.end(), second[iv].begin(), second[iv].end());
    EXPECT_EQ(VORLGetImageOneVarValuePdf(&a, iv, ofA.nvalue, ofA.value, ofA.pdf, ofA.nmissing), 0);
    EXPECT_EQ(VORLGetNImageOneVarValuePdf(2, both, iv, ofBoth.nvalue, ofBoth.value, ofBoth.pdf, ofBoth.nmissing), 0);
    ExpectPdf(ofA, 0, first[iv]);
    ExpectPdf(ofB, iv, second[iv]);
    ExpectPdf(ofBoth, 0, joint);
    ExpectPdf(ofAll, iv, joint);
  }
}

TEST(ImageStatistics, ValuesBelowTheMissingOneMakeItAValue) {
  OwnedImage image({{1.0, kMissing, -1e8, kMissing, 1.0}, {std::nan(""), 2.0, kMissing, std::nan(""), 1.0}});
  Pdfs pdfs;
  EXPECT_EQ(VORLGetImageVarValuePdf(&image, pdfs.nvalue, pdfs.value, pdfs.pdf, pdfs.nmissing), 0);
  EXPECT_EQ(pdfs.nmissing[0], 0);
  EXPECT_EQ(pdfs.Map(0), (std::map<real, double>{{-1e8, 0.2}, {kMissing, 0.4}, {1.0, 0.4}}));
  EXPECT_EQ(pdfs.nvalue[1], 4);
  EXPECT_EQ(pdfs.nmissing[1], 1);
}

// What is handed over before a failure can be released.
TEST(ImageStatistics, FailingAllocations) {
  OwnedImage image({{1.0, 2.0}, {3.0, kMissing}});
  VORL_IMAGE both[2] = {image, image};
  const auto distributions = [](auto get, auto... of) {
    Pdfs pdfs;
    const int status = get(of..., pdfs.nvalue, pdfs.value, pdfs.pdf, pdfs.nmissing);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(pdfs.nvalue[k] > 0, pdfs.value[k] != nullptr && pdfs.pdf[k] != nullptr);
    return status;
  };
  kestrum_test::ForEachFailingAllocation({
      {"all", [&] { return distributions(VORLGetImageVarValuePdf, &image); }},
      {"all of two images", [&] { return distributions(VORLGetNImageVarValuePdf, 2, both); }},
  });
}

TEST(ImageStatistics, IndexInList) {
  OwnedImage image({{5.0, kMissing, -1.0, 4.0, 2.0, std::nan("")}});
  real list[] = {kMissing, -1.0, 2.0, 5.0};
  int index[6];
  EXPECT_EQ(VORLGetImageOneVarValueIndex(&image, 0, 4, list, index), 0);
  EXPECT_EQ(std::vector<int>(index, index + 6), (std::vector<int>{3, -1, 1, -1, 2, -1}));
  EXPECT_EQ(VORLGetImageOneVarValueIndex(&image, 0, 0, nullptr, index), 0);
  EXPECT_EQ(std::vector<int>(index, index + 6), std::vector<int>(6, -1));
}

TEST(ImageStatistics, CovariancesUseEachPairsOwnNodes) {
  constexpr int kNvar = 4;
  auto variables = RandomVariables(kNvar, 60, 3);
  std::fill(variables[3].begin(), variables[3].end(), kMissing);
  OwnedImage image(variables);
  int n[kNvar][kNvar], *nRows[] = {n[0], n[1], n[2], n[3]};
  double cov[kNvar][kNvar], *covRows[] = {cov[0], cov[1], cov[2], cov[3]};
  double min[kNvar], max[kNvar], mean[kNvar];
  ASSERT_EQ(VORLGetImageVarStats(&image, nRows, min, max, mean, covRows), 0);
  for (int i = 0; i < kNvar; ++i) {
    for (int j = 0; j < kNvar; ++j) {
      double count = 0, sumA = 0, sumB = 0, sumAB = 0;
      for (int k = 0; k < 60; ++k) {
        const real a = variables[i][k], b = variables[j][k];
        if (a == kMissing || b == kMissing) continue;
        ++count, sumA += a, sumB += b, sumAB += a * b;
      }
      EXPECT_EQ(n[i][j], count);
      EXPECT_EQ(cov[i][j], cov[j][i]);
      if (count == 0) {
        EXPECT_EQ(cov[i][j], 0.0);
        continue;
      }
      // Terms of size 25 at most, some 60 of them: errors stay far below this.
      EXPECT_NEAR(cov[i][j], (sumAB - sumA * sumB / count) / (count - 1), 1e-12);
      if (i == j) {
        EXPECT_NEAR(mean[i], sumA / count, 1e-14);
        EXPECT_EQ(min[i], -3.0);
        EXPECT_EQ(max[i], 5.0);
      }
    }
  }
  EXPECT_TRUE(min[3] == VORL_INFINITY && max[3] == -VORL_INFINITY && mean[3] == 0.0);
}

TEST(ImageStatistics, StatisticsAcrossVariablesDivideByAllOfThem) {
  OwnedImage image({{kMissing, 1.0, kMissing}, {4.0, 3.0, kMissing}});
  VORL_IMAGE out;
  ASSERT_EQ(VORLGetImageVarStatsLocal(&image, &out, 0, nullptr), 0);
  EXPECT_EQ(VORLCmpGrid(out.grid, image.grid), 0);
  EXPECT_EQ(out.nvar, 4);
  EXPECT_EQ(out.nxyzv, 12);
  const real expected[4][3] = {
      {4.0, 1.0, VORL_INFINITY}, {4.0, 3.0, -VORL_INFINITY}, {2.0, 2.0, 0.0}, {std::sqrt(2.0), 1.0, 0.0}};
  const char* const names[] = {"min", "max", "mean", "std"};
  for (int iv = 0; iv < 4; ++iv) {
    EXPECT_STREQ(out.varName[iv], names[iv]);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(out.var[iv * 3 + k], expected[iv][k]);
  }
  VORLFreeImage(&out);

  real category[] = {3.0, -2.5, kMissing};
  ASSERT_EQ(VORLGetImageVarStatsLocal(&image, &out, 3, category), 0);
  EXPECT_STREQ(out.varName[0], "occ_prop_of_00003");
  EXPECT_STREQ(out.varName[1], "occ_prop_of_-02.5");
  EXPECT_STREQ(out.varName[2], "occ_prop_of_-1e+07");
  EXPECT_EQ(std::vector<real>(out.var, out.var + 9), (std::vector<real>{0, 0.5, 0, 0, 0, 0, 0.5, 0, 1}));
  VORLFreeImage(&out);
}

TEST(ImageStatistics, ProportionsOfManyNodesCountTheVariables) {
  constexpr int kNodes = 2500;  // more than are counted at a time, and a rest
  const std::vector<std::vector<real>> variables = RandomVariables(5, kNodes, 1);
  OwnedImage image(variables);
  VORL_IMAGE out;
  real category[] = {2.0, 0.0, 2.0};
  ASSERT_EQ(VORLGetImageVarStatsLocal(&image, &out, 3, category), 0);
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t k = 0; k < kNodes; ++k) {
      const auto count = std::count_if(variables.begin(), variables.end(),
                                       [&](const auto& variable) { return variable[k] == category[c]; });
      ASSERT_EQ(out.var[c * kNodes + k], static_cast<real>(count) * (1.0 / 5.0));
    }
  }
  VORLFreeImage(&out);
}

TEST(ImageStatistics, TransformsLeaveMissingValues) {
  real x[] = {0.0, 10.0, 40.0}, y[] = {0.0, 100.0, 70.0};
  const std::vector<real> values = {5.0, -1.0, 11.0, 10.0, kMissing, 40.0, 41.0, 0.0, 25.0, -1e300};
  const std::vector<real> mapped = {50.0, 0.0, 99.0, 100.0, kMissing, 70.0, 70.0, 0.0, 85.0, 0.0};
  std::vector<real> scaled(values);
  for (real& v : scaled) v = v == kMissing ? v : v * -2.0 + 3.0;

  OwnedImage image({values, values, values});
  EXPECT_EQ(VORLTransformLinearImageVar(&image, 0, -2.0, 3.0), 0);
  EXPECT_EQ(VORLTransformExplicitImageVar(&image, 2, 3, x, y), 0);
  EXPECT_EQ(std::vector<real>(image.var, image.var + 10), scaled);
  EXPECT_EQ(std::vector<real>(image.var + 10, image.var + 20), values);
  for (int k = 0; k < 10; ++k) EXPECT_NEAR(image.var[20 + k], mapped[k], 1e-12);
  EXPECT_EQ(image.var[23], 100.0);  // a point of the map is exact

  const std::vector<real> explicitly(image.var + 20, image.var + 30);
  for (const int nthreads : {1, 2, 3, 8, 16}) {
    std::vector<real> vector = values;
    EXPECT_EQ(VORLOMPTransformLinearVector(vector.data(), 10, -2.0, 3.0, nthreads), 0);
    EXPECT_EQ(vector, scaled);
    vector = values;
    EXPECT_EQ(VORLOMPTransformExplicitVector(vector.data(), 10, 3, x, y, nthreads), 0);
    EXPECT_EQ(vector, explicitly);
  }
  real odd[] = {std::nan(""), 3.0};
  EXPECT_EQ(VORLTransformLinearVector(odd, 1, 2.0, 1.0), 0);
  EXPECT_EQ(VORLTransformExplicitVector(odd, 1, 3, x, y), 0);
  EXPECT_TRUE(std::isnan(odd[0]));
  EXPECT_EQ(VORLTransformExplicitVector(odd, 2, 0, nullptr, nullptr), 0);
  EXPECT_EQ(odd[1], 3.0);
}

TEST(ImageStatistics, Report) {
  OwnedImage image({{1.0, 2.0, 3.0, kMissing}, {2.0, kMissing, 6.0, 6.0}});
  *image.grid = VORL_GRID{2, 2, 1, 1.0, 2.0, 0.5, 0.0, 10.0, -1.0, 4, 4};
  char prefix[] = "> ";
  const auto report = [&](int ndetail) {
    return kestrum_test::Written([&](FILE* stream) { return VORLPrintImageInfo(&image, prefix, stream, ndetail); });
  };
  const std::string head =
      "> Grid:\n"
      "> Size   :       2              2              1\n"
      "> Spacing:       1.000000       2.000000       0.500000\n"
      "> Origin :       0.000000      10.000000      -1.000000\n"
      "> Number of nodes in a xy-section:        4\n"
      "> Total number of nodes          :        4\n"
      "\n"
      "> Number of variables:   2\n"
      "> Grid size * number of variables:   8\n"
      "> Variable #  0: a\n"
      "> Variable #  1: b\n"
      "\n"
      "> Number of informed nodes for each pair of variables,\n"
      "> n(i,j) = number of nodes in image where both i-th and j-th variables are informed:\n"
      ">                     #  0            #  1\n"
      ">     #  0               3               2\n"
      ">     #  1               2               3\n"
      "\n"
      "> Variable             min             max            mean             var             std\n"
      ">     #  0  1.00000000E+00  3.00000000E+00  2.00000000E+00  1.00000000E+00  1.00000000E+00\n"
      ">     #  1  2.00000000E+00  6.00000000E+00  4.66666667E+00  5.33333333E+00  2.30940108E+00\n"
      "\n"
      "> Covariance Matrix\n"
      ">                     #  0            #  1\n"
      ">     #  0  1.00000000E+00  4.00000000E+00\n"
      ">     #  1  4.00000000E+00  5.33333333E+00\n"
      "\n"
      "> Correlation Matrix\n"
      "> (warning: cor(i,j) exact if n(i,j) = n(i,i) = n(j,j)\n"
      ">                     #  0            #  1\n"
      ">     #  0  1.00000000E+00  1.73205081E+00\n"
      ">     #  1  1.73205081E+00  1.00000000E+00\n"
      "\n";
  const std::string first =
      "> Variable #  0:\n"
      ">    Proportion of nodes having a missing value:    25.0000 %\n"
      ">    Number of different values:   3\n";
  const std::string second =
      "> Variable #  1:\n"
      ">    Proportion of nodes having a missing value:    25.0000 %\n"
      ">    Number of different values:   2\n";
  const std::string noDetail = ">    No detail\n\n";
  const std::string detail =
      ">    Pdf (ignoring missing value):\n"
      ">                 Value   Proportion in grid (%)\n"
      ">    #  0:       2.0000      33.3333\n"
      ">    #  1:       6.0000      66.6667\n"
      "\n";
  EXPECT_EQ(report(2), head + first + noDetail + second + detail);
  EXPECT_EQ(report(0), head + first + noDetail + second + noDetail);

  std::fill_n(image.var + 4, 4, kMissing);
  const std::string text = report(9);
  const std::string end = "missing value:   100.0000 %\n>    Number of different values:   0\n\n";
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
}
