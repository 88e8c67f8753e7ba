#ifndef KESTRUM_KESTRUM_H
#define KESTRUM_KESTRUM_H

/** @file
 * The whole public interface of the library. The rules that hold for all of it are in core/types.h.
 */

#include "core/comparators.h"
#include "core/constants.h"
#include "core/grid.h"
#include "core/image.h"
#include "core/image_statistics.h"
#include "core/memory.h"
#include "core/point_set.h"
#include "core/progress_monitor.h"
#include "core/status.h"
#include "core/text.h"
#include "core/types.h"
#include "core/warning_messages.h"

#include "numeric/linear_solver.h"
#include "numeric/random.h"
#include "numeric/special_functions.h"

#include "covariance/cov_evaluation.h"
#include "covariance/cov_model.h"

#include "neighborhood/search_neighborhood.h"

#include "io/image_files.h"
#include "io/point_set_files.h"

#include "analysis/category_order.h"
#include "analysis/clustering.h"
#include "analysis/connectivity.h"
#include "analysis/conversions.h"
#include "analysis/distance_maps.h"
#include "analysis/geobodies.h"
#include "analysis/geobody_paths.h"
#include "analysis/morphology.h"
#include "analysis/moving_average.h"
#include "analysis/pyramid.h"
#include "analysis/resize.h"
#include "analysis/thresholding.h"
#include "analysis/two_point_statistics.h"

#include "runs/conditioning.h"
#include "runs/estimation.h"
#include "runs/indicator_estimation.h"
#include "runs/indicator_run_input.h"
#include "runs/indicator_simulation.h"
#include "runs/place_kriging.h"
#include "runs/run_driver.h"
#include "runs/run_input.h"
#include "runs/run_options.h"
#include "runs/simulation.h"

#include "paths/path_generators.h"
#include "paths/search_neighborhood_parameters.h"
#include "paths/sim_and_path_parameters.h"

#endif
