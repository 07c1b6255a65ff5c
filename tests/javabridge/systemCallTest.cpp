// What the room asks of Windows: registry keys with their access, buffers with their sizes, code pages, allocations. And what
// happens when Windows refuses.
#include "atl/atl.h"
#include "javabridge/JNIHelper.h"
#include "tests/support/ImportHook.h"
#include "tests/javabridge/StandIn.h"

#include <format>
#include <functional>

namespace {

using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
using CurrentFolderHook = ImportHook<decltype(&GetCurrentDirectoryA)>;
using ModuleNameHook = ImportHook<decltype(&GetModuleFileNameA)>;
using NarrowHook = ImportHook<decltype(&WideCharToMultiByte)>;
using WideHook = ImportHook<decltype(&MultiByteToWideChar)>;
using AllocateHook = ImportHook<decltype(&SysAllocStringLen)>;
using FreeHook = ImportHook<decltype(&SysFreeString)>;

const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\Java Runtime Environment";
const std::string RUNTIMES_NEW = "SOFTWARE\\JavaSoft\\JRE";
const std::string PREFERENCES = "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt";

Strings s_calls;

// Registry keys are opened for reading only, in one of the two views: "PATH ACCESS" each, below HKEY_LOCAL_MACHINE.
const std::string READ = " 20019";
const std::string READ_32 = " 20219";

LSTATUS WINAPI noteOpening(HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key)
{
    s_calls.push_back((root == HKEY_LOCAL_MACHINE && options == 0 ? "" : "not below HKEY_LOCAL_MACHINE: ") + std::string(path) +
                      std::format(" {:x}", access));
    return OpenHook::s_original(root, path, options, access, key);
}

class OpenedKeysTest : public MachineTest
{
protected:
    OpenedKeysTest() { s_calls.clear(); }
};

TEST_F(OpenedKeysTest, RuntimesInTheProcessesOwnViewThenThePreferencesInThe32BitView)
{
    fixtures::RegistryScratch& machine = world.machine();
    machine.setString(RUNTIMES + "\\1.8.0_20", "RuntimeLib", "C:\\a\\jvm.dll");
    machine.setString(RUNTIMES_NEW + "\\11.0.2", "RuntimeLib", "C:\\b\\jvm.dll");
    machine.setString(RUNTIMES_NEW + "\\9", "RuntimeLib", "C:\\c\\jvm.dll");
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    client.findJVM();
    EXPECT_STRINGS(s_calls,
                   Strings{"SOFTWARE\\JavaSoft\\Java Runtime Environment\\" + READ,
                           "SOFTWARE\\JavaSoft\\Java Runtime Environment\\1.8.0_20" + READ, "SOFTWARE\\JavaSoft\\JRE\\" + READ,
                           "SOFTWARE\\JavaSoft\\JRE\\11.0.2" + READ, "SOFTWARE\\JavaSoft\\JRE\\9" + READ,
                           "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt" + READ_32});
}

TEST_F(OpenedKeysTest, ControlsInThe32BitView)
{
    world.machine().setString(PREFERENCES + "\\A", "installpath", "C:\\x", KEY_WOW64_32KEY);
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    client.findORVControls();
    EXPECT_STRINGS(s_calls, Strings{"SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt" + READ_32,
                                    "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt\\A" + READ_32});
}

TEST_F(OpenedKeysTest, OptionsInThe32BitViewOneByOne)
{
    world.setPreference("jvm_option_b", "-Db");
    world.setPreference("jvm_option_a", "-Da");
    const OpenHook hook("RegOpenKeyExA", noteOpening);
    EXPECT_EQ(create(), 0);
    // Controls, names of the values, the two options, the background option.
    EXPECT_STRINGS(s_calls, Strings(5, "SOFTWARE\\JavaSoft\\Prefs\\com\\orvane\\qmrt" + READ_32));
}

DWORD WINAPI noteCurrentFolder(DWORD size, LPSTR buffer)
{
    s_calls.push_back("current folder " + std::to_string(size));
    return CurrentFolderHook::s_original(size, buffer);
}

DWORD WINAPI noteModuleName(HMODULE module, LPSTR buffer, DWORD size)
{
    s_calls.push_back(std::string(module == nullptr ? "executable " : "module ") + std::to_string(size));
    return ModuleNameHook::s_original(module, buffer, size);
}

TEST_F(MachineTest, PathsMayBeAsLongAsWindowsLetsThem)
{
    Strings paths;
    {
        const CurrentFolderHook folder("GetCurrentDirectoryA", noteCurrentFolder);
        const ModuleNameHook name("GetModuleFileNameA", noteModuleName);
        s_calls.clear();
        EXPECT_EQ(client.createJVM({"1.8.0_151", runtime.library()}), 0);
        paths = s_calls;
    }
    EXPECT_STRINGS(paths, Strings{"current folder 261", "executable 261"});
}

// "PAGE FLAGS" of every conversion; refuses them while told to.
bool s_refuses = false;

int WINAPI noteNarrowing(UINT page, DWORD flags, LPCWCH from, int length, LPSTR to, int size, LPCCH fallback, LPBOOL used)
{
    s_calls.push_back(std::format("{} {}{}", page, flags, fallback == nullptr && used == nullptr ? "" : " with a default"));
    if (s_refuses) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        return 0;
    }
    return NarrowHook::s_original(page, flags, from, length, to, size, fallback, used);
}

