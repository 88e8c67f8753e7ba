// Every function that walks the nodes of a record refuses one that its maker has filled by halves, with the status of
// what is wrong, and writes nothing. The sanitised build sees reading and writing outside. It also reports each of its
// allocations that fails; the sanitised build sees leaks.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kestrum.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"
#include "support/text_stream.hpp"

namespace {

using namespace kestrum_test;
using Points = Owned<VORL_POINTSET, VORLInitPointSet, VORLFreePointSet>;

constexpr int kNodes = 24;

// One offset.
int oneX[] = {1}, oneY[] = {1}, oneZ[] = {1};

TestImage SoundImage() { return TestImage(Grid(4, 3, 2), {"v"}, {0.0, 1.0, 1.0, 0.0, VORL_MISSING_VALUE, 1.0, 2.0}); }

// A function as it is called with the record in question; and what it gives for a sound one without variables.
struct Function {
  const char* name;
  int withoutVariables;
  std::function<int(VORL_IMAGE*)> call;
};

// Whether the last argument of a function is a number of threads.
template <typename... Argument>
constexpr bool TakesThreads(int (*)(Argument...)) {
  const bool isInt[] = {std::is_same_v<Argument, int>...};
  return isInt[sizeof...(Argument) - 1];
}

// Forms of one function that differ in their names alone: call(form, image), with a number of threads if it takes one.
template <typename Call, typename... Form>
void AddForms(std::vector<Function>& to, const char* name, int withoutVariables, const Call& call, Form*... forms) {
  const auto add = [&](auto form) {
    to.push_back({name, withoutVariables, [=](VORL_IMAGE* image) {
                    if constexpr (TakesThreads(decltype(form){})) {
                      return call(form, image, 2);
                    } else {
                      return call(form, image);
                    }
                  }});
  };
  (add(forms), ...);
}

// Calls make(out), which must leave the image empty if it refuses its input.
template <typename Make>
int Made(const Make& make) {
  TestImage out;
  const int status = make(&out);
  EXPECT_TRUE(status == 0 || status == -1 || (out.grid == nullptr && out.var == nullptr));
  return status;
}

std::vector<Function> StatisticsFunctions() {
  static char prefix[] = "", format[] = "%g";
  static real a[kNodes], b[kNodes], c[kNodes], *rows[] = {c};
  static int number[kNodes], *counts[] = {number};
  static BOOLEAN flags[kNodes];
  std::vector<Function> all = {
      {"mean of one", -1100, [](auto* i) { return VORLGetImageOneVarValueMean(i, 0, a); }},
      {"mean", -621, [](auto* i) { return VORLGetImageVarValueMean(i, a); }},
      {"deviation of one", -1100, [](auto* i) { return VORLGetImageOneVarValueSD(i, 0, a, b); }},
      {"deviation", -621, [](auto* i) { return VORLGetImageVarValueSD(i, a, b); }},
      {"range of one", -1100, [](auto* i) { return VORLGetImageOneVarValueRange(i, 0, number, a, b, c); }},
      {"range", -621, [](auto* i) { return VORLGetImageVarValueRange(i, number, a, b, c); }},
      {"index", -1100, [](auto* i) { return VORLGetImageOneVarValueIndex(i, 0, 1, a, number); }},
      {"numbers missing", -621, [](auto* i) { return VORLGetImageNumberVarValueMissing(i, number); }},
      {"nodes missing", -621, [](auto* i) { return VORLGetImageVarVectorMissing(i, flags, number); }},
      {"statistics", -621, [](auto* i) { return VORLGetImageVarStats(i, counts, a, a + 1, b, rows); }},
      {"linear transform", -1100, [](auto* i) { return VORLTransformLinearImageVar(i, 0, 2.0, 1.0); }},
      {"explicit transform", -1100, [](auto* i) { return VORLTransformExplicitImageVar(i, 0, 1, a, b); }}};
  const auto add = [&](const char* name, int withoutVariables, std::function<int(VORL_IMAGE*)> call) {
    all.push_back({name, withoutVariables, std::move(call)});
  };
  for (const int ncategory : {0, 1}) {
    add("local statistics", -621, [ncategory](auto* image) {
      return Made([&](auto* out) { return VORLGetImageVarStatsLocal(image, out, ncategory, a); });
    });
  }
  for (const bool several : {false, true}) {
    for (const bool one : {true, false}) {
      add("distribution", one ? -1100 : -621, [=](auto* image) {
        int nvalue = 0, nmissing = 0;
        real* value = nullptr;
        double* pdf = nullptr;
        static TestImage sound = SoundImage();
        std::vector<VORL_IMAGE> images{sound, *image};
        if (several && image->nvar < 1) images.erase(images.begin());
        const int n = static_cast<int>(images.size());
        const int status =
            several ? one ? VORLGetNImageOneVarValuePdf(n, images.data(), 0, &nvalue, &value, &pdf, &nmissing)
                          : VORLGetNImageVarValuePdf(n, images.data(), &nvalue, &value, &pdf, &nmissing)
            : one ? VORLGetImageOneVarValuePdf(image, 0, &nvalue, &value, &pdf, &nmissing)
                    : VORLGetImageVarValuePdf(image, &nvalue, &value, &pdf, &nmissing);
        EXPECT_EQ(value == nullptr, status != 0);
        VORLFree(value);
        VORLFree(pdf);
        return status;
      });
    }
  }
  add("report", -621, [](auto* image) {
    return WriteStatus([&](FILE* stream) { return VORLPrintImageInfo(image, prefix, stream, 10); });
  });
  add("copy", 0, [](auto* image) { return Made([&](auto* out) { return VORLCopyImage(out, image); }); });
  for (const int fileFormat : {0, 1}) {
    add("text file", 0, [=](auto* image) {
      return WriteStatus([&](FILE* stream) { return VORLWriteImage(image, format, fileFormat, stream); });
    });
  }
  add("binary file", 0,
      [](auto* image) { return WriteStatus([&](FILE* stream) { return VORLWriteImageGslibBinary(image, stream); }); });
  return all;
}

std::vector<Function> ConversionFunctions() {
  std::vector<Function> all;
  const auto add = [&](const char* name, int withoutVariables, std::function<int(VORL_IMAGE*)> call) {
    all.push_back({name, withoutVariables, std::move(call)});
  };
  add("line", 0,
      [](auto* image) { return Made([&](auto* out) { return VORLImageExtract1D(image, out, 1, 1, 1, 1, 0, 0, 1); }); });
  add("plane", 0, [](auto* image) {
    return Made([&](auto* out) { return VORLImageExtract2D(image, out, 1, 1, 1, 1, 0, 0, 0, 1, 0, 1, 1); });
  });
  add("box", 0, [](auto* image) {
    return Made(
        [&](auto* out) { return VORLImageExtract3D(image, out, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1000); });
  });
  for (const BOOLEAN merge : {FALSE, TRUE}) {
    const auto move = [merge](VORL_IMAGE* source, VORL_IMAGE* target) {
      int nvarIgnored = 0, nconflict = 0;
      return VORLImageToImage(source, target, nullptr, nullptr, 1, 1, &nvarIgnored, &nconflict, merge);
    };
    add("source of an image", 0, [=](auto* image) {
      static TestImage target = SoundImage();
      return move(image, &target);
    });
    add("target of an image", 0, [=](auto* image) {
      static TestImage source = SoundImage();
      return move(&source, image);
    });
  }
  for (const char* name : {"v", "v_min"}) {
    add("target of points", 0, [=](auto* image) {
      real xy[] = {0.5, 3.5}, z[] = {0.5, 1.5}, values[] = {5.0, 6.0}, *min[] = {nullptr}, *max[] = {nullptr};
      std::string text(name);
      text.resize(VORL_VARNAME_LENGTH);
      char* names[] = {text.data()};
      VORL_POINTSET points{2, xy, z, z, 1, names, values};
      int nvarIgnored = 0, npointDropped = 0, nconflict = 0;
      const int status =
          VORLPointSetToImage(&points, image, min, max, 1, 1, 1, &nvarIgnored, &npointDropped, &nconflict);
      VORLFree(min[0]);
      return status;
    });
  }
  add("points", -165, [](auto* image) {
    Points out;
    const int status = VORLImageToPointSet(image, &out);
    EXPECT_EQ(out.var == nullptr, status != 0);
    return status;
  });
  add("window", -621,
      [](auto* image) { return Made([&](auto* out) { return VORLResizeImage(image, out, 0, 5, 0, 2, 0, 1, 0, 0); }); });
  return all;
}

std::vector<Function> AnalysisFunctions() {
  std::vector<Function> all;
  const auto curve = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    std::vector<real> t(2), gamma(2), complement(2);
    return form(image, 2, 0.5, 1.0, t.data(), gamma.data(), complement.data(), FALSE, nthreads...);
  };
  AddForms(all, "curve", -52, curve, VORLImageConnectivity6GlobalIndicatorCurve,
           VORLImageConnectivity18GlobalIndicatorCurve, VORLImageConnectivity26GlobalIndicatorCurve,
           VORLOMPImageConnectivity6GlobalIndicatorCurve, VORLOMPImageConnectivity18GlobalIndicatorCurve,
           VORLOMPImageConnectivity26GlobalIndicatorCurve);
  const auto euler = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    std::vector<real> t(2);
    std::vector<int> number(2), complement(2);
    return form(image, 2, 0.5, 1.0, t.data(), number.data(), complement.data(), FALSE, nthreads...);
  };
  AddForms(all, "Euler curve", -52, euler, VORLImageConnectivity6EulerNumberCurve,
           VORLOMPImageConnectivity6EulerNumberCurve);
  const auto sizes = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    std::vector<real> t(2);
    std::vector<int> size(2), x(2), y(2), z(2);
    return form(image, 2, 0.5, 1.0, t.data(), size.data(), x.data(), y.data(), z.data(), FALSE, nthreads...);
  };
  AddForms(all, "size curve", -52, sizes, VORLImageMaxGeobody6SizeCurve, VORLImageMaxGeobody18SizeCurve,
           VORLImageMaxGeobody26SizeCurve, VORLOMPImageMaxGeobody6SizeCurve, VORLOMPImageMaxGeobody18SizeCurve,
           VORLOMPImageMaxGeobody26SizeCurve);
  const auto distanceCurve = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    int n = 0;
    real *thresholds = nullptr, *gamma = nullptr, *complement = nullptr;
    const int status = form(image, 0.5, &n, &thresholds, &gamma, &complement, FALSE, nthreads...);
    for (real* vector : {thresholds, gamma, complement}) VORLFree(vector);
    return status;
  };
  AddForms(all, "distance curve", -52, distanceCurve, VORLImageDistanceL1Connectivity6GlobalIndicatorCurve,
           VORLImageDistanceL1Connectivity18GlobalIndicatorCurve, VORLImageDistanceL1Connectivity26GlobalIndicatorCurve,
           VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve,
           VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve,
           VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve,
           VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve,
           VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve,
           VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve,
           VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve,
           VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve,
           VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve);

  const auto map = [](auto form, VORL_IMAGE* image, auto... more) {
    return Made([&](auto* out) { return form(image, out, more...); });
  };
  AddForms(all, "distances", -621, map, VORLImageDistanceL1, VORLImageDistanceEuclidean, VORLImageDistanceL1Sign,
           VORLImageDistanceEuclideanSign, VORLOMPImageDistanceL1, VORLOMPImageDistanceEuclidean,
           VORLOMPImageDistanceL1Sign, VORLOMPImageDistanceEuclideanSign);
  const auto trial = [=](auto form, VORL_IMAGE* image) { return map(form, image, BOOLEAN{FALSE}); };
  AddForms(all, "distances by trial", -621, trial, VORLImageDistanceL1BruteForce, VORLImageDistanceEuclideanBruteForce);
  const auto dilation = [=](auto form, VORL_IMAGE* image) { return map(form, image, 1, oneX, oneY, oneZ); };
  AddForms(all, "distance by dilation", -621, dilation, VORLImageDistanceByDilation);
  const auto morphology = [=](auto form, VORL_IMAGE* image, auto... nthreads) {
    return map(form, image, 1, oneX, oneY, oneZ, 1, BOOLEAN{FALSE}, nthreads...);
  };
  AddForms(all, "morphology", -621, morphology, VORLImageDilate, VORLImageErode, VORLOMPImageDilate, VORLOMPImageErode);
  const auto pyramid = [=](auto form, VORL_IMAGE* image, auto... nthreads) {
    return map(form, image, 1, 1, 1, -1.0, -1.0, -1.0, -1.0, nthreads...);
  };
  AddForms(all, "pyramid", -621, pyramid, VORLImagePyramidReduce, VORLImagePyramidExpand, VORLOMPImagePyramidReduce,
           VORLOMPImagePyramidExpand);
  const auto lags = [=](auto form, VORL_IMAGE* image, auto... nthreads) {
    return map(form, image, 0, -1, 1, 1, -1, 1, 1, 0, 1, 1, BOOLEAN{FALSE}, nthreads...);
  };
  AddForms(all, "two points", -1100, lags, VORLImageVariogram, VORLImageCovariance, VORLImageCovarianceNotCentred,
           VORLImageCorrelogram, VORLImageTransiogram, VORLImageConnectivityFunction0, VORLImageConnectivityFunction1,
           VORLImageConnectivityFunction2, VORLOMPImageVariogram, VORLOMPImageCovariance,
           VORLOMPImageCovarianceNotCentred, VORLOMPImageCorrelogram, VORLOMPImageTransiogram,
           VORLOMPImageConnectivityFunction0, VORLOMPImageConnectivityFunction1, VORLOMPImageConnectivityFunction2);
  const auto average = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    return Made([&](auto* out) { return form(3.0, 1.0, 1.0, image, out, TRUE, 1.0, FALSE, nthreads...); });
  };
  AddForms(all, "box average", -621, average, VORLMovingBoxAverageImage, VORLOMPMovingBoxAverageImage);
  const auto listAverage = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    real weight[] = {1.0};
    VORL_SEARCHNEIGHBORHOOD list{1, oneX, oneY, oneZ, weight, weight, 0, 0, 0, 1, 1, 1};
    return Made([&](auto* out) { return form(&list, image, out, FALSE, 0.0, FALSE, nthreads...); });
  };
  AddForms(all, "list average", -621, listAverage, VORLMovingSearchNeighborhoodAverageImage,
           VORLOMPMovingSearchNeighborhoodAverageImage);

  const auto inInterval = [](auto form, VORL_IMAGE* image, auto* out, auto... nthreads) {
    real lower[] = {0.5}, upper[] = {1.5};
    int number = 0;
    return form(image, out, 0, FALSE, 1, lower, upper, FALSE, FALSE, &number, nthreads...);
  };
  const auto labels = [=](auto form, VORL_IMAGE* image, auto... nthreads) {
    return Made([&](auto* out) { return inInterval(form, image, out, nthreads...); });
  };
  AddForms(all, "labels", -1100, labels, VORLImageIndicator, VORLImageGeobody6, VORLImageGeobody18, VORLImageGeobody26,
           VORLOMPImageIndicator);
  const auto vectorOfLabels = [=](auto form, VORL_IMAGE* image) {
    return inInterval(form, image, std::vector<int>(kNodes).data());
  };
  AddForms(all, "vector of labels", -1100, vectorOfLabels, VORLImageIndicatorVector, VORLImageGeobody6Vector,
           VORLImageGeobody18Vector, VORLImageGeobody26Vector);
  const auto geobodySizes = [](auto form, VORL_IMAGE* image) {
    int n = 0, *out[4] = {};
    const int status = form(image, &n, &out[0], &out[1], &out[2], &out[3]);
    for (int* vector : out) VORLFree(vector);
    return status;
  };
  AddForms(all, "geobody sizes", -52, geobodySizes, VORLImageGeobodySize);
  const auto indicator = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    int count = 0, n = 0, *size = nullptr;
    double gamma = 0.0;
    const int status = form(image, 0, &count, &n, &size, &gamma, nthreads...);
    VORLFree(size);
    return status;
  };
  AddForms(all, "connectivity", -1100, indicator, VORLImageConnectivityGlobalIndicator,
           VORLOMPImageConnectivityGlobalIndicator);
  const auto eulerNumber = [](auto form, VORL_IMAGE* image, auto... nthreads) {
    int number = 0;
    return form(image, 0, &number, nthreads...);
  };
  AddForms(all, "Euler number", -1100, eulerNumber, VORLImageConnectivityEulerNumber,
           VORLOMPImageConnectivityEulerNumber);
  return all;
}

