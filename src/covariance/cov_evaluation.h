#ifndef KESTRUM_COVARIANCE_COV_EVALUATION_H
#define KESTRUM_COVARIANCE_COV_EVALUATION_H

/* Evaluation of covariance models, their rotation matrix, and an approximate correlation range of a gridded variable.
 *
 * The covariance of a lag is the sum of the contributions of the elements. With (x, y, z) the lag along the model's
 * axes, d2 = (x/rx)^2 + (y/ry)^2 + (z/rz)^2, where a term whose range is not above 0.0 is left out, h = sqrt(d2),
 * weight w and extra parameter s:
 *
 *   COV_NUGGET                    w if x, y and z are exactly 0.0, else 0
 *   COV_SPHERICAL                 w * (1 - 0.5 h (3 - h^2)) if d2 < 1, else 0
 *   COV_EXPONENTIAL               w * exp(-3 h)
 *   COV_GAUSSIAN                  w * exp(-3 h^2)
 *   COV_LINEAR                    w * (1 - h) if d2 < 1, else 0
 *   COV_CUBIC                     w * (1 - 7 h^2 + 8.75 h^3 - 3.5 h^5 + 0.75 h^7) if d2 < 1, else 0
 *   COV_SINUS_CARDINAL            w * sin(pi h) / (pi h), and 0 (not w) if x, y and z are exactly 0.0
 *   COV_GAMMA                     w / (1 + (20^(1/s) - 1) h)^s
 *   COV_POWER                     w * (1 - h^s), without a lower bound
 *   COV_EXPONENTIAL_GENERALIZED   w * exp(-3 h^s)
 *   COV_MATERN                    w * 2^(1-s) / Gamma(s) * u^s * K_s(u) with u = h sqrt(2 s), and w if d2 < 1e-20
 *
 * For the types and their use see J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
 * Wiley 2012, chapter 2.
 *
 * All functions are safe to call from many threads at a time on a shared model or variable, which they do not change.
 */

#include "core/types.h"
#include "covariance/cov_model.h"

KESTRUM_BEGIN_DECLS

/* A tolerance for VORLComputeVariogramRangeApprox. */
#define VORL_APPROX_RANGE_TOLERANCE 0.05

/* Fills `rotationMatrix` (3 rows of 3, from the caller) from three angles in degrees. Its columns are the model's axes
 * in the grid's coordinates: M[i][j] is component i of axis j. `angle1` is the azimuth, from the y axis towards the x
 * axis; `angle2` the dip, a positive one taking the model's y axis below the horizontal; `angle3` the plunge, a turn
 * about the model's y axis. Returns 0.
 */
KESTRUM_API int VORLComputeRotationMatrix(real angle1, real angle2, real angle3,
                                          real** rotationMatrix) KESTRUM_NOEXCEPT;

/* Evaluates a model at n lags, with its parameters and angles read at a node: from the image where its pointer is not
 * null, else from the constant.
 *
 *   model            the model
 *   node             index of the node on the simulation grid; not read if the model has no image
 *   rotationGiven    true: rotationMatrix is used; false: the angles at the node give the rotation
 *   rotationMatrix   as from VORLComputeRotationMatrix, or null for no rotation; not read if rotationGiven is false
 *   n                number of lags
 *   dx, dy, dz       the lags along the grid's axes, n entries each, in coordinate units
 *   cov              out: the n covariances, from the caller; overlaps no lag vector
 *
 * Returns 0.
 */
KESTRUM_API int VORLKestrumEvaluateCovModel(VORL_COVMODEL* model, int node, BOOLEAN rotationGiven,
                                            real** rotationMatrix, int n, real* dx, real* dy, real* dz,
                                            real* cov) KESTRUM_NOEXCEPT;

/* As VORLKestrumEvaluateCovModel, with the constants of the model alone: images are not looked at. */
KESTRUM_API int VORLKestrumEvaluateCovModelFixParam(VORL_COVMODEL* model, BOOLEAN rotationGiven, real** rotationMatrix,
                                                    int n, real* dx, real* dy, real* dz, real* cov) KESTRUM_NOEXCEPT;

/* As VORLKestrumEvaluateCovModel, with the lags given along the model's axes. */
KESTRUM_API int VORLKestrumEvaluateCovModelNoRotation(VORL_COVMODEL* model, int node, int n, real* dx, real* dy,
                                                      real* dz, real* cov) KESTRUM_NOEXCEPT;

/* As VORLKestrumEvaluateCovModelFixParam, with the lags given along the model's axes. */
KESTRUM_API int VORLKestrumEvaluateCovModelFixParamNoRotation(VORL_COVMODEL* model, int n, real* dx, real* dy, real* dz,
                                                              real* cov) KESTRUM_NOEXCEPT;

/* Estimates along each axis the lag, in cells, at which a gridded variable has lost its correlation: the first lag
 * found whose non-centred covariance is below m^2 + tolerance * variance, m being the mean. Lags are tried in steps of
 * about a twentieth of the axis, then one by one within the step.
 *
 *   tolerance    fraction of the variance, for instance VORL_APPROX_RANGE_TOLERANCE
 *   nx, ny, nz   number of cells along each axis
 *   v            nx*ny*nz values in node order; VORL_MISSING_VALUE marks a gap
 *   rx, ry, rz   out: the three lags in cells; the number of cells if no lag qualifies; 0.0 along an axis of one cell
 *
 * Returns 0, or -1061 if there is no cell or no informed value.
 */
KESTRUM_API int VORLComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry,
                                                real* rz) KESTRUM_NOEXCEPT;

/* As VORLComputeVariogramRangeApprox, on `nthreads` threads (one if it is below 1). Sums are formed in another order
 * than there, the same for every number of threads. */
KESTRUM_API int VORLOMPComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry,
                                                   real* rz, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
