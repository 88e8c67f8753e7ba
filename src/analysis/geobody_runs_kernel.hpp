// The runs of geobodies: text for numeric/kernel_levels.hpp. From the second level on, machines count bits in one
// instruction.

// The words of the rows of a bundle; rows outside the grid have no marks.
template <Connectivity connectivity>
struct RowsOfBundle {
  static constexpr int kY = RowsY(connectivity);
  static constexpr int kRows = kY * RowsZ(connectivity);
  const std::uint64_t* row[kRows];

  KESTRUM_KERNEL_INLINE RowsOfBundle(const NodeBits& nodes, int bundleY, int bundleZ) noexcept {
    for (int k = 0; k < kRows; ++k) row[k] = nodes.RowOrNone(bundleY * kY + k % kY, bundleZ * (kRows / kY) + k / kY);
  }
};

// The number of runs of a slab.
template <Connectivity connectivity>
KESTRUM_KERNEL_INLINE int FindStartsOf(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  const NodeBits& nodes = *runs.nodes;
  const int nword = nodes.wordsPerRow();
  int nrun = 0;
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (!runs.GoesOn(slab, y, z)) return 0;
      const std::ptrdiff_t bundle = runs.BundleAt(y, z);
      runs.first[bundle] = nrun;
      std::uint64_t* const starts = runs.starts + bundle * nword;
      const RowsOfBundle<connectivity> rows(nodes, y, z);
      std::uint64_t last = 0;
      for (int word = 0; word < nword; ++word) {
        std::uint64_t all = 0;
        for (const std::uint64_t* const row : rows.row) all |= row[word];
        starts[word] = all & ~(all << 1 | last);
        nrun += std::popcount(starts[word]);
        last = all >> (kMarkBlock - 1);
      }
    }
  }
  return nrun;
}

KESTRUM_KERNEL_INLINE int FindPackedStarts(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  const NodeBits& nodes = *runs.nodes;
  const int nword = nodes.wordsPerRow();
  const int period = nodes.packed().nx;
  int nrun = 0;
  for (int y = slab.beginY; y < slab.endY; ++y) {
    if (!runs.GoesOn(slab, y, 0)) return 0;
    runs.first[y] = nrun;
    const std::uint64_t* const row = nodes.Row(y, 0);
    std::uint64_t* const starts = runs.starts + std::ptrdiff_t{y} * nword;
    std::uint64_t last = 0;
    for (int word = 0; word < nword; ++word) {
      starts[word] = row[word] & (~(row[word] << 1 | last) | runs.rowStarts[word % period]);
      nrun += std::popcount(starts[word]);
      last = row[word] >> (kMarkBlock - 1);
    }
  }
  return nrun;
}

KESTRUM_KERNEL_TARGET int FindStarts(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  if (runs.rowStarts != nullptr) return FindPackedStarts(runs, slab);
  switch (runs.connectivity) {
    case Connectivity::k6:
      return FindStartsOf<Connectivity::k6>(runs, slab);
    case Connectivity::k18:
      return FindStartsOf<Connectivity::k18>(runs, slab);
    default:
      return FindStartsOf<Connectivity::k26>(runs, slab);
  }
}

// The words of a bundle, one after the other.
template <Connectivity connectivity>
struct BundleWalk {
  RowsOfBundle<connectivity> rows;
  BundledRuns::Cursor cursor;
  static constexpr int kRows = RowsOfBundle<connectivity>::kRows;
  std::uint64_t here[kRows] = {};
  std::uint64_t before[kRows];  // of each node, that before it

  KESTRUM_KERNEL_INLINE BundleWalk(const BundledRuns& runs, int bundleY, int bundleZ) noexcept
      : rows(*runs.nodes, bundleY, bundleZ), cursor(runs.CursorOf(bundleY, bundleZ)) {}
  // Of an empty one.
  KESTRUM_KERNEL_INLINE explicit BundleWalk(const BundledRuns& runs) noexcept
      : rows(*runs.nodes, -1, 0), cursor{rows.row[0], 0} {}

