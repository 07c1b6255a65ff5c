#include "atl/base.h"

#include <climits>
#include <cwchar>

namespace ATL {

namespace {

BSTR allocated(BSTR text)
{
    if (text == nullptr) {
        AtlThrow(E_OUTOFMEMORY);
    }
    return text;
}

} // namespace

void AtlThrow(HRESULT hr)
{
    throw CAtlException(hr);
}

HRESULT AtlHresultFromLastError() noexcept
{
    return AtlHresultFromWin32(static_cast<LONG>(GetLastError()));
}

HRESULT AtlHresultFromWin32(LONG error) noexcept
{
    return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}

CComCriticalSection::~CComCriticalSection()
{
    if (m_initialized) {
        DeleteCriticalSection(&m_sec);
    }
}

HRESULT CComCriticalSection::Init() noexcept
{
    if (!InitializeCriticalSectionEx(&m_sec, 0, 0)) {
        return AtlHresultFromLastError();
    }
    m_initialized = true;
    return S_OK;
}

void CComCriticalSection::Lock() noexcept
{
    EnterCriticalSection(&m_sec);
}

void CComCriticalSection::Unlock() noexcept
{
    LeaveCriticalSection(&m_sec);
}

CComAutoCriticalSection::CComAutoCriticalSection()
{
    if (const HRESULT hr = Init(); FAILED(hr)) {
        AtlThrow(hr);
    }
}

void CHandle::Attach(HANDLE handle) noexcept
{
    Close();
    m_h = handle;
}

void CHandle::Close() noexcept
{
    if (m_h != nullptr) {
        CloseHandle(std::exchange(m_h, nullptr));
    }
}

CComBSTR::CComBSTR(const OLECHAR* text)
    : m_str(text == nullptr ? nullptr : allocated(SysAllocString(text)))
{
}

CComBSTR::CComBSTR(const OLECHAR* text, size_t length)
{
    if (length > UINT_MAX) {
        AtlThrow(E_OUTOFMEMORY);
    }
    m_str = allocated(SysAllocStringLen(text, static_cast<UINT>(length)));
}

CComBSTR::CComBSTR(const char* text)
{
    if (text == nullptr) {
        return;
    }
    const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (size <= 0) {
        AtlThrow(AtlHresultFromLastError());
    }
    // The size counts the terminator, the BSTR brings its own.
    CComBSTR wide(nullptr, static_cast<size_t>(size) - 1);
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, wide.m_str, size) != size) {
        AtlThrow(AtlHresultFromLastError());
    }
    m_str = wide.Detach();
}

CComBSTR::CComBSTR(const CComBSTR& other)
    : m_str(other.Copy())
{
}

BSTR CComBSTR::CopyOf(BSTR text)
{
    return text == nullptr ? nullptr : allocated(SysAllocStringByteLen(reinterpret_cast<LPCSTR>(text), SysStringByteLen(text)));
}

void CComBSTR::Attach(BSTR text) noexcept
{
    if (text != m_str) {
        Empty();
        m_str = text;
    }
}

void CComBSTR::Empty() noexcept
{
    SysFreeString(std::exchange(m_str, nullptr));
}

CComBSTR& CComBSTR::operator+=(const OLECHAR* text)
{
    if (text == nullptr) {
        return *this;
    }
    const size_t length = Length();
    const size_t added = wcslen(text);
    CComBSTR joined(nullptr, length + added);
    if (length != 0) {
        wmemcpy(joined.m_str, m_str, length);
    }
    wmemcpy(joined.m_str + length, text, added);
    std::swap(m_str, joined.m_str);
    return *this;
}

} // namespace ATL
