#include "service/buffer.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace vellum::data::service
{
namespace
{
void freeBlock(void* block)
{
    std::free(block);
}
void leaveAlone(void*) {}

Buffer ownBlock(void* block)
{
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return adoptBuffer(block, freeBlock);
}

// An allocation of 0 bytes may be answered with null, which is no buffer.
std::size_t blockSize(std::size_t bytes)
{
    return std::max<std::size_t>(bytes, 1);
}
} // namespace

Buffer adoptBuffer(void* elements, BufferDeleter deleter) noexcept
{
    return {elements, CallDeleter{deleter != nullptr ? deleter : leaveAlone}};
}

Buffer allocateBuffer(std::size_t bytes)
{
    return ownBlock(std::malloc(blockSize(bytes)));
}

Buffer allocateZeroedBuffer(std::size_t bytes)
{
    return ownBlock(std::calloc(blockSize(bytes), 1));
}
} // namespace vellum::data::service
