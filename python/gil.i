/* Functions that may run for long let other Python threads run meanwhile: such a thread may read the progress monitor
 * and set its abortedJobFlag. No Python object is touched in between: all arguments are plain C values by then.
 * Without a name: for all functions of the headers that follow, until %exception;. */
%define %releases_gil(NAME)
%exception NAME {
  Py_BEGIN_ALLOW_THREADS
  $action
  Py_END_ALLOW_THREADS
}
%enddef

%releases_gil(VORLOMPKestrumSim)
%releases_gil(VORLOMPKestrumIndicatorSim)
%releases_gil(VORLOMPKestrumSimEstimation)
%releases_gil(VORLOMPKestrumSimEstimationUniqueSN)
%releases_gil(VORLOMPKestrumSimSimulation)
%releases_gil(VORLOMPKestrumIndicatorSimEstimation)
%releases_gil(VORLOMPKestrumIndicatorSimSimulation)

%releases_gil(VORLKestrumValidateKestrumInput)
%releases_gil(VORLKestrumValidateKestrumIndicatorInput)
%releases_gil(VORLKestrumValidateCovModel)
%releases_gil(VORLKestrumValidateCovModelElem)
%releases_gil(VORLKestrumEvaluateCovModel)
%releases_gil(VORLKestrumEvaluateCovModelNoRotation)
%releases_gil(VORLKestrumEvaluateCovModelFixParam)
%releases_gil(VORLKestrumEvaluateCovModelFixParamNoRotation)

%releases_gil(VORLReadGrid)
%releases_gil(VORLReadImage)
%releases_gil(VORLReadImageGslibBinary)
%releases_gil(VORLWriteImage)
%releases_gil(VORLWriteImageGslibBinary)

%releases_gil(VORLCopyImage)
%releases_gil(VORLCopyPointSet)
%releases_gil(VORLValidateImage)
%releases_gil(VORLGetIndexInGridForPointSet)
%releases_gil(VORLGetXYZIndexInGridForPointSet)
%releases_gil(VORLGetPointSetInfo)
%releases_gil(VORLPrintPointSetInfo)

%releases_gil(VORLReadPointSet)
%releases_gil(VORLWritePointSet)
