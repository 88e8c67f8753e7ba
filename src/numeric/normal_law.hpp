#ifndef KESTRUM_NUMERIC_NORMAL_LAW_HPP
#define KESTRUM_NUMERIC_NORMAL_LAW_HPP

namespace kestrum {

// The standard normal distribution: the probability of at most t, and the number that is not exceeded with probability
// p. At 0 and 1 the quantile is finite.
struct NormalLaw {
  double (*cdf)(double t) noexcept;
  double (*quantile)(double p) noexcept;
};

// From the table of numeric/normal_table.hpp, to five digits, within 7.495 of 0: the law of the C interface.
extern const NormalLaw kTabulatedNormal;
// Probabilities are right to 1e-13 of themselves, quantiles to 2e-15 of themselves. The same bits on every machine.
extern const NormalLaw kExactNormal;

}  // namespace kestrum

#endif