int WINAPI noteWidening(UINT page, DWORD flags, LPCCH from, int length, LPWSTR to, int size)
{
    s_calls.push_back(std::format("{} {}", page, flags));
    if (s_refuses) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        return 0;
    }
    return WideHook::s_original(page, flags, from, length, to, size);
}

BSTR WINAPI refuseAllocation(const OLECHAR*, UINT)
{
    return nullptr;
}

RecordingJni* s_java = nullptr;

void WINAPI noteFree(BSTR text)
{
    if (text != nullptr) {
        s_java->note("SysFreeString(" + narrowText(text) + ")");
    }
    FreeHook::s_original(text);
}

class ConversionTest : public BridgeTest
{
protected:
    ConversionTest()
    {
        s_calls.clear();
        s_refuses = false;
        s_java = &java;
        Logger::setMaxLogLevel(LOGLEVEL_WARN); // the log converts texts of its own
    }
    ~ConversionTest() override
    {
        s_refuses = false;
        s_java = nullptr;
    }
    static HRESULT errorOf(const std::function<void()>& convert)
    {
        try {
            convert();
        } catch (const CAtlException& exception) {
            return exception.m_hr;
        }
        return S_OK;
    }
};

// Each conversion asks for the size first.
TEST_F(ConversionTest, EveryTextGoesThroughTheAnsiCodePageWithoutFlags)
{
    static_assert(CP_ACP == 0);
    const CComBSTR text(L"text");
    BSTR result = nullptr;
    SharedText shared;
    {
        const NarrowHook narrow("WideCharToMultiByte", noteNarrowing);
        const WideHook wide("MultiByteToWideChar", noteWidening);
        JNIHelper::bstrToJavaString(java.env(), text);
        EXPECT_STRINGS(s_calls, Strings(2, "0 0"));
        s_calls.clear();
        JNIHelper::javaStringToBstr(&result, java.env(), java.localString("text"));
        EXPECT_STRINGS(s_calls, Strings(2, "0 0"));
        s_calls.clear();
        JNIHelper::javaStringToText(&shared, java.env(), java.localString("text"));
        EXPECT_STRINGS(s_calls, Strings(2, "0 0"));
        s_calls.clear();
        shared.narrow();
        EXPECT_STRINGS(s_calls, Strings(2, "0 0"));
    }
    EXPECT_STREQ(result, L"text");
    SysFreeString(result);
}

