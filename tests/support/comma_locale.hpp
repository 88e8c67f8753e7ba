#ifndef KESTRUM_TESTS_SUPPORT_COMMA_LOCALE_HPP
#define KESTRUM_TESTS_SUPPORT_COMMA_LOCALE_HPP

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace kestrum_test {

// While one lives, the program has a decimal comma, and dots between thousands. A machine need not have such a locale
// installed: this writes the category in the format of the GNU C library.
class CommaLocale {
 public:
  CommaLocale() {
    std::string content;
    const auto append = [&content](const std::string& bytes) { content += bytes; };
    const auto appendWord = [&content](std::uint32_t word) {
      content.append(reinterpret_cast<const char*>(&word), sizeof word);
    };
    // The head says where each of the fields starts: point and separator of thousands (at 32 and 34), sizes of groups
    // (36), both characters as wide ones (40, 44), and the character set (48).
    constexpr std::uint32_t kMagicOfNumeric = 0x20031115 ^ 1;
    for (const std::uint32_t word : {kMagicOfNumeric, 6u, 32u, 34u, 36u, 40u, 44u, 48u}) appendWord(word);
    append(std::string(",\0.\0\3\0\0\0", 8));
    appendWord(',');
    appendWord('.');
    append(std::string("UTF-8\0", 6));

    mkdir(folder_.c_str(), 0700);
    mkdir((folder_ + "/comma").c_str(), 0700);
    std::FILE* const file = std::fopen(File().c_str(), "wb");
    std::fwrite(content.data(), 1, content.size(), file);
    std::fclose(file);
    const char* const path = std::getenv("LOCPATH");
    pathBefore_ = path != nullptr ? path : "";
    setenv("LOCPATH", folder_.c_str(), 1);
    const bool chosen = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    EXPECT_TRUE(chosen && std::strcmp(std::localeconv()->decimal_point, ",") == 0);
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() {
    std::setlocale(LC_NUMERIC, "C");
    if (pathBefore_.empty()) {
      unsetenv("LOCPATH");
    } else {
      setenv("LOCPATH", pathBefore_.c_str(), 1);
    }
    std::remove(File().c_str());
    rmdir((folder_ + "/comma").c_str());
    rmdir(folder_.c_str());
  }

 private:
  std::string File() const { return folder_ + "/comma/LC_NUMERIC"; }

  const std::string folder_ = testing::TempDir() + "kestrum_locale_" + std::to_string(getpid());
  std::string pathBefore_;
};

}  // namespace kestrum_test

#endif
