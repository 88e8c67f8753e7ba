#include "io/image_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;

using Image = kestrum_test::TestImage;

constexpr VORL_GRID kGrid{2, 1, 2, 2.0, 0.5, 1.0, 5.0, -6.0, 0.1234567, 0, 0};

// A stream on a temporary file with this text, at its start.
struct Stream {
  explicit Stream(const std::string& text = "") : file(std::tmpfile()) {
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
  }
  ~Stream() { std::fclose(file); }
  std::string Rest() {
    std::string rest;
    for (int c; (c = std::getc(file)) != EOF;) rest += static_cast<char>(c);
    return rest;
  }
  std::string All() {
    std::rewind(file);
    return Rest();
  }
  FILE* file;
};

int WriteText(VORL_IMAGE& image, std::string formats, int fileFormat, std::string* text) {
  Stream stream;
  const int status = VORLWriteImage(&image, formats.data(), fileFormat, stream.file);
  *text = stream.All();
  return status;
}

std::string Lines(const std::vector<std::string>& lines, std::size_t from = 0) {
  std::string text;
  for (; from < lines.size(); ++from) text += lines[from] + "\n";
  return text;
}

TEST(ImageFiles, WholeFiles) {
  Image two(kGrid, {"por", "perm"}, {1, 2, 3, 4, 10.5, kMissing, 0.1, -2.9});
  Image gray({2, 1, 1, 2, 2, 1, 5, 6, 0, 0, 0}, {"g"}, {0, 300.7});
  Image color({1, 2, 1, 2, 2, 1, 5, 6, 0, 0, 0}, {"r", "g", "b"}, {0, 1, 2, 3, 4, 5});
  const struct {
    VORL_IMAGE* image;
    int fileFormat;
    const char* text;
  } cases[] = {
      {&two, 0,
       "2 1 2 2.000000 0.500000 1.000000 5.000000 -6.000000 0.123457\n2\npor\nperm\n"
       "1 10.5\n2 -9999999\n3 0.1\n4 -2.9\n"},
      {&two, 1,
       "# vtk DataFile Version 3.4\nImage\nASCII\nDATASET STRUCTURED_POINTS\nDIMENSIONS 2 1 2\n"
       "ORIGIN 5.000000 -6.000000 0.123457\nSPACING 2.000000 0.500000 1.000000\nPOINT_DATA 4\n"
       "SCALARS por/perm float 2\nLOOKUP_TABLE default\n1 10.5\n2 -9999999\n3 0.1\n4 -2.9\n"},
      {&gray, 2, "P2\n# PGM: 2 1 1 2.000000 2.000000 1.000000 5.000000 6.000000 0.000000\n2 1\n255\n0\n300.7\n"},
      {&color, 3, "P3\n# PPM: 1 2 1 2.000000 2.000000 1.000000 5.000000 6.000000 0.000000\n1 2\n255\n0 2 4\n1 3 5\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fileFormat);
    std::string text;
    EXPECT_EQ(WriteText(*c.image, VORL_FORMAT_DEFAULT, c.fileFormat, &text), 0);
    EXPECT_EQ(text, c.text);

    Stream stream(text + "7 and more");
    Image back;
    ASSERT_EQ(VORLReadImage(&back, c.fileFormat, stream.file), 0);
    EXPECT_EQ(stream.Rest(), "\n7 and more");
    EXPECT_EQ(back.Values(), static_cast<Image*>(c.image)->Values());
    const VORL_GRID& grid = *back.grid;
    const bool isMap = c.fileFormat >= 2;
    EXPECT_EQ(grid.nx, c.image->grid->nx);
    EXPECT_EQ(grid.ny, c.image->grid->ny);
    EXPECT_EQ(grid.nxyz, c.image->grid->nxyz);
    EXPECT_EQ(grid.sx, isMap ? 1.0 : c.image->grid->sx);
    EXPECT_EQ(grid.oy, isMap ? 0.0 : c.image->grid->oy);
    EXPECT_EQ(grid.oz, isMap ? 0.0 : 0.123457);
    const std::vector<std::string> mapNames[] = {{"pgmValue"}, {"ppmR", "ppmG", "ppmB"}};
    for (int v = 0; v < back.nvar; ++v) {
      EXPECT_EQ(back.varName[v], isMap ? mapNames[c.fileFormat - 2][static_cast<std::size_t>(v)] : c.image->varName[v]);
    }
  }
}

TEST(ImageFiles, FormatLists) {
  Image image({1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"a", "b", "c", "d", "e"}, {2.9, -2.9, kMissing, 1e30, -0.0});
  const std::string longest = std::string(123, 'x') + "%.1f";
  const struct {
    std::string formats;
    int status;
    std::string line;
  } cases[] = {{"%d;%.2f", 0, "2 -2.90 -9999999 1000000000000000019884624838656.00 0"},
               {"%i", 0, "2 -2 -9999999 -2147483648 0"},
               {";;%4.1f;;", 0, " 2.9 -2.9 -9999999.0 1000000000000000019884624838656.0 -0.0"},
               {"%g;%g;%g;%g;<%%%+.1le>;%s", 0, "2.9 -2.9 -1e+07 1e+30 <%-0.0e+00>"},
               {longest + ";%g;%g;%g;%g", 0, std::string(123, 'x') + "2.9 -2.9 -1e+07 1e+30 -0"},
               {"-%5d|", -1021, ""},
               {"", -1021, ""},
               {";;;", -1021, ""},
               {"x" + longest, -1021, ""},
               {"%f;%s", -1021, ""},
               {"%n", -1021, ""},
               {"%*f", -1021, ""},
               {"%f %f", -1021, ""},
               {"%Lf", -1021, ""},
               {"%ld", -1021, ""},
               {"%f mid", -1021, ""},
               {"%", -1021, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.formats);
    std::string text;
    EXPECT_EQ(WriteText(image, c.formats, 0, &text), c.status);
    EXPECT_EQ(text, c.status == 0 ? "1 1 1 1.000000 1.000000 1.000000 0.000000 0.000000 0.000000\n5\na\nb\nc\nd\ne\n" +
                                        c.line + "\n"
                                  : "");
  }
  EXPECT_EQ(VORLWriteImage(&image, nullptr, 0, stdout), -1021);

  Image empty({3, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {}, {});
  std::string text;
  EXPECT_EQ(WriteText(empty, "", 0, &text), 0);
  EXPECT_EQ(text, "3 1 1 1.000000 1.000000 1.000000 0.000000 0.000000 0.000000\n0\n");
}

TEST(ImageFiles, RefusalsToWrite) {
  Image two(kGrid, {"a", "b"}, {0});
  Image one(kGrid, {"a"}, {0});
  Image three(kGrid, {"a", "b", "c"}, {0});
  const struct {
    VORL_IMAGE* image;
    int fileFormat;
    int status;
  } cases[] = {{&two, 2, -1016},   {&two, 3, -1017}, {&one, 2, -1018},
               {&three, 3, -1019}, {&one, 4, -1020}, {&one, -1, -1020}};
  for (const auto& c : cases) {
    std::string text;
    EXPECT_EQ(WriteText(*c.image, "", c.fileFormat, &text), c.status);
    EXPECT_EQ(text, "");
  }
}

TEST(ImageFiles, GslibGridWithFewerFields) {
  const struct {
    const char* line;
    int status;
    double sx, oz;
  } cases[] = {{"1 1 1", 0, 1, 0},
               {"1 1 1 2 3 4", 0, 2, 0},
               {"1 1 1 2 3 4 5 6 7 8 9", 0, 2, 7},
               {"1 1 1 words", 0, 1, 0},
               {"1 1 1 2", -723, 0, 0},
               {"1 1 1 2 3", -723, 0, 0},
               {"1 1 1 2 3 4 5", -723, 0, 0},
               {"1 1 1 2 3 4 5 6", -723, 0, 0},
               {"1 1", -723, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    Stream stream(std::string(c.line) + "\n1\nv\n3");
    Image image;
    EXPECT_EQ(VORLReadImage(&image, 0, stream.file), c.status);
    if (c.status != 0) continue;
    EXPECT_EQ(image.grid->sx, c.sx);
    EXPECT_EQ(image.grid->oz, c.oz);
    EXPECT_EQ(image.var[0], 3.0);
  }
}

// A good header, with the rows that a lacking line gives; the next row is that of a line too long.
const std::vector<std::string> kVtk{"# vtk",
                                    "Image",
                                    "ASCII",
                                    "DATASET",
                                    "DIMENSIONS 2 1 1",
                                    "ORIGIN 0 0 0",
                                    "SPACING 1 1 1",
                                    "POINT_DATA 2",
                                    "SCALARS a/b float 2",
                                    "LOOKUP_TABLE x"};
const std::vector<int> kVtkRows{741, 741, 741, 741, 743, 746, 749, 752, 756, 761};
const std::vector<std::string> kGray{"P2", "#", "2 1", "255"};
const std::vector<std::string> kColor{"P3", "#", "2 1", "255"};

TEST(ImageFiles, HeaderLinesLackingOrTooLong) {
  const struct {
    int fileFormat;
    std::vector<std::string> lines;
    std::vector<int> rows;
  } cases[] = {
      {0, {"2 1 1"}, {721}}, {1, kVtk, kVtkRows}, {2, kGray, {763, 763, 763, 763}}, {3, kColor, {767, 767, 767, 767}}};
  for (const auto& c : cases) {
    for (std::size_t i = 0; i < c.lines.size(); ++i) {
      std::vector<std::string> before(c.lines.begin(), c.lines.begin() + static_cast<std::ptrdiff_t>(i));
      const std::string text = Lines(before);
      const auto status = [&](const std::string& line) {
        Stream stream(text + line);
        Image image;
        return VORLReadImage(&image, c.fileFormat, stream.file);
      };
      SCOPED_TRACE(text);
      EXPECT_EQ(status(""), -c.rows[i]);
      EXPECT_EQ(status(c.lines[i]), -(c.rows[i] + 1)) << "no end of line";
      const std::string padding(255 - c.lines[i].size(), ' ');
      EXPECT_EQ(status(c.lines[i] + padding + "\n"), -(c.rows[i] + 1));
      EXPECT_EQ(status(std::string("\0\n", 2)), -(c.rows[i] + 1));
    }
  }
}

TEST(ImageFiles, BrokenFiles) {
  const auto vtk = [](std::size_t line, const char* text, const char* values = "1 2 3 4") {
    std::vector<std::string> lines = kVtk;
    lines[line - 1] = text;
    return Lines(lines) + values;
  };
  const auto map = [](const char* keyword, const char* sizes, const char* values) {
    return std::string(keyword) + "\n#\n" + sizes + "\nwhatever\n" + values;
  };
  const std::string name255(255, 'n');
  const struct {
    int fileFormat;
    std::string text;
    int status;
  } cases[] = {{4, "", -720},
               {-1, "", -720},
               {0, "1 1 1\nx", -724},
               {0, "1 1 1\n", -724},
               {0, "1 1 1\n2\na\n", -725},
               {0, "1 1 1\n1\n" + name255 + "\n1", 0},
               {0, "1 1 1\n1\n" + name255 + "n\n1", -726},
               {0, "1 1 1 \n1 a 1e", 0},
               {0, "1 1 1\n1\na\n", -730},
               {0, "2 1 1\n1\na\n1 x 2", -730},
               {0, "1 1 1\n1\ntwo words\n1", -730},
               {0, "0 1 1\n1\na\n", -3},
               {0, "-2 1 1\n1\na\n1 2", -3},
               {0, "3 1 1\n0\n", 0},
               {0, "3 1 1\n-2\n", 0},
               {0, "65536 32768 1\n1\na\n", -723},
               {0, "65536 32768 0\n1\na\n", -723},
               {0, "99999999999999999999 1 1\n1\na\n", -723},
               {0, "1000 1000 1000\n3\na\n", -724},
               {0, "1 1 1\n3000000000\na\n", -724},
               {0, "1 1 1\n2000000000\na b c\n", -725},
               {0, "1 1 1\n2000000000\n" + name255 + "n", -726},
               {0, "0 1 1\n2000000000\na b c\n", -3},
               {1, vtk(1, ""), 0},
               {1, vtk(5, "DIMENSIONS 2 1"), -745},
               {1, vtk(5, "2 1 1"), -745},
               {1, vtk(5, "D 65536 65536 1"), -745},
               {1, vtk(6, "ORIGIN 0 0 x"), -748},
               {1, vtk(7, "SPACING"), -751},
               {1, vtk(8, "POINT_DATA"), -754},
               {1, vtk(8, "POINT_DATA 3"), -755},
               {1, vtk(8, "POINT_DATA 4294967298"), -755},
               {1, vtk(9, "SCALARS a/b"), -758},
               {1, vtk(9, "SCALARS a/b float 2000000000"), -758},
               {1, vtk(9, "SCALARS a/b float 1000000000"), -759},
               {1, vtk(9, "SCALARS a/b float 3"), -759},
               {1, vtk(9, "SCALARS a/b float"), 0},
               {1, vtk(9, "SCALARS a/ float 2"), 0},
               {1, vtk(10, "", "1 2 3"), -730},
               {2, map("P2", "2 1", "1 2"), 0},
               {2, map("P3", "2 1", "1 2"), -765},
               {2, "P2\r\n#\r\n2 1\r\n255\r\n1 2", -765},
               {2, map("P2", "2", "1 2"), -766},
               {2, map("P2", "65536 65536", "1 2"), -766},
               {2, map("P2", "2 1", "1 "), -730},
               {3, map("P3", "1 1", "1 2 3"), 0},
               {3, map("P2", "1 1", "1 2 3"), -769},
               {3, map("P3", "x 1", "1 2 3"), -710},
               {3, map("P3", "40000 40000", "1 2 3"), -710},
               {3, map("P3", "1 1", "1 2"), -730}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Stream stream(c.text);
    Image image;
    EXPECT_EQ(VORLReadImage(&image, c.fileFormat, stream.file), c.status);
  }
}

TEST(ImageFiles, VtkNames) {
  const struct {
    const char* line;
    std::vector<std::string> names;
  } cases[] = {{"S a/b/c float 3", {"a", "b", "c"}}, {"S a/b/c float 2", {"a", "b/c"}}, {"S a/b/c float", {"a/b/c"}}};
  for (const auto& c : cases) {
    std::vector<std::string> lines = kVtk;
    lines[8] = c.line;
    Stream stream(Lines(lines) + "1 2 3 4 5 6");
    Image image;
    ASSERT_EQ(VORLReadImage(&image, 1, stream.file), 0);
    EXPECT_EQ((std::vector<std::string>(image.varName, image.varName + image.nvar)), c.names);
  }
}

TEST(ImageFiles, BinaryKeepsEveryBit) {
  const double tiny = std::numeric_limits<double>::denorm_min();
  Image image(kGrid, {"with blank", "b"}, {1.0 / 3, -0.0, tiny, kMissing, INFINITY, 1e300, 2, 3});
  Stream stream;
  ASSERT_EQ(VORLWriteImageGslibBinary(&image, stream.file), 0);
  std::string bytes = stream.All();
  ASSERT_EQ(bytes.size(), 66u + 13u + 64u);
  EXPECT_EQ(bytes.substr(0, 6), std::string("\x04\x08\x02\0\0\0", 6));
  EXPECT_EQ(bytes.substr(62, 17), std::string("\x02\0\0\0with blank\0b\0", 17));

  bytes[0] = 9;
  bytes[1] = 9;
  Stream copy(bytes + "tail");
  Image back;
  ASSERT_EQ(VORLReadImageGslibBinary(&back, copy.file), 0);
  EXPECT_EQ(copy.Rest(), "tail");
  EXPECT_EQ(std::memcmp(back.var, image.var, 64), 0);
  EXPECT_EQ(back.grid->oz, image.grid->oz);
  EXPECT_EQ(back.nxyzv, 8);
  EXPECT_STREQ(back.varName[0], "with blank");
}

TEST(ImageFiles, BinaryFieldsCutShort) {
  Image image({1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"abc"}, {5});
  Stream stream;
  ASSERT_EQ(VORLWriteImageGslibBinary(&image, stream.file), 0);
  const std::string bytes = stream.All();
  // First byte of each field, with the row of the reader; the writer's is 20 less.
  const struct {
    std::size_t begin;
    int row;
  } fields[] = {{0, 1045},  {1, 1046},  {2, 1048},  {6, 1049},  {10, 1050}, {14, 1051}, {22, 1052},
                {30, 1053}, {38, 1054}, {46, 1055}, {54, 1056}, {62, 1057}, {66, 1058}, {70, 1059}};
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    int row = 0;
    for (const auto& field : fields) row = length >= field.begin ? field.row : row;
    Stream cut(bytes.substr(0, length));
    Image back;
    EXPECT_EQ(VORLReadImageGslibBinary(&back, cut.file), -row) << length;

    char block[128];
    FILE* const narrow = fmemopen(block, length, "w");
    std::setvbuf(narrow, nullptr, _IONBF, 0);
    EXPECT_EQ(VORLWriteImageGslibBinary(&image, narrow), -(row - 20)) << length;
    std::fclose(narrow);
  }
}

TEST(ImageFiles, BinaryHostileHeaders) {
  const auto header = [](std::int32_t nx, std::int32_t ny, std::int32_t nz, std::int32_t nvar) {
    std::string bytes(66, '\0');
    std::memcpy(&bytes[2], &nx, 4);
    std::memcpy(&bytes[6], &ny, 4);
    std::memcpy(&bytes[10], &nz, 4);
    std::memcpy(&bytes[62], &nvar, 4);
    return bytes;
  };
  const struct {
    std::string bytes;
    int status;
  } cases[] = {{header(65536, 32768, 1, 1), -1050},
               {header(1000, 1000, 1000, 3), -1057},
               {header(1, 1, 1, 2000000000) + "a", -1058},
               {header(1, 1, 1, 2000000000) + std::string(256, 'a'), -726},
               {header(1, 1, 1, 1) + std::string(255, 'a') + std::string(9, '\0'), 0},
               {header(1, 1, 1, 1) + std::string(256, 'a') + std::string(9, '\0'), -726},
               {header(0, 1, 1, 2000000000), -3},
               {header(-1, 1, 1, 1), -3},
               {header(5, 1, 1, 0), 0},
               {header(5, 1, 1, -7), 0}};
  for (const auto& c : cases) {
    Stream stream(c.bytes);
    Image image;
    EXPECT_EQ(VORLReadImageGslibBinary(&image, stream.file), c.status);
  }
}

TEST(ImageFiles, FailingAllocations) {
  Image image(kGrid, {"a", "b"}, {1, 2, 3, 4, 5, 6, 7, 8});
  std::string text;
  ASSERT_EQ(WriteText(image, "%g", 0, &text), 0);
  for (long k = 0; k < 10; ++k) {
    Stream stream(text);
    std::getc(stream.file);  // the stream's own buffer
    std::rewind(stream.file);
    Image back;
    kestrum_test::FailAllocation failure(k);
    const int status = VORLReadImage(&back, 0, stream.file);
    EXPECT_EQ(status, failure.Happened() ? -1 : 0);
  }
  Stream stream;
  kestrum_test::FailAllocation failure(0);
  char format[] = "%g";
  EXPECT_EQ(VORLWriteImage(&image, format, 0, stream.file), -1);
  EXPECT_EQ(stream.All(), "");
}

}  // namespace
