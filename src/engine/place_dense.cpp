#include "engine/place_dense.hpp"

#include <algorithm>

namespace kestrum {
namespace {

// Blocks of kLanes targets that are solved for at a time: what is loaded of the factor then serves all of them.
constexpr int kBlocks = 16;

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

}  // namespace

int PlaceDense::Build(const PlaceDataset& data, const PlaceMembers& members, const TargetCovariance& covariance,
                      const Dealing& dealing, SimdLevel level) noexcept {
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
  FillMatrix(data, covariance, dealing);
  flaws_ = {};
  sound_ = Factorise(dealing, n_, q_, factor_.data(), level, &flaws_);
  if (!sound_) return 0;
  double* const z = rows_.data();
  for (int i = 0; i < n_; ++i) z[i] = data.residual[static_cast<std::size_t>(datum_[static_cast<std::size_t>(i)])];
  PrepareValues(n_, q_, factor_.data(), z, values_.data());
  std::copy_n(values_.data(), size, dual_.data());
  DualWeights(n_, q_, factor_.data(), dual_.data());
  return 0;
}

void PlaceDense::FillMatrix(const PlaceDataset& data, const TargetCovariance& covariance,
                            const Dealing& dealing) noexcept {
  const PlaceVectors at = places();
  dealing.EachThread([&](int thread, int team) noexcept {
    double* const row = rows_.data() + std::ptrdiff_t{4} * (n_ + q_) * thread;
    double* const dx = row + n_ + q_;
    double* const dy = dx + n_ + q_;
    double* const dz = dy + n_ + q_;
    for (int i = thread; i < n_; i += team) {
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
    const int count = std::min(kBlocks * kLanes, ntarget - begin);
    const int blocks = (count + kLanes - 1) / kLanes;
    for (int block = 0; block < blocks; ++block) {
      PlaceTarget own[kLanes];
      for (int l = 0; l < kLanes; ++l) own[l] = targets[begin + std::min(block * kLanes + l, count - 1)];
      double* const right = b + static_cast<std::size_t>(block) * blockSize;
      CovariancesWithTargets(covariance, n_, places(), 1, own, right);
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

}  // namespace kestrum
