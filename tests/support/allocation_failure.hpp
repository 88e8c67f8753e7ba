#ifndef KESTRUM_TESTS_SUPPORT_ALLOCATION_FAILURE_HPP
#define KESTRUM_TESTS_SUPPORT_ALLOCATION_FAILURE_HPP

#include <gtest/gtest.h>

#include <functional>
#include <vector>

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

// The bytes that a call has asked for, whether it has given them back or not.
long long BytesAllocatedBy(const std::function<void()>& call);

// Calls call() with its first allocation failing, then with its second, and so on until none fails: it must give -1
// each time, and 0 in the end. A call that allocates nothing is a mistake of the test, unless it may.
template <typename Call>
void ForEachFailingAllocation(const Call& call, bool mustAllocate = true) {
  long k = 0;
  for (long failed = 1; failed != 0; ++k) {
    const FailAllocation failure(k);
    const int status = call();
    failed = failure.Happened() ? 1 : 0;
    EXPECT_EQ(status, -failed) << "allocation " << k;
  }
  EXPECT_TRUE(k > 1 || !mustAllocate) << "nothing was allocated";
}

// The same for each row of a table.
struct AllocatingCall {
  const char* name;
  std::function<int()> call;
};
inline void ForEachFailingAllocation(const std::vector<AllocatingCall>& table) {
  for (const AllocatingCall& row : table) {
    SCOPED_TRACE(row.name);
    ForEachFailingAllocation(row.call);
  }
}

}  // namespace kestrum_test

#endif
