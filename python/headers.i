/* Every header that holds a name of the module, lower layers first. */
%include "core/types.h"
%include "core/constants.h"
%include "core/warning_messages.h"
%include "core/status.h"
%include "core/text.h"
/* Records that must be there. A field may be null, and the grid of an image has the name of the grid's functions. */
%refuse_none(SWIGTYPE *dst)
%refuse_none(SWIGTYPE *src)
%refuse_none(VORL_GRID *a)
%refuse_none(VORL_GRID *b)
%refuse_none(VORL_IMAGE *image)
%refuse_none(VORL_POINTSET *ps)
%refuse_none(VORL_PROGRESSMONITOR *monitor)
%refuse_none(VORL_COVMODEL *model)
%refuse_none(VORL_COVMODELELEM *elem)
%refuse_none(VORL_KESTRUMINPUT *input)
%refuse_none(VORL_KESTRUMINDICATORINPUT *input)
%refuse_none(VORL_GRID *grid)
%refuse_none(char *prefix)
%refuse_none(int *status)
%refuse_none(BOOLEAN *rotationStationary)
%refuse_none(BOOLEAN *weightStationary)
%refuse_none(BOOLEAN *rangeStationary)
%refuse_none(BOOLEAN *covModelStationary)
%refuse_none(BOOLEAN *elemStationary)
%include "core/grid.h"
%typemap(check) VORL_GRID *grid;
%include "core/image.h"
%releases_gil()
%include "core/image_statistics.h"
%exception;
%refuse_none(VORL_GRID *grid)
%include "core/point_set.h"
%typemap(check) VORL_GRID *grid;
%include "core/progress_monitor.h"
%include "covariance/cov_model.h"
%include "covariance/cov_evaluation.h"
%include "io/image_files.h"
%include "io/point_set_files.h"

/* Analyses read and fill records that must be there. */
%refuse_none(VORL_IMAGE *imageIn)
%refuse_none(VORL_IMAGE *imageOut)
%refuse_none(VORL_IMAGE *source)
%refuse_none(VORL_IMAGE *target)
%refuse_none(VORL_POINTSET *source)
%refuse_none(VORL_POINTSET *target)
%refuse_none(VORL_POINTSET *pointSet)
%refuse_none(int *nvarIgnored)
%refuse_none(int *nconflict)
%refuse_none(int *npointDropped)
%refuse_none(VORL_SEARCHNEIGHBORHOOD *searchNeighborhood)
%releases_gil()
%include "analysis/geobodies.h"
%include "analysis/connectivity.h"
%include "analysis/two_point_statistics.h"
%include "analysis/morphology.h"
%include "analysis/distance_maps.h"
%include "analysis/moving_average.h"
%include "analysis/pyramid.h"
%include "analysis/resize.h"
%include "analysis/conversions.h"
%exception;

%refuse_none(int *validationError)
%refuse_none(VORL_KESTRUMOUTPUT *output)
%include "runs/run_input.h"
%typemap(check) VORL_KESTRUMOUTPUT *output;
%include "runs/indicator_run_input.h"

/* A run calls its callback, so it takes none but a real one. */
%refuse_none(int (*progressCallback)(VORL_PROGRESSMONITOR *))
%include "runs/estimation.h"
%include "runs/simulation.h"
%include "runs/indicator_estimation.h"
%include "runs/indicator_simulation.h"
%include "runs/run_driver.h"
