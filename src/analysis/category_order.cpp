#include "analysis/category_order.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "analysis/category_order.hpp"
#include "core/array_2d.hpp"
#include "core/integers.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

struct CategoryGrid {
  int size[3];
  const int* index;

  bool Empty() const { return size[0] < 1 || size[1] < 1 || size[2] < 1; }
};

struct Axes {
  bool wanted[3];
};

// Adds up pairs on one thread: those of the first categories in a table of its own, so that threads do not wait for
// each other at the matrix. An entry that its type cannot count any further stays at the greatest number.
template <typename Count>
class PairCounter {
 public:
  // isShared: other threads add to the matrix, too.
  PairCounter(Count** matrix, bool isShared) noexcept : matrix_(matrix), isShared_(isShared) {}
  PairCounter(const PairCounter&) = delete;
  PairCounter& operator=(const PairCounter&) = delete;
  ~PairCounter() {
    for (int a = 0; a < kTableSize; ++a) {
      for (int b = 0; b < kTableSize; ++b) {
        if (table_[a][b] != 0) AddToMatrix(a, b, table_[a][b]);
      }
    }
  }

  void Add(int a, int b) noexcept {
    if (a < kTableSize && b < kTableSize) {
      ++table_[a][b];
    } else {
      AddToMatrix(a, b, 1);
    }
  }

 private:
  void AddToMatrix(int a, int b, int count) noexcept {
    if (!isShared_) {
      Count& sum = matrix_[a][b];
      if (__builtin_add_overflow(sum, count, &sum)) sum = std::numeric_limits<Count>::max();
      return;
    }
    const std::atomic_ref<Count> entry(matrix_[a][b]);
    Count before = entry.load(std::memory_order_relaxed);
    Count after;
    do {
      if (__builtin_add_overflow(before, count, &after)) after = std::numeric_limits<Count>::max();
    } while (!entry.compare_exchange_weak(before, after, std::memory_order_relaxed));
  }

  static constexpr int kTableSize = 64;
  Count** matrix_;
  const bool isShared_;
  int table_[kTableSize][kTableSize] = {};
};

// Counts the pairs of categories below nvalue.
template <typename Count>
int CountTransitions(const CategoryGrid& grid, const Axes& axes, int nvalue, Count** matrix,
                     const Dealing& dealing) noexcept {
  for (int axis = 0; axis < 3; ++axis) {
    if (axes.wanted[axis] && grid.size[axis] <= 1) return -(4400 + axis);
  }
  if (grid.Empty()) return 0;
  const auto isCategory = [limit = static_cast<unsigned>(nvalue)](int category) {
    return static_cast<unsigned>(category) < limit;
  };
  const int nnode = CountOf(grid.size[0], grid.size[1], grid.size[2]);
  if (nnode == 0) return kImageTooLarge;
  std::ptrdiff_t step = 1;  // from a node to the next along the axis
  for (int axis = 0; axis < 3; ++axis) {
    // The grid falls into slabs in which the lower nodes of all pairs lie in one run.
    const std::ptrdiff_t slab = step * grid.size[axis];
    const std::ptrdiff_t run = slab - step;
    if (axes.wanted[axis]) {
      dealing.Blocks(nnode / slab * run, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        PairCounter<Count> counter(matrix, dealing.threaded());
        while (begin < end) {
          const std::ptrdiff_t offset = begin % run;
          const int* const lower = grid.index + begin / run * slab + offset;
          const std::ptrdiff_t npair = std::min(run - offset, end - begin);
          for (std::ptrdiff_t k = 0; k < npair; ++k) {
            if (isCategory(lower[k]) && isCategory(lower[k + step])) counter.Add(lower[k], lower[k + step]);
          }
          begin += npair;
        }
      });
    }
    step = slab;
  }
  return 0;
}

// `countAll` counts the transitions of all grids into a matrix.
template <typename CountAll>
int OrderCategories(int nvalue, int* rank, int* sequence, const CountAll& countAll) noexcept {
  Array2D<TransitionCount> matrix;
  const std::size_t n = static_cast<std::size_t>(nvalue);
  if (const int status = matrix.Allocate(n, n); status != 0) return status;
  std::fill_n(matrix.rows()[0], n * n, TransitionCount{0});
  if (const int status = countAll(matrix.rows()); status != 0) return status;
  ChainCategories(nvalue, matrix.rows(), rank, sequence);
  return 0;
}

