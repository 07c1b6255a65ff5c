// Late-bound calls, through the type library that the test program contains.
#include "atl/typelib.h"
#include "tests/atl/registryFixture.h"
#include "tests/atl/sampleObject.h"

using testing::ElementsAre;

namespace {

// Each test runs in its own process, so none finds type information that another has loaded.
class DispatchTest : public RegistryTest
{
protected:
    ~DispatchTest() override { m_dispatch.Release(); }

    static void registerLibrary() { ASSERT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK); }
    static CComPtr<IDispatch> create()
    {
        CComObject<CSampleObject>* object = nullptr;
        EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), S_OK);
        return object;
    }
    HRESULT find(const wchar_t* name, DISPID* id)
    {
        LPOLESTR text = const_cast<LPOLESTR>(name);
        return m_dispatch->GetIDsOfNames(IID_NULL, &text, 1, LOCALE_USER_DEFAULT, id);
    }
    DISPID idOf(const wchar_t* name)
    {
        DISPID id = DISPID_UNKNOWN;
        EXPECT_EQ(find(name, &id), S_OK);
        return id;
    }
    HRESULT call(DISPID id, std::vector<VARIANT> arguments = {}, VARIANT* result = nullptr, EXCEPINFO* exception = nullptr)
    {
        // Arguments are passed in reverse order.
        std::reverse(arguments.begin(), arguments.end());
        DISPPARAMS parameters = {arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
        UINT argumentError = 0;
        return m_dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, result, exception,
                                  &argumentError);
    }

    CCountingModule m_module;
    CComPtr<IDispatch> m_dispatch = create();
};

} // namespace

TEST_F(DispatchTest, WithoutARegisteredLibraryEveryCallFailsAndTheNextOneTriesAgain)
{
    UINT count = 7;
    EXPECT_EQ(m_dispatch->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), TYPE_E_LIBNOTREGISTERED);
    EXPECT_EQ(info.p, nullptr);
    DISPID id = 7;
    EXPECT_EQ(find(L"validate", &id), TYPE_E_LIBNOTREGISTERED);
    EXPECT_EQ(call(15), TYPE_E_LIBNOTREGISTERED);
    registerLibrary();
    EXPECT_EQ(call(15), S_OK);
}

TEST_F(DispatchTest, TheTypeInformationIsTheInterfacesAndStaysOnceItIsLoaded)
{
    registerLibrary();
    CComPtr<ITypeInfo> info;
    EXPECT_EQ(m_dispatch->GetTypeInfoCount(nullptr), E_POINTER);
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, nullptr), E_POINTER);
    EXPECT_EQ(m_dispatch->GetTypeInfo(1, LOCALE_USER_DEFAULT, &info), DISP_E_BADINDEX);
    EXPECT_EQ(m_dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), S_OK);
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(info->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->guid, IID_IJavaManager);
    info->ReleaseTypeAttr(attributes);
    info.Release();
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(idOf(L"enable"), 18);
    EXPECT_EQ(idOf(L"PUSHWINDOWHANDLE"), 19);
    DISPID id = 7;
    EXPECT_EQ(find(L"nothing", &id), DISP_E_UNKNOWNNAME);
}

TEST_F(DispatchTest, CallsWithArgumentsInOrderAndReturnsResults)
{
    registerLibrary();
    s_events.clear();
    EXPECT_EQ(call(16, {CComVariant(1), CComVariant(2), CComVariant(3), CComVariant(4)}), S_OK);
    EXPECT_EQ(call(18, {CComVariant(1)}), S_OK);
    EXPECT_THAT(s_events, ElementsAre("setBounds 1,2,3,4", "enable -1")) << "late binding makes every true the same";
    const CComVariant first(CComBSTR(L"a"));
    const CComVariant second(CComBSTR(L"b"));
    CComVariant result;
    EXPECT_EQ(call(3, {first, second}, &result), S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_STREQ(result.bstrVal, L"a|b");
    EXPECT_EQ(result.Clear(), S_OK);
    EXPECT_EQ(call(14, {}, &result), S_OK);
    EXPECT_EQ(result.lVal, 42);
}

TEST_F(DispatchTest, AFailureComesWithItsTextAndWrongCallsAreRefused)
{
    registerLibrary();
    const CComVariant name(CComBSTR(L"x"));
    CComVariant result;
    EXCEPINFO exception = {};
    EXPECT_EQ(call(8, {name}, &result, &exception), DISP_E_EXCEPTION);
    EXPECT_EQ(exception.scode, E_INVALIDARG);
    EXPECT_STREQ(exception.bstrDescription, L"no such property");
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrHelpFile);
    EXPECT_EQ(call(16, {CComVariant(1)}), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(call(99), DISP_E_MEMBERNOTFOUND);
}
