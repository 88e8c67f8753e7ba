#include "numeric/cholesky.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "core/buffer.hpp"
#include "numeric/cholesky_batch.hpp"

namespace {

using kestrum::kLanes;
using kestrum::SimdLevel;

std::vector<SimdLevel> Levels() {
  std::vector<SimdLevel> levels;
  for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2, SimdLevel::kAvx512}) {
    if (level <= kestrum::BestSimdLevel()) levels.push_back(level);
  }
  return levels;
}

// A kriging system with one target: the whole matrix (row-major), the right side, the data's values.
struct System {
  int n, q;
  std::vector<double> a, b, z;
  double operator()(int i, int j) const { return a[static_cast<std::size_t>(i * (n + q) + j)]; }
};

// Exponential covariances between random places in a square of side 10, with one corner at `origin`, with sill `sill` and a range
// of `range`; monomials of the coordinates as drift, times `unit`.
struct Recipe {
  double sill = 1.0;
  double range = 8.0;
  double origin = -5.0;
  double unit = 1.0;
};

System MakeSystem(int n, int q, const Recipe& recipe, std::mt19937& generator) {
  std::uniform_real_distribution<double> uniform(0.0, 10.0);
  System system{n, q, {}, {}, {}};
  std::vector<double> x(n + 1), y(n + 1);  // the last one is the target
  for (double& coordinate : x) coordinate = recipe.origin + uniform(generator);
  for (double& coordinate : y) coordinate = recipe.origin + uniform(generator);
  const auto covariance = [&](int i, int j) {
    return recipe.sill * std::exp(-3.0 / recipe.range * std::hypot(x[i] - x[j], y[i] - y[j]));
  };
  // 1, x, y, x^2, x y, y^2, x^3, ...
  std::vector<std::pair<int, int>> powers;
  for (int degree = 0; static_cast<int>(powers.size()) < q; ++degree) {
    for (int k = 0; k <= degree; ++k) powers.emplace_back(degree - k, k);
  }
  const auto monomial = [&](int k, int i) {
    return recipe.unit * std::pow(x[i], powers[k].first) * std::pow(y[i], powers[k].second);
  };
  for (int i = 0; i < n + q; ++i) {
    for (int j = 0; j < n + q; ++j) {
      const bool corner = std::min(i, j) >= n;
      system.a.push_back(corner ? 0.0 : i >= n ? monomial(i - n, j) : j >= n ? monomial(j - n, i) : covariance(i, j));
    }
    system.b.push_back(i < n ? covariance(i, n) : monomial(i - n, n));
    if (i < n) system.z.push_back(uniform(generator));
  }
  return system;
}

struct Solution {
  std::vector<long double> x;
  long double estimate = 0.0L, explained = 0.0L;
};

// By elimination with pivots from the column.
Solution SolveInLongDouble(const System& system) {
  const int size = system.n + system.q;
  std::vector<std::vector<long double>> m(size, std::vector<long double>(size + 1));
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) m[i][j] = system(i, j);
    m[i][size] = system.b[i];
  }
  for (int k = 0; k < size; ++k) {
    int largest = k;
    for (int i = k; i < size; ++i) largest = std::fabs(m[i][k]) > std::fabs(m[largest][k]) ? i : largest;
    std::swap(m[k], m[largest]);
    for (int i = k + 1; i < size; ++i) {
      const long double factor = m[i][k] / m[k][k];
      for (int j = k; j <= size; ++j) m[i][j] -= factor * m[k][j];
    }
  }
  Solution solution{std::vector<long double>(size)};
  for (int k = size - 1; k >= 0; --k) {
    long double& x = solution.x[k];
    x = m[k][size];
    for (int j = k + 1; j < size; ++j) x -= m[k][j] * solution.x[j];
    x /= m[k][k];
    solution.explained += x * system.b[k];
    if (k < system.n) solution.estimate += x * system.z[k];
  }
  return solution;
}

kestrum::Buffer<double> Zeros(std::size_t size) {
  kestrum::Buffer<double> buffer;
  EXPECT_EQ(buffer.Allocate(size + 1, 0.0), 0);
  return buffer;
}

// kLanes systems of one size, interleaved.
struct Batch {
  explicit Batch(const std::vector<System>& systems) : n(systems[0].n), q(systems[0].q) {
    const auto interleave = [&](auto member) {
      const std::size_t size = (systems[0].*member).size();
      kestrum::Buffer<double> out = Zeros(size * kLanes);
      for (std::size_t k = 0; k < size * kLanes; ++k) out[k] = (systems[k % kLanes].*member)[k / kLanes];
      return out;
    };
    a = interleave(&System::a);
    // What lies above the diagonal or in the corner is not read.
    for (int i = 0; i < n + q; ++i) {
      for (int j = std::min(i + 1, n); j < n + q; ++j) {
        std::fill_n(a.data() + (i * (n + q) + j) * kLanes, kLanes, std::numeric_limits<double>::quiet_NaN());
      }
    }
    b = interleave(&System::b);
    z = interleave(&System::z);
    x = Zeros(b.size());
    explained = Zeros(kLanes);
    work = Zeros(kestrum::KrigingBatchWorkSize(n, q));
  }
  unsigned Solve(SimdLevel level) {
    return kestrum::SolveKrigingBatch(n, q, a.data(), b.data(), x.data(), explained.data(), work.data(), level);
  }

