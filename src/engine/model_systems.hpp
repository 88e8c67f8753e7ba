#ifndef KESTRUM_ENGINE_MODEL_SYSTEMS_HPP
#define KESTRUM_ENGINE_MODEL_SYSTEMS_HPP

#include <algorithm>

#include "core/object_array.hpp"
#include "engine/categories.hpp"
#include "engine/system_solver.hpp"

namespace kestrum {

// What simulations share of the systems of all models: tables of covariances above all. Any number of simulations may use
// it at a time.
class ModelSystems {
 public:
  // The setups must outlive the systems.
  [[nodiscard]] int Prepare(std::span<const ModelSetup> setups) noexcept {
    if (const int status = groups_.Find(setups); status != 0) return status;
    if (const int status = systems_.Allocate(static_cast<int>(setups.size())); status != 0) return status;
    for (std::size_t c = 0; c < setups.size(); ++c) {
      if (!groups_.isFirst(static_cast<int>(c))) continue;
      const auto& [model, neighbors] = setups[c];
      if (const int status = systems_[c].Prepare(model, neighbors, groups_.count()); status != 0) return status;
      capacity_ = std::max(capacity_, systems_[c].capacity());
    }
    return 0;
  }

  const CategoryGroups& groups() const noexcept { return groups_; }
  // Of the first category of a group.
  const MovingSystems& operator[](int c) const noexcept { return systems_[static_cast<std::size_t>(c)]; }
  // The largest of all.
  int capacity() const noexcept { return capacity_; }

 private:
  CategoryGroups groups_;
  ObjectArray<MovingSystems> systems_;
  int capacity_ = 1;
};

}  // namespace kestrum

#endif
