// The runs of geobodies: text for numeric/kernel_levels.hpp. From the second level on, machines count bits in one
// instruction.

// The number of runs of a slab.
KESTRUM_KERNEL_TARGET int FindStarts(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  const NodeBits& nodes = *runs.nodes;
  const int nword = nodes.wordsPerRow();
  int nrun = 0;
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (runs.Stopped()) return 0;
      const std::ptrdiff_t bundle = std::ptrdiff_t{z} * runs.bundlesPerLayer + y;
      runs.first[bundle] = nrun;
      std::uint64_t* const starts = runs.starts + bundle * nword;
      for (int word = 0; word < nword; ++word) {
        NodeBits::Bits all = {0, 0};
        for (int k = 0; k < runs.rowsY * runs.rowsZ; ++k) {
          const NodeBits::Bits row =
              nodes.RowBits(y * runs.rowsY + k % runs.rowsY, z * runs.rowsZ + k / runs.rowsY, word * kMarkBlock);
          all = {all.here | row.here, all.before | row.before};
        }
        starts[word] = all.here & ~all.before;
        nrun += std::popcount(starts[word]);
      }
    }
  }
  return nrun;
}

// Joins the runs of a bundle to those of the one that lies dy and dz bundles from it.
template <Connectivity connectivity, int dy, int dz>
KESTRUM_KERNEL_INLINE void JoinBundles(const BundledRuns& runs, int bundleY, int bundleZ) noexcept {
  constexpr int kY = connectivity == Connectivity::k6 ? 1 : 2;
  constexpr int kZ = connectivity == Connectivity::k26 ? 2 : 1;
  const NodeBits& nodes = *runs.nodes;
  int* const link = runs.link;
  BundledRuns::Cursor a = runs.CursorOf(bundleY, bundleZ);
  BundledRuns::Cursor b = runs.CursorOf(bundleY + dy, bundleZ + dz);
  for (int word = 0; word < nodes.wordsPerRow(); ++word) {
    const int x = word * kMarkBlock;
    // The runs at or before a contact touch.
    std::uint64_t contacts = 0;
    for (int i = 0; i < kY * kZ; ++i) {
      for (int j = 0; j < kY * kZ; ++j) {
        const int stepY = kY * dy + j % kY - i % kY;
        const int stepZ = kZ * dz + j / kY - i / kY;
        if (std::abs(stepY) > 1 || std::abs(stepZ) > 1) continue;
        const int iy = kY * bundleY + i % kY;
        const int iz = kZ * bundleZ + i / kY;
        const NodeBits::Bits rowA = nodes.RowBits(iy, iz, x);
        const NodeBits::Bits rowB = nodes.RowBits(iy + stepY, iz + stepZ, x);
        contacts |= rowA.here & rowB.here;
        if (connectivity == Connectivity::k26 || (connectivity == Connectivity::k18 && (stepY == 0 || stepZ == 0))) {
          contacts |= (rowA.here & rowB.before) | (rowA.before & rowB.here);
        }
      }
    }
    a.Advance();
    b.Advance();
    std::uint64_t rest = FirstPlaces(contacts, a.starts | b.starts);
    // In a square of four marked nodes, the other three sides join these two.
    if (connectivity == Connectivity::k6 && dz != 0 && bundleY > 0) {
      rest &= ~(nodes.RowBits(bundleY - 1, bundleZ, x).here & nodes.RowBits(bundleY - 1, bundleZ - 1, x).here);
    }
    for (; rest != 0; rest &= rest - 1) {
      const int place = std::countr_zero(rest);
      Join(link, a.RunAt(place), b.RunAt(place));
    }
  }
}

// Joins the bundles of a slab to each other, or to the slab before.
template <Connectivity connectivity>
KESTRUM_KERNEL_TARGET void JoinSlab(const BundledRuns& runs, const BundleSlab& slab, bool across) noexcept {
  const int border = slab.beginZ * runs.bundlesPerLayer + slab.beginY;
  const int endZ = across ? std::min(slab.beginZ + 1, slab.endZ) : slab.endZ;
  for (int z = slab.beginZ; z < endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (runs.Stopped()) return;
      const auto wanted = [&](int dy, int dz) { return ((z + dz) * runs.bundlesPerLayer + y + dy < border) == across; };
      if (y > 0 && wanted(-1, 0)) JoinBundles<connectivity, -1, 0>(runs, y, z);
      if (z == 0) continue;
      if (wanted(0, -1)) JoinBundles<connectivity, 0, -1>(runs, y, z);
      if (connectivity == Connectivity::k6) continue;
      if (y > 0 && wanted(-1, -1)) JoinBundles<connectivity, -1, -1>(runs, y, z);
      if (y + 1 < runs.bundlesPerLayer && wanted(1, -1)) JoinBundles<connectivity, 1, -1>(runs, y, z);
    }
  }
}

