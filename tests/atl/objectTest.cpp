// Objects, their class factory and their error info.
#include "tests/atl/sampleObject.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <shlwapi.h>

#include <stdexcept>

using testing::ElementsAre;

namespace {

class ObjectTest : public SampleTest
{
protected:
    static HRESULT creationResult()
    {
        CComObject<CSampleObject>* object = nullptr;
        const HRESULT hr = CComObject<CSampleObject>::CreateInstance(&object);
        EXPECT_EQ(object, nullptr);
        return hr;
    }
    static CComPtr<IClassFactory> factory()
    {
        CComPtr<IClassFactory> factory;
        EXPECT_EQ(CSampleObject::ClassFactoryCreator(IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
        return factory;
    }
};

// The thread's error info: source, description, interface, help file and context.
std::string errorInfo()
{
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) {
        return "(none)";
    }
    CComBSTR source;
    CComBSTR description;
    CComBSTR helpFile;
    GUID iid = {};
    DWORD helpContext = 7;
    info->GetSource(&source);
    info->GetDescription(&description);
    info->GetGUID(&iid);
    info->GetHelpFile(&helpFile);
    info->GetHelpContext(&helpContext);
    return std::format("'{}' '{}' {} '{}' {}", narrowText(source), narrowText(description),
                       iid == IID_IJavaManager ? "IJavaManager" : "?", narrowText(helpFile), helpContext);
}

} // namespace

TEST_F(ObjectTest, IsConstructedUnderTheModulesLockAndUnlocksItLast)
{
    CComPtr<CComObject<CSampleObject>> object = create();
    EXPECT_THAT(takeEvents(), ElementsAre("Lock", "CSampleObject", "FinalConstruct"));
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_THAT(takeEvents(), ElementsAre());
    EXPECT_EQ(object.Detach()->Release(), 0u);
    EXPECT_THAT(takeEvents(), ElementsAre("FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, AnswersForTheInterfacesOfItsMapOnlyAndHasOneIdentity)
{
    const CComPtr<CComObject<CSampleObject>> object = create();
    for (const IID* const iid :
         {&IID_IUnknown, &IID_IDispatch, &IID_IJavaManager, &IID_ISupportErrorInfo, &IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> answer;
        CComPtr<IUnknown> identity;
        ASSERT_EQ(object->QueryInterface(*iid, reinterpret_cast<void**>(&answer)), S_OK);
        EXPECT_EQ(answer.QueryInterface(&identity), S_OK);
        EXPECT_EQ(identity.p, static_cast<IJavaManager*>(object.p));
    }
    void* other = this;
    EXPECT_EQ(object->QueryInterface(IID_IConnectionPoint, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(ObjectTest, ReferencesTakenAndGivenBackAtItsBeginningAndEndDoNotEndItTwice)
{
    CSampleObject::s_finalConstruct = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
        return S_OK;
    };
    CSampleObject::s_finalRelease = [](CSampleObject& object) {
        object.AddRef();
        object.Release();
    };
    CComPtr<CComObject<CSampleObject>> object = create();
    EXPECT_EQ(object.Detach()->Release(), 0u);
    EXPECT_THAT(takeEvents(), ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject",
                                          "~CVirtualBase", "Unlock"));
}

TEST_F(ObjectTest, FailuresAndExceptionsWhileItIsMadeFailTheCreation)
{
    const auto ends =
        ElementsAre("Lock", "CSampleObject", "FinalConstruct", "FinalRelease", "~CSampleObject", "~CVirtualBase", "Unlock");
    CSampleObject::s_finalConstruct = [](CSampleObject&) { return E_ACCESSDENIED; };
    EXPECT_EQ(creationResult(), E_ACCESSDENIED);
    EXPECT_THAT(takeEvents(), ends);
    CSampleObject::s_finalConstruct = [](CSampleObject&) -> HRESULT { throw std::bad_alloc(); };
    EXPECT_EQ(creationResult(), E_OUTOFMEMORY);
    EXPECT_THAT(takeEvents(), ends);
    CSampleObject::s_whileConstructing = [] { throw std::runtime_error("no"); };
    EXPECT_EQ(creationResult(), E_FAIL);
    EXPECT_THAT(takeEvents(), ElementsAre("Lock", "CSampleObject", "~CVirtualBase", "Unlock"));
    EXPECT_EQ(CComObject<CSampleObject>::CreateInstance(nullptr), E_POINTER);
}

TEST_F(ObjectTest, AnExceptionOfFinalReleaseDoesNotKeepIt)
{
    CSampleObject::s_finalRelease = [](CSampleObject&) { throw 5; };
    create();
    EXPECT_EQ(s_events.back(), "Unlock");
}

TEST_F(ObjectTest, ClassFactoryCreatesObjectsAndLocksTheServer)
{
    const CComPtr<IClassFactory> factory = ObjectTest::factory();
    EXPECT_EQ(m_module.m_count, 0) << "the factory itself does not lock";
    CComPtr<IJavaManager> object;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IJavaManager, reinterpret_cast<void**>(&object)), S_OK);
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, 42);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(m_module.m_count, 2);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    EXPECT_EQ(m_module.m_count, 1);
    IUnknown* const released = object.Detach();
    EXPECT_EQ(released->Release(), 0u) << "the factory keeps no reference";
}

TEST_F(ObjectTest, ClassFactoryRefusesAggregationOtherInterfacesAndBadPointers)
{
    const CComPtr<IClassFactory> factory = ObjectTest::factory();
    const auto refuses = [&](HRESULT error, const std::function<HRESULT(void**)>& operation) {
        void* object = this;
        EXPECT_EQ(operation(&object), error);
        EXPECT_EQ(object, nullptr);
    };
    refuses(CLASS_E_NOAGGREGATION, [&](void** out) { return factory->CreateInstance(factory, IID_IUnknown, out); });
    refuses(E_NOINTERFACE, [&](void** out) { return factory->QueryInterface(IID_IDispatch, out); });
    refuses(E_NOINTERFACE, [&](void** out) { return CSampleObject::ClassFactoryCreator(IID_IDispatch, out); });
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_THAT(takeEvents(), ElementsAre());
    refuses(E_NOINTERFACE, [&](void** out) { return factory->CreateInstance(nullptr, IID_IStream, out); });
    EXPECT_EQ(s_events.back(), "Unlock") << "the object that has no stream is gone again";
    CSampleObject::s_whileConstructing = [] { throw 5; };
    refuses(E_FAIL, [&](void** out) { return factory->CreateInstance(nullptr, IID_IUnknown, out); });
}

TEST_F(ObjectTest, ErrorsCarrySourceDescriptionAndInterface)
{
    static LPCOLESTR s_progId;
    s_progId = nullptr;
    const ImportHook<decltype(&ProgIDFromCLSID)> hook("ProgIDFromCLSID", [](REFCLSID clsid, LPOLESTR* progId) -> HRESULT {
        EXPECT_EQ(clsid, CLSID_JavaManager);
        return s_progId == nullptr ? REGDB_E_CLASSNOTREG : SHStrDupW(s_progId, progId);
    });
    EXPECT_EQ(CSampleObject::Error("what went wrong\nsecond line", IID_IJavaManager, E_INVALIDARG), E_INVALIDARG);
    EXPECT_EQ(errorInfo(), "'' 'what went wrong\nsecond line' IJavaManager '' 0");
    s_progId = L"Program.Id";
    EXPECT_EQ(CSampleObject::Error("", IID_IJavaManager, E_FAIL), E_FAIL);
    EXPECT_EQ(errorInfo(), "'Program.Id' '' IJavaManager '' 0");
}

TEST_F(ObjectTest, TheResultOfAnErrorSurvivesThatItsInfoCannotBeSet)
{
    {
        const ImportHook<decltype(&CreateErrorInfo)> hook("CreateErrorInfo",
                                                          [](ICreateErrorInfo**) -> HRESULT { return E_OUTOFMEMORY; });
        EXPECT_EQ(CSampleObject::Error("text", IID_IJavaManager, E_INVALIDARG), E_INVALIDARG);
    }
    const ImportHook<decltype(&SysAllocStringLen)> hook("SysAllocStringLen",
                                                        [](const OLECHAR*, UINT) -> BSTR { return nullptr; });
    EXPECT_EQ(CSampleObject::Error("text", IID_IJavaManager, E_INVALIDARG), E_INVALIDARG);
    EXPECT_EQ(errorInfo(), "(none)");
}

TEST_F(ObjectTest, AClassHasItsIdNoCategoriesAndAQuietObjectMainByDefault)
{
    EXPECT_EQ(CSampleObject::GetObjectCLSID(), CLSID_JavaManager);
    EXPECT_EQ(CSampleObject::GetCategoryMap(), nullptr);
    CSampleObject::ObjectMain(true);
    EXPECT_THAT(takeEvents(), ElementsAre());
}
