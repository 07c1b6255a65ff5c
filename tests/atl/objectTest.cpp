#include "tests/atl/sampleObject.h"

#include <gmock/gmock.h>

#include <stdexcept>

using testing::ElementsAre;

namespace {

class ObjectTest : public testing::Test
{
protected:
    ObjectTest()
    {
        CoInitialize(nullptr);
        SetErrorInfo(0, nullptr);
        g_events.clear();
    }
    ~ObjectTest() override
    {
        CSampleObject::s_whileConstructing = nullptr;
        CSampleObject::s_finalConstruct = nullptr;
        CSampleObject::s_finalRelease = nullptr;
        SetErrorInfo(0, nullptr);
        CoUninitialize();
    }

    static CComObject<CSampleObject>* create()
    {
        CComObject<CSampleObject>* object = nullptr;
        EXPECT_EQ(S_OK, CComObject<CSampleObject>::CreateInstance(&object));
        object->AddRef();
        return object;
    }

    CCountingModule m_module;
};

struct ErrorInfo
{
    std::wstring source;
    std::wstring description;
    GUID iid;
    DWORD helpContext;
    BSTR helpFile;
};

ErrorInfo errorInfo()
{
    CComPtr<IErrorInfo> info;
    EXPECT_EQ(S_OK, GetErrorInfo(0, &info));
    CComBSTR source;
    CComBSTR description;
    CComBSTR helpFile;
    ErrorInfo result{};
    if (info.p != nullptr) {
        info->GetSource(&source);
        info->GetDescription(&description);
        info->GetGUID(&result.iid);
        info->GetHelpContext(&result.helpContext);
        info->GetHelpFile(&helpFile);
    }
    result.source = source ? std::wstring(source, source.Length()) : L"(null)";
    result.description = description ? std::wstring(description, description.Length()) : L"(null)";
    result.helpFile = helpFile;
    return result;
}

} // namespace

TEST_F(ObjectTest, answersForTheInterfacesOfItsMapOnly)
{
    auto* const object = create();
    for (const IID* const iid :
         {&IID_IUnknown, &IID_IDispatch, &IID_IJavaManager, &IID_ISupportErrorInfo, &IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(S_OK, object->QueryInterface(*iid, reinterpret_cast<void**>(&answer)));
        EXPECT_NE(nullptr, answer.p);
    }
    void* other = object;
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IConnectionPoint, &other));
    EXPECT_EQ(nullptr, other);
    EXPECT_EQ(E_POINTER, object->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(0u, object->Release());
}

TEST_F(ObjectTest, hasOneIdentity)
{
    auto* const object = create();
    CComPtr<IConnectionPointContainer> container;
    CComPtr<IUnknown> first;
    CComPtr<IUnknown> second;
    EXPECT_EQ(S_OK, object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container)));
    EXPECT_EQ(S_OK, object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&first)));
    EXPECT_EQ(S_OK, container.QueryInterface(&second));
    EXPECT_EQ(first.p, second.p);
    EXPECT_EQ(5u, object->AddRef());
    EXPECT_EQ(4u, object->Release());
    object->Release();
}

