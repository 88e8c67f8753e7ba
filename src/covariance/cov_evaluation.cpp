#include "covariance/cov_evaluation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "core/parallel.hpp"
#include "core/statuses.hpp"
#include "covariance/cov_evaluation.hpp"
#include "numeric/elementary.hpp"
#include "numeric/special_functions.hpp"

namespace kestrum {
namespace {

// Lags are taken in blocks that fit on the stack, so that each element is one short loop over the block.
constexpr int kBlock = 128;

// A block of lags along the model's axes.
struct Block {
  int n;
  const real* x;
  const real* y;
  const real* z;

  bool IsZero(int k) const noexcept { return x[k] == 0.0 && y[k] == 0.0 && z[k] == 0.0; }
};

void AddSquares(int n, const real* __restrict lag, real range, real* __restrict d2) noexcept {
  if (!(range > 0.0)) return;
  for (int k = 0; k < n; ++k) {
    const real reduced = lag[k] / range;
    d2[k] += reduced * reduced;
  }
}

// Adds contribution(k) to each covariance. A sum that starts at 0.0 never becomes -0.0, so adding 0.0 changes nothing.
template <typename Contribution>
void Add(int n, real* __restrict cov, const Contribution& contribution) noexcept {
  for (int k = 0; k < n; ++k) cov[k] += contribution(k);
}

void AddElement(const ElementParameters& p, const Block& lags, real* __restrict cov) noexcept {
  const int n = lags.n;
  const real w = p.w;
  const real s = p.s;
  if (p.type == COV_NUGGET) return Add(n, cov, [&](int k) { return lags.IsZero(k) ? w : 0.0; });

  real d2[kBlock];
  std::fill_n(d2, n, 0.0);
  AddSquares(n, lags.x, p.rx, d2);
  AddSquares(n, lags.y, p.ry, d2);
  AddSquares(n, lags.z, p.rz, d2);

  switch (p.type) {
    case COV_SPHERICAL:
      return Add(n, cov, [&](int k) {
        const real inside = w * (1.0 - 0.5 * std::sqrt(d2[k]) * (3.0 - d2[k]));
        return d2[k] < 1.0 ? inside : 0.0;
      });
    case COV_EXPONENTIAL:
      return Add(n, cov, [&](int k) { return w * std::exp(-3.0 * std::sqrt(d2[k])); });
    case COV_GAUSSIAN:
      return Add(n, cov, [&](int k) { return w * std::exp(-3.0 * d2[k]); });
    case COV_LINEAR:
      return Add(n, cov, [&](int k) {
        const real inside = w * (1.0 - std::sqrt(d2[k]));
        return d2[k] < 1.0 ? inside : 0.0;
      });
    case COV_CUBIC:
      return Add(n, cov, [&](int k) {
        const real e = d2[k];
        const real inside = w * (1.0 + e * (((0.75 * e - 3.5) * e + 8.75) * std::sqrt(e) - 7.0));
        return e < 1.0 ? inside : 0.0;
      });
    case COV_SINUS_CARDINAL:
      // At the zero lag this type adds nothing, not w; and a lag whose axes are all left out of the distance gives NaN.
      // Both are deliberate.
      return Add(n, cov, [&](int k) {
        if (lags.IsZero(k)) return 0.0;
        const real piH = std::numbers::pi * std::sqrt(d2[k]);
        return w * std::sin(piH) / piH;
      });
    case COV_GAMMA: {
      const real slope = std::pow(20.0, 1.0 / s) - 1.0;
      return Add(n, cov, [&](int k) { return w / std::pow(1.0 + slope * std::sqrt(d2[k]), s); });
    }
    case COV_POWER:
      return Add(n, cov, [&](int k) { return w * (1.0 - std::pow(d2[k], s / 2.0)); });
    case COV_EXPONENTIAL_GENERALIZED:
      return Add(n, cov, [&](int k) { return w * std::exp(-3.0 * std::pow(d2[k], s / 2.0)); });
    case COV_MATERN: {
      const real scale = std::sqrt(2.0 * s);
      const real factor = w * (2.0 / std::exp(VORLgammln(s)));
      const BesselK besselK(s);
      return Add(n, cov, [&](int k) {
        if (d2[k] < VORL_EPSILON_HARD) return w;
        const real u = std::sqrt(d2[k]) * scale;
        return factor * std::pow(u / 2.0, s) * besselK(u);
      });
    }
    default:
      // No such type: validation rejects the model.
      return;
  }
}

// Each covariance is the sum of its contributions in the order of the elements, starting at 0.0.
template <typename Source>
void Evaluate(const VORL_COVMODEL& model, const Source& source, const Rotation* rotation, int n, const real* dx,
              const real* dy, const real* dz, real* cov) noexcept {
  real x[kBlock];
  real y[kBlock];
  real z[kBlock];
  const int nelem = model.covModelElem != nullptr ? model.nelem : 0;
  for (int begin = 0, count = 0; begin < n; begin += count) {
    count = std::min(n - begin, kBlock);
    Block lags{count, dx + begin, dy + begin, dz + begin};
    if (rotation != nullptr) {
      for (int k = 0; k < lags.n; ++k) {
        const Rotation::Lag lag = rotation->ToModelAxes(lags.x[k], lags.y[k], lags.z[k]);
        x[k] = lag.x;
        y[k] = lag.y;
        z[k] = lag.z;
      }
      lags = {lags.n, x, y, z};
    }
    std::fill_n(cov + begin, lags.n, 0.0);
    for (int i = 0; i < nelem; ++i) {
      AddElement(ReadParameters(model.covModelElem[i], source), lags, cov + begin);
    }
  }
}

// Evaluates with the rotation that the two arguments give, or with that of the angles if they give none.
template <typename Source>
void EvaluateRotated(const VORL_COVMODEL& model, const Source& source, bool rotationGiven, real** rotationMatrix, int n,
                     const real* dx, const real* dy, const real* dz, real* cov) noexcept {
  real angles[3];
  const bool rotated = rotationGiven ? rotationMatrix != nullptr : Angles(model, source, angles);
  if (!rotated) return Evaluate(model, source, nullptr, n, dx, dy, dz, cov);
  const Rotation rotation = rotationGiven ? Rotation::FromMatrix(rotationMatrix) : Rotation::FromAngles(angles);
  Evaluate(model, source, &rotation, n, dx, dy, dz, cov);
}

// A sum of one or two quantities over `count` terms.
struct Moments {
  real sum = 0.0;
  real sumOfSquares = 0.0;
  std::ptrdiff_t count = 0;
};

// Sums over [0, n) with accumulate(begin, end, moments): in one piece when serial, else in a number of pieces that does
// not depend on the number of threads, so that neither does the result.
template <typename Accumulate>
Moments Sum(const Dealing& dealing, std::ptrdiff_t n, const Accumulate& accumulate) noexcept {
  constexpr std::ptrdiff_t kMaxPieces = 64;
  const std::ptrdiff_t npiece = dealing.threaded() ? std::min(n, kMaxPieces) : 1;
  std::array<Moments, kMaxPieces> pieces;
  dealing.Blocks(npiece, [&](std::ptrdiff_t first, std::ptrdiff_t last) noexcept {
    for (std::ptrdiff_t i = first; i < last; ++i) {
      const ItemBlock piece = BlockOf(n, npiece, i);
      Moments moments;
      accumulate(piece.begin, piece.end, moments);
      pieces[static_cast<std::size_t>(i)] = moments;
    }
  });
  Moments total;
  for (std::ptrdiff_t i = 0; i < npiece; ++i) {
    const Moments& piece = pieces[static_cast<std::size_t>(i)];
    total.sum += piece.sum;
    total.sumOfSquares += piece.sumOfSquares;
    total.count += piece.count;
  }
  return total;
}

// A grid axis of `extent` cells whose neighbours lie `stride` nodes apart.
struct Axis {
  std::ptrdiff_t extent;
  std::ptrdiff_t stride;
};

// Whether the mean product of the informed pairs `lag` cells apart along the axis is below the threshold; false if
// there is no such pair.
bool IsUncorrelated(const Dealing& dealing, const real* v, std::ptrdiff_t nxyz, Axis axis, std::ptrdiff_t lag,
                    real threshold) noexcept {
  // The first nodes of the pairs form one run of nodes in each slab of axis.extent cells.
  const std::ptrdiff_t slab = axis.extent * axis.stride;
  const std::ptrdiff_t run = (axis.extent - lag) * axis.stride;
  const std::ptrdiff_t shift = lag * axis.stride;
  const Moments products =
      Sum(dealing, nxyz / slab * run, [=](std::ptrdiff_t begin, std::ptrdiff_t end, Moments& moments) {
        while (begin < end) {
          const std::ptrdiff_t inRun = begin % run;
          const std::ptrdiff_t npair = std::min(run - inRun, end - begin);
          const real* tail = v + begin / run * slab + inRun;
          for (std::ptrdiff_t i = 0; i < npair; ++i) {
            const bool informed = tail[i] != VORL_MISSING_VALUE && tail[i + shift] != VORL_MISSING_VALUE;
            moments.sum += informed ? tail[i] * tail[i + shift] : 0.0;
            moments.count += informed;
          }
          begin += npair;
        }
      });
  return products.count > 0 && products.sum / static_cast<real>(products.count) < threshold;
}

// The first uncorrelated lag found along the axis, in cells: a coarse search, refined within its last step.
std::ptrdiff_t RangeAlongAxis(const Dealing& dealing, const real* v, std::ptrdiff_t nxyz, Axis axis,
                              real threshold) noexcept {
  if (axis.extent <= 1) return 0;
  const auto found = [&](std::ptrdiff_t lag) { return IsUncorrelated(dealing, v, nxyz, axis, lag, threshold); };
  const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(static_cast<real>(axis.extent) / 20.0) + 1;
  std::ptrdiff_t coarse = step;
  while (coarse < axis.extent && !found(coarse)) coarse += step;
  if (coarse >= axis.extent) return axis.extent;
  std::ptrdiff_t fine = coarse - step + 1;
  while (fine < coarse && !found(fine)) ++fine;
  return fine;
}

// Method of VORLComputeVariogramRangeApprox.
int VariogramRangeApprox(const Dealing& dealing, real tolerance, int nx, int ny, int nz, const real* v, real* rx,
                         real* ry, real* rz) noexcept {
  *rx = 0.0;
  *ry = 0.0;
  *rz = 0.0;
  const std::ptrdiff_t nxy = std::ptrdiff_t{nx} * ny;
  std::ptrdiff_t nxyz = 0;
  if (nx < 1 || ny < 1 || nz < 1 || __builtin_mul_overflow(nxy, nz, &nxyz)) return kRangesNotComputable;
  const Moments values = Sum(dealing, nxyz, [v](std::ptrdiff_t begin, std::ptrdiff_t end, Moments& moments) {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const bool informed = v[i] != VORL_MISSING_VALUE;
      moments.sum += informed ? v[i] : 0.0;
      moments.sumOfSquares += informed ? v[i] * v[i] : 0.0;
      moments.count += informed;
    }
  });
  if (values.count == 0) return kRangesNotComputable;
  const real mean = values.sum / static_cast<real>(values.count);
  const real meanOfSquares = values.sumOfSquares / static_cast<real>(values.count);
  const real threshold = (meanOfSquares - mean * mean) * tolerance + mean * mean;
  *rx = static_cast<real>(RangeAlongAxis(dealing, v, nxyz, {nx, 1}, threshold));
  *ry = static_cast<real>(RangeAlongAxis(dealing, v, nxyz, {ny, nx}, threshold));
  *rz = static_cast<real>(RangeAlongAxis(dealing, v, nxyz, {nz, nxy}, threshold));
  return 0;
}

Rotation FromSines(const real (&s)[3], const real (&c)[3]) noexcept {
  return {{{c[0] * c[2] + s[0] * s[1] * s[2], s[0] * c[1], s[0] * s[1] * c[2] - c[0] * s[2]},
           {c[0] * s[1] * s[2] - s[0] * c[2], c[0] * c[1], c[0] * s[1] * c[2] + s[0] * s[2]},
           {c[1] * s[2], -s[1], c[1] * c[2]}}};
}

}  // namespace

