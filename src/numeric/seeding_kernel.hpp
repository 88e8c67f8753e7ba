// Seeding and the first draws after it, several at a time: text for numeric/kernel_levels.hpp. All numbers are whole or
// quotients of whole ones, so that vectors give the bits of the plain steps in random.cpp.

// The whole number at or below x, which must be below 2^51.
KESTRUM_KERNEL_INLINE Vector Floor(Vector x) {
  constexpr double kRounder = 0x1.8p52;
  const Vector nearest = (x + kRounder) - kRounder;
  return nearest - (nearest > x ? Broadcast<Vector>(1.0) : Vector{});
}

KESTRUM_KERNEL_INLINE Vector FractionOf(Vector x) { return x - Floor(x); }

// The remainder of whole numbers below 2^31, with the sign of x.
KESTRUM_KERNEL_INLINE Vector Remainder(Vector x, double modulus) {
  const Vector magnitude = x < Vector{} ? -x : x;
  const Vector rest = magnitude - modulus * Floor(magnitude * (1.0 / modulus));
  // The rounded quotient may lie across a whole number.
  const Vector low = rest < Vector{} ? rest + modulus : rest;
  const Vector remainder = low >= Broadcast<Vector>(modulus) ? low - modulus : low;
  return x < Vector{} ? -remainder : remainder;
}

// The uniform number of three sequences after as many rounds as the jump takes from their first state.
KESTRUM_KERNEL_INLINE Vector UniformAfter(const Vector (&first)[3], const Vector (&jump)[3]) {
  Vector part[3];
#pragma GCC unroll 3
  for (int s = 0; s < 3; ++s) {
    const double modulus = kCongruences[s].modulus;
    part[s] = Remainder(first[s] * jump[s], modulus) / Broadcast<Vector>(modulus);
  }
  return FractionOf(part[0] + part[1] + part[2]);
}

// uniform[i] belongs to i rounds after those that warm up.
KESTRUM_KERNEL_TARGET void UniformsOfRounds(const SeedingState& state, double* uniform) noexcept {
  const Vector first[3] = {Broadcast<Vector>(state[0]), Broadcast<Vector>(state[1]), Broadcast<Vector>(state[2])};
  for (int i = 0; i < kPaddedRounds; i += kWidth) {
    const double* const at = &kJumps[0][kWarmUpRounds - 1 + i];
    const Vector jump[3] = {Load<Vector>(at), Load<Vector>(at + kJumpStride), Load<Vector>(at + 2 * kJumpStride)};
    Store(uniform + i, UniformAfter(first, jump));
  }
}

// The draw number `skip` after seeding, from the first states of kLanes seeds: `state` holds those of one sequence after
// those of the other.
KESTRUM_KERNEL_TARGET void DrawsOfStates(const double* state, int skip, double* number) noexcept {
  for (int i = 0; i < kLanes; i += kWidth) {
    const Vector first[3] = {Load<Vector>(state + i), Load<Vector>(state + kLanes + i),
                             Load<Vector>(state + 2 * kLanes + i)};
    Vector uniform[3];
    const int rounds[3] = {kSeedingRounds - 1, kWarmUpRounds - 1 + skip, kWarmUpRounds - 1 + skip + kStateSize - kLag};
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) {
      const Vector jump[3] = {Broadcast<Vector>(kJumps[0][rounds[k]]), Broadcast<Vector>(kJumps[1][rounds[k]]),
                              Broadcast<Vector>(kJumps[2][rounds[k]])};
      uniform[k] = UniformAfter(first, jump);
    }
    Vector y = Floor(uniform[0] * (1.0 / kStep)) * kStep;
    for (int draw = 0; draw <= skip; ++draw) {
      y = FractionOf(y * 37.0 + kStep);
      y = y == Vector{} ? Broadcast<Vector>(kStep) : y;
    }
    const Vector oldest = Floor(uniform[1] * kModulus);
    const Vector older = Floor(uniform[2] * kModulus);
    const Vector v = (((kFourModulus - older) - 2.0 * oldest) - 2.0 * oldest) - oldest;
    const Vector lagged = v - kModulus * Floor((v + 0.5) * (1.0 / kModulus));
    Store(number + i, FractionOf(y + lagged / Broadcast<Vector>(kModulus)) + 1e-17);
  }
}
