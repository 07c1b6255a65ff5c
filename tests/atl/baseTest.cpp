#include "atl/atl.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

namespace {

const auto& realMultiByteToWideChar = ImportHook<decltype(&MultiByteToWideChar)>::original;

BOOL noCriticalSection(LPCRITICAL_SECTION, DWORD, DWORD)
{
    SetLastError(ERROR_OUTOFMEMORY);
    return FALSE;
}

std::wstring textOf(BSTR text)
{
    return text == nullptr ? L"(null)" : std::wstring(text, SysStringLen(text));
}

HRESULT thrownBy(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const CAtlException& exception) {
        return exception.m_hr;
    }
    return S_OK;
}

// An object that counts, for the pointer owner.
class CCounted final : public IUnknown
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        *object = IsEqualIID(iid, IID_IUnknown) ? this : nullptr;
        if (*object != nullptr) {
            AddRef();
        }
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_references); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        if (m_whenReleased) {
            m_whenReleased();
        }
        return static_cast<ULONG>(--m_references);
    }

    int m_references = 0;
    std::function<void()> m_whenReleased;
};

} // namespace

TEST(Errors, throwCarriesTheHresult)
{
    EXPECT_EQ(E_OUTOFMEMORY, thrownBy([] { AtlThrow(E_OUTOFMEMORY); }));
}

TEST(Errors, windowsErrorsBecomeHresults)
{
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), AtlHresultFromWin32(ERROR_ACCESS_DENIED));
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(static_cast<HRESULT>(0x80070002), AtlHresultFromLastError());
}

TEST(Errors, aFailureWithoutAnErrorNumberIsStillAFailure)
{
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(E_FAIL, AtlHresultFromLastError());
}

TEST(Errors, guardReturnsTheResultAndTurnsEveryExceptionIntoOne)
{
    EXPECT_EQ(S_FALSE, AtlGuard([] { return S_FALSE; }));
    EXPECT_EQ(E_ACCESSDENIED, AtlGuard([]() -> HRESULT { AtlThrow(E_ACCESSDENIED); }));
    EXPECT_EQ(E_OUTOFMEMORY, AtlGuard([]() -> HRESULT { throw std::bad_alloc(); }));
    EXPECT_EQ(E_FAIL, AtlGuard([]() -> HRESULT { throw std::runtime_error("other"); }));
    EXPECT_EQ(E_FAIL, AtlGuard([]() -> HRESULT { throw 5; }));
}

TEST(CriticalSection, oneThreadHoldsItAtATime)
{
    CComAutoCriticalSection section;
    CHandle entered(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    struct Shared
    {
        CComCriticalSection& section;
        HANDLE entered;
    } shared{section, entered};
    CHandle thread;
    {
        const CComCritSecLock lock(section);
        const auto enter = [](void* parameter) -> DWORD {
            auto& other = *static_cast<Shared*>(parameter);
            const CComCritSecLock otherLock(other.section);
            SetEvent(other.entered);
            return 0;
        };
        thread.Attach(CreateThread(nullptr, 0, enter, &shared, 0, nullptr));
        EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(entered, 50));
    }
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(entered, 5000));
    WaitForSingleObject(thread, 5000);
}

TEST(CriticalSection, initialisesOnDemand)
{
    CComCriticalSection section;
    EXPECT_EQ(S_OK, section.Init());
    section.Lock();
    section.Unlock();
}

TEST(CriticalSection, tellsThatItCouldNotBeMade)
{
    const ImportHook<decltype(&InitializeCriticalSectionEx)> hook("InitializeCriticalSectionEx", &noCriticalSection);
    EXPECT_EQ(E_OUTOFMEMORY, thrownBy([] { const CComAutoCriticalSection section; }));
    CComCriticalSection section;
    EXPECT_EQ(E_OUTOFMEMORY, section.Init());
}

TEST(Handle, closesWhatItHeldWhenItTakesAnother)
{
    const HANDLE first = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE second = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    {
        CHandle handle(first);
        handle.Attach(second);
        DWORD flags = 0;
        EXPECT_FALSE(GetHandleInformation(first, &flags));
        EXPECT_TRUE(GetHandleInformation(second, &flags));
    }
    DWORD flags = 0;
    EXPECT_FALSE(GetHandleInformation(second, &flags));
}

TEST(Bstr, nullAndEmptyAreTwoThings)
{
    const CComBSTR none;
    const CComBSTR alsoNone(static_cast<const OLECHAR*>(nullptr));
    const CComBSTR stillNone(static_cast<const char*>(nullptr));
    const CComBSTR empty(L"");
    const CComBSTR narrowEmpty("");
    EXPECT_EQ(nullptr, none.m_str);
    EXPECT_EQ(nullptr, alsoNone.m_str);
    EXPECT_EQ(nullptr, stillNone.m_str);
    EXPECT_NE(nullptr, empty.m_str);
    EXPECT_NE(nullptr, narrowEmpty.m_str);
    EXPECT_EQ(0u, empty.Length());
    EXPECT_EQ(0u, narrowEmpty.Length());
    EXPECT_EQ(0u, none.Length());
    EXPECT_EQ(nullptr, CComBSTR(none).m_str);
    EXPECT_NE(nullptr, CComBSTR(empty).m_str);
    EXPECT_TRUE(!none);
    EXPECT_FALSE(!empty);
}

TEST(Bstr, copiesKeepEmbeddedZeroCharacters)
{
    const CComBSTR text(L"a\0b", 3);
    EXPECT_EQ(std::wstring(L"a\0b", 3), textOf(text));
    const CComBSTR copy(text);
    EXPECT_EQ(std::wstring(L"a\0b", 3), textOf(copy));
    EXPECT_NE(text.m_str, copy.m_str);
    CComBSTR owned;
    owned.Attach(CComBSTR::CopyOf(text));
    EXPECT_EQ(std::wstring(L"a\0b", 3), textOf(owned));
}

