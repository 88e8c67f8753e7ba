#include "core/image_statistics.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "core/buffer.hpp"
#include "core/memory.h"
#include "core/parallel.hpp"
#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// The informed values of one variable, in node order.
template <typename Body>
void ForEachInformed(const VORL_IMAGE* image, int iv, const Body& body) noexcept {
  const real* const values = VariableOf(*image, iv);
  const int nxyz = image->grid->nxyz;
  for (int k = 0; k < nxyz; ++k) {
    if (!IsMissing(values[k])) body(values[k]);
  }
}

// The two forms of a statistic, of one variable and of all: statistic(iv, out) writes the entry `out` of the outputs.
template <typename Statistic, typename... Output>
int OfOneVariable(const VORL_IMAGE* image, int iv, const Statistic& statistic, const Output*... outputs) noexcept {
  if (const int status = CheckVariable(*image, iv, outputs...); status != 0) return status;
  statistic(iv, 0);
  return 0;
}

template <typename Statistic, typename... Output>
int OfAllVariables(const VORL_IMAGE* image, const Statistic& statistic, const Output*... outputs) noexcept {
  if (AnyNull(outputs...)) return kNotAllocated;
  if (const int status = CheckImage(*image); status != 0) return status;
  for (int iv = 0; iv < image->nvar; ++iv) statistic(iv, iv);
  return 0;
}

real Mean(const VORL_IMAGE* image, int iv) noexcept {
  real sum = 0.0;
  int count = 0;
  ForEachInformed(image, iv, [&](real value) {
    sum += value;
    ++count;
  });
  return count == 0 ? VORL_MISSING_VALUE : sum / count;
}

real StandardDeviation(const VORL_IMAGE* image, int iv, real mean) noexcept {
  if (IsMissing(mean)) return VORL_MISSING_VALUE;
  real sum = 0.0;
  int count = 0;
  ForEachInformed(image, iv, [&](real value) {
    sum += (value - mean) * (value - mean);
    ++count;
  });
  if (count == 0) return VORL_MISSING_VALUE;
  return std::sqrt(count > 1 ? sum / (count - 1) : sum);  // one value alone: its distance from the given mean
}

void Range(const VORL_IMAGE* image, int iv, int* ninformed, real* min, real* max, real* range) noexcept {
  *ninformed = 0;
  *min = VORL_INFINITY;
  *max = -VORL_INFINITY;
  ForEachInformed(image, iv, [&](real value) {
    ++*ninformed;
    if (value < *min) *min = value;
    if (value > *max) *max = value;
  });
  *range = *max - *min;
  if (*ninformed == 0) *min = *max = *range = VORL_MISSING_VALUE;
}

// Distribution of the values in `work`, which it sorts.
int Distribution(Buffer<real>& work, int* nvalue, real** value, double** pdf, int* nmissing) noexcept {
  // NaNs have no place in an order: they go last, each a value of its own.
  std::sort(work.begin(), std::partition(work.begin(), work.end(), [](real v) { return !std::isnan(v); }));
  // Missing values are looked for at the start only: if smaller values are there, they count as a value.
  const real* const first = std::find_if_not(work.begin(), work.end(), IsMissing);
  *nmissing = static_cast<int>(first - work.begin());
  *nvalue = 0;
  if (first == work.end()) return 0;

  int distinct = 1;
  for (const real* v = first + 1; v != work.end(); ++v) distinct += *v != v[-1];
  int status = 0;
  auto* const values = static_cast<real*>(VORLMalloc(static_cast<std::size_t>(distinct), sizeof(real), &status));
  if (status != 0) return status;
  auto* const proportions =
      static_cast<double*>(VORLMalloc(static_cast<std::size_t>(distinct), sizeof(double), &status));
  if (status != 0) {
    VORLFree(values);
    return status;
  }
  const double weight = 1.0 / static_cast<double>(work.end() - first);
  int k = 0;
  for (const real* v = first; v != work.end(); ++k) {
    const real* const runStart = v;
    do ++v;
    while (v != work.end() && *v == v[-1]);
    values[k] = *runStart;
    proportions[k] = static_cast<double>(v - runStart) * weight;
  }
  *nvalue = distinct;
  *value = values;
  *pdf = proportions;
  return 0;
}