TEST_F(ConversionTest, RefusedConversionIsTheErrorThatWindowsGave)
{
    const CComBSTR text(L"text");
    const SharedText shared(text.m_str);
    SharedText other("before");
    BSTR result = reinterpret_cast<BSTR>(-1);
    const NarrowHook narrow("WideCharToMultiByte", noteNarrowing);
    const WideHook wide("MultiByteToWideChar", noteWidening);
    s_refuses = true;
    const HRESULT expected = HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(errorOf([&] { JNIHelper::bstrToJavaString(java.env(), text); }), expected);
    EXPECT_STRINGS(java.takeCalls(), Strings{}) << "nothing reaches Java";
    EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToBstr(&result, java.env(), java.localString("text")); }), expected);
    EXPECT_EQ(result, reinterpret_cast<BSTR>(-1));
    EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToText(&other, java.env(), java.localString("text")); }), expected);
    EXPECT_EQ(java.heldCharacters(), 0);
    EXPECT_EQ(errorOf([&] { shared.narrow(); }), expected);
    EXPECT_EQ(errorOf([&] { other.append("text"); }), expected);
    s_refuses = false;
    EXPECT_STREQ(other.narrow(), "before");
}

TEST_F(ConversionTest, RefusedConversionEndsAForwardedCallBeforeItReachesJava)
{
    haveControl();
    const CComBSTR text(L"text");
    BSTR result = reinterpret_cast<BSTR>(-1);
    const NarrowHook narrow("WideCharToMultiByte", noteNarrowing);
    s_refuses = true;
    EXPECT_EQ(errorOf([&] { client.getProperty(bean, text, &result); }), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_STRINGS(java.takeCalls(), Strings{"GetMethodID(class a/b/Bean, getProperty, (Ljava/lang/String;)Ljava/lang/String;)"});
    EXPECT_EQ(result, reinterpret_cast<BSTR>(-1));
}

TEST_F(ConversionTest, BstrThatCannotBeAllocatedIsAnAllocationFailure)
{
    BSTR result = reinterpret_cast<BSTR>(-1);
    SharedText shared("before");
    {
        const AllocateHook hook("SysAllocStringLen", refuseAllocation);
        EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToBstr(&result, java.env(), java.localString("x")); }), E_OUTOFMEMORY);
        EXPECT_EQ(errorOf([&] { JNIHelper::javaStringToText(&shared, java.env(), java.localString("x")); }), E_OUTOFMEMORY);
    }
    EXPECT_EQ(result, reinterpret_cast<BSTR>(-1));
    EXPECT_STREQ(shared.narrow(), "before");
    EXPECT_EQ(java.heldCharacters(), 0);
}

// Without the rest of the record.
Strings freedTexts(const Strings& calls)
{
    Strings freed;
    for (const std::string& call : calls) {
        if (call.starts_with("SysFreeString")) {
            freed.push_back(call);
        }
    }
    return freed;
}

TEST_F(ConversionTest, ResultOfTheBeansCleanUpIsFreedAtOnce)
{
    haveControl();
    {
        const FreeHook hook("SysFreeString", noteFree);
        EXPECT_EQ(client.stopBean(bean, nullptr, nullptr), S_OK);
    }
    const Strings calls = java.takeCalls();
    EXPECT_STRINGS(freedTexts(calls), Strings{"SysFreeString(answer of free)"});
    ASSERT_GT(calls.size(), 6u);
    EXPECT_EQ(calls[5], "DeleteLocalRef(\"answer of free\")");
    EXPECT_EQ(calls[6], "SysFreeString(answer of free)");
}

TEST_F(ConversionTest, FormerContentOfAResultIsLeftAlone)
{
    haveControl();
    const CComBSTR before(L"before");
    BSTR results[] = {before.m_str, before.m_str, before.m_str};
    {
        const FreeHook hook("SysFreeString", noteFree);
        EXPECT_EQ(client.free(bean, &results[0]), S_OK);
        java.outcomes["free"] = RecordingJni::answersNull();
        EXPECT_EQ(client.free(bean, &results[1]), S_OK);
        java.outcomes["free"] = RecordingJni::throws("java.lang.Error", "x");
        EXPECT_EQ(client.free(bean, &results[2]), E_FAIL);
    }
    EXPECT_STRINGS(freedTexts(java.takeCalls()), Strings{});
    EXPECT_STREQ(results[0], L"answer of free");
    EXPECT_STREQ(results[1], L"");
    EXPECT_EQ(results[2], before.m_str);
    SysFreeString(results[0]);
    SysFreeString(results[1]);
}

} // namespace
