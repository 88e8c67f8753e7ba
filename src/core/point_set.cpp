#include "core/point_set.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "core/image.h"
#include "core/memory.h"
#include "core/nearest_node.hpp"
#include "core/nested_prefix.hpp"
#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"

static_assert(std::is_standard_layout_v<VORL_POINTSET> && sizeof(VORL_POINTSET) == 56);

namespace kestrum {
namespace {

constexpr int kOutside = -1;

// Index along one axis of the cell with the nearest centre, for an axis of n cells of the given spacing and origin.
int CellOnAxis(real x, int n, real spacing, real origin) noexcept {
  const real center = origin + VORL_SHIFT_FACTOR_FOR_POINT * spacing;  // of the first cell
  if (x < center - 0.5 * spacing || x > (n - 0.5) * spacing + center) return kOutside;
  // Neither a coordinate nor a spacing to compute with?
  if (!(std::fabs((x - center) / spacing) < INT_MAX)) return kOutside;
  return NearestCell(x, origin, spacing, n);
}

// Calls store(ip, ix, iy, iz) for each point, with -1 three times for one outside.
template <typename Store>
int LocatePoints(const VORL_POINTSET* ps, const VORL_GRID* grid, int ignoreOutside, const Store& store) noexcept {
  if (ps->npoint < 1) return 0;
  if (const int status = CheckPointSet(*ps); status != 0) return status;
  if (const int status = CheckGrid(*grid); status != 0) return status;
  for (int ip = 0; ip < ps->npoint; ++ip) {
    const int ix = CellOnAxis(ps->x[ip], grid->nx, grid->sx, grid->ox);
    const int iy = CellOnAxis(ps->y[ip], grid->ny, grid->sy, grid->oy);
    const int iz = CellOnAxis(ps->z[ip], grid->nz, grid->sz, grid->oz);
    if (ix != kOutside && iy != kOutside && iz != kOutside) {
      store(ip, ix, iy, iz);
    } else if (ignoreOutside) {
      store(ip, kOutside, kOutside, kOutside);
    } else {
      return kPointSetOutside;
    }
  }
  return 0;
}

void ComputeCoordinateStatistics(int npoint, const real* x, double* min, double* max, double* mean,
                                 double* variance) noexcept {
  *min = VORL_INFINITY;
  *max = -VORL_INFINITY;
  *mean = 0.0;
  *variance = 0.0;
  const double weight = 1.0 / npoint;
  for (int ip = 0; ip < npoint; ++ip) {
    if (x[ip] < *min) *min = x[ip];
    if (x[ip] > *max) *max = x[ip];
    *mean += x[ip] * weight;
  }
  const double varianceWeight = 1.0 / std::max(1.0, npoint - 1.0);
  for (int ip = 0; ip < npoint; ++ip) *variance += (x[ip] - *mean) * (x[ip] - *mean) * varianceWeight;
}

}  // namespace
}  // namespace kestrum

void VORLInitPointSet(VORL_POINTSET* ps) noexcept { *ps = VORL_POINTSET{}; }

int VORLMallocPointSet(VORL_POINTSET* ps, int npoint, int nvar) noexcept {
  ps->x = ps->y = ps->z = ps->var = nullptr;
  ps->varName = nullptr;
  const auto points = static_cast<std::size_t>(std::max(npoint, 0));
  int status = 0;
  if (npoint > 0) {
    for (real** const coordinate : {&ps->x, &ps->y, &ps->z}) {
      *coordinate = static_cast<real*>(VORLMalloc(points, sizeof(real), &status));
      if (status != 0) return status;
    }
  }
  if (nvar < 1) return 0;
  status = kestrum::MallocNames(nvar, &ps->varName);
  if (status != 0 || npoint < 1) return status;
  ps->var = static_cast<real*>(VORLMalloc(points * static_cast<std::size_t>(nvar), sizeof(real), &status));
  return status;
}

void VORLFreePointSet(VORL_POINTSET* ps) noexcept {
  if (ps == nullptr) return;
  VORLFree(ps->x);
  VORLFree(ps->y);
  VORLFree(ps->z);
  VORLFreeArray2D(reinterpret_cast<void**>(ps->varName));
  VORLFree(ps->var);
}

int VORLCopyPointSet(VORL_POINTSET* dst, VORL_POINTSET* src) noexcept {
  if (dst == src) return kestrum::kNotAllocated;
  VORLInitPointSet(dst);
  if (const int status = kestrum::CheckPointSet(*src); status != 0) return status;
  if (const int status = VORLMallocPointSet(dst, src->npoint, src->nvar); status != 0) return status;
  dst->npoint = src->npoint;
  dst->nvar = src->nvar;
  kestrum::CopyNames(src->nvar, src->varName, dst->varName);
  if (src->npoint < 1) return 0;
  const auto points = static_cast<std::size_t>(src->npoint);
  std::memcpy(dst->x, src->x, points * sizeof(real));
  std::memcpy(dst->y, src->y, points * sizeof(real));
  std::memcpy(dst->z, src->z, points * sizeof(real));
  if (src->nvar > 0) std::memcpy(dst->var, src->var, points * static_cast<std::size_t>(src->nvar) * sizeof(real));
  return 0;
}