Rotation Rotation::FromAngles(real angle1, real angle2, real angle3) noexcept {
  constexpr real kRadiansPerDegree = 0.017453292519943295;
  const real radians[3] = {angle1 * kRadiansPerDegree, angle2 * kRadiansPerDegree, angle3 * kRadiansPerDegree};
  return FromSines({std::sin(radians[0]), std::sin(radians[1]), std::sin(radians[2])},
                   {std::cos(radians[0]), std::cos(radians[1]), std::cos(radians[2])});
}

Rotation Rotation::FromAnglesExactly(const real angles[3]) noexcept {
  const real halfTurns[3] = {angles[0] / 180.0, angles[1] / 180.0, angles[2] / 180.0};
  return FromSines({SinPi(halfTurns[0]), SinPi(halfTurns[1]), SinPi(halfTurns[2])},
                   {CosPi(halfTurns[0]), CosPi(halfTurns[1]), CosPi(halfTurns[2])});
}

void EvaluateAtNode(const VORL_COVMODEL& model, int node, const Rotation* rotation, int n, const real* dx,
                    const real* dy, const real* dz, real* cov) noexcept {
  Evaluate(model, ParametersAtNode{node}, rotation, n, dx, dy, dz, cov);
}

void EvaluateFixed(const VORL_COVMODEL& model, const Rotation* rotation, int n, const real* dx, const real* dy,
                   const real* dz, real* cov) noexcept {
  Evaluate(model, ConstantParameters{}, rotation, n, dx, dy, dz, cov);
}

}  // namespace kestrum

