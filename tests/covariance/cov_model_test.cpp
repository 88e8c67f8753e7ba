#include "covariance/cov_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "core/memory.h"
#include "support/run_builder.hpp"
#include "support/text_stream.hpp"

namespace {

using kestrum_test::Printed;

VORL_GRID Grid(int nx, int ny) { return kestrum_test::MakeGrid(nx, ny, 1); }

VORL_IMAGE* NewImage(const VORL_GRID& grid, int nvar, real value) {
  return kestrum_test::NewImage(grid, std::vector<real>(static_cast<std::size_t>(nvar * grid.nxyz), value));
}

// A model of two spherical elements on a grid of 6 by 5 nodes, released with all its images.
class Model {
 public:
  VORL_GRID grid = Grid(6, 5);
  VORL_COVMODEL record = kestrum_test::MakeModel({{COV_SPHERICAL, 1, 0, 0, 0, 0}, {COV_SPHERICAL, 1, 0, 0, 0, 0}});
  BOOLEAN rotationStationary = 7, weightStationary = 7, rangeStationary = 7, modelStationary = 7;

  Model() = default;
  ~Model() { VORLKestrumFreeCovModel(&record); }
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  VORL_COVMODELELEM& Elem(int i) { return record.covModelElem[i]; }
  // Any number, as a caller in C could store it.
  void SetType(int i, int type) { std::memcpy(&Elem(i).covModelType, &type, sizeof type); }
  int Validate(VORL_IMAGE* mask = nullptr) {
    int status = 7;
    EXPECT_EQ(VORLKestrumValidateCovModel(&record, &grid, mask, &rotationStationary, &weightStationary,
                                          &rangeStationary, &modelStationary, &status),
              0);
    return status;
  }
};

// An image that may be changed, and is released at the end.
struct Mask {
  VORL_IMAGE* const image;
  Mask(const VORL_GRID& grid, const std::vector<int>& masked) : image(NewImage(grid, 1, 1.0)) {
    for (const int node : masked) image->var[node] = 0.0;
  }
  Mask(const Mask&) = delete;
  Mask& operator=(const Mask&) = delete;
  ~Mask() {
    VORLFreeImage(image);
    VORLFree(image);
  }
};

}  // namespace

