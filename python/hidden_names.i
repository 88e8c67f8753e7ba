/* What the headers below declare and the module does not offer. Headers that are hidden as a whole are just not read. */
%ignore VORLGetErrorMessage; /* vorl_get_error_message does the same */

/* Runs cross in their threaded form alone. */
%ignore VORLKestrumSim;
%ignore VORLKestrumIndicatorSim;
%ignore VORLKestrumSimEstimation;
%ignore VORLKestrumSimEstimationUniqueSN;
%ignore VORLKestrumSimSimulation;
%ignore VORLKestrumIndicatorSimEstimation;
%ignore VORLKestrumIndicatorSimSimulation;

%ignore VORLTransformLinearVector;
%ignore VORLOMPTransformLinearVector;
%ignore VORLTransformExplicitVector;
%ignore VORLOMPTransformExplicitVector;

%ignore VORLDigitToChar;
%ignore VORLIntToString;
%ignore VORLSkipComments;

%ignore VORLComputeRotationMatrix;
%ignore VORLComputeVariogramRangeApprox;
%ignore VORLOMPComputeVariogramRangeApprox;

%ignore VORLMovingBoxSum;
%ignore VORLOMPMovingBoxSum;
%ignore VORLPyramidWeight;
%ignore VORLPyramidReduceDimension;
%ignore VORLPyramidExpandDimension;
%ignore VORLPyramidReduce;
%ignore VORLOMPPyramidReduce;
%ignore VORLPyramidExpand;
%ignore VORLOMPPyramidExpand;
%ignore VORLReadArray2D;
%ignore VORLWriteArray2D;
