#include "numeric/cholesky.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "core/buffer.hpp"
#include "numeric/cholesky_batch.hpp"
#include "support/simd_levels.hpp"

namespace {

using kestrum::Dealing;
using kestrum::kLanes;
using kestrum::SimdLevel;
using kestrum_test::Levels;

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
  EXPECT_EQ(buffer.Allocate(size, 0.0), 0);
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

// What the batch gives, for a comparison of bits.
std::vector<double> Solved(Batch& batch, SimdLevel level, unsigned lanes = 0xff) {
  EXPECT_EQ(batch.Solve(level), lanes) << "n " << batch.n << " q " << batch.q << " level " << static_cast<int>(level);
  std::vector<double> all(batch.x.begin(), batch.x.end());
  all.insert(all.end(), batch.explained.begin(), batch.explained.end());
  return all;
}

void ExpectLane(const Batch& batch, int lane, const System& system, double tolerance) {
  const Solution expected = SolveInLongDouble(system);
  for (int i = 0; i < system.n + system.q; ++i) {
    const double scale = i < system.n ? 1.0 : system(0, 0) / std::fabs(system(i, 0));
    ASSERT_NEAR(batch.x[i * kLanes + lane], static_cast<double>(expected.x[i]), tolerance * scale)
        << "n " << system.n << " q " << system.q << " lane " << lane << " row " << i;
  }
  EXPECT_NEAR(batch.explained[lane], static_cast<double>(expected.explained), tolerance * system(0, 0));
}

// A system with the right sides of many as targets: one factor for all.
struct Targets {
  // The targets are those of `systems` over and over, `blocks` times; `system` tells the data.
  Targets(const System& data, const std::vector<System>& systems, int blocks)
      : system(data), nblock(blocks), size(data.n + data.q) {
    b = Zeros(static_cast<std::size_t>(nblock * size * kLanes));
    estimate = Zeros(static_cast<std::size_t>(nblock * kLanes));
    explained = Zeros(static_cast<std::size_t>(nblock * kLanes));
    for (int target = 0; target < nblock * kLanes; ++target) {
      sources.push_back(&systems[static_cast<std::size_t>(target) % systems.size()]);
      for (int i = 0; i < size; ++i) b[Place(target, i)] = sources.back()->b[i];
    }
  }
  std::size_t Place(int target, int i) const {
    return static_cast<std::size_t>((target / kLanes * size + i) * kLanes + target % kLanes);
  }
  // Estimates, explained parts and weights, one after the other.
  std::vector<double> Krige(const double* factor, const double* values, SimdLevel level) {
    kestrum::Krige(system.n, system.q, factor, values, nblock, b.data(), estimate.data(), explained.data(), level);
    kestrum::KrigingWeights(system.n, system.q, factor, nblock, b.data(), level);
    std::vector<double> all(estimate.begin(), estimate.end());
    all.insert(all.end(), explained.begin(), explained.end());
    all.insert(all.end(), b.begin(), b.end());
    return all;
  }
  // Expects what Krige left, and what the dual weights give.
  void ExpectLongDouble(const double* factor, const double* values, double tolerance) {
    std::vector<double> dual(values, values + size);
    kestrum::DualWeights(system.n, system.q, factor, dual.data());
    for (int target = 0; target < nblock * kLanes; target += system.n < 50 ? 1 : 9) {
      System one = system;
      one.b = sources[static_cast<std::size_t>(target)]->b;
      const Solution expected = SolveInLongDouble(one);
      double byDual = 0.0;
      for (int i = 0; i < size; ++i) {
        ASSERT_NEAR(b[Place(target, i)], static_cast<double>(expected.x[i]), tolerance) << system.n << " " << system.q;
        byDual += one.b[i] * dual[i];
      }
      EXPECT_NEAR(estimate[target], static_cast<double>(expected.estimate), 10.0 * tolerance);
      EXPECT_NEAR(byDual, static_cast<double>(expected.estimate), 10.0 * tolerance);
      EXPECT_NEAR(explained[target], static_cast<double>(expected.explained), tolerance);
    }
  }

