#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "io/text_reader.hpp"
#include "io/text_writer.hpp"

namespace {

using kestrum::NumberFormat;
using kestrum::TextReader;
using kestrum::TextWriter;

// Numbers of all magnitudes, ties of decimal rounding, whole numbers, and what has no digits.
std::vector<double> ManyNumbers() {
  std::vector<double> numbers{0.0,
                              -0.0,
                              INFINITY,
                              -INFINITY,
                              std::nan(""),
                              -std::nan(""),
                              -9999999.0,
                              0.5,
                              1.5,
                              2.5,
                              0.125,
                              1e22,
                              1e23,
                              999999.5,
                              9999999999.5,
                              2147483647.0,
                              2147483648.0,
                              -2147483648.0,
                              -2147483649.0,
                              std::numeric_limits<double>::max(),
                              std::numeric_limits<double>::min(),
                              std::numeric_limits<double>::denorm_min()};
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
    FILE* const file = std::tmpfile();
    {
      TextWriter writer(file);
      for (const double number : numbers) {
        writer.Put(format, number);
        writer.Put('\n');
      }
    }
    std::rewind(file);
    for (const double number : numbers) {
      char expected[1200];
      char line[1200];
      std::snprintf(expected, sizeof(expected), (std::string(text) + "\n").c_str(), number);
      ASSERT_NE(std::fgets(line, sizeof(line), file), nullptr);
      ASSERT_STREQ(line, expected) << text;
    }
    std::fclose(file);
  }
}

// What scanf takes, and whether, and what it leaves, is the measure: on a file, and through a pipe, which can not seek.
TEST(TextNumbers, ReadLikeScanf) {
  std::string digits;
  for (int i = 0; i < 100; ++i) digits += "0123456789";
  const std::vector<std::string> texts{"1 2 rest",
                                       "+1.5,",
                                       "-.5e3\n\n4",
                                       "1e5.5",
                                       "1.2.3",
                                       "1e",
                                       "1e+",
                                       "1e+x",
                                       "1ex",
                                       ".",
                                       "-",
                                       "+-1",
                                       "--1",
                                       "",
                                       " \t\n\v\f\r",
                                       "x1",
                                       "0x1p4 z",
                                       "0X.8",
                                       "0x",
                                       "0xg",
                                       "0x.",
                                       "0x1p",
                                       "-0xAbC.dEp-2",
                                       "0x1e+4",
                                       "inf ",
                                       "-INFINITYx",
                                       "infin",
                                       "infx",
                                       "+Inf1",
                                       "nan",
                                       "-NaN(12)",
                                       "na",
                                       "1e400",
                                       "-1e400",
                                       "1e-400",
                                       "4.9e-324",
                                       "1,5",
                                       "00012",
                                       "1d5",
                                       "1f",
                                       "9007199254740993",
                                       "0." + digits + "e3 ",
                                       digits + " 5",
                                       digits + "." + digits + "e-1000 x",
                                       "2.5\xa0"
                                       "3",
                                       "0.1000000000000000055511151231257827021181583404541015626 "};
  for (const std::string& text : texts) {
    for (const bool throughPipe : {false, true}) {
      SCOPED_TRACE(text.substr(0, 60) + (throughPipe ? " (pipe)" : " (file)"));
      FILE* const reference = std::tmpfile();
      std::fwrite(text.data(), 1, text.size(), reference);
      std::rewind(reference);
      FILE* stream = nullptr;
      if (throughPipe) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(ends[1]);
        stream = fdopen(ends[0], "r");
      } else {
        stream = std::tmpfile();
        std::fwrite(text.data(), 1, text.size(), stream);
        std::rewind(stream);
      }
      double expected = 0.0;
      double value = 0.0;
      const bool taken = std::fscanf(reference, "%lf", &expected) == 1;
      EXPECT_EQ(TextReader(stream).TakeReal(&value), taken);
      if (taken) {
        EXPECT_EQ(std::memcmp(&value, &expected, sizeof(value)), 0) << value << " instead of " << expected;
        for (int c = 0; c != EOF;) {
          c = std::getc(reference);
          EXPECT_EQ(std::getc(stream), c);
        }
      }
      std::fclose(reference);
      std::fclose(stream);
    }
  }
}

TEST(TextNumbers, ReadAcrossBlocks) {
  const std::vector<double> numbers = ManyNumbers();
  FILE* const file = std::tmpfile();
  for (const double number : numbers) std::fprintf(file, "%.17g\n", number);
  for (const std::size_t readerSpan : {std::size_t{1}, numbers.size()}) {
    std::rewind(file);
    // A new reader starts where the one before stopped.
    for (std::size_t i = 0; i < numbers.size();) {
      TextReader reader(file);
      for (const std::size_t end = i + readerSpan; i < end; ++i) {
        double value = 0.0;
        ASSERT_TRUE(reader.TakeReal(&value));
        ASSERT_TRUE(value == numbers[i] || (std::isnan(value) && std::isnan(numbers[i])));
      }
    }
  }
  std::fclose(file);
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
