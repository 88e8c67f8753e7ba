#include "numeric/cholesky_lanes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "core/buffer.hpp"

namespace {

using kestrum::kLanes;
using kestrum::SimdLevel;

// One system of a batch: data on a line in the plane or off it, and a few targets.
struct System {
  std::vector<double> x, y, z;
  std::vector<double> targetX, targetY;
  double sill = 1.0;

  int n() const { return static_cast<int>(x.size()); }
  double Covariance(double dx, double dy) const { return sill * std::exp(-0.3 * std::hypot(dx, dy)); }
  double Covariance(int i, int j) const { return Covariance(x[i] - x[j], y[i] - y[j]); }
  static double Drift(int k, double x, double y) { return k == 0 ? 1.0 : k == 1 ? x : y; }
};

System MakeSystem(int n, int nround, double sill, std::mt19937& generator) {
  std::uniform_real_distribution<double> uniform(-3.0, 3.0);
  System system;
  system.sill = sill;
  for (int i = 0; i < n; ++i) {
    system.x.push_back(uniform(generator));
    system.y.push_back(uniform(generator));
    system.z.push_back(uniform(generator));
  }
  for (int r = 0; r < nround; ++r) {
    system.targetX.push_back(uniform(generator));
    system.targetY.push_back(uniform(generator));
  }
  return system;
}

struct Batch {
  int n, q, nround;
  kestrum::Buffer<double> factor, values, b, x, estimate, explained;
  kestrum::LanesOutcome outcome;

  Batch(const std::vector<System>& systems, int ndrift, SimdLevel level) : n(0), q(ndrift) {
    for (const System& system : systems) n = std::max(n, system.n());
    nround = static_cast<int>(systems[0].targetX.size());
    const int size = n + q;
    kestrum::Buffer<double> work;
    EXPECT_EQ(factor.Allocate(kestrum::PackedLanesSize(size), 0.0), 0);
    EXPECT_EQ(work.Allocate(static_cast<std::size_t>(4 * size * kLanes)), 0);
    EXPECT_EQ(values.Allocate(static_cast<std::size_t>(size * kLanes), 0.0), 0);
    EXPECT_EQ(b.Allocate(static_cast<std::size_t>(nround * size * kLanes), 0.0), 0);
    EXPECT_EQ(x.Allocate(b.size()), 0);
    EXPECT_EQ(estimate.Allocate(static_cast<std::size_t>(nround * kLanes), 0.0), 0);
    EXPECT_EQ(explained.Allocate(estimate.size(), 0.0), 0);
    for (int lane = 0; lane < kLanes; ++lane) {
      const System& system = systems[lane];
      const auto element = [&](int i, int j) -> double& { return factor[(i * (i + 1) / 2 + j) * kLanes + lane]; };
      for (int i = 0; i < n; ++i) {
        for (int j = 0; j <= i; ++j) element(i, j) = i < system.n() ? system.Covariance(i, j) : i == j;
      }
      for (int i = n; i < size; ++i) {
        for (int j = 0; j < system.n(); ++j) element(i, j) = System::Drift(i - n, system.x[j], system.y[j]);
        for (int j = n; j <= i; ++j) element(i, j) = std::nan("");  // not read
      }
      for (int i = 0; i < system.n(); ++i) values[i * kLanes + lane] = system.z[i];
      for (int r = 0; r < nround; ++r) {
        const double tx = system.targetX[r];
        const double ty = system.targetY[r];
        double* const right = b.data() + r * size * kLanes + lane;
        for (int i = 0; i < system.n(); ++i) right[i * kLanes] = system.Covariance(system.x[i] - tx, system.y[i] - ty);
        for (int k = 0; k < q; ++k) right[(n + k) * kLanes] = System::Drift(k, tx, ty);
      }
    }
    outcome = kestrum::FactoriseLanes(n, q, nullptr, factor.data(), work.data(), level);
    kestrum::PrepareLanes(size, factor.data(), values.data(), level);
    kestrum::KrigeLanes(size, factor.data(), values.data(), nround, b.data(), estimate.data(), explained.data(), level);
    std::copy_n(b.data(), b.size(), x.data());
    for (int r = 0; r < nround; ++r) kestrum::WeightsOfLanes(size, factor.data(), x.data() + r * size * kLanes);
  }
  double Weight(int round, int i, int lane) const { return x[(round * (n + q) + i) * kLanes + lane]; }
};

// The weights solve the system, in long double, and give the estimate and the explained part.
void ExpectSolved(const Batch& batch, int lane, const System& system) {
  const double tolerance = 1e-12;
  for (int r = 0; r < batch.nround; ++r) {
    const auto w = [&](int i) { return static_cast<long double>(batch.Weight(r, i, lane)); };
    const double tx = system.targetX[r];
    const double ty = system.targetY[r];
    long double estimate = 0.0L;
    long double explained = 0.0L;
    for (int i = 0; i < system.n(); ++i) {
      const double b = system.Covariance(system.x[i] - tx, system.y[i] - ty);
      long double rest = b;
      for (int j = 0; j < system.n(); ++j) rest -= system.Covariance(i, j) * w(j);
      for (int k = 0; k < batch.q; ++k) rest -= System::Drift(k, system.x[i], system.y[i]) * w(batch.n + k);
      ASSERT_NEAR(static_cast<double>(rest), 0.0, tolerance * system.sill) << "lane " << lane << " datum " << i;
      estimate += w(i) * system.z[i];
      explained += w(i) * b;
    }
    for (int k = 0; k < batch.q; ++k) {
      long double rest = System::Drift(k, tx, ty);
      explained += rest * w(batch.n + k);
      for (int i = 0; i < system.n(); ++i) rest -= System::Drift(k, system.x[i], system.y[i]) * w(i);
      ASSERT_NEAR(static_cast<double>(rest), 0.0, tolerance) << "lane " << lane << " drift " << k;
    }
    EXPECT_NEAR(batch.estimate[r * kLanes + lane], static_cast<double>(estimate), 10 * tolerance);
    EXPECT_NEAR(batch.explained[r * kLanes + lane], static_cast<double>(explained), 10 * tolerance * system.sill);
  }
}

bool SameBits(const kestrum::Buffer<double>& a, const kestrum::Buffer<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

// Sizes around those of the tiles; lanes with fewer data than others, and with other units.
TEST(CholeskyLanes, SolvesEachSystem) {
  std::mt19937 generator(3);
  for (const int n : {1, 2, 3, 4, 5, 7, 8, 9, 20, 23, 64}) {
    for (const int q : {0, 1, 3}) {
      std::vector<System> systems;
      for (int lane = 0; lane < kLanes; ++lane) {
        systems.push_back(MakeSystem(std::max({n - lane % 3, q, 1}), n % 6 + 1, lane == 5 ? 1e12 : 1.0, generator));
      }
      const Batch batch(systems, q, kestrum::BestSimdLevel());
      EXPECT_EQ(batch.outcome.redundant | batch.outcome.indefinite | batch.outcome.dependent, 0U);
      for (int lane = 0; lane < kLanes; ++lane) ExpectSolved(batch, lane, systems[lane]);
      for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2, SimdLevel::kAvx512}) {
        if (level > kestrum::BestSimdLevel()) continue;
        const Batch again(systems, q, level);
        EXPECT_TRUE(SameBits(again.x, batch.x) && SameBits(again.estimate, batch.estimate) &&
                    SameBits(again.explained, batch.explained));
      }
      // A lane alone gives the same bits as among larger ones.
      const std::vector<System> alone(kLanes, systems[2]);
      const Batch same(alone, q, kestrum::BestSimdLevel());
      for (int r = 0; r < batch.nround; ++r) {
        EXPECT_EQ(same.estimate[r * kLanes + 4], batch.estimate[r * kLanes + 2]);
        EXPECT_EQ(same.explained[r * kLanes + 4], batch.explained[r * kLanes + 2]);
        for (int i = 0; i < systems[2].n(); ++i) EXPECT_EQ(same.Weight(r, i, 4), batch.Weight(r, i, 2));
      }
    }
  }
}

