#ifndef KESTRUM_NUMERIC_SHUFFLE_HPP
#define KESTRUM_NUMERIC_SHUFFLE_HPP

#include <algorithm>
#include <utility>

namespace kestrum {

// Puts numbers into random order (R. Durstenfeld, Algorithm 235: Random permutation, Communications of the ACM 7, 1964):
// from the last to the second, each swaps with that at draw(left), one of the `left` first. Places are drawn ahead of the
// swaps, so that memory can be fetched meanwhile.
template <typename Draw>
void Shuffle(int n, int* list, const Draw& draw) noexcept {
  constexpr int kAhead = 64;
  int place[kAhead];
  for (int left = n; left > 1;) {
    const int count = std::min(kAhead, left - 1);
    for (int i = 0; i < count; ++i) {
      place[i] = draw(left - i);
      __builtin_prefetch(&list[place[i]], 1);
    }
    for (int i = 0; i < count; ++i) std::swap(list[left - 1 - i], list[place[i]]);
    left -= count;
  }
}

}  // namespace kestrum

#endif
