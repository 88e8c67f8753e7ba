#ifndef KESTRUM_KESTRUM_H
#define KESTRUM_KESTRUM_H

/* The whole public interface of the library. */

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

#include "io/image_files.h"

#include "analysis/conversions.h"

#include "engine/conditioning.h"
#include "engine/estimation.h"
#include "engine/indicator_estimation.h"
#include "engine/indicator_run_input.h"
#include "engine/indicator_simulation.h"
#include "engine/run_driver.h"
#include "engine/run_input.h"
#include "engine/search_neighborhood.h"
#include "engine/simulation.h"

#endif
