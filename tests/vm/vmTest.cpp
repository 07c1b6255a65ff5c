// The bridge on real Java virtual machines. A process can hold only one machine, so each test needs its own process.
#include "tests/javabridge/BridgeFixture.h"

#include "atl/atl.h"
#include "javabridge/SharedText.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>

namespace {

std::string windowsPath(const std::string& path)
{
    std::string result = path.starts_with('/') ? "Z:" + path : path;
    std::replace(result.begin(), result.end(), '/', '\\');
    return result;
}

// The folder of a pinned runtime, by its main version.
std::string runtimeFolder(int version)
{
    const char* const folder = std::getenv(("KESTA_JAVA_" + std::to_string(version)).c_str());
    if (folder == nullptr) {
        throw std::runtime_error("KESTA_JAVA_" + std::to_string(version) + " is not set: run inside the tool environment");
    }
    return windowsPath(folder);
}

std::string besideExecutable(const std::string& name)
{
    char path[MAX_PATH + 1] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    return (std::filesystem::path(path).parent_path() / name).string();
}

class VmTest : public testing::Test
{
protected:
    VmTest()
    {
        static int s_tests = 0;
        EXPECT_EQ(++s_tests, 1) << "run the tests one by one: a process holds one machine";
    }
    ~VmTest() override
    {
        if (client() != nullptr) {
            client()->stopBean(bean, frame, listener);
            CJavaManagerJNIClient::cleanUp();
        }
    }

    // Starts the machine that the private registry names.
    void startMachine(const std::string& jar, int version = 21, const Strings& options = {})
    {
        fixtures::RegistryScratch machine(HKEY_LOCAL_MACHINE);
        machine.createKey(RUNTIMES);
        machine.setString(RUNTIMES_NEW, "CurrentVersion", std::to_string(version));
        machine.setString(RUNTIMES_NEW + "\\" + std::to_string(version), "RuntimeLib",
                          runtimeFolder(version) + "\\bin\\server\\jvm.dll");
        machine.createKey(PREFERENCES, KEY_WOW64_32KEY);
        for (size_t index = 0; index < options.size(); ++index) {
            machine.setString(PREFERENCES, "jvm_option_" + std::to_string(index), options[index], KEY_WOW64_32KEY);
        }
        const std::string basisControl = besideExecutable(jar);
        CJavaManagerJNIClient::createInstance(basisControl.c_str());
        ASSERT_TRUE(
            log.stream().contains("TRACE CJavaManagerJNIClient  m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): successfull"));
    }
    HRESULT startBean(const std::string& package = "kestatest", const std::string& name = "Control")
    {
        return client()->startBean(&bean, &frame, &frameID, package.c_str(), name.c_str());
    }
    // Machine, bean, frame and listener.
    void startControl(int version = 21, const Strings& options = {})
    {
        startMachine("whole.jar", version, options);
        ASSERT_EQ(startBean(), S_OK);
        ASSERT_EQ(client()->regEventListener(&listener, frame, bean), S_OK);
    }
    std::wstring callMethod(const wchar_t* name, const wchar_t* argument)
    {
        CComBSTR result;
        EXPECT_EQ(client()->callMethod(bean, CComBSTR(name), CComBSTR(argument), &result), S_OK);
        return result.m_str == nullptr ? L"(null)" : std::wstring(result.m_str, result.Length());
    }

    static CJavaManagerJNIClient* client() { return CJavaManagerJNIClient::s_Instance; }

