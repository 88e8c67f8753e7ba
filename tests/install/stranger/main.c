/* Simple kriging of one datum, whose answer is known: the weight is the covariance over the sill. */
#include <core/types.h>
#include <kestrum.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

static void* Take(size_t n, size_t size) {
  int status = 0;
  return VORLMalloc(n, size, &status);
}

int main(void) {
  const StrangersNumber range = 10.0, mean = 3.0, value = 5.0;
  VORL_KESTRUMINPUT input;
  VORL_KESTRUMOUTPUT output;
  VORL_PROGRESSMONITOR monitor;
  int node;
  int wrong = 0;
  int status;

  VORLKestrumInitKestrumInput(&input);
  input.simGrid = (VORL_GRID*)Take(1, sizeof *input.simGrid);
  VORLInitGrid(input.simGrid);
  input.simGrid->nx = input.simGrid->nxy = input.simGrid->nxyz = 8;
  input.simGrid->ny = input.simGrid->nz = 1;
  input.simGrid->sx = input.simGrid->sy = input.simGrid->sz = 1.0;
  input.varName = strcpy((char*)Take(2, 1), "v");
  input.computationMode = KESTRUM_SK;
  input.covModel = (VORL_COVMODEL*)Take(1, sizeof *input.covModel);
  VORLKestrumInitCovModel(input.covModel);
  input.covModel->nelem = 1;
  input.covModel->covModelElem = (VORL_COVMODELELEM*)Take(1, sizeof *input.covModel->covModelElem);
  VORLKestrumInitCovModelElem(input.covModel->covModelElem);
  input.covModel->covModelElem->covModelType = COV_SPHERICAL;
  input.covModel->covModelElem->weightValue = 1.0;
  input.covModel->covModelElem->rxValue = range;
  input.searchRadiusRelative = 1.0;
  input.nneighborMax = 1;
  input.meanUsage = 1;
  input.meanValue = mean;
  input.ndataPointSet = 1;
  input.dataPointSet = (VORL_POINTSET*)Take(1, sizeof *input.dataPointSet);
  VORLInitPointSet(input.dataPointSet);
  status = VORLMallocPointSet(input.dataPointSet, 1, 1);
  if (status != 0) return 1;
  input.dataPointSet->npoint = input.dataPointSet->nvar = 1;
  strcpy(input.dataPointSet->varName[0], "v");
  input.dataPointSet->x[0] = input.dataPointSet->y[0] = input.dataPointSet->z[0] = 0.5;
  input.dataPointSet->var[0] = value;

  VORLKestrumInitKestrumOutput(&output);
  VORLInitProgressMonitor(&monitor);
  status = VORLKestrumSim(&input, &output, &monitor, VORLUpdateProgressMonitor0);
  if (status != 0) {
    printf("%s", VORLGetErrorMessage(-status));
    return 1;
  }
  for (node = 0; node < 8; ++node) {
    const double h = node / range;
    const double weight = 1.0 - 1.5 * h + 0.5 * h * h * h;
    if (fabs(output.outputImage->var[node] - (mean + weight * (value - mean))) > 1e-8) ++wrong;
    if (fabs(output.outputImage->var[8 + node] - sqrt(1.0 - weight * weight)) > 1e-6) ++wrong;
  }
  VORLKestrumFreeKestrumOutput(&output);
  VORLKestrumFreeKestrumInput(&input);
  if (wrong != 0) printf("%d wrong values\n", wrong);
  return wrong != 0;
}
