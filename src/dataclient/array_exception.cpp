#include "dataclient/array_exception.h"

#include <iterator>

namespace vellum::data::detail
{
namespace
{
template <int N>
[[noreturn]] void throwAs(const std::string& message)
{
    throw ArrayException<Exception, N>(message);
}

struct CodeRow
{
    void (*m_throw)(const std::string& message);
    const char* m_text; ///< null: the caller's message is the text
};

constexpr CodeRow kSystemError{throwAs<20>, "System Error."};

/// Indexed by code. A row of 4, 11, 12, 15, 17 or 22 is a system error of the
/// service, like every code behind the table.
constexpr CodeRow kCodeTable[] = {
    kSystemError, // 0 is success and is never looked up
    {throwAs<1>, "Array index is invalid."},
    {throwAs<2>, "String index must be last."},
    {throwAs<3>, "String index not valid for this array."},
    kSystemError,
    {throwAs<5>, "Not enough indices provided."},
    {throwAs<6>, "Too many indices provided."},
    {throwAs<7>, "Can only provide one string index."},
    {throwAs<8>, "Data type mismatch."},
    {throwAs<9>, "Array type mismatch."},
    {throwAs<10>, "Field does not exist in this struct."},
    kSystemError,
    kSystemError,
    {throwAs<13>, "Must specify a class name."},
    {throwAs<14>, "Wrong number of enums supplied."},
    kSystemError,
    {throwAs<16>, "Can't create a std::string from this data."},
    kSystemError,
    {throwAs<18>, "Duplicate field names not allowed."},
    {throwAs<19>, "Not enough memory available to support the request."},
    kSystemError,
    {throwAs<21>, "Can't index into an empty array."},
    kSystemError,
    {throwAs<23>, "Memory layout mismatch."},
    {throwAs<24>, "Memory layout mismatch."},
    {throwAs<25>, "Memory layout mismatch."},
    {throwAs<26>, "Number of elements exceeds max."},
    {throwAs<27>, "ObjectArray not created. Elements must belong to the same class, or to classes "
                  "that are part of a heterogeneous hierarchy."},
    {throwAs<28>, nullptr},
    {throwAs<29>, nullptr},
};
static_assert(std::size(kCodeTable) == 30);
} // namespace

void throw_if_error(std::int32_t code, const std::string& message)
{
    if (code == 0)
    {
        return;
    }
    const auto row = static_cast<std::uint32_t>(code);
    const CodeRow& entry = row < std::size(kCodeTable) ? kCodeTable[row] : kSystemError;
    entry.m_throw(entry.m_text != nullptr ? std::string(entry.m_text) : message);
}

} // namespace vellum::data::detail
