#include "core/image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "core/owned_image.hpp"
#include "support/allocation_failure.hpp"

TEST(Image, CopyOwnsItsParts) {
  OwnedImage image({{1.0, kMissing}, {3.0, 4.0}});
  VORL_IMAGE copy;
  ASSERT_EQ(VORLCopyImage(&copy, &image), 0);
  EXPECT_EQ(VORLCmpGrid(copy.grid, image.grid), 0);
  EXPECT_TRUE(copy.nvar == 2 && copy.nxyzv == 4);
  image.grid->nx = 7;
  image.var[3] = -1.0;
  std::strcpy(image.varName[1], "changed");
  EXPECT_EQ(copy.grid->nx, 2);
  EXPECT_EQ(std::vector<real>(copy.var, copy.var + 4), (std::vector<real>{1.0, kMissing, 3.0, 4.0}));
  EXPECT_STREQ(copy.varName[0], "a");
  EXPECT_STREQ(copy.varName[1], "b");
  VORLFreeImage(&copy);
  VORLFreeImage(nullptr);
  EXPECT_EQ(VORLMallocImage(&copy, 10, 0), 0);
  EXPECT_EQ(copy.var, nullptr);
  VORLFreeImage(&copy);
  EXPECT_EQ(VORLMallocImage(&copy, 0, 1), -3);
  VORLFreeImage(&copy);
  VORL_IMAGE empty;
  VORLInitImage(&empty);
  EXPECT_EQ(VORLCopyImage(&copy, &empty), -20);
  VORLFreeImage(&copy);
  EXPECT_EQ(VORLCopyImage(&image, &image), -20);
}

// An image can be released after a failure, whatever it held before.
TEST(Image, FailingAllocations) {
  OwnedImage image({{1.0, 2.0}});
  char prefix[] = "# ";
  const auto make = [](auto... arguments) { return MakeFromGarbage<VORL_IMAGE, VORLFreeImage>(arguments...); };
  kestrum_test::ForEachFailingAllocation({
      {"memory", [&] { return make(VORLMallocImage, 3, 2); }},
      {"copy", [&] { return make(VORLCopyImage, &image); }},
      {"picture", [&] { return make(VORLImageEE); }},
      {"print",
       [&] { return kestrum_test::WriteStatus([&](FILE* stream) { return VORLPrintImage(&image, prefix, stream); }); }},
  });
}

TEST(Image, ValidationTellsTheFirstFailure) {
  struct Row {
    int expected;
    void (*spoil)(VORL_IMAGE*);
    int extraNameLength = 0;
  };
  static constexpr auto kLongName = [](VORL_IMAGE* image) {
    std::strcpy(image->varName[1], std::string(250, 'n').c_str());
  };
  const Row rows[] = {
      {0, [](VORL_IMAGE*) {}},
      {0, [](VORL_IMAGE* image) { image->nvar = 1; }},
      {-611, [](VORL_IMAGE* image) { image->grid->nx = 0; }},
      {-612, [](VORL_IMAGE* image) { image->grid->ny = image->grid->nz = 0; }},
      {-616, [](VORL_IMAGE* image) { image->grid->sz = 0.0, image->nvar = 0; }},
      {-621, [](VORL_IMAGE* image) { image->nvar = image->nxyzv = 0; }},
      {-622, [](VORL_IMAGE* image) { image->nvar = VORL_MAX_NVAR + 1; }},
      {-625, [](VORL_IMAGE* image) { image->nxyzv = 0, image->varName[1][0] = 'a'; }},
      {-623, kLongName, 6},
      {0, kLongName, 5},
      {-623, [](VORL_IMAGE* image) { std::memset(image->varName[0], 'n', VORL_VARNAME_LENGTH); }},
      {-624, [](VORL_IMAGE* image) { image->varName[2][0] = 'b', image->var[0] = std::nan(""); }},
      {-627, [](VORL_IMAGE* image) { image->var[2] = std::nan(""), image->var[5] = HUGE_VAL; }},
      {-628, [](VORL_IMAGE* image) { image->var[2] = -HUGE_VAL, image->var[5] = std::nan(""); }},
  };
  for (const Row& row : rows) {
    OwnedImage image({{1.0, kMissing}, {kMissing, kMissing}, {5.0, 6.0}});
    row.spoil(&image);
    int status = 7;
    EXPECT_EQ(VORLValidateImage(&image, row.extraNameLength, &status), 0);
    EXPECT_EQ(status, row.expected);
    image.nvar = 3;
  }
  VORL_IMAGE empty;
  VORLInitImage(&empty);
  int status = 0;
  EXPECT_EQ(VORLValidateImage(&empty, 0, &status), 0);
  EXPECT_EQ(status, -611);
}

TEST(Image, PrintIndentsTheNestedRecord) {
  OwnedImage image({{1.0, 2.0}, {3.0, 4.0}});
  EXPECT_EQ(kestrum_test::Printed(VORLPrintImage, &image, "# "),
            "# grid:\n"
            "#    Size   :       2              1              1\n"
            "#    Spacing:       1.000000       1.000000       1.000000\n"
            "#    Origin :       0.000000       0.000000       0.000000\n"
            "#    Number of nodes in a xy-section:        2\n"
            "#    Total number of nodes          :        2\n"
            "# nvar:         2\n"
            "# nxyzv:        4\n"
            "# varName:\n"
            "#    a\n"
            "#    b\n");
}

TEST(Image, ConstantPicture) {
  VORL_IMAGE image;
  ASSERT_EQ(VORLImageEE(&image), 0);
  VORL_GRID expected = {365, 365, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 133225, 133225};
  EXPECT_EQ(VORLCmpGrid(image.grid, &expected), 0);
  EXPECT_EQ(image.nvar, 1);
  EXPECT_EQ(image.nxyzv, 133225);
  EXPECT_STREQ(image.varName[0], "surprise");
  std::map<real, int> count;
  for (int k = 0; k < image.nxyzv; ++k) ++count[image.var[k]];
  EXPECT_EQ(count, (std::map<real, int>{{0.0, 44700}, {1.0, 43148}, {2.0, 45377}}));
  VORLFreeImage(&image);
}