TEST_F(ObjectTest, isConstructedUnderTheModulesLockAndUnlocksItLast)
{
    auto* const object = create();
    EXPECT_THAT(g_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct"));
    EXPECT_EQ(1, m_module.m_count);
    g_events.clear();
    EXPECT_EQ(2u, object->AddRef());
    EXPECT_EQ(1u, object->Release());
    EXPECT_THAT(g_events, ElementsAre());
    EXPECT_EQ(0u, object->Release());
    EXPECT_THAT(g_events, ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
    EXPECT_EQ(0, m_module.m_count);
}

TEST_F(ObjectTest, aReferenceTakenAndGivenBackWhileItEndsDoesNotEndItTwice)
{
    CSampleObject::s_finalRelease = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
    };
    create()->Release();
    EXPECT_THAT(g_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject",
                                      "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, aReferenceTakenAndGivenBackByFinalConstructDoesNotEndIt)
{
    CSampleObject::s_finalConstruct = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
        return S_OK;
    };
    auto* const object = create();
    EXPECT_THAT(g_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct"));
    EXPECT_EQ(0u, object->Release());
}

TEST_F(ObjectTest, aFailingFinalConstructFailsTheCreation)
{
    CSampleObject::s_finalConstruct = [](CSampleObject&) { return E_ACCESSDENIED; };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(E_ACCESSDENIED, CComObject<CSampleObject>::CreateInstance(&object));
    EXPECT_EQ(nullptr, object);
    EXPECT_THAT(g_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject",
                                      "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, anExceptionOfFinalConstructFailsTheCreation)
{
    CSampleObject::s_finalConstruct = [](CSampleObject&) -> HRESULT { throw std::bad_alloc(); };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(E_OUTOFMEMORY, CComObject<CSampleObject>::CreateInstance(&object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0, m_module.m_count);
    EXPECT_EQ("Unlock", g_events.back());
}

TEST_F(ObjectTest, anExceptionOfTheConstructorFailsTheCreation)
{
    CSampleObject::s_whileConstructing = [] { throw std::runtime_error("no"); };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(E_FAIL, CComObject<CSampleObject>::CreateInstance(&object));
    EXPECT_EQ(nullptr, object);
    EXPECT_THAT(g_events, ElementsAre("Lock", "CSampleObject", "~CVirtualBase", "Unlock"));
    EXPECT_EQ(E_POINTER, CComObject<CSampleObject>::CreateInstance(nullptr));
}

TEST_F(ObjectTest, anObjectWithoutTheWantedInterfaceIsDestroyedAgain)
{
    void* object = this;
    EXPECT_EQ(E_NOINTERFACE, AtlCreateObject<CSampleObject>(IID_IStream, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0, m_module.m_count);
}

TEST_F(ObjectTest, classFactoryCreatesObjects)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(0, m_module.m_count);
    CComPtr<IJavaManager> object;
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IJavaManager, reinterpret_cast<void**>(&object)));
    int id = 0;
    EXPECT_EQ(S_OK, object->getBeanFrameID(&id));
    EXPECT_EQ(42, id);
    EXPECT_EQ(1, m_module.m_count);
    object.Release();
    EXPECT_EQ(0, m_module.m_count);
}

TEST_F(ObjectTest, classFactoryRefusesAggregationAndBadPointers)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    void* object = this;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(factory, IID_IUnknown, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(E_POINTER, factory->CreateInstance(nullptr, IID_IUnknown, nullptr));
    EXPECT_EQ(E_NOINTERFACE, factory->QueryInterface(IID_IDispatch, &object));
    EXPECT_EQ(E_NOINTERFACE, CSampleObject::ClassFactoryCreator(IID_IDispatch, &object));
    EXPECT_THAT(g_events, ElementsAre());
}

TEST_F(ObjectTest, classFactoryLetsNoExceptionOut)
{
    CSampleObject::s_whileConstructing = [] { throw 5; };
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    CComPtr<IUnknown> object;
    EXPECT_EQ(E_FAIL, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)));
    EXPECT_EQ(nullptr, object.p);
}

TEST_F(ObjectTest, classFactoryLocksTheServer)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(1, m_module.m_count);
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(0, m_module.m_count);
}

TEST_F(ObjectTest, errorsCarryDescriptionInterfaceAndResult)
{
    EXPECT_EQ(CLSID_JavaManager, CSampleObject::GetObjectCLSID());
    EXPECT_EQ(E_INVALIDARG, CSampleObject::Error("what went wrong\nsecond line", IID_IJavaManager, E_INVALIDARG));
    const ErrorInfo info = errorInfo();
    EXPECT_EQ(L"what went wrong\nsecond line", info.description);
    EXPECT_EQ(IID_IJavaManager, info.iid);
    EXPECT_EQ(0u, info.helpContext);
    EXPECT_EQ(nullptr, info.helpFile);
}

TEST_F(ObjectTest, errorsWithoutResultAreDispatchExceptions)
{
    EXPECT_EQ(DISP_E_EXCEPTION, CSampleObject::Error(L"wide"));
    const ErrorInfo info = errorInfo();
    EXPECT_EQ(L"wide", info.description);
    EXPECT_EQ(GUID_NULL, info.iid);
}

TEST_F(ObjectTest, anEmptyDescriptionIsSetToo)
{
    EXPECT_EQ(E_FAIL, CSampleObject::Error("", IID_IJavaManager, E_FAIL));
    EXPECT_EQ(L"", errorInfo().description);
}

TEST_F(ObjectTest, theSourceOfAnErrorIsTheProgIdOfTheClass)
{
    // A class that every system has a ProgID for.
    CLSID font;
    ASSERT_EQ(S_OK, CLSIDFromProgID(L"StdFont", &font));
    LPOLESTR progId = nullptr;
    ASSERT_EQ(S_OK, ProgIDFromCLSID(font, &progId));
    EXPECT_EQ(E_FAIL, AtlReportError(font, "text", IID_NULL, E_FAIL));
    EXPECT_EQ(progId, errorInfo().source);
    CoTaskMemFree(progId);

    const CLSID unknown = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(E_FAIL, AtlReportError(unknown, "text", IID_NULL, E_FAIL));
    EXPECT_THAT(errorInfo().source, testing::AnyOf(L"", L"(null)"));
}

TEST_F(ObjectTest, aClassHasNoCategoriesAndAQuietObjectMainByDefault)
{
    class CPlain : public CComCoClass<CPlain, &CLSID_JavaManager>
    {
    };
    EXPECT_EQ(nullptr, CPlain::GetCategoryMap());
    CPlain::ObjectMain(true);
    EXPECT_THAT(g_events, ElementsAre());
}
