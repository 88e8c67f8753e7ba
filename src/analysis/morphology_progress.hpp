#ifndef KESTRUM_ANALYSIS_MORPHOLOGY_PROGRESS_HPP
#define KESTRUM_ANALYSIS_MORPHOLOGY_PROGRESS_HPP

#include <cstdint>

#include "analysis/percent_printer.hpp"

namespace kestrum {

// The progress lines of a long loop over nodes, reported stretch by stretch: the steps at which the percentage rises
// are searched for, instead of testing each step. The lines are those of the test at each step.
class StretchProgress {
 public:
  StretchProgress(bool verbose, const char* label) noexcept : printer_(verbose, label) {}

  void Start() noexcept { printer_.Start(); }
  void Finish() noexcept { printer_.Finish(); }

  // The lines of the steps from `begin` to before `end`; percentOf(step) must not fall.
  template <typename PercentOf>
  void Report(std::int64_t begin, std::int64_t end, const PercentOf& percentOf) noexcept {
    if (!printer_.verbose()) return;
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
      last_ = percentOf(begin);
      printer_.Report(last_);
    }
  }

 private:
  PercentPrinter printer_;
  int last_ = 0;
};

}  // namespace kestrum

#endif