  KESTRUM_KERNEL_INLINE void Advance(int word) noexcept {
    for (int i = 0; i < kRows; ++i) {
      const std::uint64_t last = here[i] >> (kMarkBlock - 1);
      here[i] = rows.row[i][word];
      before[i] = here[i] << 1 | last;
    }
    cursor.Advance();
  }
};

// The runs of a bundle that touch those of the one that lies dy and dz bundles from it.
template <Connectivity connectivity, int dy, int dz>
class BundleContacts {
  using Walk = BundleWalk<connectivity>;

 public:
  KESTRUM_KERNEL_INLINE BundleContacts(const BundledRuns& runs, int bundleY, int bundleZ, bool wanted) noexcept
      : link_(runs.link), b_(wanted ? Walk(runs, bundleY + dy, bundleZ + dz) : Walk(runs)) {}

  // The contacts of 64 nodes.
  KESTRUM_KERNEL_INLINE std::uint64_t Advance(const Walk& a, int word) noexcept {
    b_.Advance(word);
    constexpr int kY = RowsY(connectivity);
    std::uint64_t contacts = 0;
    for (int i = 0; i < Walk::kRows; ++i) {
      for (int j = 0; j < Walk::kRows; ++j) {
        const int stepY = kY * dy + j % kY - i % kY;
        const int stepZ = Walk::kRows / kY * dz + j / kY - i / kY;
        if (std::abs(stepY) > 1 || std::abs(stepZ) > 1) continue;
        contacts |= a.here[i] & b_.here[j];
        if (connectivity == Connectivity::k26 || (connectivity == Connectivity::k18 && (stepY == 0 || stepZ == 0))) {
          contacts |= (a.here[i] & b_.before[j]) | (a.before[i] & b_.here[j]);
        }
      }
    }
    return contacts;
  }

  KESTRUM_KERNEL_INLINE void Join(const Walk& a, int word) noexcept {
    const std::uint64_t contacts = Advance(a, word);
    // The last runs before each start touch if there was a contact since the start before it.
    const std::uint64_t starts = a.cursor.starts | b_.cursor.starts;
    if (starts == 0) {
      touching_.Pass(contacts);
      return;
    }
    for (std::uint64_t pairs = starts & touching_.Before(starts, contacts); pairs != 0; pairs &= pairs - 1) {
      const std::uint64_t before = (pairs & -pairs) - 1;
      kestrum::Join(link_, a.cursor.before + std::popcount(a.cursor.starts & before),
                    b_.cursor.before + std::popcount(b_.cursor.starts & before));
    }
  }

  KESTRUM_KERNEL_INLINE void Finish(const Walk& a) noexcept {
    if (touching_.last()) kestrum::Join(link_, a.cursor.Last(), b_.cursor.Last());
  }

  // Joins the only runs of both.
  KESTRUM_KERNEL_INLINE void JoinOnly(Walk a, int nword) noexcept {
    for (int word = 0; word < nword; ++word) {
      a.Advance(word);
      if (Advance(a, word) == 0) continue;
      kestrum::Join(link_, a.cursor.Last(), b_.cursor.Last());
      return;
    }
  }

 private:
  int* link_;
  Walk b_;
  PlacesSinceStart touching_;
};

