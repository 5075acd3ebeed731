#include "construction/sequence_walk.h"

#include "construction/element_conversion.h"
#include "construction/sequence_fetch.h"
#include "interpreter/signals.h"
#include "storage/array_object.h"
#include "storage/selection.h"

namespace vellum
{
namespace
{
constexpr const char* kWhere = " while walking a nested sequence";

/// The length of a child that is no sequence.
constexpr Py_ssize_t kNoSequence = -1;

Py_ssize_t lengthOrNone(PyObject* object)
{
    return isSequence(object) ? sequenceLength(object) : kNoSequence;
}

PyRef fetchChild(PyObject* sequence, Py_ssize_t position)
{
    PyRef child = fetchItem(sequence, position);
    if (!child)
    {
        replaceError(PyExc_RuntimeError, kNullData);
    }
    return child;
}

class SequenceTraversal
{
public:
    SequenceTraversal(MDArrayBuilder& builder, bool isConstructor)
        : m_builder(builder), m_convert(elementConverter(builder.m_type.m_type, isConstructor))
    {
    }

    void visit(PyObject* value)
    {
        if (value == nullptr)
        {
            raise(PyExc_RuntimeError, kNullData);
        }
        if (isArrayObject(value))
        {
            visitArray(viewOf(value));
        }
        else if (isSequence(value))
        {
            visitChildren(value);
        }
        else
        {
            addElement(readScalar(value));
        }
    }

    /// A level of length 0 counts as not recorded, and a foreign sequence can
    /// change its mind: what was read has the last word.
    void finish() const
    {
        if (checkedProduct(m_builder.m_initializerDims) !=
            std::uint64_t(m_builder.m_values.count()))
        {
            refuseRagged();
        }
    }

private:
    [[noreturn]] static void refuseRagged()
    {
        raise(PyExc_ValueError, "arrays must be rectangular.");
    }

    /// A shallow look at the children of a sequence before it is entered: they are
    /// alike if none is a sequence, or all are of one length. The first tells which;
    /// a length is asked only where it decides.
    void requireAlike(PyObject* sequence, Py_ssize_t length)
    {
        if (length < 2)
        {
            return;
        }
        const Py_ssize_t first = lengthOrNone(fetchChild(sequence, 0).get());
        for (Py_ssize_t i = 1; i < length; ++i)
        {
            const PyRef child = fetchChild(sequence, i);
            const bool isAlike = first == kNoSequence ? !isSequence(child.get())
                                                      : lengthOrNone(child.get()) == first;
            if (!isAlike)
            {
                raise(PyExc_ValueError, "elements of array are of different lengths or types.");
            }
            SignalWatch::atStep(i);
        }
        m_signals.behindLoop(length);
    }

    void visitChildren(PyObject* sequence)
    {
        if (PyUnicode_Check(sequence))
        {
            raise(PyExc_ValueError, "value passed to initializer must be numeric.");
        }
        const RecursionLevel level(kWhere);
        const Py_ssize_t length = sequenceLength(sequence);
        requireAlike(sequence, length);
        enterLevel(length);
        for (Py_ssize_t i = 0; i < length; ++i)
        {
            visit(fetchChild(sequence, i).get());
            SignalWatch::atStep(i);
        }
        m_signals.behindLoop(length);
        leaveLevel(length);
    }

    /// An array of this module gives what its sequence interface would, read from its
    /// block. No foreign code runs meanwhile.
    void visitArray(const MDArrayView& view)
    {
        view.requireDimension();
        visitLevels(selectionOf(view), 0, elementReader(view.record().type().m_type));
    }

    /// The rows of an array are alike: the first way down tells every level, and below
    /// it all elements follow in one loop. None are below a level of length 0.
    void visitLevels(const Selection& selection, std::size_t depth, ElementReader read)
    {
        if (depth == selection.dimensions())
        {
            forEachElement(selection, [&](const char* address) {
                addElement(read(address));
                return true;
            });
            return;
        }
        const RecursionLevel level(kWhere);
        const Py_ssize_t length = selection.m_lengths[depth];
        enterLevel(length);
        if (length != 0)
        {
            visitLevels(selection, depth + 1, read);
        }
        leaveLevel(length);
    }

    void enterLevel(Py_ssize_t length)
    {
        ++m_depth;
        if (m_builder.m_initializerDims.size() < m_depth)
        {
            m_builder.m_initializerDims.push_back(0);
        }
        if (m_levelLengths.size() < m_depth)
        {
            m_levelLengths.push_back(0);
        }
        m_levelLengths[m_depth - 1] = static_cast<std::uint64_t>(length);
    }

    /// The length must be that of every level at this depth.
    void leaveLevel(Py_ssize_t length)
    {
        std::uint64_t& recorded = m_builder.m_initializerDims[m_depth - 1];
        if (recorded == 0)
        {
            recorded = static_cast<std::uint64_t>(length);
        }
        else if (recorded != static_cast<std::uint64_t>(length))
        {
            refuseRagged();
        }
        m_levelLengths[m_depth - 1] = 0;
        --m_depth;
    }

    void addElement(const ScalarReading& reading)
    {
        if (!m_convert(reading, m_builder.appendElements(1), m_refusal))
        {
            raise(m_refusal.m_exceptionClass, m_refusal.m_message);
        }
        if (m_scalarDepth == 0)
        {
            beginElements();
        }
        if (m_scalarDepth != m_depth)
        {
            refuseRagged();
        }
    }

    /// The first element tells how deep all stand, and how many there will be.
    void beginElements()
    {
        m_scalarDepth = m_depth;
        if (m_builder.m_initializerDims.empty())
        {
            m_builder.m_initializerDims = {1, 1};
        }
        m_builder.reserveValues(checkedProduct(m_levelLengths).value_or(kUnrepresentable));
    }

    MDArrayBuilder& m_builder;
    ElementConverter m_convert;
    Refusal m_refusal;
    SignalWatch m_signals;
    std::size_t m_depth = 0;       ///< 0 outside any sequence
    std::size_t m_scalarDepth = 0; ///< depth of the first element met; 0 until then
    Dimensions m_levelLengths;     ///< length of the sequence open at each level
};
} // namespace

void walkSequence(MDArrayBuilder& builder, PyObject* value, bool isConstructor)
{
    SequenceTraversal traversal(builder, isConstructor);
    traversal.visit(value);
    traversal.finish();
}

} // namespace vellum
