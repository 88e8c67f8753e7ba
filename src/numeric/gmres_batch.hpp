#ifndef KESTRUM_NUMERIC_GMRES_BATCH_HPP
#define KESTRUM_NUMERIC_GMRES_BATCH_HPP

#include <cstddef>

#include "numeric/gmres.hpp"
#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Lanes of a wide batch, which is as fast as two others or faster where vectors have 8 numbers and systems are small.
constexpr int kWideBatch = 2 * kLanes;

// Work memory of either batch form, in doubles.
std::size_t GmresBatchWorkSize(int n, int restart, int lanes = kLanes) noexcept;

// Solves `lanes` symmetric systems of one size at once, kLanes or kWideBatch of them. Each lane gives bit for bit what
// Gmres gives for its system. a, b, x: interleaved, element (i, j) of the matrix of a lane at a[(i + j*n)*lanes + lane],
// element i of the right side at b[i*lanes + lane], x likewise (first guess in, solution out). All pointers are 64-byte
// aligned. Returns the lanes that converged: bit `lane` is set if that one did. `level` must run on this machine.
unsigned GmresBatch(const GmresLimits& limits, int n, int lanes, const double* a, const double* b, double* x,
                    double* work, SimdLevel level = BestSimdLevel()) noexcept;

// The same with one matrix for all lanes, row i starting at a + i*stride (no alignment needed): kLanes right sides of
// one system.
unsigned GmresBatchShared(const GmresLimits& limits, int n, const double* a, std::ptrdiff_t stride, const double* b,
                          double* x, double* work, SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