TEST(CholeskyLanes, TellsWhatIsWrongWithALane) {
  std::mt19937 generator(4);
  std::vector<System> systems;
  for (int lane = 0; lane < kLanes; ++lane) systems.push_back(MakeSystem(10, 2, 1.0, generator));
  const System sound = systems[1];
  // Datum 6 lies where datum 2 does: it gets no weight, and the others the weights that they have without it.
  systems[1].x[6] = systems[1].x[2];
  systems[1].y[6] = systems[1].y[2];
  System without = systems[1];
  for (std::vector<double>* vector : {&without.x, &without.y, &without.z}) vector->erase(vector->begin() + 6);
  systems[3].sill = -1.0;
  for (int i = 0; i < 10; ++i) systems[6].y[i] = 2.0;  // all on a line: the drift along y is not determined
  systems[7].x[0] = std::nan("");
  const Batch batch(systems, 3, kestrum::BestSimdLevel());
  EXPECT_EQ(batch.outcome.redundant, 1U << 1);
  EXPECT_EQ(batch.outcome.indefinite, 1U << 3 | 1U << 7);
  EXPECT_EQ(batch.outcome.dependent & ~batch.outcome.indefinite, 1U << 6);
  for (const int lane : {0, 2, 4, 5}) ExpectSolved(batch, lane, systems[lane]);
  const Batch reduced(std::vector<System>(kLanes, without), 3, kestrum::BestSimdLevel());
  for (int r = 0; r < 2; ++r) {
    EXPECT_EQ(batch.Weight(r, 6, 1), 0.0);
    EXPECT_NEAR(batch.estimate[r * kLanes + 1], reduced.estimate[r * kLanes], 1e-12);
    EXPECT_NEAR(batch.explained[r * kLanes + 1], reduced.explained[r * kLanes], 1e-12);
  }
}

}  // namespace