std::vector<Function> Functions() {
  std::vector<Function> functions = StatisticsFunctions();
  for (const auto& family : {ConversionFunctions(), AnalysisFunctions()}) {
    functions.insert(functions.end(), family.begin(), family.end());
  }
  return functions;
}

TEST(FailingAllocations, OfEveryFunctionOfAnImage) {
  TestImage image = SoundImage();
  for (const Function& function : Functions()) {
    SCOPED_TRACE(function.name);
    ASSERT_EQ(function.call(&image), 0);
    ForEachFailingAllocation([&] { return function.call(&image); }, false);
  }
}

TEST(HalfFilledRecords, Images) {
  const struct {
    const char* what;
    int status;  // 0: that of the function for an image without variables
    void (*spoil)(VORL_IMAGE&, VORL_GRID&);
  } spoils[] = {
      {"no grid", -20, [](VORL_IMAGE& image, VORL_GRID&) { image.grid = nullptr; }},
      {"no variables", 0, [](VORL_IMAGE& image, VORL_GRID&) { image.nvar = image.nxyzv = 0; }},
      {"no names", -20, [](VORL_IMAGE& image, VORL_GRID&) { image.varName = nullptr; }},
      {"no values", -20, [](VORL_IMAGE& image, VORL_GRID&) { image.var = nullptr; }},
      {"nxy", -611, [](VORL_IMAGE&, VORL_GRID& grid) { grid.nxy = 0; }},
      {"nxyz", -611, [](VORL_IMAGE&, VORL_GRID& grid) { grid.nxyz = 0; }},
      {"neither", -611, [](VORL_IMAGE&, VORL_GRID& grid) { grid.nxy = grid.nxyz = 0; }},
      {"nxyz too large", -611, [](VORL_IMAGE& image, VORL_GRID& grid) { image.nxyzv = ++grid.nxyz; }},
      {"another nz", -611, [](VORL_IMAGE&, VORL_GRID& grid) { grid.nz = 3; }},
      {"an nz that no int holds", -611, [](VORL_IMAGE&, VORL_GRID& grid) { grid.nz = INT_MAX; }},
      {"nxyzv", -625, [](VORL_IMAGE& image, VORL_GRID&) { image.nxyzv = 0; }},
      {"nxyzv too small", -625, [](VORL_IMAGE& image, VORL_GRID&) { --image.nxyzv; }},
  };
  for (const Function& function : Functions()) {
    SCOPED_TRACE(function.name);
    TestImage sound = SoundImage();
    ASSERT_EQ(function.call(&sound), 0);
    const std::vector<double> values = sound.Values();
    for (const auto& [what, status, spoil] : spoils) {
      VORL_GRID grid = *sound.grid;
      VORL_IMAGE image = sound;
      image.grid = &grid;
      spoil(image, grid);
      EXPECT_EQ(function.call(&image), status != 0 ? status : function.withoutVariables) << what;
    }
    // Sizes below 1 may break a rule of the function before.
    for (const int size : {0, -4}) {
      VORL_GRID grid = *sound.grid;
      grid.nx = size;
      VORL_IMAGE image = sound;
      image.grid = &grid;
      EXPECT_NE(function.call(&image), 0) << size;
    }
    EXPECT_EQ(sound.Values(), values);
  }
}

