/// The exceptions of the client, and the service's codes turned into them.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace vellum
{
/// What every exception of the client can be caught as.
class Exception
{
public:
    Exception() = default;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    virtual ~Exception() = default;
    virtual const char* what() const noexcept = 0;
};
} // namespace vellum

namespace vellum::data::detail
{
/// One class per N, so that failures can be told apart by type. It can be
/// caught as `Base` or as `std::exception`; it is no `std::runtime_error`.
template <class Base, int N>
class ArrayException : public Base, public std::exception
{
public:
    explicit ArrayException(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

using ArrayTypeMismatch = ArrayException<Exception, 9>;
using OutOfMemory = ArrayException<Exception, 19>;
using MissingFeature = ArrayException<Exception, 22>;
using TooManyElements = ArrayException<Exception, 26>;

inline constexpr std::int32_t kOutOfMemoryCode = 19;

/// Returns for code 0 and throws the code's `ArrayException` otherwise.
/// `message` is the text of codes 28 and 29 alone.
void throw_if_error(std::int32_t code, const std::string& message);

} // namespace vellum::data::detail
