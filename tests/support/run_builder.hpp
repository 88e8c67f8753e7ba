#ifndef KESTRUM_TESTS_SUPPORT_RUN_BUILDER_HPP
#define KESTRUM_TESTS_SUPPORT_RUN_BUILDER_HPP

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

template <typename T>
T* NewVector(const std::vector<T>& values) {
  T* const vector = New<T>(values.size());
  std::copy(values.begin(), values.end(), vector);
  return vector;
}

inline char* NewText(const std::string& text) {
  return NewVector(std::vector<char>(text.c_str(), text.c_str() + text.size() + 1));
}

inline VORL_GRID MakeGrid(int nx, int ny, int nz, real sx = 1.0, real sy = 1.0, real sz = 1.0) {
  return VORL_GRID{nx, ny, nz, sx, sy, sz, 0.0, 0.0, 0.0, nx * ny, nx * ny * nz};
}

// An image with the values given, or one value everywhere. Variables without a name get the last one and their number.
inline VORL_IMAGE MakeImage(const VORL_GRID& grid, const std::vector<real>& values,
                            const std::vector<std::string>& names = {"v"}) {
  VORL_IMAGE image;
  VORLInitImage(&image);
  const int nvar = values.size() <= 1 ? 1 : static_cast<int>(values.size()) / grid.nxyz;
  if (VORLMallocImage(&image, grid.nxyz, nvar) != 0) std::abort();
  *image.grid = grid;
  image.nvar = nvar;
  image.nxyzv = nvar * grid.nxyz;
  for (int iv = 0; iv < nvar; ++iv) {
    const auto i = static_cast<std::size_t>(iv);
    const std::string name = i < names.size() ? names[i] : names.back() + std::to_string(iv);
    std::snprintf(image.varName[iv], VORL_VARNAME_LENGTH, "%s", name.c_str());
  }
  for (int i = 0; i < image.nxyzv; ++i) image.var[i] = values.size() == 1 ? values[0] : values[i];
  return image;
}

inline VORL_IMAGE* NewImage(const VORL_GRID& grid, const std::vector<real>& values,
                            const std::vector<std::string>& names = {"v"}) {
  return NewVector<VORL_IMAGE>({MakeImage(grid, values, names)});
}