// Distributions of the variables [ivBegin, ivEnd) over all images together, from entry 0 of the outputs on.
int Distributions(int nimage, const VORL_IMAGE* images, int ivBegin, int ivEnd, int* nvalue, real** value, double** pdf,
                  int* nmissing) noexcept {
  std::size_t total = 0;
  for (int i = 0; i < nimage; ++i) {
    if (const int status = CheckImage(images[i]); status != 0) return status;
    total += static_cast<std::size_t>(images[i].grid->nxyz);
  }
  if (total > INT_MAX) return kImageTooLarge;
  std::fill_n(nvalue, ivEnd - ivBegin, 0);  // after a failure it shows what was handed over
  Buffer<real> work;
  if (const int status = work.Allocate(total); status != 0) return status;
  for (int iv = ivBegin; iv < ivEnd; ++iv) {
    const int out = iv - ivBegin;
    real* end = work.data();
    for (int i = 0; i < nimage; ++i) end = std::copy_n(VariableOf(images[i], iv), images[i].grid->nxyz, end);
    if (const int status = Distribution(work, &nvalue[out], &value[out], &pdf[out], &nmissing[out]); status != 0) {
      return status;
    }
  }
  return 0;
}

bool VariableCountsDiffer(int nimage, const VORL_IMAGE* images) noexcept {
  for (int i = 1; i < nimage; ++i) {
    if (images[i].nvar != images[0].nvar) return true;
  }
  return false;
}

// The distributions of all variables of an image, which VORLGetImageVarValuePdf hands over.
struct AllDistributions {
  Buffer<int> nvalue;
  Buffer<int> nmissing;
  Buffer<real*> value;
  Buffer<double*> pdf;

  ~AllDistributions() {
    for (real* const vector : value) VORLFree(vector);
    for (double* const vector : pdf) VORLFree(vector);
  }
  [[nodiscard]] int Allocate(int nvar) noexcept {
    const auto size = static_cast<std::size_t>(nvar);
    if (const int status = nvalue.Allocate(size); status != 0) return status;
    if (const int status = nmissing.Allocate(size); status != 0) return status;
    if (const int status = value.Allocate(size, nullptr); status != 0) return status;
    return pdf.Allocate(size, nullptr);
  }
};

// Minimum, maximum, mean and standard deviation across the variables of `image`, in the variables of `out`.
// The divisor is the number of variables, those that are missing included.
void ComputeEnsembleStatistics(const VORL_IMAGE* image, const VORL_IMAGE* out) noexcept {
  const int nxyz = image->grid->nxyz;
  const double weight = 1.0 / image->nvar;
  real* const min = VariableOf(*out, 0);
  real* const max = VariableOf(*out, 1);
  real* const mean = VariableOf(*out, 2);
  real* const deviation = VariableOf(*out, 3);
  std::fill_n(min, nxyz, VORL_INFINITY);
  std::fill_n(max, nxyz, -VORL_INFINITY);
  std::fill_n(mean, nxyz, 0.0);
  std::fill_n(deviation, nxyz, 0.0);
  for (int iv = 0; iv < image->nvar; ++iv) {
    const real* const values = VariableOf(*image, iv);
    for (int k = 0; k < nxyz; ++k) {
      if (IsMissing(values[k])) continue;
      if (values[k] < min[k]) min[k] = values[k];
      if (values[k] > max[k]) max[k] = values[k];
      mean[k] += values[k];
    }
  }
  for (int k = 0; k < nxyz; ++k) mean[k] *= weight;
  for (int iv = 0; iv < image->nvar; ++iv) {
    const real* const values = VariableOf(*image, iv);
    for (int k = 0; k < nxyz; ++k) {
      if (!IsMissing(values[k])) deviation[k] += (values[k] - mean[k]) * (values[k] - mean[k]);
    }
  }
  for (int k = 0; k < nxyz; ++k) deviation[k] = std::sqrt(deviation[k] * weight);
}

