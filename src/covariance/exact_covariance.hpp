#ifndef KESTRUM_COVARIANCE_EXACT_COVARIANCE_HPP
#define KESTRUM_COVARIANCE_EXACT_COVARIANCE_HPP

// Covariances of a model right to 1e-13 of the sill, for whoever need not give the bits of covariance/cov_evaluation.h.
// The formulas are the ones given there, but for two: at the zero lag, and wherever h is zero, COV_SINUS_CARDINAL gives
// w, the limit; and COV_MATERN holds down to the smallest lags. COV_POWER, which has no lower bound, is right to 1e-13 of
// the larger of w and itself.

#include "core/buffer.hpp"
#include "covariance/cov_evaluation.hpp"
#include "covariance/matern.hpp"
#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Lags of n places from `columns` others, a multiple of kLanes, and where their covariances go: that of place j from place
// i to cov[start[j] + i]; if `triangular`, only those from the multiple of kLanes at or below j on. Coordinate a of place j
// is place[a][j], of another from[a][i].
struct LagRows {
  int axes;  // 2 if z is 0 for all places
  int n;
  const real* place[3];
  int columns;
  const real* from[3];
  const int* start;
  bool triangular;
  real* cov;
};

// A model ready for evaluation: parameters and rotation read, and all computed that does not depend on the lag. It keeps
// no reference to the model. Any number of threads may evaluate it at a time; for parameters that change from node to
// node, each thread prepares one of its own.
class ExactCovariance {
 public:
  // Makes room for models of up to `count` elements, at least 1. Gives 0, or -1 if memory runs out.
  [[nodiscard]] int Allocate(int count) noexcept;

  // Reads a model's parameters: `source` is ParametersAtNode or ConstantParameters. Allocates nothing. If the smoothness
  // of a COV_MATERN element is the same as before, what depends on it alone is kept.
  template <typename Source>
  void Prepare(const VORL_COVMODEL& model, const Source& source) noexcept {
    real angles[3];
    rotated_ = Angles(model, source, angles);
    const Rotation rotation = Rotation::FromAnglesExactly(angles);
    count_ = model.nelem;
    cost_ = 0.0;
    for (int i = 0; i < count_; ++i) SetElement(i, ReadParameters(model.covModelElem[i], source), rotation);
  }

  // The covariance of the zero lag.
  real Sill() const noexcept;

  // About how long a lag takes, in units of gathering one number from a table.
  double cost() const noexcept { return cost_; }

  // cov[k] becomes the covariance of lag (dx[k], dy[k], dz[k]), along the grid's axes and in coordinate units, for n
  // lags: 0 if the model has no elements. No array overlaps another.
  void Evaluate(int n, const real* dx, const real* dy, const real* dz, real* cov,
                SimdLevel level = BestSimdLevel()) const noexcept;

  // The covariances of lags that are formed as they are needed. The places are not those of `cov`.
  void EvaluateRows(const LagRows& lags, SimdLevel level = BestSimdLevel()) const noexcept;

  // An element, ready.
  struct Element {
    int type;
    real w;
    // The reduced lag is axes times the lag; only the diagonal counts where there is no rotation.
    real axes[3][3];
    real s;
    real offset;  // of COV_GAMMA, whose correlation is factor (offset + h)^-s
    real factor;
    Matern matern;
  };

 private:
  void SetElement(int i, const ElementParameters& parameters, const Rotation& rotation) noexcept;

  int count_ = 0;
  double cost_ = 0.0;
  bool rotated_ = false;
  Buffer<Element> elements_;
};

// Lags of n places from kLanes others side by side: along axis a, that of place i from place `lane` at
// lag[a][i*kLanes + lane]. Coordinate a of place i is place[a][i*step] if it serves all lanes (step 1), else
// place[a][i*kLanes + lane] (step kLanes); from[a] has kLanes numbers.
void LagsOfLanes(int n, const real* const* place, int step, const real* const* from, real* const* lag,
                 SimdLevel level = BestSimdLevel()) noexcept;

// The lags themselves: along axis a, that of place j from place i at lag[a][start[j] + i].
void LagsOfRows(const LagRows& lags, real* const* lag, SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
