#ifndef KESTRUM_COVARIANCE_COV_MODEL_H
#define KESTRUM_COVARIANCE_COV_MODEL_H

/* Covariance models: nested sums of elementary models whose parameters are constants or images on the simulation grid.
 *
 * No function here is safe while another thread changes the same model, its images or the stream. The functions keep
 * no state of their own.
 */

#include <stdio.h>

#include "core/grid.h"
#include "core/image.h"
#include "core/types.h"

KESTRUM_BEGIN_DECLS

#define VORL_KESTRUM_COV_RANGE_MIN 1e-6
#define VORL_KESTRUM_COV_TOTAL_WEIGHT_MIN 1e-6
/* Bounds of the extra parameter s of COV_GAMMA, COV_POWER and COV_EXPONENTIAL_GENERALIZED. */
#define VORL_KESTRUM_COV_POWER_MIN 1e-6
#define VORL_KESTRUM_COV_POWER_MAX 100.0
/* Bounds of the extra parameter s (the smoothness nu) of COV_MATERN. */
#define VORL_KESTRUM_COV_MATERN_NU_MIN 1e-6
#define VORL_KESTRUM_COV_MATERN_NU_MAX 100.0

/* Type of an elementary model; covariance/cov_evaluation.h gives the formulas. */
typedef enum {
  COV_NUGGET = 0,
  COV_SPHERICAL = 1,
  COV_EXPONENTIAL = 2,
  COV_GAUSSIAN = 3,
  COV_LINEAR = 4,
  COV_CUBIC = 5,
  COV_SINUS_CARDINAL = 6,
  COV_GAMMA = 7,                   /* s is a power */
  COV_POWER = 8,                   /* s is a power */
  COV_EXPONENTIAL_GENERALIZED = 9, /* s is a power */
  COV_MATERN = 10                  /* s is the smoothness nu */
} VORL_COVMODELTYPE;

/* An elementary model. It owns its images: each is null or a record of its own from VORLMalloc, with one variable on
 * the simulation grid.
 *
 * Validation and printing look at the flags, evaluation at the image pointers: whoever fills the record sets both
 * together, and leaves the pointer null for a constant.
 */
typedef struct vorl_covModelElem VORL_COVMODELELEM;
struct vorl_covModelElem {
  VORL_COVMODELTYPE covModelType;
  BOOLEAN weightImageFlag; /* the weight is given by weightImage */
  BOOLEAN rxImageFlag;     /* the range along the model's x axis is given by rxImage */
  BOOLEAN ryImageFlag;
  BOOLEAN rzImageFlag;
  BOOLEAN sImageFlag; /* the extra parameter is given by sImage */
  real weightValue;   /* the contribution to the sill, at least 0.0 */
  real rxValue;       /* in coordinate units; zero or less takes this axis out of the distance */
  real ryValue;
  real rzValue;
  real sValue; /* the extra parameter; not read for types that have none */
  VORL_IMAGE* weightImage;
  VORL_IMAGE* rxImage;
  VORL_IMAGE* ryImage;
  VORL_IMAGE* rzImage;
  VORL_IMAGE* sImage;
};

/* A covariance model: the sum of its elements, all seen in one system of axes. It owns the vector of elements and the
 * three angle images, which follow the rules of the images of an element.
 */
typedef struct vorl_covModel VORL_COVMODEL;
struct vorl_covModel {
  int nelem;                       /* number of elementary models, at least 1 */
  VORL_COVMODELELEM* covModelElem; /* nelem records */
  BOOLEAN angle1ImageFlag;         /* the azimuth is given by angle1Image */
  BOOLEAN angle2ImageFlag;         /* the dip is given by angle2Image */
  BOOLEAN angle3ImageFlag;         /* the plunge is given by angle3Image */
  real angle1Value;                /* azimuth in degrees */
  real angle2Value;                /* dip in degrees */
  real angle3Value;                /* plunge in degrees */
  VORL_IMAGE* angle1Image;
  VORL_IMAGE* angle2Image;
  VORL_IMAGE* angle3Image;
};

