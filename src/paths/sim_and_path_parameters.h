#ifndef KESTRUM_PATHS_SIM_AND_PATH_PARAMETERS_H
#define KESTRUM_PATHS_SIM_AND_PATH_PARAMETERS_H

/** @file
 * What a simulation visits, and in which order: the record by which a caller chooses one of the generators of
 * paths/path_generators.h.
 *
 * Life of a record: VORLInitSimAndPathParameters; fields, VORLReadSimAndPathParameters or VORLCopySimAndPathParameters;
 * use; VORLFreeSimAndPathParameters.
 */

#include <stdio.h>

#include "../core/constants.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** What an element of a path is. */
typedef enum {
  SIM_ONE_BY_ONE = 0,     /**< a variable at a node: index variable * nxyz + node */
  SIM_VARIABLE_VECTOR = 1 /**< a node, with all its variables together */
} VORL_SIM_TYPE;

/** The order of a path, and the fields that it uses. */
typedef enum {
  PATH_RANDOM = 0,                      /**< VORLPathRandom; no field */
  PATH_RANDOM_HD_DISTANCE_PDF = 1,      /**< VORLPathDistancePdfRandom; strength */
  PATH_RANDOM_HD_DISTANCE_SORT = 2,     /**< VORLPathDistanceSortRandom; strength */
  PATH_RANDOM_HD_DISTANCE_SUM_PDF = 3,  /**< VORLPathDistanceSumPdfRandom; pow, strength */
  PATH_RANDOM_HD_DISTANCE_SUM_SORT = 4, /**< VORLPathDistanceSumSortRandom; pow, strength */
  PATH_UNILATERAL = 5                   /**< VORLPathUnilateral3D or VORLPathUnilateral4D; unilateralOrder */
} VORL_PATH_TYPE;

typedef struct vorl_simAndPathParameters VORL_SIMANDPATHPARAMETERS; /**< see vorl_simAndPathParameters */

/** The kind of a path. Fields that its type does not use are not read. */
struct vorl_simAndPathParameters {
  int simType;  /**< a VORL_SIM_TYPE */
  int pathType; /**< a VORL_PATH_TYPE */
  /** Length of unilateralOrder: 4 (x, y, z, variable) for SIM_ONE_BY_ONE, 3 for SIM_VARIABLE_VECTOR, 0 if not used. */
  int nunilateralOrder;
  /** Ranks of the axes, owned, from VORLMalloc: 0 for an axis in random order; otherwise its rank, 1 for the one that
   * varies fastest, negative to go backwards. */
  int* unilateralOrder;
  real strength; /**< how much the distance to hard data counts, from 0 to 1 */
  real pow;      /**< exponent of the distance, above 0, at most VORL_MAX_POWER_PATH_RANDOM_HD_DISTANCE_SUM */
};

/** Sets all fields to zero.
 *
 * @param[out] parameters the parameters; what they held is not released */
KESTRUM_API void VORLInitSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/** Releases unilateralOrder, not the record. The fields keep their values.
 *
 * @param[in,out] parameters the parameters; null is ignored */
KESTRUM_API void VORLFreeSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/** Copies parameters with the vector that they own.
 *
 * @param[out] dst the copy; must be empty
 * @param[in] src the parameters
 * @return 0; allocation statuses, which leave dst without a vector */
KESTRUM_API int VORLCopySimAndPathParameters(VORL_SIMANDPATHPARAMETERS* dst,
                                             VORL_SIMANDPATHPARAMETERS* src) KESTRUM_NOEXCEPT;

/** Reads the word of simType, the word of pathType and the fields that this type uses: 4 or 3 whole numbers of
 * unilateralOrder; pow; strength. Values are not validated.
 *
 * White space and comments of C or C++ may precede each entry.
 *
 * @param[in,out] parameters initialised and empty; releasable afterwards in every case
 * @param[in,out] stream seekable text, open for reading
 * @return 0, or the status of the entry that is missing or cannot be read (the fields before it stay set): -890
 *   simType; -891 pathType; -892 unilateralOrder; -893 strength; -894 pow; allocation statuses */
KESTRUM_API int VORLReadSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes two lines on simType and pathType with its fields.
 *
 * @param[in] parameters the parameters
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0 */
KESTRUM_API int VORLPrintSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, char* prefix,
                                              FILE* stream) KESTRUM_NOEXCEPT;

/** Tests the fields that the path type uses.
 *
 * @param[in] parameters the parameters
 * @param[out] error 0, or the first failure: -705 simType; -709 pow; -708 strength; -706 pathType; -707
 *   unilateralOrder, the absolute values of whose entries other than 0 must be the numbers from 1 to their count, in
 *   any order
 * @return 0 */
KESTRUM_API int VORLValidateSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, int* error) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