// Joins the runs of a row to those of another. A run of each has at most one stretch of nodes beside the other.
//   row, other    their marks
//   joined        words; where two nodes of the stretch are joined through others
//   fresh         the runs of the row are not joined to any yet
template <bool fresh, typename Joined>
KESTRUM_KERNEL_INLINE void JoinRows(int* link, int nword, const std::uint64_t* row, BundledRuns::Cursor a,
                                    const std::uint64_t* other, BundledRuns::Cursor b, const Joined& joined) noexcept {
  PlacesSinceStart joinedBefore;
  PlacesSinceStart linked;
  std::uint64_t last = 0;
  std::uint64_t contacts = row[0] & other[0];
  for (int word = 0; word < nword; ++word) {
    a.Advance();
    b.Advance();
    const std::uint64_t next = word + 1 < nword ? row[word + 1] & other[word + 1] : 0;
    std::uint64_t ends = contacts & ~(contacts >> 1 | next << (kMarkBlock - 1));
    if constexpr (fresh) {
      // The first link of a run needs no look at others.
      std::uint64_t firsts = ends & (a.starts | ~linked.Before(a.starts, ends));
      ends ^= firsts;
      for (; firsts != 0; firsts &= firsts - 1) {
        const std::uint64_t upTo = firsts ^ (firsts - 1);
        link[a.before + std::popcount(a.starts & upTo)] = link[b.before + std::popcount(b.starts & upTo)];
      }
    } else {
      const std::uint64_t starts = contacts & ~(contacts << 1 | last);
      const std::uint64_t places = contacts & joined(word);
      ends &= ~(places | (joinedBefore.Before(starts, places) & ~starts));
    }
    for (; ends != 0; ends &= ends - 1) {
      const std::uint64_t upTo = ends ^ (ends - 1);
      kestrum::Join(link, a.before + std::popcount(a.starts & upTo), b.before + std::popcount(b.starts & upTo));
    }
    last = contacts >> (kMarkBlock - 1);
    contacts = next;
  }
}

// Joins the bundles of a slab to each other, or to the slab before.
template <Connectivity connectivity, bool across>
class SlabJoiner {
 public:
  KESTRUM_KERNEL_INLINE SlabJoiner(const BundledRuns& runs, const BundleSlab& slab) noexcept
      : runs_(runs), slab_(slab), nword_(runs.nodes->wordsPerRow()) {}

  KESTRUM_KERNEL_INLINE void Run() noexcept {
    const int endZ = across ? std::min(slab_.beginZ + 1, slab_.endZ) : slab_.endZ;
    for (z_ = slab_.beginZ; z_ < endZ; ++z_) {
      for (y_ = slab_.beginY; y_ < slab_.endY; ++y_) {
        if (!runs_.GoesOn(slab_, y_, z_)) return;
        nrun_ = runs_.CountOf(y_, z_, slab_);
        if (nrun_ == 0) continue;
        if constexpr (connectivity == Connectivity::k6) {
          JoinRow();
        } else {
          JoinBundle();
        }
      }
    }
  }

 private:
  using Walk = BundleWalk<connectivity>;

  // Whether the bundle has runs to join to those of the one that lies dy and dz bundles from it. If each has one run
  // only, they are joined here.
  template <int dy, int dz>
  KESTRUM_KERNEL_INLINE bool LeftToJoin() const noexcept {
    if (y_ + dy < 0 || y_ + dy >= runs_.bundlesPerLayer || z_ + dz < 0) return false;
    const bool inside = runs_.BundleAt(y_ + dy, z_ + dz) >= runs_.BundleAt(slab_.beginY, slab_.beginZ);
    if (inside == across) return false;
    if (across) return true;
    const int nother = runs_.CountOf(y_ + dy, z_ + dz, slab_);
    if (nother > 1 || nrun_ > 1) return nother != 0;
    if (nother == 1) {
      BundleContacts<connectivity, dy, dz>(runs_, y_, z_, true).JoinOnly(Walk(runs_, y_, z_), nword_);
    }
    return false;
  }

  KESTRUM_KERNEL_INLINE void JoinBundle() const noexcept {
    const bool wanted[] = {LeftToJoin<-1, 0>(), LeftToJoin<0, -1>(), LeftToJoin<-1, -1>(), LeftToJoin<1, -1>()};
    if (!(wanted[0] || wanted[1] || wanted[2] || wanted[3])) return;
    Walk a(runs_, y_, z_);
    BundleContacts<connectivity, -1, 0> inLayer(runs_, y_, z_, wanted[0]);
    BundleContacts<connectivity, 0, -1> inColumn(runs_, y_, z_, wanted[1]);
    BundleContacts<connectivity, -1, -1> acrossUp(runs_, y_, z_, wanted[2]);
    BundleContacts<connectivity, 1, -1> acrossDown(runs_, y_, z_, wanted[3]);
    for (int word = 0; word < nword_; ++word) {
      a.Advance(word);
      inLayer.Join(a, word);
      inColumn.Join(a, word);
      acrossUp.Join(a, word);
      acrossDown.Join(a, word);
    }
    acrossUp.Finish(a);
    acrossDown.Finish(a);
    inLayer.Finish(a);
    inColumn.Finish(a);
  }

