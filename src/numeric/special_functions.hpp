#ifndef KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP
#define KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_HPP

#include "numeric/special_functions.h"

namespace kestrum {

// The K that VORLbessik gives, bit for bit, without the work for I and the derivatives.
double BesselK(double x, double nu) noexcept;

}  // namespace kestrum

#endif
