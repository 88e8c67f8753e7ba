#ifndef KESTRUM_ANALYSIS_LLOYD_HPP
#define KESTRUM_ANALYSIS_LLOYD_HPP

#include <cstddef>
#include <cstdint>

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

struct LloydSamples {
  std::ptrdiff_t n;
  int nfeature;
  const double* features;  // nfeature runs of n finite numbers
};

struct LloydOptions {
  int ncluster;  // at most n
  int maxIterations;
  double
      tolerance;  // the sum of the squared moves of the centres, over the mean variance of the features, that ends it
  int restarts;   // from drawn centres; 0: from those given
  std::uint64_t seed;
};

// Clusters around moving centres (Lloyd, Least squares quantization in PCM, 1982), begun at given ones, or at samples
// drawn with a probability proportional to the squared distance from those drawn before (Arthur and Vassilvitskii,
// k-means++: the advantages of careful seeding, 2007); of several beginnings the one of the least inertia is kept. A
// cluster that loses its samples takes the one farthest from its centre. No sum depends on the threads.
//   centers  in and out, ncluster runs of nfeature
//   labels   out, n: the nearest centre, the first of several
//   inertia  out: the sum of the squared distances from these centres
[[nodiscard]] int RunLloyd(const LloydSamples& samples, const LloydOptions& options, const Dealing& dealing,
                           const Progress& progress, double* centers, int* labels, double* inertia) noexcept;

}  // namespace kestrum

#endif
