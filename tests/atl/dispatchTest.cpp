#include "atl/typelib.h"
#include "tests/atl/registryFixture.h"
#include "tests/atl/sampleObject.h"

using testing::ElementsAre;

namespace {

// Runs with the type library registered in a registry of the test's own. (Each test is a process of its own, so that no test
// finds type information that another one loaded.)
class DispatchTest : public RegistryTest
{
protected:
    DispatchTest()
    {
        CoInitialize(nullptr);
        g_events.clear();
        CComObject<CSampleObject>* object = nullptr;
        EXPECT_EQ(S_OK, CComObject<CSampleObject>::CreateInstance(&object));
        m_dispatch = object;
        g_events.clear();
    }
    ~DispatchTest() override
    {
        m_dispatch.Release();
        CoUninitialize();
    }

    static void registerLibrary()
    {
        char path[MAX_PATH] = {};
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        ASSERT_EQ(S_OK, AtlRegisterTypeLib(path, CRegistrationScope::Machine));
    }
    DISPID idOf(const wchar_t* name)
    {
        LPOLESTR text = const_cast<LPOLESTR>(name);
        DISPID id = DISPID_UNKNOWN;
        EXPECT_EQ(S_OK, m_dispatch->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &id));
        return id;
    }
    HRESULT call(DISPID id, std::vector<VARIANT> arguments, VARIANT* result, EXCEPINFO* exception = nullptr)
    {
        // Arguments travel last first.
        std::reverse(arguments.begin(), arguments.end());
        DISPPARAMS parameters = {arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
        UINT argumentError = 0;
        return m_dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, result, exception,
                                  &argumentError);
    }

    CCountingModule m_module;
    CComPtr<IDispatch> m_dispatch;
};

VARIANT number(int value)
{
    VARIANT variant;
    VariantInit(&variant);
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

} // namespace

TEST_F(DispatchTest, withoutARegisteredLibraryEveryCallFails)
{
    UINT count = 7;
    EXPECT_EQ(S_OK, m_dispatch->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(TYPE_E_LIBNOTREGISTERED, m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info));
    EXPECT_EQ(nullptr, info.p);
    LPOLESTR name = const_cast<LPOLESTR>(L"validate");
    DISPID id = 7;
    EXPECT_EQ(TYPE_E_LIBNOTREGISTERED, m_dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
    EXPECT_EQ(TYPE_E_LIBNOTREGISTERED, call(15, {}, nullptr));
    // The next call looks again.
    registerLibrary();
    EXPECT_EQ(S_OK, call(15, {}, nullptr));
}

TEST_F(DispatchTest, describesTheInterface)
{
    registerLibrary();
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(E_POINTER, m_dispatch->GetTypeInfoCount(nullptr));
    EXPECT_EQ(E_POINTER, m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, nullptr));
    EXPECT_EQ(DISP_E_BADINDEX, m_dispatch->GetTypeInfo(1, LOCALE_USER_DEFAULT, &info));
    EXPECT_EQ(S_OK, m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info));
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attributes));
    EXPECT_EQ(IID_IJavaManager, attributes->guid);
    info->ReleaseTypeAttr(attributes);
}

TEST_F(DispatchTest, theTypeInformationIsLoadedOnceAndStays)
{
    registerLibrary();
    EXPECT_EQ(15, idOf(L"validate"));
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    EXPECT_EQ(S_OK, AtlUnRegisterTypeLib(path, CRegistrationScope::Machine));
    EXPECT_EQ(18, idOf(L"enable"));
}

TEST_F(DispatchTest, findsMembersInAnyCaseAndRefusesOthers)
{
    registerLibrary();
    EXPECT_EQ(3, idOf(L"callMethod"));
    EXPECT_EQ(19, idOf(L"PUSHWINDOWHANDLE"));
    LPOLESTR name = const_cast<LPOLESTR>(L"nothing");
    DISPID id = 7;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, m_dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
}

TEST_F(DispatchTest, callsWithArgumentsInOrder)
{
    registerLibrary();
    EXPECT_EQ(S_OK, call(16, {number(1), number(2), number(3), number(4)}, nullptr));
    EXPECT_THAT(g_events, ElementsAre("setBounds 1,2,3,4"));
}

TEST_F(DispatchTest, returnsResults)
{
    registerLibrary();
    CComVariant first(CComBSTR(L"a"));
    CComVariant second(CComBSTR(L"b"));
    CComVariant result;
    EXPECT_EQ(S_OK, call(3, {first, second}, &result));
    ASSERT_EQ(VT_BSTR, result.vt);
    EXPECT_STREQ(L"a|b", result.bstrVal);
    EXPECT_EQ(S_OK, result.Clear());
    EXPECT_EQ(S_OK, call(14, {}, &result));
    EXPECT_EQ(VT_I4, result.vt);
    EXPECT_EQ(42, result.lVal);
}

TEST_F(DispatchTest, lateBindingMakesEveryTrueTheSame)
{
    registerLibrary();
    EXPECT_EQ(S_OK, call(18, {number(1)}, nullptr));
    EXPECT_THAT(g_events, ElementsAre("enable -1"));
}

TEST_F(DispatchTest, aFailureComesWithItsText)
{
    registerLibrary();
    CComVariant name(CComBSTR(L"x"));
    CComVariant result;
    EXCEPINFO exception = {};
    EXPECT_EQ(DISP_E_EXCEPTION, call(8, {name}, &result, &exception));
    EXPECT_EQ(E_INVALIDARG, exception.scode);
    EXPECT_STREQ(L"no such property", exception.bstrDescription);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrHelpFile);
}

TEST_F(DispatchTest, wrongArgumentsAreRefused)
{
    registerLibrary();
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, call(16, {number(1)}, nullptr));
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, call(99, {}, nullptr));
}
