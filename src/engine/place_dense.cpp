#include "engine/place_dense.hpp"

#include <algorithm>
#include <limits>

#include "numeric/cholesky_layout.hpp"

namespace kestrum {
namespace {

// Blocks of kLanes targets that are solved for at a time: what is loaded of the factor then serves all of them.
constexpr int kBlocks = 16;
// Rounding errors of an element of an inverse are so many times those of a pivot.
constexpr double kRoundingOfInverse = 16.0;

// Makes room for `size` elements, whose values need not stay.
template <typename T>
[[nodiscard]] int MakeRoom(Buffer<T>* buffer, std::size_t size) noexcept {
  return buffer->size() < size ? buffer->Allocate(size) : 0;
}

// Estimates alone, without a solution: nothing is explained.
void SumWithDualWeights(int size, const double* dual, int blocks, const double* b, double* sum, double* explained) {
  std::fill_n(sum, blocks * kLanes, 0.0);
  std::fill_n(explained, blocks * kLanes, 0.0);
  for (int block = 0; block < blocks; ++block) {
    for (int i = 0; i < size; ++i, b += kLanes) {
      for (int l = 0; l < kLanes; ++l) sum[block * kLanes + l] += b[l] * dual[i];
    }
  }
}

// Makes right sides of which number t is the unit vector of row row(t) of `size`.
template <typename Row>
[[nodiscard]] int MakeUnitVectors(int count, int size, const Row& row, Buffer<double>* b) noexcept {
  const std::size_t blockSize = static_cast<std::size_t>(size) * kLanes;
  const std::size_t total = static_cast<std::size_t>((count + kLanes - 1) / kLanes) * blockSize;
  if (const int status = MakeRoom(b, total); status != 0) return status;
  std::fill_n(b->data(), total, 0.0);
  for (int t = 0; t < count; ++t) {
    (*b)[static_cast<std::size_t>(t / kLanes) * blockSize + static_cast<std::size_t>(row(t) * kLanes + t % kLanes)] =
        1.0;
  }
  return 0;
}

// Solves for right sides, so many at a time that a job which is to stop does so soon, and gives kAborted then.
[[nodiscard]] int SolveMany(int n, int q, const double* factor, const double* values, int blocks, double* b,
                            double* estimate, double* explained, bool weights, const Progress& progress,
                            SimdLevel level) noexcept {
  for (int begin = 0; begin < blocks; begin += kBlocks) {
    if (const int status = progress.After(0); status != 0) return status;
    const int count = std::min(kBlocks, blocks - begin);
    double* const own = b + static_cast<std::ptrdiff_t>(begin) * (n + q) * kLanes;
    const std::ptrdiff_t first = std::ptrdiff_t{begin} * kLanes;
    if (weights) {
      KrigingWeights(n, q, factor, count, own, level);
    } else {
      kestrum::Krige(n, q, factor, values, count, own, estimate + first, explained + first, level);
    }
  }
  return 0;
}

// Solves S e = u for the errors of m data that are left out together, with element (i, j) of S from part(i, j), and finds
// their variances. *definite is false if S is not positive definite. Returns 0, the status of a failed
// allocation, or kAborted.
template <typename Part>
[[nodiscard]] int SolveFold(int m, const Part& part, const double* u, PlaceDense::Scratch* scratch, double* error,
                            double* variance, bool* definite, const Progress& progress, SimdLevel level) noexcept {
  const int blocks = (m + kLanes - 1) / kLanes;
  const auto count = static_cast<std::size_t>(m);
  const auto padded = static_cast<std::size_t>(blocks) * kLanes;
  int status = MakeUnitVectors(
      m, m, [](int i) { return i; }, &scratch->right);
  if (status == 0) status = MakeRoom(&scratch->factor, FactorSize(m, 0));
  if (status == 0) status = MakeRoom(&scratch->row, count);
  if (status == 0) status = MakeRoom(&scratch->solved, 2 * padded);
  if (status != 0) return status;
  double* const row = scratch->row.data();
  double* const factor = scratch->factor.data();
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j <= i; ++j) row[j] = part(i, j);
    SetFactorRow(m, i, row, factor);
  }
  *definite = Factorise(Dealing::Serial(), m, 0, factor, level, nullptr, progress);
  if (!*definite) return progress.After(0);
  PrepareValues(m, 0, factor, u, row);
  double* const solved = scratch->solved.data();
  status = SolveMany(m, 0, factor, row, blocks, scratch->right.data(), solved, solved + padded, false, progress, level);
  if (status != 0) return status;
  std::copy_n(solved, m, error);
  std::copy_n(solved + padded, m, variance);
  return 0;
}

}  // namespace

int PlaceDense::targetsTogether() noexcept { return kBlocks * kLanes; }

