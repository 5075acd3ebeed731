#include "output/text_form.h"

#include "output/nested_list.h"

#include <algorithm>

namespace vellum
{
namespace
{
/// The text in UTF-8, all ASCII. Nothing with a Python error on failure.
template <class T>
std::optional<std::string> textForm(const MDArrayView& view, bool withClassName)
{
    const bool isComplex = view.m_isComplex;
    const PyRef list(toNestedList<T>(view));
    const PyRef listText(list ? callOut(PyObject_Str, list.get()) : nullptr);
    const char* elements =
        listText ? callOut(PyUnicode_AsUTF8AndSize, listText.get(), nullptr) : nullptr;
    if (elements == nullptr)
    {
        return std::nullopt;
    }
    std::string text;
    if (withClassName)
    {
        text = std::string(kKindInfoOf<T>.m_className) + "(";
    }
    text += elements;
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    if (withClassName)
    {
        text += isComplex ? ", is_complex=True)" : ")";
    }
    return text;
}

template <SupportedArrayEnum kind>
PyObject* textObject(const MDArrayView& view, bool withClassName)
{
    const auto text = visitComplexity<kind>(view.m_isComplex, [&]<class T>(std::type_identity<T>) {
        return textForm<T>(view, withClassName);
    });
    return text ? callOut(PyUnicode_Decode, text->data(), static_cast<Py_ssize_t>(text->size()),
                          nullptr, nullptr)
                : nullptr;
}
} // namespace

template <SupportedArrayEnum kind>
PyObject* arrayStr(PyObject*, MDArrayView& view)
{
    return textObject<kind>(view, false);
}

template <SupportedArrayEnum kind>
PyObject* arrayRepr(PyObject*, MDArrayView& view)
{
    return textObject<kind>(view, true);
}

#define VELLUM_INSTANTIATE(ACTION, kind, ...)                                                      \
    template PyObject* arrayStr<SupportedArrayEnum::kind>(PyObject*, MDArrayView&);                \
    template PyObject* arrayRepr<SupportedArrayEnum::kind>(PyObject*, MDArrayView&);
VELLUM_ELEMENT_KINDS(VELLUM_INSTANTIATE, VELLUM_INSTANTIATE, )
#undef VELLUM_INSTANTIATE

} // namespace vellum
