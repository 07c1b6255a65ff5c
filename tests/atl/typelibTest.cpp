#include "atl/typelib.h"
#include "tests/atl/registryFixture.h"
#include "tests/support/ImportHook.h"

#include "KESTAserver_h.h"

#include <cstdio>
#include <format>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const auto& s_realGetProcAddress = ImportHook<decltype(&GetProcAddress)>::s_original;

std::string executable()
{
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

std::string narrow(const wchar_t* text)
{
    std::string result;
    for (; text != nullptr && *text != L'\0'; ++text) {
        result += static_cast<char>(*text);
    }
    return result;
}

std::string guidText(const GUID& guid)
{
    wchar_t text[40];
    StringFromGUID2(guid, text, 40);
    return narrow(text);
}

std::string documentation(BSTR name, BSTR text, DWORD context, BSTR file)
{
    return std::format("'{}' doc '{}' context {} file '{}'", narrow(name), narrow(text), context, narrow(file));
}

std::string typeText(ITypeInfo* info, const TYPEDESC& type)
{
    switch (type.vt) {
    case VT_PTR:
        return "pointer to " + typeText(info, *type.lptdesc);
    case VT_VOID:
        return "void";
    case VT_I4:
        return "I4";
    case VT_INT:
        return "int";
    case VT_UI4:
        return "UI4";
    case VT_UINT:
        return "uint";
    case VT_UI2:
        return "UI2";
    case VT_BSTR:
        return "BSTR";
    case VT_BOOL:
        return "VARIANT_BOOL";
    case VT_HRESULT:
        return "HRESULT";
    case VT_VARIANT:
        return "VARIANT";
    case VT_USERDEFINED: {
        CComPtr<ITypeInfo> referred;
        CComBSTR name;
        if (SUCCEEDED(info->GetRefTypeInfo(type.hreftype, &referred))) {
            referred->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
        }
        return narrow(name);
    }
    default:
        return std::format("vt {}", type.vt);
    }
}

std::string functionText(ITypeInfo* info, UINT index)
{
    FUNCDESC* function = nullptr;
    if (FAILED(info->GetFuncDesc(index, &function))) {
        return "  no function";
    }
    BSTR names[16] = {};
    UINT count = 0;
    info->GetNames(function->memid, names, 16, &count);
    CComBSTR name;
    CComBSTR text;
    CComBSTR file;
    DWORD context = 0;
    info->GetDocumentation(function->memid, &name, &text, &context, &file);
    std::string line = std::format("  {} at {}: {} {}(", function->memid, function->oVft,
                                   typeText(info, function->elemdescFunc.tdesc), narrow(names[0]));
    for (SHORT i = 0; i < function->cParams; ++i) {
        const ELEMDESC& parameter = function->lprgelemdescParam[i];
        line +=
            std::format("{}[{:#x}] {} {}", i == 0 ? "" : ", ", parameter.paramdesc.wParamFlags, typeText(info, parameter.tdesc),
                        i + 1 < static_cast<int>(count) ? narrow(names[i + 1]) : "(unnamed)");
    }
    line += std::format(") kind {} invoke {} convention {} optional {} scodes {} flags {:#x} return flags {:#x}",
                        static_cast<int>(function->funckind), static_cast<int>(function->invkind),
                        static_cast<int>(function->callconv), function->cParamsOpt, function->cScodes, function->wFuncFlags,
                        function->elemdescFunc.paramdesc.wParamFlags);
    line += text.Length() == 0 && file.Length() == 0 && context == 0 ? "" : " " + documentation(name, text, context, file);
    for (BSTR each : names) {
        SysFreeString(each);
    }
    info->ReleaseFuncDesc(function);
    return line;
}

void describeType(ITypeInfo* info, std::vector<std::string>& lines)
{
    TYPEATTR* attributes = nullptr;
    if (FAILED(info->GetTypeAttr(&attributes))) {
        lines.push_back("no attributes");
        return;
    }
    CComBSTR name;
    CComBSTR text;
    CComBSTR file;
    DWORD context = 0;
    info->GetDocumentation(MEMBERID_NIL, &name, &text, &context, &file);
    lines.push_back(
        std::format("type kind {} {}", static_cast<int>(attributes->typekind), documentation(name, text, context, file)));
    lines.push_back(std::format(
        "  {} lcid {:#x} version {}.{} flags {:#x} size {} vft {} alignment {} idl {:#x} constructor {} destructor {}",
        guidText(attributes->guid), attributes->lcid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->wTypeFlags,
        attributes->cbSizeInstance, attributes->cbSizeVft, attributes->cbAlignment, attributes->idldescType.wIDLFlags,
        attributes->memidConstructor, attributes->memidDestructor));
    lines.push_back(
        std::format("  functions {} variables {} implemented {}", attributes->cFuncs, attributes->cVars, attributes->cImplTypes));
    for (UINT i = 0; i < attributes->cImplTypes; ++i) {
        HREFTYPE reference = 0;
        int flags = 0;
        CComPtr<ITypeInfo> implemented;
        CComBSTR implementedName;
        info->GetRefTypeOfImplType(i, &reference);
        info->GetImplTypeFlags(i, &flags);
        if (SUCCEEDED(info->GetRefTypeInfo(reference, &implemented))) {
            implemented->GetDocumentation(MEMBERID_NIL, &implementedName, nullptr, nullptr, nullptr);
        }
        lines.push_back(std::format("  implements {} flags {:#x}", narrow(implementedName), flags));
    }
    // The functions of IDispatch that a dispatch view shows besides its own are IDispatch's business.
    for (UINT i = 0; i < attributes->cFuncs; ++i) {
        const std::string line = functionText(info, i);
        if (!line.starts_with("  1610")) {
            lines.push_back(line);
        }
    }
    info->ReleaseTypeAttr(attributes);
}

std::string joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

class TypeLibTest : public testing::Test
{
protected:
    TypeLibTest()
    {
        CoInitialize(nullptr);
        EXPECT_EQ(LoadTypeLib(CComBSTR(executable().c_str()), &m_library), S_OK);
    }
    ~TypeLibTest() override
    {
        m_library.Release();
        CoUninitialize();
    }

    CComPtr<ITypeLib> m_library;
};

class TypeLibRegistrationTest : public RegistryTest
{
protected:
    TypeLibRegistrationTest() { CoInitialize(nullptr); }
    ~TypeLibRegistrationTest() override { CoUninitialize(); }
};

} // namespace

