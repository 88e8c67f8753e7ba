#ifndef KESTRUM_TESTS_SUPPORT_ALLOCATION_FAILURE_HPP
#define KESTRUM_TESTS_SUPPORT_ALLOCATION_FAILURE_HPP

namespace kestrum_test {

// While it lives, the allocation number k (from 0, counted from its construction) fails, once. Every test program is
// linked so that the C allocation functions pass through here.
class FailAllocation {
 public:
  explicit FailAllocation(long k);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;
  // Whether allocation k was reached.
  bool Happened() const;
};

}  // namespace kestrum_test

#endif
