#ifndef KESTRUM_NUMERIC_WEIGHT_SUMS_HPP
#define KESTRUM_NUMERIC_WEIGHT_SUMS_HPP

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"

namespace kestrum {

// Entries 0 to n of running sums of weights, in a vector of the caller's: what a draw without replacement asks of them.
class PlainWeightSums {
 public:
  PlainWeightSums(double* sums, int n) noexcept : sums_(sums), n_(n) {}

  double Value(int entry) const noexcept { return sums_[entry]; }
  bool IsAtMost(int entry, double limit) const noexcept { return sums_[entry] <= limit; }
  // Reduces the entries from `first` to `last` by `weight` and those behind `last` by `weightBehind`.
  void Reduce(int first, int last, double weight, double weightBehind) noexcept {
    for (int entry = first; entry <= last; ++entry) sums_[entry] -= weight;
    for (std::ptrdiff_t entry = std::ptrdiff_t{last} + 1; entry <= n_; ++entry) sums_[entry] -= weightBehind;
  }

 private:
  double* sums_;
  int n_;
};

// The same bit for bit, in a time that grows with the logarithm of n for weights of like size: a binary tree over
// blocks of entries, where a node holds back what is to be done to all its entries.
//
// The bits of a double between two powers of two count its last places. As long as a reduction does not leave that
// range, it takes a whole number of last places off the bits, the same for every entry: the weight, rounded. Only if
// the weight lies half-way between two such numbers do the entries differ, since the result is rounded to even: the
// lesser number is taken off, then the lowest bit is cleared. Any row of such steps adds up to
// ((bits - before) & mask) - after.
// A node whose entries lie in several ranges, or would leave theirs, hands the reduction on to its halves.
class WeightSumTree {
 public:
  // Takes the sums over. Returns false, and leaves them alone, if they are not sums of weights or memory fails.
  [[nodiscard]] bool Build(double* sums, int n) noexcept {
    for (int i = 0; i < n; ++i) {
      if (!(sums[i] >= 0.0 && sums[i] <= sums[i + 1] && sums[i + 1] < HUGE_VAL)) return false;
    }
    sums_ = sums;
    size_ = std::ptrdiff_t{n} + 1;
    nblock_ = static_cast<int>((size_ + kBlockSize - 1) / kBlockSize);
    if (nodes_.Allocate(2 * std::bit_ceil(static_cast<std::size_t>(nblock_))) != 0) return false;
    BuildNode({1, 0, nblock_});
    return true;
  }

  double Value(int entry) noexcept {
    Place place{1, 0, nblock_};
    while (place.nblock > 1) place = Descend(place, entry);
    return nodes_[place.node].held.Apply(sums_[entry]);
  }

  bool IsAtMost(int entry, double limit) noexcept {
    for (Place place{1, 0, nblock_};; place = Descend(place, entry)) {
      const Node& node = nodes_[place.node];
      if (node.highest <= limit) return true;
      if (node.lowest > limit) return false;
      if (place.nblock == 1) return node.held.Apply(sums_[entry]) <= limit;
    }
  }

  void Reduce(int first, int last, double weight, double weightBehind) noexcept {
    ReduceNode({1, 0, nblock_}, {first, last, weight, weightBehind});
  }

  // Brings the caller's vector up to date.
  void Settle() noexcept { SettleNode({1, 0, nblock_}); }

 private:
  static constexpr int kBlockSize = 64;
  static constexpr int kMantissaBits = 52;

  static std::uint64_t BitsOf(double value) noexcept { return std::bit_cast<std::uint64_t>(value); }
  static double FromBits(std::uint64_t bits) noexcept { return std::bit_cast<double>(bits); }

  // A row of reductions of numbers in one range.
  struct Held {
    std::uint64_t before = 0;
    std::uint64_t mask = ~std::uint64_t{0};
    std::uint64_t after = 0;

    bool IsNothing() const noexcept { return (before | after | ~mask) == 0; }
    double Apply(double value) const noexcept { return FromBits(((BitsOf(value) - before) & mask) - after); }
    void Take(std::uint64_t places) noexcept { (mask & 1 ? before : after) += places; }
    void TakeAndClear(std::uint64_t places) noexcept {
      Take(places);
      mask &= ~std::uint64_t{1};
      after += after & 1;  // what is even before `after` is taken off has to be even behind it, too
    }
    void Append(const Held& later) noexcept {
      Take(later.before);
      if (!(later.mask & 1)) TakeAndClear(0);
      Take(later.after);
    }
  };

  struct Node {
    double lowest;  // over the entries, with what the node holds back done
    double highest;
    Held held;

    void Append(const Held& later) noexcept {
      lowest = later.Apply(lowest);
      highest = later.Apply(highest);
      held.Append(later);
    }
    // Whether all entries could be reduced by holding back.
    bool HoldBack(double weight) noexcept {
      constexpr std::uint64_t kLeastRange = 2 * kMantissaBits;  // clear of the numbers without a leading bit
      constexpr std::uint64_t kBeyondRanges = 0x7ff;            // infinite, NaN or negative
      if (weight == 0.0) return true;  // all that rounding leaves of weights below the last places of the sums
      const double reduced = lowest - weight;
      const std::uint64_t range = BitsOf(lowest) >> kMantissaBits;
      if (range < kLeastRange || range >= kBeyondRanges || BitsOf(highest) >> kMantissaBits != range ||
          BitsOf(reduced) >> kMantissaBits != range || !(weight >= 0.0)) {
        return false;
      }
      const double power = FromBits(range << kMantissaBits);
      const double halfPlace = FromBits((range - kMantissaBits - 1) << kMantissaBits);
      const double sum = power + weight;  // rounds the weight to last places
      const double rest = weight - (sum - power);
      const std::uint64_t places = BitsOf(sum) - BitsOf(power);
      if (std::fabs(rest) == halfPlace) {
        held.TakeAndClear(rest < 0.0 ? places - 1 : places);
      } else {
        held.Take(places);
      }
      lowest = reduced;
      highest -= weight;
      return true;
    }
  };

