#ifndef KESTRUM_TESTS_RUNS_RUN_RECORDS_HPP
#define KESTRUM_TESTS_RUNS_RUN_RECORDS_HPP

#include <string>
#include <vector>

#include "support/run_builder.hpp"
#include "support/text_stream.hpp"

// Sound run inputs on a grid of 3 by 2 nodes, their parts, and what is printed of them.

namespace kestrum_test {

constexpr real kMissing = VORL_MISSING_VALUE;

inline VORL_GRID SmallGrid() { return MakeGrid(3, 2, 1); }

inline VORL_IMAGE* NewImage(const std::vector<real>& values) { return NewImage(SmallGrid(), values, {"p"}); }

// Points on the line y = z = 0.5.
inline VORL_POINTSET MakePoints(const std::vector<real>& x, const std::vector<std::string>& names,
                                const std::vector<real>& values) {
  const std::vector<real> halves(x.size(), 0.5);
  return MakePoints(x, halves, halves, names, values);
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

const std::vector<Element> kSpherical = {{COV_SPHERICAL, 1.0, 2.0, 2.0, 2.0, 0.0}};

inline void GiveAngleImage(VORL_COVMODEL& model) {
  model.angle2ImageFlag = TRUE;
  model.angle2Image = NewImage({10.0, 20.0, 30.0, 40.0, 50.0, 60.0});
}

inline void GiveWeightImage(VORL_COVMODEL& model) {
  model.covModelElem[0].weightImageFlag = TRUE;
  model.covModelElem[0].weightImage = NewImage({1.0, 1.0, 1.0, 1.0, 1.0, 1.0});
}

// A list of neighbours and its model.
struct List {
  VORL_COVMODEL* const model;
  VORL_SEARCHNEIGHBORHOOD list;

  explicit List(const std::vector<Element>& elements) : model(NewModel(elements)) { VORLInitSearchNeighborhood(&list); }
  List(const List&) = delete;
  List& operator=(const List&) = delete;
  ~List() {
    VORLFreeSearchNeighborhood(&list);
    VORLKestrumFreeCovModel(model);
    VORLFree(model);
  }

  int Build(const VORL_GRID& grid, real radius, int sortMode, bool stationary = true, bool rotationStationary = true,
            bool rangeStationary = true, VORL_IMAGE* mask = nullptr) {
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    return VORLKestrumBuildSearchNeighborhoodForCovModel(grid.sx, grid.sy, grid.sz, radius, grid.nx, grid.ny, grid.nz,
                                                         mask, model, rotationStationary, 1, rangeStationary,
                                                         stationary, 0, nullptr, sortMode, &list, &context);
  }
};

// Makes a simulation with a data image, a point set, and a mask that leaves node 0 out.
template <typename Input>
void FillSimulation(Input& input) {
  Release(input.formatString);
  input.computationMode = KESTRUM_SIM_SK;
  input.ndataImage = 1;
  input.dataImage = NewImage(SmallGrid(), {kMissing, 1.0, kMissing, kMissing, kMissing, kMissing});
  input.ndataPointSet = 1;
  input.dataPointSet = NewVector<VORL_POINTSET>({MakePoints({0.5, 2.5}, {"v"}, {1.0, 2.0})});
  input.maskImageFlag = TRUE;
  input.maskImage = NewImage(SmallGrid(), {0.0, 1.0, 1.0, 1.0, 1.0, 1.0}, {"mask"});
  input.seed = 7;
  input.seedIncrement = 3;
  input.nrealization = 2;
}

struct ContinuousRun : RunRecords {
  ContinuousRun() : RunRecords(SmallGrid(), kSpherical, {}) {
    FillSimulation(input);
    input.nneighborMax = 12;
  }
};

struct IndicatorRun : IndicatorRunRecords {
  IndicatorRun() : IndicatorRunRecords(SmallGrid(), kSpherical, {1.0, 2.0}, {}) {
    FillSimulation(input);
    input.searchRadiusRelative[1] = 1.5;
    input.nneighborMax[1] = -1;
    input.searchNeighborhoodSortMode[1] = 2;
  }
};

// The printed nested records of the inputs above, with a prefix in front of each line.
inline std::string DataToMaskText(const std::string& p, VORL_IMAGE* data, VORL_IMAGE* mask) {
  return p + "ndataImage:   1\n" + p + "dataImage   0:\n" + Printed(VORLPrintImage, data, p + "   ") + "\n" + p +
         "ndataPointSet:   1\n" + p + "dataPointSet   0:\n" + p + "   npoint:        2\n" + p +
         "   nvar:          1\n" + p + "   varName\n" + p + "      v\n" + "\n" + p + "maskImageFlag: 1\n" + p +
         "maskImage:\n" + Printed(VORLPrintImage, mask, p + "   ");
}

}  // namespace kestrum_test

#endif
