#include "analysis/conversions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "core/buffer.hpp"
#include "core/memory.h"
#include "core/nearest_node.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Samples along one direction, numbered from -nbefore to nafter; number 0 is the reference point.
struct Sampling {
  real x, y, z;  // direction
  real step;
  int nbefore, nafter;

  int count() const noexcept { return nbefore + nafter + 1; }
  // Lower corner of the first cell, when the reference point is at 0.
  real origin() const noexcept { return -(nbefore + 0.5) * step; }
};
// A direction that is not asked for has the reference point alone.
constexpr Sampling kNoDirection{0.0, 0.0, 0.0, 1.0, 0, 0};

// False if the samples that the box needs are more than an int counts.
bool CountSamples(const VORL_GRID& grid, const real (&reference)[3], Sampling* sampling) noexcept {
  real tMin = 0.0;
  real tMax = 0.0;
  for (int corner = 0; corner < 8; ++corner) {
    const real x = grid.ox + (corner & 1 ? grid.nx * grid.sx : 0.0) - reference[0];
    const real y = grid.oy + (corner & 2 ? grid.ny * grid.sy : 0.0) - reference[1];
    const real z = grid.oz + (corner & 4 ? grid.nz * grid.sz : 0.0) - reference[2];
    const real t = x * sampling->x + y * sampling->y + z * sampling->z;
    tMin = std::min(tMin, t);
    tMax = std::max(tMax, t);
  }
  const real before = -tMin / sampling->step;
  const real after = tMax / sampling->step;
  if (!(std::trunc(before) + std::trunc(after) < std::numeric_limits<int>::max())) return false;
  sampling->nbefore = static_cast<int>(before);
  sampling->nafter = static_cast<int>(after);
  return true;
}

// Fills `out` from the nearest nodes of `in`.
void TakeSamples(const VORL_IMAGE& in, const real (&reference)[3], const Sampling (&samplings)[3],
                 VORL_IMAGE* out) noexcept {
  const auto& [first, second, third] = samplings;
  const VORL_GRID& grid = *in.grid;
  std::ptrdiff_t sample = 0;
  for (int k = -third.nbefore; k <= third.nafter; ++k) {
    const real tk = k * third.step;
    for (int j = -second.nbefore; j <= second.nafter; ++j) {
      const real tj = j * second.step;
      for (int i = -first.nbefore; i <= first.nafter; ++i, ++sample) {
        const real ti = i * first.step;
        const real x = reference[0] + (ti * first.x + tj * second.x + tk * third.x);
        const real y = reference[1] + (ti * first.y + tj * second.y + tk * third.y);
        const real z = reference[2] + (ti * first.z + tj * second.z + tk * third.z);
        const int node = LiesInBox(grid, x, y, z) ? NodeIndex(grid, NearestNode(grid, x, y, z)) : -1;
        for (int v = 0; v < out->nvar; ++v) {
          out->var[std::ptrdiff_t{v} * out->grid->nxyz + sample] =
              node < 0 ? real{VORL_MISSING_VALUE} : VariableOf(in, v)[node];
        }
      }
    }
  }
}

int Extract(const VORL_IMAGE& in, VORL_IMAGE* out, const real (&reference)[3], Sampling (&samplings)[3],
            int ndirection) noexcept {
  if (in.grid == nullptr || out == &in) return kNotAllocated;
  const VORL_GRID& grid = *in.grid;
  if (!LiesBetweenFaces(reference[0], grid.ox, grid.sx, grid.nx)) return kReferenceX;
  if (!LiesBetweenFaces(reference[1], grid.oy, grid.sy, grid.ny)) return kReferenceY;
  if (!LiesBetweenFaces(reference[2], grid.oz, grid.sz, grid.nz)) return kReferenceZ;
  for (int d = 0; d < ndirection; ++d) {
    Sampling& s = samplings[d];
    const real length = std::sqrt(s.x * s.x + s.y * s.y + s.z * s.z);
    if (!(length >= VORL_EPSILON_SOFT)) return kZeroDirection;
    s.x /= length;
    s.y /= length;
    s.z /= length;
  }
  for (int d = 0; d < ndirection; ++d) {
    if (!(samplings[d].step >= VORL_EPSILON_SOFT) || !CountSamples(grid, reference, &samplings[d])) {
      return kSamplingStep;
    }
  }
  const auto& [first, second, third] = samplings;
  const int nvar = std::max(in.nvar, 0);
  VORL_GRID frame;
  frame.sx = first.step;
  frame.sy = second.step;
  frame.sz = third.step;
  frame.ox = first.origin();
  frame.oy = second.origin();
  frame.oz = third.origin();
  if (!SetSizes(&frame, first.count(), second.count(), third.count()) ||
      frame.nxyz > std::numeric_limits<int>::max() / std::max(nvar, 1)) {
    return kSamplingStep;
  }
  if (const int status = CheckImageIfAnyVariable(in); status != 0) return status;
  if (const int status = MallocImageOn(frame, nvar, out); status != 0) return status;
  for (int v = 0; v < nvar; ++v) std::memcpy(out->varName[v], in.varName[v], VORL_VARNAME_LENGTH);
  TakeSamples(in, reference, samplings, out);
  return 0;
}

