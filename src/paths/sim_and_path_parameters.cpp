#include "paths/sim_and_path_parameters.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <type_traits>

#include "core/memory.h"
#include "core/plain_numbers.hpp"
#include "core/statuses.hpp"
#include "paths/parameter_reader.hpp"
#include "paths/unilateral_order.hpp"

static_assert(std::is_standard_layout_v<VORL_SIMANDPATHPARAMETERS>);
static_assert(sizeof(void*) != 8 || sizeof(VORL_SIMANDPATHPARAMETERS) == 40);

namespace kestrum {
namespace {

constexpr Mode kSimTypes[] = {{"SIM_ONE_BY_ONE"}, {"SIM_VARIABLE_VECTOR"}};

constexpr Mode kPathTypes[] = {
    {"PATH_RANDOM"},
    {"PATH_RANDOM_HD_DISTANCE_PDF"},
    {"PATH_RANDOM_HD_DISTANCE_SORT"},
    {"PATH_RANDOM_HD_DISTANCE_SUM_PDF"},
    {"PATH_RANDOM_HD_DISTANCE_SUM_SORT"},
    {"PATH_UNILATERAL"},
};

bool UsesPow(int pathType) noexcept {
  return pathType == PATH_RANDOM_HD_DISTANCE_SUM_PDF || pathType == PATH_RANDOM_HD_DISTANCE_SUM_SORT;
}

bool UsesStrength(int pathType) noexcept {
  return pathType >= PATH_RANDOM_HD_DISTANCE_PDF && pathType <= PATH_RANDOM_HD_DISTANCE_SUM_SORT;
}

// Allocates `n` entries; the length is set only with the vector.
int AllocateOrder(VORL_SIMANDPATHPARAMETERS& p, int n) noexcept {
  int status = 0;
  p.unilateralOrder = static_cast<int*>(VORLMalloc(static_cast<std::size_t>(n), sizeof(int), &status));
  p.nunilateralOrder = status == 0 ? n : 0;
  return status;
}

void PrintOrder(const int* order, int naxis, std::FILE* stream) noexcept {
  constexpr char kLetters[kMaxUnilateralAxes] = {'X', 'Y', 'Z', 'V'};
  int axes[kMaxUnilateralAxes];
  SortAxesByRank(order, naxis, axes);
  int a = 0;
  for (; a < naxis && order[axes[a]] == 0; ++a) {
    std::fprintf(stream, "%s%c", a == 0 ? " random " : " ", kLetters[axes[a]]);
  }
  if (a > 0) std::fprintf(stream, ", ");
  for (; a < naxis; ++a) std::fprintf(stream, " %c%c", order[axes[a]] < 0 ? '-' : '+', kLetters[axes[a]]);
}

// Whether the ranks other than 0 are the numbers from 1 to their count.
bool IsOrder(const int* order, int naxis) noexcept {
  int axes[kMaxUnilateralAxes];
  SortAxesByRank(order, naxis, axes);
  int rank = 0;
  return std::all_of(axes, axes + naxis, [&](int axis) { return order[axis] == 0 || RankOf(order[axis]) == ++rank; });
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

void VORLInitSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) noexcept { *parameters = {}; }

void VORLFreeSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters) noexcept {
  if (parameters != nullptr) VORLFree(parameters->unilateralOrder);
}

int VORLCopySimAndPathParameters(VORL_SIMANDPATHPARAMETERS* dst, VORL_SIMANDPATHPARAMETERS* src) noexcept {
  if (dst == src) return 0;
  *dst = *src;
  dst->unilateralOrder = nullptr;
  dst->nunilateralOrder = 0;
  if (src->nunilateralOrder <= 0 || src->unilateralOrder == nullptr) return 0;
  if (const int status = AllocateOrder(*dst, src->nunilateralOrder); status != 0) return status;
  std::copy_n(src->unilateralOrder, src->nunilateralOrder, dst->unilateralOrder);
  return 0;
}

int VORLReadSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, FILE* stream) noexcept {
  auto& p = *parameters;
  if (!TakeMode(stream, kSimTypes, &p.simType)) return kReadSimulationType;
  if (!TakeMode(stream, kPathTypes, &p.pathType)) return kReadPathType;
  if (p.pathType == PATH_UNILATERAL) {
    if (const int status = AllocateOrder(p, p.simType == SIM_ONE_BY_ONE ? 4 : 3); status != 0) return status;
    std::fill_n(p.unilateralOrder, p.nunilateralOrder, 0);
    for (int axis = 0; axis < p.nunilateralOrder; ++axis) {
      if (const int status = TakeInts(stream, kReadUnilateralOrder, {&p.unilateralOrder[axis]}); status != 0)
        return status;
    }
  }
  if (UsesPow(p.pathType)) {
    if (const int status = TakeReals(stream, kReadPathPower, {&p.pow}); status != 0) return status;
  }
  return UsesStrength(p.pathType) ? TakeReals(stream, kReadPathStrength, {&p.strength}) : 0;
}

int VORLPrintSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, char* prefix, FILE* stream) noexcept {
  const auto& p = *parameters;
  const PlainNumbers plainNumbers;
  const Mode* const simType = FindMode(kSimTypes, p.simType);
  const Mode* const pathType = FindMode(kPathTypes, p.pathType);
  std::fprintf(stream, "%sSimulation type: %s\n", prefix, simType != nullptr ? simType->word : "UNKNOWN");
  std::fprintf(stream, "%sPath type: %s", prefix, pathType != nullptr ? pathType->word : "UNKNOWN");
  if (UsesPow(p.pathType)) std::fprintf(stream, " pow: %.10g", p.pow);
  if (UsesStrength(p.pathType)) std::fprintf(stream, " strength: %.10g", p.strength);
  if (p.pathType == PATH_UNILATERAL && p.unilateralOrder != nullptr) {
    PrintOrder(p.unilateralOrder, std::clamp(p.nunilateralOrder, 0, kMaxUnilateralAxes), stream);
  }
  std::fprintf(stream, "\n");
  return 0;
}

int VORLValidateSimAndPathParameters(VORL_SIMANDPATHPARAMETERS* parameters, int* error) noexcept {
  const auto& p = *parameters;
  const auto verdict = [&p]() noexcept -> int {
    if (FindMode(kSimTypes, p.simType) == nullptr) return kSimulationType;
    if (UsesPow(p.pathType) && !(p.pow > 0.0 && p.pow <= VORL_MAX_POWER_PATH_RANDOM_HD_DISTANCE_SUM)) return kPathPower;
    if (UsesStrength(p.pathType) && !(p.strength >= 0.0 && p.strength <= 1.0)) return kPathStrength;
    if (FindMode(kPathTypes, p.pathType) == nullptr) return kPathType;
    if (p.pathType != PATH_UNILATERAL || p.nunilateralOrder == 0) return 0;
    if (p.nunilateralOrder < 0 || p.nunilateralOrder > kMaxUnilateralAxes || p.unilateralOrder == nullptr)
      return kUnilateralOrder;
    return IsOrder(p.unilateralOrder, p.nunilateralOrder) ? 0 : kUnilateralOrder;
  };
  *error = verdict();
  return 0;
}