  // The same for bundles of one row.
  KESTRUM_KERNEL_INLINE void JoinRow() const noexcept {
    const NodeBits& nodes = *runs_.nodes;
    const std::uint64_t* const row = nodes.Row(y_, z_);
    const BundledRuns::Cursor a = runs_.CursorOf(y_, z_);
    const std::uint64_t* const beside = nodes.RowOrNone(y_ - 1, z_);
    if (LeftToJoin<-1, 0>()) {
      JoinRows<!across>(runs_.link, nword_, row, a, beside, runs_.CursorOf(y_ - 1, z_),
                        [](int) { return std::uint64_t{0}; });
    }
    if (LeftToJoin<0, -1>()) {
      // In a square of four marked nodes, three sides join the nodes of the fourth.
      const std::uint64_t* const before = nodes.RowOrNone(y_ - 1, z_ - 1);
      JoinRows<false>(runs_.link, nword_, row, a, nodes.Row(y_, z_ - 1), runs_.CursorOf(y_, z_ - 1),
                      [&](int word) { return beside[word] & before[word]; });
    }
  }

  const BundledRuns& runs_;
  const BundleSlab& slab_;
  const int nword_;
  int y_ = 0;  // of the bundle
  int z_ = 0;
  int nrun_ = 0;
};

// Bits of nodes end to end, in words from one on and before another; elsewhere they are 0.
struct BitsWithin {
  const std::uint64_t* words;
  std::ptrdiff_t begin, end;

  KESTRUM_KERNEL_INLINE std::uint64_t Word(std::ptrdiff_t i) const noexcept {
    return i >= begin && i < end ? words[i] : 0;
  }
  // Of 64 nodes from one on.
  KESTRUM_KERNEL_INLINE std::uint64_t From(std::ptrdiff_t node) const noexcept {
    const std::ptrdiff_t word = node >> 6;
    const int place = static_cast<int>(node & 63);
    return Word(word) >> place | Word(word + 1) << 1 << (kMarkBlock - 1 - place);
  }
};

// Joins the packed rows of a slab to each other, or to the slab before. The nodes of a neighbouring row lie some places
// before, so that 64 of them are read at once, whatever rows they are of. The last runs up to a node of two rows touch
// there if it is a contact; the pair is joined at the last contact before one of them ends, and at the end of a word.
template <Connectivity connectivity, bool across>
class PackedJoiner {
 public:
  KESTRUM_KERNEL_INLINE PackedJoiner(const BundledRuns& runs, const BundleSlab& slab) noexcept
      : runs_(runs),
        grid_(runs.nodes->packed()),
        nword_(runs.nodes->wordsPerRow()),
        layer_(std::ptrdiff_t{grid_.nx} * grid_.ny),
        slab_(slab),
        border_(std::ptrdiff_t{slab.beginY} * nword_) {
    const std::ptrdiff_t end = std::ptrdiff_t{runs.nodes->ny()} * nword_;
    marks_ = {runs.nodes->Row(0, 0), 0, end};
    const std::ptrdiff_t from = across ? 0 : border_;
    const std::ptrdiff_t to = across ? border_ : end;
    others_ = {marks_.words, from, to};
    otherStarts_ = {runs.starts, from, to};
  }

