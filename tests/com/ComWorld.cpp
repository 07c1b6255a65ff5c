#include "tests/com/ComWorld.h"

#include "beanframe/BeanFrame.h"

#include <fstream>

HRESULT STDMETHODCALLTYPE RecordingSink::QueryInterface(REFIID iid, void** object)
{
    *object = nullptr;
    if (iid != DIID__IJavaManagerEvents && iid != IID_IUnknown) {
        return E_NOINTERFACE;
    }
    AddRef();
    *object = static_cast<IDispatch*>(this);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE RecordingSink::Invoke(DISPID event, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                                VARIANT* result, EXCEPINFO* exception, UINT* argumentError)
{
    EXPECT_EQ(iid, IID_NULL);
    EXPECT_EQ(locale, static_cast<LCID>(LOCALE_USER_DEFAULT));
    EXPECT_EQ(flags, DISPATCH_METHOD);
    EXPECT_EQ(parameters->cArgs, 1u);
    EXPECT_EQ(parameters->cNamedArgs, 0u);
    EXPECT_EQ(parameters->rgdispidNamedArgs, nullptr);
    EXPECT_EQ(parameters->rgvarg[0].vt, VT_BSTR);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(exception, nullptr);
    EXPECT_EQ(argumentError, nullptr);
    lastText = parameters->rgvarg[0].bstrVal;
    referencesInCall = references;
    calls.push_back({event, narrowText(lastText)});
    if (onCall) {
        onCall();
    }
    return answer;
}

ComWorld::ComWorld()
    : classes(HKEY_CLASSES_ROOT)
    , basisControl(folder.path("basis.jar"))
{
    CoInitialize(nullptr);
    std::ofstream(basisControl) << "a control";
    world.setPreference("basiscontrol", basisControl);
    world.setPreference("loglevel", LOGLEVEL_TRACE);
    world.setPreference("logpath", "");
    world.start();
    CJavaManagerATLObject::s_Instance = nullptr;
    SetErrorInfo(0, nullptr);
    stream.clear();
}

ComWorld::~ComWorld()
{
    EXPECT_EQ(module.locks, 0) << "every object has gone";
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    CoUninitialize();
}

CComPtr<ComWorld::Object> ComWorld::create()
{
    Object* object = nullptr;
    EXPECT_EQ(Object::CreateInstance(&object), S_OK);
    return object;
}

DWORD ComWorld::advise(Object* object, RecordingSink& sink)
{
    CComPtr<IConnectionPoint> point;
    EXPECT_EQ(object->FindConnectionPoint(DIID__IJavaManagerEvents, &point), S_OK);
    DWORD cookie = 0;
    EXPECT_EQ(point->Advise(&sink, &cookie), S_OK);
    return cookie;
}

HRESULT ComWorld::unadvise(Object* object, DWORD cookie)
{
    CComPtr<IConnectionPoint> point;
    EXPECT_EQ(object->FindConnectionPoint(DIID__IJavaManagerEvents, &point), S_OK);
    return point->Unadvise(cookie);
}

std::vector<std::string> ComWorld::methodLines(const std::string& entry, const std::vector<std::string>& between, HRESULT result)
{
    const std::string provide = OBJECT + "provideErrorInfo " + std::to_string(result);
    std::vector<std::string> expected = {"INFO -> " + OBJECT + entry};
    expected.insert(expected.end(), between.begin(), between.end());
    expected.push_back("INFO -> " + provide);
    if (FAILED(result)) {
        expected.push_back("TRACE " + OBJECT + "Providing Error Info!");
    }
    expected.push_back("INFO <- " + provide);
    expected.push_back("INFO <- " + OBJECT + entry);
    return expected;
}

std::optional<ErrorInfo> ComWorld::takeErrorInfo()
{
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) {
        return {};
    }
    ErrorInfo result;
    CComBSTR description;
    CComBSTR helpFile;
    EXPECT_EQ(info->GetDescription(&description), S_OK);
    EXPECT_EQ(info->GetGUID(&result.iid), S_OK);
    info->GetHelpFile(&helpFile);
    info->GetHelpContext(&result.helpContext);
    result.description = narrowText(description.m_str);
    result.hasHelpFile = helpFile.Length() != 0;
    return result;
}

std::string ComWorld::takeErrorText()
{
    const std::optional<ErrorInfo> info = takeErrorInfo();
    return info ? info->description : "(no error info)";
}
