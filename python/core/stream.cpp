#include "stream.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace kestrum::python {
namespace {

// How long a stream waits for a pipe before it looks whether it should stop.
constexpr int kWaitMilliseconds = 40;

}  // namespace

Stream::Stream(int descriptor, const char* mode, Monitor& monitor) : descriptor_(descriptor), monitor_(monitor) {
  struct stat about {};
  if (fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode)) size_ = about.st_size;
  const bool seekable = lseek(descriptor, 0, SEEK_CUR) >= 0;
  stream_ = fopencookie(this, mode, {&Read, &Write, seekable ? &Seek : nullptr, nullptr});
  if (stream_ == nullptr) throw std::bad_alloc();
}

bool Stream::Ready(short events) noexcept {
  pollfd file{descriptor_, events, 0};
  while (!monitor_.stopped()) {
    const int ready = poll(&file, 1, kWaitMilliseconds);
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
  }
  return false;
}

ssize_t Stream::Read(void* self, char* bytes, std::size_t size) noexcept {
  Stream& stream = *static_cast<Stream*>(self);
  if (!stream.Ready(POLLIN)) return 0;
  const ssize_t count = read(stream.descriptor_, bytes, size);
  if (count < 0 && stream.error_ == 0) stream.error_ = errno;
  if (count > 0) stream.position_ += count;
  if (stream.size_ > 0 && stream.position_ <= stream.size_) {
    const int percent =
        static_cast<int>(100.0 * static_cast<double>(stream.position_) / static_cast<double>(stream.size_));
    stream.monitor_.percent = std::max(percent, stream.monitor_.percent.load());
  }
  return count;
}

ssize_t Stream::Write(void* self, const char* bytes, std::size_t size) noexcept {
  Stream& stream = *static_cast<Stream*>(self);
  std::size_t written = 0;
  while (written < size && stream.error_ == 0 && stream.Ready(POLLOUT)) {
    const ssize_t count = write(stream.descriptor_, bytes + written, size - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR && errno != EAGAIN) {
      stream.error_ = errno;
    }
  }
  // 0 is what a stream takes for a failure.
  return written == size ? static_cast<ssize_t>(size) : 0;
}

int Stream::Seek(void* self, off64_t* offset, int whence) noexcept {
  const off64_t place = lseek64(static_cast<Stream*>(self)->descriptor_, *offset, whence);
  if (place >= 0) static_cast<Stream*>(self)->position_ = *offset = place;
  return place >= 0 ? 0 : -1;
}

}  // namespace kestrum::python