  KESTRUM_KERNEL_INLINE void Run() noexcept {
    const std::ptrdiff_t farthest = (grid_.nz > 1 ? layer_ : 0) + grid_.nx + 1;
    for (y_ = slab_.beginY; y_ < slab_.endY; ++y_) {
      if (!runs_.GoesOn(slab_, y_, 0)) return;
      begin_ = std::ptrdiff_t{y_} * nword_;
      if (across && (begin_ - border_) * kMarkBlock > farthest) return;
      if (runs_.CountOf(y_, 0, slab_) == 0) continue;
      JoinTo<-1, 0>();
      if (grid_.nz == 1) continue;
      JoinTo<0, -1>();
      if constexpr (connectivity == Connectivity::k6) continue;
      JoinTo<-1, -1>();
      JoinTo<1, -1>();
    }
  }

 private:
  // The last run that starts before a node, which may lie before the slabs that are joined to.
  KESTRUM_KERNEL_INLINE int LastBefore(std::ptrdiff_t node) const noexcept {
    const std::ptrdiff_t first = std::max(node, otherStarts_.begin * kMarkBlock);
    std::ptrdiff_t word = first / kMarkBlock;
    const std::uint64_t part = otherStarts_.Word(word) & ((std::uint64_t{1} << (first % kMarkBlock)) - 1);
    int run = runs_.first[word / nword_] - 1 + std::popcount(part);
    while (word % nword_ != 0) run += std::popcount(otherStarts_.words[--word]);
    return run;
  }

  // Those of 64 nodes from one on that lie in the first rows of layers.
  KESTRUM_KERNEL_INLINE std::uint64_t FirstRows(std::ptrdiff_t node) const noexcept {
    std::uint64_t rows = 0;
    const auto onLayer =
        static_cast<std::ptrdiff_t>(static_cast<std::uint32_t>(node) % static_cast<std::uint32_t>(layer_));
    for (std::ptrdiff_t begin = -onLayer; begin < kMarkBlock; begin += layer_) {
      const std::ptrdiff_t first = std::max(begin, std::ptrdiff_t{0});
      const std::ptrdiff_t end = std::min(begin + grid_.nx, std::ptrdiff_t{kMarkBlock});
      if (end > first) rows |= ~std::uint64_t{0} >> (kMarkBlock - (end - first)) << first;
    }
    return rows;
  }

  // Joins the runs to those of the rows that lie dy and dz rows from each.
  template <int dy, int dz>
  KESTRUM_KERNEL_INLINE void JoinTo() const noexcept {
    constexpr bool kFresh = dz == 0 && !across;  // no run is joined to another yet
    constexpr bool kDiagonal =
        connectivity == Connectivity::k26 || (connectivity == Connectivity::k18 && (dy == 0 || dz == 0));
    int* const link = runs_.link;
    const std::ptrdiff_t back = -(dy * grid_.nx + dz * layer_);
    BundledRuns::Cursor a = runs_.CursorOf(y_, 0);
    int otherBefore = LastBefore(begin_ * kMarkBlock - back);
    PlacesSinceStart joinedBefore;
    PlacesSinceStart linked;
    std::uint64_t last = 0;
    std::uint64_t lastContacts = 0;
    for (int word = 0; word < nword_; ++word) {
      a.Advance();
      const std::ptrdiff_t node = (begin_ + word) * kMarkBlock;
      const std::uint64_t here = marks_.words[begin_ + word];
      const std::uint64_t other = others_.From(node - back);
      const std::uint64_t otherStarts = otherStarts_.From(node - back);
      std::uint64_t contacts = here & other;
      if constexpr (kDiagonal) {
        const std::uint64_t before = here << 1 | last;
        contacts |= ((here & others_.From(node - back - 1)) | (before & other)) & ~runs_.rowStarts[word % grid_.nx];
        last = here >> (kMarkBlock - 1);
      }
      if (dy != 0 && grid_.nz > 1) contacts &= ~FirstRows(dy < 0 ? node : node + grid_.nx);
      const std::uint64_t starts = a.starts | otherStarts;
      std::uint64_t ends = contacts & (~(contacts >> 1) | starts >> 1);
      if constexpr (kFresh) {
        // The first link of a run needs no look at others.
        std::uint64_t firsts = ends & (a.starts | ~linked.Before(a.starts, ends));
        ends ^= firsts;
        for (; firsts != 0; firsts &= firsts - 1) {
          const std::uint64_t upTo = firsts ^ (firsts - 1);
          link[a.before + std::popcount(a.starts & upTo)] = link[otherBefore + std::popcount(otherStarts & upTo)];
        }
      } else if constexpr (dz != 0) {
        // Nodes that others beside them join: three sides of a square do, or two.
        std::uint64_t joined;
        if constexpr (dy == 0) {
          joined = marks_.From(node - grid_.nx) & marks_.From(node - grid_.nx - back) & ~FirstRows(node);
        } else {
          joined = marks_.From(node + dy * grid_.nx) | marks_.From(node - layer_);
        }
        const std::uint64_t places = contacts & joined;
        const std::uint64_t begins = contacts & (~(contacts << 1 | lastContacts) | starts);
        ends &= ~(places | (joinedBefore.Before(begins, places) & ~begins));
        lastContacts = contacts >> (kMarkBlock - 1);
      }
      for (; ends != 0; ends &= ends - 1) {
        const std::uint64_t upTo = ends ^ (ends - 1);
        kestrum::Join(link, a.before + std::popcount(a.starts & upTo), otherBefore + std::popcount(otherStarts & upTo));
      }
      otherBefore += std::popcount(otherStarts);
    }
  }

