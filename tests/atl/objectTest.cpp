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
        s_events.clear();
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
        EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), S_OK);
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
    EXPECT_EQ(GetErrorInfo(0, &info), S_OK);
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
    result.source = source != nullptr ? std::wstring(source, source.Length()) : L"(null)";
    result.description = description != nullptr ? std::wstring(description, description.Length()) : L"(null)";
    result.helpFile = helpFile;
    return result;
}

} // namespace

TEST_F(ObjectTest, AnswersForTheInterfacesOfItsMapOnly)
{
    auto* const object = create();
    for (const IID* const iid :
         {&IID_IUnknown, &IID_IDispatch, &IID_IJavaManager, &IID_ISupportErrorInfo, &IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(object->QueryInterface(*iid, reinterpret_cast<void**>(&answer)), S_OK);
        EXPECT_NE(answer.p, nullptr);
    }
    void* other = object;
    EXPECT_EQ(object->QueryInterface(IID_IConnectionPoint, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(object->Release(), 0u);
}

TEST_F(ObjectTest, HasOneIdentity)
{
    auto* const object = create();
    CComPtr<IConnectionPointContainer> container;
    CComPtr<IUnknown> first;
    CComPtr<IUnknown> second;
    EXPECT_EQ(object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container)), S_OK);
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&first)), S_OK);
    EXPECT_EQ(container.QueryInterface(&second), S_OK);
    EXPECT_EQ(first.p, second.p);
    EXPECT_EQ(object->AddRef(), 5u);
    EXPECT_EQ(object->Release(), 4u);
    object->Release();
}

TEST_F(ObjectTest, IsConstructedUnderTheModulesLockAndUnlocksItLast)
{
    auto* const object = create();
    EXPECT_THAT(s_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct"));
    EXPECT_EQ(m_module.m_count, 1);
    s_events.clear();
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_THAT(s_events, ElementsAre());
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_THAT(s_events, ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
    EXPECT_EQ(m_module.m_count, 0);
}

TEST_F(ObjectTest, AReferenceTakenAndGivenBackWhileItEndsDoesNotEndItTwice)
{
    CSampleObject::s_finalRelease = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
    };
    create()->Release();
    EXPECT_THAT(s_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject",
                                      "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, AReferenceTakenAndGivenBackByFinalConstructDoesNotEndIt)
{
    CSampleObject::s_finalConstruct = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
        return S_OK;
    };
    auto* const object = create();
    EXPECT_THAT(s_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct"));
    EXPECT_EQ(object->Release(), 0u);
}

TEST_F(ObjectTest, AFailingFinalConstructFailsTheCreation)
{
    CSampleObject::s_finalConstruct = [](CSampleObject&) { return E_ACCESSDENIED; };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), E_ACCESSDENIED);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(s_events, ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject",
                                      "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, AnExceptionOfFinalConstructFailsTheCreation)
{
    CSampleObject::s_finalConstruct = [](CSampleObject&) -> HRESULT { throw std::bad_alloc(); };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), E_OUTOFMEMORY);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_module.m_count, 0);
    EXPECT_EQ(s_events.back(), "Unlock");
}

TEST_F(ObjectTest, AnExceptionOfTheConstructorFailsTheCreation)
{
    CSampleObject::s_whileConstructing = [] { throw std::runtime_error("no"); };
    CComObject<CSampleObject>* object = nullptr;
    EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(&object), E_FAIL);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(s_events, ElementsAre("Lock", "CSampleObject", "~CVirtualBase", "Unlock"));
    EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(nullptr), E_POINTER);
}

TEST_F(ObjectTest, AnObjectWithoutTheWantedInterfaceIsDestroyedAgain)
{
    void* object = this;
    EXPECT_EQ(AtlCreateObject<CSampleObject>(IID_IStream, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_module.m_count, 0);
}

TEST_F(ObjectTest, ClassFactoryCreatesObjects)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    EXPECT_EQ(m_module.m_count, 0);
    CComPtr<IJavaManager> object;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IJavaManager, reinterpret_cast<void**>(&object)), S_OK);
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, 42);
    EXPECT_EQ(m_module.m_count, 1);
    object.Release();
    EXPECT_EQ(m_module.m_count, 0);
}

TEST_F(ObjectTest, ClassFactoryRefusesAggregationAndBadPointers)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    void* object = this;
    EXPECT_EQ(factory->CreateInstance(factory, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(factory->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_THAT(s_events, ElementsAre());
}

TEST_F(ObjectTest, ClassFactoryLetsNoExceptionOut)
{
    CSampleObject::s_whileConstructing = [] { throw 5; };
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    CComPtr<IUnknown> object;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), E_FAIL);
    EXPECT_EQ(object.p, nullptr);
}

TEST_F(ObjectTest, ClassFactoryLocksTheServer)
{
    CComPtr<IClassFactory> factory;
    EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(m_module.m_count, 1);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(m_module.m_count, 0);
}

TEST_F(ObjectTest, ErrorsCarryDescriptionInterfaceAndResult)
{
    EXPECT_EQ(CLSID_JavaManager, CSampleObject::GetObjectCLSID());
    EXPECT_EQ(CSampleObject::Error("what went wrong\nsecond line", IID_IJavaManager, E_INVALIDARG), E_INVALIDARG);
    const ErrorInfo info = errorInfo();
    EXPECT_EQ(info.description, L"what went wrong\nsecond line");
    EXPECT_EQ(IID_IJavaManager, info.iid);
    EXPECT_EQ(info.helpContext, 0u);
    EXPECT_EQ(info.helpFile, nullptr);
}

TEST_F(ObjectTest, ErrorsWithoutResultAreDispatchExceptions)
{
    EXPECT_EQ(CSampleObject::Error(L"wide"), DISP_E_EXCEPTION);
    const ErrorInfo info = errorInfo();
    EXPECT_EQ(info.description, L"wide");
    EXPECT_EQ(info.iid, GUID_NULL);
}

TEST_F(ObjectTest, AnEmptyDescriptionIsSetToo)
{
    EXPECT_EQ(CSampleObject::Error("", IID_IJavaManager, E_FAIL), E_FAIL);
    EXPECT_EQ(errorInfo().description, L"");
}

TEST_F(ObjectTest, TheSourceOfAnErrorIsTheProgIdOfTheClass)
{
    // A class that every system has a ProgID for.
    CLSID font;
    ASSERT_EQ(CLSIDFromProgID(L"StdFont", &font), S_OK);
    LPOLESTR progId = nullptr;
    ASSERT_EQ(ProgIDFromCLSID(font, &progId), S_OK);
    EXPECT_EQ(AtlReportError(font, "text", IID_NULL, E_FAIL), E_FAIL);
    EXPECT_EQ(progId, errorInfo().source);
    CoTaskMemFree(progId);

    const CLSID unknown = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(AtlReportError(unknown, "text", IID_NULL, E_FAIL), E_FAIL);
    EXPECT_THAT(errorInfo().source, testing::AnyOf(L"", L"(null)"));
}

TEST_F(ObjectTest, AClassHasNoCategoriesAndAQuietObjectMainByDefault)
{
    class CPlain : public CComCoClass<CPlain, &CLSID_JavaManager>
    {
    };
    EXPECT_EQ(CPlain::GetCategoryMap(), nullptr);
    CPlain::ObjectMain(true);
    EXPECT_THAT(s_events, ElementsAre());
}
