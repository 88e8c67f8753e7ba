#ifndef KESTRUM_COVARIANCE_COV_MODEL_H
#define KESTRUM_COVARIANCE_COV_MODEL_H

/** @file
 * Covariance models: nested sums of elementary models whose parameters are constants or images on the simulation grid.
 */

#include <stdio.h>

#include "../core/grid.h"
#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

#define VORL_KESTRUM_COV_RANGE_MIN 1e-6        /**< smallest sensible range; for callers, no function applies it */
#define VORL_KESTRUM_COV_TOTAL_WEIGHT_MIN 1e-6 /**< smallest sensible sill; for callers, no function applies it */
#define VORL_KESTRUM_COV_POWER_MIN 1e-6        /**< least s of COV_GAMMA, COV_POWER and COV_EXPONENTIAL_GENERALIZED */
#define VORL_KESTRUM_COV_POWER_MAX 100.0     /**< greatest s of COV_GAMMA, COV_POWER and COV_EXPONENTIAL_GENERALIZED */
#define VORL_KESTRUM_COV_MATERN_NU_MIN 1e-6  /**< least s (the smoothness nu) of COV_MATERN */
#define VORL_KESTRUM_COV_MATERN_NU_MAX 100.0 /**< greatest s (the smoothness nu) of COV_MATERN */

/** Type of an elementary model; covariance/cov_evaluation.h gives the formulas. */
typedef enum {
  COV_NUGGET = 0,                  /**< nugget effect: the weight at lag 0 alone */
  COV_SPHERICAL = 1,               /**< spherical; 0 from the range on */
  COV_EXPONENTIAL = 2,             /**< exponential; 5 % of the weight are left at the range */
  COV_GAUSSIAN = 3,                /**< Gaussian; 5 % of the weight are left at the range */
  COV_LINEAR = 4,                  /**< linear; 0 from the range on */
  COV_CUBIC = 5,                   /**< cubic; 0 from the range on */
  COV_SINUS_CARDINAL = 6,          /**< cardinal sine; first 0 at the range */
  COV_GAMMA = 7,                   /**< gamma; 5 % of the weight are left at the range; s is a power */
  COV_POWER = 8,                   /**< power; 0 at the range and negative beyond; s is the power */
  COV_EXPONENTIAL_GENERALIZED = 9, /**< stable; 5 % of the weight are left at the range; s is the power */
  COV_MATERN = 10                  /**< Matern; the range is the scale; s is the smoothness nu */
} VORL_COVMODELTYPE;

typedef struct vorl_covModelElem VORL_COVMODELELEM; /**< see vorl_covModelElem */

/** An elementary model. It owns its images: each is null or a record of its own from VORLMalloc, with one variable on
 * the simulation grid.
 *
 * Validation and printing look at the flags, evaluation at the image pointers: whoever fills the record sets both
 * together, and leaves the pointer null for a constant. */
struct vorl_covModelElem {
  VORL_COVMODELTYPE covModelType; /**< type, COV_NUGGET to COV_MATERN */
  BOOLEAN weightImageFlag;        /**< TRUE: weightImage gives the weight */
  BOOLEAN rxImageFlag;            /**< TRUE: rxImage gives the range along the model's x axis */
  BOOLEAN ryImageFlag;            /**< TRUE: ryImage gives the range along the model's y axis */
  BOOLEAN rzImageFlag;            /**< TRUE: rzImage gives the range along the model's z axis */
  BOOLEAN sImageFlag;             /**< TRUE: sImage gives the extra parameter */
  real weightValue;               /**< weight, the contribution to the sill, at least 0.0 */
  real rxValue;            /**< range along the model's x axis; 0.0 or less takes this axis out of the distance */
  real ryValue;            /**< range along the model's y axis; 0.0 or less takes this axis out of the distance */
  real rzValue;            /**< range along the model's z axis; 0.0 or less takes this axis out of the distance */
  real sValue;             /**< extra parameter, 1e-6 to 100.0; not read for types that have none */
  VORL_IMAGE* weightImage; /**< weight at each node; null for a constant */
  VORL_IMAGE* rxImage;     /**< range along the model's x axis at each node; null for a constant */
  VORL_IMAGE* ryImage;     /**< range along the model's y axis at each node; null for a constant */
  VORL_IMAGE* rzImage;     /**< range along the model's z axis at each node; null for a constant */
  VORL_IMAGE* sImage;      /**< extra parameter at each node; null for a constant */
};

typedef struct vorl_covModel VORL_COVMODEL; /**< see vorl_covModel */

/** A covariance model: the sum of its elements, all in one system of axes. It owns the vector of elements and the three
 * angle images, which follow the rules of the images of an element. */