TEST(CovModelValidation, GivesStatusesAndFlags) {
  using Flag = BOOLEAN VORL_COVMODELELEM::*;
  using Image = VORL_IMAGE* VORL_COVMODELELEM::*;
  using E = VORL_COVMODELELEM;
  // Gives element 1 a type and an extra parameter.
  const auto extra = [](int type, real s) {
    return [=](Model& m) {
      m.SetType(1, type);
      m.Elem(1).sValue = s;
    };
  };
  // Gives element 1 a type and the image of a parameter.
  const auto image = [](int type, Flag flag, Image field, real value, int nvar = 1, int ny = 5) {
    return [=](Model& m) {
      m.SetType(1, type);
      m.Elem(1).*flag = TRUE;
      m.Elem(1).*field = NewImage(Grid(6, ny), nvar, value);
    };
  };
  const auto angle = [](BOOLEAN VORL_COVMODEL::*flag, VORL_IMAGE* VORL_COVMODEL::*field, int nvar, int ny) {
    return [=](Model& m) {
      m.record.*flag = TRUE;
      m.record.*field = NewImage(Grid(6, ny), nvar, 30.0);
    };
  };
  const struct {
    const char* name;
    std::function<void(Model&)> tweak;
    int status;
    const char* stationary;  // rotation, weight, range, model
  } rows[] = {
      {"as it is", [](Model&) {}, 0, "1111"},
      {"no element", [](Model& m) { m.record.nelem = 0, m.SetType(0, 99); }, -71009, "1111"},
      {"type 11", extra(11, 1), -71000, "1111"},
      {"type -1", extra(-1, 1), -71000, "1111"},
      {"weight 0", [](Model& m) { m.Elem(0).weightValue = 0.0; }, 0, "1111"},
      {"weight -0.5", [](Model& m) { m.Elem(0).weightValue = -0.5; }, -71649, "1111"},
      {"range -3", [](Model& m) { m.Elem(0).rxValue = -3; }, 0, "1111"},
      {"spherical s", extra(COV_SPHERICAL, 500), 0, "1111"},
      {"gamma s", extra(COV_GAMMA, 1e-6), 0, "1111"},
      {"gamma s largest", extra(COV_GAMMA, 100), 0, "1111"},
      {"power s small", extra(COV_POWER, 1e-7), -71690, "1111"},
      {"exponential s large", extra(COV_EXPONENTIAL_GENERALIZED, 100.1), -71691, "1111"},
      {"matern nu small", extra(COV_MATERN, 0), -71697, "1111"},
      {"matern nu large", extra(COV_MATERN, 101), -71698, "1111"},
      {"weight image", image(1, &E::weightImageFlag, &E::weightImage, 2), 0, "1010"},
      {"weight image grid", image(1, &E::weightImageFlag, &E::weightImage, 2, 1, 4), -71646, "1111"},
      {"weight image nvar", image(1, &E::weightImageFlag, &E::weightImage, 2, 2), -71647, "1111"},
      {"weight image value", image(1, &E::weightImageFlag, &E::weightImage, -0.1), -71648, "1111"},
      {"weight image NaN", image(1, &E::weightImageFlag, &E::weightImage, NAN), -627, "1111"},
      {"weight image null", [](Model& m) { m.Elem(1).weightImageFlag = TRUE; }, -20, "1111"},
      {"weight image not flagged", [](Model& m) { m.Elem(0).weightImage = NewImage(Grid(2, 2), 1, -1); }, 0, "1111"},
      {"rx image", image(1, &E::rxImageFlag, &E::rxImage, -2), 0, "1100"},
      {"rx image grid", image(1, &E::rxImageFlag, &E::rxImage, 2, 1, 4), -71656, "1111"},
      {"rx image nvar", image(1, &E::rxImageFlag, &E::rxImage, 2, 2), -71657, "1111"},
      {"ry image grid", image(1, &E::ryImageFlag, &E::ryImage, 2, 1, 4), -71666, "1111"},
      {"ry image nvar", image(1, &E::ryImageFlag, &E::ryImage, 2, 2), -71667, "1111"},
      {"rz image grid", image(1, &E::rzImageFlag, &E::rzImage, 2, 1, 4), -71676, "1111"},
      {"rz image nvar", image(1, &E::rzImageFlag, &E::rzImage, 2, 2), -71677, "1111"},
      {"s image unused", image(COV_CUBIC, &E::sImageFlag, &E::sImage, 1e9), 0, "1111"},
      {"s image", image(COV_GAMMA, &E::sImageFlag, &E::sImage, 2), 0, "1110"},
      {"s image grid", image(COV_MATERN, &E::sImageFlag, &E::sImage, 2, 1, 4), -71686, "1111"},
      {"s image nvar", image(COV_POWER, &E::sImageFlag, &E::sImage, 2, 2), -71687, "1111"},
      {"s image small", image(COV_POWER, &E::sImageFlag, &E::sImage, 1e-7), -71688, "1111"},
      {"s image large", image(COV_GAMMA, &E::sImageFlag, &E::sImage, 101), -71689, "1111"},
      {"nu image small", image(COV_MATERN, &E::sImageFlag, &E::sImage, 1e-7), -71695, "1111"},
      {"nu image large", image(COV_MATERN, &E::sImageFlag, &E::sImage, 101), -71696, "1111"},
      {"angle 2 image", angle(&VORL_COVMODEL::angle2ImageFlag, &VORL_COVMODEL::angle2Image, 1, 5), 0, "0110"},
      {"angle 1 grid", angle(&VORL_COVMODEL::angle1ImageFlag, &VORL_COVMODEL::angle1Image, 1, 4), -71636, "1111"},
      {"angle 2 nvar", angle(&VORL_COVMODEL::angle2ImageFlag, &VORL_COVMODEL::angle2Image, 2, 5), -71637, "1111"},
      {"angle 3 grid", angle(&VORL_COVMODEL::angle3ImageFlag, &VORL_COVMODEL::angle3Image, 1, 4), -71636, "1111"},
  };
  for (const auto& row : rows) {
    Model model;
    row.tweak(model);
    EXPECT_EQ(model.Validate(), row.status) << row.name;
    std::string stationary;
    for (const int flag :
         {model.rotationStationary, model.weightStationary, model.rangeStationary, model.modelStationary}) {
      stationary += std::to_string(flag);
    }
    EXPECT_EQ(stationary, row.stationary) << row.name;
    model.record.nelem = 2;
  }
}

TEST(CovModelValidation, MarksTheFirstValuesOfElementImagesAndTheMaskedNodesOfAngles) {
  Model model;
  model.Elem(0).rxImageFlag = TRUE;
  model.Elem(0).rxImage = NewImage(model.grid, 1, 5.0);
  model.record.angle3ImageFlag = TRUE;
  model.record.angle3Image = NewImage(model.grid, 1, 5.0);
  EXPECT_EQ(model.Validate(Mask(model.grid, {10, 20}).image), 0);
  for (int i = 0; i < 30; ++i) {
    EXPECT_EQ(model.Elem(0).rxImage->var[i], i < 2 ? VORL_MISSING_VALUE : 5.0) << i;
    EXPECT_EQ(model.record.angle3Image->var[i], i == 10 || i == 20 ? VORL_MISSING_VALUE : 5.0) << i;
  }
}

