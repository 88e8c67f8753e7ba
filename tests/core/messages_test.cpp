#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "core/status.h"
#include "core/warning_messages.h"

namespace {

using Lookup = const char* (*)(int) noexcept;

struct Table {
  Lookup lookup, inLowerCase;
  std::string word;
  std::size_t size;
  std::uint64_t checksum;  // FNV-1a of all texts in the order of their numbers
};

// All rows are found by trying every number, those that cannot be rows among them.
void ExpectTable(const Table& table) {
  const std::string unknown = table.word + ": unknown\n";
  std::set<std::string> messages;
  std::uint64_t checksum = 0xcbf29ce484222325;
  for (int number = -100000; number <= 200000; ++number) {
    const std::string text = table.lookup(number);
    ASSERT_EQ(table.inLowerCase(number), text);
    if (text == unknown) continue;
    SCOPED_TRACE(text);
    const bool crossed = table.word == "WARNING" && (number == 26 || number == 27);
    char head[32];
    std::snprintf(head, sizeof head, "%s %05d: ", table.word.c_str(), crossed ? 53 - number : number);
    EXPECT_EQ(text.rfind(head, 0), 0U);
    EXPECT_EQ(text.find('\n'), text.size() - 1) << "one newline, at the end";
    EXPECT_EQ(text.find('%'), std::string::npos) << "texts are printed as they are, maybe as a format";
    EXPECT_TRUE(messages.insert(text.substr(std::strlen(head))).second) << "two rows of the same words";
    for (const unsigned char byte : text) checksum = (checksum ^ byte) * 0x100000001b3;
  }
  EXPECT_EQ(messages.size(), table.size);
  EXPECT_EQ(checksum, table.checksum) << "odd spelling, punctuation and blanks are deliberate: no text may change";
  for (const int number : {INT_MAX, INT_MIN}) EXPECT_EQ(table.lookup(number), unknown);
}

TEST(Messages, ErrorTableIsComplete) {
  ExpectTable({VORLGetErrorMessage, vorl_get_error_message, "ERROR", 1615, 0x4afd46cab5e6f46d});
}

TEST(Messages, WarningTableIsComplete) {
  ExpectTable({VORLGetWarningMessage, vorl_get_warning_message, "WARNING", 95, 0xc38fddf9be8f547e});
}

// Rows whose words are easily spoilt by tidying.
TEST(Messages, OddTextsAreKeptToTheLetter) {
  const struct {
    const char *text, *expected;
  } rows[] = {
      {VORLGetErrorMessage(-1000), "ERROR: unknown\n"},
      {VORLGetErrorMessage(625), "ERROR 00625: invalid image (nxyzv <= 0)\n"},
      {VORLGetErrorMessage(71048), "ERROR 71048: invalid formatString (invalid fomat)\n"},
      {VORLGetErrorMessage(71071),
       "ERROR 71071:  estimation with unique search neigbhorhood (kestrum, searchRadiusRelative is -1) not compatible "
       "with non stationary covariance model\n"},
      {VORLGetErrorMessage(71110),
       "ERROR 71110: invalid number of category (ncategory must be greater than or equal to 2 for multi-category case, "
       "or 1 for \"binary\" case: (\"unique category value\", 0))\n"},
      {VORLGetWarningMessage(26), "WARNING 00027: search neighborhood: radius in z-direction has been reduced\n"},
      {VORLGetWarningMessage(27), VORL_WARNING_MSG_00027},
      {VORL_WARNING_MSG_02001, "WARNING 02001: a neigbhor has been dropped (solving kriging system)\n"},
  };
  for (const auto& [text, expected] : rows) EXPECT_STREQ(text, expected);
}

}  // namespace
