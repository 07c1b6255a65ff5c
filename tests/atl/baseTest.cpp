#include "atl/atl.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Widening = ImportHook<decltype(&MultiByteToWideChar)>;
using Narrowing = ImportHook<decltype(&WideCharToMultiByte)>;

const std::wstring WITH_ZERO(L"a\0b", 3);

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

bool isOpen(HANDLE handle)
{
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != FALSE;
}

// How often an operation calls a function that takes a critical section.
int callsOf(const char* function, const std::function<void()>& operation)
{
    using Hook = ImportHook<decltype(&EnterCriticalSection)>;
    static int s_calls;
    s_calls = 0;
    const Hook hook(function, [](LPCRITICAL_SECTION section) {
        ++s_calls;
        Hook::s_original(section);
    });
    operation();
    return s_calls;
}

// The references to an object.
ULONG countOf(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

} // namespace

TEST(ErrorsTest, WindowsErrorsBecomeHresults)
{
    SetLastError(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(AtlHresultFromLastError(), static_cast<HRESULT>(0x80070002));
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(AtlHresultFromLastError(), E_FAIL) << "a failure without an error number";
}

TEST(ErrorsTest, GuardReturnsTheResultAndTurnsEveryExceptionIntoOne)
{
    EXPECT_EQ(AtlGuard([] { return S_FALSE; }), S_FALSE);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { AtlThrow(E_ACCESSDENIED); }), E_ACCESSDENIED);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw std::bad_alloc(); }), E_OUTOFMEMORY);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw std::runtime_error("other"); }), E_FAIL);
    EXPECT_EQ(AtlGuard([]() -> HRESULT { throw 5; }), E_FAIL);
}

TEST(CriticalSectionTest, IsEnteredAndLeftByALockAndDeletedInTheEnd)
{
    std::optional<CComAutoCriticalSection> section(std::in_place);
    std::optional<CComCritSecLock> lock;
    EXPECT_EQ(callsOf("EnterCriticalSection", [&] { lock.emplace(*section); }), 1);
    EXPECT_EQ(callsOf("LeaveCriticalSection", [&] { lock.reset(); }), 1);
    EXPECT_EQ(callsOf("DeleteCriticalSection", [&] { section.reset(); }), 1);
    std::optional<CComCriticalSection> unmade(std::in_place);
    EXPECT_EQ(callsOf("DeleteCriticalSection", [&] { unmade.reset(); }), 0);
}

TEST(CriticalSectionTest, TellsThatItCouldNotBeMade)
{
    const ImportHook<decltype(&InitializeCriticalSectionEx)> hook("InitializeCriticalSectionEx",
                                                                  [](LPCRITICAL_SECTION, DWORD spin, DWORD flags) -> BOOL {
                                                                      EXPECT_EQ(spin, 0u);
                                                                      EXPECT_EQ(flags, 0u);
                                                                      SetLastError(ERROR_OUTOFMEMORY);
                                                                      return FALSE;
                                                                  });
    EXPECT_EQ(thrownBy([] { const CComAutoCriticalSection section; }), E_OUTOFMEMORY);
}

TEST(HandleTest, ClosesWhatItHeldWhenItTakesAnotherAndInTheEnd)
{
    const HANDLE first = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE second = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    {
        CHandle handle(first);
        handle.Attach(second);
        EXPECT_FALSE(isOpen(first));
        EXPECT_TRUE(isOpen(second));
    }
    EXPECT_FALSE(isOpen(second));
}

TEST(BstrTest, NullAndEmptyAreTwoThings)
{
    for (const CComBSTR& none : {CComBSTR(), CComBSTR(static_cast<const OLECHAR*>(nullptr)),
                                 CComBSTR(static_cast<const char*>(nullptr)), CComBSTR(CComBSTR())}) {
        EXPECT_EQ(none.m_str, nullptr);
        EXPECT_TRUE(!none);
        EXPECT_EQ(none.Length(), 0u);
    }
    for (const CComBSTR& empty : {CComBSTR(L""), CComBSTR(""), CComBSTR(L"x", 0), CComBSTR("x", 0)}) {
        EXPECT_EQ(textOf(CComBSTR(empty)), L"");
        EXPECT_FALSE(!empty);
    }
}

