#include "indexing/assignment.h"

#include "base/element_width.h"
#include "construction/element_conversion.h"
#include "construction/sequence_walk.h"
#include "indexing/slice_key.h"
#include "storage/selection.h"

namespace vellum
{
namespace
{
[[noreturn]] void refuseLength()
{
    raise(PyExc_ValueError, "length of slice does not match number of elements.");
}

/// Where an assignment goes: the next dimension of a view, and in it an `Index` or
/// a `SliceIndexItem`, which takes the place of the view's final slice. Foreign code
/// can reshape the record between the reading of the key and the store: what was
/// tested is tested again then.
class Target
{
public:
    explicit Target(const MDArrayView& view)
        : m_view(view), m_reshapes(view.record().reshapes()),
          m_isAtLastDimension(view.isAtLastDimension())
    {
    }

    const MDArrayView& view() const { return m_view; }
    MDArrayWrapper& record() const { return m_view.record(); }
    const ElementType& type() const { return record().type(); }
    bool isAtLastDimension() const { return m_isAtLastDimension; }
    Py_ssize_t dimension() const { return record().shape()[m_view.nextDimension()]; }

    /// Throws "unable to set value." if a reshape has made the view, or the item,
    /// name what isn't there.
    template <class Item>
    void requireIntact(const Item& item) const
    {
        if (m_reshapes != record().reshapes() &&
            (!m_view.fits() || m_isAtLastDimension != m_view.isAtLastDimension() ||
             firstOutside(item, dimension())))
        {
            raise(PyExc_RuntimeError, kUnableToSet);
        }
    }

    /// The lengths of what the item selects: those of the dimensions behind it,
    /// behind its own if it is a slice.
    Dimensions selectedLengths(Index) const
    {
        const auto& shape = record().shape();
        const auto behind = static_cast<std::ptrdiff_t>(m_view.nextDimension()) + 1;
        return {shape.begin() + behind, shape.end()};
    }
    Dimensions selectedLengths(const SliceIndexItem& slice) const
    {
        Dimensions lengths = selectedLengths(Index(0));
        lengths.insert(lengths.begin(), static_cast<std::uint64_t>(slice.m_slice_len));
        return lengths;
    }

    /// What the item selects. Throws "unable to set value." if one position of it is
    /// outside its dimension.
    Selection region(const SliceIndexItem& slice) const
    {
        requireInside(slice);
        return selectRegion(record(), m_view.integers(), &slice);
    }
    Selection region(Index index) const
    {
        requireInside(index);
        return selectRegion(record(), extended(m_view.integers(), index), nullptr);
    }

private:
    template <class Item>
    void requireInside(const Item& item) const
    {
        if (firstOutside(item, dimension()))
        {
            raise(PyExc_RuntimeError, kUnableToSet);
        }
    }

    const MDArrayView& m_view;
    std::uint64_t m_reshapes;
    bool m_isAtLastDimension;
};

/// Stores values in the elements of a region, last dimension fastest, up to the
/// end of the shorter of the two.
void storeRegion(MDArrayWrapper& record, const Selection& region, const ElementBuffer& values)
{
    const WritableElements writable = record.writableElements();
    visitElementWidth(values.width(), [&](auto width) {
        const char* next = values.data();
        const char* const end = next + values.count() * width;
        forEachElement(region, [&](const char* address) {
            if (next == end)
            {
                return false;
            }
            writable.store(address - record.block(), next, width);
            next += width;
            return true;
        });
    });
}

/// An integer at the last dimension.
void assignElement(const Target& target, Index index, PyObject* value)
{
    if (value == nullptr)
    {
        raise(PyExc_RuntimeError, kNullData);
    }
    alignas(16) char element[16] = {};
    Refusal refusal;
    if (!elementConverter(target.type().m_type, false)(readScalar(value), element, refusal))
    {
        raise(refusal.m_exceptionClass, refusal.m_message);
    }
    const WritableElements writable = target.record().writableElements();
    writable.store(target.view().offsetOf(index), element, target.type().m_width);
}

/// An integer at an earlier dimension, or a slice at the last one: the right side
/// has exactly the shape of what is selected.
template <class Item>
void assignSameShape(const Target& target, const Item& item, PyObject* value)
{
    AllocationRequest request{target.type().shortName()};
    MDArrayBuilder builder(target.type(), request);
    walkSequence(builder, value, false);
    target.requireIntact(item);
    if (builder.m_initializerDims != target.selectedLengths(item))
    {
        raise(PyExc_ValueError, "unable to perform assignment because the left and right sides "
                                "have a different shape.");
    }
    const Selection region = target.region(item);
    if (builder.m_values.count() != 0)
    {
        storeRegion(target.record(), region, builder.m_values);
    }
}

/// A slice at an earlier dimension: only the number of elements counts. The
/// right side's elements are stored up to the end of the shorter side.
void assignSliceRegion(const Target& target, const SliceIndexItem& item, PyObject* value)
{
    AllocationRequest request{target.type().shortName()};
    MDArrayBuilder builder(target.type(), request);
    walkSequence(builder, value, false);
    target.requireIntact(item);
    const bool isEmptySlice = item.m_slice_len == 0;
    if (builder.m_values.count() == 0)
    {
        if (!isEmptySlice)
        {
            raise(PyExc_ValueError, "slice is nonempty but values are empty.");
        }
        return;
    }
    if (isEmptySlice)
    {
        raise(PyExc_ValueError,
              "slice is empty, but number of elements assigned is greater than zero.");
    }
    const auto& outer = target.view().finalSlice();
    const Selection region = target.region(outer ? composeWithSlice(*outer, item) : item);
    if (region.isEmpty())
    {
        refuseLength();
    }
    storeRegion(target.record(), region, builder.m_values);
    if (region.count() != builder.m_values.count())
    {
        refuseLength();
    }
}

void assignAtIndex(const Target& target, Py_ssize_t key, PyObject* value)
{
    auto index = normalizeIndex(key, target.dimension());
    if (!index)
    {
        raise(PyExc_IndexError, invalidIndexText(key));
    }
    if (target.view().finalSlice())
    {
        index = indexIntoSlice(*target.view().finalSlice(), *index);
    }
    if (!index)
    {
        raise(PyExc_RuntimeError, "unable to index into slice.");
    }
    if (target.isAtLastDimension())
    {
        assignElement(target, *index, value);
    }
    else
    {
        assignSameShape(target, *index, value);
    }
}

void assignAtSlice(const Target& target, PyObject* key, PyObject* value)
{
    const SliceIndexItem item = readSliceKey(key, target.dimension());
    target.requireIntact(item);
    if (!target.isAtLastDimension())
    {
        assignSliceRegion(target, item, value);
        return;
    }
    const auto& outer = target.view().finalSlice();
    assignSameShape(target, outer ? composeWithSlice(*outer, item) : item, value);
}

} // namespace

int assignSubscript(PyObject*, MDArrayView& view, PyObject* key, PyObject* value)
{
    view.requireDimension();
    const Target target(view);
    if (isIntegerKey(key))
    {
        assignAtIndex(target, readIntegerKey(key), value);
    }
    else
    {
        requireSliceKey(key);
        assignAtSlice(target, key, value);
    }
    return 0;
}

} // namespace vellum