    jobject bean = nullptr;
    jobject frame = nullptr;
    jobject listener = nullptr;
    int frameID = 0;
    CComBSTR result;
    ClientLog log;
};

class RuntimeTest : public VmTest, public testing::WithParamInterface<int>
{
};

TEST_P(RuntimeTest, StartsAnswersAndStops)
{
    // Runtime 17 looks its zip library up late, by its bare name: the runtime's folder has to be on the search path.
    SetDllDirectoryA((runtimeFolder(GetParam()) + "\\bin").c_str());
    startControl(GetParam());
    EXPECT_EQ(callMethod(L"setText", L"Hello"), L"setText|Hello");
    EXPECT_EQ(client()->stopBean(bean, frame, listener), S_OK);
    bean = frame = listener = nullptr;
    log.take();
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_LINES(log.take("TRACE"), Strings{"m_JVM->DetachCurrentThread(): successfull", "FreeLibrary(m_DLLHandle): success",
                                            "static: CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton."});
}

INSTANTIATE_TEST_SUITE_P(Java, RuntimeTest, testing::Values(11, 17, 21, 25));

class CheckedTest : public VmTest, public testing::WithParamInterface<const char*>
{
};

// The whole life of a control, as the frame and the control see it.
TEST_P(CheckedTest, ControlLivesInItsFrame)
{
    startControl(21, {GetParam()});
    log.takeErrors();
    const std::string thisFrame = "frame kesta_frame_" + std::to_string(GetCurrentProcessId());
    EXPECT_EQ(callMethod(L"calls", L""), CComBSTR(("control," + thisFrame +
                                                   ",setFocusableWindowState false,setUndecorated true,"
                                                   "addORVANEControlListener com.velmora.tq.kesta.KESTAListener")
                                                      .c_str())
                                             .m_str);
    EXPECT_EQ(client()->setFrameVisible(frame, true), S_OK);
    EXPECT_NE(FindWindowA(nullptr, ("kesta_frame_" + std::to_string(frameID)).c_str()), nullptr);
    EXPECT_EQ(client()->addBean(frame, bean), S_OK);
    EXPECT_EQ(client()->setFrameBounds(frame, 1, 2, 3, 4), S_OK);
    EXPECT_EQ(client()->setFrameEnabled(frame, false), S_OK);
    EXPECT_EQ(client()->setFrameEnabled(frame, true), S_OK);
    callMethod(L"calls", L"");
    EXPECT_EQ(client()->validateFrameAndBean(frame, bean), S_OK);
    EXPECT_EQ(client()->setUsedControl(frame, bean, CComBSTR(L"first"), CComBSTR(L"second"), &result), S_OK);
    EXPECT_STREQ(result, L"first|second");
    EXPECT_EQ(callMethod(L"calls", L""), L"validate control,setFocusableWindowState true,setUsedControl");
    EXPECT_EQ(client()->stopBean(bean, frame, listener), S_OK);

    bean = frame = listener = nullptr;
    const int before = frameID;
    EXPECT_EQ(startBean(), S_OK) << "a second control can be started";
    EXPECT_EQ(frameID, before + 1);
    const std::wstring calls = callMethod(L"calls", L"");
    EXPECT_TRUE(calls.starts_with(L"free,removeORVANEControlListener the same,removeAll,remove kestatest.Control,dispose,"
                                  "control,frame kesta_frame_"))
        << narrowText(calls.c_str(), calls.size());
    EXPECT_LINES(log.takeErrors(), Strings{});
}

INSTANTIATE_TEST_SUITE_P(Jni, CheckedTest, testing::Values("-Dkestatest.checked=no", "-Xcheck:jni"),
                         [](const auto& info) { return info.index == 0 ? "Unchecked" : "Checked"; });

class CheckedFaultTest : public RuntimeTest
{
};

// Java 25 writes the native stack below each warning, for which it needs minutes under Wine.
INSTANTIATE_TEST_SUITE_P(Java, CheckedFaultTest, testing::Values(11, 17, 21));

// What a machine that checks JNI calls says of failing ones. It writes to its log file only.
TEST_P(CheckedFaultTest, OnlyTheCaptureOfAnExceptionBreaksARuleOfJni)
{
    const fixtures::TemporaryFolder folder(fixtures::TemporaryFolder::Removal::MayFail); // the machine keeps its log open
    const std::string file = folder.path("vm.log");
    SetDllDirectoryA((runtimeFolder(GetParam()) + "\\bin").c_str());
    startControl(GetParam(), {"-XX:+CheckJNICalls", "-Dkestatest.failing=everyCall", "-XX:+UnlockDiagnosticVMOptions",
                              "-XX:+LogVMOutput", "-XX:-DisplayVMOutput", "-XX:LogFile=" + file});
    CJavaManagerJNIClient* const java = client();
    const CComBSTR text(L"text");
    const std::pair<const char*, std::function<HRESULT()>> calls[] = {
        {"callMethod", [&] { return java->callMethod(bean, text, text, &result); }},
        {"callMethodCompressed", [&] { return java->callMethodCompressed(bean, text, 1, text, &result); }},
        {"displayDebugConsole", [&] { return java->displayDebugConsole(bean, &result); }},
        {"free", [&] { return java->free(bean, &result); }},
        {"getBasisControlVersionInfo", [&] { return java->getBasisControlVersionInfo(bean, &result); }},
        {"getProperty", [&] { return java->getProperty(bean, text, &result); }},
        {"getVersionInfo", [&] { return java->getVersionInfo(bean, text, &result); }},
        {"setLogLevel", [&] { return java->setLogLevel(bean, 1, &result); }},
        {"setProperty", [&] { return java->setProperty(bean, text, text, &result); }},
        {"setUsedControl", [&] { return java->setUsedControl(frame, bean, text, text, &result); }},
        {"updateVersion", [&] { return java->updateVersion(bean, text, &result); }},
        {"setFrameVisible", [&] { return java->setFrameVisible(frame, true); }},
        {"setFrameEnabled", [&] { return java->setFrameEnabled(frame, true); }},
        {"setFrameBounds", [&] { return java->setFrameBounds(frame, 1, 2, 3, 4); }},
        {"validateFrameAndBean", [&] { return java->validateFrameAndBean(frame, bean); }},
        {"addBean", [&] { return java->addBean(frame, bean); }},
        {"testBridge", [&] { return java->testBridge(listener, L"text", -1, 0); }},
    };
    for (const auto& [name, call] : calls) {
        EXPECT_EQ(call(), E_FAIL) << name;
    }
    EXPECT_EQ(java->stopBean(bean, frame, listener), S_OK);
    bean = frame = listener = nullptr;
    // Those with a Java method below them are Java's own.
    std::set<std::string> warnings;
    std::string previous;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line); previous = line) {
        if ((previous.starts_with("WARNING") || previous.starts_with("FATAL")) && !line.starts_with("\tat java.")) {
            warnings.insert(previous.substr(0, previous.find_last_not_of('\r') + 1));
        }
    }
    // Both come from the capture: deliberately, the exception stays pending while its name and message are asked for.
    std::vector<std::string> known = {"WARNING in native method: JNI call made with exception pending",
                                      "WARNING in native method: JNI call made without checking exceptions when required to from "
                                      "CallObjectMethodV"};
    if (GetParam() < 21) {
        // The capture deliberately deletes neither of its class references.
        known.emplace_back("WARNING: JNI local refs: 33, exceeds capacity: 32");
    }
    EXPECT_THAT(warnings, testing::ElementsAreArray(known));
}

