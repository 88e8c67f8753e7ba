#ifndef KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP
#define KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP

#include "numeric/special_functions.h"

namespace kestrum {

// The K that VORLbessik gives, bit for bit, without the work for I and the derivatives.
double BesselK(double x, double nu) noexcept;

// The second continued fraction of Steed with the series that normalises K, from x = 2 on and for mu within one half of 0:
// K at mu is sqrt(pi/2x) exp(-x) / s, and K at mu + 1 is that times next / x.
struct SteedSums {
  double s, next;
};
SteedSums SteedFraction(double x, double mu) noexcept;

}  // namespace kestrum

#endif
