// Kriging and simulation of random inputs, continuous and categorical, with either solver; kriging at true places.

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "soak/trials.hpp"
#include "support/run_builder.hpp"

namespace kestrum_test {
namespace {

constexpr real kMissing = VORL_MISSING_VALUE;

// A folder that takes the files of one run.
class OutputFolder {
 public:
  OutputFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrum_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = pattern;
  }
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;
  ~OutputFolder() { std::filesystem::remove_all(path_); }

  std::string Path(const char* name) const { return (path_ / name).string(); }
  // Names and contents of all files but the report, which has times.
  void AddTo(Outcome& outcome) const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      if (entry.path().extension() == ".txt") continue;
      std::ostringstream content;
      content << std::ifstream(entry.path()).rdbuf();
      files[entry.path().filename().string()] = content.str();
    }
    for (const auto& [name, content] : files) outcome.Add(name + content);
  }

 private:
  std::filesystem::path path_;
};

int AbortAtATenth(VORL_PROGRESSMONITOR* monitor) {
  // Other threads look at the flag meanwhile.
  if (monitor->allRealizationProgress >= 10) std::atomic_ref(monitor->abortedJobFlag).store(TRUE);
  return VORLUpdateProgressMonitor0(monitor);
}

// One to three elements. A sound model gives systems that can be solved on any grid.
std::vector<Element> DrawElements(Draw& draw, bool sound) {
  std::vector<Element> elements(static_cast<std::size_t>(draw.Int(1, 3)));
  for (Element& e : elements) {
    e.type = sound ? draw.Of({COV_SPHERICAL, COV_EXPONENTIAL, COV_CUBIC, COV_MATERN, COV_EXPONENTIAL_GENERALIZED})
                   : static_cast<VORL_COVMODELTYPE>(draw.Int(0, 10));
    e.weight = draw.Real(0.1, 2.0);
    for (real* range : {&e.rx, &e.ry, &e.rz}) *range = draw.Real(1.0, draw.Of({4.0, 12.0}));
    if (!sound && draw.Chance(0.05)) e.rz = 0.0;
    e.s = draw.Of({0.5, 1.0, 1.5});
  }
  if (draw.Chance(0.3)) elements.push_back({COV_NUGGET, draw.Real(0.05, 0.5), 1.0, 1.0, 1.0});
  return elements;
}

VORL_IMAGE* DrawParameter(Draw& draw, const VORL_GRID& grid, real low, real high) {
  return NewImage(grid, draw.Reals(grid.nxyz, low, high));
}

// Angles, and parameters that vary over the grid where they may.
void VaryModel(Draw& draw, const VORL_GRID& grid, bool images, VORL_COVMODEL& model) {
  if (draw.Chance(0.4)) model.angle1Value = draw.Real(-90.0, 180.0);
  if (draw.Chance(0.2)) model.angle2Value = draw.Real(-90.0, 90.0);
  if (draw.Chance(0.2)) model.angle3Value = draw.Real(-90.0, 90.0);
  if (!images) return;
  VORL_COVMODELELEM& element = model.covModelElem[draw.Int(0, model.nelem - 1)];
  const int which = draw.Int(1, 31);
  const auto vary = [&](int bit, BOOLEAN& flag, VORL_IMAGE*& image, real low, real high) {
    if ((which & bit) == 0) return;
    flag = TRUE;
    image = DrawParameter(draw, grid, low, high);
  };
  vary(1, model.angle1ImageFlag, model.angle1Image, -90.0, 90.0);
  vary(2, model.angle3ImageFlag, model.angle3Image, -30.0, 30.0);
  vary(4, element.weightImageFlag, element.weightImage, 0.1, 2.0);
  vary(8, element.ryImageFlag, element.ryImage, 1.0, 6.0);
  vary(16, element.sImageFlag, element.sImage, 0.5, 1.5);
}

// What both kinds of run share: where nodes are left out, where files go, how far the neighbours reach.
struct Frame {
  VORL_GRID grid;
  bool sound;
  bool images;
  bool unique;
  bool abort;
  int neighborMax;
  real radius;
  std::vector<real> mask;
  OutputFolder folder;

