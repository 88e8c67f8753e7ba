// The search for nearest centres: text for numeric/kernel_levels.hpp. A lane is a point. Nothing is summed across lanes.

// Vectors that are worked on side by side: enough to hide the latency of an addition, and no more than registers hold.
constexpr int kParts = 4;

// The points of kPieces pieces, each a vector or, for the last points, a number.
template <typename Piece, int kPieces>
KESTRUM_KERNEL_INLINE void FindForPieces(const double* const* data, int nfeature, std::ptrdiff_t begin,
                                         const double* center, int ncluster, int* nearest, double* distance) {
  constexpr int kStep = sizeof(Piece) / sizeof(double);
  Piece best[kPieces];
  Piece number[kPieces];
#pragma GCC unroll 4
  for (int k = 0; k < kPieces; ++k) {
    best[k] = Broadcast<Piece>(__builtin_inf());
    number[k] = Piece{};
  }
  for (int c = 0; c < ncluster; ++c) {
    Piece sum[kPieces];
#pragma GCC unroll 4
    for (int k = 0; k < kPieces; ++k) sum[k] = Piece{};
    for (int f = 0; f < nfeature; ++f, ++center) {
      const double* const x = data[f] + begin;
      const Piece middle = Broadcast<Piece>(*center);
#pragma GCC unroll 4
      for (int k = 0; k < kPieces; ++k) {
        const Piece difference = Load<Piece>(x + k * kStep) - middle;
        sum[k] = sum[k] + difference * difference;
      }
    }
    const Piece ownNumber = Broadcast<Piece>(c);
#pragma GCC unroll 4
    for (int k = 0; k < kPieces; ++k) {
      const auto nearer = sum[k] < best[k];
      best[k] = nearer ? sum[k] : best[k];
      number[k] = nearer ? ownNumber : number[k];
    }
  }
  double numbers[kPieces * kStep];
#pragma GCC unroll 4
  for (int k = 0; k < kPieces; ++k) {
    Store(distance + k * kStep, best[k]);
    Store(numbers + k * kStep, number[k]);
  }
  for (int lane = 0; lane < kPieces * kStep; ++lane) nearest[lane] = static_cast<int>(numbers[lane]);
}

KESTRUM_KERNEL_TARGET void FindNearestCenters(const double* const* data, int nfeature, std::ptrdiff_t begin, int count,
                                              const double* center, int ncluster, int* nearest,
                                              double* distance) noexcept {
  constexpr int kLanes = kParts * kWidth;
  int k = 0;
  for (; k + kLanes <= count; k += kLanes) {
    FindForPieces<Vector, kParts>(data, nfeature, begin + k, center, ncluster, nearest + k, distance + k);
  }
  for (; k < count; ++k) {
    FindForPieces<double, 1>(data, nfeature, begin + k, center, ncluster, nearest + k, distance + k);
  }
}
