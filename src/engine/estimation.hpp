#ifndef KESTRUM_ENGINE_ESTIMATION_HPP
#define KESTRUM_ENGINE_ESTIMATION_HPP

#include "engine/categories.hpp"
#include "engine/local_law.hpp"
#include "engine/problem.hpp"

namespace kestrum {

// Kriging of a continuous variable at the nodes to compute.
//   estimate   in: residuals of the data, missing elsewhere; out: the estimates, where there was a datum the datum. One
//              per node. With a moving neighbourhood the data are the nodes of status 0, with a unique one all that are
//              not missing
//   deviation  out: the standard deviations at the nodes to compute
// Statuses: -71260 a limit of neighbours below 1; -71265, -71266, -71267 the number of data of a unique neighbourhood;
// -1000 aborted; those of the callback and of allocations. The results are partly filled then.
// Warnings: 2001 a neighbour was dropped; 2015 a system failed: its node takes mean and sill.
[[nodiscard]] int Estimate(const Problem& problem, const LocalLaw& law, real* estimate, real* deviation) noexcept;

// Indicator kriging of the categories at the nodes to compute.
//   value        one per node: the data, missing elsewhere
//   probability  out: the probabilities at the nodes to compute, category by category
// Statuses as above. Warnings: 2001; 2015 its category takes the prior probability; 2020 all probabilities of a node
// were zero: they are replaced by the prior ones.
[[nodiscard]] int EstimateCategories(const Problem& problem, const Categories& categories, const real* value,
                                     real* probability) noexcept;

}  // namespace kestrum

#endif