TEST_F(VmTest, EveryForwardedMethodAnswers)
{
    startControl();
    CJavaManagerJNIClient* const java = client();
    const CComBSTR first(L"first");
    const CComBSTR second(L"second");
    EXPECT_EQ(java->callMethodCompressed(bean, first, -5, second, &result), S_OK);
    EXPECT_STREQ(result, L"first|-5|second");
    EXPECT_EQ(java->displayDebugConsole(bean, &result), S_OK);
    EXPECT_STREQ(result, L"console");
    EXPECT_EQ(java->free(bean, &result), S_OK);
    EXPECT_STREQ(result, L"freed");
    EXPECT_EQ(java->getBasisControlVersionInfo(bean, &result), S_OK);
    EXPECT_STREQ(result, L"basis version");
    EXPECT_EQ(java->getVersionInfo(bean, first, &result), S_OK);
    EXPECT_STREQ(result, L"version of first");
    EXPECT_EQ(java->setLogLevel(bean, 3, &result), S_OK);
    EXPECT_STREQ(result, L"level 3");
    EXPECT_EQ(java->setProperty(bean, first, second, &result), S_OK);
    EXPECT_STREQ(result, L"first=second");
    EXPECT_EQ(java->updateVersion(bean, first, &result), S_OK);
    EXPECT_STREQ(result, L"updated first");
}