  const BundledRuns& runs_;
  const PackedRows grid_;
  const int nword_;
  const std::ptrdiff_t layer_;
  const BundleSlab& slab_;
  const std::ptrdiff_t border_;  // the slab's first word
  BitsWithin marks_;
  BitsWithin others_;  // of the nodes that are joined to
  BitsWithin otherStarts_;
  int y_ = 0;
  std::ptrdiff_t begin_ = 0;  // the row's first word
};

template <bool across>
KESTRUM_KERNEL_INLINE void JoinSlabTo(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  if (runs.rowStarts != nullptr) {
    switch (runs.packed) {
      case Connectivity::k6:
        return PackedJoiner<Connectivity::k6, across>(runs, slab).Run();
      case Connectivity::k18:
        return PackedJoiner<Connectivity::k18, across>(runs, slab).Run();
      default:
        return PackedJoiner<Connectivity::k26, across>(runs, slab).Run();
    }
  }
  switch (runs.connectivity) {
    case Connectivity::k6:
      return SlabJoiner<Connectivity::k6, across>(runs, slab).Run();
    case Connectivity::k18:
      return SlabJoiner<Connectivity::k18, across>(runs, slab).Run();
    default:
      return SlabJoiner<Connectivity::k26, across>(runs, slab).Run();
  }
}

KESTRUM_KERNEL_TARGET void JoinSlab(const BundledRuns& runs, const BundleSlab& slab, bool across) noexcept {
  across ? JoinSlabTo<true>(runs, slab) : JoinSlabTo<false>(runs, slab);
}

KESTRUM_KERNEL_TARGET int NumberSlab(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  int* const link = runs.link;
  const int first = slab.firstRun;
  int number = slab.before;
  if (runs.connectivity == Connectivity::k6) {
    // Runs are in the order of their nodes, and a link in the slab leads to a run that has its number.
    for (int run = first; run < first + slab.nrun; ++run) {
      const int to = link[run];
      const int further = link[to];
      number += to == run;
      link[run] = to == run ? -number : to < first ? to : further;
    }
    return number - slab.before;
  }
  // The first piece of a geobody numbers it, wherever its root is.
  runs.ForEachPiece(
      {slab.beginZ * runs.RowsZ(), std::min(slab.endZ * runs.RowsZ(), runs.nodes->nz())},
      {slab.beginY * runs.RowsY(), std::min(slab.endY * runs.RowsY(), runs.nodes->ny())},
      [&](int run, int, int) __attribute__((always_inline)) {
        if (link[run] < first) return;
        int root = run;
        while (link[root] >= first && link[root] != root) root = link[root];
        const int value = link[root] == root ? -++number : link[root];
        while (link[run] >= first) run = std::exchange(link[run], value);
      });
  return number - slab.before;
}

