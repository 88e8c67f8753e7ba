#ifndef KESTRUM_ANALYSIS_GEOBODY_RUNS_HPP
#define KESTRUM_ANALYSIS_GEOBODY_RUNS_HPP

#include <cstdint>

#include "analysis/geobodies.hpp"

namespace kestrum {

// The steps of GeobodyFinder, slab by slab. They end early where progress is aborted.

// Sets the starts of the runs and their number, and `first` as if the slab's first run were 0.
void FindRuns(const BundledRuns& runs, BundleSlab& slab) noexcept;

// Numbers the runs from `firstRun` on, each of which is a geobody of its own.
void SetFirstRun(const BundledRuns& runs, int firstRun, BundleSlab& slab) noexcept;

// Joins the runs of a slab to each other or, across its border, to those of the slab before.
void JoinRuns(const BundledRuns& runs, const BundleSlab& slab, bool across) noexcept;

// The number of geobodies that begin in the slab, whose runs are joined, also to the slab before.
int CountGeobodies(const BundledRuns& runs, const BundleSlab& slab) noexcept;

// Gives each run the number of its geobody, from slab.before + 1 on in the order of their first nodes, with a minus; or
// a link to an earlier slab. A geobody that comes from there has its root, and its first node, there.
void NumberRuns(const BundledRuns& runs, BundleSlab& slab) noexcept;

// The sum of the squared sizes of the geobodies of the only slab. Destroys the links.
std::int64_t SumOfSquaredSizes(const BundledRuns& runs, const BundleSlab& slab) noexcept;

// Writes the labels of the nodes, 0 where there is no mark.
void WriteLabels(const BundledRuns& runs, const BundleSlab& slab, int* labels) noexcept;
void WriteLabels(const BundledRuns& runs, const BundleSlab& slab, real* labels) noexcept;

}  // namespace kestrum

#endif
