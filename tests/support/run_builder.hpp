#ifndef KESTRUM_TESTS_SUPPORT_RUN_BUILDER_HPP
#define KESTRUM_TESTS_SUPPORT_RUN_BUILDER_HPP

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kestrum.h"

namespace kestrum_test {

// Memory as a run input owns it.
template <typename T>
T* New(std::size_t n = 1) {
  return static_cast<T*>(std::calloc(n, sizeof(T)));
}

inline char* NewText(const std::string& text) {
  char* const copy = New<char>(text.size() + 1);
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

inline VORL_GRID MakeGrid(int nx, int ny, int nz, real sx = 1.0, real sy = 1.0, real sz = 1.0) {
  return VORL_GRID{nx, ny, nz, sx, sy, sz, 0.0, 0.0, 0.0, nx * ny, nx * ny * nz};
}

// A heap image with the values given, or one value everywhere.
inline VORL_IMAGE* NewImage(const VORL_GRID& grid, const std::vector<real>& values, const char* name = "v") {
  VORL_IMAGE* const image = New<VORL_IMAGE>();
  const int nvar = values.size() <= 1 ? 1 : static_cast<int>(values.size()) / grid.nxyz;
  if (VORLMallocImage(image, grid.nxyz, nvar) != 0) std::abort();
  *image->grid = grid;
  image->nvar = nvar;
  image->nxyzv = nvar * grid.nxyz;
  for (int iv = 0; iv < nvar; ++iv) std::snprintf(image->varName[iv], VORL_VARNAME_LENGTH, "%s", name);
  for (int i = 0; i < image->nxyzv; ++i) image->var[i] = values.size() == 1 ? values[0] : values[i];
  return image;
}

struct Datum {
  int ix, iy, iz;
  real value;
};

// Data at distinct random nodes.
inline std::vector<Datum> RandomData(const VORL_GRID& grid, int n, unsigned seed) {
  std::mt19937 generator(seed);
  std::vector<char> taken(grid.nxyz, 0);
  std::vector<Datum> data;
  while (static_cast<int>(data.size()) < n) {
    const int node = static_cast<int>(generator() % static_cast<unsigned>(grid.nxyz));
    if (taken[node] != 0) continue;
    taken[node] = 1;
    const real value = static_cast<real>(generator() % 10000u) / 1000.0;
    data.push_back({node % grid.nx, node / grid.nx % grid.ny, node / grid.nxy, value});
  }
  return data;
}

struct Element {
  VORL_COVMODELTYPE type;
  real weight;
  real rx, ry, rz;
  real s = 1.0;
};

inline VORL_COVMODEL* NewModel(const std::vector<Element>& elements) {
  VORL_COVMODEL* const model = New<VORL_COVMODEL>();
  model->nelem = static_cast<int>(elements.size());
  model->covModelElem = New<VORL_COVMODELELEM>(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    VORL_COVMODELELEM& element = model->covModelElem[i];
    element.covModelType = elements[i].type;
    element.weightValue = elements[i].weight;
    element.rxValue = elements[i].rx;
    element.ryValue = elements[i].ry;
    element.rzValue = elements[i].rz;
    element.sValue = elements[i].s;
  }
  return model;
}

// A run input with its output and monitor, all released at the end.
class RunRecords {
 public:
  VORL_KESTRUMINPUT input;
  VORL_KESTRUMOUTPUT output;
  VORL_PROGRESSMONITOR monitor;

  RunRecords(const VORL_GRID& grid, const std::vector<Element>& elements, const std::vector<Datum>& data) {
    VORLKestrumInitKestrumInput(&input);
    VORLKestrumInitKestrumOutput(&output);
    VORLInitProgressMonitor(&monitor);
    input.simGrid = New<VORL_GRID>();
    *input.simGrid = grid;
    input.varName = NewText("v");
    input.formatString = NewText("%.10g");
    input.computationMode = KESTRUM_OK;
    input.covModel = NewModel(elements);
    input.searchRadiusRelative = 1.0;
    input.nneighborMax = 20;
    input.nGibbsSamplerPathMin = 1;
    input.nGibbsSamplerPathMax = 10;
    input.seed = 1;
    input.nrealization = 1;
    if (data.empty()) return;
    input.ndataPointSet = 1;
    input.dataPointSet = New<VORL_POINTSET>();
    VORL_POINTSET& points = input.dataPointSet[0];
    const int n = static_cast<int>(data.size());
    if (VORLMallocPointSet(&points, n, 1) != 0) std::abort();
    points.npoint = n;
    points.nvar = 1;
    std::snprintf(points.varName[0], VORL_VARNAME_LENGTH, "%s", "v");
    for (int i = 0; i < n; ++i) {
      points.x[i] = grid.ox + (data[i].ix + 0.5) * grid.sx;
      points.y[i] = grid.oy + (data[i].iy + 0.5) * grid.sy;
      points.z[i] = grid.oz + (data[i].iz + 0.5) * grid.sz;
      points.var[i] = data[i].value;
    }
  }
  RunRecords(const RunRecords&) = delete;
  RunRecords& operator=(const RunRecords&) = delete;
  ~RunRecords() {
    VORLKestrumFreeKestrumInput(&input);
    VORLKestrumFreeKestrumOutput(&output);
  }

  // nthreads 0: the serial form.
  int Run(int nthreads = 0, int (*callback)(VORL_PROGRESSMONITOR*) = VORLUpdateProgressMonitor0) {
    return nthreads == 0 ? VORLKestrumSim(&input, &output, &monitor, callback)
                         : VORLOMPKestrumSim(&input, &output, &monitor, callback, nthreads);
  }
};

// The same for a run on a categorical variable: one category per value, each with the model, data at the nodes of an
// image.
class IndicatorRunRecords {
 public:
  VORL_KESTRUMINDICATORINPUT input;
  VORL_KESTRUMOUTPUT output;
  VORL_PROGRESSMONITOR monitor;

  // data: one value per node, missing where there is no datum; or empty.
  IndicatorRunRecords(const VORL_GRID& grid, const std::vector<Element>& elements, const std::vector<real>& categories,
                      const std::vector<real>& data) {
    VORLKestrumInitKestrumIndicatorInput(&input);
    VORLKestrumInitKestrumOutput(&output);
    VORLInitProgressMonitor(&monitor);
    const int n = static_cast<int>(categories.size());
    input.simGrid = New<VORL_GRID>();
    *input.simGrid = grid;
    input.varName = NewText("v");
    input.formatString = NewText("%.10g");
    input.ncategory = n;
    input.categoryValue = New<real>(n);
    input.covModel = New<VORL_COVMODEL>(n);
    input.searchRadiusRelative = New<real>(n);
    input.nneighborMax = New<int>(n);
    input.searchNeighborhoodSortMode = New<int>(n);
    for (int c = 0; c < n; ++c) {
      input.categoryValue[c] = categories[c];
      SetModel(c, elements);
      input.searchRadiusRelative[c] = 1.0;
      input.nneighborMax[c] = 12;
    }
    input.computationMode = KESTRUM_OK;
    input.seed = 1;
    input.nrealization = 1;
    if (data.empty()) return;
    input.ndataImage = 1;
    input.dataImage = NewImage(grid, data);
  }
  IndicatorRunRecords(const IndicatorRunRecords&) = delete;
  IndicatorRunRecords& operator=(const IndicatorRunRecords&) = delete;
  ~IndicatorRunRecords() {
    VORLKestrumFreeKestrumIndicatorInput(&input);
    VORLKestrumFreeKestrumOutput(&output);
  }

  void SetModel(int c, const std::vector<Element>& elements) {
    VORLKestrumFreeCovModel(&input.covModel[c]);
    VORL_COVMODEL* const model = NewModel(elements);
    input.covModel[c] = *model;
    std::free(model);
  }

  int Run(int nthreads = 0, int (*callback)(VORL_PROGRESSMONITOR*) = VORLUpdateProgressMonitor0) {
    return nthreads == 0 ? VORLKestrumIndicatorSim(&input, &output, &monitor, callback)
                         : VORLOMPKestrumIndicatorSim(&input, &output, &monitor, callback, nthreads);
  }
};

}  // namespace kestrum_test

#endif
