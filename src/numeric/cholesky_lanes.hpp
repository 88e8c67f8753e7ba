#ifndef KESTRUM_NUMERIC_CHOLESKY_LANES_HPP
#define KESTRUM_NUMERIC_CHOLESKY_LANES_HPP

// kLanes kriging systems side by side, one per SIMD lane, and as many targets for each as one likes, one of each system
// at a time: for systems that few targets share. numeric/cholesky.hpp says what the systems and their parts are, and
// what the factor is.
//
// Rows are packed: element (i, j), j <= i, of a lane is at a[(i*(i + 1)/2 + j)*kLanes + lane]. No lane disturbs another,
// whatever it holds. A system with fewer data than the others has rows of zeros with 1 on the diagonal in place of the
// data that it lacks, which change none of its results by a bit. All pointers are 64-byte aligned.

#include <cstddef>

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Numbers in the packed rows of kLanes matrices.
constexpr std::size_t PackedLanesSize(int rows) noexcept {
  return static_cast<std::size_t>(rows) * (static_cast<std::size_t>(rows) + 1) / 2 * kLanes;
}

// How the factorisation went, by lane: bit `lane` is set where something is true of that one.
struct LanesOutcome {
  unsigned redundant = 0;   // a datum tells nothing that those before it do not, to rounding; the factor leaves it out
  unsigned indefinite = 0;  // the covariances are not positive definite: the lane's factor is of no use
  unsigned dependent = 0;   // the data do not determine the drift: the lane's factor is of no use
};

// Factorises systems of n data, 0 or more, and q drift columns.
//   diagonal   null for whole systems. For what is left of systems once some data have been eliminated
//              (numeric/cholesky_head.hpp): the variances of the n data that are left, as before
//   a          in: the matrices, of n + q rows; the q x q corner of the drift is read only of what is left. out: the factors,
//              with the inverse pivots on the diagonal
//   work       4 * (n + q) * kLanes numbers
LanesOutcome FactoriseLanes(int n, int q, const double* diagonal, double* a, double* work,
                            SimdLevel level = BestSimdLevel()) noexcept;

// x = D^-1 L^-1 x, for x of n + q elements, interleaved: with the data's values, and zeros for the drift, what
// KrigeLanes needs of them.
void PrepareLanes(int size, const double* factor, double* x, SimdLevel level = BestSimdLevel()) noexcept;

// Adds to the estimates and explained parts of nround targets for each system of `size` = n + q rows.
//   values      as from PrepareLanes; null if no estimates are wanted
//   b           in: the right sides, element i of round r at b[(r*size + i)*kLanes + lane]; out: L^-1 b
//   estimate    in/out: nround*kLanes numbers; not read if values is null
//   explained   in/out: nround*kLanes numbers
void KrigeLanes(int size, const double* factor, const double* values, int nround, double* b, double* estimate,
                double* explained, SimdLevel level = BestSimdLevel()) noexcept;

// The weights and multipliers of a round: x = L^-T D^-1 x, for x as KrigeLanes left it.
void WeightsOfLanes(int size, const double* factor, double* x) noexcept;

}  // namespace kestrum

#endif
