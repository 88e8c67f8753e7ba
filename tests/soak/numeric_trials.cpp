// Inner solvers and sums: what the levels of instructions and the compilers must agree on.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "analysis/point_variogram.hpp"
#include "core/buffer.hpp"
#include "core/parallel.hpp"
#include "numeric/cholesky.hpp"
#include "numeric/cholesky_batch.hpp"
#include "soak/trials.hpp"

namespace kestrum_test {
namespace {

using kestrum::Dealing;
using kestrum::kLanes;

// Element (i, j), j <= i, of a kriging system with its right side as row n + q: data on a line, with powers of the
// coordinate as drift.
struct LineSystem {
  LineSystem(Draw& draw, int data, int columns) : n(data), q(columns), x(draw.Reals(data + 1, -1.0, 1.0)) {}
  real operator()(int i, int j) const {
    const std::size_t column = static_cast<std::size_t>(j);
    if (i < n) return std::exp(-3.0 * std::fabs(x[static_cast<std::size_t>(i)] - x[column]));
    if (i == n + q) return j < n ? std::exp(-3.0 * std::fabs(x.back() - x[column])) : std::pow(x.back(), j - n);
    return j < n ? std::pow(x[column], i - n) : 0.0;
  }
  int n, q;
  std::vector<real> x;
};

void KrigingSystem(Draw& draw, int nthreads, Outcome& outcome) {
  outcome.function = "Factorise";
  const int n = draw.Of({1, 7, 20, 133, 290}) + draw.Int(0, 3), q = draw.Int(0, 2), nblock = draw.Int(1, 3);
  const LineSystem system(draw, n, q);
  const std::size_t size = static_cast<std::size_t>(n + q);
  kestrum::Buffer<double> factor, b, estimate, explained;
  outcome.status = factor.Allocate(kestrum::FactorSize(n, q), 0.0) + b.Allocate(size * nblock * kLanes) +
                   estimate.Allocate(nblock * kLanes) + explained.Allocate(nblock * kLanes);
  if (outcome.status != 0) return;
  std::vector<real> row(size), z = draw.Reals(n, -2.0, 2.0), values(size);
  for (int i = 0; i < n + q; ++i) {
    for (int j = 0; j <= i; ++j) row[j] = system(i, j);
    kestrum::SetFactorRow(n, i, row.data(), factor.data());
  }
  const Dealing dealing = nthreads == 0 ? Dealing::Serial() : Dealing::Threads(nthreads);
  if (!kestrum::Factorise(dealing, n, q, factor.data())) return;
  outcome.Add(factor.data(), factor.size());
  kestrum::PrepareValues(n, q, factor.data(), z.data(), values.data());
  outcome.Add(values);
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = draw.Real(0.0, 1.0);
  kestrum::Krige(n, q, factor.data(), values.data(), nblock, b.data(), estimate.data(), explained.data());
  outcome.Add(estimate.data(), estimate.size());
  outcome.Add(explained.data(), explained.size());
  kestrum::KrigingWeights(n, q, factor.data(), nblock, b.data());
  outcome.Add(b.data(), b.size());
  kestrum::DualWeights(n, q, factor.data(), values.data());
  outcome.Add(values);
}

void KrigingBatch(Draw& draw, int /*nthreads*/, Outcome& outcome) {
  outcome.function = "SolveKrigingBatch";
  const int n = draw.Int(2, 45), q = draw.Int(0, 2);
  const std::size_t size = static_cast<std::size_t>(n + q), factorSize = kestrum::FactorSize(n, q);
  kestrum::Buffer<double> a, b, x, explained, factors, work;
  outcome.status = a.Allocate(size * size * kLanes, 0.0) + b.Allocate(size * kLanes) + x.Allocate(size * kLanes) +
                   explained.Allocate(kLanes) + factors.Allocate(factorSize * kLanes, 0.0) +
                   work.Allocate(kestrum::KrigingBatchWorkSize(n, q), 0.0);
  if (outcome.status != 0) return;
  for (int lane = 0; lane < kLanes; ++lane) {
    const LineSystem system(draw, n, q);
    for (int i = 0; i <= n + q; ++i) {
      for (int j = 0; j <= i && j < n + q; ++j) {
        (i < n + q ? a[(i * size + j) * kLanes + lane] : b[j * kLanes + lane]) = system(i, j);
      }
    }
  }
  unsigned lanes = kestrum::SolveKrigingBatch(n, q, a.data(), b.data(), x.data(), explained.data(), work.data());
  outcome.Add(x.data(), x.size());
  outcome.Add(explained.data(), explained.size());
  lanes += 256 * kestrum::FactoriseBatch(n, q, a.data(), b.data(), factors.data(), x.data(), work.data());
  for (int lane = 0; lane < kLanes; ++lane) outcome.Add(factors.data() + lane * factorSize, factorSize);
  outcome.Add(x.data(), x.size());
  outcome.Add(lanes);
}

void PointVariogram(Draw& draw, int nthreads, Outcome& outcome) {
  outcome.function = "ComputePointVariogram";
  kestrum::ScatteredValues data{};
  data.n = draw.Int(2, 3000);
  data.dimension = draw.Int(2, 3);
  // Some places are on a grid, and some shared.
  std::vector<real> places = draw.Reals(data.n * data.dimension, 0.0, 10.0);
  if (draw.Chance(0.3)) {
    for (real& c : places) c = std::round(c * 4.0) / 4.0;
  }
  const std::vector<real> values = draw.Reals(data.n, -2.0, 2.0), others = draw.Reals(data.n, -2.0, 2.0);
  data.coordinates = places.data();
  data.value = values.data();
  if (draw.Chance(0.2)) data.other = others.data();
  std::vector<kestrum::DirectionCone> cones;
  for (int c = draw.Int(0, 6); c > 0; --c) {
    const real dip = data.dimension == 3 ? draw.Real(-1.5, 1.5) : 0.0, azimuth = draw.Real(0.0, 3.0);
    cones.push_back({{std::sin(azimuth) * std::cos(dip), std::cos(azimuth) * std::cos(dip), -std::sin(dip)},
                     draw.Real(0.0, 1.0),
                     draw.Of({0.5, HUGE_VAL})});
  }
  kestrum::PointVariogramOptions options{};
  options.nlag = draw.Int(1, 20);
  options.lag = draw.Of({0.02, 0.25, 1.0});
  options.estimator = static_cast<kestrum::VariogramEstimator>(draw.Int(0, 2));
  options.cones = cones.data();
  options.ncone = static_cast<int>(cones.size());
  const std::size_t size = static_cast<std::size_t>(std::max(1, options.ncone) * options.nlag);
  std::vector<real> distance(size), gamma(size);
  std::vector<std::int64_t> pairs(size);
  std::int64_t coincident = 0;
  outcome.status =
      kestrum::ComputePointVariogram(data, options, nthreads == 0 ? Dealing::Serial() : Dealing::Threads(nthreads),
                                     {nullptr, nullptr}, {distance.data(), gamma.data(), pairs.data(), &coincident});
  outcome.Add(distance);
  outcome.Add(gamma);
  outcome.Add(pairs);
  outcome.Add(static_cast<real>(coincident));
}

}  // namespace

const std::vector<Trial>& NumericTrials() {
  static const std::vector<Trial> kTrials = {
      {"kriging system", KrigingSystem}, {"kriging batch", KrigingBatch}, {"point variogram", PointVariogram}};
  return kTrials;
}

}  // namespace kestrum_test