KESTRUM_KERNEL_TARGET int NumberSlab(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  int* const link = runs.link;
  const int first = slab.firstRun;
  int ngeobody = 0;
  if (runs.rowsY == 1) {
    // Runs are in the order of their nodes, and a link in the slab leads to a run that has its number.
    for (int run = first; run < first + slab.nrun; ++run) {
      const int to = link[run];
      const int further = link[to];
      ngeobody += to == run;
      link[run] = to == run ? -ngeobody : to < first ? to : further;
    }
    return ngeobody;
  }
  // The first piece of a geobody numbers it, wherever its root is.
  runs.ForEachPiece(
      {slab.beginZ * runs.rowsZ, std::min(slab.endZ * runs.rowsZ, runs.nodes->nz())},
      {slab.beginY * runs.rowsY, std::min(slab.endY * runs.rowsY, runs.nodes->ny())},
      [&](int run, int, int) __attribute__((always_inline)) {
        if (link[run] < first) return;
        int root = run;
        while (link[root] >= first && link[root] != root) root = link[root];
        const int value = link[root] == root ? -++ngeobody : link[root];
        while (link[run] >= first) run = std::exchange(link[run], value);
      });
  return ngeobody;
}

// Writes the labels of eight nodes, by the numbers of runs that start up to each.
//   links  from that of the run that goes on before the first node
template <typename T>
KESTRUM_KERNEL_INLINE void WriteEight(const int* links, const unsigned char* startsUpTo, unsigned marks, T* to) {
#if KESTRUM_KERNEL_BYTES >= 32
  const __m256i run = _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i*)startsUpTo));
  const __m256i link = _mm256_permutevar8x32_epi32(_mm256_loadu_si256((const __m256i*)links), run);
  const __m256i bit = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
  const __m256i marked = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(static_cast<int>(marks)), bit), bit);
  const __m256i label = _mm256_and_si256(_mm256_sub_epi32(_mm256_setzero_si256(), link), marked);
  if constexpr (std::is_same_v<T, int>) {
    _mm256_storeu_si256((__m256i*)to, label);
  } else {
    _mm256_storeu_pd(to, _mm256_cvtepi32_pd(_mm256_castsi256_si128(label)));
    _mm256_storeu_pd(to + 4, _mm256_cvtepi32_pd(_mm256_extracti128_si256(label, 1)));
  }
#else
  for (int i = 0; i < 8; ++i) to[i] = static_cast<T>(links[startsUpTo[i]] * -static_cast<int>(marks >> i & 1));
#endif
}

// The labels of n nodes of a row, eight at a time.
template <typename T>
KESTRUM_KERNEL_INLINE void WriteNodes(const std::uint64_t* starts, const std::uint64_t* marks, int n, const int* links,
                                      T* to) {
  const auto* const startBytes = reinterpret_cast<const unsigned char*>(starts);
  const auto* const markBytes = reinterpret_cast<const unsigned char*>(marks);
  int x = 0;
  for (; x + 8 <= n; x += 8) {
    const unsigned char* const startsUpTo = kStartsUpTo[startBytes[x / 8]].data();
    WriteEight(links, startsUpTo, markBytes[x / 8], to + x);
    links += startsUpTo[7];
  }
  if (x == n) return;
  T last[8];
  WriteEight(links, kStartsUpTo[startBytes[x / 8]].data(), markBytes[x / 8], last);
  std::copy_n(last, n - x, to + x);
}

template <typename T>
KESTRUM_KERNEL_TARGET void WriteSlab(const BundledRuns& runs, const BundleSlab& slab, T* labels) noexcept {
  const NodeBits& nodes = *runs.nodes;
  constexpr int kWords = 8;
  // The links of some words, from that of the run before them: labels may be written where they lie.
  int links[1 + kWords * kMarkBlock / 2 + 8] = {};
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (runs.Stopped()) return;
      const std::ptrdiff_t bundle = std::ptrdiff_t{z} * runs.bundlesPerLayer + y;
      const std::uint64_t* const starts = runs.starts + bundle * nodes.wordsPerRow();
      const int endY = std::min((y + 1) * runs.rowsY, nodes.ny());
      const int endZ = std::min((z + 1) * runs.rowsZ, nodes.nz());
      const int* link = runs.link + runs.first[bundle];
      for (int word = 0; word < nodes.wordsPerRow(); word += kWords) {
        int nrun = 0;
        for (int i = word; i < std::min(word + kWords, nodes.wordsPerRow()); ++i) nrun += std::popcount(starts[i]);
        std::copy_n(link, nrun, links + 1);
        const int x = word * kMarkBlock;
        const int n = std::min(kWords * kMarkBlock, nodes.nx() - x);
        for (int iz = z * runs.rowsZ; iz < endZ; ++iz) {
          for (int iy = y * runs.rowsY; iy < endY; ++iy) {
            T* const row = labels + (std::ptrdiff_t{iz} * nodes.ny() + iy) * nodes.nx();
            WriteNodes(starts + word, nodes.Row(iy, iz) + word, n, links, row + x);
          }
        }
        links[0] = links[nrun];
        link += nrun;
      }
    }
  }
}
