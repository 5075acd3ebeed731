#include "output/comparison.h"

#include "base/load_element.h"
#include "storage/selection.h"

#include <cmath>
#include <limits>

namespace vellum
{
namespace
{
/// Exactly, as Python compares an `int` with a `float` that has no fraction.
template <class Real>
bool equalsDouble(Real value, double other)
{
    if constexpr (std::is_integral_v<Real>)
    {
        // Both bounds are powers of two, or 0, and so doubles themselves.
        constexpr double least = static_cast<double>(std::numeric_limits<Real>::min());
        const double bound = std::ldexp(1.0, std::numeric_limits<Real>::digits);
        return other >= least && other < bound && static_cast<Real>(other) == value;
    }
    else
    {
        return static_cast<double>(value) == other;
    }
}

/// Whether the Python objects that stand for two elements of one kind are equal.
/// A complex element stands for a pair of doubles, whatever its kind.
template <class Left, class Right>
bool equalElements(Left left, Right right)
{
    if constexpr (kIsComplex<Left> && kIsComplex<Right>)
    {
        return static_cast<double>(left.real()) == static_cast<double>(right.real()) &&
               static_cast<double>(left.imag()) == static_cast<double>(right.imag());
    }
    else if constexpr (kIsComplex<Right>)
    {
        return static_cast<double>(right.imag()) == 0 &&
               equalsDouble(left, static_cast<double>(right.real()));
    }
    else
    {
        return left == right;
    }
}

struct Row
{
    const char* m_address;
    Py_ssize_t m_stride;
};

/// Compares two rows of `length` elements.
using RowComparer = bool (*)(Row left, Row right, Py_ssize_t length);

template <class Left, class Right>
bool equalRows(Row left, Row right, Py_ssize_t length)
{
    for (Py_ssize_t i = 0; i < length; ++i)
    {
        if (!equalElements(loadElement<Left>(left.m_address), loadElement<Right>(right.m_address)))
        {
            return false;
        }
        left.m_address += left.m_stride;
        right.m_address += right.m_stride;
    }
    return true;
}

/// For two types of one kind, of which the left isn't complex if the right is real.
RowComparer rowComparer(const ElementType& left, const ElementType& right)
{
    return visitElementType(left.m_type, [&]<class Left>(std::type_identity<Left>) -> RowComparer {
        if constexpr (!kIsComplex<Left> && !std::is_same_v<Left, bool>)
        {
            if (right.m_isComplex)
            {
                return equalRows<Left, std::complex<Left>>;
            }
        }
        return equalRows<Left, Left>;
    });
}

/// Of two selections of one shape, not empty.
bool equalElementwise(const Selection& left, const Selection& right, RowComparer equal)
{
    RowCursor leftRow(left);
    RowCursor rightRow(right);
    do
    {
        if (!equal({leftRow.row(), leftRow.stride()}, {rightRow.row(), rightRow.stride()},
                   leftRow.length()))
        {
            return false;
        }
    } while (leftRow.next() && rightRow.next());
    return true;
}

/// What traversing two selections in step finds out before it meets an element.
enum class ShapeResult
{
    Differ,       ///< one ends, or meets an element, where the other goes on
    EqualAsEmpty, ///< both end before they meet an element
    Elements,     ///< the elements decide
};

ShapeResult compareShapes(const Selection& left, const Selection& right)
{
    if (left.dimensions() == 0 || right.dimensions() == 0)
    {
        // Without dimensions there is nothing to step to, as in an array of no rows.
        const auto endsAtOnce = [](const Selection& selection) {
            return selection.dimensions() == 0 || selection.m_lengths[0] == 0;
        };
        return endsAtOnce(left) && endsAtOnce(right) ? ShapeResult::EqualAsEmpty
                                                     : ShapeResult::Differ;
    }
    for (std::size_t k = 0;; ++k)
    {
        if (k == left.dimensions() || k == right.dimensions())
        {
            return left.dimensions() == right.dimensions() ? ShapeResult::Elements
                                                           : ShapeResult::Differ;
        }
        if (left.m_lengths[k] != right.m_lengths[k])
        {
            return ShapeResult::Differ;
        }
        if (left.m_lengths[k] == 0)
        {
            return ShapeResult::EqualAsEmpty;
        }
    }
}

bool equalArrays(const MDArrayView& left, const MDArrayView& right)
{
    ElementType leftType = left.record().type();
    ElementType rightType = right.record().type();
    if (leftType.m_kind != rightType.m_kind)
    {
        return false;
    }
    Selection leftSelection = selectionOf(left);
    Selection rightSelection = selectionOf(right);
    const ShapeResult shapes = compareShapes(leftSelection, rightSelection);
    if (shapes != ShapeResult::Elements)
    {
        return shapes == ShapeResult::EqualAsEmpty;
    }
    if (leftType.m_isComplex && !rightType.m_isComplex)
    {
        std::swap(leftType, rightType);
        std::swap(leftSelection, rightSelection);
    }
    return equalElementwise(leftSelection, rightSelection, rowComparer(leftType, rightType));
}

} // namespace

PyObject* compareArrays(PyObject*, MDArrayView& view, PyObject* other, int operation)
{
    if (operation != Py_EQ && operation != Py_NE)
    {
        raise(PyExc_NotImplementedError, "inequality operators not supported.");
    }
    const bool isEqual = isArrayObject(other) && equalArrays(view, viewOf(other));
    return PyBool_FromLong(isEqual == (operation == Py_EQ));
}

} // namespace vellum
