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
        s_events.clear();
        CComObject<CSampleObject>* object = nullptr;
        EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), S_OK);
        m_dispatch = object;
        s_events.clear();
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
        ASSERT_EQ(AtlRegisterTypeLib(path, CRegistrationScope::Machine), S_OK);
    }
    DISPID idOf(const wchar_t* name)
    {
        LPOLESTR text = const_cast<LPOLESTR>(name);
        DISPID id = DISPID_UNKNOWN;
        EXPECT_EQ(m_dispatch->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, &id), S_OK);
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

TEST_F(DispatchTest, WithoutARegisteredLibraryEveryCallFails)
{
    UINT count = 7;
    EXPECT_EQ(m_dispatch->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), TYPE_E_LIBNOTREGISTERED);
    EXPECT_EQ(info.p, nullptr);
    LPOLESTR name = const_cast<LPOLESTR>(L"validate");
    DISPID id = 7;
    EXPECT_EQ(m_dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), TYPE_E_LIBNOTREGISTERED);
    EXPECT_EQ(call(15, {}, nullptr), TYPE_E_LIBNOTREGISTERED);
    // The next call looks again.
    registerLibrary();
    EXPECT_EQ(call(15, {}, nullptr), S_OK);
}

TEST_F(DispatchTest, DescribesTheInterface)
{
    registerLibrary();
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(m_dispatch->GetTypeInfoCount(nullptr), E_POINTER);
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, nullptr), E_POINTER);
    EXPECT_EQ(m_dispatch->GetTypeInfo(1, LOCALE_USER_DEFAULT, &info), DISP_E_BADINDEX);
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), S_OK);
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(info->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(IID_IJavaManager, attributes->guid);
    info->ReleaseTypeAttr(attributes);
}

TEST_F(DispatchTest, TheTypeInformationIsLoadedOnceAndStays)
{
    registerLibrary();
    EXPECT_EQ(idOf(L"validate"), 15);
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    EXPECT_EQ(AtlUnRegisterTypeLib(path, CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(idOf(L"enable"), 18);
}

TEST_F(DispatchTest, FindsMembersInAnyCaseAndRefusesOthers)
{
    registerLibrary();
    EXPECT_EQ(idOf(L"callMethod"), 3);
    EXPECT_EQ(idOf(L"PUSHWINDOWHANDLE"), 19);
    LPOLESTR name = const_cast<LPOLESTR>(L"nothing");
    DISPID id = 7;
    EXPECT_EQ(m_dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), DISP_E_UNKNOWNNAME);
}

TEST_F(DispatchTest, CallsWithArgumentsInOrder)
{
    registerLibrary();
    EXPECT_EQ(call(16, {number(1), number(2), number(3), number(4)}, nullptr), S_OK);
    EXPECT_THAT(s_events, ElementsAre("setBounds 1,2,3,4"));
}

TEST_F(DispatchTest, ReturnsResults)
{
    registerLibrary();
    CComVariant first(CComBSTR(L"a"));
    CComVariant second(CComBSTR(L"b"));
    CComVariant result;
    EXPECT_EQ(call(3, {first, second}, &result), S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_STREQ(result.bstrVal, L"a|b");
    EXPECT_EQ(result.Clear(), S_OK);
    EXPECT_EQ(call(14, {}, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, 42);
}

TEST_F(DispatchTest, LateBindingMakesEveryTrueTheSame)
{
    registerLibrary();
    EXPECT_EQ(call(18, {number(1)}, nullptr), S_OK);
    EXPECT_THAT(s_events, ElementsAre("enable -1"));
}

TEST_F(DispatchTest, AFailureComesWithItsText)
{
    registerLibrary();
    CComVariant name(CComBSTR(L"x"));
    CComVariant result;
    EXCEPINFO exception = {};
    EXPECT_EQ(call(8, {name}, &result, &exception), DISP_E_EXCEPTION);
    EXPECT_EQ(exception.scode, E_INVALIDARG);
    EXPECT_STREQ(exception.bstrDescription, L"no such property");
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrHelpFile);
}

TEST_F(DispatchTest, WrongArgumentsAreRefused)
{
    registerLibrary();
    EXPECT_EQ(call(16, {number(1)}, nullptr), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(call(99, {}, nullptr), DISP_E_MEMBERNOTFOUND);
}
