#include "analysis/clustering.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "support/allocation_failure.hpp"

namespace {

template <typename T>
using Table = std::vector<std::vector<T>>;

Table<double> MakeTable(int rows, int columns) { return Table<double>(rows, std::vector<double>(columns, 0.0)); }

struct Problem {
  int n, nfeature, ncluster, nfixed;
  Table<double> data;
  std::vector<char> mask;
  std::vector<double> weight;
  double tolerance;
  int itMax, nstart, initMode;

  double SquaredDistance(int i, const Table<double>& center, int c) const {
    double sum = 0.0;
    for (int f = 0; f < nfeature; ++f) sum += (data[f][i] - center[f][c]) * (data[f][i] - center[f][c]);
    return sum;
  }
  bool Counts(int i) const { return mask.empty() || mask[i] != 0; }
  double Weight(int i) const { return weight.empty() ? 1.0 : weight[i]; }
};

struct Outcome {
  explicit Outcome(const Problem& p)
      : center(MakeTable(p.nfeature, p.ncluster)), weight(p.ncluster), assignment(p.n, -7), size(p.ncluster) {
    for (auto& feature : center) {
      for (int c = 0; c < p.ncluster; ++c) feature[c] = c % 5 - 1.0;
    }
    VORLInitRandContext(&randContext);
    VORLDoubleRand(3, &randContext);
  }
  bool operator==(const Outcome& o) const {
    return center == o.center && weight == o.weight && assignment == o.assignment && size == o.size &&
           inertia == o.inertia && randContext.position == o.randContext.position;
  }
  Table<double> center;
  std::vector<double> weight;
  std::vector<int> assignment, size;
  double inertia = -1.0;
  VORL_RANDCONTEXT randContext;
};

// nthreads 0: the serial form.
int RunKMeans(Problem p, Outcome* out, int nthreads) {
  std::vector<double*> data, center;
  for (auto& feature : p.data) data.push_back(feature.data());
  for (auto& feature : out->center) center.push_back(feature.data());
  const auto run = [&](auto function, auto... threads) {
    return function(p.n, p.nfeature, p.ncluster, p.nfixed, data.data(), p.mask.empty() ? nullptr : p.mask.data(),
                    p.tolerance, p.weight.empty() ? nullptr : p.weight.data(), center.data(), out->weight.data(),
                    out->assignment.data(), out->size.data(), &out->inertia, p.itMax, p.nstart, p.initMode,
                    &out->randContext, threads...);
  };
  return nthreads == 0 ? run(VORLKMeans) : run(VORLOMPKMeans, nthreads);
}

bool PlainStart(const Problem& p, Outcome& run) {
  const auto set = [&](int c, int point) {
    for (int f = 0; f < p.nfeature; ++f) run.center[f][c] = p.data[f][point];
  };
  if (p.initMode != 1) {
    std::vector<int> list;
    for (int i = 0; i < p.n; ++i) list.push_back(i);
    for (int c = p.nfixed; c < p.ncluster; ++c) {
      const int drawn = VORLIntRand(0, static_cast<int>(list.size()), &run.randContext);
      set(c, list[drawn]);
      std::swap(list[drawn], list.back());
      list.pop_back();
    }
    return true;
  }
  if (p.nfixed == 0) set(0, VORLIntRand(0, p.n, &run.randContext));
  for (int c = std::max(p.nfixed, 1); c < p.ncluster; ++c) {
    std::vector<double> cumulative;
    double total = 0.0;
    for (int i = 0; i < p.n; ++i) {
      double least = INFINITY;
      for (int k = 0; k < c; ++k) least = std::fmin(least, p.SquaredDistance(i, run.center, k));
      cumulative.push_back(total += least);
    }
    if (total == 0.0) {
      for (; c < p.ncluster; ++c) set(c, 0);
      return false;
    }
    const double draw = VORLDoubleRand(0, &run.randContext) * total;
    int point = 0;
    while (point < p.n - 1 && cumulative[point] <= draw) ++point;
    set(c, point);
  }
  return true;
}

void PlainIterations(const Problem& p, Outcome& run) {
  for (int it = 0; it < p.itMax; ++it) {
    std::fill(run.size.begin(), run.size.end(), 0);
    if (!p.weight.empty()) std::fill(run.weight.begin(), run.weight.end(), 0.0);
    Table<double> sums = MakeTable(p.nfeature, p.ncluster);
    for (int i = 0; i < p.n; ++i) {
      if (!p.Counts(i)) continue;
      int nearest = 0;
      for (int c = 1; c < p.ncluster; ++c) {
        if (p.SquaredDistance(i, run.center, c) < p.SquaredDistance(i, run.center, nearest)) nearest = c;
      }
      run.assignment[i] = nearest;
      ++run.size[nearest];
      if (!p.weight.empty()) run.weight[nearest] += p.weight[i];
      for (int f = 0; f < p.nfeature; ++f) sums[f][nearest] += p.Weight(i) * p.data[f][i];
    }
    for (int c = p.nfixed; c < p.ncluster; ++c) {
      for (int f = 0; f < p.nfeature; ++f) {
        run.center[f][c] = run.size[c] == 0 ? 0.0 : sums[f][c] / (p.weight.empty() ? run.size[c] : run.weight[c]);
      }
    }
    const double previous = run.inertia;
    run.inertia = 0.0;
    for (int i = 0; i < p.n; ++i) {
      if (p.Counts(i)) run.inertia += p.Weight(i) * p.SquaredDistance(i, run.center, run.assignment[i]);
    }
    if (it > 0 && std::fabs(previous - run.inertia) / previous < p.tolerance) return;
  }
}

Outcome PlainKMeans(const Problem& p) {
  Outcome best(p), run(p);
  if (p.nstart > 1) best.inertia = VORL_INFINITY;
  bool goOn = true;
  for (int start = 0; start < std::max(p.nstart, 1) && goOn; ++start) {
    if (p.nstart > 0) goOn = PlainStart(p, run);
    PlainIterations(p, run);
    if (p.nstart < 2 || run.inertia < best.inertia) best = run;
  }
  best.randContext = run.randContext;
  return best;
}

TEST(KMeans, MatchesPlainLoops) {
  std::mt19937 generator(5);
  const auto below = [&](int n) { return static_cast<int>(generator() % static_cast<unsigned>(n)); };
  for (int trial = 0; trial < 120; ++trial) {
    Problem p;
    p.n = trial % 11 == 0 ? 1 + below(900) : 1 + below(60);
    p.nfeature = 1 + below(trial % 11 == 1 ? 20 : 4);
    p.ncluster = 1 + below(std::min(p.n, 12));
    p.nfixed = below(3) == 0 ? below(p.ncluster + 1) : 0;
    p.data = MakeTable(p.nfeature, p.n);
    const int range = trial % 7 == 0 ? 1 : 6;  // 1: all points are the same; 6: many ties
    for (auto& feature : p.data) {
      for (double& x : feature) x = trial % 2 == 0 ? below(range) : generator() * 1e-9;
    }
    for (int i = 0; i < p.n && trial % 3 == 0; ++i) p.mask.push_back(static_cast<char>(below(4)));
    for (int i = 0; i < p.n && trial % 6 < 2; ++i) p.weight.push_back(generator() * 1e-9);
    p.tolerance = trial % 4 == 0 ? 0.1 : 1e-6;
    p.itMax = 1 + below(8);
    p.nstart = below(5) - 1;
    p.initMode = below(2);
    SCOPED_TRACE(trial);
    const Outcome expected = PlainKMeans(p);
    const int teams[] = {1, 2, 3, 8, -1};
    for (const int nthreads : {0, teams[trial % 5]}) {
      Outcome out(p);
      ASSERT_EQ(RunKMeans(p, &out, nthreads), 0);
      EXPECT_TRUE(out == expected) << nthreads << " threads: " << out.inertia << " for " << expected.inertia;
    }
  }
}

TEST(KMeans, Refusals) {
  const Problem good{4, 1, 2, 1, {{0, 1, 5, 6}}, {}, {1, 2, 3, 4}, 0.0, 5, 2, 1};
  const struct {
    int Problem::*field;
    int value, status;
  } cases[] = {{&Problem::nfeature, 0, -5200}, {&Problem::ncluster, 0, -5201}, {&Problem::ncluster, 5, -5201},
               {&Problem::nfixed, -1, -5202},  {&Problem::nfixed, 3, -5202},   {&Problem::itMax, 0, -5203}};
  for (const auto& c : cases) {
    Problem bad = good;
    bad.*c.field = c.value;
    Outcome out(good);
    EXPECT_EQ(RunKMeans(bad, &out, 0), c.status);
  }
  for (Problem p = good; p.initMode >= 0; --p.initMode) {
    for (const int nthreads : {0, 2}) {
      kestrum_test::ForEachFailingAllocation([&] {
        Outcome out(p);
        return RunKMeans(p, &out, nthreads);
      });
    }
  }
  // No run reaches a finite inertia, so none is kept.
  Outcome out(good);
  EXPECT_EQ(RunKMeans({3, 1, 2, 0, {{1e200, -1e200, 0}}, {}, {}, 0.0, 3, 3, 0}, &out, 0), 0);
  EXPECT_EQ(out.inertia, VORL_INFINITY);
  EXPECT_EQ(out.assignment, std::vector<int>(4, -7));
}

}  // namespace
