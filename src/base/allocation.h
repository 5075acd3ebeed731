/// What is told when memory for an array can't be had.
#pragma once

#include <cstdint>
#include <new>
#include <string>

namespace vellum
{
/// What a construction is about to ask memory for, kept up to date by it, so
/// that a failure can say what couldn't be had.
struct AllocationRequest
{
    const char* m_shortName = ""; ///< of the kind; a complex array says "double" too
    std::uint64_t m_count = 0;

    std::string failureText() const;
};

/// Memory for an array couldn't be had, or can't exist: `what()` says for how
/// many elements of which kind.
class AllocationError : public std::bad_alloc
{
public:
    explicit AllocationError(const AllocationRequest& request) : m_text(request.failureText()) {}
    const char* what() const noexcept override { return m_text.c_str(); }

private:
    std::string m_text;
};

} // namespace vellum