TEST_F(TypeLibTest, DescribesTheLibrary)
{
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(m_library->GetLibAttr(&attributes), S_OK);
    EXPECT_EQ(guidText(attributes->guid), "{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}");
    EXPECT_EQ(attributes->lcid, 0u);
    EXPECT_EQ(attributes->syskind, SYS_WIN64);
    EXPECT_EQ(attributes->wMajorVerNum, 1);
    EXPECT_EQ(attributes->wMinorVerNum, 0);
    EXPECT_EQ(attributes->wLibFlags & (LIBFLAG_FRESTRICTED | LIBFLAG_FCONTROL | LIBFLAG_FHIDDEN), 0);
    m_library->ReleaseTLibAttr(attributes);
    CComBSTR name;
    CComBSTR text;
    CComBSTR file;
    DWORD context = 7;
    ASSERT_EQ(m_library->GetDocumentation(-1, &name, &text, &context, &file), S_OK);
    EXPECT_EQ(documentation(name, text, context, file), "'KESTAserverLib' doc 'KESTA Server 1.0' context 0 file ''");
    EXPECT_EQ(m_library->GetTypeInfoCount(), 3u);
}

TEST_F(TypeLibTest, TheFilesHeaderIsMadeForEnglishAndTheLibraryForEverybody)
{
    const HRSRC resource = FindResourceA(nullptr, MAKEINTRESOURCEA(1), "TYPELIB");
    ASSERT_NE(resource, nullptr);
    const auto* const words = static_cast<const DWORD*>(LockResource(LoadResource(nullptr, resource)));
    EXPECT_EQ(words[0], 0x5446534Du); // "MSFT"
    EXPECT_EQ(words[3], 0x409u);
    EXPECT_EQ(words[4], 0u);
}

