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

using kestrum::Dealing;
using kestrum::kLanes;
using kestrum::KrigingBatch;
using kestrum::SimdLevel;

std::vector<SimdLevel> Levels() {
  std::vector<SimdLevel> levels;
  for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2, SimdLevel::kAvx512}) {
    if (level <= kestrum::BestSimdLevel()) levels.push_back(level);
  }
  return levels;
}

// A kriging system with one target: covariances (row-major), drift columns, right sides, the data's values.
struct System {
  int n, q;
  std::vector<double> a, drift, b, g, z;
};

// Exponential covariances between random places in a square of side 10, around `origin`, with sill `sill` and a range
// of `range`; monomials of the coordinates as drift, times `unit`.
struct Recipe {
  double sill = 1.0;
  double range = 8.0;
  double origin = 0.0;
  double unit = 1.0;
};

System MakeSystem(int n, int q, const Recipe& recipe, std::mt19937& generator) {
  std::uniform_real_distribution<double> uniform(0.0, 10.0);
  const std::size_t size = static_cast<std::size_t>(n);
  System system{n, q, {}, {}, {}, {}, {}};
  std::vector<double> x(size + 1), y(size + 1);  // the last one is the target
  for (double& coordinate : x) coordinate = recipe.origin + uniform(generator);
  for (double& coordinate : y) coordinate = recipe.origin + uniform(generator);
  const auto covariance = [&](std::size_t i, std::size_t j) {
    return recipe.sill * std::exp(-3.0 / recipe.range * std::hypot(x[i] - x[j], y[i] - y[j]));
  };
  // 1, x, y, x^2, x y, y^2, x^3, ...
  std::vector<std::pair<int, int>> powers;
  for (int degree = 0; static_cast<int>(powers.size()) < q; ++degree) {
    for (int k = 0; k <= degree; ++k) powers.emplace_back(degree - k, k);
  }
  const auto monomial = [&](int k, std::size_t i) {
    return recipe.unit * std::pow(x[i], powers[k].first) * std::pow(y[i], powers[k].second);
  };
  for (std::size_t i = 0; i < size; ++i) {
    for (std::size_t j = 0; j < size; ++j) system.a.push_back(covariance(i, j));
    system.b.push_back(covariance(i, size));
    system.z.push_back(uniform(generator));
  }
  for (int k = 0; k < q; ++k) {
    for (std::size_t i = 0; i < size; ++i) system.drift.push_back(monomial(k, i));
    system.g.push_back(monomial(k, size));
  }
  return system;
}

struct Solution {
  std::vector<long double> weights, multipliers;
  long double estimate = 0.0L, explained = 0.0L;
};

// By elimination with pivots from the column.
Solution SolveInLongDouble(const System& system) {
  const std::size_t n = static_cast<std::size_t>(system.n), all = n + static_cast<std::size_t>(system.q);
  std::vector<std::vector<long double>> m(all, std::vector<long double>(all + 1, 0.0L));
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) m[i][j] = system.a[i * n + j];
    for (std::size_t k = n; k < all; ++k) m[i][k] = m[k][i] = system.drift[(k - n) * n + i];
    m[i][all] = system.b[i];
  }
  for (std::size_t k = n; k < all; ++k) m[k][all] = system.g[k - n];
  for (std::size_t k = 0; k < all; ++k) {
    std::size_t largest = k;
    for (std::size_t i = k; i < all; ++i) largest = std::fabs(m[i][k]) > std::fabs(m[largest][k]) ? i : largest;
    std::swap(m[k], m[largest]);
    for (std::size_t i = k + 1; i < all; ++i) {
      const long double factor = m[i][k] / m[k][k];
      for (std::size_t j = k; j <= all; ++j) m[i][j] -= factor * m[k][j];
    }
  }
  std::vector<long double> x(all);
  for (std::size_t k = all; k-- > 0;) {
    x[k] = m[k][all];
    for (std::size_t j = k + 1; j < all; ++j) x[k] -= m[k][j] * x[j];
    x[k] /= m[k][k];
  }
  Solution solution;
  for (std::size_t i = 0; i < all; ++i) {
    (i < n ? solution.weights : solution.multipliers).push_back(x[i]);
    solution.explained += x[i] * (i < n ? system.b[i] : system.g[i - n]);
    if (i < n) solution.estimate += x[i] * system.z[i];
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
    // What lies above the diagonal is not read.
    for (int i = 0; i < n; ++i) {
      for (int j = i + 1; j < n; ++j) {
        std::fill_n(a.data() + (i * n + j) * kLanes, kLanes, std::numeric_limits<double>::quiet_NaN());
      }
    }
    drift = interleave(&System::drift);
    b = interleave(&System::b);
    g = interleave(&System::g);
    z = interleave(&System::z);
    weights = Zeros(b.size());
    multipliers = Zeros(g.size());
    explained = Zeros(kLanes);
    work = Zeros(kestrum::KrigingBatchWorkSize(n, q));
  }
  KrigingBatch systems() const { return {n, q, a.data(), drift.data()}; }
  unsigned Solve(SimdLevel level) {
    return SolveKrigingBatch(systems(), b.data(), g.data(), weights.data(), multipliers.data(), explained.data(),
                             work.data(), level);
  }

  int n, q;
  kestrum::Buffer<double> a, drift, b, g, z, weights, multipliers, explained, work;
};

