#ifndef KESTRUM_CORE_PAGE_SIZE_HPP
#define KESTRUM_CORE_PAGE_SIZE_HPP

#include <cstddef>

namespace kestrum {

enum class PageSize { kSmall, kHuge };

// Advises the system on a block of which nothing has been touched. VORLMalloc asks for huge pages; small ones are
// better where only a few scattered entries may ever be written. A system without such advice, or a small block, is
// left alone.
void AskForPages(void* block, std::size_t bytes, PageSize size) noexcept;

}  // namespace kestrum

#endif