  explicit Frame(Draw& draw) {
    neighborMax = draw.Chance(0.1) ? -1 : draw.Of({1, 2, 5, 8, 12, 20, 40});
    grid = DrawGrid(draw, neighborMax < 0 ? 60 : 250);
    sound = draw.Chance(0.6);
    images = draw.Chance(0.25);
    unique = !images && draw.Chance(0.4);
    abort = draw.Chance(0.03);
    radius = draw.Of({0.5, 1.0, 1.0, 1.7});
    mask.assign(static_cast<std::size_t>(grid.nxyz), 1.0);
    if (!draw.Chance(0.3)) return;
    const real left = draw.Of({0.1, 0.5, 0.95});
    for (real& m : mask) m = draw.Chance(left) ? 1.0 : 0.0;
    mask[static_cast<std::size_t>(draw.Int(0, grid.nxyz - 1))] = 1.0;
  }

  bool Active(int node) const { return mask[static_cast<std::size_t>(node)] != 0.0; }

  template <typename Input>
  void Apply(Draw& draw, Input& input) const {
    if (std::count(mask.begin(), mask.end(), 0.0) > 0) {
      input.maskImageFlag = TRUE;
      input.maskImage = NewImage(grid, mask);
    }
    input.seed = draw.Of({1, 77, -5, 444, 1000000});
    input.seedIncrement = draw.Of({0, 1, 472, -3});
    input.nrealization = draw.Int(1, 3);
    if (!draw.Chance(0.15)) return;
    input.consoleAppFlag = draw.Chance(0.5);
    input.outputMode = draw.Of({KESTRUM_OUTPUT_ALL_IN_ONE_FILE, KESTRUM_OUTPUT_SEPARATE_FILE});
    input.outputImageFileName = NewText(folder.Path("run.gslib"));
    input.outputReportFlag = draw.Chance(0.5);
    input.outputReportFileName = NewText(folder.Path("report.txt"));
  }

  // Runs, and collects all that came out. False if there is no image to look at.
  template <typename Records>
  bool Run(Records& records, VORL_KESTRUMSOLVER solver, int nthreads, Outcome& outcome) const {
    const auto callback = abort ? AbortAtATenth : VORLUpdateProgressMonitor0;
    long long nfallback = 0;
    outcome.status = solver == KESTRUM_SOLVER_ITERATIVE ? records.Run(nthreads, callback)
                                                        : records.Factorise(nthreads, &nfallback, callback);
    if (abort && outcome.status == -1000) outcome.status = 0;
    if (abort || outcome.status != 0) return false;
    if (solver == KESTRUM_SOLVER_FACTORISING) outcome.Add(static_cast<real>(nfallback));
    folder.AddTo(outcome);
    outcome.Add(records.monitor.nwarning);
    outcome.Add(records.monitor.currentRealization);
    const VORL_IMAGE* const image = records.output.outputImage;
    outcome.Expect((image == nullptr) == (records.input.consoleAppFlag != 0), "image handed out");
    if (image == nullptr) return false;
    outcome.Add(*image);
    for (int i = 0; i < image->nxyzv; ++i) {
      const int node = i % grid.nxyz;
      if (!Active(node)) outcome.Expect(image->var[i] == kMissing, "value at a masked node");
      if (Active(node) && sound) {
        outcome.Expect(std::isfinite(image->var[i]) && image->var[i] != kMissing, "no value at a node");
      }
    }
    return true;
  }
};

bool IsSimulation(VORL_KESTRUMCOMPUTATIONMODE mode) { return mode == KESTRUM_SIM_OK || mode == KESTRUM_SIM_SK; }

