#include "paths/search_neighborhood_parameters.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include "core/constants.h"
#include "core/node_coordinates.hpp"
#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "covariance/cov_evaluation.hpp"
#include "neighborhood/search_neighborhood.hpp"
#include "paths/parameter_reader.hpp"

static_assert(std::is_standard_layout_v<VORL_SEARCHNEIGHBORHOODPARAMETERS>);
static_assert(sizeof(VORL_SEARCHNEIGHBORHOODPARAMETERS) == 104);

namespace kestrum {
namespace {

constexpr Mode kRadiusModes[] = {
    {"SEARCHNEIGHBORHOOD_RADIUS_LARGE_DEFAULT", "large search radii, automatically computed"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_DEFAULT", "from the variogram ranges"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE", "the same, independently"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XY", "the same, rx = ry"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XZ", "the same, rx = rz"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_YZ", "the same, ry = rz"},
    {"SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XYZ", "the same, rx = ry = rz"},
    {"SEARCHNEIGHBORHOOD_RADIUS_MANUAL", "search radii specified by user"},
};

constexpr Mode kAnisotropyRatioModes[] = {
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_ONE", "ax = ay = az = 1, isotropic distance"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS", "ax = rx, ay = ry, az = rz"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XY", "ax = ay = max(rx, ry), az = rz"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XZ", "ax = az = max(rx, rz), ay = ry"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_YZ", "ay = az = max(ry, rz), ax = rx"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XYZ", "ax = ay = az = max(rx, ry, rz)"},
    {"SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL", "ratios specified by user"},
};

constexpr Mode kRotationModes[] = {{"SEARCHNEIGHBORHOOD_ROTATION_OFF"}, {"SEARCHNEIGHBORHOOD_ROTATION_ON"}};

template <int kCount>
void PrintMode(std::FILE* stream, const char* prefix, const char* name, const Mode (&modes)[kCount],
               int number) noexcept {
  const Mode* const mode = FindMode(modes, number);
  if (mode == nullptr) {
    std::fprintf(stream, "%s%s: unknown\n", prefix, name);
  } else {
    std::fprintf(stream, "%s%s: %s (%s)\n", prefix, name, mode->word, mode->meaning);
  }
}

bool IsRotated(const VORL_SEARCHNEIGHBORHOODPARAMETERS& p) noexcept {
  return p.angle1 != 0.0 || p.angle2 != 0.0 || p.angle3 != 0.0;
}

// A radius cut to whole nodes. Nothing can be counted beyond the limit, and a NaN counts as a negative radius.
int WholeRadius(real radius) noexcept {
  constexpr int kLimit = 1 << 30;
  if (!(radius > -kLimit)) return -kLimit;
  return radius < kLimit ? static_cast<int>(radius) : kLimit;
}

// The coefficient of a squared coordinate in the equation of the ellipsoid.
real EllipsoidCoefficient(real radius) noexcept {
  constexpr real kClosed = 9.999999999999998e+19;  // lets no offset through but 0
  return radius > 0.0 ? 1.0 / (radius * radius) : kClosed;
}

void ComputeWeights(const VORL_SEARCHNEIGHBORHOODPARAMETERS& p, VORL_SEARCHNEIGHBORHOOD& list) noexcept {
  if (p.power == 0.0) {
    std::fill_n(list.weight, list.size, 1.0);
    return;
  }
  std::copy_n(list.distance, list.size, list.weight);
  list.weight[0] = 0.5 * std::min({1.0 / p.ax, 1.0 / p.ay, 1.0 / p.az});
  if (p.power == 1.0) return;
  for (int e = 0; e < list.size; ++e) list.weight[e] = std::pow(list.weight[e], p.power);
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

void VORLInitSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters) noexcept { *parameters = {}; }

int VORLCmpSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters1,
                                        VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters2) noexcept {
  using Parameters = VORL_SEARCHNEIGHBORHOODPARAMETERS;
  for (const auto field :
       {&Parameters::rx, &Parameters::ry, &Parameters::rz, &Parameters::ax, &Parameters::ay, &Parameters::az,
        &Parameters::angle1, &Parameters::angle2, &Parameters::angle3, &Parameters::power}) {
    if (parameters1->*field != parameters2->*field) return 1;
  }
  return 0;
}

int VORLReadSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, BOOLEAN fullForm,
                                         FILE* stream) noexcept {
  auto& p = *parameters;
  int rotation = TRUE;
  if (!fullForm) {
    p.radiusMode = SEARCHNEIGHBORHOOD_RADIUS_MANUAL;
    p.anisotropyRatioMode = SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL;
  }
  if (fullForm && !TakeMode(stream, kRadiusModes, &p.radiusMode)) return kReadSearchRadiusMode;
  if (p.radiusMode == SEARCHNEIGHBORHOOD_RADIUS_MANUAL) {
    if (const int status = TakeReals(stream, kReadSearchRadius, {&p.rx, &p.ry, &p.rz}); status != 0) return status;
  }
  if (fullForm && !TakeMode(stream, kAnisotropyRatioModes, &p.anisotropyRatioMode)) return kReadSearchAnisotropyMode;
  if (p.anisotropyRatioMode == SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL) {
    if (const int status = TakeReals(stream, kReadSearchAnisotropy, {&p.ax, &p.ay, &p.az}); status != 0) return status;
  }
  if (fullForm && !TakeMode(stream, kRotationModes, &rotation)) return kReadSearchRotationFlag;
  p.rotationFlag = rotation != 0;
  if (p.rotationFlag) {
    if (const int status = TakeReals(stream, kReadSearchAngle, {&p.angle1, &p.angle2, &p.angle3}); status != 0)
      return status;
  }
  return TakeReals(stream, kReadSearchPower, {&p.power});
}

int VORLPrintSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, char* prefix,
                                          FILE* stream) noexcept {
  const auto& p = *parameters;
  const PlainNumbers plainNumbers;
  PrintMode(stream, prefix, "radiusMode", kRadiusModes, p.radiusMode);
  PrintMode(stream, prefix, "anisotropyRatioMode", kAnisotropyRatioModes, p.anisotropyRatioMode);
  const int rotation = p.rotationFlag != 0;
  std::fprintf(stream, "%srotationFlag: %d (%s)\n", prefix, rotation, kRotationModes[rotation].word);
  std::fprintf(stream, "%sSearch radii (in number of nodes)        : %14.6f %14.6f %14.6f\n", prefix, p.rx, p.ry, p.rz);
  std::fprintf(stream, "%sAnisotropy ratios (inverse distance unit): %14.6f %14.6f %14.6f\n", prefix, p.ax, p.ay, p.az);
  std::fprintf(stream, "%sAngles (azimuth, dip, plunge) in degrees : %14.6f %14.6f %14.6f\n", prefix, p.angle1,
               p.angle2, p.angle3);
  std::fprintf(stream, "%sPower (at which the distance is raised)  : %14.6f\n", prefix, p.power);
  return 0;
}

int VORLValidateSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, int* error) noexcept {
  auto& p = *parameters;
  const auto verdict = [&p]() noexcept -> int {
    if (FindMode(kRadiusModes, p.radiusMode) == nullptr) return kSearchRadiusMode;
    if (p.radiusMode == SEARCHNEIGHBORHOOD_RADIUS_MANUAL) {
      if (p.rx < 0.0) return kSearchRadiusX;
      if (p.ry < 0.0) return kSearchRadiusY;
      if (p.rz < 0.0) return kSearchRadiusZ;
    }
    if (FindMode(kAnisotropyRatioModes, p.anisotropyRatioMode) == nullptr) return kSearchAnisotropyMode;
    if (p.anisotropyRatioMode == SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL) {
      if (p.ax < VORL_MIN_ANISOTROPY_RATIO) return kSearchAnisotropyX;
      if (p.ay < VORL_MIN_ANISOTROPY_RATIO) return kSearchAnisotropyY;
      if (p.az < VORL_MIN_ANISOTROPY_RATIO) return kSearchAnisotropyZ;
    }
    return 0;
  };
  *error = verdict();
  if (*error == 0) p.rotationFlag = IsRotated(p);
  return 0;
}