void ExpectLane(const Batch& batch, int lane, const System& system, double tolerance) {
  const Solution expected = SolveInLongDouble(system);
  for (int i = 0; i < system.n; ++i) {
    ASSERT_NEAR(batch.weights[i * kLanes + lane], static_cast<double>(expected.weights[i]), tolerance)
        << "n " << system.n << " q " << system.q << " lane " << lane << " datum " << i;
  }
  EXPECT_NEAR(batch.explained[lane], static_cast<double>(expected.explained), tolerance * system.a[0]);
  for (int k = 0; k < system.q; ++k) {
    const double scale = system.a[0] / std::fabs(system.drift[k * system.n]);
    EXPECT_NEAR(batch.multipliers[k * kLanes + lane], static_cast<double>(expected.multipliers[k]), tolerance * scale);
  }
}

// One factor for all: each lane's, and a large one, with the targets of all lanes.
void ExpectTargets(const double* factor, const double* values, int lane, const Batch& batch,
                   const std::vector<System>& systems, double tolerance) {
  const int n = batch.n, q = batch.q;
  constexpr int kBlocks = 3;
  kestrum::Buffer<double> b = Zeros(static_cast<std::size_t>(n * kLanes * kBlocks));
  kestrum::Buffer<double> g = Zeros(static_cast<std::size_t>(q * kLanes * kBlocks));
  kestrum::Buffer<double> estimate = Zeros(kLanes * kBlocks), explained = Zeros(kLanes * kBlocks);
  // The right sides of all systems are targets of this one; those of the second block in reverse order.
  const auto targetOf = [](int block, int target) { return block == 1 ? kLanes - 1 - target : target; };
  for (int block = 0; block < kBlocks; ++block) {
    for (int target = 0; target < kLanes; ++target) {
      const System& source = systems[targetOf(block, target)];
      for (int i = 0; i < n; ++i) b[(block * n + i) * kLanes + target] = source.b[i];
      for (int k = 0; k < q; ++k) g[(block * q + k) * kLanes + target] = source.g[k];
    }
  }
  std::vector<double> dual(static_cast<std::size_t>(n + q));
  kestrum::DualWeights(n, q, factor, values, dual.data());
  kestrum::Krige(n, q, factor, values, kBlocks, b.data(), g.data(), estimate.data(), explained.data());
  kestrum::KrigingWeights(n, q, factor, kBlocks, b.data(), g.data());
  for (int block = 0; block < kBlocks; ++block) {
    for (int target = 0; target < kLanes; ++target) {
      System system = systems[lane];
      system.b = systems[targetOf(block, target)].b;
      system.g = systems[targetOf(block, target)].g;
      const Solution expected = SolveInLongDouble(system);
      double byDual = 0.0;
      for (int i = 0; i < n; ++i) {
        ASSERT_NEAR(b[(block * n + i) * kLanes + target], static_cast<double>(expected.weights[i]), tolerance);
        byDual += system.b[i] * dual[i];
      }
      for (int k = 0; k < q; ++k) {
        EXPECT_NEAR(g[(block * q + k) * kLanes + target], static_cast<double>(expected.multipliers[k]), tolerance);
        byDual += system.g[k] * dual[n + k];
      }
      EXPECT_NEAR(estimate[block * kLanes + target], static_cast<double>(expected.estimate), 10.0 * tolerance);
      EXPECT_NEAR(byDual, static_cast<double>(expected.estimate), 10.0 * tolerance);
      EXPECT_NEAR(explained[block * kLanes + target], static_cast<double>(expected.explained), tolerance);
    }
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
      EXPECT_EQ(FactoriseBatch(batch.systems(), batch.z.data(), factors.data(), values.data(), batch.work.data()),
                0xffU);
      const int lane = n % kLanes;
      ExpectTargets(factors.data() + lane * size, values.data() + lane * (n + q), lane, batch, systems, tolerance);
    }
  }
}

}  // namespace