// An image of hard data and of bounds, for the variables v, v_min and v_max.
VORL_IMAGE* DrawDataImage(Draw& draw, const VORL_GRID& grid, std::vector<real>& hard, std::vector<real>& bounds) {
  const auto n = static_cast<std::size_t>(grid.nxyz);
  const real share = draw.Of({0.02, 0.2}), boundShare = draw.Of({0.0, 0.05, 0.3});
  std::vector<real> points = hard;
  for (real& value : hard) value = draw.Chance(share) ? draw.Real(0.0, 10.0) : kMissing;
  std::vector<real> values = hard;
  // A datum of a point set replaces that of the image.
  for (std::size_t i = 0; i < n; ++i) hard[i] = points[i] != kMissing ? points[i] : hard[i];
  for (std::size_t i = 0; i < n; ++i) {
    if (!draw.Chance(boundShare) || (hard[i] != kMissing && !draw.Chance(0.01))) continue;
    const real center = draw.Real(0.0, 10.0);
    const int which = draw.Int(0, 2);
    if (which != 1) bounds[i] = center - draw.Real(0.0, 3.0);
    if (which != 0) bounds[n + i] = center + draw.Real(0.0, 3.0);
  }
  values.insert(values.end(), bounds.begin(), bounds.end());
  VORL_IMAGE* const image = NewImage(grid, values);
  std::snprintf(image->varName[1], VORL_VARNAME_LENGTH, "v_min");
  std::snprintf(image->varName[2], VORL_VARNAME_LENGTH, "v_max");
  return image;
}

template <VORL_KESTRUMSOLVER solver>
void Continuous(Draw& draw, int nthreads, Outcome& outcome) {
  const Frame frame(draw);
  const VORL_GRID& grid = frame.grid;
  const auto n = static_cast<std::size_t>(grid.nxyz);
  const std::vector<Element> elements = DrawElements(draw, frame.sound);
  const int npoint = draw.Int(0, std::min(grid.nxyz, 40));
  std::vector<Datum> points = RandomData(grid, npoint, static_cast<unsigned>(draw.Int(0, 1000)));
  if (npoint > 0 && draw.Chance(0.2)) {  // one outside the grid, one twice
    points.push_back({-1, 0, 0, 5.0});
    points.push_back(points[0]);
    points.back().value = 4.0;
  }
  std::vector<real> hard(n, kMissing), bounds(2 * n, kMissing);
  for (const Datum& d : points) {
    if (d.ix >= 0) hard[static_cast<std::size_t>(d.ix + d.iy * grid.nx + d.iz * grid.nxy)] = d.value;
  }
  RunRecords records(grid, elements, points);
  VORL_KESTRUMINPUT& input = records.input;
  input.computationMode = draw.Of({KESTRUM_OK, KESTRUM_SK, KESTRUM_SIM_OK, KESTRUM_SIM_SK});
  const bool simulation = IsSimulation(input.computationMode);
  VaryModel(draw, grid, frame.images, *input.covModel);
  input.searchRadiusRelative = frame.unique && !simulation ? -1.0 : frame.radius;
  input.nneighborMax = frame.neighborMax;
  input.searchNeighborhoodSortMode = draw.Int(0, frame.images ? 1 : 2);
  if (draw.Chance(0.5)) {
    input.ndataImage = 1;
    input.dataImage = DrawDataImage(draw, grid, hard, bounds);
  }
  input.nGibbsSamplerPathMax = draw.Int(1, 6);
  input.meanUsage = draw.Int(0, 2);
  input.meanValue = draw.Real(0.0, 10.0);
  if (input.meanUsage == 2) input.meanImage = DrawParameter(draw, grid, 0.0, 10.0);
  if (!frame.images && (input.computationMode == KESTRUM_SK || input.computationMode == KESTRUM_SIM_SK)) {
    input.varianceUsage = draw.Int(0, 2);
    input.varianceValue = draw.Real(0.1, 4.0);
    if (input.varianceUsage == 2) input.varianceImage = DrawParameter(draw, grid, 0.1, 4.0);
  }
  frame.Apply(draw, input);
  if (!frame.Run(records, solver, nthreads, outcome)) return;

  const VORL_IMAGE& image = *records.output.outputImage;
  const int* const warnings = records.monitor.warningNumberList;
  const bool relaxed = std::count(warnings, warnings + records.monitor.nwarningNumber, 2005) > 0;
  for (int i = 0; i < image.nxyzv; ++i) {
    const auto node = static_cast<std::size_t>(i % grid.nxyz);
    const real value = image.var[i];
    if (!frame.Active(static_cast<int>(node))) continue;
    if (!simulation && i >= grid.nxyz) {
      outcome.Expect(!frame.sound || value >= 0.0, "negative standard deviation");
      outcome.Expect(hard[node] == kMissing || value == 0.0, "deviation at a datum");
    } else if (hard[node] != kMissing) {
      outcome.Expect(std::abs(value - hard[node]) <= 1e-10, "datum not honoured");
    } else if (simulation && frame.sound && !relaxed) {
      if (bounds[node] != kMissing) outcome.Expect(value >= bounds[node] - 1e-6, "below its bound");
      if (bounds[n + node] != kMissing) outcome.Expect(value <= bounds[n + node] + 1e-6, "above its bound");
    }
  }
}

