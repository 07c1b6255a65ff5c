#include "atl/atl.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

namespace {

const auto& s_realMultiByteToWideChar = ImportHook<decltype(&MultiByteToWideChar)>::s_original;

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

TEST(ErrorsTest, ThrowCarriesTheHresult)
{
    EXPECT_EQ(thrownBy([] { AtlThrow(E_OUTOFMEMORY); }), E_OUTOFMEMORY);
}

TEST(ErrorsTest, WindowsErrorsBecomeHresults)
{
    EXPECT_EQ(static_cast<HRESULT>(0x80070005), AtlHresultFromWin32(ERROR_ACCESS_DENIED));
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(static_cast<HRESULT>(0x80070002), AtlHresultFromLastError());
}

TEST(ErrorsTest, AFailureWithoutAnErrorNumberIsStillAFailure)
{
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(AtlHresultFromLastError(), E_FAIL);
}

TEST(ErrorsTest, GuardReturnsTheResultAndTurnsEveryExceptionIntoOne)
{
    EXPECT_EQ(AtlGuard([] { return S_FALSE; }), S_FALSE);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { AtlThrow(E_ACCESSDENIED); }), E_ACCESSDENIED);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw std::bad_alloc(); }), E_OUTOFMEMORY);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw std::runtime_error("other"); }), E_FAIL);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw 5; }), E_FAIL);
}

TEST(CriticalSectionTest, OneThreadHoldsItAtATime)
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
    EXPECT_EQ(WaitForSingleObject(entered, 5000), WAIT_OBJECT_0);
    WaitForSingleObject(thread, 5000);
}

TEST(CriticalSectionTest, InitialisesOnDemand)
{
    CComCriticalSection section;
    EXPECT_EQ(section.Init(), S_OK);
    section.Lock();
    section.Unlock();
}

TEST(CriticalSectionTest, TellsThatItCouldNotBeMade)
{
    const ImportHook<decltype(&InitializeCriticalSectionEx)> hook("InitializeCriticalSectionEx", &noCriticalSection);
    EXPECT_EQ(thrownBy([] { const CComAutoCriticalSection section; }), E_OUTOFMEMORY);
    CComCriticalSection section;
    EXPECT_EQ(section.Init(), E_OUTOFMEMORY);
}

TEST(HandleTest, ClosesWhatItHeldWhenItTakesAnother)
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

TEST(BstrTest, NullAndEmptyAreTwoThings)
{
    const CComBSTR none;
    const CComBSTR alsoNone(static_cast<const OLECHAR*>(nullptr));
    const CComBSTR stillNone(static_cast<const char*>(nullptr));
    const CComBSTR empty(L"");
    const CComBSTR narrowEmpty("");
    EXPECT_EQ(none.m_str, nullptr);
    EXPECT_EQ(alsoNone.m_str, nullptr);
    EXPECT_EQ(stillNone.m_str, nullptr);
    EXPECT_NE(empty.m_str, nullptr);
    EXPECT_NE(narrowEmpty.m_str, nullptr);
    EXPECT_EQ(empty.Length(), 0u);
    EXPECT_EQ(narrowEmpty.Length(), 0u);
    EXPECT_EQ(none.Length(), 0u);
    EXPECT_EQ(CComBSTR(none).m_str, nullptr);
    EXPECT_NE(CComBSTR(empty).m_str, nullptr);
    EXPECT_TRUE(!none);
    EXPECT_FALSE(!empty);
}

TEST(BstrTest, CopiesKeepEmbeddedZeroCharacters)
{
    const CComBSTR text(L"a\0b", 3);
    EXPECT_EQ(textOf(text), std::wstring(L"a\0b", 3));
    const CComBSTR copy(text);
    EXPECT_EQ(textOf(copy), std::wstring(L"a\0b", 3));
    EXPECT_NE(text.m_str, copy.m_str);
    CComBSTR owned;
    owned.Attach(CComBSTR::CopyOf(text));
    EXPECT_EQ(textOf(owned), std::wstring(L"a\0b", 3));
}

TEST(BstrTest, NarrowTextComesThroughTheAnsiCodePage)
{
    wchar_t expected[2] = {};
    const char umlaut[] = "\xe4";
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, umlaut, -1, expected, 2), 2);
    EXPECT_EQ(std::wstring(L"gr") + expected, textOf(CComBSTR((std::string("gr") + umlaut).c_str())));
}

