#include "engine/neighbor_covariances.hpp"

#include <algorithm>

#include "numeric/gather_lanes.hpp"

namespace kestrum {
namespace {

// The table of covariances may hold this many entries per node of the grid, and a basic amount for small grids.
constexpr std::int64_t kTableEntriesPerNode = 3;
constexpr std::int64_t kTableEntriesBasic = 1 << 18;
// Places in the box of differences are int.
constexpr std::int64_t kTableEntriesMax = 1 << 29;

}  // namespace

int NeighborCovariances::Prepare(const KrigingModel& model, const NeighborList& list, int share) noexcept {
  model_ = &model;
  list_ = &list;
  if (!model.covModelStationary || list.offsets->size < 1) return 0;
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const int extent[3] = {offsets.ixMax - offsets.ixMin, offsets.iyMax - offsets.iyMin, offsets.izMax - offsets.izMin};
  const int cells[3] = {list.grid.nx, list.grid.ny, list.grid.nz};
  const std::int64_t budget =
      std::min((kTableEntriesBasic + kTableEntriesPerNode * list.grid.nxyz) / share, kTableEntriesMax);
  std::int64_t size = 1;
  for (int axis = 0; axis < 3; ++axis) {
    reach_[axis] = std::min(extent[axis], cells[axis] - 1);
    width_[axis] = 2 * static_cast<std::int64_t>(reach_[axis]) + 1;
    size *= width_[axis];
    if (size / 2 > budget) return 0;
  }
  if (const int status = table_.Allocate(size / 2 + 1, kNotEvaluated); status != 0) return status;
  if (const int status = code_.Allocate(offsets.size); status != 0) return status;
  for (int e = 0; e < offsets.size; ++e) {
    code_[e] = static_cast<int>(offsets.ix[e] + width_[0] * (offsets.iy[e] + width_[1] * offsets.iz[e]));
  }
  return 0;
}

real NeighborCovariances::Evaluate(std::int64_t difference) const noexcept {
  const std::int64_t place = difference + reach_[0] + width_[0] * (reach_[1] + width_[1] * reach_[2]);
  const int dx = static_cast<int>(place % width_[0]) - reach_[0];
  const int dy = static_cast<int>(place / width_[0] % width_[1]) - reach_[1];
  const int dz = static_cast<int>(place / width_[0] / width_[1]) - reach_[2];
  const VORL_GRID& grid = list_->grid;
  return model_->Covariance(dx * grid.sx, dy * grid.sy, dz * grid.sz);
}

void NeighborCovariances::FillSideBySide(const int* const* entries, int m, int size, real* matrix, int stride,
                                         int* code) const noexcept {
  for (int i = 0; i < m; ++i) {
    for (int lane = 0; lane < kLanes; ++lane) code[i * kLanes + lane] = code_[entries[lane][i]];
  }
  for (int i = 0; i < m; ++i) {
    const int* const from = code + i * kLanes;
    const auto element = [=](int row, int column) {
      return matrix + static_cast<std::ptrdiff_t>(row * size + column) * stride;
    };
    const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(size) * stride;
    if (GatherDifferences(m - 1 - i, table_.data(), kNotEvaluated, from, from + kLanes, element(i, i + 1), stride,
                          element(i + 1, i), step)) {
      continue;
    }
    for (int j = i + 1; j < m; ++j) {
      const int* const to = code + j * kLanes;
      for (int lane = 0; lane < kLanes; ++lane) {
        element(i, j)[lane] = element(j, i)[lane] = Tabulated(to[lane] - from[lane]);
      }
    }
  }
}

void NeighborCovariances::Fill(const LocalModel& local, const int* entries, int m, int size, real* matrix, int stride,
                               real* lag) const noexcept {
  const auto store = [=](int i, int j, real covariance) {
    matrix[(static_cast<std::ptrdiff_t>(i) * size + j) * stride] = covariance;
    matrix[(static_cast<std::ptrdiff_t>(j) * size + i) * stride] = covariance;
  };
  if (table_) {
    for (int i = 0; i < m; ++i) {
      for (int j = i + 1; j < m; ++j) store(i, j, Tabulated(code_[entries[j]] - code_[entries[i]]));
    }
    return;
  }
  // Some rows at a time. A model that is not stationary has the parameters of the target node for every pair of neighbours.
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_->offsets;
  const VORL_GRID& grid = list_->grid;
  const int room = m + kLagsTogether;
  real* const lagX = lag;
  real* const lagY = lag + room;
  real* const lagZ = lag + 2 * room;
  real* const covariance = lag + 3 * room;
  for (int begin = 0; begin < m - 1;) {
    int end = begin;
    int count = 0;
    for (; end < m - 1 && count < kLagsTogether; ++end) {
      const int first = entries[end];
      for (int j = end + 1; j < m; ++j, ++count) {
        const int other = entries[j];
        lagX[count] = (offsets.ix[other] - offsets.ix[first]) * grid.sx;
        lagY[count] = (offsets.iy[other] - offsets.iy[first]) * grid.sy;
        lagZ[count] = (offsets.iz[other] - offsets.iz[first]) * grid.sz;
      }
    }
    local.Evaluate(count, lagX, lagY, lagZ, covariance);
    const real* next = covariance;
    for (; begin < end; ++begin) {
      for (int j = begin + 1; j < m; ++j) store(begin, j, *next++);
    }
  }
}

void NeighborCovariances::FillRhs(const LocalModel& local, const int* entries, int m, real* rhs, int stride,
                                  real* lag) const noexcept {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_->offsets;
  if (model_->covModelStationary) {
    for (int i = 0; i < m; ++i) rhs[i * stride] = offsets.weight[entries[i]];
    return;
  }
  const VORL_GRID& grid = list_->grid;
  real* const lagX = lag;
  real* const lagY = lag + m;
  real* const lagZ = lag + 2 * m;
  real* const row = lag + 3 * m;
  for (int i = 0; i < m; ++i) {
    const int e = entries[i];
    lagX[i] = offsets.ix[e] * grid.sx;
    lagY[i] = offsets.iy[e] * grid.sy;
    lagZ[i] = offsets.iz[e] * grid.sz;
  }
  local.Evaluate(m, lagX, lagY, lagZ, row);
  for (int i = 0; i < m; ++i) rhs[i * stride] = row[i];
}

}  // namespace kestrum
