#include <cstdio>

#include "fuzz_target.hpp"
#include "image_record.hpp"
#include "paths/search_neighborhood_parameters.h"

namespace kestrum_fuzz {
namespace {

using Parameters = VORL_SEARCHNEIGHBORHOODPARAMETERS;

// Beyond this many nodes a list takes longer than an input may.
constexpr double kLongestRadius = 10.0;

int Read(std::string_view bytes, BOOLEAN fullForm, Parameters* p) {
  VORLInitSearchNeighborhoodParameters(p);
  return VORLReadSearchNeighborhoodParameters(p, fullForm, Stream::Seekable(bytes).file());
}

void Build(Parameters& p) {
  VORL_SEARCHNEIGHBORHOOD list;
  VORLInitSearchNeighborhood(&list);
  VORL_RANDCONTEXT random;
  VORLInitRandContext(&random);
  if (VORLBuildSearchNeighborhood(&p, &list, &random) == 0) {
    ImageRecord image;
    VORLSearchNeighborhoodToImage(&list, &image);
  }
  VORLFreeSearchNeighborhood(&list);
}

void Try(std::string_view bytes, BOOLEAN fullForm) {
  Parameters p;
  const int status = Read(bytes, fullForm, &p);
  Require(status == 0 || (status <= -875 && status >= -889), "each failure has its status");
  // Comments need a stream that can seek, but a pipe does no harm.
  if (const Stream pipe = Stream::Pipe(bytes); pipe.file() != nullptr) {
    Parameters piped;
    VORLInitSearchNeighborhoodParameters(&piped);
    VORLReadSearchNeighborhoodParameters(&piped, fullForm, pipe.file());
  }
  if (status != 0) return;

  const std::string text = Written([&p](std::FILE* out) {
    std::fprintf(out, "%.17g %.17g %.17g//\n%.17g %.17g %.17g\n%.17g %.17g/*/ **/ %.17g %.17g", p.rx, p.ry, p.rz, p.ax,
                 p.ay, p.az, p.angle1, p.angle2, p.angle3, p.power);
  });
  Parameters copy;
  Require(Read(text, FALSE, &copy) == 0, "what was written can be read");
  Require(SameNumbers(&copy.rx, &p.rx, 3) && SameNumbers(&copy.ax, &p.ax, 3) && SameNumbers(&copy.angle1, &p.angle1, 4),
          "what was written comes back");

  char prefix[] = "> ";
  Written([&](std::FILE* out) { VORLPrintSearchNeighborhoodParameters(&p, prefix, out); });
  int bound[3];
  VORLSearchNeighborhoodApproxBound(&p, &bound[0], &bound[1], &bound[2]);
  int error = 0;
  VORLValidateSearchNeighborhoodParameters(&p, &error);
  if (error == 0 && !(p.rx > kLongestRadius || p.ry > kLongestRadius || p.rz > kLongestRadius)) Build(p);
}

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const BOOLEAN fullForm : {FALSE, TRUE}) kestrum_fuzz::Try(kestrum_fuzz::AsText(data, size), fullForm);
  return 0;
}