  System system;
  int nblock, size;
  std::vector<const System*> sources;
  kestrum::Buffer<double> b, estimate, explained;
};

std::vector<System> MakeSystems(int n, int q, const Recipe& recipe, unsigned seed) {
  std::mt19937 generator(seed);
  std::vector<System> systems;
  for (int lane = 0; lane < kLanes; ++lane) systems.push_back(MakeSystem(n, q, recipe, generator));
  return systems;
}

// Every size has tails of its own in the tiles of each level.
TEST(Cholesky, BatchesAgainstLongDouble) {
  for (int n = 1; n <= 128; n += n < 42 ? 1 : 43) {
    for (const int q : {0, 1, 2, 3, 6, 10}) {
      if (2 * q > n && q > 1) continue;
      const double tolerance = q > 3 ? 1e-8 : 1e-11;
      const std::vector<System> systems = MakeSystems(n, q, {}, static_cast<unsigned>(n));
      Batch batch(systems);
      const std::vector<double> solved = Solved(batch, SimdLevel::kBaseline);
      const int lane = n % kLanes;
      for (int k = 0; k < (n < 10 ? kLanes : 1); ++k)
        ExpectLane(batch, (lane + k) % kLanes, systems[(lane + k) % kLanes], tolerance);

      const std::size_t size = kestrum::FactorSize(n, q);
      kestrum::Buffer<double> factors = Zeros(size * kLanes);
      kestrum::Buffer<double> values = Zeros(static_cast<std::size_t>((n + q) * kLanes));
      std::vector<double> kriged;
      for (const SimdLevel level : Levels()) {
        EXPECT_EQ(Solved(batch, level), solved) << n << " " << q << " level " << static_cast<int>(level);
        EXPECT_EQ(kestrum::FactoriseBatch(n, q, batch.a.data(), batch.z.data(), factors.data(), values.data(),
                                          batch.work.data(), level),
                  0xffU);
        Targets targets(systems[lane], systems, 1 + n % 3);
        const std::vector<double> result =
            targets.Krige(factors.data() + lane * size, values.data() + lane * (n + q), level);
        if (level == SimdLevel::kBaseline) {
          targets.ExpectLongDouble(factors.data() + lane * size, values.data() + lane * (n + q), tolerance);
          kriged = result;
        }
        EXPECT_EQ(result, kriged) << n << " " << q << " level " << static_cast<int>(level);
      }
    }
  }
}

// One system, over the ends of the chunks of columns, by any number of threads.
TEST(Cholesky, LargeSystemAgainstLongDouble) {
  for (const auto& [n, q] : {std::pair{1, 0}, {9, 1}, {127, 1}, {128, 0}, {133, 3}, {254, 6}, {301, 1}}) {
    const std::vector<System> systems = MakeSystems(n, q, {}, static_cast<unsigned>(n));
    const System& system = systems[0];
    kestrum::Buffer<double> factor = Zeros(kestrum::FactorSize(n, q));
    std::vector<double> kriged;
    for (const SimdLevel level : Levels()) {
      for (const int threads : {0, 1, 2, 3, 8}) {
        for (int i = 0; i < n + q; ++i) kestrum::SetFactorRow(n, i, &system.a[i * (n + q)], factor.data());
        const Dealing dealing = threads == 0 ? Dealing::Serial() : Dealing::Threads(threads);
        ASSERT_TRUE(kestrum::Factorise(dealing, n, q, factor.data(), level));
        std::vector<double> values(static_cast<std::size_t>(n + q));
        kestrum::PrepareValues(n, q, factor.data(), system.z.data(), values.data());
        Targets targets(system, systems, 3);
        const std::vector<double> result = targets.Krige(factor.data(), values.data(), level);
        if (kriged.empty()) {
          targets.ExpectLongDouble(factor.data(), values.data(), q > 3 ? 1e-8 : 1e-11);
          kriged = result;
        }
        EXPECT_EQ(result, kriged) << n << " level " << static_cast<int>(level) << " threads " << threads;
      }
    }
  }
}

// A job that is to stop, or a matrix that is no covariance in its third chunk of columns: all threads come back.
TEST(Cholesky, LargeSystemEndsEarly) {
  constexpr int n = 700;
  std::vector<double> row(n);
  kestrum::Buffer<double> factor = Zeros(kestrum::FactorSize(n, 0));
  for (const bool stopped : {false, true}) {
    VORL_PROGRESSMONITOR monitor;
    VORLInitProgressMonitor(&monitor);
    monitor.abortedJobFlag = stopped;
    for (const int threads : {0, 1, 2, 8}) {
      const auto factorise = [&](double fault) {
        for (int i = 0; i < n; ++i) {
          for (int j = 0; j <= i; ++j) row[j] = i == j ? 1.0 : 1e-4;
          if (i == 300) row[300] = fault;
          kestrum::SetFactorRow(n, i, row.data(), factor.data());
        }
        const Dealing dealing = threads == 0 ? Dealing::Serial() : Dealing::Threads(threads);
        kestrum::SystemFlaws flaws;
        const bool sound = kestrum::Factorise(dealing, n, 0, factor.data(), kestrum::BestSimdLevel(), &flaws,
                                              kestrum::Progress(&monitor, nullptr));
        EXPECT_EQ(flaws.indefinite, fault < 0.0 && !stopped);
        return sound;
      };
      EXPECT_FALSE(factorise(-1.0)) << threads;
      EXPECT_EQ(factorise(1.0), !stopped) << threads;
    }
  }
}

TEST(Cholesky, UnitsDoNotMatter) {
  for (const int n : {5, 20, 33}) {
    const std::vector<System> plain = MakeSystems(n, 3, {}, 1);
    Batch reference(plain);
    Solved(reference, kestrum::BestSimdLevel());
    for (const double sill : {1e-24, 3e-7, 160000.0, 1e24}) {
      for (const double unit : {1e-9, 1.0, 7e8}) {
        Recipe recipe;
        recipe.sill = sill;
        recipe.unit = unit;
        Batch batch(MakeSystems(n, 3, recipe, 1));
        Solved(batch, kestrum::BestSimdLevel());
        for (int k = 0; k < (n + 3) * kLanes; ++k) {
          const double expected = reference.x[k] * (k < n * kLanes ? 1.0 : sill / unit);
          EXPECT_NEAR(batch.x[k], expected, 1e-11 * (std::fabs(expected) + (k < n * kLanes ? 1.0 : 0.0)));
        }
        for (int lane = 0; lane < kLanes; ++lane) {
          EXPECT_NEAR(batch.explained[lane] / sill, reference.explained[lane], 1e-12);
        }
      }
    }
  }
}

// Each way for a lane to fail, in turn on each lane: the others give the bits that they give among sound lanes.
TEST(Cholesky, UnsoundLanes) {
  constexpr int n = 13, q = 2;
  const std::vector<System> sound = MakeSystems(n, q, {}, 4);
  const int size = n + q;
  const auto set = [](System& system, int i, int j, double value) {
    const int columns = system.n + system.q;
    system.a[i * columns + j] = system.a[j * columns + i] = value;
  };
  const std::vector<std::function<void(System&)>> faults = {
      [&](System& system) { set(system, 3, 3, std::nan("")); },
      [&](System& system) { set(system, 12, 0, std::nan("")); }, [&](System& system) { set(system, 5, 5, -1.0); },
      [&](System& system) { set(system, 0, 0, 0.0); }, [&](System& system) { set(system, 7, 2, 1.5); },
      [&](System& system) { std::fill_n(system.a.begin(), size * size, 0.0); },
      [&](System& system) { std::fill_n(system.a.begin(), size * size, std::numeric_limits<double>::infinity()); },
      // Two data at one place.
      [&](System& system) {
        for (int j = 0; j < size; ++j) set(system, 9, j, system(4, j));
        set(system, 9, 9, system(4, 4));
      },
      // A drift that the other one explains, or none at all.
      [&](System& system) {
        for (int j = 0; j < n; ++j) set(system, n + 1, j, 3.0 * system(n, j));
      },
      [&](System& system) {
        for (int j = 0; j < n; ++j) set(system, n, j, 0.0);
      }};
  Batch reference(sound);
  for (const SimdLevel level : Levels()) {
    const std::vector<double> expected = Solved(reference, level);
    for (std::size_t k = 0; k < faults.size(); ++k) {
      const std::size_t lane = (k + static_cast<std::size_t>(level)) % kLanes;
      std::vector<System> systems = sound;
      faults[k](systems[lane]);
      Batch batch(systems);
      const std::vector<double> solved = Solved(batch, level, 0xffU & ~(1U << lane));
      for (std::size_t i = 0; i < solved.size(); ++i) {
        if (i % kLanes == lane) continue;
        ASSERT_EQ(solved[i], expected[i]) << "fault " << k << " level " << static_cast<int>(level);
      }
      kestrum::Buffer<double> factor = Zeros(kestrum::FactorSize(n, q));
      for (int i = 0; i < size; ++i) kestrum::SetFactorRow(n, i, &systems[lane].a[i * size], factor.data());
      EXPECT_FALSE(kestrum::Factorise(Dealing::Serial(), n, q, factor.data(), level)) << "fault " << k;
    }
  }
}

// Two data move together. The estimate changes as little as the true one, down to a distance at which the pivot is
// nothing but rounding.
TEST(Cholesky, NearlySingular) {
  for (const double distance : {1e-2, 1e-6, 1e-10, 1e-12}) {
    std::vector<System> systems = MakeSystems(20, 1, {}, 6);
    for (System& system : systems) {
      const double correlation = std::exp(-distance);
      for (int j = 0; j < 21; ++j) {
        const double value = j < 20 && j != 4 ? system(4, j) * correlation : j == 4 ? correlation : 1.0;
        system.a[static_cast<std::size_t>(9 * 21 + j)] = system.a[static_cast<std::size_t>(j * 21 + 9)] = value;
      }
      system.a[9 * 21 + 9] = 1.0;
      system.b[9] = system.b[4] * correlation;
    }
    Batch batch(systems);
    Solved(batch, kestrum::BestSimdLevel());
    for (int lane = 0; lane < kLanes; ++lane) {
      const Solution expected = SolveInLongDouble(systems[lane]);
      EXPECT_NEAR(batch.explained[lane], static_cast<double>(expected.explained), 1e-13);
      const double pair = batch.x[4 * kLanes + lane] + batch.x[9 * kLanes + lane];
      EXPECT_NEAR(pair, static_cast<double>(expected.x[4] + expected.x[9]), 1e-13);
    }
  }
}

}  // namespace
