// Every function of the image analysis that has a threaded form, and serial ones for which it matters that compilers
// agree, on random images.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

#include "soak/trials.hpp"
#include "support/test_image.hpp"

namespace kestrum_test {
namespace {

constexpr real kMissing = VORL_MISSING_VALUE;

// A serial function and its threaded form.
template <typename Serial, typename Threaded>
struct Twins {
  const char* name;
  Serial* serial;
  Threaded* threaded;
};
template <typename Serial, typename Threaded>
Twins(const char*, Serial*, Threaded*) -> Twins<Serial, Threaded>;
#define TWINS(name) (Twins{"VORL" #name, VORL##name, VORLOMP##name})

template <typename Serial, typename Threaded, typename... Arguments>
void Call(const Twins<Serial, Threaded>& twins, int nthreads, Outcome& outcome, Arguments... arguments) {
  outcome.function = twins.name;
  outcome.status = nthreads == 0 ? twins.serial(arguments...) : twins.threaded(arguments..., nthreads);
}

enum class Kind { kContinuous, kCategories, kIndicator };

std::vector<real> DrawValues(Draw& draw, int n, Kind kind) {
  constexpr real kInfinity = std::numeric_limits<real>::infinity();
  const real missing = draw.Of({0.0, 0.0, 0.15, 0.9});
  const real odd = draw.Chance(0.1) ? 0.05 : 0.0;
  const real share = draw.Of({0.05, 0.4, 0.7, 0.97});
  std::vector<real> values(static_cast<std::size_t>(n));
  for (real& value : values) {
    value = kind == Kind::kContinuous   ? draw.Real(-5.0, 20.0)
            : kind == Kind::kCategories ? draw.Int(0, 4)
                                        : static_cast<real>(draw.Chance(share));
    if (draw.Chance(missing)) value = kMissing;
    if (draw.Chance(odd)) value = draw.Of({-0.0, 1e300, 5e-324, kInfinity, -kInfinity, std::nan("")});
  }
  return values;
}

Kind DrawKind(Draw& draw) { return draw.Of({Kind::kContinuous, Kind::kCategories, Kind::kIndicator}); }

// An image of nvar variables.
struct DrawnImage : TestImage {
  DrawnImage(Draw& draw, Kind kind, int maxNodes = 4000, int nvarMax = 1)
      : DrawnImage{draw, kind, DrawGrid(draw, maxNodes), draw.Int(1, nvarMax)} {}
  DrawnImage(Draw& draw, Kind kind, const VORL_GRID& imageGrid, int nvariable)
      : TestImage(imageGrid, std::vector<std::string>(static_cast<std::size_t>(nvariable), "v"),
                  DrawValues(draw, nvariable * imageGrid.nxyz, kind)) {}
};

// A function that makes an image of an image.
template <typename Pair, typename... Arguments>
void Map(const Pair& twins, int nthreads, Outcome& outcome, VORL_IMAGE& in, Arguments... arguments) {
  TestImage out;
  Call(twins, nthreads, outcome, &in, &out, arguments...);
  if (outcome.status == 0) outcome.Add(out);
}

void DistanceMap(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kTable = {TWINS(ImageDistanceL1), TWINS(ImageDistanceEuclidean),
                                        TWINS(ImageDistanceL1Sign), TWINS(ImageDistanceEuclideanSign)};
  DrawnImage in(draw, Kind::kIndicator, 4000, 3);
  Map(draw.Of(kTable), nthreads, outcome, in);
}

void PathDistance(Draw& draw, int nthreads, Outcome& outcome) {
  const VORL_GRID g = DrawGrid(draw, 4000);
  std::vector<int> mask = draw.Ints(g.nxyz, 0, draw.Of({0, 1, 1, 30}));
  const BOOLEAN zeroIsFeature = draw.Chance(0.5);
  std::vector<real> distance(mask.size());
  Call(TWINS(DistanceEuclidean), nthreads, outcome, g.sx, g.sy, g.sz, g.nx, g.ny, g.nz, zeroIsFeature, mask.data(),
       distance.data());
  outcome.Add(distance);
}

void TwoPoint(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kTable = {TWINS(ImageVariogram),
                                        TWINS(ImageCovariance),
                                        TWINS(ImageCovarianceNotCentred),
                                        TWINS(ImageCorrelogram),
                                        TWINS(ImageTransiogram),
                                        TWINS(ImageConnectivityFunction0),
                                        TWINS(ImageConnectivityFunction1),
                                        TWINS(ImageConnectivityFunction2)};
  const int which = draw.Int(0, 7);
  DrawnImage in(draw, which < 4 ? DrawKind(draw) : which == 4 ? Kind::kIndicator : Kind::kCategories, 2500, 2);
  int lag[3][3];
  const int size[] = {in.grid->nx, in.grid->ny, in.grid->nz};
  for (int a = 0; a < 3; ++a) {
    const int reach = std::min(size[a] - 1, 7);
    lag[a][0] = draw.Int(-reach, reach);
    lag[a][1] = draw.Int(lag[a][0], reach);
    lag[a][2] = draw.Int(1, 3);
  }
  Map(kTable[which], nthreads, outcome, in, draw.Int(0, in.nvar - 1), lag[0][0], lag[0][1], lag[0][2], lag[1][0],
      lag[1][1], lag[1][2], lag[2][0], lag[2][1], lag[2][2], FALSE);
}

void Morphology(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kTable = {TWINS(ImageDilate), TWINS(ImageErode)};
  DrawnImage in(draw, Kind::kIndicator, 4000, 2);
  const int nshift = draw.Int(0, 12), reach = draw.Of({1, 2, 60}), niter = draw.Int(0, 4);
  std::vector<int> x = draw.Ints(nshift, -reach, reach);
  std::vector<int> y = draw.Ints(nshift, -reach, reach);
  std::vector<int> z = draw.Ints(nshift, -reach, reach);
  Map(draw.Of(kTable), nthreads, outcome, in, nshift, x.data(), y.data(), z.data(), niter, FALSE);
}

void BoxAverage(Draw& draw, int nthreads, Outcome& outcome) {
  DrawnImage in(draw, DrawKind(draw), 4000, 3);
  const VORL_GRID& g = *in.grid;
  const real x = g.sx * draw.Real(0.3, std::min(g.nx, 9)), y = g.sy * draw.Real(0.3, std::min(g.ny, 9));
  const real z = g.sz * draw.Real(0.3, std::min(g.nz, 9));
  TestImage out;
  Call(TWINS(MovingBoxAverageImage), nthreads, outcome, x, y, z, &in, &out, static_cast<BOOLEAN>(draw.Chance(0.4)), 1.0,
       FALSE);
  if (outcome.status == 0) outcome.Add(out);
}

void BoxSum(Draw& draw, int nthreads, Outcome& outcome) {
  DrawnImage in(draw, DrawKind(draw), 4000, 2);
  const VORL_GRID& g = *in.grid;
  std::vector<real> kernel[3], sums(static_cast<std::size_t>(in.nxyzv));
  for (auto& k : kernel) k = draw.Reals(draw.Int(1, 6), 0.1, 1.0);
  Call(TWINS(MovingBoxSum), nthreads, outcome, g.nx, g.ny, g.nz, in.nvar, static_cast<int>(kernel[0].size()),
       static_cast<int>(kernel[1].size()), static_cast<int>(kernel[2].size()), kernel[0].data(), kernel[1].data(),
       kernel[2].data(), in.var, sums.data(), draw.Real(0.0, 1.0));
  outcome.Add(sums);
}

void NeighborhoodAverage(Draw& draw, int nthreads, Outcome& outcome) {
  DrawnImage in(draw, DrawKind(draw), 4000, 2);
  const int size = draw.Int(1, 40), reach = draw.Of({1, 3, 8, 50});
  std::vector<int> x = draw.Ints(size, -reach, reach), y = draw.Ints(size, -reach, reach);
  std::vector<int> z = draw.Ints(size, -1, 1);
  std::vector<real> weight = draw.Reals(size, 0.0, 1.0);
  VORL_SEARCHNEIGHBORHOOD offsets{size, x.data(), y.data(), z.data(), nullptr, weight.data(), 0, 0, 0, 0, 0, 0};
  TestImage out;
  Call(TWINS(MovingSearchNeighborhoodAverageImage), nthreads, outcome, &offsets, &in, &out,
       static_cast<BOOLEAN>(draw.Chance(0.4)), 1.0, FALSE);
  if (outcome.status == 0) outcome.Add(out);
}

void Pyramid(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kTable = {TWINS(ImagePyramidReduce), TWINS(ImagePyramidExpand)};
  const bool expand = draw.Chance(0.5);
  DrawnImage in(draw, DrawKind(draw), expand ? 300 : 4000, 3);
  int step[3];
  const int size[] = {in.grid->nx, in.grid->ny, in.grid->nz};
  for (int a = 0; a < 3; ++a) step[a] = size[a] == 1 ? 0 : draw.Int(0, expand ? 3 : std::min(size[a] - 1, 9));
  const real central = draw.Of({-1.0, 0.3, 0.5}), minimum = draw.Of({-1.0, 0.01, 0.9});
  Map(kTable[expand], nthreads, outcome, in, step[0], step[1], step[2], central, -1.0, central, minimum);
}

void Indicator(Draw& draw, int nthreads, Outcome& outcome) {
  DrawnImage in(draw, DrawKind(draw), 4000, 2);
  const int n = draw.Int(1, 3);
  std::vector<real> lower = draw.Reals(n, -5.0, 5.0), upper = draw.Reals(n, -2.0, 20.0);
  if (draw.Chance(0.5)) lower[0] = 1.0;
  BOOLEAN flags[3];
  for (BOOLEAN& flag : flags) flag = draw.Chance(0.5);
  int count = -1;
  Map(TWINS(ImageIndicator), nthreads, outcome, in, draw.Int(0, in.nvar - 1), flags[0], n, lower.data(), upper.data(),
      flags[1], flags[2], &count);
  outcome.Add(count);
}

void Geobodies(Draw& draw, int, Outcome& outcome) {
  static constexpr std::array kTable = {VORLImageGeobody6, VORLImageGeobody18, VORLImageGeobody26};
  DrawnImage in(draw, Kind::kIndicator);
  TestImage out;
  int count = -1;
  real lower = 0.5, upper = 1.5;
  outcome.status = draw.Of(kTable)(&in, &out, 0, FALSE, 1, &lower, &upper, FALSE, FALSE, &count);
  outcome.Add(count);
  if (outcome.status == 0) outcome.Add(out);
}

void Curve(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kGamma = {TWINS(ImageConnectivity6GlobalIndicatorCurve),
                                        TWINS(ImageConnectivity18GlobalIndicatorCurve),
                                        TWINS(ImageConnectivity26GlobalIndicatorCurve)};
  static constexpr std::array kSize = {TWINS(ImageMaxGeobody6SizeCurve), TWINS(ImageMaxGeobody18SizeCurve),
                                       TWINS(ImageMaxGeobody26SizeCurve)};
  DrawnImage in(draw, DrawKind(draw), 1500);
  const int n = draw.Int(1, 12), kind = draw.Int(0, 2);
  // The threaded forms multiply where the serial ones add; both are exact here.
  const real begin = draw.Of({-6.0, 0.0, 5.0}), step = draw.Int(1, 24) / 8.0;
  const auto length = static_cast<std::size_t>(n);
  std::vector<real> thresholds(length), gamma(length), complement(length);
  std::vector<int> counts[4];
  for (auto& c : counts) c.resize(length);
  if (kind == 0) {
    Call(draw.Of(kGamma), nthreads, outcome, &in, n, begin, step, thresholds.data(), gamma.data(), complement.data(),
         FALSE);
  } else if (kind == 1) {
    Call(draw.Of(kSize), nthreads, outcome, &in, n, begin, step, thresholds.data(), counts[0].data(), counts[1].data(),
         counts[2].data(), counts[3].data(), FALSE);
  } else {
    Call(TWINS(ImageConnectivity6EulerNumberCurve), nthreads, outcome, &in, n, begin, step, thresholds.data(),
         counts[0].data(), counts[1].data(), FALSE);
  }
  for (const auto* curve : {&thresholds, &gamma, &complement}) outcome.Add(*curve);
  for (const auto& c : counts) outcome.Add(c);
}

void DistanceCurve(Draw& draw, int nthreads, Outcome& outcome) {
  static constexpr std::array kTable = {TWINS(ImageDistanceL1Connectivity6GlobalIndicatorCurve),
                                        TWINS(ImageDistanceL1Connectivity18GlobalIndicatorCurve),
                                        TWINS(ImageDistanceL1Connectivity26GlobalIndicatorCurve),
                                        TWINS(ImageDistanceEuclideanConnectivity6GlobalIndicatorCurve),
                                        TWINS(ImageDistanceEuclideanConnectivity18GlobalIndicatorCurve),
                                        TWINS(ImageDistanceEuclideanConnectivity26GlobalIndicatorCurve)};
  DrawnImage in(draw, Kind::kIndicator, 1500);
  int n = 0;
  real* curve[3] = {};
  const real step = draw.Real(0.5, 4.0);
  Call(draw.Of(kTable), nthreads, outcome, &in, step, &n, &curve[0], &curve[1], &curve[2], FALSE);
  for (real* values : curve) {
    if (outcome.status == 0) outcome.Add(values, static_cast<std::size_t>(n));
    VORLFree(values);
  }
}

void Connectivity(Draw& draw, int nthreads, Outcome& outcome) {
  DrawnImage in(draw, draw.Of({Kind::kCategories, Kind::kIndicator}), 4000, 2);
  const int variable = draw.Int(0, in.nvar - 1);
  int nodeCount = -1, ngeobody = -1, euler = 0;
  int* size = nullptr;
  double gamma = -1.0;
  if (draw.Chance(0.5)) {
    Call(TWINS(ImageConnectivityEulerNumber), nthreads, outcome, &in, variable, &euler);
    return outcome.Add(euler);
  }
  Call(TWINS(ImageConnectivityGlobalIndicator), nthreads, outcome, &in, variable, &nodeCount, &ngeobody, &size, &gamma);
  for (const int count : {nodeCount, ngeobody}) outcome.Add(count);
  outcome.Add(gamma);
  if (size != nullptr) outcome.Add(size, static_cast<std::size_t>(ngeobody));
  VORLFree(size);
}

void KMeans(Draw& draw, int nthreads, Outcome& outcome) {
  const int n = draw.Of({draw.Int(1, 20), draw.Int(20, 700)}), nfeature = draw.Int(1, 4);
  const int ncluster = draw.Int(1, std::min(n, 9)), nfixed = draw.Chance(0.3) ? draw.Int(0, ncluster) : 0;
  std::vector<std::vector<real>> data, center;
  for (int f = 0; f < nfeature; ++f) {
    data.push_back(draw.Reals(n, -3.0, 3.0));
    if (f == 0 && draw.Chance(0.3))
      std::transform(data[0].begin(), data[0].end(), data[0].begin(), [](real v) { return std::round(v); });
    center.push_back(draw.Reals(ncluster, -3.0, 3.0));
  }
  std::vector<real*> dataRows, centerRows;
  for (auto& row : data) dataRows.push_back(row.data());
  for (auto& row : center) centerRows.push_back(row.data());
  std::vector<char> mask(static_cast<std::size_t>(n), 1);
  for (char& m : mask) m = draw.Chance(0.9);
  std::vector<real> weight = draw.Reals(n, 0.1, 2.0), clusterWeight(center[0].size());
  std::vector<int> assignment(mask.size(), -5), size(center[0].size());
  double inertia = 0.0;
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  VORLDoubleRand(draw.Int(1, 1000), &context);
  char* const usedMask = draw.Chance(0.3) ? mask.data() : nullptr;
  real* const usedWeight = draw.Chance(0.5) ? weight.data() : nullptr;
  const int itMax = draw.Int(1, 30), nstart = draw.Int(0, 4), mode = draw.Int(0, 1);
  Call(TWINS(KMeans), nthreads, outcome, n, nfeature, ncluster, nfixed, dataRows.data(), usedMask, 1e-4, usedWeight,
       centerRows.data(), clusterWeight.data(), assignment.data(), size.data(), &inertia, itMax, nstart, mode,
       &context);
  for (const auto& row : center) outcome.Add(row);
  for (const auto* numbers : {&assignment, &size}) outcome.Add(*numbers);
  outcome.Add(clusterWeight);
  outcome.Add(inertia);
  outcome.Add(VORLDoubleRand(0, &context));
}

void CategoryOrder(Draw& draw, int nthreads, Outcome& outcome) {
  const VORL_GRID g = DrawGrid(draw, 4000);
  const int nvalue = draw.Int(1, 7);
  std::vector<int> index = draw.Ints(g.nxyz, -1, nvalue - 1), rank(static_cast<std::size_t>(nvalue), -7);
  std::vector<int> sequence(rank), counts(static_cast<std::size_t>(nvalue * nvalue));
  std::vector<int*> rows;
  for (int v = 0; v < nvalue; ++v) rows.push_back(&counts[static_cast<std::size_t>(v * nvalue)]);
  const BOOLEAN x = g.nx > 1, y = g.ny > 1 && draw.Chance(0.8), z = g.nz > 1 && draw.Chance(0.8);
  const int which = draw.Int(0, 2);
  int nx[] = {g.nx, g.nx}, ny[] = {g.ny, g.ny}, nz[] = {g.nz, g.nz};
  int* both[] = {index.data(), index.data()};
  if (which == 0) {
    Call(TWINS(UpdateTransitionMatrix), nthreads, outcome, g.nx, g.ny, g.nz, index.data(), rows.data(), x, y, z);
  } else if (which == 1) {
    Call(TWINS(GetImageOneVarNewValueIndexOrder), nthreads, outcome, g.nx, g.ny, g.nz, nvalue, index.data(),
         rank.data(), sequence.data(), x, y, z);
  } else {
    Call(TWINS(GetNImageOneVarNewValueIndexOrder), nthreads, outcome, 2, nx, ny, nz, nvalue, both, rank.data(),
         sequence.data(), x, y, z);
  }
  for (const auto* numbers : {&counts, &rank, &sequence}) outcome.Add(*numbers);
}

void Thresholding(Draw& draw, int, Outcome& outcome) {
  const int n = draw.Int(1, 400), nclass = draw.Int(1, 5), which = draw.Int(0, 2);
  std::vector<real> values = draw.Reals(n, 0.0, 1.0), limits(10), classes(values.size());
  std::vector<real> pdf(static_cast<std::size_t>(nclass), 1.0 / nclass);
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  VORLDoubleRand(draw.Int(1, 1000), &context);
  if (which == 0) {
    outcome.status = VORLOtsuThresholding(n, values.data(), nclass, limits.data(), classes.data(), 200, 0.01,
                                          draw.Int(0, 2), &context, FALSE);
  } else if (which == 1) {
    outcome.status = VORLOtsuThresholdingPreCateg(n, values.data(), 20, nclass, limits.data(), classes.data(), FALSE);
  } else {
    outcome.status = VORLPdfThresholding(n, values.data(), nclass, pdf.data(), limits.data(), classes.data());
  }
  for (const auto* result : {&limits, &classes}) outcome.Add(*result);
}

void Transform(Draw& draw, int nthreads, Outcome& outcome) {
  const int n = draw.Int(1, 3000);
  std::vector<real> values = DrawValues(draw, n, DrawKind(draw));
  real x[] = {-5.0, 0.0, 3.0, 20.0}, y[] = {0.0, 1.0, 1.5, 9.0};
  if (draw.Chance(0.5)) {
    const real slope = draw.Real(-2.0, 2.0), offset = draw.Real(-1.0, 1.0);
    Call(TWINS(TransformLinearVector), nthreads, outcome, values.data(), n, slope, offset);
  } else {
    Call(TWINS(TransformExplicitVector), nthreads, outcome, values.data(), n, 4, x, y);
  }
  outcome.Add(values);
}

// Random numbers and orders drawn from them.
void Paths(Draw& draw, int, Outcome& outcome) {
  static constexpr decltype(&VORLPathDistancePdfRandom) kPlain[] = {
      VORLPathDistancePdfRandom, VORLPathDistanceSortRandom, VORLVectorPathDistancePdfRandom,
      VORLVectorPathDistanceSortRandom};
  const VORL_GRID g = DrawGrid(draw, 400);
  std::vector<int> path(static_cast<std::size_t>(g.nxyz)), mask = draw.Ints(g.nxyz, 0, draw.Of({1, 20}));
  std::iota(path.begin(), path.end(), 0);
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  outcome.Add(VORLDoubleRand(draw.Int(-1000, 100000000), &context));
  for (int i = 0; i < 300; ++i) outcome.Add(VORLDoubleRand(0, &context));
  const real strength = draw.Real(0.0, 1.0);
  outcome.status =
      draw.Of(kPlain)(g.sx, g.sy, g.sz, strength, g.nxyz, path.data(), mask.data(), g.nx, g.ny, g.nz, 1, &context);
  outcome.Add(path);
  std::sort(path.begin(), path.end());
  for (int i = 0; i < g.nxyz; ++i) outcome.Expect(path[static_cast<std::size_t>(i)] == i, "not a permutation");
}

}  // namespace

const std::vector<Trial>& AnalysisTrials() {
  static const std::vector<Trial> kTrials = {{"distance map", DistanceMap},
                                             {"path distance", PathDistance},
                                             {"two-point", TwoPoint},
                                             {"morphology", Morphology},
                                             {"box average", BoxAverage},
                                             {"box sum", BoxSum},
                                             {"neighborhood average", NeighborhoodAverage},
                                             {"pyramid", Pyramid},
                                             {"indicator", Indicator},
                                             {"geobodies", Geobodies},
                                             {"curve", Curve},
                                             {"distance curve", DistanceCurve},
                                             {"connectivity", Connectivity},
                                             {"k-means", KMeans},
                                             {"category order", CategoryOrder},
                                             {"thresholding", Thresholding},
                                             {"transform", Transform},
                                             {"paths", Paths}};
  return kTrials;
}

}  // namespace kestrum_test
