#ifndef KESTRUM_ANALYSIS_EULER_CHARACTERISTIC_HPP
#define KESTRUM_ANALYSIS_EULER_CHARACTERISTIC_HPP

#include <cstdint>

#include "analysis/node_bits.hpp"
#include "core/parallel.hpp"

namespace kestrum {

// The Euler number of the marked nodes, by counting cells of each dimension. closedCells: of the union of their closed
// cells, in which cells that share a corner are connected; else of the nodes with the lines, squares and cubes of which
// all corners are marked, in which neighbours share a face.
std::int64_t EulerCharacteristic(const NodeBits& nodes, bool closedCells, Dealing dealing) noexcept;

}  // namespace kestrum

#endif
