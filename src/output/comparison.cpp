#include "output/comparison.h"

#include <cmath>
#include <limits>

namespace vellum
{
namespace
{
/// Exactly, as Python compares an `int` with a `float`.
template <class Real>
bool equalsDouble(Real value, double other)
{
    if constexpr (std::is_integral_v<Real>)
    {
        // Both bounds are powers of two, or 0, and so doubles themselves.
        constexpr double least = static_cast<double>(std::numeric_limits<Real>::min());
        const double bound = std::ldexp(1.0, std::numeric_limits<Real>::digits);
        return other >= least && other < bound && static_cast<Real>(other) == value &&
               static_cast<double>(static_cast<Real>(other)) == other;
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
    if constexpr (ElementTraits<Left>::kIsComplex && ElementTraits<Right>::kIsComplex)
    {
        return static_cast<double>(left.real()) == static_cast<double>(right.real()) &&
               static_cast<double>(left.imag()) == static_cast<double>(right.imag());
    }
    else if constexpr (ElementTraits<Left>::kIsComplex)
    {
        return equalElements(right, left);
    }
    else if constexpr (ElementTraits<Right>::kIsComplex)
    {
        return static_cast<double>(right.imag()) == 0 &&
               equalsDouble(left, static_cast<double>(right.real()));
    }
    else
    {
        return left == right;
    }
}

/// Of two selections of one shape, not empty.
template <class Left, class Right>
bool equalElementwise(const Selection& left, const Selection& right)
{
    RowCursor leftRow(left);
    RowCursor rightRow(right);
    do
    {
        const char* leftAddress = leftRow.row();
        const char* rightAddress = rightRow.row();
        for (Py_ssize_t i = 0; i < leftRow.length(); ++i)
        {
            if (!equalElements(loadElement<Left>(leftAddress), loadElement<Right>(rightAddress)))
            {
                return false;
            }
            leftAddress += leftRow.stride();
            rightAddress += rightRow.stride();
        }
    } while (leftRow.next() && rightRow.next());
    return true;
}

/// What walking two selections in step finds out before it meets an element.
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

template <class Real>
bool equalSelections(const Selection& left, bool leftIsComplex, const Selection& right,
                     bool rightIsComplex)
{
    constexpr SupportedArrayEnum kind = ElementTraits<Real>::kKind;
    return visitComplexity<kind>(leftIsComplex, [&]<class Left>(std::type_identity<Left>) {
        return visitComplexity<kind>(rightIsComplex, [&]<class Right>(std::type_identity<Right>) {
            return equalElementwise<Left, Right>(left, right);
        });
    });
}

/// Nothing with a Python error if one of the views doesn't fit its record.
std::optional<bool> equalArrays(const MDArrayView& left, const MDArrayView& right)
{
    if (left.m_supportedArrayEnum != right.m_supportedArrayEnum)
    {
        return false;
    }
    const auto leftSelection = selectionOf(left);
    const auto rightSelection = leftSelection ? selectionOf(right) : std::nullopt;
    if (!rightSelection)
    {
        return std::nullopt;
    }
    const ShapeResult shapes = compareShapes(*leftSelection, *rightSelection);
    if (shapes != ShapeResult::Elements)
    {
        return shapes == ShapeResult::EqualAsEmpty;
    }
    return visitElementType(left.m_sharedMDA->m_arrayType, [&]<class T>(std::type_identity<T>) {
        return equalSelections<typename ElementTraits<T>::Real>(*leftSelection, left.m_isComplex,
                                                                *rightSelection, right.m_isComplex);
    });
}

} // namespace

PyObject* compareArrays(PyObject*, MDArrayView& view, PyObject* other, int operation)
{
    if (operation != Py_EQ && operation != Py_NE)
    {
        return raise(PyExc_NotImplementedError, "inequality operators not supported.");
    }
    if (!isArrayObject(other))
    {
        return PyBool_FromLong(operation == Py_NE);
    }
    const MDArrayView* otherView = viewOf(other);
    if (otherView == nullptr)
    {
        return raise(PyExc_RuntimeError, kNotInitialized);
    }
    const auto isEqual = equalArrays(view, *otherView);
    return isEqual ? PyBool_FromLong(*isEqual == (operation == Py_EQ)) : nullptr;
}

} // namespace vellum