using kestrum::Dealing;
using kestrum::Rotation;

int VORLComputeRotationMatrix(real angle1, real angle2, real angle3, real** rotationMatrix) noexcept {
  const Rotation rotation = Rotation::FromAngles(angle1, angle2, angle3);
  for (int i = 0; i < 3; ++i) std::copy_n(rotation.m[i], 3, rotationMatrix[i]);
  return 0;
}

int VORLKestrumEvaluateCovModel(VORL_COVMODEL* model, int node, BOOLEAN rotationGiven, real** rotationMatrix, int n,
                                real* dx, real* dy, real* dz, real* cov) noexcept {
  kestrum::EvaluateRotated(*model, kestrum::ParametersAtNode{node}, rotationGiven, rotationMatrix, n, dx, dy, dz, cov);
  return 0;
}

int VORLKestrumEvaluateCovModelFixParam(VORL_COVMODEL* model, BOOLEAN rotationGiven, real** rotationMatrix, int n,
                                        real* dx, real* dy, real* dz, real* cov) noexcept {
  kestrum::EvaluateRotated(*model, kestrum::ConstantParameters{}, rotationGiven, rotationMatrix, n, dx, dy, dz, cov);
  return 0;
}

int VORLKestrumEvaluateCovModelNoRotation(VORL_COVMODEL* model, int node, int n, real* dx, real* dy, real* dz,
                                          real* cov) noexcept {
  kestrum::EvaluateAtNode(*model, node, nullptr, n, dx, dy, dz, cov);
  return 0;
}

int VORLKestrumEvaluateCovModelFixParamNoRotation(VORL_COVMODEL* model, int n, real* dx, real* dy, real* dz,
                                                  real* cov) noexcept {
  kestrum::EvaluateFixed(*model, nullptr, n, dx, dy, dz, cov);
  return 0;
}

int VORLComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry,
                                    real* rz) noexcept {
  return kestrum::VariogramRangeApprox(Dealing::Serial(), tolerance, nx, ny, nz, v, rx, ry, rz);
}

int VORLOMPComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry, real* rz,
                                       int nthreads) noexcept {
  return kestrum::VariogramRangeApprox(Dealing::Threads(nthreads), tolerance, nx, ny, nz, v, rx, ry, rz);
}