template <VORL_KESTRUMSOLVER solver>
void Categorical(Draw& draw, int nthreads, Outcome& outcome) {
  const Frame frame(draw);
  const VORL_GRID& grid = frame.grid;
  const auto n = static_cast<std::size_t>(grid.nxyz);
  const int ncategory = draw.Int(1, 4);
  std::vector<real> categories, data(n, kMissing);
  for (int c = 0; c < ncategory; ++c) categories.push_back(1.0 + 1.5 * c);
  const real share = draw.Of({0.0, 0.03, 0.3});
  for (real& value : data) {
    const int c = draw.Int(ncategory == 1 ? -1 : 0, ncategory - 1);
    if (draw.Chance(share)) value = c < 0 ? 0.0 : categories[static_cast<std::size_t>(c)];
  }
  IndicatorRunRecords records(grid, DrawElements(draw, frame.sound), categories, data);
  VORL_KESTRUMINDICATORINPUT& input = records.input;
  input.computationMode = draw.Of({KESTRUM_OK, KESTRUM_SK, KESTRUM_SIM_OK, KESTRUM_SIM_SK});
  const bool simulation = IsSimulation(input.computationMode);
  const bool oneModel = draw.Chance(0.5);
  const Draw common = draw;
  const real radius = frame.unique && !simulation ? -1.0 : frame.radius;
  for (int c = 0; c < ncategory; ++c) {
    const bool own = !oneModel && draw.Chance(0.7);
    if (own) records.SetModel(c, DrawElements(draw, frame.sound));
    Draw shared = common;
    if (own || oneModel) VaryModel(own ? draw : shared, grid, frame.images, input.covModel[c]);
    input.searchRadiusRelative[c] = own && radius < 0.0 && draw.Chance(0.5) ? 1.0 : radius;
    input.nneighborMax[c] = frame.neighborMax;
    input.searchNeighborhoodSortMode[c] = frame.images ? 1 : draw.Int(0, 2);
  }
  input.probabilityUsage = draw.Int(0, 2);
  std::vector<real> probability = draw.Reals(ncategory * grid.nxyz, 0.05, 1.0);
  if (ncategory > 1) {
    for (std::size_t i = 0; i < n; ++i) {
      real sum = 0.0;
      for (std::size_t c = 0; c < categories.size(); ++c) sum += probability[c * n + i];
      for (std::size_t c = 0; c < categories.size(); ++c) probability[c * n + i] /= sum;
    }
  }
  if (input.probabilityUsage == 1) {
    input.probabilityValue = New<real>(categories.size());
    for (std::size_t c = 0; c < categories.size(); ++c) input.probabilityValue[c] = probability[c * n];
  }
  if (input.probabilityUsage == 2) {
    input.probabilityImage = NewImage(grid, probability);
    for (int c = 0; c < ncategory; ++c) input.probabilityImage->varName[c][0] = static_cast<char>('a' + c);
  }
  frame.Apply(draw, input);
  if (!frame.Run(records, solver, nthreads, outcome)) return;

  const VORL_IMAGE& image = *records.output.outputImage;
  for (int i = 0; i < image.nxyzv; ++i) {
    const auto node = static_cast<std::size_t>(i % grid.nxyz);
    const real value = image.var[i];
    if (!frame.Active(static_cast<int>(node))) continue;
    if (simulation) {
      outcome.Expect((ncategory == 1 && value == 0.0) || std::count(categories.begin(), categories.end(), value) == 1,
                     "no category");
      outcome.Expect(data[node] == kMissing || data[node] == value, "datum not honoured");
    } else {
      outcome.Expect(value >= 0.0 && value <= 1.0, "no probability");
      const real category = categories[static_cast<std::size_t>(i / grid.nxyz)];
      outcome.Expect(data[node] == kMissing || value == (data[node] == category ? 1.0 : 0.0), "datum not honoured");
    }
  }
}