// Proportions of the variables of `image` that have each of the values, in the variables of `out`. Some nodes at a time,
// so that their values are read, and their counts are kept, in the nearest cache.
void ComputeProportions(const VORL_IMAGE* image, int ncategory, const real* category, VORL_IMAGE* out) noexcept {
  constexpr int kTile = 1024;
  const int nxyz = image->grid->nxyz;
  const double weight = 1.0 / image->nvar;
  for (int first = 0; first < nxyz; first += kTile) {
    const int n = std::min(kTile, nxyz - first);
    for (int c = 0; c < ncategory; ++c) std::fill_n(VariableOf(*out, c) + first, n, 0.0);
    for (int iv = 0; iv < image->nvar; ++iv) {
      const real* const values = VariableOf(*image, iv) + first;
      for (int c = 0; c < ncategory; ++c) {
        real* const proportion = VariableOf(*out, c) + first;
        const real value = category[c];
        for (int k = 0; k < n; ++k) proportion[k] += values[k] == value ? 1.0 : 0.0;
      }
    }
    for (int c = 0; c < ncategory; ++c) {
      real* const proportion = VariableOf(*out, c) + first;
      for (int k = 0; k < n; ++k) proportion[k] *= weight;
    }
  }
}

int TransformLinear(real* vector, int nvalue, real a, real b, Dealing dealing) noexcept {
  dealing.Blocks(nvalue, [=](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      if (!IsMissing(vector[k])) vector[k] = vector[k] * a + b;
    }
  });
  return 0;
}

real InterpolateExplicit(real v, int n, const real* x, const real* y) noexcept {
  int lo = 0;
  int hi = n - 1;
  while (lo <= hi) {
    const int mid = lo + (hi - lo) / 2;
    if (v == x[mid]) return y[mid];
    if (v < x[mid]) {
      hi = mid - 1;
    } else {
      lo = mid + 1;
    }
  }
  if (hi == -1) return y[0];
  if (lo == n) return y[n - 1];
  const real t = (v - x[hi]) / (x[lo] - x[hi]);
  return (1 - t) * y[hi] + t * y[lo];
}

int TransformExplicit(real* vector, int nvalue, int n, const real* x, const real* y, Dealing dealing) noexcept {
  if (n < 1) return 0;
  dealing.Blocks(nvalue, [=](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      if (!IsMissing(vector[k]) && !std::isnan(vector[k])) vector[k] = InterpolateExplicit(vector[k], n, x, y);
    }
  });
  return 0;
}

}  // namespace
}  // namespace kestrum

using kestrum::AnyNull;
using kestrum::Dealing;
using kestrum::kNotAllocated;

int VORLGetImageOneVarValueMean(VORL_IMAGE* image, int iv, real* mean) noexcept {
  return kestrum::OfOneVariable(
      image, iv, [&](int v, int out) { mean[out] = kestrum::Mean(image, v); }, mean);
}

int VORLGetImageVarValueMean(VORL_IMAGE* image, real* mean) noexcept {
  return kestrum::OfAllVariables(
      image, [&](int v, int out) { mean[out] = kestrum::Mean(image, v); }, mean);
}

int VORLGetImageOneVarValueSD(VORL_IMAGE* image, int iv, real* mean, real* sd) noexcept {
  return kestrum::OfOneVariable(
      image, iv, [&](int v, int out) { sd[out] = kestrum::StandardDeviation(image, v, mean[out]); }, mean, sd);
}

int VORLGetImageVarValueSD(VORL_IMAGE* image, real* mean, real* sd) noexcept {
  return kestrum::OfAllVariables(
      image, [&](int v, int out) { sd[out] = kestrum::StandardDeviation(image, v, mean[out]); }, mean, sd);
}

int VORLGetImageOneVarValueRange(VORL_IMAGE* image, int iv, int* ninformed, real* min, real* max,
                                 real* range) noexcept {
  return kestrum::OfOneVariable(
      image, iv, [&](int v, int out) { kestrum::Range(image, v, &ninformed[out], &min[out], &max[out], &range[out]); },
      ninformed, min, max, range);
}

int VORLGetImageVarValueRange(VORL_IMAGE* image, int* ninformed, real* min, real* max, real* range) noexcept {
  return kestrum::OfAllVariables(
      image, [&](int v, int out) { kestrum::Range(image, v, &ninformed[out], &min[out], &max[out], &range[out]); },
      ninformed, min, max, range);
}

int VORLGetImageOneVarValuePdf(VORL_IMAGE* image, int iv, int* nvalue, real** value, double** pdf,
                               int* nmissing) noexcept {
  return VORLGetNImageOneVarValuePdf(1, image, iv, nvalue, value, pdf, nmissing);
}

int VORLGetImageVarValuePdf(VORL_IMAGE* image, int* nvalue, real** value, double** pdf, int* nmissing) noexcept {
  return VORLGetNImageVarValuePdf(1, image, nvalue, value, pdf, nmissing);
}

