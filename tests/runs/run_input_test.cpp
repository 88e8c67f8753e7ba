#include "runs/run_input.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "runs/run_records.hpp"

using namespace kestrum_test;

namespace {

struct Verdict {
  int status = 0;
  int error = 99;
  BOOLEAN rotation = 9, weight = 9, range = 9, covModel = 9;
};

Verdict Validate(VORL_KESTRUMINPUT& input, VORL_PROGRESSMONITOR* monitor = nullptr) {
  Verdict verdict;
  verdict.status = VORLKestrumValidateKestrumInput(&input, &verdict.rotation, &verdict.weight, &verdict.range,
                                                   &verdict.covModel, monitor, nullptr, &verdict.error);
  return verdict;
}

void SetMode(VORL_KESTRUMINPUT& input, int mode) { std::memcpy(&input.computationMode, &mode, sizeof mode); }

void SetOutput(VORL_KESTRUMINPUT& input, int mode, std::size_t nameLength) {
  std::memcpy(&input.outputMode, &mode, sizeof mode);
  if (nameLength > 0) Replace(input.outputImageFileName, NewText(std::string(nameLength, 'f')));
}

void SetReport(VORL_KESTRUMINPUT& input, BOOLEAN flag, std::size_t nameLength) {
  input.outputReportFlag = flag;
  Replace(input.outputReportFileName, NewText(std::string(nameLength, 'r')));
}

void SetMeanImage(VORL_KESTRUMINPUT& input, const std::vector<real>& values) {
  input.meanUsage = 2;
  Replace(input.meanImage, NewImage(values));
}

void SetVarianceImage(VORL_KESTRUMINPUT& input, const std::vector<real>& values) {
  input.varianceUsage = 2;
  Replace(input.varianceImage, NewImage(values));
}

const std::vector<real> kOnes(6, 1.0);
const std::vector<real> kTwoVariables(12, 1.0);

struct Rule {
  int line;
  void (*tweak)(VORL_KESTRUMINPUT& input);
  int error;
};

// As a flag leaves out what is read all the same.
VORL_IMAGE* NewSmallerImage() { return NewImage(MakeGrid(2, 2, 1), std::vector<real>(4, 1.0)); }

#define TWEAK(statements) __LINE__, [](VORL_KESTRUMINPUT& in) { statements; }

const Rule kRules[] = {
    {TWEAK(static_cast<void>(in)), 0},
    {TWEAK(in.simGrid->nx = 0), -601},
    {TWEAK(Release(in.simGrid)), -601},
    {TWEAK(Release(in.varName)), -71046},
    {TWEAK(Replace(in.varName, NewText(std::string(245, 'n')))), 0},
    {TWEAK(Replace(in.varName, NewText(std::string(246, 'n')))), -71047},
    {TWEAK(Replace(in.formatString, NewText("10g"))), 0},
    {TWEAK(in.consoleAppFlag = TRUE; Replace(in.formatString, NewText("%g"))), 0},
    {TWEAK(in.consoleAppFlag = TRUE; Replace(in.formatString, NewText("10g"))), -71048},
    {TWEAK(in.consoleAppFlag = TRUE), -71048},
    {TWEAK(SetOutput(in, 0, 600)), 0},
    {TWEAK(SetOutput(in, 1, 511)), 0},
    {TWEAK(SetOutput(in, 1, 512)), -71052},
    {TWEAK(SetOutput(in, 2, 495)), 0},
    {TWEAK(SetOutput(in, 2, 496)), -71052},
    {TWEAK(SetOutput(in, 2, 0)), -71052},
    {TWEAK(SetOutput(in, 3, 5)), -71051},
    {TWEAK(SetOutput(in, -1, 5)), -71051},
    {TWEAK(SetReport(in, TRUE, 511)), 0},
    {TWEAK(SetReport(in, TRUE, 512)), -71053},
    {TWEAK(SetReport(in, FALSE, 512)), 0},
    {TWEAK(in.outputReportFlag = TRUE), 0},
    {TWEAK(SetMode(in, 0); in.varianceUsage = 1; in.varianceValue = 1.0; in.maskImage->var[1] = 0.5), -71083},
    {TWEAK(SetMode(in, 2); in.varianceUsage = 7), -71083},
    {TWEAK(SetMode(in, 4); in.varianceUsage = 1), -71060},
    {TWEAK(SetMode(in, -1)), -71060},
    {TWEAK(SetMode(in, 11)), -71060},
    {TWEAK(in.maskImage->grid->sx = 1.5), -1901},
    {TWEAK(Replace(in.maskImage, NewImage(kTwoVariables))), -1902},
    {TWEAK(Release(in.maskImage)), -1902},
    {TWEAK(in.maskImage->var[5] = 0.5), -1903},
    {TWEAK(Replace(in.maskImage, NewImage(std::vector<real>(6, 0.0)))), -1904},
    {TWEAK(Replace(in.maskImage, NewImage({1, 0, 0, 0, 0, 0}))), 0},
    {TWEAK(in.maskImage->var[5] = std::numeric_limits<real>::quiet_NaN()), -627},
    {TWEAK(in.maskImage->nxyzv = 5), -625},
    {TWEAK(in.simGrid->nxyz = in.maskImage->grid->nxyz = 0), -1904},
    {TWEAK(in.maskImageFlag = FALSE; in.maskImage->var[5] = 0.5), 0},
    {TWEAK(in.maskImageFlag = FALSE; Release(in.maskImage)), 0},
    {TWEAK(in.maskImageFlag = FALSE; Replace(in.maskImage, NewSmallerImage())), -1901},
    {TWEAK(in.maskImageFlag = FALSE; in.maskImage->nxyzv = 5), -625},
    {TWEAK(in.maskImageFlag = FALSE; Release(in.maskImage->var)), -20},
    {TWEAK(GiveAngleImage(*in.covModel); in.covModel->angle2ImageFlag = FALSE), 0},
    {TWEAK(GiveAngleImage(*in.covModel); in.covModel->angle2ImageFlag = FALSE; in.covModel->angle2Image->nxyzv = 5),
     -625},
    {TWEAK(in.covModel->angle1Image = NewSmallerImage()), -71636},
    {TWEAK(in.covModel->angle3Image = NewSmallerImage()), -71636},
    {TWEAK(in.covModel->covModelElem->weightImage = NewSmallerImage()), -71646},
    {TWEAK(in.covModel->covModelElem->rxImage = NewSmallerImage()), -71656},
    {TWEAK(in.covModel->covModelElem->ryImage = NewSmallerImage()), -71666},
    {TWEAK(in.covModel->covModelElem->rzImage = NewSmallerImage()), -71676},
    {TWEAK(in.covModel->covModelElem->sImage = NewSmallerImage()), -71686},
    {TWEAK(in.covModel->nelem = 0), -71009},
    {TWEAK(VORLKestrumFreeCovModel(in.covModel); Release(in.covModel)), -71009},
    {TWEAK(in.covModel->covModelElem[0].weightValue = -0.5), -71649},
    {TWEAK(in.searchRadiusRelative = 1e-6), 0},
    {TWEAK(in.searchRadiusRelative = 9e-7), -71070},
    {TWEAK(in.searchRadiusRelative = -0.5), -71070},
    {TWEAK(in.searchRadiusRelative = -1.0), -71070},
    {TWEAK(in.searchRadiusRelative = -1.0; GiveAngleImage(*in.covModel)), -71071},
    {TWEAK(SetMode(in, 1); in.searchRadiusRelative = -1.0), 0},
    {TWEAK(SetMode(in, 1); in.searchRadiusRelative = -1.0; GiveAngleImage(*in.covModel)), -71071},
    {TWEAK(in.nneighborMax = -1), 0},
    {TWEAK(in.nneighborMax = 0), -71062},
    {TWEAK(in.searchNeighborhoodSortMode = 2), 0},
    {TWEAK(in.searchNeighborhoodSortMode = 3), -71067},
    {TWEAK(in.searchNeighborhoodSortMode = -1), -71067},
    {TWEAK(in.searchNeighborhoodSortMode = 1; GiveAngleImage(*in.covModel)), 0},
    {TWEAK(in.searchNeighborhoodSortMode = 2; GiveAngleImage(*in.covModel)), -71066},
    {TWEAK(in.dataImage->nvar = 0), -621},
    {TWEAK(in.dataImage->grid->nx = 1; in.dataImage->grid->sx = 4.0), 0},
    {TWEAK(Release(in.dataImage)), -621},
    {TWEAK(in.dataPointSet->nvar = 0), -641},
    {TWEAK(in.dataImage->grid->nxyz = in.dataImage->nxyzv = 1), -625},
    {TWEAK(VORLFreePointSet(in.dataPointSet); Release(in.dataPointSet)), -641},
    {TWEAK(in.meanUsage = 1; in.meanValue = kMissing), 0},
    {TWEAK(in.meanUsage = 3), -71072},
    {TWEAK(in.meanUsage = -1), -71072},
    {TWEAK(in.meanUsage = 2), -71080},
    {TWEAK(SetMeanImage(in, kOnes)), 0},
    {TWEAK(SetMeanImage(in, kOnes); in.meanImage->grid->oz = -1.0), -71076},
    {TWEAK(in.meanUsage = 2; in.meanImage = NewImage(kTwoVariables)), -71077},
    {TWEAK(SetMeanImage(in, {kMissing, 1, 1, 1, 1, 1})), 0},
    {TWEAK(SetMeanImage(in, {1, 1, 1, 1, 1, kMissing})), -71078},
    {TWEAK(in.maskImageFlag = FALSE; SetMeanImage(in, {kMissing, 1, 1, 1, 1, 1})), -71078},
    {TWEAK(in.varianceUsage = 3), -71082},
    {TWEAK(in.varianceUsage = -1), -71082},
    {TWEAK(in.varianceUsage = 1; in.varianceValue = 1e-6), 0},
    {TWEAK(in.varianceUsage = 1; in.varianceValue = 9e-7), -71085},
    {TWEAK(in.varianceUsage = 1; in.varianceValue = 1.0; GiveWeightImage(*in.covModel)), -71084},
    {TWEAK(in.varianceUsage = 2; GiveWeightImage(*in.covModel)), -71084},
    {TWEAK(in.varianceUsage = 2), -71090},
    {TWEAK(SetVarianceImage(in, {kMissing, 1e-6, 1, 1, 1, 1})), 0},
    {TWEAK(SetVarianceImage(in, kOnes); in.varianceImage->grid->sy = 2.0), -71086},
    {TWEAK(in.varianceUsage = 2; in.varianceImage = NewImage(kTwoVariables)), -71087},
    {TWEAK(SetVarianceImage(in, {1, 1, kMissing, 1, 1, 1})), -71088},
    {TWEAK(SetVarianceImage(in, {1, 1, 9e-7, kMissing, 1, 1})), -71089},
    {TWEAK(in.nGibbsSamplerPathMin = 0), -71095},
    {TWEAK(in.nGibbsSamplerPathMin = 10), 0},
    {TWEAK(in.nGibbsSamplerPathMin = 11), -71097},
    {TWEAK(in.nGibbsSamplerPathMax = 100000), 0},
    {TWEAK(in.nGibbsSamplerPathMin = in.nGibbsSamplerPathMax = 100001), -71096},
    {TWEAK(SetMode(in, 1); in.nGibbsSamplerPathMin = 0), 0},
    {TWEAK(in.nrealization = 1000000), 0},
    {TWEAK(in.nrealization = 1000001), -71099},
    {TWEAK(in.nrealization = -5), 0},
    {TWEAK(SetMode(in, 1); in.nrealization = 1000001), 0},
};

TEST(RunInput, RulesGiveTheirCodes) {
  for (const Rule& rule : kRules) {
    SCOPED_TRACE("rule of line " + std::to_string(rule.line));
    ContinuousRun run;
    rule.tweak(run.input);
    const Verdict verdict = Validate(run.input);
    EXPECT_EQ(verdict.status, 0);
    EXPECT_EQ(verdict.error, rule.error);
  }
}

TEST(RunInput, ValidationTellsHowStationaryTheModelIs) {
  ContinuousRun run;
  const Verdict fixed = Validate(run.input);
  EXPECT_TRUE(fixed.rotation == 1 && fixed.weight == 1 && fixed.range == 1 && fixed.covModel == 1);
  GiveAngleImage(*run.input.covModel);
  const Verdict turning = Validate(run.input);
  EXPECT_TRUE(turning.rotation == 0 && turning.weight == 1 && turning.range == 1 && turning.covModel == 0);
  // The model's image is marked by a mask that the flag leaves out, too.
  EXPECT_EQ(run.input.covModel->angle2Image->var[0], kMissing);
  run.input.maskImageFlag = FALSE;
  run.input.covModel->angle2Image->var[0] = 1.0;
  Validate(run.input);
  EXPECT_EQ(run.input.covModel->angle2Image->var[0], kMissing);
}

TEST(RunInput, MaskedNodesOfParametersBecomeMissingUpToTheFailingNode) {
  ContinuousRun run;
  Replace(run.input.maskImage, NewImage({0, 1, 0, 1, 0, 1}));
  SetMeanImage(run.input, {1, 2, 3, 4, 5, 6});
  SetVarianceImage(run.input, {1, 2, 3, 0, 5, 6});
  EXPECT_EQ(Validate(run.input).error, -71089);
  const real* mean = run.input.meanImage->var;
  EXPECT_EQ(std::vector<real>(mean, mean + 6), (std::vector<real>{kMissing, 2, kMissing, 4, kMissing, 6}));
  const real* variance = run.input.varianceImage->var;
  EXPECT_EQ(std::vector<real>(variance, variance + 6), (std::vector<real>{kMissing, 2, kMissing, 0, 5, 6}));
}

TEST(RunInput, AbortEndsValidation) {
  ContinuousRun run;
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  EXPECT_EQ(Validate(run.input, &monitor).status, 0);
  monitor.abortedJobFlag = TRUE;
  Release(run.input.varName);  // the abort is seen first, after the grid
  const Verdict verdict = Validate(run.input, &monitor);
  EXPECT_EQ(verdict.status, -1000);
  EXPECT_EQ(verdict.error, 0);
}

TEST(RunInput, PrintsEveryItem) {
  ContinuousRun run;
  VORL_KESTRUMINPUT& input = run.input;
  input.formatString = NewText("%.5g");
  SetOutput(input, 2, 3);
  SetReport(input, TRUE, 2);
  input.meanUsage = 1;
  input.meanValue = -1.25;
  SetVarianceImage(input, kOnes);
  const std::string p = ">    ";
  EXPECT_EQ(Printed(VORLKestrumPrintKestrumInput, &input),
            "> consoleAppFlag: 0\n\n> simGrid:\n" + Printed(VORLPrintGrid, input.simGrid, p) +
                "\n> varName: v\n\n> formatString: %.5g\n\n> outputMode: KESTRUM_OUTPUT_SEPARATE_FILE\n\n"
                "> outputImageFileName: fff\n\n> outputReportFlag: 1\n> outputReportFileName: rr\n\n"
                "> computationMode: KESTRUM_SIM_SK\n\n> meanUsage: 1\n> meanValue:      -1.250000\n\n"
                "> varianceUsage: 2\n> varianceImage:\n" +
                Printed(VORLPrintImage, input.varianceImage, p) + "\n> covModel:\n" +
                Printed(VORLKestrumPrintCovModel, input.covModel, p) +
                "\n> searchRadiusRelative:       1.000000\n\n> nneighborMax:   12\n\n"
                "> searchNeighborhoodSortMode: 0\n\n" +
                DataToMaskText("> ", input.dataImage, input.maskImage) +
                "\n> nGibbsSamplerPathMin:          1\n> nGibbsSamplerPathMax:         10\n\n"
                "> seed         :          7\n> seedIncrement:          3\n\n> nrealization: 2\n");
}

TEST(RunInput, PrintsAnInputThatValidationWouldRefuse) {
  VORL_KESTRUMINPUT input;
  VORLKestrumInitKestrumInput(&input);
  SetOutput(input, 9, 0);
  SetMode(input, -3);
  input.outputReportFlag = input.maskImageFlag = TRUE;
  input.meanUsage = input.varianceUsage = 2;
  input.ndataImage = input.ndataPointSet = 1;
  EXPECT_EQ(Printed(VORLKestrumPrintKestrumInput, &input),
            "> consoleAppFlag: 0\n\n> simGrid:\n\n> varName:\n\n> formatString:\n\n> outputMode: unknown\n\n"
            "> outputImageFileName:\n\n> outputReportFlag: 1\n> outputReportFileName:\n\n> computationMode: unknown\n\n"
            "> meanUsage: 2\n> meanImage:\n\n> varianceUsage: 2\n> varianceImage:\n\n> covModel:\n\n"
            "> searchRadiusRelative:       0.000000\n\n> nneighborMax:    0\n\n> searchNeighborhoodSortMode: 0\n\n"
            "> ndataImage:   1\n> dataImage   0:\n\n> ndataPointSet:   1\n> dataPointSet   0:\n\n> maskImageFlag: 1\n"
            "> maskImage:\n\n> nGibbsSamplerPathMin:          0\n> nGibbsSamplerPathMax:          0\n");
}

}  // namespace
