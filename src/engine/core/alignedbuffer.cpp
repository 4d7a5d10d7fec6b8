#include "engine/core/alignedbuffer.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace brindlex::aligned {

void* allocate(std::size_t size)
{
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = (std::max<std::size_t>(size, 1) + kPage - 1) / kPage * kPage;
    void* p = std::aligned_alloc(kPage, rounded);
    if (!p)
        throw std::bad_alloc();
    return p;
}

void release(void* p) noexcept
{
    std::free(p);
}

}  // namespace brindlex::aligned
