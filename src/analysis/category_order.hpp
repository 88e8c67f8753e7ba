#ifndef KESTRUM_ANALYSIS_CATEGORY_ORDER_HPP
#define KESTRUM_ANALYSIS_CATEGORY_ORDER_HPP

#include <cstdint>

namespace kestrum {

// Holds the transitions of several grids, each of as many nodes as an int counts.
using TransitionCount = std::int64_t;

// Chains the categories, one at least, by their transitions; destroys the matrix.
//   rank, sequence  out; as those of VORLGetImageOneVarNewValueIndexOrder
void ChainCategories(int nvalue, TransitionCount** matrix, int* rank, int* sequence) noexcept;

}  // namespace kestrum

#endif
