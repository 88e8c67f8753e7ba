#ifndef KESTRUM_NUMERIC_GMRES_HPP
#define KESTRUM_NUMERIC_GMRES_HPP

#include <cstddef>

namespace kestrum {

// The parameters of a restarted GMRES: relative residual to reach, length of the basis (at least 1), cycles at most.
struct GmresLimits {
  double tolerance;
  int restart;
  int ncycle;
};

// Work memory of Gmres, in doubles.
std::size_t GmresWorkSize(int n, int restart) noexcept;

// Solves one dense system as VORLGmresMatrixNotCompressed does, on work memory of the caller. Row i of the matrix
// starts at a + i*stride; x holds the first guess and receives the solution. Returns whether it converged.
bool Gmres(const GmresLimits& limits, int n, const double* a, std::ptrdiff_t stride, const double* b, double* x,
           double* work) noexcept;

}  // namespace kestrum

#endif
