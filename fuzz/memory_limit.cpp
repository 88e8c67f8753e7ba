#include <cstddef>

// Targets are linked so that the allocations of the library pass through here (the linker's --wrap): a hostile header that
// asks for much gets the status of a failing allocation, quickly and on every machine.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);

static constexpr std::size_t kLimit = std::size_t{1} << 22;

void* __wrap_malloc(std::size_t size) { return size > kLimit ? nullptr : __real_malloc(size); }
void* __wrap_realloc(void* block, std::size_t size) { return size > kLimit ? nullptr : __real_realloc(block, size); }
}