int VORLValidatePointSet(VORL_POINTSET* ps, int* status) noexcept {
  if (ps->nvar < 1) {
    *status = kestrum::kPointSetVariableCount;
  } else if (ps->nvar > VORL_MAX_NVAR) {
    *status = kestrum::kPointSetTooManyVariables;
  } else if (ps->varName == nullptr) {
    *status = kestrum::kNotAllocated;
  } else {
    *status = kestrum::ValidateNames(ps->nvar, ps->varName, 0, kestrum::kPointSetNameTooLong,
                                     kestrum::kPointSetNamesNotUnique);
  }
  return 0;
}

int VORLGetIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* id, int ignoreOutside) noexcept {
  return kestrum::LocatePoints(ps, grid, ignoreOutside, [&](int ip, int ix, int iy, int iz) {
    if (ix == kestrum::kOutside) {
      id[ip] = kestrum::kOutside;
    } else {
      VORLGridCoordToId(grid, ix, iy, iz, 0, &id[ip]);
    }
  });
}

int VORLGetXYZIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* ix, int* iy, int* iz,
                                     int ignoreOutside) noexcept {
  return kestrum::LocatePoints(ps, grid, ignoreOutside, [&](int ip, int cellX, int cellY, int cellZ) {
    ix[ip] = cellX;
    iy[ip] = cellY;
    iz[ip] = cellZ;
  });
}

int VORLGetPointSetInfo(VORL_POINTSET* ps, double* xmin, double* ymin, double* zmin, double* xmax, double* ymax,
                        double* zmax, double* xmean, double* ymean, double* zmean, double* xvar, double* yvar,
                        double* zvar, int** n, double* min, double* max, double* mean, double** cov) noexcept {
  if (kestrum::AnyNull(xmin, ymin, zmin, xmax, ymax, zmax, xmean, ymean, zmean, xvar, yvar, zvar, n, min, max, mean,
                       cov)) {
    return kestrum::kNotAllocated;
  }
  if (const int status = kestrum::CheckPointSet(*ps); status != 0) return status;
  kestrum::ComputeCoordinateStatistics(ps->npoint, ps->x, xmin, xmax, xmean, xvar);
  kestrum::ComputeCoordinateStatistics(ps->npoint, ps->y, ymin, ymax, ymean, yvar);
  kestrum::ComputeCoordinateStatistics(ps->npoint, ps->z, zmin, zmax, zmean, zvar);
  kestrum::ComputeVariableStatistics(ps->nvar, std::max(ps->npoint, 0), ps->var, n, min, max, mean, cov);
  return 0;
}

int VORLPrintPointSet(VORL_POINTSET* ps, char* prefix, FILE* stream) noexcept {
  kestrum::NestedPrefix nested;
  if (const int status = nested.Extend(prefix); status != 0) return status;
  std::fprintf(stream, "%snpoint: %8d\n", prefix, ps->npoint);
  std::fprintf(stream, "%snvar:   %8d\n", prefix, ps->nvar);
  std::fprintf(stream, "%svarName\n", prefix);
  kestrum::PrintNames(ps->nvar, ps->varName, nested.text(), stream);
  return 0;
}

int VORLPrintPointSetInfo(VORL_POINTSET* ps, char* prefix, FILE* stream) noexcept {
  kestrum::VariableStatistics statistics;
  if (const int status = statistics.Allocate(ps->nvar); status != 0) return status;
  double min[3], max[3], mean[3], variance[3];
  if (const int status =
          VORLGetPointSetInfo(ps, &min[0], &min[1], &min[2], &max[0], &max[1], &max[2], &mean[0], &mean[1], &mean[2],
                              &variance[0], &variance[1], &variance[2], statistics.n.rows(), statistics.min.data(),
                              statistics.max.data(), statistics.mean.data(), statistics.cov.rows());
      status != 0) {
    return status;
  }
  const kestrum::PlainNumbers plainNumbers;
  std::fprintf(stream, "%sNumber of points: %6d\n", prefix, ps->npoint);
  std::fprintf(stream, "%sCoord             min             max            mean             var             std\n",
               prefix);
  for (int axis = 0; axis < 3; ++axis) {
    std::fprintf(stream, "%s    %c %15.8E %15.8E %15.8E %15.8E %15.8E\n", prefix, "xyz"[axis], min[axis], max[axis],
                 mean[axis], variance[axis], std::sqrt(variance[axis]));
  }
  std::fprintf(stream, "\n");
  std::fprintf(stream, "%sNumber of variables: %3d\n", prefix, ps->nvar);
  kestrum::PrintVariableList(ps->nvar, ps->varName, prefix, stream);
  kestrum::PrintVariableStatistics(ps->nvar, statistics, "point set", prefix, stream);
  return 0;
}
