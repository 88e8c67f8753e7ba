#include "core/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

TEST(Text, DigitsAndFixedWidthNumbers) {
  EXPECT_EQ(VORLDigitToChar(0), '0');
  EXPECT_EQ(VORLDigitToChar(9), '9');
  for (const int digit : {10, -1, INT_MIN}) EXPECT_EQ(VORLDigitToChar(digit), 'x');

  struct Row {
    int value, ndigit;
    const char* expected;
  };
  for (const Row& row :
       {Row{7, 5, "00007"}, Row{-1, 3, "xxx"}, Row{INT_MIN, 2, "xx"}, Row{123456, 3, "456"}, Row{120, 2, "20"},
        Row{0, 2, "00"}, Row{5, 0, ""}, Row{INT_MAX, 12, "002147483647"}, Row{5, -1, "unchanged text"}}) {
    char text[16] = "unchanged text";
    VORLIntToString(row.value, text, row.ndigit);
    EXPECT_STREQ(text, row.expected);
  }
}

TEST(Text, CommentsAreSkippedUpToTheNextEntry) {
  constexpr const char* kEnd = nullptr;  // the file ends first
  struct Row {
    const char* text;
    const char* rest;
  };
  for (const Row& row :
       {Row{"12", "12"}, Row{" // line\n/* block **/12 //", "12 //"}, Row{"\r\n\t x", "x"}, Row{"/5", "/5"},
        Row{"  /", "/"}, Row{"// a\n/ /", "/ /"}, Row{"/*/ still */3", "3"}, Row{"/***/4", "4"},
        Row{"/*a/*b*/c*/", "c*/"}, Row{"/*//*/ 6", "6"}, Row{"// /* \n7", "7"}, Row{"\v8", "\v8"}, Row{"\xff", "\xff"},
        Row{" ", kEnd}, Row{"// no end", kEnd}, Row{"// end\n", kEnd}, Row{"/* no end *", kEnd}, Row{"/*/", kEnd}}) {
    // Padding moves each text over the edge of the stream's buffer.
    for (const int padding : {0, 13, 14, 15, 16}) {
      const std::string text = std::string(padding, ' ') + row.text;
      FILE* stream = std::tmpfile();
      char buffer[16];
      std::setvbuf(stream, buffer, _IOFBF, sizeof(buffer));
      std::fputs(text.c_str(), stream);
      std::rewind(stream);
      if (row.rest == kEnd) {
        EXPECT_EQ(VORLSkipComments(stream), -999) << row.text;
      } else {
        EXPECT_EQ(VORLSkipComments(stream), 0) << row.text;
        EXPECT_EQ(std::ftell(stream), static_cast<long>(text.size() - std::strlen(row.rest))) << row.text;
        char rest[32] = "";
        const size_t length = std::fread(rest, 1, sizeof(rest) - 1, stream);
        EXPECT_EQ(std::string(rest, length), row.rest) << row.text;
      }
      std::fclose(stream);
    }
  }
}
