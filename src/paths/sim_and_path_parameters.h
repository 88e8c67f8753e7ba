#ifndef KESTRUM_PATHS_SIM_AND_PATH_PARAMETERS_H
#define KESTRUM_PATHS_SIM_AND_PATH_PARAMETERS_H

#include <stdio.h>

#include "core/constants.h"
#include "core/types.h"

/* What a simulation visits, and in which order: the record by which a caller chooses one of the generators of
 * paths/path_generators.h. Calls on different records and streams may run at the same time.
 *
 * Life of a record: VORLInitSimAndPathParameters; fields, VORLReadSimAndPathParameters or VORLCopySimAndPathParameters;
 * use; VORLFreeSimAndPathParameters.
 */

KESTRUM_BEGIN_DECLS

/* What an element of a path is. */
typedef enum {
  SIM_ONE_BY_ONE = 0,     /* a variable at a node: index variable * nxyz + node */
  SIM_VARIABLE_VECTOR = 1 /* a node, with all its variables together */
} VORL_SIM_TYPE;

/* The order of a path; behind each, the fields that it uses. */
typedef enum {
  PATH_RANDOM = 0,                      /* none */
  PATH_RANDOM_HD_DISTANCE_PDF = 1,      /* strength */
  PATH_RANDOM_HD_DISTANCE_SORT = 2,     /* strength */
  PATH_RANDOM_HD_DISTANCE_SUM_PDF = 3,  /* pow, strength */
  PATH_RANDOM_HD_DISTANCE_SUM_SORT = 4, /* pow, strength */
  PATH_UNILATERAL = 5                   /* unilateralOrder */
} VORL_PATH_TYPE;

typedef struct vorl_simAndPathParameters VORL_SIMANDPATHPARAMETERS;

struct vorl_simAndPathParameters {
  int simType;          /* VORL_SIM_TYPE */
  int pathType;         /* VORL_PATH_TYPE */
  int nunilateralOrder; /* length of unilateralOrder: 4 (x, y, z, variable) for SIM_ONE_BY_ONE, 3 for
                           SIM_VARIABLE_VECTOR, 0 if not used */
  int* unilateralOrder; /* owned, from VORLMalloc: 0 for an axis in random order; otherwise the rank of the axis, 1 for
                           the one that varies fastest, negative to go backwards */
  real strength;        /* how much the distance to hard data counts, from 0 to 1 */
  real pow;             /* exponent of the distance, above 0, at most VORL_MAX_POWER_PATH_RANDOM_HD_DISTANCE_SUM */
};

/* Sets all fields to zero. */
KESTRUM_API void VORLInitSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/* Releases unilateralOrder, not the record; the fields keep their values. Null is ignored. */
KESTRUM_API void VORLFreeSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/* Copies src with the vector that it owns.
 *   dst  out: a record whose pointer is unused
 * Returns 0 or the status of a failing allocation, which leaves dst without a vector. */
KESTRUM_API int VORLCopySimAndPathParameters(VORL_SIMANDPATHPARAMETERS* dst,
                                             VORL_SIMANDPATHPARAMETERS* src) KESTRUM_NOEXCEPT;

/* Reads the word of simType, the word of pathType and the fields that this type uses (4 or 3 whole numbers of
 * unilateralOrder; pow; strength) from a seekable text stream, with white space and C or C++ comments allowed before
 * each entry. Values are not validated.
 *   parameters  in and out: an initialised record whose pointer is unused; releasable afterwards in every case
 * Returns 0, or the status of the entry that is missing or can not be read: -890 simType; -891 pathType; -892
 * unilateralOrder; -893 strength; -894 pow; the fields before it stay set; or the status of a failing allocation. */
KESTRUM_API int VORLReadSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, FILE* stream) KESTRUM_NOEXCEPT;

/* Writes two lines on simType and pathType with its fields to stream, each with prefix in front. Returns 0. */
KESTRUM_API int VORLPrintSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, char* prefix,
                                              FILE* stream) KESTRUM_NOEXCEPT;

/* Tests the fields that the path type uses.
 *   error  out: 0, or the first failure: -705 simType; -709 pow; -708 strength; -706 pathType; -707 unilateralOrder:
 *          the absolute values of whose entries other than 0 must be the numbers from 1 to their count, in any order.
 * Returns 0. */
KESTRUM_API int VORLValidateSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, int* error) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
