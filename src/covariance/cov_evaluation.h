#ifndef KESTRUM_COVARIANCE_COV_EVALUATION_H
#define KESTRUM_COVARIANCE_COV_EVALUATION_H

/** @file
 * Evaluation of covariance models, their rotation matrix, and an approximate correlation range of a gridded variable.
 *
 * The covariance of a lag is the sum of the contributions of the elements. With (x, y, z) the lag along the model's
 * axes, d2 = (x/rx)^2 + (y/ry)^2 + (z/rz)^2, where a term whose range is not above 0.0 is left out, h = sqrt(d2),
 * weight w and extra parameter s:
 *
 * @verbatim
 * COV_NUGGET                    w if x, y and z are exactly 0.0, else 0
 * COV_SPHERICAL                 w * (1 - 0.5 h (3 - h^2)) if d2 < 1, else 0
 * COV_EXPONENTIAL               w * exp(-3 h)
 * COV_GAUSSIAN                  w * exp(-3 h^2)
 * COV_LINEAR                    w * (1 - h) if d2 < 1, else 0
 * COV_CUBIC                     w * (1 - 7 h^2 + 8.75 h^3 - 3.5 h^5 + 0.75 h^7) if d2 < 1, else 0
 * COV_SINUS_CARDINAL            w * sin(pi h) / (pi h), and 0 (not w) if x, y and z are exactly 0.0
 * COV_GAMMA                     w / (1 + (20^(1/s) - 1) h)^s
 * COV_POWER                     w * (1 - h^s), without a lower bound
 * COV_EXPONENTIAL_GENERALIZED   w * exp(-3 h^s)
 * COV_MATERN                    w * 2^(1-s) / Gamma(s) * u^s * K_s(u) with u = h sqrt(2 s), and w if d2 < 1e-20
 * @endverbatim
 *
 * For the types and their use see J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
 * Wiley 2012, chapter 2.
 */

#include "../core/types.h"
#include "../covariance/cov_model.h"

KESTRUM_BEGIN_DECLS

#define VORL_APPROX_RANGE_TOLERANCE 0.05 /**< a tolerance for VORLComputeVariogramRangeApprox */

/** Computes the rotation matrix of three angles. Its columns are the model's axes in the grid's coordinates: M[i][j] is
 * component i of axis j.
 *
 * @param angle1 azimuth in degrees, from the y axis towards the x axis
 * @param angle2 dip in degrees; a positive one takes the model's y axis below the horizontal
 * @param angle3 plunge in degrees, a turn about the model's y axis
 * @param[out] rotationMatrix 3 rows of 3
 * @return 0 */
KESTRUM_API int VORLComputeRotationMatrix(real angle1, real angle2, real angle3,
                                          real** rotationMatrix) KESTRUM_NOEXCEPT;

/** Evaluates a model at n lags, with its parameters and angles read at a node: from the image where its pointer is not
 * null, else from the constant.
 *
 * @param[in] model the model
 * @param node index of the node on the simulation grid; not read if the model has no image
 * @param rotationGiven TRUE: rotationMatrix is used; FALSE: the angles at the node give the rotation
 * @param[in] rotationMatrix as from VORLComputeRotationMatrix; null for no rotation; not read if rotationGiven is FALSE
 * @param n number of lags
 * @param[in] dx n lags along the grid's x axis
 * @param[in] dy n lags along the grid's y axis
 * @param[in] dz n lags along the grid's z axis
 * @param[out] cov n covariances
 * @return 0 */
KESTRUM_API int VORLKestrumEvaluateCovModel(VORL_COVMODEL* model, int node, BOOLEAN rotationGiven,
                                            real** rotationMatrix, int n, real* dx, real* dy, real* dz,
                                            real* cov) KESTRUM_NOEXCEPT;

/** Evaluates a model at n lags with its constants alone: images are not looked at.
 *
 * @param[in] model the model
 * @param rotationGiven TRUE: rotationMatrix is used; FALSE: the constant angles give the rotation
 * @param[in] rotationMatrix as from VORLComputeRotationMatrix; null for no rotation; not read if rotationGiven is FALSE
 * @param n number of lags
 * @param[in] dx n lags along the grid's x axis
 * @param[in] dy n lags along the grid's y axis
 * @param[in] dz n lags along the grid's z axis
 * @param[out] cov n covariances
 * @return 0 */
KESTRUM_API int VORLKestrumEvaluateCovModelFixParam(VORL_COVMODEL* model, BOOLEAN rotationGiven, real** rotationMatrix,
                                                    int n, real* dx, real* dy, real* dz, real* cov) KESTRUM_NOEXCEPT;

/** Evaluates a model at n lags along its own axes, with its parameters read at a node as in
 * VORLKestrumEvaluateCovModel.
 *
 * @param[in] model the model
 * @param node index of the node on the simulation grid; not read if the model has no image
 * @param n number of lags
 * @param[in] dx n lags along the model's x axis
 * @param[in] dy n lags along the model's y axis
 * @param[in] dz n lags along the model's z axis
 * @param[out] cov n covariances
 * @return 0 */
KESTRUM_API int VORLKestrumEvaluateCovModelNoRotation(VORL_COVMODEL* model, int node, int n, real* dx, real* dy,
                                                      real* dz, real* cov) KESTRUM_NOEXCEPT;

/** Evaluates a model at n lags along its own axes, with its constants alone: images are not looked at.
 *
 * @param[in] model the model
 * @param n number of lags
 * @param[in] dx n lags along the model's x axis
 * @param[in] dy n lags along the model's y axis
 * @param[in] dz n lags along the model's z axis
 * @param[out] cov n covariances
 * @return 0 */
KESTRUM_API int VORLKestrumEvaluateCovModelFixParamNoRotation(VORL_COVMODEL* model, int n, real* dx, real* dy, real* dz,
                                                              real* cov) KESTRUM_NOEXCEPT;

/** Estimates along each axis the lag, in cells, at which a gridded variable has lost its correlation.
 *
 * It is the first lag found whose non-centred covariance is below m^2 + tolerance * variance, m being the mean. Lags
 * are tried in steps of about a twentieth of the axis, then one by one within the step.
 *
 * @param tolerance fraction of the variance, for instance VORL_APPROX_RANGE_TOLERANCE
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] v nx*ny*nz values in node order, missing ones among them
 * @param[out] rx lag along x in cells; nx if no lag qualifies; 0.0 if nx is 1
 * @param[out] ry lag along y in cells; ny if no lag qualifies; 0.0 if ny is 1
 * @param[out] rz lag along z in cells; nz if no lag qualifies; 0.0 if nz is 1
 * @return 0; -1061: there is no cell or no informed value */
KESTRUM_API int VORLComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry,
                                                real* rz) KESTRUM_NOEXCEPT;

/** Threaded form of VORLComputeVariogramRangeApprox. Sums are formed in another order than there, the same for every
 * number of threads.
 * @copydetails VORLComputeVariogramRangeApprox
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPComputeVariogramRangeApprox(real tolerance, int nx, int ny, int nz, real* v, real* rx, real* ry,
                                                   real* rz, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
