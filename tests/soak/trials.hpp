#ifndef KESTRUM_TESTS_SOAK_TRIALS_HPP
#define KESTRUM_TESTS_SOAK_TRIALS_HPP

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "kestrum.h"

namespace kestrum_test {

// Random input that is the same on every platform. Two draws never appear in one argument list, whose order of
// evaluation is the compiler's.
class Draw {
 public:
  explicit Draw(unsigned seed) : generator_(seed) {}

  int Int(int low, int high) { return low + static_cast<int>(generator_() % static_cast<unsigned>(high - low + 1)); }
  // At or above low, below high; with mantissas so long that products of two must be rounded.
  real Real(real low, real high) { return low + (high - low) * (Int(0, 999982) / 999983.0); }
  bool Chance(real probability) { return Real(0.0, 1.0) < probability; }
  template <typename T>
  T Of(std::initializer_list<T> choices) {
    return choices.begin()[Int(0, static_cast<int>(choices.size()) - 1)];
  }
  template <typename Choices>
  const auto& Of(const Choices& choices) {
    return choices[static_cast<std::size_t>(Int(0, static_cast<int>(std::size(choices)) - 1))];
  }
  std::vector<int> Ints(int n, int low, int high) {
    std::vector<int> values(static_cast<std::size_t>(n));
    for (int& value : values) value = Int(low, high);
    return values;
  }
  std::vector<real> Reals(int n, real low, real high) {
    std::vector<real> values(static_cast<std::size_t>(n));
    for (real& value : values) value = Real(low, high);
    return values;
  }

 private:
  std::mt19937 generator_;
};

// All that a call gave, as bits, and the first thing about it that is wrong in itself.
class Outcome {
 public:
  std::string function;
  int status = 0;
  std::string fault;

  // Not-a-numbers are all alike: which one comes out of an operation on two is the compiler's choice.
  void Add(real value) { bits_.push_back(std::isnan(value) ? ~std::uint64_t{0} : std::bit_cast<std::uint64_t>(value)); }
  template <typename T>
  void Add(const T* values, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) Add(static_cast<real>(values[i]));
  }
  template <typename T>
  void Add(const std::vector<T>& values) {
    Add(values.data(), values.size());
  }
  void Add(const std::string& text) { Add(text.data(), text.size()); }
  void Add(const VORL_IMAGE& image) {
    const VORL_GRID& g = *image.grid;
    for (const int size : {g.nx, g.ny, g.nz, image.nvar}) Add(size);
    for (const real length : {g.sx, g.sy, g.sz, g.ox, g.oy, g.oz}) Add(length);
    for (int iv = 0; iv < image.nvar; ++iv) Add(std::string(image.varName[iv]));
    Add(image.var, static_cast<std::size_t>(image.nxyzv));
  }
  void Expect(bool holds, const std::string& what) {
    if (!holds && fault.empty()) fault = what;
  }

  const std::vector<std::uint64_t>& bits() const { return bits_; }

 private:
  std::vector<std::uint64_t> bits_;
};

// Draws the input of one call, calls with `nthreads` threads (0: the serial form), and returns what came out. The same
// seed gives the same input.
struct Trial {
  const char* name;
  void (*run)(Draw& draw, int nthreads, Outcome& outcome);
};

// Kriging and simulation by the iterative solver; by factorisation, and at true places; the image analysis; solvers
// inside.
const std::vector<Trial>& RunTrials();
const std::vector<Trial>& FactorisingTrials();
const std::vector<Trial>& AnalysisTrials();
const std::vector<Trial>& NumericTrials();

inline Outcome Perform(const Trial& trial, unsigned seed, int nthreads) {
  Draw draw(seed);
  Outcome outcome;
  outcome.function = trial.name;
  trial.run(draw, nthreads, outcome);
  outcome.Add(outcome.status);
  return outcome;
}

// A grid of at most maxNodes nodes; often with axes of one node.
inline VORL_GRID DrawGrid(Draw& draw, int maxNodes) {
  VORL_GRID grid{};
  int* const size[] = {&grid.nx, &grid.ny, &grid.nz};
  for (int* n : size) *n = draw.Chance(0.3) ? 1 : draw.Int(2, draw.Of({3, 9, 40, 150}));
  while (grid.nx * grid.ny * grid.nz > maxNodes) {
    int* const n = draw.Of(size);
    *n = (*n + 1) / 2;
  }
  for (real* s : {&grid.sx, &grid.sy, &grid.sz}) *s = draw.Of({1.0, 1.0, 0.5, 2.0, 0.37});
  for (real* o : {&grid.ox, &grid.oy, &grid.oz}) *o = draw.Of({0.0, -3.5, 1000.0});
  grid.nxy = grid.nx * grid.ny;
  grid.nxyz = grid.nxy * grid.nz;
  return grid;
}

}  // namespace kestrum_test

#endif
