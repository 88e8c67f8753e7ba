#include "paths/sim_and_path_parameters.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/owned.hpp"
#include "support/text_stream.hpp"

namespace {

struct Parameters
    : kestrum_test::Owned<VORL_SIMANDPATHPARAMETERS, VORLInitSimAndPathParameters, VORLFreeSimAndPathParameters> {
  int Read(const std::string& text) { return VORLReadSimAndPathParameters(this, kestrum_test::TextStream(text).file); }
  std::string Printed() { return kestrum_test::Printed(VORLPrintSimAndPathParameters, this); }
};

// What is read can be copied and printed; what is missing or spoilt gives the status of its entry.
TEST(SimAndPathParameters, ReadsCopiesAndPrints) {
  const std::string one = "SIM_ONE_BY_ONE ", all = "/* nodes */ SIM_VARIABLE_VECTOR // line\n";
  const struct {
    std::string text;
    int status;
    std::string printed = "";  // behind "Path type: "
  } cases[] = {
      {one + "PATH_RANDOM", 0, "PATH_RANDOM\n"},
      {all + "PATH_RANDOM_HD_DISTANCE_PDF 0.25", 0, "PATH_RANDOM_HD_DISTANCE_PDF strength: 0.25\n"},
      {all + "PATH_RANDOM_HD_DISTANCE_SORT 1e-3", 0, "PATH_RANDOM_HD_DISTANCE_SORT strength: 0.001\n"},
      {one + "PATH_RANDOM_HD_DISTANCE_SUM_PDF /**/ 1.5 1", 0, "PATH_RANDOM_HD_DISTANCE_SUM_PDF pow: 1.5 strength: 1\n"},
      {one + "PATH_RANDOM_HD_DISTANCE_SUM_SORT 2 .5", 0, "PATH_RANDOM_HD_DISTANCE_SUM_SORT pow: 2 strength: 0.5\n"},
      {all + "PATH_UNILATERAL -2 3 1 9", 0, "PATH_UNILATERAL +Z -X +Y\n"},
      {one + "PATH_UNILATERAL 0 2 0 -1", 0, "PATH_UNILATERAL random X Z,  -V +Y\n"},
      {all + "PATH_UNILATERAL 0 0 0", 0, "PATH_UNILATERAL random X Y Z, \n"},
      {"", -890},
      {"/* SIM_ONE_BY_ONE", -890},
      {"SIM_ONE_BY_ONE_MORE PATH_RANDOM", -890},
      {std::string(100000, 'S'), -890},
      {one, -891},
      {one + "PATH", -891},
      {one + "PATH_UNILATERAL 1 2 3", -892},
      {one + "PATH_UNILATERAL 1 2 3 99999999999", -892},
      {one + "PATH_UNILATERAL 1 x 3 4", -892},
      {one + "PATH_RANDOM_HD_DISTANCE_SORT", -893},
      {one + "PATH_RANDOM_HD_DISTANCE_SUM_SORT 1 //", -893},
      {one + "PATH_RANDOM_HD_DISTANCE_SUM_SORT - 1", -894},
      {one + "PATH_RANDOM_HD_DISTANCE_SUM_PDF", -894}};
  for (const auto& c : cases) {
    Parameters p, copy;
    EXPECT_EQ(p.Read(c.text), c.status) << c.text.substr(0, 80);
    ASSERT_EQ(VORLCopySimAndPathParameters(&copy, &p), 0);
    EXPECT_TRUE(p.unilateralOrder == nullptr || p.unilateralOrder != copy.unilateralOrder);
    if (c.status != 0) continue;
    const std::string sim = p.simType == 0 ? "SIM_ONE_BY_ONE" : "SIM_VARIABLE_VECTOR";
    EXPECT_EQ(p.Printed(), "> Simulation type: " + sim + "\n> Path type: " + c.printed);
    EXPECT_EQ(copy.Printed(), p.Printed());
  }
  Parameters unknown;
  unknown.simType = 2;
  unknown.pathType = -1;
  EXPECT_EQ(unknown.Printed(), "> Simulation type: UNKNOWN\n> Path type: UNKNOWN\n");
}

TEST(SimAndPathParameters, Validates) {
  const double nan = std::nan("");
  const struct {
    int simType, pathType;
    real strength, pow;
    std::vector<int> order;
    int error;
  } cases[] = {{0, 0, -1, -1, {}, 0},
               {2, 9, 0, 0, {}, -705},
               {-1, 0, 0, 0, {}, -705},
               {1, 3, 2, 0, {}, -709},
               {1, 4, 1, 10.1, {}, -709},
               {1, 4, 1, 10, {}, 0},
               {1, 4, 1, nan, {}, -709},
               {1, 3, 1.1, 10, {}, -708},
               {1, 1, 0, 0, {}, 0},
               {1, 1, -.1, 1, {}, -708},
               {1, 2, nan, 1, {}, -708},
               {1, 6, 0, 0, {}, -706},
               {1, -1, 0, 0, {}, -706},
               {1, 5, 0, 0, {0, 0, 0}, 0},
               {1, 5, 0, 0, {1, 3, 0}, -707},
               {1, 5, 0, 0, {-2, 0, 1}, 0},
               {0, 5, 0, 0, {4, -3, 2, 1}, 0},
               {0, 5, 0, 0, {2, -2, 1, 3}, -707},
               {0, 5, 0, 0, {0, 0, 2, 0}, -707},
               {1, 5, 0, 0, {1, INT_MIN, 2}, -707},
               {1, 5, 0, 0, {1, 2, 3, 4, 5}, -707}};
  for (const auto& c : cases) {
    std::vector<int> order = c.order;
    const int n = static_cast<int>(order.size());
    VORL_SIMANDPATHPARAMETERS p{c.simType, c.pathType, n, order.data(), c.strength, c.pow};
    int error = 1;
    EXPECT_EQ(VORLValidateSimAndPathParameters(&p, &error), 0);
    EXPECT_EQ(error, c.error) << &c - cases;
  }
}

TEST(SimAndPathParameters, WithoutMemoryThereIsNoVector) {
  VORLFreeSimAndPathParameters(nullptr);
  Parameters read;
  kestrum_test::ForEachFailingAllocation([&] {
    const int status = read.Read("SIM_VARIABLE_VECTOR PATH_UNILATERAL 1 2 3");
    EXPECT_TRUE(status == 0 || (read.unilateralOrder == nullptr && read.nunilateralOrder == 0));
    return status;
  });
  kestrum_test::ForEachFailingAllocation([&] {
    Parameters copy;
    const int status = VORLCopySimAndPathParameters(&copy, &read);
    EXPECT_TRUE(status == 0 || (copy.unilateralOrder == nullptr && copy.nunilateralOrder == 0));
    return status;
  });
}

}  // namespace
