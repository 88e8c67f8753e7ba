#ifndef KESTRUM_TESTS_ENGINE_PLACE_PROBLEM_HPP
#define KESTRUM_TESTS_ENGINE_PLACE_PROBLEM_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <numbers>
#include <utility>
#include <vector>

#include "engine/place_kriging.hpp"

namespace kestrum_test {

using Triple = std::array<double, 3>;

struct PlaceOutcome {
  int status = 0;
  kestrum::PlaceProblem problem;
  kestrum::PlaceKrigingReport report;
  std::vector<double> estimate, variance, weights;
  std::vector<int> ndata, weightData;
};

// Kriging at true places with all that belongs to it, the constants of the model among it.
struct PlaceProblem {
  int dimension = 2;
  std::vector<Triple> places;
  std::vector<double> values, errorVariances, means, covariates;
  std::vector<VORL_COVMODELELEM> elements;
  Triple angles = {0.0, 0.0, 0.0};
  kestrum::PlaceKrigingOptions options;
  VORL_GRID grid = {};
  std::vector<Triple> list;  // if there is no grid
  std::vector<unsigned char> mask;
  std::vector<double> targetMeans, targetCovariates;
  bool wantWeights = true;  // where variances are

  int n() const { return static_cast<int>(places.size()); }

  void AddElement(VORL_COVMODELTYPE type, double sill, Triple ranges, double s = 0.0) {
    VORL_COVMODELELEM element;
    VORLKestrumInitCovModelElem(&element);
    element.covModelType = type;
    element.weightValue = sill;
    element.rxValue = ranges[0];
    element.ryValue = ranges[1];
    element.rzValue = ranges[2];
    element.sValue = s;
    elements.push_back(element);
  }

  VORL_COVMODEL Model() const {
    VORL_COVMODEL model;
    VORLKestrumInitCovModel(&model);
    model.nelem = static_cast<int>(elements.size());
    model.covModelElem = const_cast<VORL_COVMODELELEM*>(elements.data());
    model.angle1Value = angles[0];
    model.angle2Value = angles[1];
    model.angle3Value = angles[2];
    return model;
  }

  void SetGrid(int nx, int ny, int nz, Triple spacing, Triple origin) {
    grid = {nx, ny, nz, spacing[0], spacing[1], spacing[2], origin[0], origin[1], origin[2], nx * ny, nx * ny * nz};
  }

  int ntarget() const { return list.empty() ? grid.nxyz : static_cast<int>(list.size()); }
  Triple Target(int t) const {
    if (!list.empty()) return list[t];
    return {grid.ox + (t % grid.nx + 0.5) * grid.sx, grid.oy + (t / grid.nx % grid.ny + 0.5) * grid.sy,
            dimension > 2 ? grid.oz + (t / grid.nxy + 0.5) * grid.sz : 0.0};
  }

