// Random calls of the library, serial and threaded: every call must give the same bits, and results that make sense.
//   soak [--seed S] [--cases N] [--seconds T] [--only NAME] [--trace 1]
// Case k has the seed S + k; a failing case is repeated by --seed S+k --cases 1.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "soak/trials.hpp"

namespace {

using kestrum_test::Outcome;
using kestrum_test::Trial;

// Two thirds of the cases are runs.
const Trial& TrialOf(unsigned seed) {
  kestrum_test::Draw draw(~seed);
  if (draw.Chance(2.0 / 3.0)) {
    return draw.Of(draw.Chance(0.5) ? kestrum_test::RunTrials() : kestrum_test::FactorisingTrials());
  }
  return draw.Of(draw.Chance(0.9) ? kestrum_test::AnalysisTrials() : kestrum_test::NumericTrials());
}

// What is wrong with a case, if anything.
std::string Fault(const Trial& trial, unsigned seed, const Outcome& serial) {
  if (!serial.fault.empty()) return serial.fault;
  for (const int nthreads : {1, 2, 3, 5}) {
    const Outcome threaded = Perform(trial, seed, nthreads);
    const std::string with = " with " + std::to_string(nthreads) + " threads";
    if (threaded.status != serial.status) return "status " + std::to_string(threaded.status) + with;
    if (threaded.bits().size() != serial.bits().size()) return "another number of values" + with;
    for (std::size_t i = 0; i < serial.bits().size(); ++i) {
      if (threaded.bits()[i] != serial.bits()[i]) return "value " + std::to_string(i) + " differs" + with;
    }
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  unsigned seed = 20240322;
  long cases = 200;
  double seconds = 0.0;
  std::string only;
  bool trace = false;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const char* const value = argv[i + 1];
    if (option == "--seed") {
      seed = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
    } else if (option == "--cases") {
      cases = std::atol(value);
    } else if (option == "--seconds") {
      seconds = std::atof(value);
    } else if (option == "--only") {
      only = value;
    } else if (option == "--trace") {
      trace = std::atoi(value) != 0;
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }
  std::printf("seed %u\n", seed);
  const auto start = std::chrono::steady_clock::now();
  const auto goesOn = [&](long done) {
    if (seconds <= 0.0) return done < cases;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds;
  };
  long done = 0, sound = 0, failed = 0;
  for (; goesOn(done); ++done) {
    const unsigned caseSeed = seed + static_cast<unsigned>(done);
    const Trial& trial = TrialOf(caseSeed);
    if (!only.empty() && only != trial.name) continue;
    if (trace) std::fprintf(stderr, "seed %u, %s\n", caseSeed, trial.name);
    const Outcome serial = Perform(trial, caseSeed, 0);
    sound += serial.status == 0;
    const std::string fault = Fault(trial, caseSeed, serial);
    if (fault.empty()) continue;
    ++failed;
    std::printf("FAILED: seed %u, %s, serial status %d: %s\n", caseSeed, serial.function.c_str(), serial.status,
                fault.c_str());
    std::fflush(stdout);
  }
  std::printf("%ld cases, %ld with status 0, %ld failed\n", done, sound, failed);
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
