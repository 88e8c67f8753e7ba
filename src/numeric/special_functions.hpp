#ifndef KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP
#define KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP

#include "numeric/special_functions.h"

namespace kestrum {

// An order nu split into mu in [-1/2, 1/2], where K is computed, and the number of recurrence steps from mu to nu.
struct SplitOrder {
  explicit SplitOrder(double nu) noexcept;
  int steps;
  double mu;
};

// What the series of Temme (1975) takes of its order.
struct TemmeOrder {
  explicit TemmeOrder(double order) noexcept;
  double mu, fact, gam1, gam2, gampl, gammi;
};

// K of one order as VORLbessik gives it, bit for bit, without the work for I and the derivatives. What depends on the
// order alone is computed once.
class BesselK {
 public:
  explicit BesselK(double nu) noexcept : order_(nu), temme_(order_.mu) {}
  double operator()(double x) const noexcept;

 private:
  SplitOrder order_;
  TemmeOrder temme_;
};

// The second continued fraction of Steed with the series that normalises K, from x = 2 on and for mu within one half of 0:
// K at mu is sqrt(pi/2x) exp(-x) / s, and K at mu + 1 is that times next / x.
struct SteedSums {
  double s, next;
};
SteedSums SteedFraction(double x, double mu) noexcept;

}  // namespace kestrum

#endif
