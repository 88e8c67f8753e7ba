#ifndef KESTRUM_TESTS_ENGINE_RUN_RECORDS_HPP
#define KESTRUM_TESTS_ENGINE_RUN_RECORDS_HPP

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/memory.h"
#include "engine/indicator_run_input.h"
#include "engine/run_input.h"

// Sound run inputs on a grid of 3 by 2 nodes, and their parts; all that they hold comes from VORLMalloc.

namespace kestrum_test {

constexpr real kMissing = VORL_MISSING_VALUE;

template <typename T>
T* NewVector(const std::vector<T>& values) {
  int status = 0;
  auto* vector = static_cast<T*>(VORLMalloc(values.size(), sizeof(T), &status));
  std::memcpy(vector, values.data(), values.size() * sizeof(T));
  return vector;
}

inline char* NewText(const std::string& text) {
  return NewVector(std::vector<char>(text.c_str(), text.c_str() + text.size() + 1));
}

inline VORL_GRID MakeGrid(int nx, int ny) { return {nx, ny, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, nx * ny, nx * ny}; }

inline VORL_IMAGE MakeImage(VORL_GRID grid, const std::vector<std::string>& names, const std::vector<real>& values) {
  VORL_IMAGE image;
  VORLInitImage(&image);
  if (VORLMallocImage(&image, grid.nxyz, static_cast<int>(names.size())) != 0) std::abort();
  *image.grid = grid;
  image.nvar = static_cast<int>(names.size());
  image.nxyzv = image.nvar * grid.nxyz;
  if (values.size() != static_cast<std::size_t>(image.nxyzv)) std::abort();
  for (int iv = 0; iv < image.nvar; ++iv) std::strcpy(image.varName[iv], names[static_cast<std::size_t>(iv)].c_str());
  std::memcpy(image.var, values.data(), values.size() * sizeof(real));
  return image;
}

inline VORL_IMAGE* NewImage(const std::vector<std::string>& names, const std::vector<real>& values) {
  return NewVector<VORL_IMAGE>({MakeImage(MakeGrid(3, 2), names, values)});
}
inline VORL_IMAGE* NewImage(const std::vector<real>& values) { return NewImage({"p"}, values); }

// Points on the line y = z = 0.5, with the values variable by variable.
inline VORL_POINTSET MakePoints(const std::vector<real>& x, const std::vector<std::string>& names,
                                const std::vector<real>& values) {
  VORL_POINTSET points;
  VORLInitPointSet(&points);
  points.npoint = static_cast<int>(x.size());
  points.nvar = static_cast<int>(names.size());
  if (VORLMallocPointSet(&points, points.npoint, points.nvar) != 0 || values.size() != x.size() * names.size()) {
    std::abort();
  }
  std::memcpy(points.x, x.data(), x.size() * sizeof(real));
  for (std::size_t i = 0; i < x.size(); ++i) points.y[i] = points.z[i] = 0.5;
  for (std::size_t iv = 0; iv < names.size(); ++iv) std::strcpy(points.varName[iv], names[iv].c_str());
  std::memcpy(points.var, values.data(), values.size() * sizeof(real));
  return points;
}

inline void Release(VORL_IMAGE*& image) {
  VORLFreeImage(image);
  VORLFree(image);
  image = nullptr;
}

template <typename T>
void Release(T*& vector) {
  VORLFree(vector);
  vector = nullptr;
}

template <typename T>
void Replace(T*& field, T* by) {
  Release(field);
  field = by;
}

// One spherical element of weight 1 and range 2.
inline VORL_COVMODEL MakeModel() {
  VORL_COVMODEL model;
  VORLKestrumInitCovModel(&model);
  model.nelem = 1;
  model.covModelElem = NewVector<VORL_COVMODELELEM>({VORL_COVMODELELEM{}});
  VORL_COVMODELELEM& element = model.covModelElem[0];
  element.covModelType = COV_SPHERICAL;
  element.weightValue = 1.0;
  element.rxValue = element.ryValue = element.rzValue = 2.0;
  return model;
}

inline void GiveAngleImage(VORL_COVMODEL& model) {
  model.angle2ImageFlag = TRUE;
  model.angle2Image = NewImage({10.0, 20.0, 30.0, 40.0, 50.0, 60.0});
}

inline void GiveWeightImage(VORL_COVMODEL& model) {
  model.covModelElem[0].weightImageFlag = TRUE;
  model.covModelElem[0].weightImage = NewImage({1.0, 1.0, 1.0, 1.0, 1.0, 1.0});
}

// A simulation with a data image, a point set, and a mask that leaves node 0 out.
template <typename Input>
void FillCommon(Input& input) {
  input.simGrid = NewVector<VORL_GRID>({MakeGrid(3, 2)});
  input.varName = NewText("v");
  input.computationMode = KESTRUM_SIM_SK;
  input.ndataImage = 1;
  input.dataImage = NewImage({"v"}, {kMissing, 1.0, kMissing, kMissing, kMissing, kMissing});
  input.ndataPointSet = 1;
  input.dataPointSet = NewVector<VORL_POINTSET>({MakePoints({0.5, 2.5}, {"v"}, {1.0, 2.0})});
  input.maskImageFlag = TRUE;
  input.maskImage = NewImage({"mask"}, {0.0, 1.0, 1.0, 1.0, 1.0, 1.0});
  input.seed = 7;
  input.seedIncrement = 3;
  input.nrealization = 2;
}

struct ContinuousRun {
  VORL_KESTRUMINPUT input;

