// Writing that the system does not take is no success.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "core/output_file.hpp"
#include "io/image_files.h"
#include "io/point_set_files.h"
#include "support/test_image.hpp"

namespace {

using kestrum_test::TestImage;

constexpr char kFullDisk[] = "/dev/full";

TEST(FullDisk, EveryWriterReportsIt) {
  char format[] = "%g", name[VORL_VARNAME_LENGTH] = "v";
  TestImage empty(kestrum_test::Grid(1, 1, 1), {}, {});
  // One that fits into the buffer of a stream, and one that does not.
  for (const int n : {2, 20000}) {
    TestImage image(kestrum_test::Grid(n, 1, 1), {"v"}, {1.25});
    char* names[] = {name};
    real* rows[] = {image.var};
    VORL_POINTSET points{n, image.var, image.var, image.var, 1, names, image.var};
    const struct {
      int expected;
      std::function<int(FILE*)> write;
    } writers[] = {
        {-110, [&](FILE* stream) { return VORLWriteImage(&image, format, 0, stream); }},
        {-110, [&](FILE* stream) { return VORLWriteImage(&image, format, 1, stream); }},
        {-110, [&](FILE* stream) { return VORLWriteImage(&image, format, 2, stream); }},
        {-110, [&](FILE* stream) { return VORLWriteImage(&empty, format, 0, stream); }},
        {-1039, [&](FILE* stream) { return VORLWriteImageGslibBinary(&image, stream); }},
        {-1037, [&](FILE* stream) { return VORLWriteImageGslibBinary(&empty, stream); }},
        {-110, [&](FILE* stream) { return VORLWritePointSet(&points, format, format, stream); }},
        {-110, [&](FILE* stream) { return VORLWriteArray2D(1, n, rows, format, stream); }},
    };
    for (const auto& [expected, write] : writers) {
      FILE* const stream = std::fopen(kFullDisk, "w");
      ASSERT_NE(stream, nullptr);
      EXPECT_EQ(write(stream), expected);
      std::fclose(stream);
    }
  }
}

TEST(FullDisk, OutputFiles) {
  const std::string folder = testing::TempDir(), path = folder + "kestrum_output_file";
  for (const std::size_t size : {std::size_t{1}, std::size_t{100000}}) {
    const std::string text(size, 'x');
    for (const auto& [name, status] : {std::pair{path.c_str(), 0}, {kFullDisk, -110}}) {
      kestrum::OutputFile file;
      ASSERT_EQ(file.Open(name), 0);
      std::fputs(text.c_str(), file.stream());
      EXPECT_EQ(file.Close(), status);
      EXPECT_EQ(file.stream(), nullptr);
      EXPECT_EQ(file.Close(), 0);
    }
    FILE* const back = std::fopen(path.c_str(), "r");
    std::string read(size + 1, '\0');
    EXPECT_EQ(std::fread(read.data(), 1, read.size(), back), size);
    std::fclose(back);
  }
  std::remove(path.c_str());
  for (const char* const name : {static_cast<const char*>(nullptr), folder.c_str(), "/nowhere/at/all"}) {
    kestrum::OutputFile file;
    EXPECT_EQ(file.Open(name), -110);
    EXPECT_EQ(file.Close(), 0);
  }
}

}  // namespace
