#include "output/nested_list.h"

#include "interpreter/containers.h"
#include "interpreter/signals.h"
#include "storage/element_to_python.h"

namespace vellum
{
namespace
{
class ListMaker
{
public:
    ListMaker(std::shared_ptr<const MDArrayWrapper> record, const Selection& selection)
        : m_record(std::move(record)), m_selection(selection),
          m_toPython(elementToPython(m_record->type().m_type))
    {
    }

    /// The list of the dimension `depth`, whose first element is at `address`.
    PyRef make(std::size_t depth, const char* address)
    {
        if (depth >= m_selection.dimensions())
        {
            return checked(callOut(PyList_New, 0));
        }
        const RecursionLevel level(" while building a nested list");
        const Py_ssize_t length = m_selection.m_lengths[depth];
        const bool isLast = depth + 1 == m_selection.dimensions();
        NewList list(length);
        for (Py_ssize_t i = 0; i < length; ++i)
        {
            PyRef item = isLast ? checked(m_toPython(address)) : make(depth + 1, address);
            list.set(i, item.release());
            address += m_selection.m_strides[depth];
            SignalWatch::atStep(i);
        }
        m_signals.behindLoop(length);
        return list.finish();
    }

private:
    std::shared_ptr<const MDArrayWrapper> m_record; ///< of the elements: kept alive
    const Selection& m_selection;
    ElementToPython m_toPython;
    SignalWatch m_signals;
};
} // namespace

PyRef buildList(std::shared_ptr<const MDArrayWrapper> record, const Selection& selection)
{
    return ListMaker(std::move(record), selection).make(0, selection.m_base);
}

PyRef toNestedList(const MDArrayView& view)
{
    return buildList(view.sharedRecord(), selectionOf(view));
}

} // namespace vellum
