// The server's type library, which the test program contains, and its registration.
#include "atl/typelib.h"
#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

#include "KESTAserver_h.h"

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// Name and help text of a library, a type or a member; nothing has a help file or context.
template <class Info>
std::string documentation(Info* info, MEMBERID member)
{
    CComBSTR name;
    CComBSTR text;
    CComBSTR file;
    DWORD context = 7;
    EXPECT_EQ(info->GetDocumentation(member, &name, &text, &context, &file), S_OK);
    EXPECT_EQ(context, 0u);
    EXPECT_EQ(file.Length(), 0u);
    return std::format("'{}' '{}'", narrowText(name), narrowText(text));
}

std::string typeText(const TYPEDESC& type)
{
    switch (type.vt) {
    case VT_PTR:
        return "pointer to " + typeText(*type.lptdesc);
    case VT_VOID:
        return "void";
    case VT_INT:
        return "int";
    case VT_BSTR:
        return "BSTR";
    case VT_BOOL:
        return "VARIANT_BOOL";
    case VT_HRESULT:
        return "HRESULT";
    default:
        return std::format("vt {}", type.vt);
    }
}

std::string functionText(ITypeInfo* info, UINT index, FUNCKIND kind)
{
    FUNCDESC* function = nullptr;
    EXPECT_EQ(info->GetFuncDesc(index, &function), S_OK);
    BSTR names[8] = {};
    UINT count = 0;
    info->GetNames(function->memid, names, std::size(names), &count);
    std::string line = std::format("  {} at {}: {} {}(", function->memid, function->oVft, typeText(function->elemdescFunc.tdesc),
                                   narrowText(names[0]));
    for (SHORT i = 0; i < function->cParams; ++i) {
        const ELEMDESC& parameter = function->lprgelemdescParam[i];
        line += std::format("{}[{:#x}] {} {}", i == 0 ? "" : ", ", parameter.paramdesc.wParamFlags, typeText(parameter.tdesc),
                            narrowText(names[i + 1]));
    }
    EXPECT_EQ(function->funckind, kind);
    EXPECT_EQ(function->invkind, INVOKE_FUNC);
    EXPECT_EQ(function->callconv, CC_STDCALL);
    EXPECT_EQ(function->cParamsOpt + function->cScodes + function->wFuncFlags, 0);
    EXPECT_EQ(documentation(info, function->memid), std::format("'{}' ''", narrowText(names[0])));
    for (BSTR each : names) {
        SysFreeString(each);
    }
    info->ReleaseFuncDesc(function);
    return line + ")\n";
}

// Functions of a dual interface are described as early binding sees them; the late-bound form is derived from it.
std::string describe(ITypeInfo* info)
{
    TYPEATTR* attributes = nullptr;
    EXPECT_EQ(info->GetTypeAttr(&attributes), S_OK);
    EXPECT_EQ(attributes->lcid, 0u);
    EXPECT_EQ(attributes->wMajorVerNum + attributes->wMinorVerNum + attributes->cVars + attributes->idldescType.wIDLFlags, 0);
    std::string text =
        std::format("type kind {} {}\n  {} flags {:#x} vft {} alignment {} functions {}\n",
                    static_cast<int>(attributes->typekind), documentation(info, MEMBERID_NIL), guidText(attributes->guid),
                    attributes->wTypeFlags, attributes->cbSizeVft, attributes->cbAlignment, attributes->cFuncs);
    for (UINT i = 0; i < attributes->cImplTypes; ++i) {
        HREFTYPE reference = 0;
        int flags = 0;
        CComPtr<ITypeInfo> implemented;
        CComBSTR name;
        info->GetRefTypeOfImplType(i, &reference);
        info->GetImplTypeFlags(i, &flags);
        EXPECT_EQ(info->GetRefTypeInfo(reference, &implemented), S_OK);
        implemented->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
        text += std::format("  implements {} flags {:#x}\n", narrowText(name), flags);
    }
    const bool isDual = (attributes->wTypeFlags & TYPEFLAG_FDUAL) != 0;
    for (UINT i = 0; i < attributes->cFuncs && (!isDual || attributes->typekind == TKIND_INTERFACE); ++i) {
        text += functionText(info, i, isDual ? FUNC_PUREVIRTUAL : FUNC_DISPATCH);
    }
    info->ReleaseTypeAttr(attributes);
    return text;
}

using Load = ImportHook<decltype(&LoadTypeLibEx)>;
using Register = ImportHook<decltype(&RegisterTypeLib)>;
using Remove = ImportHook<decltype(&UnRegisterTypeLib)>;
using LookUp = ImportHook<decltype(&GetProcAddress)>;

// The calls with their arguments; the registering ones return this result.
std::vector<std::string> s_calls;
constexpr HRESULT RESULT = TYPE_E_REGISTRYACCESS;

HRESULT noteRegistration(const char* function, LPCOLESTR path, LPCOLESTR folder)
{
    s_calls.push_back(std::format("{} {} in {}", function, narrowText(CComBSTR(path)), narrowText(CComBSTR(folder))));
    return RESULT;
}

