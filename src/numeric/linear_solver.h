#ifndef KESTRUM_NUMERIC_LINEAR_SOLVER_H
#define KESTRUM_NUMERIC_LINEAR_SOLVER_H

/* Linear solvers: restarted GMRES on a dense matrix, preconditioned conjugate gradient on compressed rows, dense LU.
 *
 * A dense matrix is built by VORLMallocArray2D: a[i][j] is row i, column j. A matrix in compressed rows (CSR) is three
 * vectors: values (the non-zero entries row by row), columns (the column of each entry) and rowStart (n + 1 entries:
 * row i holds the entries rowStart[i] to rowStart[i+1] - 1).
 *
 * No pointer may be null. All memory belongs to the caller; work memory is taken and released inside. The relative
 * residual is ||b - A x|| / ||b|| with Euclidean norms. Any number of threads may call at the same time, on data of
 * their own. Where nothing else is told the result is 0.
 */

#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* Solves A x = b by restarted GMRES with modified Gram-Schmidt orthogonalisation (Saad and Schultz, 1986). A cycle
 * always builds its whole basis; the residual is checked where a cycle begins, and after the last one.
 * tolerance: relative residual below which x is taken as the solution.
 * n: number of unknowns.
 * a, b: matrix and right side (n), only read.
 * restart: vectors in a basis; may exceed n.
 * ncycle: cycles at most; below 1 only the guess is checked.
 * x: in, first guess (n); out, the solution found. A right side of norm below VORL_EPSILON_HARD gives all zero.
 * niter: out, cycles done. residual: out, relative residual of x.
 * converged: out, TRUE if the residual fell below tolerance. Not converging is no error.
 * verbose: TRUE prints a line per cycle on the standard output.
 * Statuses: those of an allocation (-1; -7 if restart is 0 or -1), with only converged written. */
KESTRUM_API int VORLGmresMatrixNotCompressed(real tolerance, int n, real** a, real* b, int restart, int ncycle, real* x,
                                             int* niter, real* residual, BOOLEAN* converged,
                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;

/* Solves A x = b, A symmetric positive definite, by the conjugate gradient with a diagonal preconditioner.
 * tolerance: relative residual at which the iteration ends.
 * n, values, columns, rowStart: matrix in compressed rows, only read.
 * invDiag: inverse of the diagonal (n), as of VORLComputeInvDiagOfMatrixCSR. b: right side (n).
 * maxIter: iterations at most; below 1 only the guess is checked.
 * x: in, first guess (n); out, the solution found.
 * niter: out, iterations done. residual: out, relative residual, as the recurrence carries it.
 * converged: out, TRUE if the residual fell below tolerance. Not converging is no error.
 * verbose: TRUE prints a line per iteration on the standard output.
 * Statuses: those of an allocation (-1), with nothing written. */
KESTRUM_API int VORLConjGradDiag(real tolerance, int n, real* values, int* columns, int* rowStart, real* invDiag,
                                 real* b, int maxIter, real* x, int* niter, real* residual, BOOLEAN* converged,
                                 BOOLEAN verbose) KESTRUM_NOEXCEPT;

/* The inverse of each diagonal entry of a matrix in compressed rows.
 * invDiag: out (n); of several entries with column i in row i the first counts; without one, invDiag[i] stays. */
KESTRUM_API int VORLComputeInvDiagOfMatrixCSR(int n, real* values, int* columns, int* rowStart,
                                              real* invDiag) KESTRUM_NOEXCEPT;

/* y = A x for a matrix in compressed rows, summed in storage order; an empty row gives 0. x, y: n values, apart. */
KESTRUM_API int VORLProductMatrixCSRVector(int n, real* values, int* columns, int* rowStart, real* x,
                                           real* y) KESTRUM_NOEXCEPT;

/* y = A x for a dense matrix, summed in the order of the columns. x, y: n values, apart. */
KESTRUM_API int VORLProductMatrixVector(int n, real** a, real* x, real* y) KESTRUM_NOEXCEPT;

/* Crout's LU decomposition in place, with exchanges of rows: L below and on the diagonal, U above with a unit diagonal
 * that is not stored.
 * a: in, the matrix; out, both factors.
 * pivot: out (n), the row that step k exchanged with row k.
 * Statuses: -60001 if a pivot is below VORL_EPSILON, with the matrix left as far as it got; those of an allocation. */
KESTRUM_API int VORLMatrixLUDecompositionPivoting(int n, real** a, int* pivot) KESTRUM_NOEXCEPT;

/* The solve that goes with VORLMatrixLUDecompositionPivoting where L is diagonal: its forward pass exchanges and
 * divides, and does not subtract the terms of L below the diagonal. Use VORLGmresMatrixNotCompressed for full systems.
 * a, pivot: as decomposed, only read. b: in, right side (n); out, the solution. */
KESTRUM_API int VORLMatrixLUDecompositionPivotingSolve(int n, real** a, int* pivot, real* b) KESTRUM_NOEXCEPT;

/* Solves with a matrix that was decomposed without exchanges of rows, in the layout of
 * VORLMatrixLUDecompositionPivoting. A zero pivot is not caught.
 * a: both factors, only read. b: in, right side (n); out, the solution. */
KESTRUM_API int VORLMatrixLUDecompositionSolve(int n, real** a, real* b) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