/* Clears every field of `model` (not null), whatever it held; nothing is released. */
KESTRUM_API void VORLKestrumInitCovModel(VORL_COVMODEL* model) KESTRUM_NOEXCEPT;

/* Clears every field of `elem` (not null), whatever it held; nothing is released. The type becomes COV_NUGGET. */
KESTRUM_API void VORLKestrumInitCovModelElem(VORL_COVMODELELEM* elem) KESTRUM_NOEXCEPT;

/* Releases the five images of `elem` (may be null). The record stays, with its fields as they are. */
KESTRUM_API void VORLKestrumFreeCovModelElem(VORL_COVMODELELEM* elem) KESTRUM_NOEXCEPT;

/* Releases the elements, their vector and the three angle images of `model` (may be null). The record stays, with its
 * fields as they are.
 */
KESTRUM_API void VORLKestrumFreeCovModel(VORL_COVMODEL* model) KESTRUM_NOEXCEPT;

/* Checks an elementary model and tells which of its parameters vary over the grid.
 *
 *   elem               the elementary model; values of its images may become VORL_MISSING_VALUE (below)
 *   grid               the simulation grid, which each image of `elem` must have
 *   mask               one variable on the simulation grid, 0.0 at nodes that take no part; may be null
 *   weightStationary   out: 1 if the weight is a constant, else 0
 *   rangeStationary    out: 1 if the three ranges are constants, else 0
 *   elemStationary     out: 1 if no parameter in use is given by an image, else 0
 *   status             out: 0 for a valid element, otherwise the first failure: -71000 type, -71646 to -71649 weight,
 *                      -71656 and -71657 rx, -71666 and -71667 ry, -71676 and -71677 rz, -71686 to -71691 and -71695 to
 *                      -71698 s, or a status of VORLValidateImage
 *
 * With k masked nodes, the first k values of each image become missing, and at a node that takes part it is the first
 * value not yet overwritten that is checked (weight and s). Without a mask only the first value is checked.
 *
 * Returns 0.
 */
KESTRUM_API int VORLKestrumValidateCovModelElem(VORL_COVMODELELEM* elem, VORL_GRID* grid, VORL_IMAGE* mask,
                                                BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                                BOOLEAN* elemStationary, int* status) KESTRUM_NOEXCEPT;

/* Checks a model and tells which of its parameters vary over the grid.
 *
 *   model                the model; values of its images may become VORL_MISSING_VALUE: in the images of the elements
 *                        as told at VORLKestrumValidateCovModelElem, in angle images at the masked nodes
 *   grid, mask           as for VORLKestrumValidateCovModelElem
 *   rotationStationary   out: 1 if the three angles are constants, else 0
 *   weightStationary     out: 1 if the weights of all elements are constants, else 0
 *   rangeStationary      out: 1 if the ranges of all elements are constants, else 0
 *   covModelStationary   out: 1 if no parameter in use is given by an image, else 0
 *   status               out: 0 for a valid model, otherwise the first failure: -71009 no element, a status of an
 *                        element, -71636 and -71637 any of the angles, or a status of VORLValidateImage
 *
 * Returns 0.
 */
KESTRUM_API int VORLKestrumValidateCovModel(VORL_COVMODEL* model, VORL_GRID* grid, VORL_IMAGE* mask,
                                            BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                            BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
                                            int* status) KESTRUM_NOEXCEPT;

/* Writes a description of `model` to `stream`, with `prefix` (a string, not null) in front of each line that is not
 * empty. Returns 0 or the status of a failed allocation.
 */
KESTRUM_API int VORLKestrumPrintCovModel(VORL_COVMODEL* model, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/* As VORLKestrumPrintCovModel, for one elementary model. */
KESTRUM_API int VORLKestrumPrintCovModelElem(VORL_COVMODELELEM* elem, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
