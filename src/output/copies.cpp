#include "output/copies.h"

#include "construction/element_conversion.h"
#include "construction/staged_array.h"

#include <stdexcept>

namespace vellum
{
namespace
{
/// Which part of each element a row vector takes.
enum class Part : std::int32_t
{
    All = 0,
    Real = 1,
    Imaginary = 2,
};

/// Every selected element passes the same judgement as a Python value, in
/// reading order.
template <class T>
bool stageSelection(const Selection& selection, MDArrayBuilder<T>& builder)
{
    if (!builder.reserveValues(selection.count()))
    {
        return false;
    }
    return forEachElement(selection, [&](const char* address) {
        const auto converted = judgeScalar<T>(readElement(loadElement<T>(address)), false);
        if (!converted.m_hasValue)
        {
            raise(converted.m_exceptionClass, converted.m_message);
            return false;
        }
        builder.m_values.push_back(converted.m_value);
        return true;
    });
}

/// The dimensions of a selection as an array of its own. Without elements it
/// keeps those of a record that has none itself.
std::vector<Py_ssize_t> selectedDims(const MDArrayWrapper& record, const Selection& selection,
                                     bool expandVector)
{
    if (record.m_numElems == 0)
    {
        return record.m_shape;
    }
    std::vector<Py_ssize_t> dims = selection.m_lengths;
    if (expandVector && dims.size() == 1)
    {
        dims.insert(dims.begin(), 1);
    }
    return dims;
}

template <class T>
std::optional<data::Array> makeIndexedArray(const MDArrayView& view, bool expandVector)
{
    const auto selection = selectionOf(view);
    if (!selection)
    {
        return std::nullopt;
    }
    const auto dims = selectedDims(*view.m_sharedMDA, *selection, expandVector);
    if (dims.empty())
    {
        raise(PyExc_RuntimeError, "dimensions are unexpectedly empty.");
        return std::nullopt;
    }
    AllocationRequest request{kKindInfoOf<T>.m_shortName};
    MDArrayBuilder<T> builder(request);
    if (!stageSelection(*selection, builder))
    {
        return std::nullopt;
    }
    return createFromStaged(builder, Dimensions(dims.begin(), dims.end()));
}

/// One part of every element, in storage order, as a 1-by-N array.
template <class T>
data::Array copyPart(const data::TypedArray<T>& array, data::ArrayFactory& factory, Part part)
{
    using Real = typename ElementTraits<T>::Real;
    constexpr bool isComplex = ElementTraits<T>::kIsComplex;
    if (isComplex != (part != Part::All))
    {
        throw std::runtime_error(
            std::string("Invalid enum for ") + (isComplex ? "complex" : "noncomplex") +
            " array: " + std::to_string(static_cast<std::int32_t>(part)) + "\n");
    }
    const std::size_t count = array.getNumberOfElements();
    auto buffer = factory.createBuffer<Real>(count);
    if (buffer.get() == nullptr)
    {
        throw AllocationError({kKindInfoOf<T>.m_shortName, count});
    }
    const T* elements = array.begin().address();
    const auto end = elements + (array.end() - array.begin());
    if constexpr (isComplex)
    {
        Real* destination = buffer.get();
        for (; elements != end; ++elements)
        {
            *destination++ = part == Part::Real ? elements->real() : elements->imag();
        }
    }
    else if (count != 0)
    {
        // As bytes: a logical element may hold any.
        std::memcpy(static_cast<void*>(buffer.get()), elements,
                    static_cast<std::size_t>(end - elements) * sizeof(T));
    }
    return factory.createArrayFromBuffer<Real>({1, count}, std::move(buffer),
                                               data::MemoryLayout::ColumnMajor);
}

data::Array rowVector(MDArrayWrapper& record, data::ArrayFactory& factory, Part part)
{
    return visitElementType(record.m_arrayType, [&]<class T>(std::type_identity<T>) -> data::Array {
        return copyPart(data::TypedArray<T>(std::as_const(record.array())), factory, part);
    });
}

PyObject* newRowVector(const MDArrayView& view, Part part)
{
    PyRef object = allocateArrayObject(view.m_supportedArrayEnum);
    if (!object)
    {
        return nullptr;
    }
    data::ArrayFactory factory;
    if (view.m_isComplex != (part != Part::All))
    {
        return raise(PyExc_ValueError,
                     view.m_isComplex ? "noncomplex() must not be called on a complex array."
                                      : "real() and imag() can be called only on a complex array.");
    }
    auto row = std::make_unique<MDArrayView>(rowVector(*view.m_sharedMDA, factory, part),
                                             view.m_supportedArrayEnum, false, true);
    row->appendIntegerItem({0, false});
    return giveView(std::move(object), std::move(row));
}

} // namespace

std::optional<data::Array> indexedArray(MDArrayView& view, bool expandVector)
{
    const MDArrayWrapper& record = *view.m_sharedMDA;
    if (view.m_indexedArrayAsMDA && view.m_changesSeen == record.m_changes)
    {
        return view.m_indexedArrayAsMDA;
    }
    const std::uint64_t changes = record.m_changes;
    view.m_indexedArrayAsMDA.reset();
    view.m_indexedArrayAsMDA =
        visitElementType(record.m_arrayType, [&]<class T>(std::type_identity<T>) {
            return makeIndexedArray<T>(view, expandVector);
        });
    view.m_changesSeen = changes;
    return view.m_indexedArrayAsMDA;
}

PyObject* cloneArray(PyObject*, MDArrayView& view)
{
    const auto array = indexedArray(view, false);
    if (!array)
    {
        return nullptr;
    }
    PyRef object = allocateArrayObject(view.m_supportedArrayEnum);
    if (!object)
    {
        return nullptr;
    }
    const bool columnMajor = view.m_sharedMDA->m_order == 'F';
    return giveView(std::move(object),
                    std::make_unique<MDArrayView>(*array, view.m_supportedArrayEnum,
                                                  view.m_isComplex, columnMajor));
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
