#include "paths/path_generators.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "analysis/distance_transform.hpp"
#include "core/buffer.hpp"
#include "core/comparators.h"
#include "core/constants.h"
#include "core/integers.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"
#include "paths/unilateral_order.hpp"

namespace kestrum {
namespace {

int DistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature, const int* mask,
                      real* distance, const Dealing& dealing) noexcept {
  if (mask == nullptr || distance == nullptr) return kNotAllocated;
  const int nnode = CountOf(nx, ny, nz);
  if (nnode == 0) return kNoElement;
  const VORL_GRID grid{nx, ny, nz, sx, sy, sz, 0.0, 0.0, 0.0, nx * ny, nnode};
  const bool feature = !zeroIsFeature;
  return ComputeDistances<DistanceMetric::kEuclidean>(
      grid, 1, [=](std::ptrdiff_t node, bool) { return (mask[node] != 0) == feature; },
      [](std::ptrdiff_t, real value) { return value; }, distance, dealing);
}

// What the generators that look at distances are given.
struct Task {
  real sx, sy, sz, strength;
  int n;
  int* path;
  int* mask;
  int nx, ny, nz, nv;
  VORL_RANDCONTEXT* randContext;

  int Check() const noexcept {
    if (path == nullptr || mask == nullptr) return kNotAllocated;
    return CountOf(nx, ny, nz, nv) > 0 ? 0 : kNoElement;
  }
};

enum class Elements { kValues, kNodes };
enum class Ordering { kWeightedDraw, kNoisySort };

// Path element i becomes the one at order[i].index. The order is used up.
void ApplyOrder(Buffer<VORL_INFODOUVALUE>& order, int* path) noexcept {
  const int n = static_cast<int>(order.size());
  qsort(order.data(), order.size(), sizeof(VORL_INFODOUVALUE), VORLCmpInfoDouValue);
  for (VORL_INFODOUVALUE& entry : order) entry.index = path[entry.index];
  for (int i = 0; i < n; ++i) path[i] = order[i].index;
}

// Orders the path by the distances of its elements.
int OrderByDistance(const Task& task, Ordering ordering, Buffer<real>& distance) noexcept {
  const int n = task.n;
  real nearest = VORL_INFINITY;
  real farthest = 0.0;
  for (const real d : distance) {
    nearest = std::min(nearest, d);
    farthest = std::max(farthest, d);
  }
  const real range = farthest - nearest;
  if (range < VORL_EPSILON) return VORLRandomizeListOfInt(n, task.path, task.randContext);
  if (ordering == Ordering::kNoisySort) {
    Buffer<VORL_INFODOUVALUE> order;
    if (const int status = order.Allocate(n); status != 0) return status;
    for (int i = 0; i < n; ++i) {
      const double draw = VORLDoubleRand(0, task.randContext);
      order[i] = {i, draw * (1.0 - task.strength) + (distance[i] - nearest) * task.strength / range};
    }
    ApplyOrder(order, task.path);
    return 0;
  }
  Buffer<real> cumulative;
  if (const int status = cumulative.Allocate(std::size_t{1} + n); status != 0) return status;
  // With strength 1, the base to the power of the range is the least weight.
  const real a = std::pow(VORL_NODEPATH_WEIGHT_MIN, 1.0 / range);
  const real base = task.strength * (std::clamp(a, VORL_NODEPATH_A0_MIN, VORL_NODEPATH_A0_MAX) - 1.0) + 1.0;
  cumulative[0] = 0.0;
  for (int i = 0; i < n; ++i) cumulative[i + 1] = cumulative[i] + std::pow(base, distance[i] - nearest);
  return VORLRandomizeWeightedListOfInt(n, task.path, cumulative.data(), task.randContext);
}

// Marks the variables that are unknown somewhere on the path.
int MarkVariables(const Task& task, int nnode, Buffer<char>& marked) noexcept {
  if (const int status = marked.Allocate(task.nv, 0); status != 0) return status;
  int nleft = task.nv;
  for (int i = 0; i < task.n && nleft > 0; ++i) {
    const int* const mask = task.mask + task.path[i] % nnode;
    for (int v = 0; v < task.nv; ++v) {
      if (marked[v] || mask[std::ptrdiff_t{v} * nnode] == 0) continue;
      marked[v] = 1;
      --nleft;
    }
  }
  return 0;
}

// Calls found(node, variable) for the hard data of the marked variables: each variable's in turn, or, for a path of
// nodes, each node once, as of variable 0.
template <typename Found>
void ForEachHardDatum(const Task& task, int nnode, Elements elements, const Buffer<char>& marked,
                      const Found& found) noexcept {
  const auto known = [&](int v, int node) { return marked[v] && task.mask[std::ptrdiff_t{v} * nnode + node] == 0; };
  if (elements == Elements::kValues) {
    for (int v = 0; v < task.nv; ++v) {
      for (int node = 0; node < nnode; ++node) {
        if (known(v, node)) found(node, v);
      }
    }
    return;
  }
  for (int node = 0; node < nnode; ++node) {
    for (int v = 0; v < task.nv; ++v) {
      if (!known(v, node)) continue;
      found(node, 0);
      break;
    }
  }
}

int DistanceMap(const Task& task, BOOLEAN zeroIsFeature, const int* mask, real* map) noexcept {
  return DistanceEuclidean(task.sx, task.sy, task.sz, task.nx, task.ny, task.nz, zeroIsFeature, mask, map,
                           Dealing::Serial());
}

// One map for each variable, of the distance to its own hard data and, in part, to those of the others.
int MapValues(const Task& task, int nnode, Buffer<real>& map) noexcept {
  if (const int status = map.Allocate(CountOf(nnode, task.nv), 0.0); status != 0) return status;
  const auto makeMap = [&](int v) {
    const std::ptrdiff_t block = std::ptrdiff_t{v} * nnode;
    return DistanceMap(task, TRUE, task.mask + block, map.data() + block);
  };
  bool any = false;
  for (int v = 0; v < task.nv; ++v) {
    const int* const mask = task.mask + std::ptrdiff_t{v} * nnode;
    if (std::find(mask, mask + nnode, 0) == mask + nnode) continue;
    any = true;
    if (const int status = makeMap(v); status != 0) return status;
  }
  if (!any) {
    const int element = task.path[VORLIntRand(0, task.n, task.randContext)];
    const int kept = task.mask[element];
    task.mask[element] = 0;
    const int status = makeMap(element / nnode);
    task.mask[element] = kept;
    if (status != 0) return status;
  }
  if (task.nv == 1) return 0;
  Buffer<real> share;
  if (const int status = share.Allocate(task.nv); status != 0) return status;
  for (int node = 0; node < nnode; ++node) {
    real* const value = map.data() + node;
    for (int v = 0; v < task.nv; ++v) share[v] = value[std::ptrdiff_t{v} * nnode] / task.nv;
    for (int v = 0; v < task.nv; ++v) {
      real sum = 0.0;
      for (int u = 0; u < task.nv; ++u) {
        if (u != v) sum += share[u];
      }
      value[std::ptrdiff_t{v} * nnode] += sum;
    }
  }
  return 0;
}

// One map for all variables.
int MapNodes(const Task& task, int nnode, Buffer<real>& map) noexcept {
  Buffer<char> marked;
  if (const int status = MarkVariables(task, nnode, marked); status != 0) return status;
  Buffer<int> flag;
  if (const int status = flag.Allocate(nnode, 0); status != 0) return status;
  if (const int status = map.Allocate(nnode); status != 0) return status;
  bool any = false;
  ForEachHardDatum(task, nnode, Elements::kNodes, marked, [&](int node, int) {
    flag[node] = 1;
    any = true;
  });
  if (!any) flag[task.path[VORLIntRand(0, task.n, task.randContext)]] = 1;
  return DistanceMap(task, FALSE, flag.data(), map.data());
}

// Distances of the elements to the nearest hard datum.
int NearestDistances(const Task& task, int nnode, Elements elements, Buffer<real>& distance) noexcept {
  Buffer<real> map;
  const int status = elements == Elements::kValues ? MapValues(task, nnode, map) : MapNodes(task, nnode, map);
  if (status != 0) return status;
  for (int i = 0; i < task.n; ++i) distance[i] = map[task.path[i]];
  return 0;
}

struct Site {
  int ix, iy, iz, iv;
};

Site SiteOf(const Task& task, int nnode, int index) noexcept {
  const int node = index % nnode;
  return {node % task.nx, node / task.nx % task.ny, node / task.nx / task.ny, index / nnode};
}

// Mean over the hard data of term(dx, dy, dz, dv), for each element.
template <typename Term>
void AverageTerms(const Task& task, int nnode, const Buffer<Site>& data, const Term& term,
                  Buffer<real>& mean) noexcept {
  const real scale = 1.0 / static_cast<real>(data.size());
  for (int i = 0; i < task.n; ++i) {
    const Site site = SiteOf(task, nnode, task.path[i]);
    real sum = 0.0;
    for (const Site& datum : data) {
      sum += term(std::abs(site.ix - datum.ix), std::abs(site.iy - datum.iy), std::abs(site.iz - datum.iz),
                  std::abs(site.iv - datum.iv));
    }
    mean[i] = sum * scale;
  }
}

// The hard data of the variables that are unknown somewhere on the path; leaves `data` empty if there are none.
int FindHardData(const Task& task, int nnode, Elements elements, Buffer<Site>& data) noexcept {
  Buffer<char> marked;
  if (const int status = MarkVariables(task, nnode, marked); status != 0) return status;
  int ndata = 0;
  ForEachHardDatum(task, nnode, elements, marked, [&](int, int) { ++ndata; });
  if (ndata == 0) return 0;
  if (const int status = data.Allocate(ndata); status != 0) return status;
  Site* next = data.data();
  ForEachHardDatum(task, nnode, elements, marked,
                   [&](int node, int v) { *next++ = SiteOf(task, nnode, v * nnode + node); });
  return 0;
}

// Mean over all hard data of the distance to the power `power`; 0.0 without data.
int MeanDistances(const Task& task, int nnode, Elements elements, real power, Buffer<real>& distance) noexcept {
  Buffer<Site> data;
  if (const int status = FindHardData(task, nnode, elements, data); status != 0) return status;
  if (data.size() == 0) {
    std::fill(distance.begin(), distance.end(), 0.0);
    return 0;
  }

  const real xx = task.sx * task.sx;
  const real yy = task.sy * task.sy;
  const real zz = task.sz * task.sz;
  const real vv = std::max({xx, yy, zz});
  const real exponent = power / 2;
  const bool isSquare = std::fabs(exponent - 1.0) < VORL_EPSILON;
  const auto term = [=](real dx, real dy, real dz, real dv) {
    const real square = dx * dx * xx + dy * dy * yy + dz * dz * zz + dv * dv * vv;
    return isSquare ? square : std::pow(square, exponent);
  };
  // There are no more powers than offsets: with many pairs, each is computed once and looked up.
  const int noffset = nnode * (elements == Elements::kValues ? task.nv : 1);
  Buffer<real> table;
  if (isSquare || std::int64_t{task.n} * static_cast<int>(data.size()) <= noffset || table.Allocate(noffset) != 0) {
    AverageTerms(task, nnode, data, term, distance);
    return 0;
  }
  for (int offset = 0; offset < noffset; ++offset) {
    const Site site = SiteOf(task, nnode, offset);
    table[offset] = term(site.ix, site.iy, site.iz, site.iv);
  }
  const auto lookUp = [&](int dx, int dy, int dz, int dv) {
    return table[dx + task.nx * (dy + task.ny * (dz + task.nz * dv))];
  };
  AverageTerms(task, nnode, data, lookUp, distance);
  return 0;
}

// Fills the distances of the elements with fill(nnode, distance), and orders the path by them.
template <typename Fill>
int PathByDistance(const Task& task, Ordering ordering, const Fill& fill) noexcept {
  if (task.n < 1) return 0;
  if (const int status = task.Check(); status != 0) return status;
  Buffer<real> distance;
  if (const int status = distance.Allocate(task.n); status != 0) return status;
  if (const int status = fill(CountOf(task.nx, task.ny, task.nz), distance); status != 0) return status;
  return OrderByDistance(task, ordering, distance);
}

int PathByNearest(const Task& task, Elements elements, Ordering ordering) noexcept {
  return PathByDistance(task, ordering, [&](int nnode, Buffer<real>& distance) noexcept {
    return NearestDistances(task, nnode, elements, distance);
  });
}

int PathByMean(const Task& task, real power, Elements elements, Ordering ordering) noexcept {
  return PathByDistance(task, ordering, [&](int nnode, Buffer<real>& distance) noexcept {
    return MeanDistances(task, nnode, elements, power, distance);
  });
}

// Scans along `naxis` axes, the last of which is the variable if there are four.
int PathUnilateral(int n, int* path, const int* size, const int* order, int naxis,
                   VORL_RANDCONTEXT* randContext) noexcept {
  if (n < 1) return 0;
  if (path == nullptr || order == nullptr) return kNotAllocated;
  if (CountOf(size[0], size[1], size[2], size[3]) == 0) return kNoElement;
  int axes[kMaxUnilateralAxes];
  SortAxesByRank(order, naxis, axes);
  std::int64_t weight[kMaxUnilateralAxes];
  std::int64_t next = 1;
  for (int a = 0; a < naxis; ++a) {
    weight[axes[a]] = order[axes[a]] == 0 ? 0 : next;
    next *= size[axes[a]];
  }
  Buffer<VORL_INFODOUVALUE> keys;
  if (const int status = keys.Allocate(n); status != 0) return status;
  for (int i = 0; i < n; ++i) {
    std::int64_t key = 0;
    int rest = path[i];
    for (int axis = 0; axis < naxis; ++axis) {
      const int position = axis + 1 < naxis ? rest % size[axis] : rest;
      rest /= size[axis];
      key += weight[axis] * (order[axis] < 0 ? size[axis] - 1 - position : position);
    }
    keys[i] = {i, static_cast<double>(key) + 0.5 * VORLDoubleRand(0, randContext)};
  }
  ApplyOrder(keys, path);
  return 0;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx, int ny,
                              int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByNearest({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, Elements::kValues,
                       Ordering::kWeightedDraw);
}

int VORLPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx, int ny,
                               int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByNearest({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, Elements::kValues,
                       Ordering::kNoisySort);
}

int VORLPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path, int* mask,
                                 int nx, int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByMean({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, pow, Elements::kValues,
                    Ordering::kWeightedDraw);
}

int VORLPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path, int* mask,
                                  int nx, int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByMean({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, pow, Elements::kValues,
                    Ordering::kNoisySort);
}

int VORLVectorPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx,
                                    int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByNearest({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, Elements::kNodes,
                       Ordering::kWeightedDraw);
}

int VORLVectorPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx,
                                     int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByNearest({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, Elements::kNodes,
                       Ordering::kNoisySort);
}

int VORLVectorPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path, int* mask,
                                       int nx, int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByMean({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, pow, Elements::kNodes,
                    Ordering::kWeightedDraw);
}

int VORLVectorPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path, int* mask,
                                        int nx, int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) noexcept {
  return PathByMean({sx, sy, sz, strength, n, path, mask, nx, ny, nz, nv, randContext}, pow, Elements::kNodes,
                    Ordering::kNoisySort);
}

int VORLPathUnilateral3D(int n, int* path, int nx, int ny, int nz, int* order, VORL_RANDCONTEXT* randContext) noexcept {
  const int size[kMaxUnilateralAxes] = {nx, ny, nz, 1};
  return PathUnilateral(n, path, size, order, 3, randContext);
}

int VORLPathUnilateral4D(int n, int* path, int nx, int ny, int nz, int nv, int* order,
                         VORL_RANDCONTEXT* randContext) noexcept {
  const int size[kMaxUnilateralAxes] = {nx, ny, nz, nv};
  return PathUnilateral(n, path, size, order, 4, randContext);
}

int VORLDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature, int* mask,
                          real* distance) noexcept {
  return DistanceEuclidean(sx, sy, sz, nx, ny, nz, zeroIsFeature, mask, distance, Dealing::Serial());
}

int VORLOMPDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature, int* mask,
                             real* distance, int nthreads) noexcept {
  return DistanceEuclidean(sx, sy, sz, nx, ny, nz, zeroIsFeature, mask, distance, Dealing::Threads(nthreads));
}