TEST(Bstr, narrowTextComesThroughTheAnsiCodePage)
{
    wchar_t expected[2] = {};
    const char umlaut[] = "\xe4";
    ASSERT_EQ(2, MultiByteToWideChar(CP_ACP, 0, umlaut, -1, expected, 2));
    EXPECT_EQ(std::wstring(L"gr") + expected, textOf(CComBSTR((std::string("gr") + umlaut).c_str())));
}

TEST(Bstr, narrowTextThatCannotBeConvertedIsAnError)
{
    {
        const ImportHook<decltype(&MultiByteToWideChar)> neither("MultiByteToWideChar",
                                                                 [](UINT, DWORD, LPCCH, int, LPWSTR, int) -> int {
                                                                     SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                                                                     return 0;
                                                                 });
        EXPECT_EQ(AtlHresultFromWin32(ERROR_NO_UNICODE_TRANSLATION), thrownBy([] { const CComBSTR text("x"); }));
    }
    const ImportHook<decltype(&MultiByteToWideChar)> onlyMeasured(
        "MultiByteToWideChar", [](UINT page, DWORD flags, LPCCH text, int length, LPWSTR wide, int size) -> int {
            if (wide != nullptr) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            return realMultiByteToWideChar(page, flags, text, length, wide, size);
        });
    EXPECT_EQ(AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER), thrownBy([] { const CComBSTR text("x"); }));
}

TEST(Bstr, appending)
{
    CComBSTR text(L"a\0b", 3);
    text += L"cd";
    EXPECT_EQ(std::wstring(L"a\0bcd", 5), textOf(text));
    text += nullptr;
    EXPECT_EQ(std::wstring(L"a\0bcd", 5), textOf(text));
    CComBSTR none;
    none += nullptr;
    EXPECT_EQ(nullptr, none.m_str);
    none += L"x";
    EXPECT_EQ(L"x", textOf(none));
}

TEST(Bstr, ownershipMoves)
{
    CComBSTR text(L"text");
    const BSTR raw = text.m_str;
    CComBSTR moved(std::move(text));
    EXPECT_EQ(raw, moved.m_str);
    EXPECT_EQ(nullptr, text.m_str);
    CComBSTR assigned(L"old");
    assigned = std::move(moved);
    EXPECT_EQ(raw, assigned.m_str);
    const BSTR detached = assigned.Detach();
    EXPECT_EQ(raw, detached);
    EXPECT_EQ(nullptr, assigned.m_str);
    assigned.Attach(detached);
    *&assigned = SysAllocString(L"out parameter");
    EXPECT_EQ(L"out parameter", textOf(assigned));
}

TEST(Bstr, anImpossibleLengthIsOutOfMemory)
{
    EXPECT_EQ(E_OUTOFMEMORY, thrownBy([] { const CComBSTR text(nullptr, 0xFFFFFFFFu); }));
    EXPECT_EQ(E_OUTOFMEMORY, thrownBy([] { const CComBSTR text(nullptr, size_t{1} << 40); }));
}

TEST(Variant, textIsACopy)
{
    const CComBSTR text(L"a\0b", 3);
    const CComVariant variant(text);
    EXPECT_EQ(VT_BSTR, variant.vt);
    EXPECT_NE(text.m_str, variant.bstrVal);
    EXPECT_EQ(std::wstring(L"a\0b", 3), textOf(variant.bstrVal));
    const CComVariant none(static_cast<BSTR>(nullptr));
    EXPECT_EQ(VT_BSTR, none.vt);
    EXPECT_EQ(nullptr, none.bstrVal);
}

TEST(Variant, startsEmptyAndClears)
{
    CComVariant variant;
    EXPECT_EQ(VT_EMPTY, variant.vt);
    variant.vt = VT_BSTR;
    variant.bstrVal = SysAllocString(L"x");
    EXPECT_EQ(S_OK, variant.Clear());
    EXPECT_EQ(VT_EMPTY, variant.vt);
}

TEST(Variant, numberBecomesText)
{
    CComVariant variant(-17);
    EXPECT_EQ(VT_I4, variant.vt);
    EXPECT_EQ(-17, variant.lVal);
    EXPECT_EQ(S_OK, variant.ChangeType(VT_BSTR));
    EXPECT_EQ(L"-17", textOf(variant.bstrVal));
}

TEST(Ptr, countsWhatItHolds)
{
    CCounted object;
    {
        CComPtr<IUnknown> pointer(&object);
        EXPECT_EQ(1, object.m_references);
        const CComPtr<IUnknown> copy(pointer);
        EXPECT_EQ(2, object.m_references);
        CComPtr<IUnknown> moved(std::move(pointer));
        EXPECT_EQ(2, object.m_references);
        EXPECT_TRUE(!pointer);
        pointer = moved;
        EXPECT_EQ(3, object.m_references);
        EXPECT_EQ(S_OK, pointer.QueryInterface(&moved));
        EXPECT_EQ(3, object.m_references);
        IUnknown* const detached = moved.Detach();
        EXPECT_EQ(3, object.m_references);
        moved.Attach(detached);
        EXPECT_EQ(3, object.m_references);
    }
    EXPECT_EQ(0, object.m_references);
}

TEST(Ptr, isEmptyBeforeTheObjectHearsOfIt)
{
    CCounted object;
    CComPtr<IUnknown> pointer(&object);
    bool empty = false;
    object.m_whenReleased = [&] { empty = !pointer; };
    pointer.Release();
    EXPECT_TRUE(empty);
    EXPECT_EQ(0, object.m_references);
}
