#include "output/text_form.h"

#include "output/nested_list.h"

#include <algorithm>
#include <string>

namespace vellum
{
namespace
{
/// All ASCII.
std::string textForm(const MDArrayView& view)
{
    const PyRef list = toNestedList(view);
    const PyRef listText = checked(callOut(PyObject_Str, list.get()));
    const char* elements = callOut(PyUnicode_AsUTF8AndSize, listText.get(), nullptr);
    if (elements == nullptr)
    {
        throw PythonError();
    }
    std::string text = elements;
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

PyObject* toPython(const std::string& text)
{
    return checked(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr))
        .release();
}
} // namespace

PyObject* arrayStr(PyObject*, MDArrayView& view)
{
    return toPython(textForm(view));
}

PyObject* arrayRepr(PyObject*, MDArrayView& view)
{
    const ElementType& type = view.record().type();
    const std::string elements = textForm(view);
    return toPython(std::string(type.kind().m_className) + "(" + elements +
                    (type.m_isComplex ? ", is_complex=True)" : ")"));
}

} // namespace vellum