TEST_F(VmTest, NullAnswersAndNullArgumentsAreEmptyTexts)
{
    startControl();
    EXPECT_EQ(client()->getProperty(bean, CComBSTR(L"x"), &result), S_OK);
    ASSERT_NE(result.m_str, nullptr);
    EXPECT_EQ(result.Length(), 0u);
    EXPECT_EQ(callMethod(L"null", L"x"), L"");
    EXPECT_EQ(callMethod(nullptr, nullptr), L"|");
    EXPECT_EQ(client()->updateVersion(bean, nullptr, &result), S_OK);
    EXPECT_STREQ(result, L"updated ");
    EXPECT_EQ(client()->updateVersion(bean, nullptr, nullptr), S_OK);
    EXPECT_LINES(log.takeErrors(), Strings{"JNIHelper: result!=NULL: false"});
}

TEST_F(VmTest, TextOutsideAsciiIsKeptAsItsBytes)
{
    startControl();
    ASSERT_EQ(GetACP(), 1252u) << "the texts of this test are in Windows-1252";
    // On the way to Java the text becomes ANSI bytes, which Java takes for its modified UTF-8. A byte that begins no character
    // becomes one itself; bytes that happen to form a character become that one.
    EXPECT_EQ(callMethod(L"codes", L"a\u00E4!"), L"0061 00E4 0021"); // 61 E4 21
    EXPECT_EQ(callMethod(L"codes", L"\u00C3\u00A4"), L"00E4");       // C3 A4
    EXPECT_EQ(callMethod(L"codes", L"\u00E2\u201A\u00AC"), L"20AC"); // E2 82 AC
    EXPECT_EQ(callMethod(L"codes", L"\u4E2D"), L"003F");             // not in the code page: a question mark
    // This machine takes the number of bytes that can begin a character for the length: a lone byte that cannot, such as the 80
    // of the euro sign, costs the text its last character.
    EXPECT_EQ(callMethod(L"codes", L"a\u20ACb"), L"0061 0080"); // 61 80 62
    EXPECT_EQ(callMethod(L"codes", L"\u20AC"), L"");            // 80
    // On the way back the bytes of the modified UTF-8 are taken for ANSI text.
    EXPECT_EQ(callMethod(L"text", L"E4"), L"\u00C3\u00A4");                            // C3 A4
    EXPECT_EQ(callMethod(L"text", L"20AC"), L"\u00E2\u201A\u00AC");                    // E2 82 AC
    EXPECT_EQ(callMethod(L"text", L"4E2D"), L"\u00E4\u00B8\u00AD");                    // E4 B8 AD
    EXPECT_EQ(callMethod(L"text", L"0"), L"\u00C0\u20AC");                             // C0 80, Java's way to write a zero
    EXPECT_EQ(callMethod(L"text", L"1F600"), L"\u00ED\u00A0\u00BD\u00ED\u00B8\u20AC"); // ED A0 BD ED B8 80, a surrogate pair
    // Both ways.
    EXPECT_EQ(callMethod(L"\u00E4", L"\u00FC"), L"\u00C3\u00A4|\u00C3\u00BC");
    log.takeErrors();
    EXPECT_EQ(client()->callMethod(bean, CComBSTR(L"throwWithMessage"), CComBSTR(L"\u00E4"), &result), E_FAIL);
    EXPECT_EQ(log.takeErrors().front(), "Exception: java.lang.IllegalStateException: \xC3\xA4\\n") << "the log keeps the bytes";
    EXPECT_EQ(client()->testBridge(listener, L"\u00E4", 1, 2), S_OK);
    EXPECT_LINES(takeReceivedEvents(),
                 Strings{"testBridgeEvent \xC3\xA4 1, 2 on thread " + std::to_string(GetCurrentThreadId())});
}