TEST(HalfFilledRecords, PointSetsAndGrids) {
  static real x[] = {0.5, 1.5}, values[] = {1.0, 2.0};
  static char name[VORL_VARNAME_LENGTH] = "v", prefix[] = "", format[] = "%g";
  static char* names[] = {name};
  const auto atNodes = [](VORL_POINTSET* ps, VORL_GRID* grid) {
    int id[2];
    return VORLGetIndexInGridForPointSet(ps, grid, id, 1);
  };
  const auto atCells = [](VORL_POINTSET* ps, VORL_GRID* grid) {
    int ix[2], iy[2], iz[2];
    return VORLGetXYZIndexInGridForPointSet(ps, grid, ix, iy, iz, 1);
  };
  TestImage image = SoundImage();
  const std::function<int(VORL_POINTSET*)> functions[] = {
      [&](auto* ps) { return atNodes(ps, image.grid); },
      [&](auto* ps) { return atCells(ps, image.grid); },
      [](auto* ps) {
        Points copy;
        return VORLCopyPointSet(&copy, ps);
      },
      [](auto* ps) { return WriteStatus([&](FILE* stream) { return VORLPrintPointSetInfo(ps, prefix, stream); }); },
      [](auto* ps) { return WriteStatus([&](FILE* stream) { return VORLWritePointSet(ps, format, format, stream); }); },
      [&](auto* ps) {
        int nvarIgnored = 0, npointDropped = 0, nconflict = 0;
        return VORLPointSetToImage(ps, &image, nullptr, nullptr, 1, 1, 1, &nvarIgnored, &npointDropped, &nconflict);
      }};
  for (const auto& function : functions) {
    VORL_POINTSET sound{2, x, x, x, 1, names, values};
    EXPECT_EQ(function(&sound), 0);
    for (real* VORL_POINTSET::*const vector :
         {&VORL_POINTSET::x, &VORL_POINTSET::y, &VORL_POINTSET::z, &VORL_POINTSET::var}) {
      VORL_POINTSET ps = sound;
      ps.*vector = nullptr;
      EXPECT_EQ(function(&ps), -20);
    }
    sound.varName = nullptr;
    EXPECT_EQ(function(&sound), -20);
  }
  VORL_POINTSET sound{2, x, x, x, 1, names, values}, none{};
  for (int VORL_GRID::*const field :
       {&VORL_GRID::nx, &VORL_GRID::ny, &VORL_GRID::nz, &VORL_GRID::nxy, &VORL_GRID::nxyz}) {
    for (const int number : {0, 5}) {
      VORL_GRID grid = *image.grid;
      grid.*field = number;
      EXPECT_TRUE(atNodes(&sound, &grid) == -601 && atCells(&sound, &grid) == -601);
      EXPECT_TRUE(atNodes(&none, &grid) == 0 && atCells(&none, &grid) == 0);
    }
  }
}

