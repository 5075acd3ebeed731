#include "output/nested_list.h"

#include "indexing/element_to_python.h"
#include "interpreter/containers.h"
#include "interpreter/signals.h"

namespace vellum
{
namespace
{
/// Makes the lists of one selection, whose record the caller keeps alive.
template <class T>
class ListMaker
{
public:
    explicit ListMaker(const Selection& selection) : m_selection(selection) {}

    /// The list of the dimension `depth`, whose first element is at `address`.
    PyObject* make(std::size_t depth, const char* address)
    {
        if (depth >= m_selection.dimensions())
        {
            return callOut(PyList_New, 0);
        }
        const RecursionLevel level(" while building a nested list");
        if (!level.entered())
        {
            return nullptr;
        }
        const Py_ssize_t length = m_selection.m_lengths[depth];
        auto list = UnfinishedContainer::list(length);
        if (!list)
        {
            return fail();
        }
        const bool isLast = depth + 1 == m_selection.dimensions();
        for (Py_ssize_t i = 0; i < length; ++i)
        {
            PyObject* item = isLast ? makeElement(address) : make(depth + 1, address);
            if (item == nullptr)
            {
                return nullptr;
            }
            PyList_SET_ITEM(list.get(), i, item);
            address += m_selection.m_strides[depth];
            if (!m_signals.atStep(i))
            {
                return nullptr;
            }
        }
        return m_signals.behindLoop(length) ? list.finish() : nullptr;
    }

private:
    static PyObject* fail() { return replaceError(PyExc_RuntimeError, "unable to set list item."); }

    static PyObject* makeElement(const char* address)
    {
        PyObject* element = elementToPython<T>(address);
        return element != nullptr ? element : fail();
    }

    const Selection& m_selection;
    SignalWatch m_signals;
};
} // namespace

template <class T>
PyObject* toNestedList(const MDArrayView& view)
{
    // Foreign code runs in between: the values stay, and the shape is that of now.
    const auto record = view.m_sharedMDA;
    const auto selection = selectionOf(view);
    return selection ? ListMaker<T>(*selection).make(0, selection->m_base) : nullptr;
}

#define VELLUM_INSTANTIATE(T) template PyObject* toNestedList<T>(const MDArrayView&);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
