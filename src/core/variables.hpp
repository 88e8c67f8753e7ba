#ifndef KESTRUM_CORE_VARIABLES_HPP
#define KESTRUM_CORE_VARIABLES_HPP

// What images and point sets have in common: named variables, each a contiguous run of values.

#include <cstdio>

#include "core/array_2d.hpp"
#include "core/buffer.hpp"
#include "core/image.h"
#include "core/point_set.h"

namespace kestrum {

inline bool IsMissing(real value) noexcept { return value == VORL_MISSING_VALUE; }

template <typename... T>
bool AnyNull(const T*... pointers) noexcept {
  return ((pointers == nullptr) || ...);
}

// Allocates nvar empty names.
[[nodiscard]] int MallocNames(int nvar, char*** names) noexcept;
void CopyNames(int nvar, char** src, char** dst) noexcept;

// Verdict on the names: 0, tooLong if a name has no room for extraLength more characters, notUnique if two are equal.
int ValidateNames(int nvar, char** names, int extraLength, int tooLong, int notUnique) noexcept;

// One line per name.
void PrintNames(int nvar, char** names, const char* prefix, FILE* stream) noexcept;

// Statistics of all variables and pairs of variables, as VORLGetImageVarStats gives them: nvar runs of count values.
// Nothing may be null.
void ComputeVariableStatistics(int nvar, int count, const real* var, int** n, double* min, double* max, double* mean,
                               double** cov) noexcept;

// Work arrays for these statistics, and their report.
struct VariableStatistics {
  Array2D<int> n;
  Array2D<double> cov;
  Buffer<double> min;
  Buffer<double> max;
  Buffer<double> mean;

  [[nodiscard]] int Allocate(int nvar) noexcept;
};

// Writes "Variable #..." for each variable and an empty line.
void PrintVariableList(int nvar, char** names, const char* prefix, FILE* stream) noexcept;

// Writes the tables of counts, of statistics, of covariances and of correlations, each closed by an empty line.
// `support` says what holds the values.
void PrintVariableStatistics(int nvar, VariableStatistics& statistics, const char* support, const char* prefix,
                             FILE* stream) noexcept;

}  // namespace kestrum

#endif
