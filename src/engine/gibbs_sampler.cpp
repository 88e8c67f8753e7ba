#include "engine/gibbs_sampler.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "numeric/normal_law.hpp"

namespace kestrum {
namespace {

// The part of [0, 1] that the uniform number of a node with bounds is drawn from.
struct UniformRange {
  real low;
  real width;
  bool relaxed;  // the bounds leave too little, and have been given up in part
};

// nodeStatus: -1 lower bound, -2 upper bound, -3 both; (bound - mean) / deviation as `lower` and `upper`.
UniformRange TruncatedRange(const NormalLaw& normal, int nodeStatus, real lower, real upper) noexcept {
  constexpr real kLeast = VORL_EPSILON;
  if (nodeStatus == -2) {
    const real width = normal.cdf(upper);
    if (width >= kLeast) return {0.0, width, false};
    return {0.0, kLeast, true};
  }
  if (nodeStatus == -1) {
    const real low = normal.cdf(lower);
    if (1.0 - low >= kLeast) return {low, 1.0 - low, false};
    return {0.9999999999, 1.000000082740371e-10, true};
  }
  if (nodeStatus != -3) return {0.0, 1.0, false};
  const real low = normal.cdf(lower);
  const real high = normal.cdf(upper);
  if (high - low >= kLeast) return {low, high - low, false};
  // Crossed, which is deliberate: each end is moved across the other.
  const real a = std::min(1.0, low + 0.5 * kLeast);
  const real b = std::max(0.0, high - 0.5 * kLeast);
  if (a - b >= kLeast) return {b, a - b, true};
  const real c = std::max(0.0, a - 0.5 * kLeast);
  const real e = std::min(1.0, b + 0.5 * kLeast);
  return {c, e - c, true};
}

}  // namespace

int SolvedInequalityNodes::Prepare(const Problem& problem, int capacity) noexcept {
  constexpr std::int64_t kBytesBasic = 1 << 20;
  constexpr std::int64_t kBytesPerGridNode = 8;
  const std::int64_t n = problem.path.firstSimulated - problem.path.firstInequality;
  const std::int64_t bytes = n * (static_cast<std::int64_t>(sizeof(SolvedSystem) + sizeof(int)) +
                                  capacity * static_cast<std::int64_t>(sizeof(int) + sizeof(real)));
  if (n < 1 || bytes > kBytesBasic + kBytesPerGridNode * problem.grid.nxyz) return 0;
  int status = node_.Allocate(n);
  if (status == 0) status = store_.Allocate(n, capacity);
  if (status != 0) return status;
  std::copy_n(problem.path.nodes + problem.path.firstInequality, n, node_.data());
  std::sort(node_.begin(), node_.end());
  return 0;
}

int GibbsSampler::Run(RandomSource& random, PathRanks& ranks, const NodeBits& before, ChunkSolver& scratch) noexcept {
  const int n = last_ - first_;
  const double unit = 1.0 / (problem_.path.nnode - first_);
  const Progress& progress = problem_.progress();
  PassFlags flags;
  bool clean = false;
  ranks.Sort(problem_, first_, last_);
  for (int pass = 0; pass < plan_.passMax; ++pass) {
    if (clean && pass >= plan_.passMin) break;
    if (const int status = progress.Publish(pass * unit / plan_.passMax * n); status != 0) return status;
    if (const int status = progress.Interruption(); status != 0) return status;
    if (const int status = random.Shuffle(problem_.path.nodes + first_, n); status != 0) return status;
    if (pass == 0) ranks.Number(problem_, first_, last_);
    random.StartStretch(first_, n, pass);
    flags = Pass(pass, random, ranks, before, scratch);
    clean = flags.clean();
    random.EndStretch();
  }
  const struct {
    bool raised;
    int number;
  } warnings[] = {{flags.dropped, kNeighborDroppedByGibbs},
                  {flags.gaveUp, kSystemFailedInGibbs},
                  {flags.varianceRaised, kVarianceRaised},
                  {flags.relaxed, kBoundsRelaxed}};
  for (const auto& [raised, number] : warnings) {
    if (raised) progress.Warn(number);
  }
  return progress.Publish(n * unit);
}

GibbsSampler::PassFlags GibbsSampler::Pass(int pass, const RandomSource& random, const PathRanks& ranks,
                                           const NodeBits& before, ChunkSolver& scratch) noexcept {
  PassFlags flags;
  for (int begin = first_, count = 0; begin < last_; begin += count) {
    count = std::min(kMaxChunk, last_ - begin);
    const bool found = pass > 0 && solvedNodes_.complete();
    if (!found) Solve(pass, begin, count, ranks, before, scratch);
    for (int i = 0; i < count; ++i) {
      const int node = problem_.path.nodes[begin + i];
      if (!found && pass > 0 && solvedNodes_.wanted()) solvedNodes_.Keep(node, scratch.chunk[i]);
      Draw(node, found ? solvedNodes_.Find(node) : scratch.chunk[i], random, begin - first_ + i, flags);
    }
  }
  return flags;
}

void GibbsSampler::Solve(int pass, int begin, int count, const PathRanks& ranks, const NodeBits& before,
                         ChunkSolver& scratch) const noexcept {
  auto& [solver, chunk] = scratch;
  const int* const nodes = problem_.path.nodes + begin;
  chunk.Start(nodes, count);
  for (int i = 0; i < count; ++i) {
    // In the first pass only the nodes that have got a value in it are seen, later all the others.
    const int own = pass == 0 ? PathRanks::AtPosition(begin + i) : PathRanks::kNever;
    const int m = WalkNeighbors(
        systems_.list(), nodes[i], before,
        [&, own, node = nodes[i]](int b) noexcept { return ranks[b] < own && b != node; }, chunk.entries(i));
    chunk.SetNeighbors(i, m);
  }
  solver.Solve(systems_, chunk);
}

void GibbsSampler::Draw(int node, const SolvedNode& solved, const RandomSource& random, int i,
                        PassFlags& flags) noexcept {
  flags.dropped |= solved.system.ndropped > 0;
  flags.gaveUp |= solved.system.gaveUp;
  const auto [mean, variance] = MomentsAt(node, solved, systems_.list().shift, law_, value_);
  real deviation = std::sqrt(variance);
  if (variance < VORL_EPSILON) {
    deviation = 1e-5;
    flags.varianceRaised = true;
  }
  const auto& [nodeStatus, known, uniqueMax, minimum, maximum, bounded] = problem_.data;
  const int status = nodeStatus[node];
  const real lower = status == -1 || status == -3 ? (minimum[node] - mean) / deviation : 0.0;
  const real upper = status == -2 || status == -3 ? (maximum[node] - mean) / deviation : 0.0;
  const UniformRange range = TruncatedRange(random.normal(), status, lower, upper);
  flags.relaxed |= range.relaxed;
  double number;
  random.Draw(i, 1, &node, &number);
  value_[node] = mean + deviation * random.normal().quantile(range.width * number + range.low);
}

}  // namespace kestrum
