#include "storage/array_record.h"

#include "base/checked_size.h"
#include "dataclient/array_factory.h"
#include "interpreter/guard.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <stdexcept>

namespace vellum
{
namespace
{
struct Free
{
    void operator()(void* block) const { std::free(block); }
};

/// Everything of a record that follows from its array.
struct ArrayFacts
{
    ArrayType m_type = 0;
    std::vector<Py_ssize_t> m_shape;
    std::vector<Py_ssize_t> m_strides;
    Py_ssize_t m_numElems = 0;
    Py_ssize_t m_elemSize = 0;
    Py_ssize_t m_byteCount = 0;
};

std::size_t elementWidth(const data::Array& array)
{
    return data::apply_numeric_visitor(array, [](auto&& typed) {
        return sizeof(typename std::decay_t<decltype(typed)>::Element);
    });
}

/// `value`, or the failure of an array that can't be represented.
template <class T>
T orUnallocatable(std::optional<T> value, const AllocationRequest& request)
{
    if (!value)
    {
        throw AllocationError(request);
    }
    return std::move(*value);
}

ArrayFacts readFacts(const data::Array& array, char order)
{
    ArrayFacts facts;
    facts.m_type = array.getType();
    AllocationRequest request{shortNameOfArrayType(facts.m_type)};

    const std::size_t width = elementWidth(array);
    const std::size_t count = array.getNumberOfElements();
    request.m_count = count;
    facts.m_elemSize = static_cast<Py_ssize_t>(width);
    facts.m_numElems = orUnallocatable(toSigned(count), request);
    facts.m_byteCount = orUnallocatable(
        toSigned(checkedMultiply(width, count).value_or(kUnrepresentable)), request);
    for (const std::size_t dim : array.getDimensions())
    {
        facts.m_shape.push_back(orUnallocatable(toSigned(dim), request));
    }
    if (facts.m_shape.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    {
        throw AllocationError(request);
    }
    // Without dimensions, which only native code can make, a service may count no
    // element or one.
    const bool isCounted =
        facts.m_shape.empty() ? count <= 1 : checkedProduct(facts.m_shape) == std::uint64_t(count);
    if (!isCounted)
    {
        throw std::runtime_error("array dimensions do not match its number of elements.");
    }
    facts.m_strides =
        orUnallocatable(contiguousStrides(facts.m_shape, facts.m_elemSize, order), request);
    return facts;
}

std::unique_ptr<void, Free> allocateBlock(const ArrayFacts& facts)
{
    // Room for one element at least: a buffer without dimensions counts as one,
    // whatever its length says, and only native code makes such arrays.
    const auto byteCount = static_cast<std::size_t>(std::max(facts.m_byteCount, facts.m_elemSize));
    std::unique_ptr<void, Free> block(facts.m_byteCount != 0 ? std::malloc(byteCount)
                                                             : std::calloc(1, byteCount));
    if (block == nullptr)
    {
        throw AllocationError(
            {shortNameOfArrayType(facts.m_type), static_cast<std::uint64_t>(facts.m_numElems)});
    }
    return block;
}

} // namespace

std::optional<std::vector<Py_ssize_t>> contiguousStrides(const std::vector<Py_ssize_t>& shape,
                                                         Py_ssize_t elemSize, char order)
{
    std::vector<Py_ssize_t> strides(shape.size(), 0);
    Py_ssize_t stride = elemSize;
    for (std::size_t k = 0; k < shape.size(); ++k)
    {
        const std::size_t dimension = order == 'F' ? k : shape.size() - 1 - k;
        strides[dimension] = stride;
        const bool isLast = k + 1 == shape.size();
        if (!isLast && __builtin_mul_overflow(stride, shape[dimension], &stride))
        {
            return std::nullopt;
        }
    }
    return strides;
}

MDArrayWrapper::MDArrayWrapper(data::Array&& array, char order)
    : m_array(std::move(array)), m_order(order)
{
    refreshFromArray();
}

MDArrayWrapper::MDArrayWrapper(const data::Array& array, char order)
    : m_array(array), m_order(order)
{
    refreshFromArray();
}

MDArrayWrapper::~MDArrayWrapper()
{
    std::free(m_buf);
}

void MDArrayWrapper::refreshFromArray()
{
    ArrayFacts facts = readFacts(m_array, m_order);
    auto block = allocateBlock(facts);
    copyArrayToBuffer(block.get(), static_cast<std::size_t>(facts.m_byteCount));

    m_arrayType = facts.m_type;
    m_nDim = static_cast<int>(facts.m_shape.size());
    m_shape = std::move(facts.m_shape);
    m_bytewiseStrides = std::move(facts.m_strides);
    m_elemSizeInBytes = facts.m_elemSize;
    m_numElems = facts.m_numElems;
    m_bufferSizeInBytes = facts.m_byteCount;
    std::free(std::exchange(m_buf, block.release()));
}

void MDArrayWrapper::copyArrayToBuffer(void* destination, std::size_t byteCount) const
{
    data::apply_numeric_visitor(m_array, [&](auto&& typed) {
        // A second handle makes the release a copy: the array stays whole.
        auto second = typed;
        const auto elements = second.release();
        if (byteCount == 0)
        {
            return;
        }
        if (elements.get() == nullptr)
        {
            throw std::runtime_error(kNullData);
        }
        std::memcpy(destination, elements.get(), byteCount);
    });
}

const char* MDArrayWrapper::elementAddress(const std::vector<Py_ssize_t>& indices) const
{
    if (m_buf == nullptr)
    {
        return raise(PyExc_RuntimeError, kNullData);
    }
    Py_ssize_t offset = 0;
    for (std::size_t k = 0; k < indices.size(); ++k)
    {
        offset += indices[k] * m_bytewiseStrides[k];
    }
    return static_cast<const char*>(m_buf) + offset;
}

Py_ssize_t MDArrayWrapper::linearIndex(const std::vector<Py_ssize_t>& indices) const
{
    if (indices.size() > m_shape.size())
    {
        return -1;
    }
    Py_ssize_t offset = 0;
    for (std::size_t k = 0; k < indices.size(); ++k)
    {
        offset += indices[k] * m_bytewiseStrides[k];
    }
    return offset / m_elemSizeInBytes;
}

data::Array& MDArrayWrapper::array()
{
    if (m_array.getImpl() == nullptr)
    {
        m_array = arrayFromBuffer();
    }
    return m_array;
}

data::Array MDArrayWrapper::arrayFromBuffer() const
{
    const std::vector<std::size_t> dims(m_shape.begin(), m_shape.end());
    return visitElementType(m_arrayType, [&]<class T>(std::type_identity<T>) -> data::Array {
        data::ArrayFactory factory;
        auto elements = factory.createBuffer<T>(static_cast<std::size_t>(m_numElems));
        if (elements.get() == nullptr)
        {
            throw AllocationError(
                {kKindInfoOf<T>.m_shortName, static_cast<std::uint64_t>(m_numElems)});
        }
        std::memcpy(static_cast<void*>(elements.get()), m_buf,
                    static_cast<std::size_t>(m_bufferSizeInBytes));
        return factory.createArrayFromBuffer<T>(dims, std::move(elements),
                                                data::MemoryLayout::ColumnMajor);
    });
}

void MDArrayWrapper::addExport()
{
    ++m_exports;
    m_isShapeLent = true;
}

void MDArrayWrapper::releaseExport()
{
    if (--m_exports == 0)
    {
        m_retired = decltype(m_retired)();
        m_isShapeLent = false;
    }
}

} // namespace vellum