int VORLBuildSearchNeighborhood(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters,
                                VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_RANDCONTEXT* randContext) noexcept {
  const auto& p = *parameters;
  VORL_SEARCHNEIGHBORHOOD& list = *searchNeighborhood;
  const bool rotated = IsRotated(p);
  const Rotation rotation = Rotation::FromAngles(p.angle1, p.angle2, p.angle3);
  int hx = WholeRadius(p.rx);
  int hy = WholeRadius(p.ry);
  int hz = WholeRadius(p.rz);
  if (rotated) hx = hy = hz = std::max({0, hx, hy, hz});
  int room = 1;
  for (const int h : {hx, hy, hz}) {
    if (__builtin_mul_overflow(room, 2 * std::int64_t{h} + 1, &room)) return kSearchEmpty;
  }
  if (room < 1) return kSearchEmpty;
  if (const int status = VORLMallocSearchNeighborhood(&list, room); status != 0) return status;

  const real a = EllipsoidCoefficient(p.rx);
  const real b = EllipsoidCoefficient(p.ry);
  const real c = EllipsoidCoefficient(p.rz);
  const real perAx = 1.0 / (p.ax * p.ax);
  const real perAy = 1.0 / (p.ay * p.ay);
  const real perAz = 1.0 / (p.az * p.az);
  int count = 0;
  const auto append = [&](int i, int j, int k, real distance) noexcept {
    list.ix[count] = i;
    list.iy[count] = j;
    list.iz[count] = k;
    list.distance[count] = distance;
    list.weight[count++] = 0.0;
  };
  append(0, 0, 0, 0.0);
  // Half the box is tested, and each accepted offset brings its opposite.
  const auto consider = [&](int i, int j, int k) noexcept {
    Rotation::Lag lag{static_cast<real>(i), static_cast<real>(j), static_cast<real>(k)};
    if (rotated) lag = rotation.ToModelAxes(lag.x, lag.y, lag.z);
    const real xx = lag.x * lag.x;
    const real yy = lag.y * lag.y;
    const real zz = lag.z * lag.z;
    if (a * xx + b * yy + c * zz > 1.0 + VORL_EPSILON) return;
    const real distance = std::sqrt(xx * perAx + yy * perAy + zz * perAz);
    append(i, j, k, distance);
    append(-i, -j, -k, distance);
  };
  ForEachHalfOffset(hx, hy, hz, consider);

  if (const int status = VORLReallocSearchNeighborhood(&list, count); status != 0) return status;
  list.size = count;
  if (const int status = SortByKey(list, randContext); status != 0) return status;
  ComputeWeights(p, list);
  ComputeBoundingBox(list);
  return 0;
}

int VORLSearchNeighborhoodApproxBound(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, int* nx, int* ny,
                                      int* nz) noexcept {
  const auto& p = *parameters;
  real bound[3] = {p.rx, p.ry, p.rz};
  if (IsRotated(p)) {
    const Rotation rotation = Rotation::FromAngles(p.angle1, p.angle2, p.angle3);
    // The points are deliberately few: the step is half a turn, and y takes no part.
    constexpr int kPoints = 157;
    constexpr real kStep = 314 * 0.01;
    real t = -1.5707963267948966;
    std::fill_n(bound, 3, 0.0);
    for (int point = 0; point < kPoints; ++point, t += kStep) {
      const real x = p.rx * std::cos(t);
      const real z = p.rz * std::sin(t);
      for (int axis = 0; axis < 3; ++axis) {
        bound[axis] = std::max(bound[axis], std::fabs(rotation.m[axis][0] * x + rotation.m[axis][2] * z));
      }
    }
  }
  *nx = WholeRadius(bound[0]);
  *ny = WholeRadius(bound[1]);
  *nz = WholeRadius(bound[2]);
  return 0;
}

int VORLSearchNeighborhoodToImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_IMAGE* image) noexcept {
  constexpr const char* kNames[] = {"index", "distance", "weight"};
  constexpr int kVariables = 3;
  const auto& list = *searchNeighborhood;
  VORL_GRID grid;
  if (!SetSizes(&grid, std::int64_t{list.ixMax} - list.ixMin + 1, std::int64_t{list.iyMax} - list.iyMin + 1,
                std::int64_t{list.izMax} - list.izMin + 1)) {
    return kImageTooLarge;
  }
  if (std::min({grid.nx, grid.ny, grid.nz}) < 1) return kNoElement;
  if (list.size < 1) return kSearchEmpty;
  if (AnyNull(list.ix, list.iy, list.iz, list.distance, list.weight)) return kNotAllocated;
  grid.sx = grid.sy = grid.sz = 1.0;
  grid.ox = list.ixMin - 0.5;
  grid.oy = list.iyMin - 0.5;
  grid.oz = list.izMin - 0.5;
  if (const int status = MallocImageOn(grid, kVariables, image); status != 0) return status;
  for (int v = 0; v < kVariables; ++v) std::snprintf(image->varName[v], VORL_VARNAME_LENGTH, "%s", kNames[v]);
  std::fill_n(image->var, image->nxyzv, VORL_MISSING_VALUE);
  for (int e = 0; e < list.size; ++e) {
    const int ix = list.ix[e];
    const int iy = list.iy[e];
    const int iz = list.iz[e];
    const bool inBox = ix >= list.ixMin && ix <= list.ixMax && iy >= list.iyMin && iy <= list.iyMax &&
                       iz >= list.izMin && iz <= list.izMax;
    if (!inBox) return kSearchEmpty;
    const int node = NodeIndex(grid, {ix - list.ixMin, iy - list.iyMin, iz - list.izMin});
    image->var[node] = e;
    image->var[grid.nxyz + node] = list.distance[e];
    image->var[2 * grid.nxyz + node] = list.weight[e];
  }
  return 0;
}
