#ifndef KESTRUM_NUMERIC_GMRES_BATCH_HPP
#define KESTRUM_NUMERIC_GMRES_BATCH_HPP

#include <cstddef>

#include "numeric/gmres.hpp"
#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Work memory of either batch form, in doubles.
std::size_t GmresBatchWorkSize(int n, int restart) noexcept;

// Solves kLanes systems of one size at once. Each lane gives bit for bit what Gmres gives for its system.
// a, b, x: interleaved, element (i, j) of the matrix of a lane at a[(i*n + j)*kLanes + lane], element i of the right
// side at b[i*kLanes + lane], x likewise (first guess in, solution out). All pointers are 64-byte aligned.
// Returns the lanes that converged: bit `lane` is set if that one did. `level` must run on this machine.
unsigned GmresBatch(const GmresLimits& limits, int n, const double* a, const double* b, double* x, double* work,
                    SimdLevel level = BestSimdLevel()) noexcept;

// The same with one matrix for all lanes, row i starting at a + i*stride (no alignment needed): kLanes right sides of
// one system.
unsigned GmresBatchShared(const GmresLimits& limits, int n, const double* a, std::ptrdiff_t stride, const double* b,
                          double* x, double* work, SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
