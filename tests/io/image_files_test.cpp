#include "io/image_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"
#include "support/text_stream.hpp"

namespace {

using namespace kestrum_test;
using Stream = TextStream;
using Names = std::vector<std::string>;

constexpr VORL_GRID kGrid{2, 1, 2, 2.0, 0.5, 1.0, 5.0, -6.0, 0.1234567, 0, 0};

std::string WriteText(VORL_IMAGE& image, std::string formats, int fileFormat, int expectedStatus = 0) {
  return Written([&](FILE* stream) { return VORLWriteImage(&image, formats.data(), fileFormat, stream); },
                 expectedStatus);
}

constexpr int kBinary = -2;  // instead of the number of a text format

int Read(VORL_IMAGE* image, int fileFormat, const std::string& bytes) {
  Stream stream(bytes);
  return fileFormat == kBinary ? VORLReadImageGslibBinary(image, stream.file)
                               : VORLReadImage(image, fileFormat, stream.file);
}

std::string Bytes(VORL_IMAGE& image) {
  return Written([&](FILE* stream) { return VORLWriteImageGslibBinary(&image, stream); });
}

std::string Lines(const Names& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST(ImageFiles, WholeFiles) {
  Image two(kGrid, {"por", "perm"}, {1, 2, 3, 4, 10.5, kMissing, 0.1, -2.9});
  Image gray({2, 1, 1, 2, 2, 1, 5, 6, 0, 0, 0}, {"g"}, {0, 300.7});
  Image color({1, 2, 1, 2, 2, 1, 5, 6, 0, 0, 0}, {"r", "g", "b"}, {0, 1, 2, 3, 4, 5});
  const struct {
    VORL_IMAGE* image;
    int fileFormat;
    const char* names;
    const char* text;
  } cases[] = {{&two, 0, "por\nperm\n",
                "2 1 2 2.000000 0.500000 1.000000 5.000000 -6.000000 0.123457\n2\npor\nperm\n"
                "1 10.5\n2 -9999999\n3 0.1\n4 -2.9\n"},
               {&two, 1, "por\nperm\n",
                "# vtk DataFile Version 3.4\nImage\nASCII\nDATASET STRUCTURED_POINTS\nDIMENSIONS 2 1 2\n"
                "ORIGIN 5.000000 -6.000000 0.123457\nSPACING 2.000000 0.500000 1.000000\nPOINT_DATA 4\n"
                "SCALARS por/perm float 2\nLOOKUP_TABLE default\n1 10.5\n2 -9999999\n3 0.1\n4 -2.9\n"},
               {&gray, 2, "pgmValue\n",
                "P2\n# PGM: 2 1 1 2.000000 2.000000 1.000000 5.000000 6.000000 0.000000\n2 1\n255\n0\n300.7\n"},
               {&color, 3, "ppmR\nppmG\nppmB\n",
                "P3\n# PPM: 1 2 1 2.000000 2.000000 1.000000 5.000000 6.000000 0.000000\n1 2\n255\n0 2 4\n1 3 5\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fileFormat);
    EXPECT_EQ(WriteText(*c.image, VORL_FORMAT_DEFAULT, c.fileFormat), c.text);

    Stream stream(c.text + std::string("7 and more"));
    Image back;
    ASSERT_EQ(VORLReadImage(&back, c.fileFormat, stream.file), 0);
    EXPECT_EQ(stream.Rest(), "\n7 and more");
    EXPECT_EQ(back.Values(), static_cast<Image*>(c.image)->Values());
    const VORL_GRID& grid = *back.grid;
    const bool isMap = c.fileFormat >= 2;
    EXPECT_TRUE(grid.nx == c.image->grid->nx && grid.ny == c.image->grid->ny && grid.nxyz == c.image->grid->nxyz);
    EXPECT_EQ(grid.sx, isMap ? 1.0 : c.image->grid->sx);
    EXPECT_EQ(grid.oy, isMap ? 0.0 : c.image->grid->oy);
    EXPECT_EQ(grid.oz, isMap ? 0.0 : 0.123457);
    EXPECT_EQ(Lines({back.varName, back.varName + back.nvar}), c.names);
  }
}

TEST(ImageFiles, FormatLists) {
  Image image({1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"a", "b", "c", "d", "e"}, {2.9, -2.9, kMissing, 1e30, -0.0});
  const std::string longest = std::string(123, 'x') + "%.1f";
  const std::string units = " 1.000000 1.000000 1.000000 0.000000 0.000000 0.000000\n";
  const struct {
    std::string formats;
    std::string line;
  } cases[] = {{"%d;%.2f", "2 -2.90 -9999999 1000000000000000019884624838656.00 0"},
               {"%i", "2 -2 -9999999 -2147483648 0"},
               {";;%4.1f;;", " 2.9 -2.9 -9999999.0 1000000000000000019884624838656.0 -0.0"},
               {"%g;%g;%g;%g;<%%%+.1le>;%s", "2.9 -2.9 -1e+07 1e+30 <%-0.0e+00>"},
               {longest + ";%g;%g;%g;%g", std::string(123, 'x') + "2.9 -2.9 -1e+07 1e+30 -0"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.formats);
    EXPECT_EQ(WriteText(image, c.formats, 0), "1 1 1" + units + "5\na\nb\nc\nd\ne\n" + c.line + "\n");
  }
  for (const std::string& unfit :
       Names{"-%5d|", "", ";;;", "x" + longest, "%f;%s", "%n", "%*f", "%f %f", "%Lf", "%ld", "%f mid", "%"}) {
    EXPECT_EQ(WriteText(image, unfit, 0, -1021), "") << unfit;
  }
  EXPECT_EQ(VORLWriteImage(&image, nullptr, 0, stdout), -1021);
  Image empty({3, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {}, {});
  EXPECT_EQ(WriteText(empty, "", 0), "3 1 1" + units + "0\n");
}

TEST(ImageFiles, RefusalsToWrite) {
  const struct {
    Names names;
    int fileFormat;
    int status;
  } cases[] = {{{"a", "b"}, 2, -1016},      {{"a", "b"}, 3, -1017}, {{"a"}, 2, -1018},
               {{"a", "b", "c"}, 3, -1019}, {{"a"}, 4, -1020},      {{"a"}, -1, -1020}};
  for (const auto& c : cases) {
    Image image(kGrid, c.names, {0});
    EXPECT_EQ(WriteText(image, "", c.fileFormat, c.status), "");
  }
}

TEST(ImageFiles, GslibGridWithFewerFields) {
  for (const std::string& line : Names{"1 1 1", "1 1 1 words", "1 1 1 2 3 4", "1 1 1 2 3 4 5 6 7 8 9"}) {
    Image image;
    ASSERT_EQ(Read(&image, 0, line + "\n1\nv\n3"), 0);
    EXPECT_EQ(image.grid->sx, line.find('2') == std::string::npos ? 1 : 2) << line;
    EXPECT_EQ(image.grid->oz, line.find('7') == std::string::npos ? 0 : 7) << line;
    EXPECT_EQ(image.var[0], 3.0);
  }
  for (const char* const fields : {"1 1", "1 1 1 2", "1 1 1 2 3", "1 1 1 2 3 4 5", "1 1 1 2 3 4 5 6"}) {
    Image image;
    EXPECT_EQ(Read(&image, 0, std::string(fields) + "\n1\nv\n3"), -723) << fields;
  }
}

// A good header, with the rows that a missing line gives; the next row is that of a line too long.
const Names kVtk{"# vtk",
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
const Names kGray{"P2", "#", "2 1", "255"};
const Names kColor{"P3", "#", "2 1", "255"};

TEST(ImageFiles, HeaderLinesLackingOrTooLong) {
  const struct {
    int fileFormat;
    Names lines;
    std::vector<int> rows;
  } cases[] = {
      {0, {"2 1 1"}, {721}}, {1, kVtk, kVtkRows}, {2, kGray, {763, 763, 763, 763}}, {3, kColor, {767, 767, 767, 767}}};
  for (const auto& c : cases) {
    for (std::size_t i = 0; i < c.lines.size(); ++i) {
      const std::string text = Lines({c.lines.begin(), c.lines.begin() + static_cast<std::ptrdiff_t>(i)});
      const auto status = [&](const std::string& line) {
        Image image;
        return Read(&image, c.fileFormat, text + line);
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
    Names lines = kVtk;
    lines[line - 1] = text;
    return Lines(lines) + values;
  };
  const auto map = [](const char* keyword, const char* sizes, const char* values) {
    return std::string(keyword) + "\n#\n" + sizes + "\nwhatever\n" + values;
  };
  const auto binary = [](std::int32_t nx, std::int32_t ny, std::int32_t nz, std::int32_t nvar, std::string rest = "") {
    std::string bytes(66, '\0');
    const std::int32_t sizes[] = {nx, ny, nz};
    std::memcpy(&bytes[2], sizes, sizeof sizes);
    std::memcpy(&bytes[62], &nvar, sizeof nvar);
    return bytes + rest;
  };
  const std::string name255(255, 'n'), zeros(9, '\0');
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
               {0, "-2 -1 1\n1\na\n1 2", -3},
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
               {3, map("P3", "1 1", "1 2"), -730},
               {kBinary, binary(65536, 32768, 1, 1), -1050},
               {kBinary, binary(1000, 1000, 1000, 3), -1057},
               {kBinary, binary(1, 1, 1, 2000000000, "a"), -1058},
               {kBinary, binary(1, 1, 1, 2000000000, name255 + "n"), -726},
               {kBinary, binary(1, 1, 1, 1, name255 + zeros), 0},
               {kBinary, binary(1, 1, 1, 1, name255 + "n" + zeros), -726},
               {kBinary, binary(0, 1, 1, 2000000000), -3},
               {kBinary, binary(-1, 1, 1, 1), -3},
               {kBinary, binary(5, 1, 1, 0), 0},
               {kBinary, binary(5, 1, 1, -7), 0}};
  for (const auto& c : cases) {
    Image image;
    EXPECT_EQ(Read(&image, c.fileFormat, c.text), c.status) << c.text;
  }
}

TEST(ImageFiles, VtkNames) {
  const struct {
    const char* line;
    Names names;
  } cases[] = {{"S a/b/c float 3", {"a", "b", "c"}}, {"S a/b/c float 2", {"a", "b/c"}}, {"S a/b/c float", {"a/b/c"}}};
  for (const auto& c : cases) {
    Names lines = kVtk;
    lines[8] = c.line;
    Image image;
    ASSERT_EQ(Read(&image, 1, Lines(lines) + "1 2 3 4 5 6"), 0);
    EXPECT_EQ(Names(image.varName, image.varName + image.nvar), c.names);
  }
}

TEST(ImageFiles, BinaryKeepsEveryBit) {
  const double tiny = std::numeric_limits<double>::denorm_min();
  Image image(kGrid, {"with blank", "b"}, {1.0 / 3, -0.0, tiny, kMissing, INFINITY, 1e300, 2, 3});
  std::string bytes = Bytes(image);
  ASSERT_EQ(bytes.size(), 66u + 13u + 64u);
  EXPECT_EQ(bytes.substr(0, 6), std::string("\x04\x08\x02\0\0\0", 6));
  EXPECT_EQ(bytes.substr(62, 17), std::string("\x02\0\0\0with blank\0b\0", 17));

  bytes[0] = bytes[1] = 9;
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
  const std::string bytes = Bytes(image);
  // First byte of each field; the reader's rows are these, the writer's are 20 less.
  const std::pair<std::size_t, int> fields[] = {{0, 1045},  {1, 1046},  {2, 1048},  {6, 1049},  {10, 1050},
                                                {14, 1051}, {22, 1052}, {30, 1053}, {38, 1054}, {46, 1055},
                                                {54, 1056}, {62, 1057}, {66, 1058}, {70, 1059}};
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    int row = 0;
    for (const auto& [begin, fieldRow] : fields) row = length >= begin ? fieldRow : row;
    Image back;
    EXPECT_EQ(Read(&back, kBinary, bytes.substr(0, length)), -row) << length;

    char block[128];
    FILE* const narrow = fmemopen(block, length, "w");
    std::setvbuf(narrow, nullptr, _IONBF, 0);
    EXPECT_EQ(VORLWriteImageGslibBinary(&image, narrow), -(row - 20)) << length;
    std::fclose(narrow);
  }
}

// Besides the variables of a map, so many that their names are read before there is memory for the image.
TEST(ImageFiles, FailingAllocations) {
  for (const std::size_t nvar : {1, 3, VORL_MAX_NVAR + 1}) {
    Image image({2, 2, 1, 1, 1, 1, 0, 0, 0, 0, 0}, Names(nvar, "name"), {1});
    for (const int fileFormat : {0, 1, 2, 3, kBinary}) {
      if (nvar > 3 ? fileFormat > 0 : fileFormat == 2 ? nvar != 1 : fileFormat == 3 && nvar != 3) continue;
      SCOPED_TRACE(fileFormat);
      const std::string bytes = fileFormat == kBinary ? Bytes(image) : WriteText(image, "%g", fileFormat);
      ForEachFailingAllocation([&] {
        Image back;
        return Read(&back, fileFormat, bytes);
      });
      if (fileFormat == kBinary) continue;
      ForEachFailingAllocation([&] {
        Stream stream;
        char format[] = "%g";
        return VORLWriteImage(&image, format, fileFormat, stream.file);
      });
    }
  }
}

}  // namespace
