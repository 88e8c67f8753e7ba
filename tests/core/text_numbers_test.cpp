#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/text_reader.hpp"
#include "core/text_writer.hpp"
#include "support/text_stream.hpp"

namespace {

using kestrum::NumberFormat;
using kestrum::TextReader;
using kestrum::TextWriter;
using kestrum_test::TextStream;

// Numbers of all magnitudes, ties of decimal rounding, whole numbers, and what has no digits.
std::vector<double> ManyNumbers() {
  using Limits = std::numeric_limits<double>;
  const double nan = std::nan("");
  std::vector<double> numbers{0.0,          -0.0,       INFINITY, -INFINITY, nan,         -nan, -9999999.0,
                              0.5,          1.5,        2.5,      0.125,     1e22,        1e23, 999999.5,
                              9999999999.5, 0x7fffffff, 0x1p31,   -0x1p31,   -0x1p31 - 1, 0.0};
  numbers.insert(numbers.end(), {Limits::max(), Limits::min(), Limits::denorm_min()});
  std::mt19937_64 random(7);
  for (int i = 0; i < 3000; ++i) {
    const double fraction = std::ldexp(static_cast<double>(random() >> 11), -53);
    numbers.push_back(std::ldexp(fraction, static_cast<int>(random() % 2200) - 1100));
    numbers.push_back((fraction - 0.5) * 2000.0);
    numbers.push_back(static_cast<double>(random() % 100001) / 8.0 - 6000.0);
    numbers.push_back(std::floor(fraction * 2e10) - 1e10);
  }
  return numbers;
}

TEST(TextNumbers, PrintLikePrintf) {
  const std::vector<double> numbers = ManyNumbers();
  for (const char* text :
       {"%.10g", "%g",   "%.0g",  "%.17g",  "%12.3g", "%f", "%.0f",     "%.3f",    "%15.2lf", "%.40f",   "%.700f",
        "%e",    "%.0e", "%.16e", "%30.8e", "%a",     "%G", "%-+9.1f|", "%'08.2E", "%400f",   "plain %%"}) {
    NumberFormat format;
    ASSERT_TRUE(format.Set(text, std::strlen(text))) << text;
    TextStream stream;
    {
      TextWriter writer(stream.file);
      for (const double number : numbers) {
        writer.Put(format, number);
        writer.Put('\n');
      }
      EXPECT_EQ(writer.Finish(), 0);
    }
    std::rewind(stream.file);
    for (const double number : numbers) {
      char expected[1200];
      char line[1200];
      std::snprintf(expected, sizeof(expected), (std::string(text) + "\n").c_str(), number);
      ASSERT_NE(std::fgets(line, sizeof(line), stream.file), nullptr);
      ASSERT_STREQ(line, expected) << text;
    }
  }
}

// What scanf takes, and whether, and what it leaves, is the measure: on a file, and through a pipe, which cannot seek.
TEST(TextNumbers, ReadLikeScanf) {
  std::string digits;
  for (int i = 0; i < 100; ++i) digits += "0123456789";
  std::vector<std::string> texts{"",
                                 " \t\n\v\f\r",
                                 "-.5e3\n\n4",
                                 "2.5\xa0_3",
                                 "0." + digits + "e3 ",
                                 digits + " 5",
                                 digits + "." + digits + "e-1000 x",
                                 "0.1000000000000000055511151231257827021181583404541015626 "};
  std::istringstream list(
      "1 2 rest|+1.5,|1e5.5|1.2.3|1e|1e+|1e+x|1ex|.|-|+-1|--1|x1|0x1p4 z|0X.8|0x|0xg|0x.|0x1p|-0xAbC.dEp-2|0x1e+4|inf |"
      "-INFINITYx|infin|infx|+Inf1|nan|-NaN(12)|na|1e400|-1e400|1e-400|4.9e-324|1,5|00012|1d5|1f|9007199254740993");
  for (std::string text; std::getline(list, text, '|');) texts.push_back(text);
  for (const std::string& text : texts) {
    for (const bool throughPipe : {false, true}) {
      SCOPED_TRACE(text.substr(0, 60) + (throughPipe ? " (pipe)" : " (file)"));
      TextStream reference(text), copy(text);
      FILE* stream = copy.file;
      if (throughPipe) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(ends[1]);
        stream = fdopen(ends[0], "r");
      }
      double expected = 0.0;
      double value = 0.0;
      const bool taken = std::fscanf(reference.file, "%lf", &expected) == 1;
      EXPECT_EQ(TextReader(stream).TakeReal(&value), taken);
      if (taken) {
        EXPECT_EQ(std::memcmp(&value, &expected, sizeof(value)), 0) << value << " instead of " << expected;
        for (int c = 0; c != EOF;) {
          c = std::getc(reference.file);
          EXPECT_EQ(std::getc(stream), c);
        }
      }
      if (throughPipe) std::fclose(stream);
    }
  }
}

TEST(TextNumbers, ReadAcrossBlocks) {
  const std::vector<double> numbers = ManyNumbers();
  TextStream stream;
  for (const double number : numbers) std::fprintf(stream.file, "%.17g\n", number);
  for (const std::size_t readerSpan : {std::size_t{1}, numbers.size()}) {
    std::rewind(stream.file);
    // A new reader starts where the one before stopped.
    for (std::size_t i = 0; i < numbers.size();) {
      TextReader reader(stream.file);
      for (const std::size_t end = i + readerSpan; i < end; ++i) {
        double value = 0.0;
        ASSERT_TRUE(reader.TakeReal(&value));
        ASSERT_TRUE(value == numbers[i] || (std::isnan(value) && std::isnan(numbers[i])));
      }
    }
  }
}

TEST(TextNumbers, IntegersAndWords) {
  const std::string text = " 12-7 +3 99999999999999999999 -99999999999999999999 0x1 abc defgh -";
  TextReader reader(text.data(), text.size());
  const std::int64_t most = std::numeric_limits<std::int64_t>::max();
  for (const std::int64_t expected :
       {std::int64_t{12}, std::int64_t{-7}, std::int64_t{3}, most, -most, std::int64_t{0}}) {
    std::int64_t value = -1;
    EXPECT_TRUE(reader.TakeInteger(&value));
    EXPECT_EQ(value, expected);
  }
  std::int64_t unread = 5;
  EXPECT_FALSE(reader.TakeInteger(&unread));
  char word[4];
  EXPECT_EQ(reader.TakeWord(word, sizeof(word)), TextReader::Word::kTaken);
  EXPECT_STREQ(word, "x1");
  EXPECT_EQ(reader.TakeWord(word, sizeof(word)), TextReader::Word::kTaken);
  EXPECT_STREQ(word, "abc");
  EXPECT_EQ(reader.TakeWord(word, sizeof(word)), TextReader::Word::kTooLong);
  EXPECT_STREQ(word, "def");
  EXPECT_EQ(reader.TakeWord(word, sizeof(word)), TextReader::Word::kTaken);
  EXPECT_FALSE(reader.TakeInteger(&unread));
  EXPECT_EQ(reader.TakeWord(word, sizeof(word)), TextReader::Word::kNone);
}

}  // namespace
