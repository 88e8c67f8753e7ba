#ifndef KESTRUM_TESTS_SUPPORT_OWNED_HPP
#define KESTRUM_TESTS_SUPPORT_OWNED_HPP

namespace kestrum_test {

// A record that is initialised at first and releases what it holds in the end.
template <typename Record, auto kInit, auto kFree>
struct Owned : Record {
  Owned() { kInit(this); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { kFree(this); }
};

}  // namespace kestrum_test

#endif
