#include "output/copies.h"

#include "base/element_width.h"
#include "construction/element_conversion.h"
#include "construction/new_array.h"
#include "storage/selection.h"

namespace vellum
{
namespace
{
/// Every selected element passes the same conversion as a Python value, in reading
/// order.
void readSelection(const Selection& selection, MDArrayBuilder& builder)
{
    const ElementReader read = elementReader(builder.m_type.m_type);
    const ElementConverter convert = elementConverter(builder.m_type.m_type, false);
    Refusal refusal;
    builder.reserveValues(selection.count());
    forEachElement(selection, [&](const char* address) {
        if (!convert(read(address), builder.appendElements(1), refusal))
        {
            raise(refusal.m_exceptionClass, refusal.m_message);
        }
        return true;
    });
}

/// The dimensions of a selection as an array of its own. Without elements it
/// keeps those of a record that has none itself.
Dimensions selectedDims(const MDArrayWrapper& record, const Selection& selection, bool expandVector)
{
    const auto& lengths = record.elementCount() == 0 ? record.shape() : selection.m_lengths;
    Dimensions dims(lengths.begin(), lengths.end());
    if (expandVector && record.elementCount() != 0 && dims.size() == 1)
    {
        dims.insert(dims.begin(), 1);
    }
    if (dims.empty())
    {
        raise(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
    }
    return dims;
}

data::Array makeIndexedArray(const MDArrayView& view, bool expandVector)
{
    const MDArrayWrapper& record = view.record();
    const Selection selection = selectionOf(view);
    const Dimensions dims = selectedDims(record, selection, expandVector);
    AllocationRequest request{record.type().shortName()};
    MDArrayBuilder builder(record.type(), request);
    readSelection(selection, builder);
    return createFromValues(builder, dims);
}

/// Which part of each element a row vector takes.
enum class Part
{
    All,
    Real,
    Imaginary,
};

/// Takes `width` bytes of each of `count` elements, which are `stride` bytes apart.
void copyParts(const char* elements, std::size_t stride, std::size_t count, char* parts,
               std::size_t width)
{
    if (stride == width)
    {
        std::memcpy(parts, elements, count * width);
        return;
    }
    visitElementWidth(width, [&](auto constant) {
        for (std::size_t i = 0; i < count; ++i)
        {
            std::memcpy(parts + i * constant, elements + i * stride, constant);
        }
    });
}

/// One part of every element, in storage order, as a 1-by-N array of `partType`.
data::Array rowVector(MDArrayWrapper& record, const ElementType& partType, Part part)
{
    const auto count = static_cast<std::size_t>(record.elementCount());
    AllocationRequest request{partType.shortName()};
    NewArray row(partType, count, request);
    const char* elements = record.array().elements().first;
    if (count != 0)
    {
        copyParts(elements + (part == Part::Imaginary ? partType.m_width : 0),
                  record.type().m_width, count, row.elements(), partType.m_width);
    }
    return row.adopt(Dimensions{1, count});
}

PyObject* newRowVector(const MDArrayView& view, Part part)
{
    MDArrayWrapper& record = view.record();
    PyRef object = allocateArrayObject(record.type().m_kind);
    if (record.type().m_isComplex != (part != Part::All))
    {
        raise(PyExc_ValueError, record.type().m_isComplex
                                    ? "noncomplex() must not be called on a complex array."
                                    : "real() and imag() can be called only on a complex array.");
    }
    const ElementType& type = elementTypeOf(record.type().m_kind, false);
    const MDArrayView whole(std::make_shared<MDArrayWrapper>(rowVector(record, type, part), type));
    return giveView(std::move(object), std::make_unique<MDArrayView>(whole, Index(0)));
}

} // namespace

const data::Array& indexedArray(MDArrayView& view, bool expandVector)
{
    if (const data::Array* kept = view.indexedArray())
    {
        return *kept;
    }
    view.dropIndexedArray();
    const std::uint64_t changes = view.record().changes();
    return view.keepIndexedArray(makeIndexedArray(view, expandVector), changes);
}

PyObject* cloneArray(PyObject*, MDArrayView& view)
{
    const ElementType& type = view.record().type();
    const data::Array& array = indexedArray(view, false);
    PyRef object = allocateArrayObject(type.m_kind);
    auto record = std::make_shared<MDArrayWrapper>(array, type);
    return giveView(std::move(object), std::make_unique<MDArrayView>(std::move(record)));
}

PyObject* realPart(PyObject*, MDArrayView& view)
{
    return newRowVector(view, Part::Real);
}
PyObject* imaginaryPart(PyObject*, MDArrayView& view)
{
    return newRowVector(view, Part::Imaginary);
}
PyObject* noncomplexElements(PyObject*, MDArrayView& view)
{
    return newRowVector(view, Part::All);
}

} // namespace vellum
