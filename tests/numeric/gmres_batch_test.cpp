#include "numeric/gmres_batch.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "core/buffer.hpp"

namespace {

using kestrum::kLanes;

enum class Kind { kKriging, kZeroRhs, kExactGuess, kEigenvector, kSingular, kIllConditioned, kNan, kGeneral };
constexpr int kKinds = 8;

struct System {
  std::vector<double> a, b, x;
};

// A system of a kind that takes its own way through the solver. Every kind but the general ones holds whole numbers
// where that makes a special condition exact.
System MakeSystem(Kind kind, int n, std::mt19937& generator) {
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const std::size_t count = static_cast<std::size_t>(n);
  System system{std::vector<double>(count * count), std::vector<double>(count), std::vector<double>(count)};
  std::vector<double> position(count);
  for (double& p : position) p = 10.0 * uniform(generator);
  for (double& x : system.x) x = uniform(generator);
  for (double& b : system.b) b = uniform(generator);
  const auto entry = [&](std::size_t i, std::size_t j) {
    const double gap = static_cast<double>(i) - static_cast<double>(j);
    switch (kind) {
      case Kind::kKriging:
      case Kind::kZeroRhs:
        if (count > 1 && (i + 1 == count || j + 1 == count)) return i == j ? 0.0 : 1.0;
        return std::exp(-std::fabs(position[i] - position[j]));
      case Kind::kExactGuess:
        return static_cast<double>((i * j + 3 * (i + j)) % 5);
      case Kind::kEigenvector:
        return i == j ? 2.0 : 0.0;
      case Kind::kSingular:
        return 1.0;
      case Kind::kIllConditioned:
        return std::exp(-gap * gap / 1000.0);
      case Kind::kNan:
        return i == j ? std::numeric_limits<double>::quiet_NaN() : 1.0;
      default:
        return uniform(generator) - 0.5 + (i == j ? 2.0 : 0.0);
    }
  };
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t j = 0; j <= i; ++j) system.a[i * count + j] = system.a[j * count + i] = entry(i, j);
  }
  if (kind == Kind::kZeroRhs) system.b.assign(count, 0.0);
  if (kind == Kind::kExactGuess) {
    for (std::size_t i = 0; i < count; ++i) system.x[i] = static_cast<double>(i % 3) - 1.0;
    system.b.assign(count, 0.0);
    for (std::size_t k = 0; k < count * count; ++k) system.b[k / count] += system.a[k] * system.x[k % count];
  }
  if (kind == Kind::kEigenvector) {
    system.x.assign(count, 0.0);
    system.b.assign(count, 0.0);
    system.b[0] = 4.0;
  }
  return system;
}

bool SameBits(double x, double y) {
  return (std::isnan(x) && std::isnan(y)) || std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y);
}

struct Course {
  unsigned converged = 0;
  std::vector<std::vector<double>> solutions;
};

Course SolvePlain(const std::vector<System>& systems, int n, const kestrum::GmresLimits& limits) {
  Course course;
  std::vector<double> work(kestrum::GmresWorkSize(n, limits.restart));
  for (System system : systems) {
    const bool converged = kestrum::Gmres(limits, n, system.a.data(), n, system.b.data(), system.x.data(), work.data());
    course.converged |= static_cast<unsigned>(converged) << course.solutions.size();
    course.solutions.push_back(system.x);
  }
  return course;
}