// Points with the values variable by variable.
inline VORL_POINTSET MakePoints(const std::vector<real>& x, const std::vector<real>& y, const std::vector<real>& z,
                                const std::vector<std::string>& names, const std::vector<real>& values) {
  VORL_POINTSET points;
  VORLInitPointSet(&points);
  points.npoint = static_cast<int>(x.size());
  points.nvar = static_cast<int>(names.size());
  if (VORLMallocPointSet(&points, points.npoint, points.nvar) != 0) std::abort();
  for (std::size_t v = 0; v < names.size(); ++v) {
    std::snprintf(points.varName[v], VORL_VARNAME_LENGTH, "%s", names[v].c_str());
  }
  std::copy(x.begin(), x.end(), points.x);
  std::copy(y.begin(), y.end(), points.y);
  std::copy(z.begin(), z.end(), points.z);
  std::copy(values.begin(), values.end(), points.var);
  return points;
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

inline VORL_COVMODEL MakeModel(const std::vector<Element>& elements) {
  VORL_COVMODEL model;
  VORLKestrumInitCovModel(&model);
  model.nelem = static_cast<int>(elements.size());
  model.covModelElem = New<VORL_COVMODELELEM>(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    VORL_COVMODELELEM& element = model.covModelElem[i];
    element.covModelType = elements[i].type;
    element.weightValue = elements[i].weight;
    element.rxValue = elements[i].rx;
    element.ryValue = elements[i].ry;
    element.rzValue = elements[i].rz;
    element.sValue = elements[i].s;
  }
  return model;
}

inline VORL_COVMODEL* NewModel(const std::vector<Element>& elements) {
  return NewVector<VORL_COVMODEL>({MakeModel(elements)});
}

// What a run input, its output and its monitor start from.
template <typename Input>
void FillCommon(const VORL_GRID& grid, Input& input, VORL_KESTRUMOUTPUT& output, VORL_PROGRESSMONITOR& monitor) {
  VORLKestrumInitKestrumOutput(&output);
  VORLInitProgressMonitor(&monitor);
  input.simGrid = NewVector<VORL_GRID>({grid});
  input.varName = NewText("v");
  input.formatString = NewText("%.10g");
  input.computationMode = KESTRUM_OK;
  input.seed = 1;
  input.nrealization = 1;
}

// Runs of records, by the three functions of their kind.
template <auto kSerial, auto kThreaded, auto kWithOptions, typename Input>
struct Runnable {
  Input input;
  VORL_KESTRUMOUTPUT output;
  VORL_PROGRESSMONITOR monitor;

  // nthreads 0: the serial form.
  int Run(int nthreads = 0, int (*callback)(VORL_PROGRESSMONITOR*) = VORLUpdateProgressMonitor0) {
    return nthreads == 0 ? kSerial(&input, &output, &monitor, callback)
                         : kThreaded(&input, &output, &monitor, callback, nthreads);
  }
  // With the factorising solver. *nfallback: how many systems it could not solve.
  int Factorise(int nthreads, long long* nfallback = nullptr,
                int (*callback)(VORL_PROGRESSMONITOR*) = VORLUpdateProgressMonitor0) {
    VORL_KESTRUMOPTIONS options;
    VORLKestrumInitOptions(&options);
    options.solver = KESTRUM_SOLVER_FACTORISING;
    options.nthreads = nthreads;
    const int status = kWithOptions(&input, &output, &monitor, callback, &options);
    if (nfallback != nullptr) *nfallback = options.nfallback;
    return status;
  }
};

// A run input with its output and monitor, all released at the end.
class RunRecords : public Runnable<VORLKestrumSim, VORLOMPKestrumSim, VORLKestrumSimWithOptions, VORL_KESTRUMINPUT> {
 public:
  RunRecords(const VORL_GRID& grid, const std::vector<Element>& elements, const std::vector<Datum>& data) {
    VORLKestrumInitKestrumInput(&input);
    FillCommon(grid, input, output, monitor);
    input.covModel = NewModel(elements);
    input.searchRadiusRelative = 1.0;
    input.nneighborMax = 20;
    input.nGibbsSamplerPathMin = 1;
    input.nGibbsSamplerPathMax = 10;
    if (data.empty()) return;
    std::vector<real> x, y, z, values;
    for (const Datum& datum : data) {
      x.push_back(grid.ox + (datum.ix + 0.5) * grid.sx);
      y.push_back(grid.oy + (datum.iy + 0.5) * grid.sy);
      z.push_back(grid.oz + (datum.iz + 0.5) * grid.sz);
      values.push_back(datum.value);
    }
    input.ndataPointSet = 1;
    input.dataPointSet = NewVector<VORL_POINTSET>({MakePoints(x, y, z, {"v"}, values)});
  }
  RunRecords(const RunRecords&) = delete;
  RunRecords& operator=(const RunRecords&) = delete;
  ~RunRecords() {
    VORLKestrumFreeKestrumInput(&input);
    VORLKestrumFreeKestrumOutput(&output);
  }
};

// The same for a run on a categorical variable: one category per value, each with the model, data at the nodes of an
// image.
class IndicatorRunRecords : public Runnable<VORLKestrumIndicatorSim, VORLOMPKestrumIndicatorSim,
                                            VORLKestrumIndicatorSimWithOptions, VORL_KESTRUMINDICATORINPUT> {
 public:
  // data: one value per node, missing where there is no datum; or empty.
  IndicatorRunRecords(const VORL_GRID& grid, const std::vector<Element>& elements, const std::vector<real>& categories,
                      const std::vector<real>& data) {
    VORLKestrumInitKestrumIndicatorInput(&input);
    FillCommon(grid, input, output, monitor);
    const std::size_t n = categories.size();
    input.ncategory = static_cast<int>(n);
    input.categoryValue = NewVector(categories);
    input.covModel = New<VORL_COVMODEL>(n);
    for (std::size_t c = 0; c < n; ++c) input.covModel[c] = MakeModel(elements);
    input.searchRadiusRelative = NewVector(std::vector<real>(n, 1.0));
    input.nneighborMax = NewVector(std::vector<int>(n, 12));
    input.searchNeighborhoodSortMode = New<int>(n);
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
    input.covModel[c] = MakeModel(elements);
  }
};

}  // namespace kestrum_test

#endif