  // A node and its blocks.
  struct Place {
    int node, firstBlock, nblock;

    Place Left() const noexcept { return {2 * node, firstBlock, nblock / 2}; }
    Place Right() const noexcept { return {2 * node + 1, firstBlock + nblock / 2, nblock - nblock / 2}; }
  };

  struct Reduction {
    std::ptrdiff_t first, last;
    double weight, weightBehind;
  };

  std::ptrdiff_t FirstEntry(const Place& place) const noexcept { return std::ptrdiff_t{place.firstBlock} * kBlockSize; }
  std::ptrdiff_t EndEntry(const Place& place) const noexcept {
    return std::min(size_, (std::ptrdiff_t{place.firstBlock} + place.nblock) * kBlockSize);
  }

  Place Descend(const Place& place, int entry) noexcept {
    HandDown(place);
    const Place right = place.Right();
    return entry < FirstEntry(right) ? place.Left() : right;
  }

  void HandDown(const Place& place) noexcept {
    Held& held = nodes_[place.node].held;
    if (held.IsNothing()) return;
    nodes_[2 * place.node].Append(held);
    nodes_[2 * place.node + 1].Append(held);
    held = {};
  }

  void GatherUp(const Place& place) noexcept {
    Node& node = nodes_[place.node];
    const Node& left = nodes_[2 * place.node];
    const Node& right = nodes_[2 * place.node + 1];
    node.lowest = std::min(left.lowest, right.lowest);
    node.highest = std::max(left.highest, right.highest);
  }

  void MeasureBlock(const Place& place) noexcept {
    constexpr int kAbreast = 4;
    const std::ptrdiff_t begin = FirstEntry(place);
    const std::ptrdiff_t end = EndEntry(place);
    double lowest[kAbreast], highest[kAbreast];
    for (int lane = 0; lane < kAbreast; ++lane) lowest[lane] = highest[lane] = sums_[begin];
    std::ptrdiff_t entry = begin;
    for (; entry + kAbreast <= end; entry += kAbreast) {
      for (int lane = 0; lane < kAbreast; ++lane) {
        const double value = sums_[entry + lane];
        lowest[lane] = value < lowest[lane] ? value : lowest[lane];
        highest[lane] = value > highest[lane] ? value : highest[lane];
      }
    }
    Node& node = nodes_[place.node];
    node.lowest = std::min({lowest[0], lowest[1], lowest[2], lowest[3]});
    node.highest = std::max({highest[0], highest[1], highest[2], highest[3]});
    for (; entry < end; ++entry) {
      node.lowest = std::min(node.lowest, sums_[entry]);
      node.highest = std::max(node.highest, sums_[entry]);
    }
  }

  void SettleBlock(const Place& place) noexcept {
    Held& held = nodes_[place.node].held;
    if (held.IsNothing()) return;
    const std::ptrdiff_t end = EndEntry(place);
    for (std::ptrdiff_t entry = FirstEntry(place); entry < end; ++entry) sums_[entry] = held.Apply(sums_[entry]);
    held = {};
  }

  void BuildNode(const Place& place) noexcept {
    nodes_[place.node].held = {};
    if (place.nblock == 1) return MeasureBlock(place);
    BuildNode(place.Left());
    BuildNode(place.Right());
    GatherUp(place);
  }

  void SettleNode(const Place& place) noexcept {
    if (place.nblock == 1) return SettleBlock(place);
    HandDown(place);
    SettleNode(place.Left());
    SettleNode(place.Right());
  }

  void ReduceNode(const Place& place, const Reduction& r) noexcept {
    const std::ptrdiff_t begin = FirstEntry(place);
    const std::ptrdiff_t end = EndEntry(place);
    if (end <= r.first) return;
    const bool behind = begin > r.last;
    if ((behind || (begin >= r.first && end - 1 <= r.last)) &&
        nodes_[place.node].HoldBack(behind ? r.weightBehind : r.weight)) {
      return;
    }
    if (place.nblock > 1) {
      HandDown(place);
      ReduceNode(place.Left(), r);
      ReduceNode(place.Right(), r);
      GatherUp(place);
      return;
    }
    SettleBlock(place);
    const std::ptrdiff_t split = std::clamp(r.last + 1, begin, end);
    for (std::ptrdiff_t entry = std::max(begin, r.first); entry < split; ++entry) sums_[entry] -= r.weight;
    for (std::ptrdiff_t entry = std::max(split, r.first); entry < end; ++entry) sums_[entry] -= r.weightBehind;
    MeasureBlock(place);
  }

  double* sums_ = nullptr;
  std::ptrdiff_t size_ = 0;
  int nblock_ = 0;
  Buffer<Node> nodes_;  // node 1 is the root; the halves of node k are 2k and 2k + 1
};

}  // namespace kestrum

#endif