// Solves the systems in a batch, and expects of each lane what the plain form gives. A shared matrix is that of
// the first system, with rows that lie three numbers further apart than they are long.
void ExpectPlainCourse(std::vector<System> systems, int n, const kestrum::GmresLimits& limits, bool shared) {
  if (shared) {
    for (System& system : systems) system.a = systems[0].a;
  }
  const Course plain = SolvePlain(systems, n, limits);
  const std::size_t count = static_cast<std::size_t>(n);
  const std::size_t lanes = systems.size();
  const std::size_t stride = count + 3;
  kestrum::Buffer<double> a, b, x, work;
  ASSERT_EQ(a.Allocate(shared ? count * stride : count * count * lanes, 0.0), 0);
  ASSERT_EQ(b.Allocate(count * lanes), 0);
  ASSERT_EQ(x.Allocate(count * lanes), 0);
  ASSERT_EQ(work.Allocate(kestrum::GmresBatchWorkSize(n, limits.restart, static_cast<int>(lanes))), 0);
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    for (std::size_t i = 0; i < count; ++i) {
      b[i * lanes + lane] = systems[lane].b[i];
      x[i * lanes + lane] = systems[lane].x[i];
      for (std::size_t j = 0; j < count; ++j) {
        (shared ? a[i * stride + j] : a[(i + j * count) * lanes + lane]) = systems[lane].a[i * count + j];
      }
    }
  }
  const unsigned converged =
      shared ? kestrum::GmresBatchShared(limits, n, a.data(), static_cast<std::ptrdiff_t>(stride), b.data(), x.data(),
                                         work.data())
             : kestrum::GmresBatch(limits, n, static_cast<int>(lanes), a.data(), b.data(), x.data(), work.data());
  EXPECT_EQ(converged, plain.converged) << "n " << n;
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_TRUE(SameBits(x[i * lanes + lane], plain.solutions[lane][i]))
          << "n " << n << " lane " << lane << " row " << i;
    }
  }
}

std::vector<System> MakeLanes(int n, int shift, std::mt19937& generator, int lanes = kLanes) {
  std::vector<System> systems;
  for (int lane = 0; lane < lanes; ++lane) {
    systems.push_back(MakeSystem(static_cast<Kind>((lane + shift) % kKinds), n, generator));
  }
  return systems;
}

TEST(GmresBatch, EachLaneIsThePlainSolver) {
  std::mt19937 generator(1);
  std::vector<int> sizes = {99, 100};
  for (int n = 1; n <= 40; ++n) sizes.push_back(n);
  for (const int n : sizes) {
    for (const int lanes : {kLanes, kestrum::kWideBatch}) {
      ExpectPlainCourse(MakeLanes(n, n, generator, lanes), n, {1e-10, n, 1}, false);
      std::vector<System> alike;
      for (int lane = 0; lane < lanes; ++lane) alike.push_back(MakeSystem(Kind::kKriging, n, generator));
      ExpectPlainCourse(alike, n, {1e-10, n, 1}, false);
      EXPECT_NE(SolvePlain(alike, n, {1e-10, n, 1}).converged, 0U) << n;  // the common course, not a special one
    }
  }
}

// A lane's rank among the kinds changes with the shift, and with it the matrix that all lanes share.
TEST(GmresBatch, SharedMatrix) {
  std::mt19937 generator(2);
  for (int n = 1; n <= 150; n += n < 40 ? 1 : 27) {
    const kestrum::GmresLimits limits{1e-10, n > 100 ? 100 : n, n > 100 ? 4 : 1};
    ExpectPlainCourse(MakeLanes(n, n, generator), n, limits, true);
    ExpectPlainCourse(MakeLanes(n, 0, generator), n, limits, true);
  }
}

// Short bases: lanes need different numbers of cycles, stagnate, exhaust their space or run out of cycles.
TEST(GmresBatch, LanesOfDifferentLength) {
  std::mt19937 generator(3);
  for (const int n : {2, 7, 20, 33}) {
    for (const int restart : {1, 2, 5, n + 2}) {
      for (const int ncycle : {0, 1, 2, 60}) {
        for (const bool shared : {false, true}) {
          ExpectPlainCourse(MakeLanes(n, 0, generator), n, {1e-10, restart, ncycle}, shared);
          ExpectPlainCourse(MakeLanes(n, 7, generator), n, {1e-3, restart, ncycle}, shared);
          if (!shared)
            ExpectPlainCourse(MakeLanes(n, 7, generator, kestrum::kWideBatch), n, {1e-3, restart, ncycle}, false);
        }
      }
    }
  }
}

}  // namespace
