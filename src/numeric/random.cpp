#include "numeric/random.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "numeric/lanes.hpp"
#include "numeric/random.hpp"
#include "numeric/shuffle.hpp"
#include "numeric/weight_sums.hpp"

static_assert(std::is_standard_layout_v<VORL_RANDCONTEXT>);
static_assert(sizeof(void*) != 8 || sizeof(VORL_RANDCONTEXT) == 848);

namespace kestrum {
namespace {

constexpr int kStateSize = 101;
constexpr int kLag = 64;
constexpr int kWarmUpRounds = 11;
constexpr int kSeedingRounds = kWarmUpRounds + kStateSize;
constexpr double kModulus = 1000009711.0;
constexpr double kTwoModulus = 2.0 * kModulus;
constexpr double kFourModulus = 4.0 * kModulus;
constexpr double kStep = 0x1p-25;

// One of the three sequences of the seeding: i = (i * factor) % modulus, starting from seedFactor * a + offset.
struct Congruence {
  std::uint32_t seedFactor;
  std::uint32_t offset;
  std::int32_t factor;
  std::int32_t modulus;
};
constexpr std::array<Congruence, 3> kCongruences = {{{1, 1, 171, 30269}, {2, 3, 172, 30307}, {3, 4, 170, 30323}}};

using SeedingState = std::array<std::int32_t, 3>;

// The state after the first round. Large seeds wrap here, as two's complement does, and may turn the state negative
// (the remainder has the sign of the dividend); the later rounds stay within 32 bits.
SeedingState FirstRound(int seed) noexcept {
  const auto bits = static_cast<std::uint32_t>(seed);
  const std::uint32_t magnitude = seed < 0 ? 0U - bits : bits;
  SeedingState state;
  for (std::size_t s = 0; s < state.size(); ++s) {
    const Congruence& congruence = kCongruences[s];
    const std::uint32_t start = congruence.seedFactor * magnitude + congruence.offset;
    const std::uint32_t product = start * static_cast<std::uint32_t>(congruence.factor);
    state[s] = static_cast<std::int32_t>(product) % congruence.modulus;
  }
  return state;
}

// kJumps[s][k] is the factor of k rounds of a sequence in one. Remainders of products do not depend on where remainders
// are taken in between, and their sign is that of the state, so a jump gives exactly the state that the rounds give.
constexpr int kPaddedRounds = (kStateSize + 1 + kLanes - 1) / kLanes * kLanes;
constexpr int kJumpStride = kWarmUpRounds + kPaddedRounds;
constexpr std::array<std::array<double, kJumpStride>, 3> kJumps = [] {
  std::array<std::array<double, kJumpStride>, 3> jumps{};
  for (std::size_t s = 0; s < jumps.size(); ++s) {
    std::int32_t jump = 1;
    for (double& rounds : jumps[s]) {
      rounds = jump;
      jump = jump * kCongruences[s].factor % kCongruences[s].modulus;
    }
  }
  return jumps;
}();

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "numeric/seeding_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {
namespace {

double Fraction(double value) noexcept { return value - std::floor(value); }

double NextCongruential(double y) noexcept {
  do {
    y = Fraction(y * 37.0 + kStep);
  } while (y == 0.0);
  return y;
}

// The lagged recursion: minus the value 64 draws old minus five times the value 101 draws old, modulo m. The numbers
// are whole and below 2^53, so the sums are exact, and the half keeps the quotient clear of the whole numbers by more
// than its rounding. A quotient instead of comparisons, since which of these would hold is a matter of chance that no
// branch predictor foresees.
double NextLagged(double oldest, double older) noexcept {
  const double v = (((kFourModulus - older) - 2.0 * oldest) - 2.0 * oldest) - oldest;
  return v - kModulus * std::floor((v + 0.5) * (1.0 / kModulus));
}

double Combine(double y, double lagged) noexcept {
  return Fraction(y + lagged / kModulus) + 1e-17;  // away from an exact zero
}

void Seed(int seed, VORL_RANDCONTEXT* context) noexcept {
  context->needSeed = 0;
  context->step = kStep;
  context->twoM = kTwoModulus;
  context->fourM = kFourModulus;
  double uniform[kPaddedRounds];
  KESTRUM_KERNEL_AT(BestSimdLevel(), UniformsOfRounds)(FirstRound(seed), uniform);
  for (int i = 0; i < kStateSize; ++i) context->state[i] = std::floor(uniform[i] * kModulus);
  context->y = std::floor(uniform[kStateSize] * (1.0 / kStep)) * kStep;
  context->position = 0;
}

double Draw(VORL_RANDCONTEXT* context) noexcept {
  // A context that was never initialised may hold anything; a position outside the ring starts it anew.
  const int i = context->position >= 0 && context->position < kStateSize ? context->position : 0;
  const int j = i < kLag ? i + (kStateSize - kLag) : i - kLag;
  const double v = NextLagged(context->state[i], context->state[j]);
  context->state[i] = v;
  context->position = i + 1 < kStateSize ? i + 1 : 0;
  context->y = NextCongruential(context->y);
  return Combine(context->y, v);
}

// The draw without replacement. Position i drops out, and position k takes over the weight of the entry that
// moves there.
template <typename Sums>
void DrawOrder(int n, int* list, double total, Sums& sums, VORL_RANDCONTEXT* context) noexcept {
  for (int i = 0; i < n - 1; ++i) {
    const double target = VORLDoubleRand(0, context) * total;
    int k = i;
    for (int high = n; high - k > 1;) {
      const int mid = k + (high - k) / 2;
      (sums.IsAtMost(mid, target) ? k : high) = mid;
    }
    const double weightOfI = sums.Value(i + 1) - sums.Value(i);
    const double weightOfK = sums.Value(k + 1) - sums.Value(k);
    std::swap(list[k], list[i]);
    sums.Reduce(i + 1, k, weightOfI, weightOfK);
    total -= weightOfK;
  }
}

}  // namespace

void DrawAfterSeeding(int firstSeed, int skip, int n, double* number, SimdLevel level) noexcept {
  const auto draw = KESTRUM_KERNEL_AT(level, DrawsOfStates);
  for (int begin = 0; begin < n; begin += kLanes) {
    const int count = std::min(kLanes, n - begin);
    double state[3 * kLanes];
    for (int lane = 0; lane < kLanes; ++lane) {
      const SeedingState first = FirstRound(WrappingSum(firstSeed, begin + std::min(lane, count - 1)));
      for (std::size_t s = 0; s < first.size(); ++s) state[s * kLanes + lane] = first[s];
    }
    double drawn[kLanes];
    draw(state, skip, drawn);
    std::copy_n(drawn, count, number + begin);
  }
}

}  // namespace kestrum

void VORLInitRandContext(VORL_RANDCONTEXT* context) noexcept {
  *context = {};
  context->needSeed = 1;
}

double VORLDoubleRand(int seed, VORL_RANDCONTEXT* context) noexcept {
  if (seed != 0 || context->needSeed != 0) kestrum::Seed(seed, context);
  return kestrum::Draw(context);
}

int VORLIntRand(int seed, int n, VORL_RANDCONTEXT* context) noexcept {
  const double draw = VORLDoubleRand(seed, context);
  // Only a context that was tampered with draws outside (0, 1); the result must still be an index.
  return draw > 0.0 && draw < 1.0 ? static_cast<int>(n * draw) : 0;
}

int VORLRandomizeListOfInt(int n, int* list, VORL_RANDCONTEXT* context) noexcept {
  kestrum::Shuffle(n, list, [context](int left) { return VORLIntRand(0, left, context); });
  return 0;
}

int VORLPathRandom(int n, int* path, VORL_RANDCONTEXT* context) noexcept {
  return VORLRandomizeListOfInt(n, path, context);
}

int VORLRandomizeWeightedListOfInt(int n, int* list, real* cumulative, VORL_RANDCONTEXT* context) noexcept {
  constexpr int kWorthATree = 10000;  // measured
  if (n < 2) return 0;
  kestrum::WeightSumTree tree;
  if (n >= kWorthATree && tree.Build(cumulative, n)) {
    kestrum::DrawOrder(n, list, cumulative[n], tree, context);
    tree.Settle();
  } else {
    kestrum::PlainWeightSums sums(cumulative, n);
    kestrum::DrawOrder(n, list, cumulative[n], sums, context);
  }
  return 0;
}

int VORLDrawIndexFromPdf(int n, real* pdf, int* index, VORL_RANDCONTEXT* context) noexcept {
  *index = 0;
  const double u = VORLDoubleRand(0, context);
  double sum = 0.0;
  for (; *index < n - 1; ++*index) {
    sum += pdf[*index];
    if (sum > u) break;
  }
  return 0;
}