HRESULT noteRemoval(const char* function, REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system)
{
    s_calls.push_back(std::format("{} {} {}.{} {:x} {}", function, guidText(id), major, minor, locale, static_cast<int>(system)));
    return RESULT;
}

// The functions for users, which are looked up by name; null on a system without them.
HRESULT STDAPICALLTYPE registerForUser(ITypeLib*, OLECHAR* path, OLECHAR* folder)
{
    return noteRegistration("RegisterTypeLibForUser", path, folder);
}
HRESULT STDAPICALLTYPE removeForUser(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system)
{
    return noteRemoval("UnRegisterTypeLibForUser", id, major, minor, locale, system);
}
FARPROC lookUp(HMODULE module, LPCSTR name)
{
    EXPECT_EQ(module, GetModuleHandleA("OLEAUT32.DLL"));
    const std::string wanted = name;
    return reinterpret_cast<FARPROC>(wanted == "RegisterTypeLibForUser"     ? reinterpret_cast<void*>(&registerForUser)
                                     : wanted == "UnRegisterTypeLibForUser" ? reinterpret_cast<void*>(&removeForUser)
                                                                            : nullptr);
}

class TypeLibTest : public RegistryTest
{
protected:
    ~TypeLibTest() override { m_library.Release(); }

    static CComPtr<ITypeLib> load()
    {
        CComPtr<ITypeLib> library;
        EXPECT_EQ(LoadTypeLib(CComBSTR(executable().c_str()), &library), S_OK);
        return library;
    }
    static HRESULT loadRegistered(LCID language)
    {
        CComPtr<ITypeLib> library;
        return LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, language, &library);
    }

    CComPtr<ITypeLib> m_library = load();
};

} // namespace

