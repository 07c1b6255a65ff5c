#include "atl/base.h"

#include <climits>
#include <cstring>
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

// The conversions count in int.
int checkedLength(size_t length)
{
    if (length > INT_MAX) {
        AtlThrow(E_OUTOFMEMORY);
    }
    return static_cast<int>(length);
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

std::string narrowText(const wchar_t* text, size_t length)
{
    if (length == 0) {
        return {};
    }
    const int wideLength = checkedLength(length);
    const int narrowLength = WideCharToMultiByte(CP_ACP, 0, text, wideLength, nullptr, 0, nullptr, nullptr);
    std::string narrow;
    try {
        narrow.resize(static_cast<size_t>(narrowLength));
    } catch (const std::bad_alloc&) {
        AtlThrow(E_OUTOFMEMORY);
    }
    if (WideCharToMultiByte(CP_ACP, 0, text, wideLength, narrow.data(), narrowLength, nullptr, nullptr) == 0) {
        AtlThrow(AtlHresultFromLastError());
    }
    return narrow;
}

std::string narrowText(BSTR text)
{
    return narrowText(text, SysStringLen(text));
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
    : CComBSTR(text, text == nullptr ? 0 : strlen(text))
{
}

CComBSTR::CComBSTR(const char* text, size_t length)
    : CComBSTR()
{
    if (text == nullptr) {
        return;
    }
    const int narrowLength = checkedLength(length);
    const int wideLength = MultiByteToWideChar(CP_ACP, 0, text, narrowLength, nullptr, 0);
    if (wideLength == 0 && length != 0) {
        AtlThrow(AtlHresultFromLastError());
    }
    m_str = allocated(SysAllocStringLen(nullptr, static_cast<UINT>(wideLength)));
    if (MultiByteToWideChar(CP_ACP, 0, text, narrowLength, m_str, wideLength) != wideLength) {
        AtlThrow(AtlHresultFromLastError());
    }
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
    CComBSTR joined(static_cast<const OLECHAR*>(nullptr), length + added);
    if (length != 0) {
        wmemcpy(joined.m_str, m_str, length);
    }
    wmemcpy(joined.m_str + length, text, added);
    std::swap(m_str, joined.m_str);
    return *this;
}

} // namespace ATL