int PlaceDense::Build(const PlaceDataset& data, const PlaceMembers& members, const TargetCovariance& covariance,
                      const Dealing& dealing, const Progress& progress, SimdLevel level) noexcept {
  n_ = members.n;
  q_ = data.terms.count();
  const auto count = static_cast<std::size_t>(n_);
  const auto size = static_cast<std::size_t>(n_) + static_cast<std::size_t>(q_);
  int status = drift_.Allocate(data.terms);
  if (status == 0) status = MakeRoom(&places_, 3 * count);
  if (status == 0) status = MakeRoom(&datum_, count);
  if (status == 0) status = MakeRoom(&rows_, 4 * size * static_cast<std::size_t>(dealing.nscratch()));
  if (status == 0) status = MakeRoom(&factor_, FactorSize(n_, q_));
  if (status == 0) status = MakeRoom(&values_, size);
  if (status == 0) status = MakeRoom(&dual_, size);
  if (status != 0) return status;
  for (int i = 0; i < n_; ++i) {
    const int position = members.Position(i);
    const auto at = static_cast<std::size_t>(i);
    places_[at] = members.candidates.x[position];
    places_[count + at] = members.candidates.y[position];
    places_[2 * count + at] = members.candidates.z[position];
    datum_[at] = members.Datum(i);
  }
  FillMatrix(data, covariance, dealing, progress);
  flaws_ = {};
  sound_ = Factorise(dealing, n_, q_, factor_.data(), level, &flaws_, progress);
  if (const int stopped = progress.After(0); stopped != 0) return stopped;
  if (!sound_) return 0;
  double* const z = rows_.data();
  for (int i = 0; i < n_; ++i) z[i] = data.residual[static_cast<std::size_t>(datum_[static_cast<std::size_t>(i)])];
  PrepareValues(n_, q_, factor_.data(), z, values_.data());
  std::copy_n(values_.data(), size, dual_.data());
  DualWeights(n_, q_, factor_.data(), dual_.data());
  return 0;
}

void PlaceDense::FillMatrix(const PlaceDataset& data, const TargetCovariance& covariance, const Dealing& dealing,
                            const Progress& progress) noexcept {
  const PlaceVectors at = places();
  dealing.EachThread([&](int thread, int team) noexcept {
    double* const row = rows_.data() + std::ptrdiff_t{4} * (n_ + q_) * thread;
    double* const dx = row + n_ + q_;
    double* const dy = dx + n_ + q_;
    double* const dz = dy + n_ + q_;
    for (int i = thread; i < n_ && !progress.Aborted(); i += team) {
      for (int j = 0; j < i; ++j) {
        dx[j] = at.x[i] - at.x[j];
        dy[j] = at.y[i] - at.y[j];
        dz[j] = at.z[i] - at.z[j];
      }
      covariance.BetweenData(i, dx, dy, dz, row);
      row[i] = covariance.dataVariance();
      if (data.errorVariance)
        row[i] += data.errorVariance[static_cast<std::size_t>(datum_[static_cast<std::size_t>(i)])];
      SetFactorRow(n_, i, row, factor_.data());
    }
  });
  if (q_ == 0) return;
  const auto variable = [&](int v, int i) {
    return data.Variable(v, at.x[i], at.y[i], at.z[i], datum_[static_cast<std::size_t>(i)]);
  };
  drift_.Fit(n_, variable);
  double* const row = rows_.data();
  for (int k = 0; k < q_; ++k) {
    for (int i = 0; i < n_; ++i) {
      drift_.Terms([&](int v) { return variable(v, i); }, nullptr,
                   [&](int term, double value) {
                     if (term == k) row[i] = value;
                   });
    }
    SetFactorRow(n_, n_ + k, row, factor_.data());
  }
}

int PlaceDense::Krige(const PlaceRun& run, const TargetCovariance& covariance, int ntarget, const PlaceTarget* targets,
                      Scratch* scratch, PlaceKrigingReport* report) const noexcept {
  const int size = n_ + q_;
  if (!sound_) {
    (flaws_.dependent ? report->undetermined : report->indefinite) += ntarget;
    for (int t = 0; t < ntarget; ++t) run.WriteNothing(targets[t].number, n_);
    return 0;
  }
  if (flaws_.redundant > 0) report->redundant += ntarget;
  const PlaceKrigingResults& results = run.results;
  const bool solve = results.variance != nullptr || results.weights != nullptr;
  const std::size_t blockSize = static_cast<std::size_t>(size) * kLanes;
  if (const int status = MakeRoom(&scratch->b, kBlocks * blockSize); status != 0) return status;
  double* const b = scratch->b.data();
  for (int begin = 0; begin < ntarget; begin += kBlocks * kLanes) {
    if (const int stopped = run.progress.After(0); stopped != 0) return stopped;
    const int count = std::min(kBlocks * kLanes, ntarget - begin);
    const int blocks = (count + kLanes - 1) / kLanes;
    for (int block = 0; block < blocks; ++block) {
      PlaceTarget own[kLanes];
      for (int l = 0; l < kLanes; ++l) own[l] = targets[begin + std::min(block * kLanes + l, count - 1)];
      double* const right = b + static_cast<std::size_t>(block) * blockSize;
      CovariancesWithTargets(covariance, n_, places(), 1, own, run.level, right);
      for (int l = 0; l < kLanes; ++l) run.WriteDrift(drift_, own[l], right + n_ * kLanes + l);
    }
    alignas(64) double sum[kBlocks * kLanes];
    alignas(64) double explained[kBlocks * kLanes];
    if (solve) {
      kestrum::Krige(n_, q_, factor_.data(), values_.data(), blocks, b, sum, explained, run.level);
    } else {
      SumWithDualWeights(size, dual_.data(), blocks, b, sum, explained);
    }
    if (results.weights != nullptr) KrigingWeights(n_, q_, factor_.data(), blocks, b, run.level);
    for (int t = 0; t < count; ++t) {
      const std::int64_t target = targets[begin + t].number;
      const double* const own = b + static_cast<std::size_t>(t / kLanes) * blockSize + t % kLanes;
      run.WriteWeights(target, {n_, nullptr, {}, datum_.data()}, [&](int i) { return own[i * kLanes]; });
      run.Write(target, n_, sum[t], explained[t], covariance.targetVariance(), report);
    }
  }
  return 0;
}