  // Kriges the targets, or a window of the grid.
  PlaceOutcome Krige(kestrum::Dealing dealing = kestrum::Dealing::Serial(), bool wantVariance = true,
                     const VORL_COVMODEL* other = nullptr, VORL_PROGRESSMONITOR* monitor = nullptr,
                     kestrum::ProgressCallback callback = nullptr, kestrum::SimdLevel level = kestrum::BestSimdLevel(),
                     const int* window = nullptr) const {
    PlaceOutcome outcome;
    const auto flatten = [&](const std::vector<Triple>& from) {
      std::vector<double> flat;
      for (const Triple& at : from) flat.insert(flat.end(), at.begin(), at.begin() + dimension);
      return flat;
    };
    const auto pointer = [](const auto& vector) { return vector.empty() ? nullptr : vector.data(); };
    const std::vector<double> coordinates = flatten(places);
    const std::vector<double> listed = flatten(list);
    const VORL_COVMODEL own = Model();
    const kestrum::Progress progress(monitor, callback), quiet(nullptr, nullptr);
    kestrum::PlaceKriging kriging;
    outcome.status = kriging.Prepare({n(), dimension, coordinates.data(), values.data(), pointer(errorVariances),
                                      pointer(means), pointer(covariates)},
                                     other != nullptr ? *other : own, options, dealing, quiet, &outcome.problem);
    if (outcome.status != 0 || outcome.problem.refusal != kestrum::PlaceRefusal::kNone) return outcome;
    kestrum::PlaceKrigingTargets targets;
    targets.places.grid = grid;
    const int whole[6] = {0, 0, 0, grid.nx, grid.ny, grid.nz};
    std::copy_n(window != nullptr ? window : whole, 3, targets.places.first);
    std::copy_n((window != nullptr ? window : whole) + 3, 3, targets.places.extent);
    targets.places.list = pointer(listed);
    targets.places.nlist = static_cast<std::int64_t>(list.size());
    targets.places.dimension = dimension;
    targets.places.mask = pointer(mask);
    targets.means = pointer(targetMeans);
    targets.covariates = pointer(targetCovariates);
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(0, targets.places.count()));
    const int nweight = options.neighbors > 0 ? std::min(options.neighbors, n()) : n();
    outcome.estimate.assign(count, -1.0);
    outcome.variance.assign(count, -1.0);
    outcome.ndata.assign(count, -1);
    outcome.weights.assign(wantVariance && wantWeights ? count * nweight : 0, -1.0);
    outcome.weightData.assign(outcome.weights.size(), -2);
    const bool weighed = !outcome.weights.empty();
    outcome.status = kriging.Krige(
        targets,
        {outcome.estimate.data(), wantVariance ? outcome.variance.data() : nullptr, outcome.ndata.data(), nweight,
         weighed ? outcome.weights.data() : nullptr, weighed ? outcome.weightData.data() : nullptr},
        dealing, progress, &outcome.report, &outcome.problem, level);
    return outcome;
  }
};

// The solution of one target in long double, from the equations alone.
class PlaceOracle {
 public:
  explicit PlaceOracle(const PlaceProblem& problem) : problem_(problem) {
    const long double radian = std::numbers::pi_v<long double> / 180.0L;
    long double c[3];
    long double s[3];
    for (int k = 0; k < 3; ++k) {
      c[k] = std::cos(problem.angles[k] * radian);
      s[k] = std::sin(problem.angles[k] * radian);
    }
    // A turn about z by the azimuth, clockwise; about the new x by the dip, downwards; about the new y by the plunge.
    axis_[0] = {c[0] * c[2] + s[0] * s[1] * s[2], -s[0] * c[2] + c[0] * s[1] * s[2], c[1] * s[2]};
    axis_[1] = {s[0] * c[1], c[0] * c[1], -s[1]};
    axis_[2] = {s[0] * s[1] * c[2] - c[0] * s[2], c[0] * s[1] * c[2] + s[0] * s[2], c[1] * c[2]};
  }

  struct Solution {
    long double estimate, variance;
    std::vector<int> data;
    std::vector<long double> weights;
  };