int VORLGetNImageOneVarValuePdf(int nimage, VORL_IMAGE* images, int iv, int* nvalue, real** value, double** pdf,
                                int* nmissing) noexcept {
  if (kestrum::VariableCountsDiffer(nimage, images)) return kestrum::kVariableCountsDiffer;
  if (const int status = kestrum::CheckVariable(*images, iv, nvalue, value, pdf, nmissing); status != 0) return status;
  return kestrum::Distributions(nimage, images, iv, iv + 1, nvalue, value, pdf, nmissing);
}

int VORLGetNImageVarValuePdf(int nimage, VORL_IMAGE* images, int* nvalue, real** value, double** pdf,
                             int* nmissing) noexcept {
  if (kestrum::VariableCountsDiffer(nimage, images)) return kestrum::kVariableCountsDiffer;
  if (AnyNull(nvalue, value, pdf, nmissing)) return kNotAllocated;
  return kestrum::Distributions(nimage, images, 0, nimage > 0 ? images->nvar : 0, nvalue, value, pdf, nmissing);
}

int VORLGetImageOneVarValueIndex(VORL_IMAGE* image, int iv, int nvalue, real* value, int* index) noexcept {
  if (const int status = kestrum::CheckVariable(*image, iv, index); status != 0) return status;
  const real* const values = kestrum::VariableOf(*image, iv);
  const int nxyz = image->grid->nxyz;
  const real* const end = value + std::max(nvalue, 0);
  for (int k = 0; k < nxyz; ++k) {
    const real* const found = std::lower_bound(static_cast<const real*>(value), end, values[k]);
    const bool listed = !kestrum::IsMissing(values[k]) && found != end && *found == values[k];
    index[k] = listed ? static_cast<int>(found - value) : -1;
  }
  return 0;
}

int VORLGetImageNumberVarValueMissing(VORL_IMAGE* image, int* nmissing) noexcept {
  return kestrum::OfAllVariables(
      image,
      [&](int v, int out) {
        const real* const values = kestrum::VariableOf(*image, v);
        nmissing[out] = static_cast<int>(std::count_if(values, values + image->grid->nxyz, kestrum::IsMissing));
      },
      nmissing);
}

int VORLGetImageVarVectorMissing(VORL_IMAGE* image, BOOLEAN* missing, int* count) noexcept {
  if (AnyNull(missing, count)) return kNotAllocated;
  if (const int status = kestrum::CheckImage(*image); status != 0) return status;
  const int nxyz = image->grid->nxyz;
  std::fill_n(missing, nxyz, static_cast<BOOLEAN>(FALSE));
  for (int iv = 0; iv < image->nvar; ++iv) {
    const real* const values = kestrum::VariableOf(*image, iv);
    for (int k = 0; k < nxyz; ++k) {
      if (kestrum::IsMissing(values[k])) missing[k] = TRUE;
    }
  }
  *count = static_cast<int>(std::count(missing, missing + nxyz, static_cast<BOOLEAN>(TRUE)));
  return 0;
}

int VORLGetImageVarStats(VORL_IMAGE* image, int** n, double* min, double* max, double* mean, double** cov) noexcept {
  if (AnyNull(n, min, max, mean, cov)) return kNotAllocated;
  if (const int status = kestrum::CheckImage(*image); status != 0) return status;
  kestrum::ComputeVariableStatistics(image->nvar, image->grid->nxyz, image->var, n, min, max, mean, cov);
  return 0;
}

int VORLGetImageVarStatsLocal(VORL_IMAGE* image, VORL_IMAGE* out, int ncategory, real* category) noexcept {
  static constexpr const char* kNames[] = {"min", "max", "mean", "std"};
  const int nvar = ncategory < 1 ? 4 : ncategory;
  if (out == nullptr || out == image || (ncategory >= 1 && category == nullptr)) return kNotAllocated;
  if (const int status = kestrum::CheckImage(*image); status != 0) return status;
  if (const int status = kestrum::MallocImageOn(*image->grid, nvar, out); status != 0) return status;
  if (ncategory < 1) {
    for (int iv = 0; iv < nvar; ++iv) std::strcpy(out->varName[iv], kNames[iv]);
    kestrum::ComputeEnsembleStatistics(image, out);
    return 0;
  }
  const kestrum::PlainNumbers plainNumbers;
  for (int iv = 0; iv < nvar; ++iv) {
    std::snprintf(out->varName[iv], VORL_VARNAME_LENGTH, "%s%0*g", VORL_PREFIX_FOR_OCCURRENCE_PROPORTION,
                  VORL_NB_DIGIT_FOR_VALUE_NAME, category[iv]);
  }
  kestrum::ComputeProportions(image, nvar, category, out);
  return 0;
}