TEST(HalfFilledRecords, SearchNeighborhoods) {
  int x[] = {0, 2}, y[] = {0, -1}, z[] = {0, 0};
  real keys[] = {0.0, 1.0};
  const VORL_SEARCHNEIGHBORHOOD sound{2, x, y, z, keys, keys, 0, -1, 0, 2, 0, 0};
  using List = VORL_SEARCHNEIGHBORHOOD;
  const auto status = [](List list) {
    TestImage image;
    return VORLSearchNeighborhoodToImage(&list, &image);
  };
  EXPECT_EQ(status(sound), 0);
  const auto with = [&](auto List::*field, auto value) {
    List list = sound;
    list.*field = value;
    return status(list);
  };
  for (int* List::*const offsets : {&List::ix, &List::iy, &List::iz}) EXPECT_EQ(with(offsets, nullptr), -20);
  for (real* List::*const numbers : {&List::distance, &List::weight}) EXPECT_EQ(with(numbers, nullptr), -20);
  for (const int size : {0, -1}) EXPECT_EQ(with(&List::size, size), -688);
  // A box that an offset leaves: one that was never computed, or one of another list.
  EXPECT_EQ(with(&List::ixMax, 1), -688);
  EXPECT_EQ(with(&List::ixMin, 1), -688);
  EXPECT_EQ(with(&List::iyMin, 0), -688);
  EXPECT_EQ(with(&List::izMax, -1), -3);
  EXPECT_EQ(status({2, x, y, z, keys, keys, 0, 0, 0, 0, 0, 0}), -688);
}

}  // namespace