struct vorl_covModel {
  int nelem;                       /**< number of elementary models, at least 1 */
  VORL_COVMODELELEM* covModelElem; /**< nelem records */
  BOOLEAN angle1ImageFlag;         /**< TRUE: angle1Image gives the azimuth */
  BOOLEAN angle2ImageFlag;         /**< TRUE: angle2Image gives the dip */
  BOOLEAN angle3ImageFlag;         /**< TRUE: angle3Image gives the plunge */
  real angle1Value;                /**< azimuth in degrees, from the y axis towards the x axis */
  real angle2Value;                /**< dip in degrees; positive: the model's y axis points below the horizontal */
  real angle3Value;                /**< plunge in degrees, a turn about the model's y axis */
  VORL_IMAGE* angle1Image;         /**< azimuth at each node; null for a constant */
  VORL_IMAGE* angle2Image;         /**< dip at each node; null for a constant */
  VORL_IMAGE* angle3Image;         /**< plunge at each node; null for a constant */
};

/** Clears every field.
 *
 * @param[out] model the model; what it held is not released */
KESTRUM_API void VORLKestrumInitCovModel(VORL_COVMODEL* model) KESTRUM_NOEXCEPT;

/** Clears every field. The type becomes COV_NUGGET.
 *
 * @param[out] elem the element; what it held is not released */
KESTRUM_API void VORLKestrumInitCovModelElem(VORL_COVMODELELEM* elem) KESTRUM_NOEXCEPT;

/** Releases the five images of an element, not the record. The fields keep their values.
 *
 * @param[in,out] elem the element; null is ignored */
KESTRUM_API void VORLKestrumFreeCovModelElem(VORL_COVMODELELEM* elem) KESTRUM_NOEXCEPT;

/** Releases the elements, their vector and the three angle images of a model, not the record. The fields keep their
 * values.
 *
 * @param[in,out] model the model; null is ignored */
KESTRUM_API void VORLKestrumFreeCovModel(VORL_COVMODEL* model) KESTRUM_NOEXCEPT;

/** Tests an elementary model, and reports which of its parameters vary over the grid.
 *
 * With k masked nodes, the first k values of each image become missing, and at a node that takes part it is the first
 * value not yet overwritten that is tested (weight and s). Without a mask only the first value is tested.
 *
 * @param[in,out] elem the element; values of its images may become missing, see above
 * @param[in] grid the simulation grid, which each image of elem must have
 * @param[in] mask one variable on the simulation grid, 0.0 at nodes that take no part; null is allowed
 * @param[out] weightStationary 1 if the weight is a constant, else 0
 * @param[out] rangeStationary 1 if the three ranges are constants, else 0
 * @param[out] elemStationary 1 if no parameter in use is given by an image, else 0
 * @param[out] status 0 for a valid element, otherwise the first failure: -71000 type; -71646 to -71649 weight; -71656
 *   and -71657 rx; -71666 and -71667 ry; -71676 and -71677 rz; -71686 to -71691 and -71695 to -71698 s; one of
 *   VORLValidateImage
 * @return 0 */
KESTRUM_API int VORLKestrumValidateCovModelElem(VORL_COVMODELELEM* elem, VORL_GRID* grid, VORL_IMAGE* mask,
                                                BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                                BOOLEAN* elemStationary, int* status) KESTRUM_NOEXCEPT;

/** Tests a model, and reports which of its parameters vary over the grid.
 *
 * @param[in,out] model the model; values of its images may become missing: in the images of the elements as for
 *   VORLKestrumValidateCovModelElem, in angle images at the masked nodes
 * @param[in] grid the simulation grid, which each image of the model must have
 * @param[in] mask one variable on the simulation grid, 0.0 at nodes that take no part; null is allowed
 * @param[out] rotationStationary 1 if the three angles are constants, else 0
 * @param[out] weightStationary 1 if the weights of all elements are constants, else 0
 * @param[out] rangeStationary 1 if the ranges of all elements are constants, else 0
 * @param[out] covModelStationary 1 if no parameter in use is given by an image, else 0
 * @param[out] status 0 for a valid model, otherwise the first failure: -71009 no element; one of an element; -71636 and
 *   -71637 any of the angles; one of VORLValidateImage
 * @return 0 */
KESTRUM_API int VORLKestrumValidateCovModel(VORL_COVMODEL* model, VORL_GRID* grid, VORL_IMAGE* mask,
                                            BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                            BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
                                            int* status) KESTRUM_NOEXCEPT;

/** Writes a description of a model.
 *
 * @param[in] model the model
 * @param[in] prefix text in front of each line but the empty ones
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLKestrumPrintCovModel(VORL_COVMODEL* model, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes a description of an elementary model.
 *
 * @param[in] elem the element
 * @param[in] prefix text in front of each line but the empty ones
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLKestrumPrintCovModelElem(VORL_COVMODELELEM* elem, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
