#include "core/text.h"
#include "fuzz_target.hpp"

namespace {

// Where the first entry starts, npos if there is none.
std::size_t FirstEntry(std::string_view text) {
  constexpr std::size_t kNone = std::string_view::npos;
  for (std::size_t at = 0;;) {
    at = text.find_first_not_of("\r\t\n ", at);
    if (at == kNone) return kNone;
    const std::string_view mark = text.substr(at, 2);
    if (mark != "//" && mark != "/*") return at;
    const std::size_t end = mark == "//" ? text.find('\n', at) : text.find("*/", at + 2);
    if (end == kNone) return kNone;
    at = end + (mark == "//" ? 1 : 2);
  }
}

}  // namespace

using namespace kestrum_fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = AsText(data, size);
  const std::size_t entry = FirstEntry(text);
  const int status = entry == std::string_view::npos ? -999 : 0;
  const Stream stream = Stream::Seekable(text);
  Require(VORLSkipComments(stream.file()) == status, "an entry is found if there is one");
  if (status == 0) Require(stream.Rest() == text.substr(entry), "the stream is left before the entry");
  // Comments need a stream that can seek; of a pipe no more can be asked than that a slash alone may be lost.
  if (const Stream pipe = Stream::Pipe(text); pipe.file() != nullptr && status == 0 && text[entry] != '/') {
    Require(VORLSkipComments(pipe.file()) == 0 && pipe.Rest() == text.substr(entry), "a pipe is read as a file is");
  }
  return 0;
}