  int n, q;
  kestrum::Buffer<double> a, b, z, x, explained, work;
};

void ExpectLane(const Batch& batch, int lane, const System& system, double tolerance) {
  const Solution expected = SolveInLongDouble(system);
  for (int i = 0; i < system.n + system.q; ++i) {
    const double scale = i < system.n ? 1.0 : system(0, 0) / std::fabs(system(i, 0));
    ASSERT_NEAR(batch.x[i * kLanes + lane], static_cast<double>(expected.x[i]), tolerance * scale)
        << "n " << system.n << " q " << system.q << " lane " << lane << " row " << i;
  }
  EXPECT_NEAR(batch.explained[lane], static_cast<double>(expected.explained), tolerance * system(0, 0));
}

// One factor for all: the system of `lane`, with the targets of all lanes.
void ExpectTargets(const double* factor, const double* values, int lane, const Batch& batch,
                   const std::vector<System>& systems, double tolerance) {
  const int n = batch.n, q = batch.q, size = n + q;
  constexpr int kBlocks = 3;
  kestrum::Buffer<double> b = Zeros(static_cast<std::size_t>(size * kLanes * kBlocks));
  kestrum::Buffer<double> estimate = Zeros(kLanes * kBlocks), explained = Zeros(kLanes * kBlocks);
  // Those of the second block in reverse order.
  const auto sourceOf = [](int target) { return target / kLanes == 1 ? 2 * kLanes - 1 - target : target % kLanes; };
  const auto placeOf = [&](int target, int i) { return (target / kLanes * size + i) * kLanes + target % kLanes; };
  for (int target = 0; target < kBlocks * kLanes; ++target) {
    for (int i = 0; i < size; ++i) b[placeOf(target, i)] = systems[sourceOf(target)].b[i];
  }
  std::vector<double> dual(values, values + size);
  kestrum::DualWeights(n, q, factor, dual.data());
  kestrum::Krige(n, q, factor, values, kBlocks, b.data(), estimate.data(), explained.data());
  kestrum::KrigingWeights(n, q, factor, kBlocks, b.data());
  for (int target = 0; target < kBlocks * kLanes; ++target) {
    System system = systems[lane];
    system.b = systems[sourceOf(target)].b;
    const Solution expected = SolveInLongDouble(system);
    double byDual = 0.0;
    for (int i = 0; i < size; ++i) {
      ASSERT_NEAR(b[placeOf(target, i)], static_cast<double>(expected.x[i]), tolerance);
      byDual += system.b[i] * dual[i];
    }
    EXPECT_NEAR(estimate[target], static_cast<double>(expected.estimate), 10.0 * tolerance);
    EXPECT_NEAR(byDual, static_cast<double>(expected.estimate), 10.0 * tolerance);
    EXPECT_NEAR(explained[target], static_cast<double>(expected.explained), tolerance);
  }
}

TEST(CholeskyBatch, LongDouble) {
  std::mt19937 generator(1);
  for (int n = 1; n <= 128; n += n < 42 ? 1 : 11) {
    for (const int q : {0, 1, 3, 6, 10}) {
      if (2 * q > n && q > 1) continue;
      const double tolerance = q > 3 ? 1e-8 : 1e-11;
      std::vector<System> systems;
      for (int lane = 0; lane < kLanes; ++lane) systems.push_back(MakeSystem(n, q, {}, generator));
      Batch batch(systems);
      for (const SimdLevel level : Levels()) {
        EXPECT_EQ(batch.Solve(level), 0xffU) << n << " " << q;
        for (int lane = 0; lane < kLanes; ++lane) ExpectLane(batch, lane, systems[lane], tolerance);
      }
      const std::size_t size = kestrum::FactorSize(n, q);
      kestrum::Buffer<double> factors = Zeros(size * kLanes);
      kestrum::Buffer<double> values = Zeros(static_cast<std::size_t>((n + q) * kLanes));
      EXPECT_EQ(kestrum::FactoriseBatch(n, q, batch.a.data(), batch.z.data(), factors.data(), values.data(),
                                        batch.work.data()),
                0xffU);
      const int lane = n % kLanes;
      ExpectTargets(factors.data() + lane * size, values.data() + lane * (n + q), lane, batch, systems, tolerance);
    }
  }
}

}  // namespace
