#ifndef KESTRUM_NUMERIC_CHOLESKY_HEAD_HPP
#define KESTRUM_NUMERIC_CHOLESKY_HEAD_HPP

// The beginning of some kriging systems that begin with the same data, eliminated once for all. What is left of each is
// a system of its own (numeric/cholesky_lanes.hpp), with the bits that it would have if it were solved from the start:
// from each element the same products are subtracted in the same order. numeric/cholesky.hpp says what the systems and
// their parts are.

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// The systems' data are candidates, of which each has the first `head` and some others; then come q drift columns, and
// one of values. Row j of the table holds the elements of column j of the symmetric matrix of all these, from the
// diagonal on: that of candidate or column i is at start[j] + i.
struct HeadTable {
  // Targets that the systems are solved for.
  static constexpr int kTargets = 2 * kLanes;

  int n = 0;  // candidates
  int q = 0;
  int head = 0;
  int columns = 0;  // n + q + 1 or more, a multiple of kLanes
  const int* start = nullptr;
  double* table = nullptr;  // rows 0 to n + q - 1; row j has columns from j on, rounded down to a multiple of kLanes
  double* right = nullptr;  // the right sides, of element j of target t at [j*kTargets + t]
};

struct HeadOutcome {
  bool redundant = false;   // a datum tells nothing that those before it do not, to rounding; it is left out
  bool indefinite = false;  // the covariances are not positive definite: nothing is of use
};

// Eliminates the head.
//   head       in: the covariances, drift terms and values, 0.0 in the corner of the drift. out: in the rows that follow the
//              head, what is left of them
//   factor     head * columns numbers, for work
//   estimate   out: the part of each target's estimate that the head gives, as KrigeLanes goes on with
//   explained  out: likewise, the explained part
HeadOutcome EliminateHead(const HeadTable& table, double* factor, double* estimate, double* explained,
                          SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
