#ifndef KESTRUM_NUMERIC_LINEAR_SOLVER_H
#define KESTRUM_NUMERIC_LINEAR_SOLVER_H

/** @file
 * Linear solvers: restarted GMRES on a dense matrix, preconditioned conjugate gradient on compressed rows, dense LU.
 *
 * A dense matrix is built by VORLMallocArray2D: a[i][j] is row i, column j. A matrix in compressed rows (CSR) is three
 * vectors: values (the non-zero entries row by row), columns (the column of each entry) and rowStart (n + 1 entries:
 * row i holds the entries rowStart[i] to rowStart[i+1] - 1).
 *
 * Work memory is taken and released inside. The relative residual is ||b - A x|| / ||b|| with Euclidean norms.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Solves A x = b by restarted GMRES with modified Gram-Schmidt orthogonalisation (Saad and Schultz, 1986).
 *
 * A cycle always builds its whole basis; the residual is checked where a cycle begins, and after the last one. Not
 * converging is no error.
 *
 * @param tolerance relative residual below which x is taken as the solution
 * @param n number of unknowns
 * @param[in] a matrix, n by n
 * @param[in] b right side, n values
 * @param restart number of vectors in a basis; may exceed n
 * @param ncycle largest number of cycles; below 1 only the guess is checked
 * @param[in,out] x in: first guess, n values; out: the solution found, all zero for a right side of a norm below
 *   VORL_EPSILON_HARD
 * @param[out] niter number of cycles done
 * @param[out] residual relative residual of x
 * @param[out] converged TRUE if the residual fell below tolerance
 * @param verbose TRUE: print a line per cycle on the standard output
 * @return 0; -1: memory is short; -7: restart is 0 or -1. After a failure only converged is written */
KESTRUM_API int VORLGmresMatrixNotCompressed(real tolerance, int n, real** a, real* b, int restart, int ncycle, real* x,
                                             int* niter, real* residual, BOOLEAN* converged,
                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Solves A x = b, A symmetric positive definite, by the conjugate gradient with a diagonal preconditioner.
 *
 * Not converging is no error.
 *
 * @param tolerance relative residual below which the iteration ends
 * @param n number of unknowns
 * @param[in] values entries of the matrix in compressed rows
 * @param[in] columns column of each entry
 * @param[in] rowStart n + 1 positions of the rows
 * @param[in] invDiag n inverses of the diagonal, as VORLComputeInvDiagOfMatrixCSR gives them
 * @param[in] b right side, n values
 * @param maxIter largest number of iterations; below 1 only the guess is checked
 * @param[in,out] x in: first guess, n values; out: the solution found
 * @param[out] niter number of iterations done
 * @param[out] residual relative residual, as the recurrence carries it
 * @param[out] converged TRUE if the residual fell below tolerance
 * @param verbose TRUE: print a line per iteration on the standard output
 * @return 0; -1: memory is short, with nothing written */
KESTRUM_API int VORLConjGradDiag(real tolerance, int n, real* values, int* columns, int* rowStart, real* invDiag,
                                 real* b, int maxIter, real* x, int* niter, real* residual, BOOLEAN* converged,
                                 BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes the inverse of each diagonal entry of a matrix in compressed rows.
 *
 * @param n number of rows
 * @param[in] values entries of the matrix in compressed rows
 * @param[in] columns column of each entry
 * @param[in] rowStart n + 1 positions of the rows
 * @param[out] invDiag n inverses; of several entries with column i in row i the first counts; without one, invDiag[i]
 *   stays
 * @return 0 */
KESTRUM_API int VORLComputeInvDiagOfMatrixCSR(int n, real* values, int* columns, int* rowStart,
                                              real* invDiag) KESTRUM_NOEXCEPT;

/** Computes y = A x for a matrix in compressed rows, summed in storage order; an empty row gives 0.
 *
 * @param n number of rows
 * @param[in] values entries of the matrix in compressed rows
 * @param[in] columns column of each entry
 * @param[in] rowStart n + 1 positions of the rows
 * @param[in] x n values
 * @param[out] y n values
 * @return 0 */
KESTRUM_API int VORLProductMatrixCSRVector(int n, real* values, int* columns, int* rowStart, real* x,
                                           real* y) KESTRUM_NOEXCEPT;

/** Computes y = A x for a dense matrix, summed in the order of the columns.
 *
 * @param n number of rows and columns
 * @param[in] a matrix, n by n
 * @param[in] x n values
 * @param[out] y n values
 * @return 0 */
KESTRUM_API int VORLProductMatrixVector(int n, real** a, real* x, real* y) KESTRUM_NOEXCEPT;

/** Crout's LU decomposition in place, with exchanges of rows: L below and on the diagonal, U above with a unit diagonal
 * that is not stored.
 *
 * @param n number of rows and columns
 * @param[in,out] a in: the matrix, n by n; out: both factors
 * @param[out] pivot n rows: the one that step k exchanged with row k
 * @return 0; -60001: a pivot is below VORL_EPSILON, and the matrix is left as far as it got; -1: memory is short */
KESTRUM_API int VORLMatrixLUDecompositionPivoting(int n, real** a, int* pivot) KESTRUM_NOEXCEPT;

/** The solve that goes with VORLMatrixLUDecompositionPivoting where L is diagonal.
 *
 * Its forward pass exchanges and divides, and does not subtract the terms of L below the diagonal. Use
 * VORLGmresMatrixNotCompressed for full systems.
 *
 * @param n number of unknowns
 * @param[in] a both factors
 * @param[in] pivot n rows, as decomposed
 * @param[in,out] b in: right side, n values; out: the solution
 * @return 0 */
KESTRUM_API int VORLMatrixLUDecompositionPivotingSolve(int n, real** a, int* pivot, real* b) KESTRUM_NOEXCEPT;

/** Solves with a matrix that was decomposed without exchanges of rows, in the layout of
 * VORLMatrixLUDecompositionPivoting.
 *
 * A zero pivot is not caught.
 *
 * @param n number of unknowns
 * @param[in] a both factors
 * @param[in,out] b in: right side, n values; out: the solution
 * @return 0 */
KESTRUM_API int VORLMatrixLUDecompositionSolve(int n, real** a, real* b) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
