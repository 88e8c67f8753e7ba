/* Functions that can run long let other Python threads go on meanwhile: such a thread may read the progress monitor and
 * set its abortedJobFlag. No Python object is touched between these two lines; all arguments are plain C values by then. */
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
%releases_gil(VORLGetImageOneVarValueMean)
%releases_gil(VORLGetImageOneVarValueSD)
%releases_gil(VORLGetImageOneVarValueRange)
%releases_gil(VORLGetImageOneVarValuePdf)
%releases_gil(VORLGetImageOneVarValueIndex)
%releases_gil(VORLGetImageVarValueMean)
%releases_gil(VORLGetImageVarValueSD)
%releases_gil(VORLGetImageVarValueRange)
%releases_gil(VORLGetImageVarValuePdf)
%releases_gil(VORLGetNImageOneVarValuePdf)
%releases_gil(VORLGetNImageVarValuePdf)
%releases_gil(VORLGetImageNumberVarValueMissing)
%releases_gil(VORLGetImageVarVectorMissing)
%releases_gil(VORLGetImageVarStats)
%releases_gil(VORLGetImageVarStatsLocal)
%releases_gil(VORLPrintImageInfo)
%releases_gil(VORLTransformLinearImageVar)
%releases_gil(VORLTransformExplicitImageVar)
%releases_gil(VORLGetIndexInGridForPointSet)
%releases_gil(VORLGetXYZIndexInGridForPointSet)
%releases_gil(VORLGetPointSetInfo)
%releases_gil(VORLPrintPointSetInfo)
%releases_gil(VORLImageExtract1D)
%releases_gil(VORLImageExtract2D)
%releases_gil(VORLImageExtract3D)
%releases_gil(VORLImageToImage)
%releases_gil(VORLPointSetToImage)
%releases_gil(VORLImageToPointSet)
