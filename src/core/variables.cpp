#include "core/variables.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "core/text.h"

namespace kestrum {
namespace {

// Calls body(a[k], b[k]) for each k where both are informed.
template <typename Body>
void ForEachInformedPair(int count, const real* a, const real* b, const Body& body) noexcept {
  for (int k = 0; k < count; ++k) {
    if (!IsMissing(a[k]) && !IsMissing(b[k])) body(a[k], b[k]);
  }
}

// Writes a head line, and one line per variable with the entries that `entry(i, j)` prints.
template <typename Entry>
void PrintPairTable(int nvar, const char* prefix, FILE* stream, const Entry& entry) noexcept {
  std::fprintf(stream, "%s        ", prefix);
  for (int j = 0; j < nvar; ++j) std::fprintf(stream, "            #%3d", j);
  std::fprintf(stream, "\n");
  for (int i = 0; i < nvar; ++i) {
    std::fprintf(stream, "%s    #%3d", prefix, i);
    for (int j = 0; j < nvar; ++j) entry(i, j);
    std::fprintf(stream, "\n");
  }
  std::fprintf(stream, "\n");
}

bool HaveSameName(const char* a, const char* b) noexcept { return std::strncmp(a, b, VORL_VARNAME_LENGTH) == 0; }

}  // namespace

int MallocNames(int nvar, char*** names) noexcept {
  int status = 0;
  *names = reinterpret_cast<char**>(
      VORLMallocArray2D(static_cast<std::size_t>(nvar), VORL_VARNAME_LENGTH, sizeof(char), &status));
  if (status != 0) return status;
  for (int iv = 0; iv < nvar; ++iv) (*names)[iv][0] = '\0';
  return 0;
}

void CopyNames(int nvar, char** src, char** dst) noexcept {
  if (nvar > 0) std::memcpy(dst[0], src[0], static_cast<std::size_t>(nvar) * VORL_VARNAME_LENGTH);
}

int ValidateNames(int nvar, char** names, int extraLength, int tooLong, int notUnique) noexcept {
  for (int iv = 0; iv < nvar; ++iv) {
    const std::size_t length = strnlen(names[iv], VORL_VARNAME_LENGTH);
    if (static_cast<long long>(length) + extraLength > VORL_VARNAME_LENGTH - 1) return tooLong;
  }
  constexpr int kMany = 64;
  Buffer<const char*> sorted;
  if (nvar < kMany || sorted.Allocate(static_cast<std::size_t>(nvar)) != 0) {
    for (int iv = 0; iv < nvar; ++iv) {
      for (int later = iv + 1; later < nvar; ++later) {
        if (HaveSameName(names[iv], names[later])) return notUnique;
      }
    }
    return 0;
  }
  std::copy_n(names, nvar, sorted.begin());
  std::sort(sorted.begin(), sorted.end(),
            [](const char* a, const char* b) { return std::strncmp(a, b, VORL_VARNAME_LENGTH) < 0; });
  return std::adjacent_find(sorted.begin(), sorted.end(), HaveSameName) == sorted.end() ? 0 : notUnique;
}

void PrintNames(int nvar, char** names, const char* prefix, FILE* stream) noexcept {
  if (names == nullptr) return;
  for (int iv = 0; iv < nvar; ++iv) std::fprintf(stream, "%s%.*s\n", prefix, VORL_VARNAME_LENGTH, names[iv]);
}

void ComputeVariableStatistics(int nvar, int count, const real* var, int** n, double* min, double* max, double* mean,
                               double** cov) noexcept {
  for (int i = 0; i < nvar; ++i) {
    const real* const a = var + static_cast<std::ptrdiff_t>(i) * count;
    // Start values that stay where a variable, or a pair, has no value.
    min[i] = VORL_INFINITY;
    max[i] = -VORL_INFINITY;
    mean[i] = 0.0;
    for (int j = i; j < nvar; ++j) {
      const real* const b = var + static_cast<std::ptrdiff_t>(j) * count;
      int informed = 0;
      ForEachInformedPair(count, a, b, [&](real, real) { ++informed; });
      double covariance = 0.0;
      if (informed > 0) {
        // The means of the pair's own nodes; those of a variable with itself are the variable's.
        const double weight = 1.0 / informed;
        double meanA = 0.0;
        double meanB = 0.0;
        ForEachInformedPair(count, a, b, [&](real valueA, real valueB) {
          meanA += valueA * weight;
          meanB += valueB * weight;
        });
        ForEachInformedPair(count, a, b,
                            [&](real valueA, real valueB) { covariance += (valueA - meanA) * (valueB - meanB); });
        covariance /= std::max(1.0, informed - 1.0);
        if (i == j) {
          mean[i] = meanA;
          ForEachInformedPair(count, a, a, [&](real value, real) {
            if (value < min[i]) min[i] = value;
            if (value > max[i]) max[i] = value;
          });
        }
      }
      n[i][j] = n[j][i] = informed;
      cov[i][j] = cov[j][i] = covariance;
    }
  }
}

int VariableStatistics::Allocate(int nvar) noexcept {
  const auto size = static_cast<std::size_t>(nvar);
  if (const int status = n.Allocate(size, size); status != 0) return status;
  if (const int status = min.Allocate(size); status != 0) return status;
  if (const int status = max.Allocate(size); status != 0) return status;
  if (const int status = mean.Allocate(size); status != 0) return status;
  return cov.Allocate(size, size);
}

void PrintVariableList(int nvar, char** names, const char* prefix, FILE* stream) noexcept {
  for (int iv = 0; iv < nvar && names != nullptr; ++iv) {
    std::fprintf(stream, "%sVariable #%3d: %.*s\n", prefix, iv, VORL_VARNAME_LENGTH, names[iv]);
  }
  std::fprintf(stream, "\n");
}

void PrintVariableStatistics(int nvar, VariableStatistics& statistics, const char* support, const char* prefix,
                             FILE* stream) noexcept {
  int** const n = statistics.n.rows();
  double** const cov = statistics.cov.rows();

  std::fprintf(stream, "%sNumber of informed nodes for each pair of variables,\n", prefix);
  std::fprintf(stream, "%sn(i,j) = number of nodes in %s where both i-th and j-th variables are informed:\n", prefix,
               support);
  PrintPairTable(nvar, prefix, stream, [&](int i, int j) { std::fprintf(stream, " %15d", n[i][j]); });

  std::fprintf(stream, "%sVariable             min             max            mean             var             std\n",
               prefix);
  for (int i = 0; i < nvar; ++i) {
    std::fprintf(stream, "%s    #%3d %15.8E %15.8E %15.8E %15.8E %15.8E\n", prefix, i, statistics.min[i],
                 statistics.max[i], statistics.mean[i], cov[i][i], std::sqrt(cov[i][i]));
  }
  std::fprintf(stream, "\n");

  std::fprintf(stream, "%sCovariance Matrix\n", prefix);
  PrintPairTable(nvar, prefix, stream, [&](int i, int j) { std::fprintf(stream, " %15.8E", cov[i][j]); });

  std::fprintf(stream, "%sCorrelation Matrix\n", prefix);
  std::fprintf(stream, "%s(warning: cor(i,j) exact if n(i,j) = n(i,i) = n(j,j)\n", prefix);
  PrintPairTable(nvar, prefix, stream,
                 [&](int i, int j) { std::fprintf(stream, " %15.8E", cov[i][j] / std::sqrt(cov[j][j] * cov[i][i])); });
}

}  // namespace kestrum
