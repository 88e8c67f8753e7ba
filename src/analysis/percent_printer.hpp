#ifndef KESTRUM_ANALYSIS_PERCENT_PRINTER_HPP
#define KESTRUM_ANALYSIS_PERCENT_PRINTER_HPP

#include <cstdio>

namespace kestrum {

// The progress lines of analysis functions on the standard output, "<label>: %3d %%": one when the whole percentage has
// risen. Silent unless verbose. In a parallel region thread 0 alone may use it.
class PercentPrinter {
 public:
  PercentPrinter(bool verbose, const char* label) noexcept : verbose_(verbose), label_(label) {}

  bool verbose() const noexcept { return verbose_; }
  // The line with 0.
  void Start() noexcept { Print(0); }
  void Report(int percent) noexcept {
    if (percent > last_) Print(percent);
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
