#include "indexing/assignment.h"

#include "construction/element_conversion.h"
#include "construction/sequence_walk.h"
#include "indexing/slice_key.h"

namespace vellum
{
namespace
{
constexpr int kFailed = -1;

int fail(PyObject* exceptionClass, const std::string& text)
{
    raise(exceptionClass, text);
    return kFailed;
}

int failShape()
{
    return fail(PyExc_ValueError,
                "unable to perform assignment because the left and right sides have a different "
                "shape.");
}

int failLength()
{
    return fail(PyExc_ValueError, "length of slice does not match number of elements.");
}

/// A view and one key of it, judged against the dimension that the key applies
/// to. Foreign code can reshape the record between the judgement and the store:
/// what was judged is judged again then.
class Target
{
public:
    explicit Target(const MDArrayView& view)
        : m_view(view), m_reshapes(view.m_sharedMDA->m_reshapes),
          m_isAtLastDimension(view.isAtLastDimension())
    {
    }

    const MDArrayView& view() const { return m_view; }
    MDArrayWrapper& record() const { return *m_view.m_sharedMDA; }
    bool isAtLastDimension() const { return m_isAtLastDimension; }
    Py_ssize_t dimension() const { return record().m_shape[m_view.nextDimension()]; }

    /// False with "unable to set value." if a reshape has made the view, or the
    /// key's item, name what isn't there.
    bool holds(const IndexItem& item) const
    {
        const bool stands =
            m_reshapes == record().m_reshapes ||
            (m_view.checkFits() && m_isAtLastDimension == m_view.isAtLastDimension() &&
             !firstOutside(item, dimension()));
        return stands || refuse();
    }

    /// The lengths of what the item selects: those of the dimensions behind it,
    /// behind its own if it is a slice.
    Dimensions selectedLengths(const IndexItem& item) const
    {
        Dimensions lengths;
        if (const auto* slice = std::get_if<SliceIndexItem>(&item))
        {
            lengths.push_back(static_cast<std::uint64_t>(slice->m_slice_len.value_or(0)));
        }
        const auto& shape = record().m_shape;
        lengths.insert(lengths.end(), shape.begin() + m_view.m_numberOfIntegerIndicesSoFar + 1,
                       shape.end());
        return lengths;
    }

    /// The region of the record that the view and the item select, which takes
    /// the place of the view's final slice. Nothing, with "unable to set value.",
    /// if one position of it is outside its dimension.
    std::optional<Selection> region(const IndexItem& item) const
    {
        if (firstOutside(item, dimension()))
        {
            refuse();
            return std::nullopt;
        }
        MDArrayView local(m_view);
        if (local.hasFinalSlice())
        {
            local.removeFinalSlice();
        }
        if (const auto* integer = std::get_if<IntegerIndexItem>(&item))
        {
            local.appendIntegerItem(*integer);
        }
        else
        {
            local.appendSliceItem(std::get<SliceIndexItem>(item));
        }
        return selectionOf(local);
    }

private:
    static bool refuse()
    {
        raise(PyExc_RuntimeError, kUnableToSet);
        return false;
    }