// Links are made to lead to the first runs in a pass of their own: one that also changed those of the first runs would
// wait for each before the next.
template <Connectivity connectivity>
KESTRUM_KERNEL_INLINE std::int64_t SumSquaresOf(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  const int nword = runs.nodes->wordsPerRow();
  int* const link = runs.link;
  for (int run = 0; run < slab.nrun; ++run) link[run] = link[link[run]];
  std::int64_t squares = 0;
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (!runs.GoesOn(slab, y, z)) return 0;
      const int nrun = runs.CountOf(y, z, slab);
      if (nrun == 0) continue;
      const std::ptrdiff_t bundle = runs.BundleAt(y, z);
      const std::uint64_t* const starts = runs.starts + bundle * nword;
      const RowsOfBundle<connectivity> rows(*runs.nodes, y, z);
      if (nrun == 1) {
        std::int64_t size = 0;
        for (const std::uint64_t* const row : rows.row) {
          for (int word = 0; word < nword; ++word) size += std::popcount(row[word]);
        }
        squares += AddToFirst(link, runs.first[bundle], size);
        continue;
      }
      int run = runs.first[bundle] - 1;
      std::int64_t size = 0;  // of that run
      for (int word = 0; word < nword; ++word) {
        std::uint64_t rest = starts[word];
        std::uint64_t part = (rest & -rest) - 1;  // the nodes before the first start
        for (;;) {
          for (const std::uint64_t* const row : rows.row) size += std::popcount(row[word] & part);
          if (rest == 0) break;
          if (size != 0) squares += AddToFirst(link, run, std::exchange(size, 0));
          ++run;
          const std::uint64_t start = rest & -rest;
          rest ^= start;
          part = (rest & -rest) - start;
        }
      }
      if (size != 0) squares += AddToFirst(link, run, size);
    }
  }
  return squares;
}

KESTRUM_KERNEL_TARGET std::int64_t SumSquares(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  switch (runs.connectivity) {
    case Connectivity::k6:
      return SumSquaresOf<Connectivity::k6>(runs, slab);
    case Connectivity::k18:
      return SumSquaresOf<Connectivity::k18>(runs, slab);
    default:
      return SumSquaresOf<Connectivity::k26>(runs, slab);
  }
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
  int links[1 + kWords * kMarkBlock + 8] = {};
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (!runs.GoesOn(slab, y, z)) return;
      const std::ptrdiff_t bundle = runs.BundleAt(y, z);
      const std::uint64_t* const starts = runs.starts + bundle * nodes.wordsPerRow();
      const int endY = std::min((y + 1) * runs.RowsY(), nodes.ny());
      const int endZ = std::min((z + 1) * runs.RowsZ(), nodes.nz());
      const int* link = runs.link + runs.first[bundle];
      for (int word = 0; word < nodes.wordsPerRow(); word += kWords) {
        int nrun = 0;
        for (int i = word; i < std::min(word + kWords, nodes.wordsPerRow()); ++i) nrun += std::popcount(starts[i]);
        std::copy_n(link, nrun, links + 1);
        const int x = word * kMarkBlock;
        for (int iz = z * runs.RowsZ(); iz < endZ; ++iz) {
          for (int iy = y * runs.RowsY(); iy < endY; ++iy) {
            const std::ptrdiff_t first = (std::ptrdiff_t{iz} * nodes.ny() + iy) * nodes.nx() + x;
            if (first >= nodes.nxyz()) continue;  // the last row may end before
            const int n = std::min({kWords * kMarkBlock, nodes.nx() - x, nodes.nxyz() - static_cast<int>(first)});
            WriteNodes(starts + word, nodes.Row(iy, iz) + word, n, links, labels + first);
          }
        }
        links[0] = links[nrun];
        link += nrun;
      }
    }
  }
}