TEST_F(TypeLibTest, DescribesItselfEveryTypeAndEveryMember)
{
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(m_library->GetLibAttr(&attributes), S_OK);
    std::string text = std::format("library {}\n  {} version {}.{} lcid {:#x} system {} flags {:#x}\n",
                                   documentation(m_library.p, -1), guidText(attributes->guid), attributes->wMajorVerNum,
                                   attributes->wMinorVerNum, attributes->lcid, static_cast<int>(attributes->syskind),
                                   attributes->wLibFlags & (LIBFLAG_FRESTRICTED | LIBFLAG_FCONTROL | LIBFLAG_FHIDDEN));
    m_library->ReleaseTLibAttr(attributes);
    ASSERT_EQ(m_library->GetTypeInfoCount(), 3u);
    CComPtr<ITypeInfo> info;
    for (UINT i = 0; i < 3; ++i) {
        ASSERT_EQ(m_library->GetTypeInfo(i, &info), S_OK);
        text += describe(info);
    }
    // The last one above was the late-bound side of the dual interface; this is the other side.
    HREFTYPE reference = 0;
    CComPtr<ITypeInfo> early;
    ASSERT_EQ(info->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), S_OK);
    ASSERT_EQ(info->GetRefTypeInfo(reference, &early), S_OK);
    text += describe(early);
    EXPECT_EQ(text, R"(library 'KESTAserverLib' 'KESTA Server 1.0'
  {6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6} version 1.0 lcid 0x0 system 3 flags 0x0
type kind 4 '_IJavaManagerEvents' '_IJavaManagerEvents Interface'
  {E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58} flags 0x1000 vft 56 alignment 8 functions 3
  implements IDispatch flags 0x0
  2 at 0: void testBridgeEvent([0x1] BSTR text)
  3 at 0: void controlReady([0x1] BSTR arg0)
  4 at 0: void customEvent([0x1] BSTR arg0)
type kind 5 'JavaManager' 'KESTA Java Manager'
  {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} flags 0x2 vft 0 alignment 4 functions 0
  implements IJavaManager flags 0x1
  implements _IJavaManagerEvents flags 0x3
type kind 4 'IJavaManager' 'IJavaManager Interface'
  {7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71} flags 0x10c0 vft 56 alignment 8 functions 24
  implements IDispatch flags 0x0
type kind 3 'IJavaManager' 'IJavaManager Interface'
  {7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71} flags 0x11c0 vft 192 alignment 8 functions 17
  implements IDispatch flags 0x0
  3 at 56: HRESULT callMethod([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result)
  4 at 64: HRESULT callMethodCompressed([0x1] BSTR arg0, [0x1] int arg1, [0x1] BSTR arg2, [0xa] pointer to BSTR result)
  5 at 72: HRESULT displayDebugConsole([0xa] pointer to BSTR result)
  6 at 80: HRESULT free([0xa] pointer to BSTR result)
  7 at 88: HRESULT getBasisControlVersionInfo([0xa] pointer to BSTR result)
  8 at 96: HRESULT getProperty([0x1] BSTR arg0, [0xa] pointer to BSTR result)
  9 at 104: HRESULT getVersionInfo([0x1] BSTR arg0, [0xa] pointer to BSTR result)
  10 at 112: HRESULT setLogLevel([0x1] int arg0, [0xa] pointer to BSTR result)
  11 at 120: HRESULT setProperty([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result)
  12 at 128: HRESULT setUsedControl([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result)
  13 at 136: HRESULT updateVersion([0x1] BSTR arg0, [0xa] pointer to BSTR result)
  14 at 144: HRESULT getBeanFrameID([0xa] pointer to int uid)
  15 at 152: HRESULT validate()
  16 at 160: HRESULT setBounds([0x1] int x, [0x1] int y, [0x1] int width, [0x1] int height)
  17 at 168: HRESULT testBridge([0x1] BSTR text, [0x1] int ttl, [0x1] int delay)
  18 at 176: HRESULT enable([0x1] VARIANT_BOOL enabled)
  19 at 184: HRESULT pushWindowHandle([0x1] int wndhandle)
)");
}

TEST_F(TypeLibTest, IsFoundUnderEveryLanguageAndMarshalsItsInterfacesOnceItIsRegistered)
{
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    const std::string version = "{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}\\1.0\\";
    const std::string dual = "Interface\\{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}\\";
    const std::string events = "Interface\\{E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58}\\";
    for (const std::string& line :
         {version + "0\\win64 [] = s '" + executable() + "'", version + "HELPDIR [] = s '" + folderOf(executable()) + "'",
          dual + "TypeLib [] = s '{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}'",
          dual + "ProxyStubClsid32 [] = s '{00020424-0000-0000-C000-000000000046}'",
          events + "ProxyStubClsid32 [] = s '{00020420-0000-0000-C000-000000000046}'"}) {
        EXPECT_THAT(classes(), Contains(EndsWith(line)));
    }
    for (const LCID language : {0x409u, 0x407u, 0x400u, 0u}) {
        EXPECT_EQ(loadRegistered(language), S_OK) << language;
    }
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(loadRegistered(0), TYPE_E_LIBNOTREGISTERED);
    EXPECT_THAT(classes(), Not(Contains(HasSubstr("{"))));
}

TEST_F(TypeLibTest, IsTakenFromTheExecutableOrElseFromTheFileBesideIt)
{
    static std::string s_holder;
    const std::string folder = "C:\\a b\\the.folder";
    const std::string program = folder + "\\the.program.exe";
    const std::string file = folder + "\\the.program.tlb";
    const std::string removed = " {6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6} 1.0 0 3";
    const Load load("LoadTypeLibEx", [](LPCOLESTR path, REGKIND kind, ITypeLib** library) -> HRESULT {
        EXPECT_EQ(kind, REGKIND_NONE);
        const std::string wanted = narrowText(CComBSTR(path));
        s_calls.push_back("load " + wanted);
        return wanted == s_holder ? Load::s_original(CComBSTR(executable().c_str()), kind, library) : TYPE_E_CANTLOADLIBRARY;
    });
    const Register add("RegisterTypeLib", [](ITypeLib*, LPCOLESTR path, LPCOLESTR help) -> HRESULT {
        return noteRegistration("RegisterTypeLib", path, help);
    });
    const Remove remove("UnRegisterTypeLib", [](REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system) -> HRESULT {
        return noteRemoval("UnRegisterTypeLib", id, major, minor, locale, system);
    });
    const LookUp hook("GetProcAddress", &lookUp);
    const auto run = [&](HRESULT result) {
        for (const CRegistrationScope scope : {CRegistrationScope::Machine, CRegistrationScope::User}) {
            EXPECT_EQ(AtlRegisterTypeLib(program, scope), result);
            EXPECT_EQ(AtlUnRegisterTypeLib(program, scope), result);
        }
        return std::exchange(s_calls, {});
    };
    s_holder = program;
    EXPECT_THAT(run(RESULT), ElementsAre("load " + program, "RegisterTypeLib " + program + " in " + folder, "load " + program,
                                         "UnRegisterTypeLib" + removed, "load " + program,
                                         "RegisterTypeLibForUser " + program + " in " + folder, "load " + program,
                                         "UnRegisterTypeLibForUser" + removed));
    s_holder = file;
    EXPECT_EQ(AtlRegisterTypeLib(program, CRegistrationScope::Machine), RESULT);
    EXPECT_EQ(AtlUnRegisterTypeLib(program, CRegistrationScope::Machine), RESULT);
    EXPECT_THAT(std::exchange(s_calls, {}),
                ElementsAre("load " + program, "load " + file, "RegisterTypeLib " + file + " in " + folder, "load " + program,
                            "load " + file, "UnRegisterTypeLib" + removed));
    s_holder = "";
    EXPECT_THAT(run(TYPE_E_CANTLOADLIBRARY), Not(Contains(HasSubstr("egister"))));
}

TEST_F(TypeLibTest, ASystemWithoutTheFunctionsForUsersFailsThePerUserSwitchesOnly)
{
    const LookUp hook("GetProcAddress", [](HMODULE, LPCSTR) -> FARPROC { return nullptr; });
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::User), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::User), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
    EXPECT_THAT(classes(), IsEmpty());
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
}
