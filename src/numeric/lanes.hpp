#ifndef KESTRUM_NUMERIC_LANES_HPP
#define KESTRUM_NUMERIC_LANES_HPP

namespace kestrum {

// Systems or right sides that a batch solves side by side, one per SIMD lane.
constexpr int kLanes = 8;

}  // namespace kestrum

#endif