  ContinuousRun() {
    VORLKestrumInitKestrumInput(&input);
    FillCommon(input);
    input.covModel = NewVector<VORL_COVMODEL>({MakeModel()});
    input.searchRadiusRelative = 1.0;
    input.nneighborMax = 12;
    input.nGibbsSamplerPathMin = 1;
    input.nGibbsSamplerPathMax = 10;
  }
  ContinuousRun(const ContinuousRun&) = delete;
  ContinuousRun& operator=(const ContinuousRun&) = delete;
  ~ContinuousRun() { VORLKestrumFreeKestrumInput(&input); }
};

struct IndicatorRun {
  VORL_KESTRUMINDICATORINPUT input;

  IndicatorRun() {
    VORLKestrumInitKestrumIndicatorInput(&input);
    FillCommon(input);
    input.ncategory = 2;
    input.categoryValue = NewVector<real>({1.0, 2.0});
    input.covModel = NewVector<VORL_COVMODEL>({MakeModel(), MakeModel()});
    input.searchRadiusRelative = NewVector<real>({1.0, 1.5});
    input.nneighborMax = NewVector<int>({12, -1});
    input.searchNeighborhoodSortMode = NewVector<int>({0, 2});
  }
  IndicatorRun(const IndicatorRun&) = delete;
  IndicatorRun& operator=(const IndicatorRun&) = delete;
  ~IndicatorRun() { VORLKestrumFreeKestrumIndicatorInput(&input); }
};

// What print(stream) writes; its status goes to *status.
template <typename Print>
std::string Printed(const Print& print, int* status) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* stream = open_memstream(&text, &size);
  *status = print(stream);
  std::fclose(stream);
  const std::string result(text, size);
  std::free(text);
  return result;
}

// The printed nested records of the inputs above, with a prefix in front of each line.
inline std::string GridText(const std::string& prefix) {
  return prefix + "Size   :       3              2              1\n" + prefix +
         "Spacing:       1.000000       1.000000       1.000000\n" + prefix +
         "Origin :       0.000000       0.000000       0.000000\n" + prefix +
         "Number of nodes in a xy-section:        6\n" + prefix + "Total number of nodes          :        6\n";
}

inline std::string ImageText(const std::string& prefix, const std::string& name) {
  return prefix + "grid:\n" + GridText(prefix + "   ") + prefix + "nvar:         1\n" + prefix + "nxyzv:        6\n" +
         prefix + "varName:\n" + prefix + "   " + name + "\n";
}

inline std::string DataToMaskText(const std::string& prefix) {
  return prefix + "ndataImage:   1\n" + prefix + "dataImage   0:\n" + ImageText(prefix + "   ", "v") + "\n" + prefix +
         "ndataPointSet:   1\n" + prefix + "dataPointSet   0:\n" + prefix + "   npoint:        2\n" + prefix +
         "   nvar:          1\n" + prefix + "   varName\n" + prefix + "      v\n" + "\n" + prefix +
         "maskImageFlag: 1\n" + prefix + "maskImage:\n" + ImageText(prefix + "   ", "mask");
}

inline std::string ModelText(const std::string& p) {
  const std::string e = p + "   ";
  return p + "Number of elementary covariance model (contribution):  1\n\n" + p + "Elementary covariance model #0:\n" +
         e + "Type: COV_SPHERICAL\n" + e + "Weight:\n" + e + "weightImageFlag: 0\n" + e +
         "weightValue:       1.000000\n" + e + "Ranges:\n" + e + "rxImageFlag: 0\n" + e + "ryImageFlag: 0\n" + e +
         "rzImageFlag: 0\n" + e + "rxValue:       2.000000\n" + e + "ryValue:       2.000000\n" + e +
         "rzValue:       2.000000\n\n" + p + "Orientation angles:\n" + p + "angle1ImageFlag: 0\n" + p +
         "angle2ImageFlag: 0\n" + p + "angle3ImageFlag: 0\n" + p + "angle1Value:       0.000000\n" + p +
         "angle2Value:       0.000000\n" + p + "angle3Value:       0.000000\n";
}

}  // namespace kestrum_test

#endif
