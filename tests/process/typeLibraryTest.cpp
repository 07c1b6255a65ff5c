// The type library that the executable carries: everything a client can read in it.
#include "tests/process/ServerFixture.h"

namespace fixtures {
namespace {

using ATL::CComBSTR;
using ATL::CComPtr;

struct SParameter
{
    const wchar_t* name;
    VARTYPE type;
    VARTYPE pointsTo; // of a pointer
    USHORT flags;
};

struct SFunction
{
    const wchar_t* name;
    MEMBERID id;
    std::vector<SParameter> parameters;
};

constexpr USHORT IN_ARGUMENT = PARAMFLAG_FIN;
constexpr USHORT RESULT = PARAMFLAG_FOUT | PARAMFLAG_FRETVAL;

SParameter text(const wchar_t* name)
{
    return {name, VT_BSTR, VT_EMPTY, IN_ARGUMENT};
}
SParameter number(const wchar_t* name)
{
    return {name, VT_INT, VT_EMPTY, IN_ARGUMENT};
}
const SParameter ANSWER = {L"result", VT_PTR, VT_BSTR, RESULT};

const std::vector<SFunction> METHODS = {
    {L"callMethod", 3, {text(L"arg0"), text(L"arg1"), ANSWER}},
    {L"callMethodCompressed", 4, {text(L"arg0"), number(L"arg1"), text(L"arg2"), ANSWER}},
    {L"displayDebugConsole", 5, {ANSWER}},
    {L"free", 6, {ANSWER}},
    {L"getBasisControlVersionInfo", 7, {ANSWER}},
    {L"getProperty", 8, {text(L"arg0"), ANSWER}},
    {L"getVersionInfo", 9, {text(L"arg0"), ANSWER}},
    {L"setLogLevel", 10, {number(L"arg0"), ANSWER}},
    {L"setProperty", 11, {text(L"arg0"), text(L"arg1"), ANSWER}},
    {L"setUsedControl", 12, {text(L"arg0"), text(L"arg1"), ANSWER}},
    {L"updateVersion", 13, {text(L"arg0"), ANSWER}},
    {L"getBeanFrameID", 14, {{L"uid", VT_PTR, VT_INT, RESULT}}},
    {L"validate", 15, {}},
    {L"setBounds", 16, {number(L"x"), number(L"y"), number(L"width"), number(L"height")}},
    {L"testBridge", 17, {text(L"text"), number(L"ttl"), number(L"delay")}},
    {L"enable", 18, {{L"enabled", VT_BOOL, VT_EMPTY, IN_ARGUMENT}}},
    {L"pushWindowHandle", 19, {number(L"wndhandle")}},
};

const std::vector<SFunction> EVENTS = {
    {L"testBridgeEvent", 2, {text(L"text")}},
    {L"controlReady", 3, {text(L"arg0")}},
    {L"customEvent", 4, {text(L"arg0")}},
};

// The attributes of a type, freed at the end.
class CAttributes
{
public:
    explicit CAttributes(ITypeInfo* info)
        : m_info(info)
    {
        m_info->GetTypeAttr(&m_attributes);
    }
    ~CAttributes() { m_info->ReleaseTypeAttr(m_attributes); }
    CAttributes(const CAttributes&) = delete;
    CAttributes& operator=(const CAttributes&) = delete;
    const TYPEATTR* operator->() const { return m_attributes; }

private:
    CComPtr<ITypeInfo> m_info;
    TYPEATTR* m_attributes = nullptr;
};

class TypeLibraryTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string program = programFolder();
        const std::string executable = program + "\\..\\..\\KESTAx64.exe";
        ASSERT_EQ(LoadTypeLibEx(CComBSTR(executable.c_str()), REGKIND_NONE, &library), S_OK);
    }

    static void expectTexts(ITypeInfo* info, const wchar_t* name, const wchar_t* help)
    {
        CComBSTR actualName;
        CComBSTR actualHelp;
        info->GetDocumentation(MEMBERID_NIL, &actualName, &actualHelp, nullptr, nullptr);
        EXPECT_STREQ(name, actualName.m_str);
        EXPECT_STREQ(help, actualHelp.m_str);
    }