TEST(CovModelValidation, TestsTheValueAtTheCursorOnly) {
  const struct {
    int badValue;
    std::vector<int> masked;
    int status;
    int nmissing;
  } rows[] = {
      {0, {}, -71648, 0},     {1, {}, 0, 0},  // without a mask only the first value is looked at
      {1, {0, 1}, 0, 2},                      // overwritten before it is looked at
      {2, {0, 1}, -71648, 2},                 // looked at by node 2
      {1, {4, 7}, -71648, 1},                 // looked at by node 5, before the second mark
      {4, {4}, 0, 1},
  };
  for (const auto& row : rows) {
    Model model;
    VORL_IMAGE* weight = NewImage(model.grid, 1, 5.0);
    model.Elem(0).weightImageFlag = TRUE;
    model.Elem(0).weightImage = weight;
    weight->var[row.badValue] = -1.0;
    const Mask mask(model.grid, row.masked);
    EXPECT_EQ(model.Validate(row.masked.empty() ? nullptr : mask.image), row.status) << row.badValue;
    for (int i = 0; i < 30; ++i) EXPECT_EQ(weight->var[i] == VORL_MISSING_VALUE, i < row.nmissing) << i;
  }
}

TEST(CovModelPrint, WritesTheWholeModel) {
  Model model;
  model.Elem(0).rxValue = 12.5;
  model.Elem(0).ryImageFlag = TRUE;
  model.Elem(0).ryImage = NewImage(model.grid, 1, 5.0);
  model.SetType(1, COV_MATERN);
  model.Elem(1).sValue = 0.75;
  model.record.angle1Value = -30;
  model.record.angle2ImageFlag = TRUE;
  model.record.angle2Image = NewImage(model.grid, 1, 5.0);
  const std::string expected =
      "> Number of elementary covariance model (contribution):  2\n"
      "\n> Elementary covariance model #0:\n"
      ">    Type: COV_SPHERICAL\n>    Weight:\n>    weightImageFlag: 0\n>    weightValue:       1.000000\n"
      ">    Ranges:\n>    rxImageFlag: 0\n>    ryImageFlag: 1\n>    rzImageFlag: 0\n"
      ">    rxValue:      12.500000\n>    ryValue:       0.000000\n>    rzValue:       0.000000\n>    ryImage:\n" +
      Printed(VORLPrintImage, model.Elem(0).ryImage, ">       ") +
      "\n> Elementary covariance model #1:\n"
      ">    Type: COV_MATERN\n>    Weight:\n>    weightImageFlag: 0\n>    weightValue:       1.000000\n"
      ">    Ranges:\n>    rxImageFlag: 0\n>    ryImageFlag: 0\n>    rzImageFlag: 0\n"
      ">    rxValue:       0.000000\n>    ryValue:       0.000000\n>    rzValue:       0.000000\n"
      ">    Additional parameter (nu), s:\n>    sImageFlag: 0\n>    sValue:       0.750000\n"
      "\n> Orientation angles:\n> angle1ImageFlag: 0\n> angle2ImageFlag: 1\n> angle3ImageFlag: 0\n"
      "> angle1Value:     -30.000000\n> angle2Value:       0.000000\n> angle3Value:       0.000000\n"
      "> angle2Image:\n" +
      Printed(VORLPrintImage, model.record.angle2Image, ">    ");
  EXPECT_EQ(Printed(VORLKestrumPrintCovModel, &model.record), expected);
}

TEST(CovModelPrint, NamesTypesAndTheirExtraParameter) {
  const struct {
    int type;
    const char* name;
    const char* parameter;
  } rows[] = {{0, "COV_NUGGET", ""},       {2, "COV_EXPONENTIAL", ""},  {6, "COV_SINUS_CARDINAL", ""},
              {7, "COV_GAMMA", "(power)"}, {8, "COV_POWER", "(power)"}, {9, "COV_EXPONENTIAL_GENERALIZED", "(power)"},
              {10, "COV_MATERN", "(nu)"},  {11, "unknown", ""},         {-1, "unknown", ""}};
  for (const auto& row : rows) {
    Model model;
    model.SetType(0, row.type);
    const std::string text = Printed(VORLKestrumPrintCovModelElem, &model.Elem(0), "");
    EXPECT_EQ(text.substr(0, text.find('\n')), std::string("Type: ") + row.name);
    const std::size_t parameter = text.find("Additional parameter ");
    EXPECT_EQ(
        parameter == std::string::npos ? "" : text.substr(parameter + 21, text.find(',', parameter) - parameter - 21),
        row.parameter);
  }
}

TEST(CovModelLife, ReleasesNothingOfEmptyRecords) {
  VORLKestrumFreeCovModel(nullptr);
  VORLKestrumFreeCovModelElem(nullptr);
  VORL_COVMODEL model;
  std::memset(&model, 0x5a, sizeof model);
  VORLKestrumInitCovModel(&model);
  model.nelem = 3;  // without a vector
  VORLKestrumFreeCovModel(&model);
  VORL_COVMODELELEM elem;
  std::memset(&elem, 0x5a, sizeof elem);
  VORLKestrumInitCovModelElem(&elem);
  EXPECT_TRUE(elem.covModelType == COV_NUGGET && elem.sValue == 0.0);
  VORLKestrumFreeCovModelElem(&elem);
}
