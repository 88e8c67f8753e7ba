#include "core/grid.h"
#include "fuzz_target.hpp"

using namespace kestrum_fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = AsText(data, size);
  VORL_GRID grid;
  VORLInitGrid(&grid);
  const int status = VORLReadGrid(&grid, Stream::Seekable(bytes).file());
  Require(status == 0 || (status <= -711 && status >= -719), "each failure has its status");
  // Comments need a stream that can seek, but a pipe does no harm.
  if (const Stream pipe = Stream::Pipe(bytes); pipe.file() != nullptr) {
    VORL_GRID piped;
    VORLInitGrid(&piped);
    const int pipedStatus = VORLReadGrid(&piped, pipe.file());
    Require(pipedStatus <= 0 && pipedStatus >= -719, "each failure has its status");
  }
  if (status != 0) return 0;

  int verdict = 0;
  VORLValidateGrid(&grid, &verdict);
  char prefix[] = "> ";
  Written([&](std::FILE* out) { VORLPrintGrid(&grid, prefix, out); });
  const std::string text = Written([&](std::FILE* out) {
    std::fprintf(out, "%d/**/%d//\n%d\n%.17g %.17g %.17g\t%.17g %.17g %.17g", grid.nx, grid.ny, grid.nz, grid.sx,
                 grid.sy, grid.sz, grid.ox, grid.oy, grid.oz);
  });
  VORL_GRID copy;
  VORLInitGrid(&copy);
  Require(VORLReadGrid(&copy, Stream::Seekable(text).file()) == 0, "what was written can be read");
  Require(copy.nx == grid.nx && copy.ny == grid.ny && copy.nz == grid.nz && copy.nxyz == grid.nxyz &&
              SameNumbers(&copy.sx, &grid.sx, 3) && SameNumbers(&copy.ox, &grid.ox, 3),
          "what was written comes back");
  return 0;
}
