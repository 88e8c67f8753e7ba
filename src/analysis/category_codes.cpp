#include "analysis/category_codes.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

#include "core/object_array.hpp"

namespace kestrum {
namespace {

// The codes of few numbers, by a table with open addresses.
class CodeTable {
 public:
  CodeTable() noexcept { std::fill_n(codes_, kPlaces, kNoCategory); }

  int size() const noexcept { return size_; }

  void Add(double number) noexcept {
    const std::size_t place = PlaceOf(number);
    if (codes_[place] != kNoCategory) return;
    numbers_[place] = number;
    codes_[place] = static_cast<std::int16_t>(size_++);
  }
  std::int16_t Find(double number) const noexcept { return codes_[PlaceOf(number)]; }

  // Calls body(number) for each.
  template <typename Body>
  void ForEach(const Body& body) const noexcept {
    for (std::size_t place = 0; place < kPlaces; ++place) {
      if (codes_[place] != kNoCategory) body(numbers_[place]);
    }
  }

 private:
  static constexpr int kBits = 10;
  static constexpr std::size_t kPlaces = std::size_t{1} << kBits;
  static_assert(kMostCategories < kPlaces / 2);

  // Where the number is, or would be.
  std::size_t PlaceOf(double number) const noexcept {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(number + 0.0);  // -0.0 is 0.0
    std::size_t place = static_cast<std::size_t>(bits * 0x9e3779b97f4a7c15u >> (64 - kBits));
    while (codes_[place] != kNoCategory && numbers_[place] != number) place = (place + 1) % kPlaces;
    return place;
  }

  double numbers_[kPlaces];
  std::int16_t codes_[kPlaces];
  int size_ = 0;
};

constexpr std::ptrdiff_t kPart = 1 << 16;  // values between looks whether to stop

// Writes the code of each value; of those alike in a row it is looked up once.
template <typename T, typename Code>
int WriteCodes(std::ptrdiff_t n, const T* values, const Dealing& dealing, const Progress& progress, const Code& codeOf,
               std::int16_t* codes) noexcept {
  dealing.Blocks(n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    T last{};
    std::int16_t code = codeOf(0.0);
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      if (i % kPart == 0 && !progress.GoesOn(begin == 0, i, end)) return;
      const T value = values[i];
      if (value != last) {
        last = value;
        code = !std::isnan(static_cast<double>(value)) ? codeOf(static_cast<double>(value)) : kNoCategory;
      }
      codes[i] = code;
    }
  });
  return progress.After(0);
}

}  // namespace

template <typename T>
int FindCategories(std::ptrdiff_t n, const T* values, const Dealing& dealing, const Progress& progress,
                   double* categories, int* ncategory) noexcept {
  ObjectArray<CodeTable> tables;
  if (const int status = tables.Allocate(dealing.nscratch()); status != 0) return status;
  dealing.EachThread([&](int thread, int team) noexcept {
    CodeTable& table = tables[static_cast<std::size_t>(thread)];
    const auto [begin, end] = BlockOf(n, team, thread);
    for (std::ptrdiff_t i = begin; i < end && table.size() <= kMostCategories; ++i) {
      if (i % kPart == 0 && !progress.GoesOn(thread == 0, i, end)) return;
      const T value = values[i];
      if ((i == begin || value != values[i - 1]) && !std::isnan(static_cast<double>(value)))
        table.Add(static_cast<double>(value));
    }
  });
  if (const int stopped = progress.After(0); stopped != 0) return stopped;
  CodeTable& all = tables[0];
  for (std::size_t t = 1; t < tables.size(); ++t) {
    tables[t].ForEach([&all](double number) noexcept {
      if (all.size() <= kMostCategories) all.Add(number);
    });
  }
  *ncategory = all.size();
  if (*ncategory > kMostCategories) return 0;
  double* end = categories;
  all.ForEach([&end](double number) noexcept { *end++ = number; });
  std::sort(categories, end);
  return 0;
}

template <typename T>
int CodeCategories(std::ptrdiff_t n, const T* values, int ncategory, const double* categories, const Dealing& dealing,
                   const Progress& progress, std::int16_t* codes) noexcept {
  CodeTable table;
  for (int k = 0; k < ncategory; ++k) table.Add(categories[k]);
  return WriteCodes(
      n, values, dealing, progress, [&table](double value) noexcept { return table.Find(value); }, codes);
}

template <typename T>
int CodeByCuts(std::ptrdiff_t n, const T* values, int ncut, const double* cuts, const Dealing& dealing,
               const Progress& progress, std::int16_t* codes) noexcept {
  return WriteCodes(
      n, values, dealing, progress,
      [=](double value) noexcept {
        return static_cast<std::int16_t>(std::upper_bound(cuts, cuts + ncut, value) - cuts);
      },
      codes);
}

#define KESTRUM_CODES_OF(T)                                                                                       \
  template int FindCategories(std::ptrdiff_t, const T*, const Dealing&, const Progress&, double*, int*) noexcept; \
  template int CodeCategories(std::ptrdiff_t, const T*, int, const double*, const Dealing&, const Progress&,      \
                              std::int16_t*) noexcept;                                                            \
  template int CodeByCuts(std::ptrdiff_t, const T*, int, const double*, const Dealing&, const Progress&,          \
                          std::int16_t*) noexcept;
KESTRUM_CODES_OF(unsigned char)
KESTRUM_CODES_OF(int)
KESTRUM_CODES_OF(float)
KESTRUM_CODES_OF(double)
#undef KESTRUM_CODES_OF

}  // namespace kestrum
