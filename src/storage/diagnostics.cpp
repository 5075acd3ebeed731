// The diagnostic text of records and views: for whoever debugs the module. No
// operation writes it.

#include "storage/array_view.h"

#include <ostream>

namespace vellum
{
namespace
{
template <class T>
void writeElement(std::ostream& stream, T element)
{
    if constexpr (ElementTraits<T>::kIsComplex)
    {
        stream << '(' << +element.real() << ',' << +element.imag() << ") ";
    }
    else if constexpr (std::is_same_v<T, char16_t>)
    {
        stream << static_cast<std::uint16_t>(element) << ' ';
    }
    else
    {
        stream << +element << ' ';
    }
}

void writeElements(std::ostream& stream, const data::Array& array)
{
    data::apply_numeric_visitor(array, [&](auto&& typed) {
        using Element = typename std::decay_t<decltype(typed)>::Element;
        const auto& elements = typed;
        const auto end = elements.end();
        for (auto element = elements.begin(); element != end; ++element)
        {
            writeElement(stream, loadElement<Element>(element.address()));
        }
    });
}

void writeBlock(std::ostream& stream, const MDArrayWrapper& record)
{
    visitElementType(record.m_arrayType, [&]<class T>(std::type_identity<T>) {
        const auto* address = static_cast<const char*>(record.m_buf);
        for (Py_ssize_t i = 0; i < record.m_numElems; ++i)
        {
            writeElement(stream, loadElement<T>(address + i * record.m_elemSizeInBytes));
        }
    });
}

void writeEntries(std::ostream& stream, const char* label, const std::vector<Py_ssize_t>& entries)
{
    stream << label << ": ";
    for (const Py_ssize_t entry : entries)
    {
        stream << entry << ' ';
    }
    stream << '\n';
}
} // namespace

std::ostream& operator<<(std::ostream& stream, const MDArrayWrapper& record)
{
    stream << "MDA buffer: ";
    if (record.m_array.getImpl() != nullptr)
    {
        writeElements(stream, record.m_array);
    }
    stream << '\n';
    writeEntries(stream, "m_shape", record.m_shape);
    writeEntries(stream, "m_bytewiseStrides", record.m_bytewiseStrides);
    stream << "m_order: " << record.m_order << "\nm_isReadOnly: " << record.m_isReadOnly
           << "\nm_exports: " << record.m_exports << "\nm_nDim: " << record.m_nDim
           << "\nm_numElems: " << record.m_numElems
           << "\nm_bufferSizeInBytes: " << record.m_bufferSizeInBytes
           << "\nm_elemSizeInBytes: " << record.m_elemSizeInBytes << "\nm_buf: ";
    if (record.m_buf == nullptr)
    {
        stream << "null";
    }
    else
    {
        writeBlock(stream, record);
    }
    return stream << '\n';
}

std::ostream& operator<<(std::ostream& stream, const MDArrayView& view)
{
    stream << "MDArrayWrapper: \n"
           << *view.m_sharedMDA
           << "\nm_supportedArrayEnum: " << static_cast<int>(view.m_supportedArrayEnum)
           << "\nm_isComplex: " << view.m_isComplex << '\n';
    for (const IndexItem& item : view.m_indices)
    {
        std::visit([&](const auto& alternative) { stream << alternative; }, item);
    }
    stream << "m_numberOfIntegerIndicesSoFar: " << view.m_numberOfIntegerIndicesSoFar
           << "\nm_indexedArrayAsMDA: ";
    if (view.m_indexedArrayAsMDA)
    {
        writeElements(stream, *view.m_indexedArrayAsMDA);
    }
    else
    {
        stream << "None";
    }
    return stream << '\n';
}

} // namespace vellum