    static void expectFunction(ITypeInfo* info, UINT index, const SFunction& expected, FUNCKIND kind, VARTYPE result,
                               short offset)
    {
        FUNCDESC* description = nullptr;
        ASSERT_EQ(info->GetFuncDesc(index, &description), S_OK);
        EXPECT_EQ(expected.id, description->memid);
        EXPECT_EQ(kind, description->funckind);
        EXPECT_EQ(description->invkind, INVOKE_FUNC);
        EXPECT_EQ(description->callconv, CC_STDCALL);
        EXPECT_EQ(result, description->elemdescFunc.tdesc.vt);
        EXPECT_EQ(description->wFuncFlags, 0);
        EXPECT_EQ(offset, description->oVft);
        ASSERT_EQ(expected.parameters.size(), static_cast<size_t>(description->cParams));

        BSTR names[8] = {};
        UINT count = 0;
        info->GetNames(description->memid, names, 8, &count);
        ASSERT_EQ(expected.parameters.size() + 1, count);
        EXPECT_STREQ(expected.name, names[0]);
        for (size_t parameter = 0; parameter < expected.parameters.size(); ++parameter) {
            const SParameter& wanted = expected.parameters[parameter];
            const ELEMDESC& actual = description->lprgelemdescParam[parameter];
            EXPECT_STREQ(wanted.name, names[parameter + 1]);
            EXPECT_EQ(wanted.type, actual.tdesc.vt);
            EXPECT_EQ(wanted.flags, actual.paramdesc.wParamFlags);
            if (wanted.type == VT_PTR) {
                EXPECT_EQ(wanted.pointsTo, actual.tdesc.lptdesc->vt);
            }
        }
        for (const BSTR name : names) {
            SysFreeString(name);
        }
        info->ReleaseFuncDesc(description);
    }

    CComPtr<ITypeInfo> type(REFGUID id)
    {
        CComPtr<ITypeInfo> info;
        EXPECT_EQ(library->GetTypeInfoOfGuid(id, &info), S_OK);
        return info;
    }

    CComPtr<ITypeLib> library;
};

TEST_F(TypeLibraryTest, LibraryHasItsNameVersionAndLocale)
{
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
    EXPECT_TRUE(IsEqualGUID(LIBID_KESTAserverLib, attributes->guid));
    EXPECT_EQ(attributes->wMajorVerNum, 1);
    EXPECT_EQ(attributes->wMinorVerNum, 0);
    EXPECT_EQ(attributes->syskind, SYS_WIN64);
    EXPECT_EQ(static_cast<LCID>(LOCALE_NEUTRAL), attributes->lcid);
    library->ReleaseTLibAttr(attributes);

    CComBSTR name;
    CComBSTR help;
    library->GetDocumentation(-1, &name, &help, nullptr, nullptr);
    EXPECT_STREQ(name.m_str, L"KESTAserverLib");
    EXPECT_STREQ(help.m_str, L"KESTA Server 1.0");

    ASSERT_EQ(library->GetTypeInfoCount(), 3u);
    constexpr TYPEKIND KINDS[] = {TKIND_DISPATCH, TKIND_COCLASS,
                                  TKIND_DISPATCH}; // a dual interface shows its dispatch face first
    for (UINT index = 0; index < 3; ++index) {
        TYPEKIND kind = TKIND_MAX;
        library->GetTypeInfoType(index, &kind);
        EXPECT_EQ(KINDS[index], kind);
    }
}