TEST_F(VmTest, ExceptionsEndInTheLog)
{
    startControl();
    log.takeErrors();
    const CComBSTR message(L"said why");
    EXPECT_EQ(client()->callMethod(bean, CComBSTR(L"throwWithMessage"), message, &result), E_FAIL);
    EXPECT_LINES(log.takeErrors(),
                 Strings{"Exception: java.lang.IllegalStateException: said why\\n", "checkNoJNIException(): false"});
    EXPECT_EQ(client()->callMethod(bean, CComBSTR(L"throwWithoutMessage"), message, &result), E_FAIL);
    EXPECT_LINES(log.takeErrors(), Strings{"Exception: java.lang.IllegalStateException: \\n", "checkNoJNIException(): false"});
    EXPECT_EQ(client()->callMethod(bean, CComBSTR(L"throwItsOwn"), message, &result), E_FAIL);
    EXPECT_LINES(log.takeErrors(), Strings{"Exception: kestatest.Control$Failure: \\n", "checkNoJNIException(): false"});
    EXPECT_EQ(result.m_str, nullptr);
    EXPECT_EQ(callMethod(L"still", L"there"), L"still|there");
    EXPECT_LINES(log.takeErrors(), Strings{});
}

// A control that cannot be started or lacks a method.
struct SFailedStart
{
    std::string name;
    std::string jar;
    std::string failing; // what throws, as Failing.java names it
    std::string bean;
    std::string errors; // of startBean, regEventListener and stopBean
};

void PrintTo(const SFailedStart& start, std::ostream* stream)
{
    *stream << start.name;
}

const std::string CONTROL = "com.orvane.tech.client.qmrt.win.QMRTWinControl";

const SFailedStart FAILED_STARTS[] = {
    {"Jar", "not there.jar", "", CONTROL, R"(
        startBean failed
        Exception: java.lang.NoClassDefFoundError: com/orvane/tech/client/qmrt/win/QMRTWinControl\n
        m_BeanClass!=NULL: false
        regEventListener failed
        Exception: java.lang.NoClassDefFoundError: com/velmora/tq/kesta/KESTAListener\n
        localReference!=NULL: false
    )"},
    {"Control", "without-QMRTWinControl.jar", "", CONTROL, R"(
        startBean failed
        Exception: java.lang.NoClassDefFoundError: com/orvane/tech/client/qmrt/win/QMRTWinControl\n
        m_BeanClass!=NULL: false
        regEventListener failed
        addORVListenerID!=NULL: false
    )"},
    {"Dependency", "without-Control.jar", "", CONTROL, R"(
        startBean failed
        Exception: java.lang.NoClassDefFoundError: kestatest/Control\n
        m_BeanClass!=NULL: false
        regEventListener failed
        addORVListenerID!=NULL: false
    )"},
    {"Initialiser", "whole.jar", "initialiser", CONTROL, R"(
        startBean failed
        Exception: java.lang.ExceptionInInitializerError: \n
        m_BeanClass!=NULL: false
        regEventListener failed
        addORVListenerID!=NULL: false
    )"},
    {"DefaultConstructor", "whole.jar", "", "kestatest.WithoutConstructor", R"(
        startBean failed
        Exception: java.lang.NoSuchMethodError: Lkestatest/WithoutConstructor;.<init>()V\n
        constructID!=NULL: false
        regEventListener failed
        addORVListenerID!=NULL: false
    )"},
    {"ControlsConstructor", "whole.jar", "control", CONTROL, R"(
        startBean failed
        Exception: java.lang.IllegalStateException: control fails as asked\n
        checkNoJNIException(): false
        regEventListener failed
        addORVListenerID!=NULL: false
    )"},
    {"Frame", "without-KESTAFrame.jar", "", CONTROL, R"(
        startBean failed
        Exception: java.lang.NoClassDefFoundError: com/velmora/tq/kesta/KESTAFrame\n
        localReference!=NULL: false
    )"},
    {"FramesConstructor", "whole.jar", "frame", CONTROL, R"(
        startBean failed
        Exception: java.lang.IllegalStateException: frame fails as asked\n
        localReference!=NULL: false
    )"},
    {"Listener", "without-KESTAListener.jar", "", CONTROL, R"(
        regEventListener failed
        Exception: java.lang.NoClassDefFoundError: com/velmora/tq/kesta/KESTAListener\n
        localReference!=NULL: false
    )"},
    {"ListenersConstructor", "whole.jar", "listener", CONTROL, R"(
        regEventListener failed
        Exception: java.lang.IllegalStateException: listener fails as asked\n
        localReference!=NULL: false
    )"},
    {"Methods", "whole.jar", "", "kestatest.WithoutMethods", R"(
        regEventListener failed
        Exception: java.lang.NoSuchMethodError: addORVANEControlListener\n
        addORVListenerID!=NULL: false
        Exception: java.lang.NoSuchMethodError: Lkestatest/WithoutMethods;.free()Ljava/lang/String;\n
        freeID != NULL: false
        Exception: java.lang.NoSuchMethodError: removeORVANEControlListener\n
        removeID!=NULL: false
    )"},
};