    const MDArrayView& m_view;
    std::uint64_t m_reshapes;
    bool m_isAtLastDimension;
};

/// Stores values in the elements of a region, last dimension fastest, up to the
/// end of the shorter of the two.
template <class T>
void storeRegion(MDArrayWrapper& record, const Selection& region, const std::vector<T>& values)
{
    ElementWriter<T> writer(record);
    auto next = values.begin();
    forEachElement(region, [&](const char* address) {
        if (next == values.end())
        {
            return false;
        }
        const auto offset = address - static_cast<const char*>(record.m_buf);
        writer.store(offset / record.m_elemSizeInBytes, *next++);
        return true;
    });
}

/// An integer at the last dimension.
template <class T>
int assignElement(const Target& target, const IntegerIndexItem& item, PyObject* value)
{
    if (value == nullptr)
    {
        return fail(PyExc_RuntimeError, kNullData);
    }
    const auto converted = convertScalar<T>(value, false);
    if (!converted.m_hasValue)
    {
        return fail(converted.m_exceptionClass, converted.m_message);
    }
    std::vector<Py_ssize_t> indices;
    if (!target.holds(item) || !target.view().integerIndices(indices))
    {
        return kFailed;
    }
    indices.push_back(item.m_index);
    return setElement<T>(target.record(), indices, converted.m_value) ? 0 : kFailed;
}

/// An integer at an earlier dimension, or a slice at the last one: the right side
/// has exactly the shape of what is selected.
template <class T>
int assignSameShape(const Target& target, const IndexItem& item, PyObject* value)
{
    AllocationRequest request{kKindInfoOf<T>.m_shortName};
    MDArrayBuilder<T> builder(request);
    if (!walkSequence(builder, value, false) || !target.holds(item))
    {
        return kFailed;
    }
    if (builder.m_initializerDims != target.selectedLengths(item))
    {
        return failShape();
    }
    const auto region = target.region(item);
    if (!region)
    {
        return kFailed;
    }
    if (!builder.m_values.empty())
    {
        storeRegion(target.record(), *region, builder.m_values);
    }
    return 0;
}

/// A slice at an earlier dimension: only the number of elements counts. The
/// right side's elements are stored up to the end of the shorter side.
template <class T>
int assignSliceRegion(const Target& target, SliceIndexItem item, PyObject* value)
{
    AllocationRequest request{kKindInfoOf<T>.m_shortName};
    MDArrayBuilder<T> builder(request);
    if (!walkSequence(builder, value, false) || !target.holds(item))
    {
        return kFailed;
    }
    const bool isEmptySlice = item.m_slice_len.value_or(0) == 0;
    if (builder.m_values.empty())
    {
        return isEmptySlice ? 0 : fail(PyExc_ValueError, "slice is nonempty but values are empty.");
    }
    if (isEmptySlice)
    {
        return fail(PyExc_ValueError,
                    "slice is empty, but number of elements assigned is greater than zero.");
    }
    if (target.view().hasFinalSlice() && !composeWithFinalSlice(target.view(), item))
    {
        return kFailed;
    }
    const auto region = target.region(item);
    if (!region)
    {
        return kFailed;
    }
    if (region->isEmpty())
    {
        return failLength();
    }
    storeRegion(target.record(), *region, builder.m_values);
    return region->count() == builder.m_values.size() ? 0 : failLength();
}

template <class T>
int assignAtIndex(const Target& target, Py_ssize_t index, PyObject* value)
{
    IntegerIndexItem item{index, false};
    if (IndexRefusal refusal; !item.normalize(target.dimension(), refusal))
    {
        return fail(PyExc_IndexError, "index has an invalid value: " + std::to_string(index));
    }
    const MDArrayView& view = target.view();
    if (view.hasFinalSlice() && !indexIntoFinalSlice(view, item))
    {
        return kFailed;
    }
    return target.isAtLastDimension() ? assignElement<T>(target, item, value)
                                      : assignSameShape<T>(target, item, value);
}

template <class T>
int assignAtSlice(const Target& target, PyObject* key, PyObject* value)
{
    SliceIndexItem item;
    if (!readSliceKey(key, target.dimension(), item) || !target.holds(item))
    {
        return kFailed;
    }
    if (!target.isAtLastDimension())
    {
        return assignSliceRegion<T>(target, item, value);
    }
    if (target.view().hasFinalSlice() && !composeWithFinalSlice(target.view(), item))
    {
        return kFailed;
    }
    return assignSameShape<T>(target, item, value);
}

} // namespace

template <SupportedArrayEnum kind>
int assignSubscript(PyObject*, MDArrayView& view, PyObject* key, PyObject* value)
{
    if (!view.checkHasDimension())
    {
        return kFailed;
    }
    const Target target(view);
    return visitComplexity<kind>(view.m_isComplex, [&]<class T>(std::type_identity<T>) {
        if (PyLong_Check(key))
        {
            const Py_ssize_t index = callOut(PyLong_AsSsize_t, key);
            return index == -1 && PyErr_Occurred() != nullptr
                       ? kFailed
                       : assignAtIndex<T>(target, index, value);
        }
        if (Py_TYPE(key) != &PySlice_Type)
        {
            return fail(PyExc_RuntimeError, "index is not an integer or slice.");
        }
        return assignAtSlice<T>(target, key, value);
    });
}

#define VELLUM_INSTANTIATE(ACTION, kind, ...)                                                      \
    template int assignSubscript<SupportedArrayEnum::kind>(PyObject*, MDArrayView&, PyObject*,     \
                                                           PyObject*);
VELLUM_ELEMENT_KINDS(VELLUM_INSTANTIATE, VELLUM_INSTANTIATE, )
#undef VELLUM_INSTANTIATE

} // namespace vellum