int VORLPrintImageInfo(VORL_IMAGE* image, char* prefix, FILE* stream, int ndetail) noexcept {
  if (const int status = kestrum::CheckImage(*image); status != 0) return status;
  const int nvar = image->nvar;
  kestrum::VariableStatistics statistics;
  if (const int status = statistics.Allocate(nvar); status != 0) return status;
  if (const int status = VORLGetImageVarStats(image, statistics.n.rows(), statistics.min.data(), statistics.max.data(),
                                              statistics.mean.data(), statistics.cov.rows());
      status != 0) {
    return status;
  }
  kestrum::AllDistributions all;
  if (const int status = all.Allocate(nvar); status != 0) return status;
  if (const int status =
          VORLGetImageVarValuePdf(image, all.nvalue.data(), all.value.data(), all.pdf.data(), all.nmissing.data());
      status != 0) {
    return status;
  }

  const kestrum::PlainNumbers plainNumbers;
  std::fprintf(stream, "%sGrid:\n", prefix);
  VORLPrintGrid(image->grid, prefix, stream);
  std::fprintf(stream, "\n");
  std::fprintf(stream, "%sNumber of variables: %3d\n", prefix, nvar);
  std::fprintf(stream, "%sGrid size * number of variables: %3d\n", prefix, image->nxyzv);
  kestrum::PrintVariableList(nvar, image->varName, prefix, stream);
  kestrum::PrintVariableStatistics(nvar, statistics, "image", prefix, stream);

  for (int iv = 0; iv < nvar; ++iv) {
    std::fprintf(stream, "%sVariable #%3d:\n", prefix, iv);
    std::fprintf(stream, "%s   Proportion of nodes having a missing value: %10.4f %%\n", prefix,
                 all.nmissing[iv] * (1.0 / image->grid->nxyz) * 100);
    std::fprintf(stream, "%s   Number of different values: %3d\n", prefix, all.nvalue[iv]);
    if (all.nvalue[iv] > 0 && all.nvalue[iv] > ndetail) {
      std::fprintf(stream, "%s   No detail\n", prefix);
    } else if (all.nvalue[iv] > 0) {
      std::fprintf(stream, "%s   Pdf (ignoring missing value):\n", prefix);
      std::fprintf(stream, "%s                Value   Proportion in grid (%%)\n", prefix);
      for (int k = 0; k < all.nvalue[iv]; ++k) {
        std::fprintf(stream, "%s   #%3d:   %10.4f   %10.4f\n", prefix, k, all.value[iv][k], all.pdf[iv][k] * 100);
      }
    }
    std::fprintf(stream, "\n");
  }
  return 0;
}

int VORLTransformLinearImageVar(VORL_IMAGE* image, int iv, real a, real b) noexcept {
  if (const int status = kestrum::CheckVariable(*image, iv); status != 0) return status;
  return VORLTransformLinearVector(kestrum::VariableOf(*image, iv), image->grid->nxyz, a, b);
}

int VORLTransformLinearVector(real* vector, int nvalue, real a, real b) noexcept {
  return kestrum::TransformLinear(vector, nvalue, a, b, Dealing::Serial());
}

int VORLOMPTransformLinearVector(real* vector, int nvalue, real a, real b, int nthreads) noexcept {
  return kestrum::TransformLinear(vector, nvalue, a, b, Dealing::Threads(nthreads));
}

int VORLTransformExplicitImageVar(VORL_IMAGE* image, int iv, int n, real* x, real* y) noexcept {
  if (const int status = kestrum::CheckVariable(*image, iv); status != 0) return status;
  return VORLTransformExplicitVector(kestrum::VariableOf(*image, iv), image->grid->nxyz, n, x, y);
}

int VORLTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y) noexcept {
  return kestrum::TransformExplicit(vector, nvalue, n, x, y, Dealing::Serial());
}

int VORLOMPTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y, int nthreads) noexcept {
  return kestrum::TransformExplicit(vector, nvalue, n, x, y, Dealing::Threads(nthreads));
}
