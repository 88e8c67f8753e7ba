#ifndef KESTRUM_ENGINE_SIMULATION_HPP
#define KESTRUM_ENGINE_SIMULATION_HPP

#include "engine/categories.hpp"
#include "engine/local_law.hpp"
#include "engine/problem.hpp"
#include "engine/random_source.hpp"

namespace kestrum {

// How often the Gibbs sampler passes over the nodes with bounds: until a pass needed no corrective step, within these
// limits.
struct GibbsPlan {
  int passMin;
  int passMax;
};

// Takes the realizations one by one. A status other than 0 ends the simulation.
class RealizationSink {
 public:
  // Before realization r is drawn.
  virtual void Begin(int r) noexcept = 0;
  // The values of realization r are complete.
  [[nodiscard]] virtual int End(int r) noexcept = 0;

 protected:
  ~RealizationSink() = default;
};

// Sequential Gaussian simulation of a continuous variable: `count` realizations.
//   value  out: the values of the realization at hand, one per node
// Statuses: -71260 a limit of neighbours below 1; -1000 aborted; those of the callback, of the sink and of allocations.
// Warnings: 2001 a neighbour was dropped; 2015 a system failed: its node is drawn as if it had no neighbour. After the
// last Gibbs pass that needed corrective steps: 2002, 2016, 2012 (variance raised), 2005 (bounds relaxed).
[[nodiscard]] int Simulate(const Problem& problem, const LocalLaw& law, const GibbsPlan& gibbs, int count,
                           RandomSource& random, real* value, RealizationSink& sink) noexcept;

// Sequential indicator simulation of categories, which have no bounds. Warnings 2001, 2015 as above; 2020 all
// probabilities of a node were zero: they are replaced by the prior ones.
[[nodiscard]] int SimulateCategories(const Problem& problem, const Categories& categories, int count,
                                     RandomSource& random, real* value, RealizationSink& sink) noexcept;

}  // namespace kestrum

#endif
