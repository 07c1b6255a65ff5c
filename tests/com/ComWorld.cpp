#include "tests/com/ComWorld.h"

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
    calls.push_back(std::to_string(event) + " " + narrowText(lastText));
    if (onCall) {
        onCall();
    }
    return answer;
}

ComWorld::ComWorld()
{
    CoInitialize(nullptr);
    std::ofstream(basisControl) << "a control";
    world.setPreference("basiscontrol", basisControl);
    CJavaManagerATLObject::s_Instance = nullptr;
    SetErrorInfo(0, nullptr);
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

CComPtr<IConnectionPoint> ComWorld::point(Object* object)
{
    CComPtr<IConnectionPoint> result;
    EXPECT_EQ(object->FindConnectionPoint(DIID__IJavaManagerEvents, &result), S_OK);
    return result;
}

DWORD ComWorld::advise(Object* object, RecordingSink& sink)
{
    DWORD cookie = 0;
    EXPECT_EQ(point(object)->Advise(&sink, &cookie), S_OK);
    return cookie;
}

int ComWorld::frameId(Object* object)
{
    int id = 0;
    EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
    return id;
}

std::string ComWorld::takeErrorText()
{
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) {
        return "(no error info)";
    }
    CComBSTR description;
    EXPECT_EQ(info->GetDescription(&description), S_OK);
    GUID iid = GUID_NULL;
    EXPECT_EQ(info->GetGUID(&iid), S_OK);
    EXPECT_EQ(iid, IID_IJavaManager);
    CComBSTR helpFile;
    info->GetHelpFile(&helpFile);
    EXPECT_EQ(helpFile.Length(), 0u);
    DWORD helpContext = 4711;
    EXPECT_EQ(info->GetHelpContext(&helpContext), S_OK);
    EXPECT_EQ(helpContext, 0u);
    return narrowText(description.m_str);
}