  Solution Solve(int t) const {
    const Triple target = problem_.Target(t);
    Solution solution;
    solution.data = Neighbors(target);
    const int n = static_cast<int>(solution.data.size());
    const std::vector<Triple> points = Points(target);
    const bool block = points.size() > 1;
    std::vector<std::vector<long double>> drift;
    for (const int i : solution.data)
      drift.push_back(Drift({problem_.places[i]}, i, problem_.covariates, problem_.n()));
    const std::vector<long double> atTarget = Drift(points, t, problem_.targetCovariates, problem_.ntarget());
    const int q = static_cast<int>(atTarget.size());
    std::vector<std::vector<long double>> a(n + q, std::vector<long double>(n + q + 1, 0.0L));
    for (int i = 0; i < n; ++i) {
      const Triple& own = problem_.places[solution.data[i]];
      for (int j = 0; j < n; ++j) a[i][j] = Covariance(own, problem_.places[solution.data[j]], true);
      if (!problem_.errorVariances.empty()) a[i][i] += problem_.errorVariances[solution.data[i]];
      for (int k = 0; k < q; ++k) a[i][n + k] = a[n + k][i] = drift[i][k];
      for (const Triple& point : points) a[i][n + q] += Covariance(own, point, !block) / points.size();
    }
    for (int k = 0; k < q; ++k) a[n + k][n + q] = atTarget[k];
    std::vector<std::vector<long double>> solved = a;
    Eliminate(solved);
    long double variance = 0.0L;
    for (const Triple& p : points) {
      for (const Triple& other : points) variance += Covariance(p, other, !block) / points.size() / points.size();
    }
    const bool known = problem_.options.degree < 0;
    long double estimate = known ? Mean(problem_.targetMeans, t) : 0.0L;
    for (int i = 0; i < n + q; ++i) {
      variance -= solved[i][n + q] * a[i][n + q];
      if (i >= n) continue;
      const int datum = solution.data[i];
      estimate += solved[i][n + q] * (problem_.values[datum] - (known ? Mean(problem_.means, datum) : 0.0L));
      solution.weights.push_back(solved[i][n + q]);
    }
    solution.estimate = estimate;
    solution.variance = variance;
    return solution;
  }

 private:
  using Vector = std::array<long double, 3>;

  long double Mean(const std::vector<double>& means, int i) const {
    return means.empty() ? problem_.options.mean : means[i];
  }

  Vector AlongAxes(const Triple& from, const Triple& to) const {
    Vector u;
    for (int a = 0; a < 3; ++a) {
      u[a] = 0.0L;
      for (int b = 0; b < 3; ++b) u[a] += axis_[a][b] * (static_cast<long double>(to[b]) - from[b]);
    }
    return u;
  }

  long double Covariance(const Triple& p, const Triple& q, bool withNugget) const {
    const Vector u = AlongAxes(p, q);
    long double sum = 0.0L;
    for (const VORL_COVMODELELEM& e : problem_.elements) {
      if (e.covModelType == COV_NUGGET) {
        sum += withNugget && p == q ? e.weightValue : 0.0;
        continue;
      }
      const double ranges[3] = {e.rxValue, e.ryValue, e.rzValue};
      long double square = 0.0L;
      for (int a = 0; a < 3; ++a) square += ranges[a] > 0.0 ? u[a] / ranges[a] * (u[a] / ranges[a]) : 0.0L;
      sum += e.weightValue * Correlation(e.covModelType, std::sqrt(square), e.sValue);
    }
    return sum;
  }

  static long double Correlation(int type, long double h, long double s) {
    switch (type) {
      case COV_SPHERICAL:
        return h < 1.0L ? 1.0L - 1.5L * h + 0.5L * h * h * h : 0.0L;
      case COV_EXPONENTIAL:
        return std::exp(-3.0L * h);
      case COV_GAUSSIAN:
        return std::exp(-3.0L * h * h);
      case COV_CUBIC:
        return h < 1.0L ? 1.0L - h * h * (7.0L - h * (8.75L - h * h * (3.5L - 0.75L * h * h))) : 0.0L;
      case COV_EXPONENTIAL_GENERALIZED:
        return std::exp(-3.0L * std::pow(h, s));
      case COV_GAMMA:
        return 1.0L / std::pow(1.0L + (std::pow(20.0L, 1.0L / s) - 1.0L) * h, s);
      default:
        ADD_FAILURE() << "no closed form of type " << type;
        return 0.0L;
    }
  }