TEST_F(TypeLibTest, DescribesEveryTypeAndEveryMember)
{
    std::vector<std::string> lines;
    for (UINT i = 0; i < m_library->GetTypeInfoCount(); ++i) {
        CComPtr<ITypeInfo> info;
        ASSERT_EQ(m_library->GetTypeInfo(i, &info), S_OK);
        describeType(info, lines);
    }
    // The dual interface shows as what late binding sees; the other side is what early binding sees.
    CComPtr<ITypeInfo> late;
    CComPtr<ITypeInfo> early;
    HREFTYPE reference = 0;
    ASSERT_EQ(m_library->GetTypeInfo(2, &late), S_OK);
    ASSERT_EQ(late->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), S_OK);
    ASSERT_EQ(late->GetRefTypeInfo(reference, &early), S_OK);
    describeType(early, lines);
    EXPECT_EQ(joined(lines), R"(type kind 4 '_IJavaManagerEvents' doc '_IJavaManagerEvents Interface' context 0 file ''
  {E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58} lcid 0x0 version 0.0 flags 0x1000 size 8 vft 56 alignment 8 idl 0x0 constructor -1 destructor -1
  functions 3 variables 0 implemented 1
  implements IDispatch flags 0x0
  2 at 0: void testBridgeEvent([0x1] BSTR text) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  3 at 0: void controlReady([0x1] BSTR arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  4 at 0: void customEvent([0x1] BSTR arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
type kind 5 'JavaManager' doc 'KESTA Java Manager' context 0 file ''
  {4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14} lcid 0x0 version 0.0 flags 0x2 size 8 vft 0 alignment 4 idl 0x0 constructor -1 destructor -1
  functions 0 variables 0 implemented 2
  implements IJavaManager flags 0x1
  implements _IJavaManagerEvents flags 0x3
type kind 4 'IJavaManager' doc 'IJavaManager Interface' context 0 file ''
  {7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71} lcid 0x0 version 0.0 flags 0x10c0 size 8 vft 56 alignment 8 idl 0x0 constructor -1 destructor -1
  functions 24 variables 0 implemented 1
  implements IDispatch flags 0x0
  3 at 56: BSTR callMethod([0x1] BSTR arg0, [0x1] BSTR arg1) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  4 at 64: BSTR callMethodCompressed([0x1] BSTR arg0, [0x1] int arg1, [0x1] BSTR arg2) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  5 at 72: BSTR displayDebugConsole() kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  6 at 80: BSTR free() kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  7 at 88: BSTR getBasisControlVersionInfo() kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  8 at 96: BSTR getProperty([0x1] BSTR arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  9 at 104: BSTR getVersionInfo([0x1] BSTR arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  10 at 112: BSTR setLogLevel([0x1] int arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  11 at 120: BSTR setProperty([0x1] BSTR arg0, [0x1] BSTR arg1) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  12 at 128: BSTR setUsedControl([0x1] BSTR arg0, [0x1] BSTR arg1) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  13 at 136: BSTR updateVersion([0x1] BSTR arg0) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  14 at 144: int getBeanFrameID() kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  15 at 152: void validate() kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  16 at 160: void setBounds([0x1] int x, [0x1] int y, [0x1] int width, [0x1] int height) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  17 at 168: void testBridge([0x1] BSTR text, [0x1] int ttl, [0x1] int delay) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  18 at 176: void enable([0x1] VARIANT_BOOL enabled) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  19 at 184: void pushWindowHandle([0x1] int wndhandle) kind 4 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
type kind 3 'IJavaManager' doc 'IJavaManager Interface' context 0 file ''
  {7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71} lcid 0x0 version 0.0 flags 0x11c0 size 8 vft 192 alignment 8 idl 0x0 constructor -1 destructor -1
  functions 17 variables 0 implemented 1
  implements IDispatch flags 0x0
  3 at 56: HRESULT callMethod([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  4 at 64: HRESULT callMethodCompressed([0x1] BSTR arg0, [0x1] int arg1, [0x1] BSTR arg2, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  5 at 72: HRESULT displayDebugConsole([0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  6 at 80: HRESULT free([0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  7 at 88: HRESULT getBasisControlVersionInfo([0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  8 at 96: HRESULT getProperty([0x1] BSTR arg0, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  9 at 104: HRESULT getVersionInfo([0x1] BSTR arg0, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  10 at 112: HRESULT setLogLevel([0x1] int arg0, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  11 at 120: HRESULT setProperty([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  12 at 128: HRESULT setUsedControl([0x1] BSTR arg0, [0x1] BSTR arg1, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  13 at 136: HRESULT updateVersion([0x1] BSTR arg0, [0xa] pointer to BSTR result) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  14 at 144: HRESULT getBeanFrameID([0xa] pointer to int uid) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  15 at 152: HRESULT validate() kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  16 at 160: HRESULT setBounds([0x1] int x, [0x1] int y, [0x1] int width, [0x1] int height) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  17 at 168: HRESULT testBridge([0x1] BSTR text, [0x1] int ttl, [0x1] int delay) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  18 at 176: HRESULT enable([0x1] VARIANT_BOOL enabled) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
  19 at 184: HRESULT pushWindowHandle([0x1] int wndhandle) kind 1 invoke 1 convention 4 optional 0 scodes 0 flags 0x0 return flags 0x0
)");
}

TEST_F(TypeLibRegistrationTest, IsFoundUnderEveryLanguageOnceItIsRegistered)
{
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    const std::string folder = executable().substr(0, executable().find_last_of('\\'));
    const std::string library = "TypeLib\\{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}";
    const auto all = classes();
    std::vector<std::string> lines;
    std::copy_if(all.begin(), all.end(), std::back_inserter(lines), [](const std::string& line) {
        return line.starts_with("TypeLib") && line.find("FLAGS [") == std::string::npos; // which flags is up to the system
    });
    EXPECT_THAT(lines, ElementsAre("TypeLib", library, library + "\\1.0", library + "\\1.0 [] = s 'KESTA Server 1.0'",
                                   library + "\\1.0\\0", library + "\\1.0\\0\\win64",
                                   library + "\\1.0\\0\\win64 [] = s '" + executable() + "'", library + "\\1.0\\FLAGS",
                                   library + "\\1.0\\HELPDIR", library + "\\1.0\\HELPDIR [] = s '" + folder + "'"));
    for (const LCID language : {0x409u, 0x407u, 0x400u, 0u}) {
        CComPtr<ITypeLib> loaded;
        EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, language, &loaded), S_OK) << language;
    }
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    CComPtr<ITypeLib> loaded;
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &loaded), TYPE_E_LIBNOTREGISTERED);
    for (const std::string& line : classes()) {
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("6A3D9F02")));
        EXPECT_THAT(line, testing::Not(testing::HasSubstr("7D0B4E93")));
    }
}

TEST_F(TypeLibRegistrationTest, BothInterfacesAreMarshalledByTheLibrary)
{
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    const auto lines = classes();
    const std::string dual = "Interface\\{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}";
    EXPECT_THAT(lines, testing::Contains(dual + " [] = s 'IJavaManager'"));
    EXPECT_THAT(lines, testing::Contains(dual + "\\ProxyStubClsid32 [] = s '{00020424-0000-0000-C000-000000000046}'"));
    EXPECT_THAT(lines, testing::Contains(dual + "\\TypeLib [] = s '{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}'"));
    EXPECT_THAT(lines, testing::Contains(dual + "\\TypeLib [Version] = s '1.0'"));
    const std::string events = "Interface\\{E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58}";
    EXPECT_THAT(lines, testing::Contains(events + "\\ProxyStubClsid32 [] = s '{00020420-0000-0000-C000-000000000046}'"));
}

TEST_F(TypeLibRegistrationTest, ALibraryBesideTheExecutableIsTakenWhenItCarriesNone)
{
    // A folder and a program name of the test's own; the "program" carries no library.
    char temporary[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, temporary);
    const std::string folder = std::string(temporary) + "kesta 'atl' " + std::to_string(GetCurrentProcessId());
    const std::string program = folder + "\\the.program.exe";
    const std::string library = folder + "\\the.program.tlb";
    ASSERT_TRUE(CreateDirectoryA(folder.c_str(), nullptr));
    EXPECT_EQ(AtlRegisterTypeLib(program, CRegistrationScope::Machine), TYPE_E_CANTLOADLIBRARY);
    EXPECT_EQ(AtlUnRegisterTypeLib(program, CRegistrationScope::Machine), TYPE_E_CANTLOADLIBRARY);

    const HRSRC resource = FindResourceA(nullptr, MAKEINTRESOURCEA(1), "TYPELIB");
    FILE* const file = fopen(library.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    fwrite(LockResource(LoadResource(nullptr, resource)), 1, SizeofResource(nullptr, resource), file);
    fclose(file);
    EXPECT_EQ(AtlRegisterTypeLib(program, CRegistrationScope::Machine), S_OK);
    const std::string version = "TypeLib\\{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}\\1.0";
    EXPECT_THAT(classes(), testing::Contains(version + "\\0\\win64 [] = s '" + library + "'"));
    EXPECT_THAT(classes(), testing::Contains(version + "\\HELPDIR [] = s '" + folder + "'"));
    EXPECT_EQ(AtlUnRegisterTypeLib(program, CRegistrationScope::Machine), S_OK);
    DeleteFileA(library.c_str());
    RemoveDirectoryA(folder.c_str());
}

TEST_F(TypeLibRegistrationTest, PerUserTheFunctionsForUsersAreCalled)
{
    // Where they write is the system's business.
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::User), S_OK);
    CComPtr<ITypeLib> loaded;
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &loaded), S_OK);
    loaded.Release();
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::User), S_OK);
    EXPECT_EQ(LoadRegTypeLib(LIBID_KESTAserverLib, 1, 0, 0, &loaded), TYPE_E_LIBNOTREGISTERED);
}

namespace {

// What was called, with its arguments.
std::vector<std::string> s_libraryCalls;

std::string removal(const char* function, REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system)
{
    return std::format("{} {} {}.{} {:x} {}", function, guidText(id), major, minor, locale, static_cast<int>(system));
}

HRESULT STDAPICALLTYPE registerForUser(ITypeLib* library, OLECHAR* path, OLECHAR* folder)
{
    s_libraryCalls.push_back(
        std::format("RegisterTypeLibForUser {} {} {}", library != nullptr ? "library" : "nothing", narrow(path), narrow(folder)));
    return TYPE_E_REGISTRYACCESS;
}

HRESULT STDAPICALLTYPE unregisterForUser(REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system)
{
    s_libraryCalls.push_back(removal("UnRegisterTypeLibForUser", id, major, minor, locale, system));
    return TYPE_E_REGISTRYACCESS;
}

// Stand-ins for the functions for users; everything else is the system's.
FARPROC functionOfTheTest(HMODULE module, LPCSTR name)
{
    const auto found = [&](auto function) {
        EXPECT_EQ(GetModuleHandleA("OLEAUT32.DLL"), module);
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
    };
    const std::string wanted = name;
    return wanted == "RegisterTypeLibForUser"     ? found(&registerForUser)
           : wanted == "UnRegisterTypeLibForUser" ? found(&unregisterForUser)
                                                  : s_realGetProcAddress(module, name);
}

const char* const REMOVED = " {6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6} 1.0 0 3";

} // namespace

TEST_F(TypeLibRegistrationTest, PerUserTheFunctionsForUsersAreLookedUpByName)
{
    s_libraryCalls.clear();
    const ImportHook<decltype(&GetProcAddress)> hook("GetProcAddress", &functionOfTheTest);
    const std::string folder = executable().substr(0, executable().find_last_of('\\'));
    // Their results are the results.
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::User), TYPE_E_REGISTRYACCESS);
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::User), TYPE_E_REGISTRYACCESS);
    EXPECT_THAT(s_libraryCalls, ElementsAre("RegisterTypeLibForUser library " + executable() + " " + folder,
                                            std::string("UnRegisterTypeLibForUser") + REMOVED));
    EXPECT_THAT(classes(), IsEmpty());
    // For the machine nobody asks for them.
    s_libraryCalls.clear();
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
    EXPECT_THAT(s_libraryCalls, IsEmpty());
}

TEST_F(TypeLibRegistrationTest, ASystemWithoutTheFunctionsForUsersFailsThePerUserSwitchesOnly)
{
    const ImportHook<decltype(&GetProcAddress)> hook("GetProcAddress", [](HMODULE module, LPCSTR name) -> FARPROC {
        return std::string(name).ends_with("ForUser") ? nullptr : s_realGetProcAddress(module, name);
    });
    EXPECT_EQ(AtlHresultFromWin32(ERROR_PROC_NOT_FOUND), AtlRegisterTypeLib(executable(), CRegistrationScope::User));
    EXPECT_EQ(AtlHresultFromWin32(ERROR_PROC_NOT_FOUND), AtlUnRegisterTypeLib(executable(), CRegistrationScope::User));
    EXPECT_THAT(classes(), IsEmpty());
    EXPECT_EQ(AtlRegisterTypeLib(executable(), CRegistrationScope::Machine), S_OK);
}

TEST_F(TypeLibRegistrationTest, TheLibraryIsRemovedByItsIdVersionLanguageAndSystem)
{
    s_libraryCalls.clear();
    const ImportHook<decltype(&UnRegisterTypeLib)> hook(
        "UnRegisterTypeLib", [](REFGUID id, WORD major, WORD minor, LCID locale, SYSKIND system) -> HRESULT {
            s_libraryCalls.push_back(removal("UnRegisterTypeLib", id, major, minor, locale, system));
            return TYPE_E_REGISTRYACCESS;
        });
    EXPECT_EQ(AtlUnRegisterTypeLib(executable(), CRegistrationScope::Machine), TYPE_E_REGISTRYACCESS);
    EXPECT_THAT(s_libraryCalls, ElementsAre(std::string("UnRegisterTypeLib") + REMOVED));
}
