#ifndef KESTRUM_ENGINE_PLACE_SYSTEM_HPP
#define KESTRUM_ENGINE_PLACE_SYSTEM_HPP

// What the systems of kriging at true places are made of, whichever way they are solved.

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/buffer.hpp"

namespace kestrum {

// The terms of the drift: none if the mean is known.
struct PlaceDriftTerms {
  int degree = -1;
  int dimension = 3;
  int ncovariate = 0;

  // Those of the coordinates' axes that terms depend on.
  int coordinates() const noexcept { return degree > 0 ? dimension : 0; }
  int variables() const noexcept { return coordinates() + ncovariate; }
  int count() const noexcept {
    const int squares = degree > 1 ? dimension * (dimension + 1) / 2 : 0;
    return degree < 0 ? 0 : 1 + coordinates() + squares + ncovariate;
  }
};

// The data, by their number.
struct PlaceDataset {
  int n = 0;
  int dimension = 3;
  Buffer<double> x, y, z;        // z is 0.0 in the plane
  Buffer<double> residual;       // the values less the known mean, or less a number that serves all of them
  double center = 0.0;           // that number
  Buffer<double> errorVariance;  // empty if there is none
  Buffer<double> covariate;      // covariate k of datum i at [k*n + i]
  PlaceDriftTerms terms;

  // Variable v of the drift at a datum.
  double Variable(int v, double atX, double atY, double atZ, int datum) const noexcept {
    const int axes = terms.coordinates();
    if (v < axes) return v == 0 ? atX : v == 1 ? atY : atZ;
    return covariate[static_cast<std::size_t>(v - axes) * static_cast<std::size_t>(n) +
                     static_cast<std::size_t>(datum)];
  }
};

// The drift of one system. Its variables, coordinates and then covariates, count from their mean over the system's data,
// in units of the greatest difference from it: so the columns are as independent as they can be, wherever the data lie.
class PlaceDrift {
 public:
  // Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Allocate(const PlaceDriftTerms& terms) noexcept {
    terms_ = terms;
    const int count = terms.variables();
    return count == 0 ? 0 : scale_.Allocate(static_cast<std::size_t>(count));
  }

  // Sets the scales for n data; variable v of datum i is value(v, i).
  template <typename Value>
  void Fit(int n, const Value& value) noexcept {
    for (int v = 0; v < terms_.variables(); ++v) {
      double sum = 0.0;
      for (int i = 0; i < n; ++i) sum += value(v, i);
      const double mean = sum / n;
      double reach = 0.0;
      for (int i = 0; i < n; ++i) reach = std::max(reach, std::fabs(value(v, i) - mean));
      scale_[static_cast<std::size_t>(v)] = {mean, reach > 0.0 ? 1.0 / reach : 1.0};
    }
  }

  // Calls put(k, term) for each term where variable v is value(v).
  //   spread   the mean square of the differences from value(axis) over which terms are averaged, by axis; may be null
  template <typename Value, typename Put>
  void Terms(const Value& value, const double* spread, const Put& putTerm) const noexcept {
    if (terms_.degree < 0) return;
    int k = 0;
    const auto put = [&](double term) { putTerm(k++, term); };
    const auto scaled = [&](int v) {
      const Scale& scale = scale_[static_cast<std::size_t>(v)];
      return (value(v) - scale.mean) * scale.inverse;
    };
    put(1.0);
    const int axes = terms_.coordinates();
    double x[3];
    for (int a = 0; a < axes; ++a) put(x[a] = scaled(a));
    for (int a = 0; a < axes && terms_.degree > 1; ++a) {
      const double inverse = scale_[static_cast<std::size_t>(a)].inverse;
      put(x[a] * x[a] + (spread != nullptr ? spread[a] * inverse * inverse : 0.0));
      for (int b = 0; b < a; ++b) put(x[a] * x[b]);
    }
    for (int c = 0; c < terms_.ncovariate; ++c) put(scaled(axes + c));
  }

 private:
  struct Scale {
    double mean, inverse;
  };
  PlaceDriftTerms terms_;
  Buffer<Scale> scale_;
};

}  // namespace kestrum

#endif
