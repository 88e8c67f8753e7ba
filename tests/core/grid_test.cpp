#include "core/grid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

namespace {

VORL_GRID SmallGrid() { return {4, 3, 5, 1.0, 2.0, 0.5, 10.0, -20.0, 0.0, 12, 60}; }

int ReadFrom(const char* text, VORL_GRID* grid) {
  FILE* stream = fmemopen(const_cast<char*>(text), std::strlen(text), "r");
  const int status = VORLReadGrid(grid, stream);
  std::fclose(stream);
  return status;
}

}  // namespace

TEST(Grid, IndicesGoThereAndBack) {
  for (VORL_GRID grid : {SmallGrid(), VORL_GRID{1, 1, 1, 1, 1, 1, 0, 0, 0, 1, 1}}) {
    int expected = 0;
    for (int iv = 0; iv < 2; ++iv) {
      for (int iz = 0; iz < grid.nz; ++iz) {
        for (int iy = 0; iy < grid.ny; ++iy) {
          for (int ix = 0; ix < grid.nx; ++ix, ++expected) {
            int id = -1, jx = -1, jy = -1, jz = -1, jv = -1;
            VORLGridCoordToId(&grid, ix, iy, iz, iv, &id);
            ASSERT_EQ(id, expected);
            VORLGridIdToCoord(&grid, id, &jx, &jy, &jz, &jv);
            ASSERT_TRUE(jx == ix && jy == iy && jz == iz && jv == iv);
          }
        }
      }
    }
  }
}

TEST(Grid, ComparisonTellsTheFirstFieldThatDiffers) {
  VORL_GRID a = SmallGrid();
  EXPECT_EQ(VORLCmpGrid(&a, &a), 0);
  for (int field = 1; field <= 11; ++field) {
    VORL_GRID b = SmallGrid();
    int* const whole[] = {&b.nx, &b.ny, &b.nz, &b.nxy, &b.nxyz};
    real* const numbers[] = {&b.sx, &b.sy, &b.sz, &b.ox, &b.oy, &b.oz};
    if (field <= 3 || field >= 10) {
      ++*whole[field <= 3 ? field - 1 : field - 7];
    } else {
      *numbers[field - 4] = std::nextafter(*numbers[field - 4], HUGE_VAL);
    }
    b.nxyz += field < 11;  // a later difference does not matter
    EXPECT_EQ(VORLCmpGrid(&a, &b), -field);
    EXPECT_EQ(VORLCmpGrid(&b, &a), field);
  }
}

TEST(Grid, ValidationTellsTheFirstFailure) {
  for (int failing = 0; failing <= 6; ++failing) {
    VORL_GRID grid = SmallGrid();
    grid.sx = VORL_MIN_SPACING;
    grid.sz = std::nan("");
    grid.nxy = grid.nxyz = 0;
    if (failing == 1) grid.nx = grid.ny = 0;
    if (failing == 2) grid.ny = -1;
    if (failing == 3) grid.nz = 0, grid.sx = 0.0;
    if (failing == 4) grid.sx = grid.sy = 9e-16;
    if (failing == 5) grid.sy = -1.0;
    if (failing == 6) grid.sz = 0.0;
    int status = 7;
    EXPECT_EQ(VORLValidateGrid(&grid, &status), 0);
    EXPECT_EQ(status, failing == 0 ? 0 : -600 - failing);
  }
}

TEST(Grid, ReadingAcceptsAnyLayout) {
  for (const char* text :
       {"4 3 5 1 2 0.5 10 -20 0", "4//nx\n3 5/* sizes **/1.0\n\t2e0\r\n.5 // s\n10 -20 /* */ 0 rest"}) {
    VORL_GRID grid;
    EXPECT_EQ(ReadFrom(text, &grid), 0);
    VORL_GRID expected = SmallGrid();
    EXPECT_EQ(VORLCmpGrid(&grid, &expected), 0) << text;
  }
}

TEST(Grid, ReadingFailsAtTheEntry) {
  const std::string entries[] = {"4 ", "3 ", "5 ", "1 ", "2 ", ".5 ", "10 ", "-20 "};
  std::string text = " ";
  for (int entry = 0; entry <= 8; ++entry) {
    VORL_GRID grid = {};
    EXPECT_EQ(ReadFrom(text.c_str(), &grid), -711 - entry);
    EXPECT_EQ(ReadFrom((text + "word").c_str(), &grid), -711 - entry);
    EXPECT_EQ(ReadFrom((text + "// 7").c_str(), &grid), -711 - entry);
    EXPECT_EQ(grid.nx, entry > 0 ? 4 : 0);
    EXPECT_EQ(grid.nxyz, 0);
    if (entry < 8) text += entries[entry];
  }
}

TEST(Grid, ProductsThatDoNotFitAreRefusedLater) {
  VORL_GRID grid;
  EXPECT_EQ(ReadFrom("65536 65536 1 1 1 1 0 0 0", &grid), 0);
  EXPECT_EQ(grid.nxyz, 0);
  int ix = 0, iy = 0, iz = 0, iv = 0;
  VORLGridIdToCoord(&grid, 5, &ix, &iy, &iz, &iv);
  EXPECT_EQ(ix, -1);
}