  // The regular points of a target's cell.
  std::vector<Triple> Points(const Triple& target) const {
    std::vector<Triple> points;
    const int* const block = problem_.options.block;
    const double spacing[3] = {problem_.grid.sx, problem_.grid.sy, problem_.grid.sz};
    for (int p = 0; p < block[0] * block[1] * block[2]; ++p) {
      const int at[3] = {p % block[0], p / block[0] % block[1], p / block[0] / block[1]};
      Triple point = target;
      for (int a = 0; a < 3; ++a) {
        if (block[a] > 1) point[a] += ((at[a] + 0.5) / block[a] - 0.5) * spacing[a];
      }
      points.push_back(point);
    }
    return points;
  }

  // Raw monomials and covariates: nothing is centred or scaled.
  std::vector<long double> Drift(const std::vector<Triple>& points, int number, const std::vector<double>& covariates,
                                 int step) const {
    const int degree = problem_.options.degree;
    if (degree < 0) return {};
    std::vector<long double> terms;
    const auto add = [&](const std::function<long double(const Triple&)>& term) {
      long double sum = 0.0L;
      for (const Triple& point : points) sum += term(point) / points.size();
      terms.push_back(sum);
    };
    add([](const Triple&) { return 1.0L; });
    for (int a = 0; a < problem_.dimension && degree > 0; ++a) {
      add([&](const Triple& p) { return p[a]; });
      for (int b = 0; b <= a && degree > 1; ++b)
        add([&](const Triple& p) { return static_cast<long double>(p[a]) * p[b]; });
    }
    for (int k = 0; k < problem_.options.ncovariate; ++k) terms.push_back(covariates[k * step + number]);
    return terms;
  }

  std::vector<int> Neighbors(const Triple& target) const {
    const kestrum::PlaceKrigingOptions& options = problem_.options;
    Vector longest = {0.0L, 0.0L, 0.0L};
    for (const VORL_COVMODELELEM& e : problem_.elements) {
      const double ranges[3] = {e.rxValue, e.ryValue, e.rzValue};
      for (int a = 0; a < 3 && e.covModelType != COV_NUGGET; ++a)
        longest[a] = std::max<long double>(longest[a], ranges[a]);
    }
    std::vector<std::pair<long double, int>> found;
    for (int i = 0; i < problem_.n(); ++i) {
      const Vector u = AlongAxes(target, problem_.places[i]);
      long double inEllipsoid = 0.0L;
      long double distance = 0.0L;
      for (int a = 0; a < 3; ++a) {
        if (options.radius[0] > 0.0) inEllipsoid += u[a] / options.radius[a] * (u[a] / options.radius[a]);
        const long double unit = options.euclidean || longest[0] == 0.0L ? 1.0L : longest[a];
        if (u[a] != 0.0L) distance += u[a] / unit * (u[a] / unit);
      }
      if (inEllipsoid <= 1.0L) found.emplace_back(distance, i);
    }
    std::sort(found.begin(), found.end());
    if (options.neighbors > 0 && found.size() > static_cast<std::size_t>(options.neighbors))
      found.resize(options.neighbors);
    std::vector<int> data;
    for (const auto& [distance, i] : found) data.push_back(i);
    std::sort(data.begin(), data.end());
    return data;
  }

  // Gauss and Jordan, with pivots from the column.
  static void Eliminate(std::vector<std::vector<long double>>& m) {
    const std::size_t size = m.size();
    for (std::size_t k = 0; k < size; ++k) {
      std::size_t largest = k;
      for (std::size_t i = k; i < size; ++i) largest = std::fabs(m[i][k]) > std::fabs(m[largest][k]) ? i : largest;
      std::swap(m[k], m[largest]);
      for (std::size_t i = 0; i < size; ++i) {
        if (i == k) continue;
        const long double factor = m[i][k] / m[k][k];
        for (std::size_t j = k; j <= size; ++j) m[i][j] -= factor * m[k][j];
      }
    }
    for (std::size_t k = 0; k < size; ++k) m[k][size] /= m[k][k];
  }

  const PlaceProblem& problem_;
  Vector axis_[3];
};

}  // namespace kestrum_test

#endif
