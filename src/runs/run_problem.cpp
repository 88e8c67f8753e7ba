#include "runs/run_problem.hpp"

#include "runs/run_input_shared.hpp"

namespace kestrum {

KrigingModel MakeKrigingModel(VORL_COVMODEL* covModel, BOOLEAN ordinaryKriging, BOOLEAN rotationStationary,
                              BOOLEAN weightStationary, BOOLEAN covModelStationary, real sill,
                              const real* const* rotationMatrix) noexcept {
  KrigingModel model;
  model.covModel = covModel;
  model.ordinaryKriging = ordinaryKriging != 0;
  model.rotationStationary = rotationStationary != 0;
  model.weightStationary = weightStationary != 0;
  model.covModelStationary = covModelStationary != 0;
  model.sill = sill;
  model.SetRotation(rotationMatrix);
  return model;
}

int CategorySetups::Fill(const CategoryArguments& given, bool uniqueAllowed) noexcept {
  const VORL_KESTRUMINDICATORINPUT& input = given.input;
  const int ncategory = input.ncategory;
  if (const int status = setups_.Allocate(ncategory > 0 ? ncategory : 0); status != 0) return status;
  for (int c = 0; c < ncategory; ++c) {
    setups_[c].model = MakeKrigingModel(&input.covModel[c], given.ordinaryKriging, given.rotationStationary[c],
                                        given.weightStationary[c], given.covModelStationary[c], given.sill[c],
                                        given.rotationMatrix[c]);
    const bool unique = uniqueAllowed && input.searchRadiusRelative[c] == kUniqueNeighborhood;
    setups_[c].neighbors =
        unique ? NeighborList{} : NeighborList{&given.offsets[c], given.shift[c], given.limit[c], given.grid};
  }
  return 0;
}

LocalLaw LawOf(const VORL_KESTRUMINPUT& input) noexcept {
  using Variance = LocalLaw::Variance;
  const Variance variance = input.varianceUsage == 0   ? Variance::kOfModel
                            : input.varianceUsage == 1 ? Variance::kConstant
                                                       : Variance::kPerNode;
  return {input.meanUsage == 2 ? input.meanImage->var : nullptr, input.meanValue, variance, input.varianceValue,
          variance == Variance::kPerNode ? input.varianceImage->var : nullptr};
}

Categories CategoriesOf(const VORL_KESTRUMINDICATORINPUT& input, bool ordinaryKriging) noexcept {
  const bool perNode = input.probabilityUsage == 2;
  return {input.ncategory, input.categoryValue, perNode ? input.probabilityImage->var : input.probabilityValue,
          perNode ? input.probabilityImage->grid->nxyz : 0, ordinaryKriging};
}

}  // namespace kestrum