int OrderCategoriesOfGrid(const CategoryGrid& grid, const Axes& axes, int nvalue, int* rank, int* sequence,
                          const Dealing& dealing) noexcept {
  return OrderCategories(nvalue, rank, sequence, [&](TransitionCount** matrix) noexcept {
    return CountTransitions(grid, axes, nvalue, matrix, dealing);
  });
}

int OrderCategoriesOfGrids(int ngrid, const int* nx, const int* ny, const int* nz, int** index, const Axes& axes,
                           int nvalue, int* rank, int* sequence, const Dealing& dealing) noexcept {
  if (ngrid < 1) return 0;
  return OrderCategories(nvalue, rank, sequence, [&](TransitionCount** matrix) noexcept {
    for (int i = 0; i < ngrid; ++i) {
      const CategoryGrid grid{{nx[i], ny[i], nz[i]}, index[i]};
      if (grid.Empty()) continue;
      if (const int status = CountTransitions(grid, axes, nvalue, matrix, dealing); status != 0) return status;
    }
    return 0;
  });
}

Axes AxesOf(BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ) { return {{alongX != 0, alongY != 0, alongZ != 0}}; }

}  // namespace

void ChainCategories(int nvalue, TransitionCount** matrix, int* rank, int* sequence) noexcept {
  constexpr int kUsed = -1;
  const auto setUsed = [matrix](int a, int b) { matrix[a][b] = matrix[b][a] = kUsed; };
  std::pair<int, int> start(0, std::min(1, nvalue - 1));
  for (int i = 0; i < nvalue; ++i) {
    matrix[i][i] = kUsed;
    for (int j = i + 1; j < nvalue; ++j) {
      matrix[i][j] = matrix[j][i] += matrix[i][j];
      if (matrix[i][j] > matrix[start.first][start.second]) start = {i, j};
    }
  }
  sequence[0] = start.first;
  sequence[nvalue > 1 ? 1 : 0] = start.second;
  setUsed(start.first, start.second);
  for (int length = 2; length < nvalue; ++length) {
    const int first = sequence[0];
    const int last = sequence[length - 1];
    std::pair<int, int> best(first, last);
    for (int u = 0; u < nvalue; ++u) {
      if (matrix[first][u] > matrix[best.first][best.second]) best = {first, u};
      if (matrix[last][u] > matrix[best.first][best.second]) best = {u, last};
    }
    const bool toFront = best.first == first;
    const int added = toFront ? best.second : best.first;
    for (int k = 0; k < length; ++k) setUsed(added, sequence[k]);
    if (toFront) std::copy_backward(sequence, sequence + length, sequence + length + 1);
    sequence[toFront ? 0 : length] = added;
  }
  for (int k = 0; k < nvalue; ++k) rank[sequence[k]] = k;
}

}  // namespace kestrum

using namespace kestrum;

int VORLUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX, BOOLEAN alongY,
                               BOOLEAN alongZ) noexcept {
  return CountTransitions({{nx, ny, nz}, index}, AxesOf(alongX, alongY, alongZ), std::numeric_limits<int>::max(),
                          matrix, Dealing::Serial());
}

int VORLOMPUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX, BOOLEAN alongY,
                                  BOOLEAN alongZ, int nthreads) noexcept {
  return CountTransitions({{nx, ny, nz}, index}, AxesOf(alongX, alongY, alongZ), std::numeric_limits<int>::max(),
                          matrix, Dealing::Threads(nthreads));
}

int VORLGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank, int* sequence,
                                         BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ) noexcept {
  return OrderCategoriesOfGrid({{nx, ny, nz}, index}, AxesOf(alongX, alongY, alongZ), nvalue, rank, sequence,
                               Dealing::Serial());
}

int VORLOMPGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank, int* sequence,
                                            BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ, int nthreads) noexcept {
  return OrderCategoriesOfGrid({{nx, ny, nz}, index}, AxesOf(alongX, alongY, alongZ), nvalue, rank, sequence,
                               Dealing::Threads(nthreads));
}

int VORLGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index, int* rank,
                                          int* sequence, BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ) noexcept {
  return OrderCategoriesOfGrids(nimage, nx, ny, nz, index, AxesOf(alongX, alongY, alongZ), nvalue, rank, sequence,
                                Dealing::Serial());
}

int VORLOMPGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index, int* rank,
                                             int* sequence, BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ,
                                             int nthreads) noexcept {
  return OrderCategoriesOfGrids(nimage, nx, ny, nz, index, AxesOf(alongX, alongY, alongZ), nvalue, rank, sequence,
                                Dealing::Threads(nthreads));
}
