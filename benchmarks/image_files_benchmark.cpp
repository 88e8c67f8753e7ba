#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "io/image_files.h"

namespace {

enum Content { kReals, kCategories };

// One million nodes in a file that the system keeps in memory: what is measured is the conversion of numbers.
class ImageOnFile {
 public:
  ImageOnFile(int nvar, Content content) {
    VORLInitImage(&image_);
    failed_ = file_ == nullptr || VORLMallocImage(&image_, kNodes, nvar) != 0;
    if (failed_) return;
    *image_.grid = {1000, 1000, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, kNodes, kNodes};
    image_.nvar = nvar;
    image_.nxyzv = kNodes * nvar;
    for (int v = 0; v < nvar; ++v) std::snprintf(image_.varName[v], VORL_VARNAME_LENGTH, "variable%d", v);
    for (int i = 0; i < image_.nxyzv; ++i) {
      image_.var[i] = content == kReals ? 1000.0 * std::sin(0.37 * i) : i % 3 == 0 ? VORL_MISSING_VALUE : i % 7;
    }
  }
  ~ImageOnFile() {
    VORLFreeImage(&image_);
    if (file_ != nullptr) std::fclose(file_);
  }

  // Runs the transfer from the start of the file until the measurement is done, and reports its bytes.
  template <typename Transfer>
  void Measure(benchmark::State& state, const Transfer& transfer) {
    for (auto _ : state) {
      std::rewind(file_);
      failed_ = failed_ || transfer(file_) != 0 || std::fflush(file_) != 0;
    }
    if (failed_) state.SkipWithError("transfer failed");
    state.SetBytesProcessed(state.iterations() * std::ftell(file_));
  }
  VORL_IMAGE* image() { return &image_; }
  FILE* file() { return file_; }

 private:
  static constexpr int kNodes = 1000000;
  FILE* file_ = std::tmpfile();
  VORL_IMAGE image_;
  bool failed_ = false;
};

int ReadAndFree(FILE* file, int (*read)(VORL_IMAGE*, FILE*)) {
  VORL_IMAGE image;
  VORLInitImage(&image);
  const int status = read(&image, file);
  VORLFreeImage(&image);
  return status;
}

void WriteText(benchmark::State& state, const char* format, Content content) {
  char formatString[VORL_WORD_LENGTH];
  std::strcpy(formatString, format);
  ImageOnFile subject(static_cast<int>(state.range(0)), content);
  subject.Measure(state, [&](FILE* file) { return VORLWriteImage(subject.image(), formatString, 0, file); });
}
BENCHMARK_CAPTURE(WriteText, default_reals, VORL_FORMAT_DEFAULT, kReals)
    ->Arg(1)
    ->Arg(10)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteText, default_categories, VORL_FORMAT_DEFAULT, kCategories)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteText, fixed, "%.3f", kReals)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteText, scientific, "%.8e", kReals)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteText, integers, "%d", kCategories)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteText, by_printf, "%+.10g", kReals)->Arg(1)->Unit(benchmark::kMillisecond);

void ReadText(benchmark::State& state, Content content) {
  char formatString[] = VORL_FORMAT_DEFAULT;
  ImageOnFile subject(static_cast<int>(state.range(0)), content);
  if (VORLWriteImage(subject.image(), formatString, 0, subject.file()) != 0) state.SkipWithError("writing failed");
  subject.Measure(state, [](FILE* file) {
    return ReadAndFree(file, [](VORL_IMAGE* image, FILE* stream) { return VORLReadImage(image, 0, stream); });
  });
}
BENCHMARK_CAPTURE(ReadText, reals, kReals)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadText, categories, kCategories)->Arg(1)->Unit(benchmark::kMillisecond);

void WriteBinary(benchmark::State& state) {
  ImageOnFile subject(static_cast<int>(state.range(0)), kReals);
  subject.Measure(state, [&](FILE* file) { return VORLWriteImageGslibBinary(subject.image(), file); });
}
BENCHMARK(WriteBinary)->Arg(10)->Unit(benchmark::kMillisecond);

void ReadBinary(benchmark::State& state) {
  ImageOnFile subject(static_cast<int>(state.range(0)), kReals);
  if (VORLWriteImageGslibBinary(subject.image(), subject.file()) != 0) state.SkipWithError("writing failed");
  subject.Measure(state, [](FILE* file) { return ReadAndFree(file, VORLReadImageGslibBinary); });
}
BENCHMARK(ReadBinary)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
