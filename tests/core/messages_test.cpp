#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "core/status.h"
#include "core/warning_messages.h"

namespace {

using Lookup = const char* (*)(int) noexcept;

constexpr const char* kUnknownError = "ERROR: unknown\n";
constexpr const char* kUnknownWarning = "WARNING: unknown\n";

// All rows found by trying every number, those that can not be rows among them.
std::map<int, std::string> Rows(Lookup lookup, const std::string& unknown) {
  std::map<int, std::string> rows;
  for (int number = -100000; number <= 200000; ++number) {
    if (const std::string text = lookup(number); text != unknown) rows[number] = text;
  }
  return rows;
}

void ExpectRowFormat(const std::string& word, int heading, const std::string& text) {
  SCOPED_TRACE(text);
  char head[32];
  std::snprintf(head, sizeof head, "%s %05d: ", word.c_str(), heading);
  ASSERT_EQ(text.rfind(head, 0), 0u);
  ASSERT_GT(text.size(), std::strlen(head) + 5);
  EXPECT_EQ(text.find('\n'), text.size() - 1) << "one newline, at the end";
  EXPECT_EQ(text.find('%'), std::string::npos) << "texts are printed as they are, maybe as a format";
}

void ExpectDistinct(const std::map<int, std::string>& rows, std::size_t headLength) {
  std::set<std::string> messages;
  for (const auto& [number, text] : rows) {
    EXPECT_TRUE(messages.insert(text.substr(headLength)).second) << number << ": " << text;
  }
}

TEST(Messages, ErrorTableIsComplete) {
  const auto rows = Rows(VORLGetErrorMessage, kUnknownError);
  EXPECT_EQ(rows.size(), 1615u);
  EXPECT_EQ(rows.begin()->first, 1);
  EXPECT_EQ(rows.rbegin()->first, 99910);
  for (const auto& [number, text] : rows) ExpectRowFormat("ERROR", number, text);
  ExpectDistinct(rows, std::strlen("ERROR 00000: "));

  const struct {
    int first, last;
    std::size_t count;
  } bands[] = {{1, 99, 23},        {100, 199, 40},     {500, 599, 18},    {600, 699, 76},     {700, 899, 167},
               {900, 999, 36},     {1000, 1199, 39},   {1650, 1841, 61},  {1901, 1999, 37},   {2000, 2026, 20},
               {2091, 2142, 38},   {2200, 2207, 5},    {2920, 3075, 23},  {3501, 3705, 92},   {3999, 4413, 161},
               {5000, 6155, 274},  {6652, 6750, 25},   {6800, 6938, 53},  {7100, 7101, 2},    {8001, 8102, 12},
               {10001, 10060, 42}, {15001, 15145, 50}, {60001, 60030, 4}, {70001, 70561, 64}, {71000, 71698, 161},
               {80061, 80460, 79}, {85252, 86211, 11}, {99900, 99910, 2}};
  for (const auto& band : bands) {
    const auto count = std::distance(rows.lower_bound(band.first), rows.upper_bound(band.last));
    EXPECT_EQ(static_cast<std::size_t>(count), band.count) << band.first << " to " << band.last;
  }
}

TEST(Messages, WarningTableIsComplete) {
  const auto rows = Rows(VORLGetWarningMessage, kUnknownWarning);
  EXPECT_EQ(rows.size(), 95u);
  EXPECT_EQ(rows.begin()->first, 1);
  EXPECT_EQ(rows.rbegin()->first, 8001);
  for (const auto& [number, text] : rows) {
    const int heading = number == 26 ? 27 : number == 27 ? 26 : number;
    ExpectRowFormat("WARNING", heading, text);
  }
  ExpectDistinct(rows, std::strlen("WARNING 00000: "));
}

TEST(Messages, NumbersWithoutRowAreUnknown) {
  for (const int code : {0, -1, -1000, 13, 24, 634, 1027, 1047, 1060, 71061, 99911, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(VORLGetErrorMessage(code), kUnknownError) << code;
  }
  for (const int number : {0, -1, -26, 4, 28, 37, 2003, 8002, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(VORLGetWarningMessage(number), kUnknownWarning) << number;
  }
}

// Rows whose words are easily spoilt by tidying: odd spelling, punctuation, capitals, blanks and quotation marks.
TEST(Messages, ErrorTextsAreKeptToTheLetter) {
  const struct {
    int code;
    const char* text;
  } rows[] = {
      {1, "ERROR 00001: memory allocation (malloc)\n"},
      {3,
       "ERROR 00003: try to allocate memory for a vector having a number of elements less than or equal to zero "
       "(malloc)\n"},
      {12, "ERROR 00012: try to allocate memory for a 4D array having elements of size less than or equal to zero\n"},
      {26, "ERROR 00026: reading error (2D array: ncol)!\n"},
      {30, "ERROR 00030: number of variable(s) for two images differs\n"},
      {110, "ERROR 00110: a file (output) can not be opened\n"},
      {616, "ERROR 00616: invalid image grid (sz)\n"},
      {625, "ERROR 00625: invalid image (nxyzv <= 0)\n"},
      {708, "ERROR 00708: invalid simulation and path parameters (strength must be in [0,1])\n"},
      {710, "ERROR 00710: invalid distance type for relative distance\n"},
      {742, "ERROR 00742: reading error, image VTK format (line 1-4: too long)\n"},
      {745, "ERROR 00745: reading error, image VTK format (line 5)\n"},
      {755, "ERROR 00755: reading error, image VTK format (line 8: invalid size)\n"},
      {757, "ERROR 00757: reading error, image VTK format (line 9: too long)\n"},
      {765, "ERROR 00765: reading error, image PGM format (invalid key word in line1)\n"},
      {888, "ERROR 00888: reading error, search neighborhood parameters (angle3)\n"},
      {1000, "ERROR 01000: aborted job\n"},
      {1026, "ERROR 01026: error while writing image (gslib) in binary format (sizeOfReal)\n"},
      {1048, "ERROR 01048: error while reading image (gslib) in binary format (nx)\n"},
      {1061, "ERROR 01061: computation of TI variogram ranges: not applicable\n"},
      {2018, "ERROR 02018: invalid lag (min lag greater than max lag in x direction (lag in number of cells))\n"},
      {71048, "ERROR 71048: invalid formatString (invalid fomat)\n"},
      {71062,
       "ERROR 71062: invalid maximal number of neighbors (should be negative for \"unlimited\", or at least one)\n"},
      {71071,
       "ERROR 71071:  estimation with unique search neigbhorhood (kestrum, searchRadiusRelative is -1) not compatible "
       "with non stationary covariance model\n"},
      {71110,
       "ERROR 71110: invalid number of category (ncategory must be greater than or equal to 2 for multi-category case, "
       "or 1 for \"binary\" case: (\"unique category value\", 0))\n"},
      {71267, "ERROR 71267: no conditioning data (kestrum, estimation with unique search neigbhorhood)\n"},
      {71637, "ERROR 71637: invalid number of variable(s) for the image for angle3 (for covariance model)\n"},
      {71676, "ERROR 71676: grid of the image for rz (for elementary covariance model) and simulation grid differs\n"},
      {71698, "ERROR 71698: invalid s (nu) (value for elementary covariance model), too large\n"},
      {86211, "ERROR 86211: direction vector is 0\n"},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(VORLGetErrorMessage(row.code), row.text);
    EXPECT_STREQ(vorl_get_error_message(row.code), row.text);
  }
  EXPECT_STREQ(vorl_get_error_message(-1000), kUnknownError);
}

TEST(Messages, WarningTextsAreKeptToTheLetter) {
  const struct {
    int number;
    const char* text;
    const char* constant;
  } rows[] = {
      {25, "WARNING 00025: search neighborhood: radius in x-direction has been reduced\n", VORL_WARNING_MSG_00025},
      {26, "WARNING 00027: search neighborhood: radius in z-direction has been reduced\n", VORL_WARNING_MSG_00026},
      {27, "WARNING 00026: search neighborhood: radius in y-direction has been reduced\n", VORL_WARNING_MSG_00027},
      {43,
       "WARNING 00043: conditioning variable(s) has(have) been ignored from data point set (not a simulated "
       "variable!)\n",
       VORL_WARNING_MSG_00043},
      {2001, "WARNING 02001: a neigbhor has been dropped (solving kriging system)\n", VORL_WARNING_MSG_02001},
      {2016, "WARNING 02016: solving kriging system fails (do as if no neighbor, inequality)\n",
       VORL_WARNING_MSG_02016},
      {2020, "WARNING 02020: default category probabilities used (they were zeros)\n", VORL_WARNING_MSG_02020},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(VORLGetWarningMessage(row.number), row.text);
    EXPECT_STREQ(vorl_get_warning_message(row.number), row.text);
    EXPECT_STREQ(row.constant, row.text);
  }
}

}  // namespace