TEST(BstrTest, NarrowTextThatCannotBeConvertedIsAnError)
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
            return s_realMultiByteToWideChar(page, flags, text, length, wide, size);
        });
    EXPECT_EQ(AtlHresultFromWin32(ERROR_INSUFFICIENT_BUFFER), thrownBy([] { const CComBSTR text("x"); }));
}

TEST(BstrTest, Appending)
{
    CComBSTR text(L"a\0b", 3);
    text += L"cd";
    EXPECT_EQ(textOf(text), std::wstring(L"a\0bcd", 5));
    text += nullptr;
    EXPECT_EQ(textOf(text), std::wstring(L"a\0bcd", 5));
    CComBSTR none;
    none += nullptr;
    EXPECT_EQ(none.m_str, nullptr);
    none += L"x";
    EXPECT_EQ(textOf(none), L"x");
}

TEST(BstrTest, OwnershipMoves)
{
    CComBSTR text(L"text");
    const BSTR raw = text.m_str;
    CComBSTR moved(std::move(text));
    EXPECT_EQ(raw, moved.m_str);
    EXPECT_EQ(text.m_str, nullptr);
    CComBSTR assigned(L"old");
    assigned = std::move(moved);
    EXPECT_EQ(raw, assigned.m_str);
    const BSTR detached = assigned.Detach();
    EXPECT_EQ(raw, detached);
    EXPECT_EQ(assigned.m_str, nullptr);
    assigned.Attach(detached);
    *&assigned = SysAllocString(L"out parameter");
    EXPECT_EQ(textOf(assigned), L"out parameter");
}

TEST(BstrTest, AnImpossibleLengthIsOutOfMemory)
{
    EXPECT_EQ(thrownBy([] { const CComBSTR text(L"", 0xFFFFFFFFu); }), E_OUTOFMEMORY);
    EXPECT_EQ(thrownBy([] { const CComBSTR text(L"", size_t{1} << 40); }), E_OUTOFMEMORY);
}

TEST(VariantTest, TextIsACopy)
{
    const CComBSTR text(L"a\0b", 3);
    const CComVariant variant(text);
    EXPECT_EQ(variant.vt, VT_BSTR);
    EXPECT_NE(text.m_str, variant.bstrVal);
    EXPECT_EQ(textOf(variant.bstrVal), std::wstring(L"a\0b", 3));
    const CComVariant none(static_cast<BSTR>(nullptr));
    EXPECT_EQ(none.vt, VT_BSTR);
    EXPECT_EQ(none.bstrVal, nullptr);
}

TEST(VariantTest, StartsEmptyAndClears)
{
    CComVariant variant;
    EXPECT_EQ(variant.vt, VT_EMPTY);
    variant.vt = VT_BSTR;
    variant.bstrVal = SysAllocString(L"x");
    EXPECT_EQ(variant.Clear(), S_OK);
    EXPECT_EQ(variant.vt, VT_EMPTY);
}

TEST(VariantTest, NumberBecomesText)
{
    CComVariant variant(-17);
    EXPECT_EQ(variant.vt, VT_I4);
    EXPECT_EQ(variant.lVal, -17);
    EXPECT_EQ(variant.ChangeType(VT_BSTR), S_OK);
    EXPECT_EQ(textOf(variant.bstrVal), L"-17");
}

TEST(PtrTest, CountsWhatItHolds)
{
    CCounted object;
    {
        CComPtr<IUnknown> pointer(&object);
        EXPECT_EQ(object.m_references, 1);
        const CComPtr<IUnknown> copy(pointer);
        EXPECT_EQ(object.m_references, 2);
        CComPtr<IUnknown> moved(std::move(pointer));
        EXPECT_EQ(object.m_references, 2);
        EXPECT_TRUE(!pointer);
        pointer = moved;
        EXPECT_EQ(object.m_references, 3);
        EXPECT_EQ(pointer.QueryInterface(&moved), S_OK);
        EXPECT_EQ(object.m_references, 3);
        IUnknown* const detached = moved.Detach();
        EXPECT_EQ(object.m_references, 3);
        moved.Attach(detached);
        EXPECT_EQ(object.m_references, 3);
    }
    EXPECT_EQ(object.m_references, 0);
}

TEST(PtrTest, IsEmptyBeforeTheObjectHearsOfIt)
{
    CCounted object;
    CComPtr<IUnknown> pointer(&object);
    bool empty = false;
    object.m_whenReleased = [&] { empty = !pointer; };
    pointer.Release();
    EXPECT_TRUE(empty);
    EXPECT_EQ(object.m_references, 0);
}
