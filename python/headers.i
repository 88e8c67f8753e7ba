/* Every header that holds a name of the module, lower layers first. */
%include "core/types.h"
%include "core/constants.h"
%include "core/warning_messages.h"
%include "core/status.h"
%include "core/text.h"
%include "core/grid.h"
%include "core/image.h"
%include "core/image_statistics.h"
%include "core/point_set.h"
%include "core/progress_monitor.h"
%include "covariance/cov_model.h"
%include "covariance/cov_evaluation.h"
%include "io/image_files.h"
%include "analysis/conversions.h"
%include "engine/run_input.h"
%include "engine/indicator_run_input.h"

/* A run calls its callback, so it takes none but a real one. */
%refuse_none(int (*progressCallback)(VORL_PROGRESSMONITOR *))
%include "engine/estimation.h"
%include "engine/run_driver.h"
