#ifndef KESTRUM_NUMERIC_NORMAL_TABLE_HPP
#define KESTRUM_NUMERIC_NORMAL_TABLE_HPP

namespace kestrum {

// The standard normal distribution function at 0.005*i, rounded to 15 decimals, ascending from 0.5.
inline constexpr int kNormalTableSize = 1500;
inline constexpr double kNormalTableStep = 0.005;
inline constexpr double kNormalTableEnd = 7.495;
extern const double kNormalTable[kNormalTableSize];

// Whether t lies at or beyond the last entry of the table, on either side; so does a NaN.
bool IsBeyondNormalTable(double t) noexcept;

// The distribution function at t, by linear interpolation; beyond the table it is that of the table's end.
double NormalCdf(double t) noexcept;

// The index of the largest entry that is not above p, and 0 if there is none.
int NormalTableFloor(double p) noexcept;

// The inverse of the distribution function at p in [0.5, 1], by linear interpolation; kNormalTableEnd from the last
// entry on.
double UpperNormalQuantile(double p) noexcept;

}  // namespace kestrum

#endif
