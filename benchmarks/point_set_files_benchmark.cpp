#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>

#include "io/point_set_files.h"

namespace {

constexpr int kPoints = 200000;
constexpr int kVariables = 2;

// A file that the system keeps in memory: what is measured is the conversion of numbers.
class PointSetOnFile {
 public:
  PointSetOnFile() {
    VORLInitPointSet(&ps_);
    failed_ = file_ == nullptr || VORLMallocPointSet(&ps_, kPoints, kVariables) != 0;
    if (failed_) return;
    ps_.npoint = kPoints;
    ps_.nvar = kVariables;
    for (int iv = 0; iv < kVariables; ++iv) std::snprintf(ps_.varName[iv], VORL_VARNAME_LENGTH, "variable%d", iv);
    for (int ip = 0; ip < kPoints; ++ip) {
      ps_.x[ip] = 1000.0 * std::sin(0.37 * ip);
      ps_.y[ip] = 1000.0 * std::cos(0.37 * ip);
      ps_.z[ip] = 0.01 * ip;
    }
    for (int i = 0; i < kPoints * kVariables; ++i) ps_.var[i] = i % 3 == 0 ? VORL_MISSING_VALUE : std::sin(0.11 * i);
  }
  ~PointSetOnFile() {
    VORLFreePointSet(&ps_);
    if (file_ != nullptr) std::fclose(file_);
  }

  bool Write() {
    char format[] = "%.10g";
    failed_ = failed_ || VORLWritePointSet(&ps_, format, format, file_) != 0 || std::fflush(file_) != 0;
    return !failed_;
  }
  bool Read() {
    VORL_POINTSET back;
    VORLInitPointSet(&back);
    failed_ = failed_ || VORLReadPointSet(&back, file_) != 0;
    VORLFreePointSet(&back);
    return !failed_;
  }
  // Runs the transfer from the start of the file until the measurement is done, and reports its bytes.
  void Measure(benchmark::State& state, bool (PointSetOnFile::*transfer)()) {
    for (auto _ : state) {
      std::rewind(file_);
      if (!(this->*transfer)()) state.SkipWithError("transfer failed");
    }
    state.SetBytesProcessed(state.iterations() * std::ftell(file_));
  }

 private:
  FILE* file_ = std::tmpfile();
  VORL_POINTSET ps_;
  bool failed_ = false;
};

void WritePointSet(benchmark::State& state) {
  PointSetOnFile subject;
  subject.Measure(state, &PointSetOnFile::Write);
}
BENCHMARK(WritePointSet)->Unit(benchmark::kMillisecond);

void ReadPointSet(benchmark::State& state) {
  PointSetOnFile subject;
  if (!subject.Write()) state.SkipWithError("writing failed");
  subject.Measure(state, &PointSetOnFile::Read);
}
BENCHMARK(ReadPointSet)->Unit(benchmark::kMillisecond);

}  // namespace