TEST(BstrTest, CopiesKeepEmbeddedZeroCharacters)
{
    const CComBSTR text(WITH_ZERO.c_str(), WITH_ZERO.size());
    const CComBSTR copy(text);
    EXPECT_EQ(textOf(copy), WITH_ZERO);
    EXPECT_NE(copy.m_str, text.m_str);
    EXPECT_EQ(textOf(CComBSTR(std::string("a\0b", 3).c_str(), 3)), WITH_ZERO);
}

TEST(BstrTest, NarrowTextComesAndGoesThroughTheAnsiCodePage)
{
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(textOf(CComBSTR("gr\xfc\xdf \x80")), L"gr\u00fc\u00df \u20ac");
    EXPECT_EQ(textOf(CComBSTR("\xc3\xbc")), L"\u00c3\u00bc") << "two bytes that are one character in UTF-8";
    EXPECT_EQ(narrowText(CComBSTR(L"gr\u00fc\u00df \u20ac")), "gr\xfc\xdf \x80");
    EXPECT_EQ(narrowText(WITH_ZERO.c_str(), WITH_ZERO.size()), std::string("a\0b", 3));
    EXPECT_EQ(narrowText(nullptr), "");
}

TEST(BstrTest, TextThatCannotBeConvertedIsAnError)
{
    const auto both = [](HRESULT error) {
        EXPECT_EQ(thrownBy([] { const CComBSTR text("x"); }), error);
        EXPECT_EQ(thrownBy([] { narrowText(L"x", 1); }), error);
    };
    {
        const Widening widening("MultiByteToWideChar", [](UINT, DWORD, LPCCH, int, LPWSTR, int) -> int {
            SetLastError(ERROR_NO_UNICODE_TRANSLATION);
            return 0;
        });
        const Narrowing narrowing("WideCharToMultiByte", [](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) -> int {
            SetLastError(ERROR_NO_UNICODE_TRANSLATION);
            return 0;
        });
        both(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    }
    // The length is measured, but the conversion fails.
    const Widening widening("MultiByteToWideChar", [](UINT, DWORD, LPCCH, int, LPWSTR wide, int) -> int {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return wide == nullptr ? 1 : 0;
    });
    const Narrowing narrowing("WideCharToMultiByte", [](UINT, DWORD, LPCWCH, int, LPSTR narrow, int, LPCCH, LPBOOL) -> int {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return narrow == nullptr ? 1 : 0;
    });
    both(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
}

TEST(BstrTest, Appending)
{
    CComBSTR text;
    text += nullptr;
    EXPECT_EQ(text.m_str, nullptr);
    text += L"x";
    EXPECT_EQ(textOf(text), L"x");
    text = CComBSTR(WITH_ZERO.c_str(), WITH_ZERO.size());
    text += L"cd";
    EXPECT_EQ(textOf(text), WITH_ZERO + L"cd");
}

TEST(BstrTest, OwnershipMovesAndEndsOnce)
{
    using Freeing = ImportHook<decltype(&SysFreeString)>;
    static std::vector<BSTR> s_freed;
    const Freeing hook("SysFreeString", [](BSTR text) {
        if (text != nullptr) {
            s_freed.push_back(text);
        }
    });
    const BSTR raw = SysAllocString(L"text");
    const BSTR other = SysAllocString(L"other");
    const BSTR third = SysAllocString(L"third");
    {
        CComBSTR text;
        text.Attach(raw);
        text.Attach(raw);
        CComBSTR moved(std::move(text));
        EXPECT_EQ(text.m_str, nullptr);
        CComBSTR assigned;
        assigned.Attach(other);
        EXPECT_THAT(s_freed, IsEmpty());
        assigned = std::move(moved);
        EXPECT_THAT(std::exchange(s_freed, {}), ElementsAre(other));
        EXPECT_EQ(assigned.Detach(), raw);
        assigned.Attach(raw);
        assigned.Attach(other);
        EXPECT_THAT(std::exchange(s_freed, {}), ElementsAre(raw));
        *&assigned = third;
        EXPECT_THAT(std::exchange(s_freed, {}), ElementsAre(other));
    }
    EXPECT_THAT(s_freed, ElementsAre(third));
}

TEST(BstrTest, WithoutMemoryThereIsNoText)
{
    const CComBSTR text(L"text");
    const ImportHook<decltype(&SysAllocString)> terminated("SysAllocString", [](const OLECHAR*) -> BSTR { return nullptr; });
    const ImportHook<decltype(&SysAllocStringLen)> counted("SysAllocStringLen",
                                                           [](const OLECHAR*, UINT) -> BSTR { return nullptr; });
    const ImportHook<decltype(&SysAllocStringByteLen)> bytes("SysAllocStringByteLen",
                                                             [](LPCSTR, UINT) -> BSTR { return nullptr; });
    for (const std::function<void()>& operation : std::initializer_list<std::function<void()>>{
             [] { const CComBSTR wide(L"x"); }, [] { const CComBSTR wide(L"x", 1); }, [] { const CComBSTR narrow("x"); },
             [&] { const CComBSTR copy(text); }, [&] { const CComVariant variant(text); },
             [] { const CComBSTR tooLong(L"", size_t{1} << 32); }, [] { const CComBSTR tooLong("", size_t{1} << 31); },
             [] { narrowText(L"", size_t{1} << 31); }}) {
        EXPECT_EQ(thrownBy(operation), E_OUTOFMEMORY);
    }
}

TEST(VariantTest, HoldsACopyOfATextOrANumberAndIsClearedInTheEnd)
{
    const CComBSTR text(WITH_ZERO.c_str(), WITH_ZERO.size());
    CComVariant variant(text);
    EXPECT_EQ(variant.vt, VT_BSTR);
    EXPECT_NE(variant.bstrVal, text.m_str);
    EXPECT_EQ(textOf(variant.bstrVal), WITH_ZERO);
    EXPECT_EQ(variant.Clear(), S_OK);
    EXPECT_EQ(variant.vt, VT_EMPTY);
    const CComVariant none(static_cast<BSTR>(nullptr));
    EXPECT_EQ(none.vt, VT_BSTR);
    EXPECT_EQ(none.bstrVal, nullptr);
    CComVariant number(-17);
    EXPECT_EQ(number.vt, VT_I4);
    EXPECT_EQ(number.ChangeType(VT_BSTR), S_OK);
    EXPECT_EQ(textOf(number.bstrVal), L"-17");

    static VARTYPE s_cleared = VT_ILLEGAL;
    const ImportHook<decltype(&VariantClear)> hook("VariantClear", [](VARIANTARG* cleared) -> HRESULT {
        s_cleared = cleared->vt;
        return S_OK;
    });
    {
        const CComVariant empty;
    }
    EXPECT_EQ(s_cleared, VT_EMPTY);
}

TEST(PtrTest, IsEmptyWhileItsObjectIsReleased)
{
    struct SObject : IUnknown
    {
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
        ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
        ULONG STDMETHODCALLTYPE Release() override
        {
            m_found = m_holder->p;
            return 1;
        }
        const CComPtr<IUnknown>* m_holder = nullptr;
        IUnknown* m_found = this;
    } object;
    CComPtr<IUnknown> holder(&object);
    object.m_holder = std::addressof(holder);
    holder.Release();
    EXPECT_EQ(object.m_found, nullptr);
}

TEST(PtrTest, CountsWhatItHolds)
{
    CComPtr<ICreateErrorInfo> first;
    ASSERT_EQ(CreateErrorInfo(&first), S_OK);
    {
        CComPtr<ICreateErrorInfo> pointer(first.p);
        CComPtr<ICreateErrorInfo> copy(pointer);
        EXPECT_EQ(countOf(first), 3u);
        CComPtr<ICreateErrorInfo> moved(std::move(pointer));
        EXPECT_EQ(countOf(first), 3u);
        EXPECT_TRUE(!pointer);
        pointer = moved;
        EXPECT_EQ(countOf(first), 4u);
        EXPECT_EQ(pointer.QueryInterface(&copy), S_OK);
        EXPECT_EQ(countOf(first), 4u) << "the pointer to fill has given up what it held";
        ICreateErrorInfo* const detached = copy.Detach();
        EXPECT_EQ(countOf(first), 4u);
        detached->Release();
    }
    EXPECT_EQ(countOf(first), 1u);
}
