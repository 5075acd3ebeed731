// The diagnostic text of records and views: for whoever debugs the module. No
// operation writes it.

#include "base/load_element.h"
#include "storage/array_view.h"

#include <ostream>

namespace vellum
{
namespace
{
template <class T>
void writeElement(std::ostream& stream, T element)
{
    if constexpr (kIsComplex<T>)
    {
        stream << '(' << +element.real() << ',' << +element.imag() << ") ";
    }
    else
    {
        stream << +element << ' ';
    }
}

void writeElements(std::ostream& stream, const ElementType& type, const char* begin,
                   const char* end)
{
    visitElementType(type.m_type, [&]<class T>(std::type_identity<T>) {
        for (; begin != end; begin += sizeof(T))
        {
            writeElement(stream, loadElement<T>(begin));
        }
    });
    stream << '\n';
}

void writeEntries(std::ostream& stream, const char* label, const std::vector<Py_ssize_t>& entries)
{
    stream << label;
    for (const Py_ssize_t entry : entries)
    {
        stream << entry << ' ';
    }
    stream << '\n';
}
} // namespace

std::ostream& operator<<(std::ostream& stream, const MDArrayWrapper& record)
{
    stream << "m_array: ";
    if (!record.m_array.array().isEmpty())
    {
        const auto [begin, end] = record.m_array.elements();
        writeElements(stream, record.m_type, begin, end);
    }
    writeEntries(stream, "m_shape: ", record.shape());
    writeEntries(stream, "m_bytewiseStrides: ", record.strides());
    stream << "m_exports: " << record.m_exports << "\nm_numElems: " << record.m_numElems
           << "\nm_bufferSizeInBytes: " << record.m_bufferSizeInBytes << "\nm_buf: ";
    writeElements(stream, record.m_type, record.block(),
                  record.block() + record.m_bufferSizeInBytes);
    return stream;
}

std::ostream& operator<<(std::ostream& stream, const MDArrayView& view)
{
    stream << view.record() << view.record().type().kind().m_className
           << (view.record().type().m_isComplex ? ", complex" : "") << '\n';
    writeEntries(stream, "m_integers: ", view.m_integers);
    if (view.m_finalSlice)
    {
        stream << "m_finalSlice: " << view.m_finalSlice->m_start << ' ' << view.m_finalSlice->m_step
               << ' ' << view.m_finalSlice->m_slice_len << '\n';
    }
    return stream << "m_indexedArrayAsMDA: " << (view.indexedArray() != nullptr ? "kept" : "none")
                  << '\n';
}

} // namespace vellum