enum class Role { kIgnored, kValue, kLowerBound, kUpperBound };

// Where a source variable goes.
struct Route {
  Role role;
  int variable;
};

// What both merges share: the target with its bounds, the rule of conflicts, and the count of conflicts.
class Merger {
 public:
  Merger(VORL_IMAGE* target, real** varMin, real** varMax, int conflictMode, int* nconflict) noexcept
      : target_(target), varMin_(varMin), varMax_(varMax), conflictMode_(conflictMode), nconflict_(nconflict) {}

  // Finds where the source variables go. A variable with nowhere to go is ignored and counted, or fails with
  // `unmatchedStatus`.
  int FindRoutes(char** names, int nvar, bool ignoreUnmatched, int unmatchedStatus, int* nvarIgnored,
                 Buffer<Route>* routes) const noexcept {
    if (nvar < 1) return 0;
    if (const int status = routes->Allocate(static_cast<std::size_t>(nvar)); status != 0) return status;
    for (int v = 0; v < nvar; ++v) {
      const Route route = FindRoute(names[v]);
      if (route.role == Role::kIgnored) {
        if (!ignoreUnmatched) return unmatchedStatus;
        ++*nvarIgnored;
      }
      (*routes)[static_cast<std::size_t>(v)] = route;
    }
    return 0;
  }

  // The nxyz values or bounds that a route leads to; null if they are bounds not yet allocated.
  real* Find(const Route& route) const noexcept {
    if (route.role != Role::kValue) return *BoundsOf(route);
    return target_->var + static_cast<std::size_t>(route.variable) * static_cast<std::size_t>(target_->grid->nxyz);
  }

  // Allocates bounds, not cleared, that then belong to the caller of the merge.
  int AllocateBounds(const Route& route, real** bounds) const noexcept {
    int status = 0;
    *bounds = static_cast<real*>(VORLMalloc(static_cast<std::size_t>(target_->grid->nxyz), sizeof(real), &status));
    *BoundsOf(route) = *bounds;
    return status;
  }

  // Brings one value or bound in; false if that is a conflict that must fail.
  bool Merge(Role role, real value, real* slot) const noexcept {
    if (IsMissing(value)) return true;
    if (IsMissing(*slot)) {
      *slot = value;
      return true;
    }
    if (conflictMode_ == 0) return false;
    if (role == Role::kValue) {
      if (conflictMode_ == 2) *slot = value;
      if (conflictMode_ == 1 || conflictMode_ == 2) ++*nconflict_;
    } else if (role == Role::kLowerBound ? value > *slot : value < *slot) {
      *slot = value;
    }
    return true;
  }

 private:
  Route FindRoute(const char* name) const noexcept {
    for (int v = 0; v < target_->nvar; ++v) {
      if (std::strcmp(name, target_->varName[v]) == 0) return {Role::kValue, v};
    }
    constexpr std::size_t kSuffixLength = sizeof(VORL_INEQUALITY_DATA_SUFFIX_FOR_MIN) - 1;
    static_assert(sizeof(VORL_INEQUALITY_DATA_SUFFIX_FOR_MAX) - 1 == kSuffixLength);
    const std::size_t length = std::strlen(name);
    if (varMin_ == nullptr || varMax_ == nullptr || length < kSuffixLength) return {Role::kIgnored, 0};
    const std::size_t stemLength = length - kSuffixLength;
    const bool isLower = std::strcmp(name + stemLength, VORL_INEQUALITY_DATA_SUFFIX_FOR_MIN) == 0;
    if (!isLower && std::strcmp(name + stemLength, VORL_INEQUALITY_DATA_SUFFIX_FOR_MAX) != 0) {
      return {Role::kIgnored, 0};
    }
    // A longer name of a target variable deliberately fits as well.
    for (int v = 0; v < target_->nvar; ++v) {
      if (std::strncmp(name, target_->varName[v], stemLength) == 0) {
        return {isLower ? Role::kLowerBound : Role::kUpperBound, v};
      }
    }
    return {Role::kIgnored, 0};
  }

