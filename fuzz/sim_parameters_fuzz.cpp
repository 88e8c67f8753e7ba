#include "fuzz_target.hpp"
#include "paths/sim_and_path_parameters.h"
#include "support/owned.hpp"

namespace kestrum_fuzz {
namespace {

struct Parameters
    : kestrum_test::Owned<VORL_SIMANDPATHPARAMETERS, VORLInitSimAndPathParameters, VORLFreeSimAndPathParameters> {
  std::string Printed() {
    char prefix[] = "> ";
    return Written([&](std::FILE* out) { VORLPrintSimAndPathParameters(this, prefix, out); });
  }
  int Verdict() {
    int error = 0;
    VORLValidateSimAndPathParameters(this, &error);
    return error;
  }
};

}  // namespace
}  // namespace kestrum_fuzz

using namespace kestrum_fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = AsText(data, size);
  Parameters p;
  const int status = VORLReadSimAndPathParameters(&p, Stream::Seekable(bytes).file());
  Require(status == 0 || (status <= -890 && status >= -894), "each failure has its status");
  // Comments need a stream that can seek, but a pipe does no harm.
  if (const Stream pipe = Stream::Pipe(bytes); pipe.file() != nullptr) {
    Parameters piped;
    VORLReadSimAndPathParameters(&piped, pipe.file());
  }
  // A record is whole after a failure, too.
  Parameters copy;
  Require(VORLCopySimAndPathParameters(&copy, &p) == 0, "a record can be copied");
  Require(copy.Printed() == p.Printed() && copy.Verdict() == p.Verdict(), "a copy is like the original");
  return 0;
}