// Results by target: of kriging at true places.
void Places(Draw& draw, int nthreads, Outcome& outcome) {
  const VORL_GRID grid = DrawGrid(draw, 600);
  const int dimension = grid.nz > 1 ? 3 : draw.Int(2, 3);
  const real origin[] = {grid.ox, grid.oy, grid.oz};
  const real side[] = {grid.nx * grid.sx, grid.ny * grid.sy, grid.nz * grid.sz};
  const auto places = [&](int n) {
    std::vector<real> coordinates;
    for (int i = 0; i < n; ++i) {
      for (int a = 0; a < dimension; ++a) coordinates.push_back(origin[a] + side[a] * draw.Real(-0.2, 1.2));
    }
    return coordinates;
  };
  VORL_PLACEDATA data{};
  data.ndata = draw.Int(1, draw.Of({5, 90, 300}));
  data.dimension = dimension;
  const std::vector<real> coordinates = places(data.ndata), values = draw.Reals(data.ndata, 0.0, 10.0),
                          errors = draw.Reals(data.ndata, 0.0, 0.3);
  data.coordinates = coordinates.data();
  data.values = values.data();
  if (draw.Chance(0.3)) data.errorVariances = errors.data();
  VORL_GRID targetGrid = grid;
  VORL_PLACETARGETS targets{};
  if (draw.Chance(0.7)) {
    targets.grid = &targetGrid;
  } else {
    targets.ntarget = draw.Int(1, 300);
  }
  const int ntarget = targets.grid != nullptr ? grid.nxyz : static_cast<int>(targets.ntarget);
  const std::vector<real> list = places(ntarget);
  std::vector<BOOLEAN> mask(static_cast<std::size_t>(ntarget));
  for (BOOLEAN& m : mask) m = draw.Chance(0.7);
  targets.coordinates = list.data();
  if (draw.Chance(0.3)) targets.mask = mask.data();
  VORL_PLACEOPTIONS options;
  VORLKestrumInitPlaceOptions(&options);
  options.nneighborMax = draw.Of({0, 1, 3, 8, 20, 40, 64, 100});
  if (draw.Chance(0.4)) std::fill_n(options.radius, 3, draw.Real(1.0, 20.0));
  options.euclideanFlag = draw.Chance(0.2);
  options.driftDegree = draw.Of({-1, 0, 0, 0, 1, 2});
  options.meanValue = draw.Real(0.0, 10.0);
  if (targets.grid != nullptr && draw.Chance(0.2)) std::fill_n(options.block, dimension, 2);
  options.nthreads = nthreads;
  VORL_COVMODEL model = MakeModel(DrawElements(draw, true));
  VaryModel(draw, grid, targets.grid != nullptr && draw.Chance(0.2), model);
  const auto n = static_cast<std::size_t>(ntarget);
  std::vector<real> estimates(n), variances(n);
  std::vector<int> used(n);
  VORL_PLACERESULTS results{};
  results.estimates = estimates.data();
  results.variances = variances.data();
  results.ndata = used.data();
  outcome.status = VORLKestrumKrigePlaces(&model, &data, &targets, &options, &results, nullptr, nullptr);
  VORLKestrumFreeCovModel(&model);
  outcome.Add(estimates);
  outcome.Add(variances);
  outcome.Add(used);
  for (const long long count : {results.nwithoutData, results.nundetermined, results.nindefinite, results.nredundant}) {
    outcome.Add(static_cast<real>(count));
  }
  for (const real variance : variances) {
    outcome.Expect(outcome.status != 0 || std::isnan(variance) || variance >= 0.0, "negative variance");
  }
}

}  // namespace

const std::vector<Trial>& RunTrials() {
  static const std::vector<Trial> kTrials = {{"continuous run", Continuous<KESTRUM_SOLVER_ITERATIVE>},
                                             {"indicator run", Categorical<KESTRUM_SOLVER_ITERATIVE>}};
  return kTrials;
}

const std::vector<Trial>& FactorisingTrials() {
  static const std::vector<Trial> kTrials = {{"continuous, factorised", Continuous<KESTRUM_SOLVER_FACTORISING>},
                                             {"indicator, factorised", Categorical<KESTRUM_SOLVER_FACTORISING>},
                                             {"true places", Places}};
  return kTrials;
}

}  // namespace kestrum_test