  real** BoundsOf(const Route& route) const noexcept {
    return (route.role == Role::kLowerBound ? varMin_ : varMax_) + route.variable;
  }

  VORL_IMAGE* target_;
  real** varMin_;
  real** varMax_;
  int conflictMode_;
  int* nconflict_;
};

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLImageExtract1D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ, real dirX, real dirY,
                       real dirZ, real step) noexcept {
  Sampling samplings[] = {{dirX, dirY, dirZ, step, 0, 0}, kNoDirection, kNoDirection};
  return Extract(*imageIn, imageOut, {refX, refY, refZ}, samplings, 1);
}

int VORLImageExtract2D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ, real dir1X,
                       real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real step1, real step2) noexcept {
  Sampling samplings[] = {{dir1X, dir1Y, dir1Z, step1, 0, 0}, {dir2X, dir2Y, dir2Z, step2, 0, 0}, kNoDirection};
  return Extract(*imageIn, imageOut, {refX, refY, refZ}, samplings, 2);
}

int VORLImageExtract3D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ, real dir1X,
                       real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real dir3X, real dir3Y, real dir3Z,
                       real step1, real step2, real step3) noexcept {
  Sampling samplings[] = {
      {dir1X, dir1Y, dir1Z, step1, 0, 0}, {dir2X, dir2Y, dir2Z, step2, 0, 0}, {dir3X, dir3Y, dir3Z, step3, 0, 0}};
  return Extract(*imageIn, imageOut, {refX, refY, refZ}, samplings, 3);
}

int VORLImageToImage(VORL_IMAGE* source, VORL_IMAGE* target, real** varMin, real** varMax, int ignoreUnmatchedVar,
                     int conflictMode, int* nvarIgnored, int* nconflict, BOOLEAN merge) noexcept {
  *nvarIgnored = 0;
  *nconflict = 0;
  for (const VORL_IMAGE* const image : {source, target}) {
    if (const int status = CheckImageIfAnyVariable(*image); status != 0) return status;
  }
  const int difference = std::abs(VORLCmpGrid(source->grid, target->grid));
  if (difference >= 1 && difference <= 3) return kDataImageGrid;

  const Merger merger(target, varMin, varMax, conflictMode, nconflict);
  Buffer<Route> routes;
  if (const int status = merger.FindRoutes(source->varName, source->nvar, ignoreUnmatchedVar != 0, kDataImageVariable,
                                           nvarIgnored, &routes);
      status != 0) {
    return status;
  }
  const std::ptrdiff_t nxyz = source->grid->nxyz;
  const real* values = source->var;
  for (const Route& route : routes) {
    if (route.role != Role::kIgnored) {
      real* slots = merger.Find(route);
      bool copies = route.role == Role::kValue && !merge;
      if (slots == nullptr) {
        if (const int status = merger.AllocateBounds(route, &slots); status != 0) return status;
        copies = true;
      }
      if (copies) {
        std::copy(values, values + nxyz, slots);
      } else {
        for (std::ptrdiff_t i = 0; i < nxyz; ++i) {
          if (!merger.Merge(route.role, values[i], &slots[i])) return kDataImageConflict;
        }
      }
    }
    values += nxyz;
  }
  return 0;
}

