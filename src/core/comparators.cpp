#include "core/comparators.h"

#include <type_traits>

static_assert(std::is_standard_layout_v<VORL_INFOINTVALUE> && sizeof(VORL_INFOINTVALUE) == 8);
static_assert(std::is_standard_layout_v<VORL_INFODOUVALUE> && sizeof(VORL_INFODOUVALUE) == 16);
static_assert(std::is_standard_layout_v<VORL_INFOREAVALUE> && sizeof(VORL_INFOREAVALUE) == 16);

namespace kestrum {
namespace {

// Two tests, so that a NaN compares equal to everything.
template <typename T>
int Compare(T a, T b) noexcept {
  return a < b ? -1 : a > b ? 1 : 0;
}

template <typename T>
int CompareAt(const void* a, const void* b) noexcept {
  return Compare(*static_cast<const T*>(a), *static_cast<const T*>(b));
}

template <typename Info>
int CompareValues(const void* a, const void* b) noexcept {
  return Compare(static_cast<const Info*>(a)->value, static_cast<const Info*>(b)->value);
}

// `Key` is the type in which the entries are compared.
template <typename Key, typename T>
int CompareVectors(const T* a, const T* b, int n) noexcept {
  for (int i = 0; i < n; ++i) {
    if (const int order = Compare(static_cast<Key>(a[i]), static_cast<Key>(b[i])); order != 0) return order;
  }
  return 0;
}

}  // namespace
}  // namespace kestrum

int VORLCmpInt(const void* a, const void* b) noexcept { return kestrum::CompareAt<int>(a, b); }

int VORLCmpReal(const void* a, const void* b) noexcept { return kestrum::CompareAt<real>(a, b); }

int VORLCmpInfoIntValue(const void* a, const void* b) noexcept {
  return kestrum::CompareValues<VORL_INFOINTVALUE>(a, b);
}

int VORLCmpInfoIntValueAll(const void* a, const void* b) noexcept {
  const int order = kestrum::Compare(static_cast<const VORL_INFOINTVALUE*>(a)->index,
                                     static_cast<const VORL_INFOINTVALUE*>(b)->index);
  return order != 0 ? order : VORLCmpInfoIntValue(a, b);
}

int VORLCmpInfoDouValue(const void* a, const void* b) noexcept {
  return kestrum::CompareValues<VORL_INFODOUVALUE>(a, b);
}

int VORLCmpInfoReaValue(const void* a, const void* b) noexcept {
  return kestrum::CompareValues<VORL_INFOREAVALUE>(a, b);
}

int VORLCmpVectorOfClassId(classIdType* a, classIdType* b, int n) noexcept {
  return kestrum::CompareVectors<signed char>(a, b, n);
}

int VORLCmpVectorOfReal(real* a, real* b, int n) noexcept { return kestrum::CompareVectors<real>(a, b, n); }
