/* Log zinc in the topsoil of the Meuse flood plain by ordinary kriging, from C.
 *
 *   krige_meuse DATA_DIRECTORY RESULT.gslib
 *
 * DATA_DIRECTORY holds meuse.csv (the samples) and meuse_grid.csv (the nodes of the study area). Each node is estimated
 * from its 20 nearest samples. The same map as examples/native/kriging_meuse.py makes from Python.
 */
#include <kestrum.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kNx = 78, kNy = 104, kNodes = kNx * kNy, kMaxSamples = 1000, kNeighbors = 20 };
static const double kCell = 40.0, kCornerX = 178440.0, kCornerY = 329600.0;
static const double kRange = 897.0, kSill = 0.59, kNugget = 0.05;

/* All that a run input points to is released by VORLKestrumFreeKestrumInput, so it comes from VORLMalloc. */
static void* Take(size_t n, size_t size) {
  int status = 0;
  void* memory = VORLMalloc(n, size, &status);
  if (!memory) {
    fprintf(stderr, "%s", VORLGetErrorMessage(-status));
    exit(1);
  }
  return memory;
}

static void Check(int status) {
  if (status == 0) return;
  fprintf(stderr, "%s", VORLGetErrorMessage(-status));
  exit(1);
}

static char* Text(const char* text) { return strcpy((char*)Take(strlen(text) + 1, 1), text); }

static FILE* OpenData(const char* directory, const char* name) {
  char path[VORL_FILENAME_LENGTH];
  FILE* stream;
  snprintf(path, sizeof path, "%s/%s", directory, name);
  stream = fopen(path, "r");
  if (!stream) {
    perror(path);
    exit(1);
  }
  return stream;
}

static VORL_GRID Grid(void) {
  VORL_GRID grid;
  VORLInitGrid(&grid);
  grid.nx = kNx;
  grid.ny = kNy;
  grid.nz = 1;
  grid.sx = grid.sy = kCell;
  grid.sz = 1.0;
  grid.ox = kCornerX;
  grid.oy = kCornerY;
  grid.oz = -0.5;
  grid.nxy = grid.nxyz = kNodes;
  return grid;
}

/* The samples: x, y and the logarithm of zinc. */
static VORL_POINTSET* ReadSamples(const char* directory) {
  static double rows[kMaxSamples][3];
  char line[VORL_LINE_LENGTH];
  VORL_POINTSET* points = (VORL_POINTSET*)Take(1, sizeof *points);
  FILE* stream = OpenData(directory, "meuse.csv");
  int n = 0;
  int i;
  while (n < kMaxSamples && fgets(line, sizeof line, stream)) {
    double x, y, zinc;
    if (sscanf(line, "%lf,%lf,%*f,%*f,%*f,%lf", &x, &y, &zinc) != 3) continue; /* the line of names */
    rows[n][0] = x;
    rows[n][1] = y;
    rows[n][2] = log(zinc);
    ++n;
  }
  fclose(stream);
  VORLInitPointSet(points);
  Check(VORLMallocPointSet(points, n, 1));
  points->npoint = n;
  points->nvar = 1;
  strcpy(points->varName[0], "log_zinc");
  for (i = 0; i < n; ++i) {
    points->x[i] = rows[i][0];
    points->y[i] = rows[i][1];
    points->z[i] = 0.0;
    points->var[i] = rows[i][2];
  }
  return points;
}

/* 1.0 at the nodes of the study area, 0.0 elsewhere. */
static VORL_IMAGE* ReadMask(const char* directory) {
  char line[VORL_LINE_LENGTH];
  VORL_IMAGE* mask = (VORL_IMAGE*)Take(1, sizeof *mask);
  FILE* stream = OpenData(directory, "meuse_grid.csv");
  int i;
  VORLInitImage(mask);
  Check(VORLMallocImage(mask, kNodes, 1));
  *mask->grid = Grid();
  mask->nvar = 1;
  mask->nxyzv = kNodes;
  strcpy(mask->varName[0], "mask");
  for (i = 0; i < kNodes; ++i) mask->var[i] = 0.0;
  while (fgets(line, sizeof line, stream)) {
    double x, y;
    int ix, iy;
    if (sscanf(line, "%lf,%lf", &x, &y) != 2) continue;
    ix = (int)floor((x - kCornerX) / kCell);
    iy = (int)floor((y - kCornerY) / kCell);
    if (ix >= 0 && ix < kNx && iy >= 0 && iy < kNy) mask->var[ix + iy * kNx] = 1.0;
  }
  fclose(stream);
  return mask;
}

static VORL_COVMODEL* CovModel(void) {
  VORL_COVMODEL* model = (VORL_COVMODEL*)Take(1, sizeof *model);
  VORL_COVMODELELEM* elements = (VORL_COVMODELELEM*)Take(2, sizeof *elements);
  VORLKestrumInitCovModel(model);
  VORLKestrumInitCovModelElem(&elements[0]);
  elements[0].covModelType = COV_NUGGET;
  elements[0].weightValue = kNugget;
  VORLKestrumInitCovModelElem(&elements[1]);
  elements[1].covModelType = COV_SPHERICAL;
  elements[1].weightValue = kSill;
  elements[1].rxValue = elements[1].ryValue = kRange;
  model->nelem = 2;
  model->covModelElem = elements;
  return model;
}

int main(int argc, char** argv) {
  VORL_KESTRUMINPUT input;
  VORL_KESTRUMOUTPUT output;
  VORL_PROGRESSMONITOR monitor;
  int status;
  if (argc != 3) {
    fprintf(stderr, "usage: %s DATA_DIRECTORY RESULT.gslib\n", argv[0]);
    return 2;
  }

  VORLKestrumInitKestrumInput(&input);
  input.simGrid = (VORL_GRID*)Take(1, sizeof *input.simGrid);
  *input.simGrid = Grid();
  input.varName = Text("log_zinc");
  input.computationMode = KESTRUM_OK;
  input.covModel = CovModel();
  input.searchRadiusRelative = 2.0;
  input.nneighborMax = kNeighbors;
  input.searchNeighborhoodSortMode = 2;
  input.ndataPointSet = 1;
  input.dataPointSet = ReadSamples(argv[1]);
  input.maskImageFlag = TRUE;
  input.maskImage = ReadMask(argv[1]);
  input.consoleAppFlag = TRUE; /* the result goes to the file alone */
  input.formatString = Text(VORL_FORMAT_DEFAULT);
  input.outputMode = KESTRUM_OUTPUT_ALL_IN_ONE_FILE;
  input.outputImageFileName = Text(argv[2]);

  VORLKestrumInitKestrumOutput(&output);
  VORLInitProgressMonitor(&monitor);
  status = VORLKestrumSim(&input, &output, &monitor, VORLUpdateProgressMonitor1);
  if (status == 0) {
    printf("%s written, %d warning(s)\n", argv[2], monitor.nwarning);
  } else {
    fprintf(stderr, "%s", VORLGetErrorMessage(-status));
  }
  VORLKestrumFreeKestrumOutput(&output);
  VORLKestrumFreeKestrumInput(&input);
  return status != 0;
}
