#include "runs/indicator_run_input.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "runs/run_records.hpp"
#include "support/allocation_failure.hpp"

using namespace kestrum_test;

namespace {

// The flag vectors that validation hands over.
struct Flags {
  BOOLEAN* rotation = nullptr;
  BOOLEAN* weight = nullptr;
  BOOLEAN* range = nullptr;
  BOOLEAN* covModel = nullptr;

  Flags() = default;
  Flags(const Flags&) = delete;
  Flags& operator=(const Flags&) = delete;
  ~Flags() {
    for (BOOLEAN* flags : {rotation, weight, range, covModel}) VORLFree(flags);
  }
  bool AllGiven() const { return rotation && weight && range && covModel; }
  bool NoneGiven() const { return !rotation && !weight && !range && !covModel; }
};

int Validate(VORL_KESTRUMINDICATORINPUT& input, Flags& flags, int* error, VORL_PROGRESSMONITOR* monitor = nullptr) {
  return VORLKestrumValidateKestrumIndicatorInput(&input, &flags.rotation, &flags.weight, &flags.range, &flags.covModel,
                                                  monitor, nullptr, error);
}

void SetMode(VORL_KESTRUMINDICATORINPUT& input, int mode) { std::memcpy(&input.computationMode, &mode, sizeof mode); }

void SetNoCategory(VORL_KESTRUMINDICATORINPUT& input) {
  for (int c = 0; c < input.ncategory; ++c) VORLKestrumFreeCovModel(&input.covModel[c]);
  input.ncategory = 0;
}

// A number of categories of its own, with the models and neighbourhoods that go with it.
void SetCategories(VORL_KESTRUMINDICATORINPUT& input, const std::vector<real>& values) {
  SetNoCategory(input);
  const std::size_t n = values.size();
  input.ncategory = static_cast<int>(n);
  Replace(input.categoryValue, NewVector(values));
  Replace(input.covModel, New<VORL_COVMODEL>(n));
  for (std::size_t c = 0; c < n; ++c) input.covModel[c] = MakeModel(kSpherical);
  Replace(input.searchRadiusRelative, NewVector(std::vector<real>(n, 1.0)));
  Replace(input.nneighborMax, NewVector(std::vector<int>(n, 12)));
  Replace(input.searchNeighborhoodSortMode, NewVector(std::vector<int>(n, 1)));
}

void SetRadii(VORL_KESTRUMINDICATORINPUT& input, int mode, real first, real second) {
  SetMode(input, mode);
  Replace(input.searchRadiusRelative, NewVector<real>({first, second}));
}

void SetProbabilities(VORL_KESTRUMINDICATORINPUT& input, const std::vector<real>& values) {
  input.probabilityUsage = 1;
  Replace(input.probabilityValue, NewVector(values));
}

// Probabilities of the two categories, by node; node 0 is left out by the mask.
void SetProbabilityImage(VORL_KESTRUMINDICATORINPUT& input, const std::vector<real>& values) {
  input.probabilityUsage = 2;
  Replace(input.probabilityImage, NewImage(values));
}

const std::vector<real> kHalves(12, 0.5);

struct Rule {
  int line;
  void (*tweak)(VORL_KESTRUMINDICATORINPUT& input);
  int error;
};

#define TWEAK(statements) __LINE__, [](VORL_KESTRUMINDICATORINPUT& in) { statements; }

const Rule kRules[] = {
    {TWEAK(static_cast<void>(in)), 0},
    {TWEAK(in.simGrid->nz = 0), -603},
    {TWEAK(Release(in.varName)), -71046},
    {TWEAK(in.consoleAppFlag = TRUE; SetNoCategory(in)), -71048},
    {TWEAK(SetNoCategory(in)), -71110},
    {TWEAK(SetCategories(in, std::vector<real>(101, 1.0))), -71111},
    {TWEAK(Release(in.categoryValue)), -71112},
    {TWEAK(SetCategories(in, {kMissing})), -71112},
    {TWEAK(SetCategories(in, {0.0})), -71114},
    {TWEAK(SetCategories(in, {4.0})), 0},
    {TWEAK(SetCategories(in, {0.0, 4.0})), 0},
    {TWEAK(SetCategories(in, {1.0, 2.0, 1.0})), -71113},
    {TWEAK(SetCategories(in, {1.0, 1.0, kMissing})), -71113},
    {TWEAK(SetCategories(in, {1.0, kMissing, 1.0})), -71113},
    {TWEAK(SetCategories(in, {1.0, 2.0, kMissing})), -71112},
    {TWEAK(in.outputMode = KESTRUM_OUTPUT_SEPARATE_FILE; SetMode(in, 4)), -71052},
    {TWEAK(SetMode(in, 4)), -71060},
    {TWEAK(in.maskImage->var[1] = 2.0), -1903},
    {TWEAK(in.covModel[1].covModelElem[0].weightValue = -1.0), -71649},
    {TWEAK(SetRadii(in, 1, -1.0, 1.0)), 0},
    {TWEAK(SetRadii(in, 0, 1.0, -0.5)), -71070},
    {TWEAK(SetRadii(in, 3, -1.0, 1.0)), -71070},
    {TWEAK(SetRadii(in, 1, -0.5, -1.0); GiveAngleImage(in.covModel[1])), -71071},
    {TWEAK(Release(in.searchRadiusRelative)), -71070},
    {TWEAK(in.nneighborMax[1] = 0; in.searchNeighborhoodSortMode[0] = 3), -71062},
    {TWEAK(Release(in.nneighborMax)), -71062},
    {TWEAK(in.searchNeighborhoodSortMode[0] = 3), -71067},
    {TWEAK(GiveAngleImage(in.covModel[0])), 0},
    {TWEAK(GiveAngleImage(in.covModel[1])), -71066},
    {TWEAK(Release(in.searchNeighborhoodSortMode)), -71067},
    {TWEAK(in.dataImage->nvar = 0), -621},
    {TWEAK(in.dataPointSet->nvar = 0), -641},
    {TWEAK(in.probabilityUsage = 3), -71120},
    {TWEAK(in.probabilityUsage = -1), -71120},
    {TWEAK(in.probabilityUsage = 1), -71121},
    {TWEAK(SetProbabilities(in, {-0.01, 1.01})), -71125},
    {TWEAK(SetProbabilities(in, {0.0, 1.01})), -71126},
    {TWEAK(SetProbabilities(in, {0.0, 1.0})), 0},
    {TWEAK(SetProbabilities(in, {0.5, 0.52})), -71127},
    {TWEAK(SetProbabilities(in, {0.5, 0.48})), -71127},
    {TWEAK(SetCategories(in, {4.0}); SetProbabilities(in, {0.3})), 0},
    {TWEAK(SetCategories(in, {4.0}); SetProbabilities(in, {1.3})), -71126},
    {TWEAK(in.probabilityUsage = 2), -71122},
    {TWEAK(SetProbabilityImage(in, kHalves); in.probabilityImage->grid->ox = 1.0), -71123},
    {TWEAK(in.probabilityUsage = 2; in.probabilityImage = NewImage(std::vector<real>(6, 0.5))), -71124},
    {TWEAK(SetProbabilityImage(in, {7.0, .5, .5, .5, .5, .5, -3.0, .5, .5, .5, .5, .5})), 0},
    {TWEAK(SetProbabilityImage(in, {.5, .5, .5, .5, .5, .5, .5, .5, .5, kMissing, .5, .5})), -71125},
    {TWEAK(SetProbabilityImage(in, {.5, .5, .5, .5, .5, 1.5, .5, .5, .5, .5, .5, .5})), -71126},
    {TWEAK(SetProbabilityImage(in, {.5, .5, .5, .5, .5, .52, .5, .5, .5, .5, .5, .5})), -71127},
    {TWEAK(SetMode(in, 0); in.nrealization = 1000001), 0},
    {TWEAK(in.nrealization = 1000001), -71099},
};

TEST(IndicatorRunInput, RulesGiveTheirCodes) {
  for (const Rule& rule : kRules) {
    SCOPED_TRACE("rule of line " + std::to_string(rule.line));
    IndicatorRun run;
    rule.tweak(run.input);
    Flags flags;
    int error = 99;
    EXPECT_EQ(Validate(run.input, flags, &error), 0);
    EXPECT_EQ(error, rule.error);
    // The number of realizations is looked at when the caller has the flags already.
    EXPECT_TRUE(error == 0 || error == -71099 ? flags.AllGiven() : flags.NoneGiven());
  }
}

TEST(IndicatorRunInput, FlagsTellOfEachModel) {
  IndicatorRun run;
  GiveAngleImage(run.input.covModel[0]);
  Flags flags;
  int error = 99;
  EXPECT_EQ(Validate(run.input, flags, &error), 0);
  ASSERT_TRUE(flags.AllGiven());
  EXPECT_TRUE(flags.rotation[0] == 0 && flags.weight[0] == 1 && flags.range[0] == 1 && flags.covModel[0] == 0);
  EXPECT_TRUE(flags.rotation[1] == 1 && flags.weight[1] == 1 && flags.range[1] == 1 && flags.covModel[1] == 1);
}

TEST(IndicatorRunInput, SumsThatAreSlightlyOffAreMended) {
  const struct {
    real given, expected;
  } rows[] = {{0.505, 0.505 * (1.0 / (0.5 + 0.505))}, {0.495, 0.495 * (1.0 / (0.5 + 0.495))}, {0.500005, 0.500005}};
  for (const auto& row : rows) {
    const real first = row.given == row.expected ? 0.5 : 0.5 * (1.0 / (0.5 + row.given));
    IndicatorRun run;
    Flags flags;
    int error = 99;
    SetProbabilities(run.input, {0.5, row.given});
    Validate(run.input, flags, &error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(run.input.probabilityValue[0], first);
    EXPECT_EQ(run.input.probabilityValue[1], row.expected);
  }
  // Node by node in an image: node 0 is left out, node 2 is corrected before node 4 is refused, node 5 is not reached.
  IndicatorRun run;
  Flags flags;
  int error = 99;
  SetProbabilityImage(run.input, {0.505, 0.5, 0.505, 0.5, 1.0, 0.505, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5});
  Validate(run.input, flags, &error);
  EXPECT_EQ(error, -71127);
  const real scale = 1.0 / (0.505 + 0.5);
  const real* p = run.input.probabilityImage->var;
  EXPECT_EQ(std::vector<real>(p, p + 12),
            (std::vector<real>{0.505, 0.5, 0.505 * scale, 0.5, 1.0, 0.505, 0.5, 0.5, 0.5 * scale, 0.5, 0.5, 0.5}));
}

TEST(IndicatorRunInput, FailuresLeaveNoFlags) {
  IndicatorRun run;
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  ForEachFailingAllocation([&] {
    Flags flags;
    int error = 99;
    const int status = Validate(run.input, flags, &error, &monitor);
    EXPECT_TRUE(status == 0 ? flags.AllGiven() : flags.NoneGiven());
    return status;
  });
  monitor.abortedJobFlag = TRUE;
  Flags flags;
  int error = 99;
  EXPECT_EQ(Validate(run.input, flags, &error, &monitor), -1000);
  EXPECT_TRUE(flags.NoneGiven());
}

TEST(IndicatorRunInput, PrintsEveryItem) {
  IndicatorRun run;
  SetProbabilities(run.input, {0.25, 0.75});
  const auto expected = [&in = run.input](const std::string& mode, const std::string& probabilities,
                                          const std::string& seeds) {
    return "consoleAppFlag: 0\n\nsimGrid:\n" + Printed(VORLPrintGrid, in.simGrid, "   ") +
           "\nvarName: v\n\nformatString:\n\nncategory: 2\ncategoryValue  0:       1.000000\n"
           "categoryValue  1:       2.000000\n\noutputMode: KESTRUM_OUTPUT_NO_FILE\n\noutputImageFileName:\n\n"
           "outputReportFlag: 0\n\ncomputationMode: " +
           mode + "\n\n" + probabilities + "\ncovModel:\ncovModel  0:\n" +
           Printed(VORLKestrumPrintCovModel, &in.covModel[0], "   ") + "\ncovModel  1:\n" +
           Printed(VORLKestrumPrintCovModel, &in.covModel[1], "   ") +
           "\n\nsearchRadiusRelative  0:       1.000000\nsearchRadiusRelative  1:       1.500000\n\n"
           "nneighborMax  0:   12\nnneighborMax  1:   -1\n\nsearchNeighborhoodSortMode  0:  0\n"
           "searchNeighborhoodSortMode  1:  2\n\n" +
           DataToMaskText("", in.dataImage, in.maskImage) + seeds;
  };
  const auto print = VORLKestrumPrintKestrumIndicatorInput;
  EXPECT_EQ(Printed(print, &run.input, ""),
            expected("KESTRUM_SIM_SK",
                     "probabilityUsage: 1\nprobabilityValue  0:       0.250000\n"
                     "probabilityValue  1:       0.750000\n",
                     "\nseed         :          7\nseedIncrement:          3\n\nnrealization: 2\n"));
  SetMode(run.input, 0);
  run.input.probabilityUsage = 2;
  run.input.probabilityImage = NewImage(std::vector<real>(6, 0.5));
  EXPECT_EQ(Printed(print, &run.input, ""), expected("KESTRUM_OK",
                                                     "probabilityUsage: 2\nprobabilityImage:\n" +
                                                         Printed(VORLPrintImage, run.input.probabilityImage, "   "),
                                                     ""));
  // Null vectors print nothing, whatever the number of categories.
  VORL_KESTRUMINDICATORINPUT empty;
  VORLKestrumInitKestrumIndicatorInput(&empty);
  empty.ncategory = 3;
  empty.probabilityUsage = 1;
  EXPECT_EQ(Printed(print, &empty, ""),
            "consoleAppFlag: 0\n\nsimGrid:\n\nvarName:\n\nformatString:\n\nncategory: 3\n\n"
            "outputMode: KESTRUM_OUTPUT_NO_FILE\n\noutputImageFileName:\n\noutputReportFlag: 0\n\n"
            "computationMode: KESTRUM_OK\n\nprobabilityUsage: 1\n\ncovModel:\n\n\n\n\nndataImage:   0\n\n"
            "ndataPointSet:   0\n\nmaskImageFlag: 0\n");
  VORLKestrumFreeKestrumIndicatorInput(&empty);
  VORLKestrumFreeKestrumIndicatorInput(nullptr);
}

}  // namespace
