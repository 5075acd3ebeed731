/// Element storage and who frees it.
#pragma once

#include "service/service_interface.h"

#include <cstddef>
#include <memory>

namespace vellum::data::service
{
struct CallDeleter
{
    BufferDeleter m_function = nullptr;
    void operator()(void* elements) const { m_function(elements); }
};

/// Owns a buffer and frees it with the deleter it came with.
using Buffer = std::unique_ptr<void, CallDeleter>;

/// Takes over a caller's buffer. Without a deleter it is never freed.
Buffer adoptBuffer(void* elements, BufferDeleter deleter) noexcept;

/// New storage, not null even for 0 bytes; `std::bad_alloc` if there is none.
Buffer allocateBuffer(std::size_t bytes);
Buffer allocateZeroedBuffer(std::size_t bytes);
} // namespace vellum::data::service
