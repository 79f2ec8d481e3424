// The enumerators of the connection points.
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "platform/automation.h"
#include "platform/counted_object.h"

// The object whose reference an element holds.
inline IUnknown* ObjectOf(const CONNECTDATA& connection) { return connection.pUnk; }
inline IUnknown* ObjectOf(IConnectionPoint* point) { return point; }

// Enumerates the elements it was made with, and holds references to their objects.
template <class Interface, const IID& id, class Element>
class Enumerator final : public CountedObject<Interface, id, Enumerator<Interface, id, Element>>
{
public:
    // Creates an enumerator that begins at index `at`. E_OUTOFMEMORY when there is no memory.
    static HRESULT Make(std::vector<Element> elements, std::size_t at, Interface** enumerator)
    {
        *enumerator = new (std::nothrow) Enumerator(std::move(elements), at);
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE Next(ULONG count, Element* elements, ULONG* given) override
    {
        if (!elements || (!given && count != 1)) return E_POINTER;
        const std::size_t taken = std::min<std::size_t>(count, m_elements.size() - m_at);
        for (std::size_t i = 0; i < taken; ++i) {
            elements[i] = m_elements[m_at++];
            ObjectOf(elements[i])->AddRef();
        }
        if (given) *given = static_cast<ULONG>(taken);
        return taken == count ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const std::size_t skipped = std::min<std::size_t>(count, m_elements.size() - m_at);
        m_at += skipped;
        return skipped == count ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_at = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(Interface** copy) override
    {
        return copy ? Make(m_elements, m_at, copy) : E_POINTER;
    }

private:
    template <class, const IID&, class>
    friend class CountedObject;

    Enumerator(std::vector<Element> elements, std::size_t at)
        : m_elements(std::move(elements)), m_at(at)
    {
        for (const Element& element : m_elements) ObjectOf(element)->AddRef();
    }
    ~Enumerator()
    {
        for (const Element& element : m_elements) ObjectOf(element)->Release();
    }

    const std::vector<Element> m_elements;
    std::size_t m_at;
};

using ConnectionEnumerator = Enumerator<IEnumConnections, IID_IEnumConnections, CONNECTDATA>;
using ConnectionPointEnumerator =
    Enumerator<IEnumConnectionPoints, IID_IEnumConnectionPoints, IConnectionPoint*>;
