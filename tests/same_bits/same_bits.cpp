// Prints one line per random call with the hash of all that it gave. The output is the same for every level of
// instructions, number of threads, and compiler.
//   same_bits [--level baseline|avx2|avx512] [--threads N] [--cases N]
// Without threads the serial forms are called. Ends with 77 if this machine lacks the level.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "numeric/simd_level.hpp"
#include "soak/trials.hpp"

int main(int argc, char** argv) {
  const std::map<std::string, kestrum::SimdLevel> levels = {{"baseline", kestrum::SimdLevel::kBaseline},
                                                            {"avx2", kestrum::SimdLevel::kAvx2},
                                                            {"avx512", kestrum::SimdLevel::kAvx512}};
  int nthreads = 0;
  unsigned cases = 8;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i], value = argv[i + 1];
    if (option == "--threads") {
      nthreads = std::atoi(argv[i + 1]);
    } else if (option == "--cases") {
      cases = static_cast<unsigned>(std::atoi(argv[i + 1]));
    } else if (option == "--level" && levels.count(value) == 1) {
      kestrum::LimitSimdLevel(levels.at(value));
      if (kestrum::BestSimdLevel() < levels.at(value)) return 77;
    } else {
      std::fprintf(stderr, "unknown option %s %s\n", argv[i], argv[i + 1]);
      return 2;
    }
  }
  // Runs have more to vary than an analysis.
  const struct {
    const std::vector<kestrum_test::Trial>& trials;
    unsigned factor;
  } families[] = {{kestrum_test::RunTrials(), 6},
                  {kestrum_test::AnalysisTrials(), 1},
                  {kestrum_test::NumericTrials(), 1},
                  {kestrum_test::FactorisingTrials(), 6}};
  for (const auto& [trials, factor] : families) {
    const unsigned n = factor * cases;
    for (const kestrum_test::Trial& trial : trials) {
      for (unsigned seed = 1; seed <= n; ++seed) {
        const kestrum_test::Outcome outcome = Perform(trial, seed, nthreads);
        std::uint64_t hash = 14695981039346656037u;  // FNV-1a by words, with a shift that mixes high bits downwards
        for (const std::uint64_t bits : outcome.bits()) {
          hash = (hash ^ bits) * 1099511628211u;
          hash ^= hash >> 29;
        }
        std::printf("%-20s %4u %-55s %6d %016llx\n", trial.name, seed, outcome.function.c_str(), outcome.status,
                    static_cast<unsigned long long>(hash));
      }
    }
  }
  return 0;
}