int VORLPointSetToImage(VORL_POINTSET* source, VORL_IMAGE* target, real** varMin, real** varMax, int ignoreUnmatchedVar,
                        int placementMode, int conflictMode, int* nvarIgnored, int* npointDropped,
                        int* nconflict) noexcept {
  *nvarIgnored = 0;
  *npointDropped = 0;
  *nconflict = 0;
  if (const int status = CheckPointSet(*source); status != 0) return status;
  if (target->nvar > 0) {
    if (const int status = CheckImage(*target); status != 0) return status;
  }
  const Merger merger(target, varMin, varMax, conflictMode, nconflict);
  Buffer<Route> routes;
  if (const int status = merger.FindRoutes(source->varName, source->nvar, ignoreUnmatchedVar != 0, kPointSetVariable,
                                           nvarIgnored, &routes);
      status != 0) {
    return status;
  }
  if (*nvarIgnored >= source->nvar) return 0;

  const VORL_GRID& grid = *target->grid;
  for (int point = 0; point < source->npoint; ++point) {
    const real x = source->x[point];
    const real y = source->y[point];
    const real z = source->z[point];
    if (!LiesInBox(grid, x, y, z)) {
      if (placementMode == 0) return kPointSetOutside;
      ++*npointDropped;
      continue;
    }
    const NodeCoordinates nearest = NearestNode(grid, x, y, z);
    if (placementMode == 2) {
      const real dx = x - (grid.ox + (nearest.ix + 0.5) * grid.sx);
      const real dy = y - (grid.oy + (nearest.iy + 0.5) * grid.sy);
      const real dz = z - (grid.oz + (nearest.iz + 0.5) * grid.sz);
      if (dx * dx + dy * dy + dz * dz >= VORL_EPSILON) {
        ++*npointDropped;
        continue;
      }
    }
    const int node = NodeIndex(grid, nearest);
    const real* value = source->var + point;
    for (const Route& route : routes) {
      if (route.role != Role::kIgnored && !IsMissing(*value)) {
        real* slots = merger.Find(route);
        if (slots == nullptr) {
          if (const int status = merger.AllocateBounds(route, &slots); status != 0) return status;
          std::fill_n(slots, grid.nxyz, real{VORL_MISSING_VALUE});
        }
        if (!merger.Merge(route.role, *value, &slots[node])) return kPointSetConflict;
      }
      value += source->npoint;
    }
  }
  return 0;
}

int VORLImageToPointSet(VORL_IMAGE* image, VORL_POINTSET* pointSet) noexcept {
  if (const int status = CheckImageIfAnyVariable(*image); status != 0) return status;
  if (image->nvar < 1) return kImageWithoutValue;
  const VORL_GRID& grid = *image->grid;
  const std::size_t nvar = static_cast<std::size_t>(image->nvar);
  const std::size_t nxyz = static_cast<std::size_t>(grid.nxyz);
  Buffer<BOOLEAN> keptVariables;
  if (const int status = keptVariables.Allocate(nvar, FALSE); status != 0) return status;
  Buffer<BOOLEAN> keptNodes;
  if (const int status = keptNodes.Allocate(nxyz, FALSE); status != 0) return status;
  for (std::size_t v = 0; v < nvar; ++v) {
    for (std::size_t i = 0; i < nxyz; ++i) {
      if (!IsMissing(image->var[v * nxyz + i])) keptVariables[v] = keptNodes[i] = TRUE;
    }
  }
  const int nvarKept = static_cast<int>(std::count(keptVariables.begin(), keptVariables.end(), TRUE));
  const int npoint = static_cast<int>(std::count(keptNodes.begin(), keptNodes.end(), TRUE));
  if (npoint == 0) return kImageWithoutValue;

  if (const int status = VORLMallocPointSet(pointSet, npoint, nvarKept); status != 0) return status;
  pointSet->npoint = npoint;
  pointSet->nvar = nvarKept;
  std::size_t point = 0;
  std::size_t node = 0;
  for (int iz = 0; iz < grid.nz; ++iz) {
    for (int iy = 0; iy < grid.ny; ++iy) {
      for (int ix = 0; ix < grid.nx; ++ix, ++node) {
        if (!keptNodes[node]) continue;
        pointSet->x[point] = grid.ox + 0.5 * grid.sx + ix * grid.sx;
        pointSet->y[point] = grid.oy + 0.5 * grid.sy + iy * grid.sy;
        pointSet->z[point] = grid.oz + 0.5 * grid.sz + iz * grid.sz;
        ++point;
      }
    }
  }
  char** name = pointSet->varName;
  real* value = pointSet->var;
  for (std::size_t v = 0; v < nvar; ++v) {
    if (!keptVariables[v]) continue;
    std::memcpy(*name++, image->varName[v], VORL_VARNAME_LENGTH);
    for (std::size_t i = 0; i < nxyz; ++i) {
      if (keptNodes[i]) *value++ = image->var[v * nxyz + i];
    }
  }
  return 0;
}