int PlaceDense::LeaveOut(const PlaceDataset& data, const PlaceFolds& folds, int begin, int end,
                         const PlaceKrigingResults& results, Scratch* scratch, PlaceKrigingReport* report,
                         const Progress& progress, SimdLevel level) const noexcept {
  const int size = n_ + q_;
  const int* const member = folds.member + folds.start[begin];
  const int total = folds.start[end] - folds.start[begin];
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  for (int t = 0; t < total; ++t) results.estimate[member[t]] = results.variance[member[t]] = kNone;
  if (!sound_) {
    (flaws_.dependent ? report->undetermined : report->indefinite) += total;
    return 0;
  }
  const int blocks = (total + kLanes - 1) / kLanes;
  const auto padded = static_cast<std::size_t>(blocks) * kLanes;
  int status = MakeUnitVectors(
      total, size, [&](int t) { return member[t]; }, &scratch->b);
  if (status == 0) status = MakeRoom(&scratch->sums, 5 * padded);
  if (status != 0) return status;
  double* const product = scratch->sums.data();  // of M and the values
  double* const diagonal = product + padded;     // of M
  double* const extent = diagonal + padded;      // what the rounding of a diagonal element is relative to
  double* const error = extent + padded;
  double* const variance = error + padded;
  const double* const inverse = factor_.data() + InversePivotsStart(size);
  const double* const drift = factor_.data() + DriftExtentsStart(size);
  double* const b = scratch->b.data();
  const auto element = [&](int t, int i) {
    return b[(static_cast<std::ptrdiff_t>(t / kLanes) * size + i) * kLanes + t % kLanes];
  };
  const auto solve = [&](bool weights) {
    return SolveMany(n_, q_, factor_.data(), values_.data(), blocks, b, product, diagonal, weights, progress, level);
  };
  if (status = solve(false); status != 0) return status;
  for (int t = 0; t < total; ++t) {
    extent[t] = 0.0;
    for (int i = member[t]; i < size; ++i) {
      const double part = element(t, i) * element(t, i) * inverse[i];
      extent[t] += i < n_ ? part : part * (inverse[i] * drift[i - n_]);
    }
  }
  if (total > end - begin) {
    if (status = solve(true); status != 0) return status;
  }

  int first = 0;
  for (int fold = begin; fold < end; ++fold) {
    const int m = folds.start[fold + 1] - folds.start[fold];
    const int* const own = member + first;
    bool determined = true;
    if (m == 1) {
      error[first] = product[first] / diagonal[first];
      variance[first] = 1.0 / diagonal[first];
    } else {
      // A datum that the system leaves out has a row of zeros.
      const auto part = [&](int i, int j) {
        return i == j && inverse[own[i]] == 0.0 ? 1.0 : element(first + j, own[i]);
      };
      status =
          SolveFold(m, part, product + first, scratch, error + first, variance + first, &determined, progress, level);
      if (status != 0) return status;
    }
    for (int t = first; t < first + m; ++t) {
      // One this large is nothing but rounding: the drift is not determined without the fold.
      const double most = 1.0 / (kRoundingOfInverse * PivotRounding(size) * extent[t]);
      determined = determined && (inverse[member[t]] == 0.0 || (variance[t] > 0.0 && variance[t] < most));
    }
    for (int t = first; t < first + m; ++t) {
      const auto datum = static_cast<std::size_t>(member[t]);
      if (inverse[datum] == 0.0) {
        ++report->redundant;
      } else if (!determined) {
        ++report->undetermined;
      } else {
        const double noise = data.errorVariance ? data.errorVariance[datum] : 0.0;
        results.estimate[datum] = data.center + (data.residual[datum] - error[t]);
        results.variance[datum] = std::max(variance[t] - noise, 0.0);
      }
    }
    first += m;
  }
  return 0;
}

}  // namespace kestrum