class FailedStartTest : public VmTest, public testing::WithParamInterface<SFailedStart>
{
};

TEST_P(FailedStartTest, SaysWhatFailed)
{
    const SFailedStart& start = GetParam();
    const size_t dot = start.bean.rfind('.');
    startMachine(start.jar, 21, {"-Dkestatest.failing=" + start.failing});
    log.take();
    Strings errors;
    if (startBean(start.bean.substr(0, dot), start.bean.substr(dot + 1)) == E_FAIL) {
        errors.push_back("startBean failed");
    }
    errors = errors + log.takeErrors();
    if (client()->regEventListener(&listener, frame, bean) == E_FAIL) {
        errors.push_back("regEventListener failed");
    }
    errors = errors + log.takeErrors();
    EXPECT_EQ(client()->setFrameEnabled(frame, true), frame == nullptr ? E_FAIL : S_OK);
    EXPECT_LINES(log.takeErrors(), frame == nullptr ? Strings{"methodID!=NULL: false"} : Strings{}) << "nothing is left pending";
    if (bean != nullptr && start.bean == CONTROL) {
        EXPECT_EQ(callMethod(L"still", L"there"), L"still|there");
    }
    EXPECT_EQ(client()->stopBean(bean, frame, listener), S_OK);
    EXPECT_LINES(errors + log.takeErrors(), start.errors);
    bean = frame = listener = nullptr;
}

INSTANTIATE_TEST_SUITE_P(Without, FailedStartTest, testing::ValuesIn(FAILED_STARTS),
                         [](const auto& info) { return info.param.name; });

TEST_F(VmTest, EventsOfAForwardedCallArriveOnItsThread)
{
    startControl();
    takeReceivedEvents();
    EXPECT_EQ(callMethod(L"raise", L"an event"), L"raised");
    const std::string thread = " on thread " + std::to_string(GetCurrentThreadId());
    EXPECT_LINES(takeReceivedEvents(), Strings{"OnControlReady ready for an event" + thread, "OnCustomEvent an event" + thread});
    EXPECT_EQ(client()->testBridge(listener, L"loop", 3, 500), S_OK);
    EXPECT_LINES(takeReceivedEvents(), Strings{"testBridgeEvent loop 3, 500" + thread});
    log.takeErrors();
    EXPECT_EQ(client()->testBridge(listener, L"loop", -1, 500), E_FAIL);
    EXPECT_LINES(log.takeErrors(),
                 Strings{"Exception: java.lang.IllegalArgumentException: ttl -1\\n", "checkNoJNIException(): false"});
}

} // namespace
