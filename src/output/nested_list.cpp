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
        NewList list(m_selection.m_lengths[depth]);
        if (depth + 1 == m_selection.dimensions())
        {
            setElements(list, address);
        }
        else
        {
            setLists(list, depth, address);
        }
        m_signals.behindLoop(m_selection.m_lengths[depth]);
        return list.finish();
    }

private:
    void setElements(NewList& list, const char* address) const
    {
        const Py_ssize_t length = m_selection.m_lengths.back();
        const Py_ssize_t stride = m_selection.m_strides.back();
        for (Py_ssize_t i = 0; i < length; ++i)
        {
            list.set(i, orThrow(m_toPython(address)));
            address += stride;
            SignalWatch::atStep(i);
        }
    }

    void setLists(NewList& list, std::size_t depth, const char* address)
    {
        for (Py_ssize_t i = 0; i < m_selection.m_lengths[depth]; ++i)
        {
            list.set(i, make(depth + 1, address).release());
            address += m_selection.m_strides[depth];
            SignalWatch::atStep(i);
        }
    }

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