TEST_F(TypeLibraryTest, EventInterface)
{
    const CComPtr<ITypeInfo> info = type(DIID__IJavaManagerEvents);
    ASSERT_TRUE(info);
    expectTexts(info, L"_IJavaManagerEvents", L"_IJavaManagerEvents Interface");
    const CAttributes attributes(info);
    EXPECT_EQ(attributes->typekind, TKIND_DISPATCH);
    EXPECT_EQ(attributes->wTypeFlags, TYPEFLAG_FDISPATCHABLE);
    EXPECT_EQ(attributes->cVars, 0);
    ASSERT_EQ(EVENTS.size(), attributes->cFuncs);
    for (UINT index = 0; index < EVENTS.size(); ++index) {
        expectFunction(info, index, EVENTS[index], FUNC_DISPATCH, VT_VOID, 0);
    }
}

TEST_F(TypeLibraryTest, Class)
{
    const CComPtr<ITypeInfo> info = type(CLSID_JavaManager);
    ASSERT_TRUE(info);
    expectTexts(info, L"JavaManager", L"KESTA Java Manager");
    const CAttributes attributes(info);
    EXPECT_EQ(attributes->typekind, TKIND_COCLASS);
    EXPECT_EQ(attributes->wTypeFlags, TYPEFLAG_FCANCREATE);
    ASSERT_EQ(attributes->cImplTypes, 2);
    const GUID ids[] = {IID_IJavaManager, DIID__IJavaManagerEvents};
    constexpr int FLAGS[] = {IMPLTYPEFLAG_FDEFAULT, IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE};
    for (UINT index = 0; index < 2; ++index) {
        HREFTYPE reference = 0;
        int flags = 0;
        CComPtr<ITypeInfo> implemented;
        EXPECT_EQ(info->GetRefTypeOfImplType(index, &reference), S_OK);
        EXPECT_EQ(info->GetImplTypeFlags(index, &flags), S_OK);
        EXPECT_EQ(info->GetRefTypeInfo(reference, &implemented), S_OK);
        EXPECT_EQ(FLAGS[index], flags);
        EXPECT_TRUE(IsEqualGUID(ids[index], CAttributes(implemented)->guid));
    }
}

TEST_F(TypeLibraryTest, DualInterface)
{
    const CComPtr<ITypeInfo> dispatch = type(IID_IJavaManager);
    ASSERT_TRUE(dispatch);
    expectTexts(dispatch, L"IJavaManager", L"IJavaManager Interface");
    constexpr WORD FLAGS = TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FNONEXTENSIBLE | TYPEFLAG_FDISPATCHABLE;
    EXPECT_EQ(CAttributes(dispatch)->typekind, TKIND_DISPATCH);
    EXPECT_EQ(CAttributes(dispatch)->wTypeFlags | TYPEFLAG_FOLEAUTOMATION, FLAGS); // which the dispatch face may leave out

    // Its other face, the one that C++ clients see.
    HREFTYPE reference = 0;
    CComPtr<ITypeInfo> info;
    ASSERT_EQ(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), S_OK);
    ASSERT_EQ(dispatch->GetRefTypeInfo(reference, &info), S_OK);
    const CAttributes attributes(info);
    EXPECT_EQ(attributes->typekind, TKIND_INTERFACE);
    EXPECT_EQ(attributes->wTypeFlags, FLAGS);
    EXPECT_TRUE(IsEqualGUID(IID_IJavaManager, attributes->guid));
    EXPECT_EQ(attributes->cVars, 0);
    ASSERT_EQ(METHODS.size(), attributes->cFuncs);
    constexpr size_t SLOTS_OF_IDISPATCH = 7;
    for (UINT index = 0; index < METHODS.size(); ++index) {
        SCOPED_TRACE(index);
        expectFunction(info, index, METHODS[index], FUNC_PUREVIRTUAL, VT_HRESULT,
                       static_cast<short>((SLOTS_OF_IDISPATCH + index) * sizeof(void*)));
    }
    ASSERT_EQ(attributes->cImplTypes, 1);
    CComPtr<ITypeInfo> base;
    ASSERT_EQ(info->GetRefTypeOfImplType(0, &reference), S_OK);
    ASSERT_EQ(info->GetRefTypeInfo(reference, &base), S_OK);
    EXPECT_TRUE(IsEqualGUID(IID_IDispatch, CAttributes(base)->guid));
}

} // namespace
} // namespace fixtures
