#include "client/paneObject.h"

#include "client/wireText.h"

#include <iterator>

namespace kesta {

using Microsoft::WRL::ComPtr;

namespace {

constexpr CLSID JAVA_MANAGER = {0x4F1C2A90, 0x7B3D, 0x4E25, {0x9A, 0x61, 0x0C, 0x5D, 0x8E, 0x7F, 0x2B, 0x14}};
constexpr IID EVENTS = {0xE3A19C5F, 0x8B27, 0x4D60, {0xA4, 0xF3, 0x1C, 0x6E, 0x92, 0xB0, 0x7D, 0x58}};
constexpr DISPID FIRST_EVENT = 2;
constexpr DISPID LAST_EVENT = 4;

std::wstring textOf(BSTR text)
{
    return text == nullptr ? std::wstring() : std::wstring(text, SysStringLen(text));
}

// Owns its VARIANTs.
class CArguments
{
public:
    explicit CArguments(const std::vector<Value>& values)
    {
        for (auto value = values.rbegin(); value != values.rend(); ++value) { // the last argument comes first
            VARIANT variant = {};
            if (const auto* text = std::get_if<std::wstring>(&value->get())) {
                const std::wstring wire = toWire(*text);
                variant.vt = VT_BSTR;
                variant.bstrVal = SysAllocStringLen(wire.data(), static_cast<UINT>(wire.size()));
                m_isComplete = m_isComplete && variant.bstrVal != nullptr;
            } else if (const auto* number = std::get_if<int>(&value->get())) {
                variant.vt = VT_I4;
                variant.lVal = *number;
            } else {
                variant.vt = VT_BOOL;
                variant.boolVal = std::get<bool>(value->get()) ? VARIANT_TRUE : VARIANT_FALSE;
            }
            m_variants.push_back(variant);
        }
    }
    ~CArguments()
    {
        for (VARIANT& variant : m_variants) {
            VariantClear(&variant);
        }
    }
    CArguments(const CArguments&) = delete;
    CArguments& operator=(const CArguments&) = delete;

    bool isComplete() const { return m_isComplete; }
    DISPPARAMS parameters() { return {m_variants.data(), nullptr, static_cast<UINT>(m_variants.size()), 0}; }

private:
    std::vector<VARIANT> m_variants;
    bool m_isComplete = true;
};

struct SAnswer : VARIANT
{
    SAnswer() { VariantInit(this); }
    ~SAnswer() { VariantClear(this); }
    SAnswer(const SAnswer&) = delete;
    SAnswer& operator=(const SAnswer&) = delete;
};

struct SException : EXCEPINFO
{
    SException()
        : EXCEPINFO()
    {
    }
    ~SException()
    {
        SysFreeString(bstrSource);
        SysFreeString(bstrDescription);
        SysFreeString(bstrHelpFile);
    }
    SException(const SException&) = delete;
    SException& operator=(const SException&) = delete;
};

} // namespace

std::wstring errorText(HRESULT hr)
{
    wchar_t number[16] = L"";
    wsprintfW(number, L"0x%08lX", hr);
    wchar_t text[512] = L"";
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr,
                   static_cast<DWORD>(hr), 0, text, static_cast<DWORD>(std::size(text)), nullptr);
    std::wstring whole = std::wstring(number) + L" " + text;
    whole.resize(whole.find_last_not_of(L' ') + 1);
    return whole;
}

Result failure(HRESULT hr, const std::wstring& what)
{
    return {hr, what + L" " + errorText(hr)};
}

Result lastFailure(const std::wstring& what)
{
    const DWORD error = GetLastError();
    return failure(error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error), what);
}

// Lives as long as the server holds it; after its disconnection it hands nothing on.
class CSink final : public IDispatch
{
public:
    explicit CSink(CServerObject::EventHandler eventHandler)
        : handler(std::move(eventHandler))
    {
    }
    virtual ~CSink() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, EVENTS);
        *object = isKnown ? static_cast<IDispatch*>(this) : nullptr;
        if (isKnown) {
            AddRef();
        }
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*, UINT*) override
    {
        if (id < FIRST_EVENT || id > LAST_EVENT) {
            return DISP_E_MEMBERNOTFOUND;
        }
        if (parameters->cArgs != 1 || parameters->rgvarg[0].vt != VT_BSTR) {
            return DISP_E_TYPEMISMATCH;
        }
        if (handler) {
            handler(static_cast<EventKind>(id - FIRST_EVENT), fromWire(textOf(parameters->rgvarg[0].bstrVal)));
        }
        return S_OK;
    }

    CServerObject::EventHandler handler;

private:
    ULONG m_references = 0;
};

CServerObject::CServerObject() = default;

CServerObject::~CServerObject()
{
    release();
}

Result CServerObject::create()
{
    const HRESULT hr = CoCreateInstance(JAVA_MANAGER, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                        reinterpret_cast<void**>(m_object.GetAddressOf()));
    return FAILED(hr) ? failure(hr, L"The server could not be started. Is KESTAx64.exe registered?") : Result();
}

Result CServerObject::connect(EventHandler handler)
{
    m_sink = new CSink(std::move(handler));
    ComPtr<IConnectionPointContainer> container;
    HRESULT hr = m_object.As(&container);
    if (SUCCEEDED(hr)) {
        hr = container->FindConnectionPoint(EVENTS, &m_point);
    }
    if (SUCCEEDED(hr)) {
        hr = m_point->Advise(m_sink.Get(), &m_cookie);
    }
    return FAILED(hr) ? failure(hr, L"The control's events cannot be received.") : Result();
}

Result CServerObject::invoke(DISPID member, const std::vector<Value>& arguments) const
{
    CArguments given(arguments);
    if (!given.isComplete()) {
        return failure(E_OUTOFMEMORY, L"The call's texts are too long.");
    }
    DISPPARAMS parameters = given.parameters();
    SAnswer answer;
    SException exception;
    HRESULT hr =
        m_object->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &answer, &exception, nullptr);
    if (SUCCEEDED(hr)) {
        if (answer.vt == VT_EMPTY) {
            return {};
        }
        hr = VariantChangeType(&answer, &answer, 0, VT_BSTR);
        return FAILED(hr) ? failure(hr, L"The answer is not a text.") : Result{S_OK, fromWire(textOf(answer.bstrVal))};
    }
    if (hr == DISP_E_EXCEPTION && FAILED(exception.scode)) {
        hr = exception.scode;
    }
    const std::wstring description = textOf(exception.bstrDescription);
    return {hr, description.empty() ? errorText(hr) : description};
}

void CServerObject::release()
{
    if (m_sink != nullptr) {
        m_sink->handler = nullptr;
    }
    if (m_cookie != 0) {
        m_point->Unadvise(m_cookie);
        m_cookie = 0;
    }
    m_point.Reset();
    m_object.Reset();
    m_sink.Reset();
}

} // namespace kesta
