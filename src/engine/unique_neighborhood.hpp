#ifndef KESTRUM_ENGINE_UNIQUE_NEIGHBORHOOD_HPP
#define KESTRUM_ENGINE_UNIQUE_NEIGHBORHOOD_HPP

#include <algorithm>

#include "core/buffer.hpp"
#include "core/image.h"
#include "core/node_coordinates.hpp"
#include "core/object_array.hpp"
#include "core/parallel.hpp"
#include "engine/kriging.hpp"
#include "numeric/gmres.hpp"
#include "numeric/gmres_batch.hpp"

namespace kestrum {

// The data of a unique neighbourhood: all informed nodes of an image, in node order. Places are counted from the centre
// of the first cell.
struct UniqueData {
  int n = 0;
  Buffer<real> x, y, z;
  Buffer<real> value;
  Buffer<int> node;

  // At most `limit` data are accepted. Statuses: -71265 limit below 1, -71266 more data, -71267 none.
  [[nodiscard]] int Gather(const VORL_IMAGE& image, int limit) noexcept;
  // Turns the places into the model's axes.
  void Rotate(const Rotation& rotation, Dealing dealing) noexcept;
};

// The one matrix of all systems of a unique neighbourhood, and the solution for any node.
class UniqueSystem {
 public:
  // Attempts for a node: the matrix is shared, so that no neighbour can be dropped.
  static constexpr int kMaxAttempt = 5;

  // What one thread needs.
  struct Scratch {
    Buffer<real> lag;                            // and the covariances of one node
    Buffer<real> rhs, weight, work;              // of kLanes systems
    Buffer<real> loneRhs, loneWeight, loneWork;  // of one system
    VORL_RANDCONTEXT context;
  };

  // inModelAxes: the data have been rotated; otherwise each lag is.
  [[nodiscard]] int Build(const KrigingModel& model, const UniqueData& data, bool inModelAxes,
                          Dealing dealing) noexcept;
  [[nodiscard]] int AllocateScratch(Scratch& scratch) const noexcept;

  // Solves for nodes[0] to nodes[count - 1]. done(i, weights) is called for each, with an m of 0 if the solver gave up;
  // the weights are valid during that call only.
  template <typename Done>
  void Solve(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch, const Done& done) const noexcept {
    for (int begin = 0; begin < count; begin += kLanes) {
      const int nlane = std::min(kLanes, count - begin);
      const unsigned converged = SolveLanes(grid, nodes + begin, nlane, scratch);
      for (int lane = 0; lane < nlane; ++lane) {
        if ((converged >> lane & 1u) != 0) {
          done(begin + lane,
               KrigingWeights{data_->n, scratch.weight.data() + lane, scratch.rhs.data() + lane, kLanes, model_->sill});
        } else {
          const int m = SolveAlone(lane, scratch) ? data_->n : 0;
          done(begin + lane, KrigingWeights{m, scratch.loneWeight.data(), scratch.loneRhs.data(), 1, model_->sill});
        }
      }
    }
  }

 private:
  // The first attempt for up to kLanes nodes; gives the lanes that converged.
  unsigned SolveLanes(const VORL_GRID& grid, const int* nodes, int nlane, Scratch& scratch) const noexcept;
  // The attempts after it for one lane.
  bool SolveAlone(int lane, Scratch& scratch) const noexcept;

  const KrigingModel* model_ = nullptr;
  const UniqueData* data_ = nullptr;
  bool inModelAxes_ = false;
  int size_ = 0;
  GmresLimits limits_{};
  Buffer<real> matrix_;  // with rows of `size_` elements
  FirstGuess guess_;
};

}  // namespace kestrum

#endif
