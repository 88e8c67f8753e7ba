#include "core/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "support/allocation_failure.hpp"

TEST(Memory, RefusalsHaveTheirStatus) {
  struct Row {
    size_t n, size;
    int mallocStatus, reallocStatus;
  };
  for (const Row& row : {Row{0, 8, -3, -5}, Row{4, 0, -4, -6}, Row{0, 0, -3, -5}, Row{SIZE_MAX / 4, 16, -1, -2}}) {
    int status = 7;
    EXPECT_EQ(VORLMalloc(row.n, row.size, &status), nullptr);
    EXPECT_EQ(status, row.mallocStatus);
    char kept[4];
    EXPECT_EQ(VORLRealloc(kept, row.n, row.size, &status), kept);
    EXPECT_EQ(status, row.reallocStatus);
  }
}

TEST(Memory, ReallocKeepsContentsAndAnEarlierStatus) {
  int status = 0;
  char* block = static_cast<char*>(VORLMalloc(3, 1, &status));
  std::memcpy(block, "ab", 3);
  status = -42;
  block = static_cast<char*>(VORLRealloc(block, 5000, 1, &status));
  EXPECT_STREQ(block, "ab");
  EXPECT_EQ(status, -42);
  {
    const kestrum_test::FailAllocation fail(0);
    EXPECT_EQ(VORLRealloc(block, 9000, 1, &status), block);
    EXPECT_EQ(status, -2);
  }
  VORLFree(block);
  VORLFree(nullptr);
}

TEST(Memory, ArraysAreContiguousInIndexOrder) {
  int status = 7;
  auto**** a = reinterpret_cast<int****>(VORLMallocArray4D(2, 3, 4, 5, sizeof(int), &status));
  ASSERT_EQ(status, 0);
  auto*** b = reinterpret_cast<int***>(VORLMallocArray3D(2, 3, 4, sizeof(int), &status));
  auto** c = reinterpret_cast<int**>(VORLMallocArray2D(2, 3, sizeof(int), &status));
  for (int i = 0; i < 2; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_EQ(&c[i][j], c[0] + i * 3 + j);
      for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(&b[i][j][k], b[0][0] + (i * 3 + j) * 4 + k);
        for (int l = 0; l < 5; ++l) {
          EXPECT_EQ(&a[i][j][k][l], a[0][0][0] + ((i * 3 + j) * 4 + k) * 5 + l);
          a[i][j][k][l] = l;
        }
      }
    }
  }
  VORLFreeArray4D(reinterpret_cast<void****>(a));
  VORLFreeArray3D(reinterpret_cast<void***>(b));
  VORLFreeArray2D(reinterpret_cast<void**>(c));
  VORLFreeArray4D(nullptr);
}

TEST(Memory, ArrayFailuresHaveTheirStatusAndReleaseEverything) {
  struct Row {
    size_t n, last, size;
    int status2D, status3D, status4D;
  };
  for (const Row& row :
       {Row{2, 0, 8, -7, -9, -11}, Row{0, 2, 8, -7, -9, -11}, Row{2, 2, 0, -8, -10, -12}, Row{0, 2, 0, -7, -9, -11},
        Row{SIZE_MAX, 2, 8, -1, -1, -1}, Row{SIZE_MAX, 0, 8, -7, -9, -11}, Row{SIZE_MAX, 2, 0, -8, -10, -12}}) {
    int status = 0;
    EXPECT_EQ(VORLMallocArray2D(row.n, row.last, row.size, &status), nullptr);
    EXPECT_EQ(status, row.status2D);
    EXPECT_EQ(VORLMallocArray3D(row.n, 2, row.last, row.size, &status), nullptr);
    EXPECT_EQ(status, row.status3D);
    EXPECT_EQ(VORLMallocArray4D(row.n, 2, 2, row.last, row.size, &status), nullptr);
    EXPECT_EQ(status, row.status4D);
  }
}

TEST(Memory, FailingAllocations) {
  const auto allocate = [](auto form, auto release, auto... dims) {
    int status = 7;
    auto* const array = form(dims..., 8, &status);
    EXPECT_EQ(array == nullptr, status != 0);
    release(array);
    return status;
  };
  kestrum_test::ForEachFailingAllocation({
      {"block", [&] { return allocate(VORLMalloc, VORLFree, 2); }},
      {"2D", [&] { return allocate(VORLMallocArray2D, VORLFreeArray2D, 2, 2); }},
      {"3D", [&] { return allocate(VORLMallocArray3D, VORLFreeArray3D, 2, 2, 2); }},
      {"4D", [&] { return allocate(VORLMallocArray4D, VORLFreeArray4D, 2, 2, 2, 2); }},
  });
}
