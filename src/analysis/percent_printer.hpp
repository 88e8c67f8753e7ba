#ifndef KESTRUM_ANALYSIS_PERCENT_PRINTER_HPP
#define KESTRUM_ANALYSIS_PERCENT_PRINTER_HPP

#include <cstdint>
#include <cstdio>

namespace kestrum {

// The progress lines of analysis functions on the standard output, "<label>: %3d %%": one when the whole percentage has
// risen. Silent unless verbose. In a parallel region thread 0 alone may use it.
class PercentPrinter {
 public:
  PercentPrinter(bool verbose, const char* label) noexcept : verbose_(verbose), label_(label) {}

  // The line with 0.
  void Start() noexcept { Print(0); }
  void Report(int percent) noexcept {
    if (percent > last_) Print(percent);
  }
  // The lines that Report(percentOf(step)) gives for the steps from `begin` to before `end`, without a test of each:
  // the steps at which the percentage rises are searched for. percentOf(step) must not fall.
  template <typename PercentOf>
  void Report(std::int64_t begin, std::int64_t end, const PercentOf& percentOf) noexcept {
    if (!verbose_) return;
    while (begin < end && percentOf(end - 1) > last_) {
      std::int64_t last = end - 1;
      while (begin < last) {
        const std::int64_t middle = begin + (last - begin) / 2;
        if (percentOf(middle) > last_) {
          last = middle;
        } else {
          begin = middle + 1;
        }
      }
      Print(percentOf(begin));
    }
  }
  // The line with 100, if it has not come yet.
  void Finish() noexcept { Report(100); }

 private:
  void Print(int percent) noexcept {
    last_ = percent;
    if (verbose_) std::printf("%s: %3d %%\n", label_, percent);
  }

  bool verbose_;
  const char* label_;
  int last_ = 0;
};

}  // namespace kestrum

#endif
