// Starts that fail: the client gets an object that explains itself, or no object, and no server is left.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <functional>

namespace fixtures {
namespace {

using testing::Contains;

// A broken library with the header that the server looks at: the PE header at 0x40 with the given machine.
std::string libraryFor(unsigned short machine)
{
    std::string file(0x1000, '\0');
    file.replace(0, 2, "MZ");
    file[0x3c] = 0x40;
    file.replace(0x40, 2, "PE");
    file[0x44] = static_cast<char>(machine & 0xff);
    file[0x45] = static_cast<char>(machine >> 8);
    return file;
}

struct SBadRuntime
{
    const char* name;
    // The runtime's library; by default a file in the test's folder with the content.
    std::string library;
    std::string content;
    DWORD error; // 0: it can be loaded
    std::vector<std::string> lines;
};

void PrintTo(const SBadRuntime& runtime, std::ostream* stream)
{
    *stream << runtime.name;
}

const SBadRuntime BAD_RUNTIMES[] = {
    {"MissingFile", "gone\\jvm.dll", "", ERROR_MOD_NOT_FOUND, {"CJavaManagerJNIClient  (bool)binaryFile != NULL: false"}},
    {"TextFile",
     "text.dll",
     "This is no library.",
     ERROR_BAD_EXE_FORMAT,
     {"CJavaManagerJNIClient  (bool)binaryFile != NULL: true",
      "CJavaManagerJNIClient  Java Client Library (jvm.dll) does not contain any PE header"}},
    {"LibraryFor32Bit",
     "x86.dll",
     libraryFor(0x014c),
     ERROR_BAD_EXE_FORMAT,
     {"CJavaManagerJNIClient  Java JRE for 32-bit platform"}},
    {"DamagedLibraryFor64Bit",
     "x64.dll",
     libraryFor(0x8664),
     ERROR_BAD_EXE_FORMAT,
     {"CJavaManagerJNIClient  Java JRE for unknown platform (ffff8664)"}},
    {"LibraryWithoutTheFunction",
     "C:\\windows\\system32\\version.dll",
     "",
     0,
     {"CJavaManagerJNIClient  m_DLLHandle != NULL: true", "CJavaManagerJNIClient  CreateJavaVMProc != NULL: false"}},
};

class BadRuntimeTest : public ServerTest, public testing::WithParamInterface<SBadRuntime>
{
};

INSTANTIATE_TEST_SUITE_P(Runtimes, BadRuntimeTest, testing::ValuesIn(BAD_RUNTIMES),
                         [](const auto& info) { return info.param.name; });

TEST_P(BadRuntimeTest, GivesAnObjectWithoutFrameThatExplainsItself)
{
    const SBadRuntime& runtime = GetParam();
    const bool isPath = runtime.library.find(':') != std::string::npos;
    const std::string library = isPath ? runtime.library : folder.file(runtime.library);
    if (!runtime.content.empty()) {
        writeFile(library, runtime.content);
    }
    settings.setRuntime("21.0.8", library);

    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    const SCallResult failed = call(manager.object, 3, "echo", "Hello");
    EXPECT_EQ(failed.result, E_FAIL);
    EXPECT_THAT(messagesOf(failed.description), Contains("CJavaManagerJNIClient  callMethodID != NULL: false"));
    release(manager);

    const std::vector<std::string> log = messages(manager.server->id());
    EXPECT_THAT(log, Contains("-> CJavaManagerJNIClient  loadJVMlibrary " + library));
    if (runtime.error) {
        EXPECT_THAT(log, Contains("CJavaManagerJNIClient  m_DLLHandle != NULL: failure: " + systemText(runtime.error)));
        EXPECT_THAT(log, Contains("CJavaManagerJNIClient  m_DLLHandle != NULL: false"));
        EXPECT_THAT(log, Contains("CJavaManagerJNIClient  loadJVMlibrary(jvm_info.path.c_str()): failure: " +
                                  systemText(static_cast<DWORD>(E_FAIL))));
    }
    for (const std::string& line : runtime.lines) {
        EXPECT_THAT(log, Contains(line));
    }
    EXPECT_THAT(log, Contains("CJavaManagerATLObject  CHECKPOINT: Successfully created ATL object."));
}

TEST_F(ServerTest, MachineWithoutRuntimeGivesAnObjectWithoutFrame)
{
    settings.removeRuntimes();
    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
    EXPECT_EQ(manager->setBounds(0, 0, 1, 1), E_FAIL);
    EXPECT_EQ(manager->validate(), E_FAIL);
    EXPECT_EQ(manager->pushWindowHandle(0), E_FAIL);
    EXPECT_EQ(manager->testBridge(ATL::CComBSTR(L"abc"), 3, 0), E_FAIL);
    EXPECT_EQ(manager->testBridge(ATL::CComBSTR(L"abc"), 1, 0), S_OK);
    release(manager);
    const std::vector<std::string> log = messages(manager.server->id());
    EXPECT_THAT(log, Contains("-> CJavaManagerJNIClient  loadJVMlibrary "));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  m_DLLHandle != NULL: false"));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  m_BeanClass!=NULL: false"));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  localReference!=NULL: false"));
    EXPECT_THAT(log, Contains("CJavaManagerATLObject  CHECKPOINT: Successfully created ATL object."));
}

TEST_F(ServerTest, MachineThatRefusesItsOptionsGivesAnObjectWithoutFrame)
{
    settings.setPreference("jvm_option_wrong", "-Xmxbad");
    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
    release(manager);
    EXPECT_THAT(messages(manager.server->id()),
                Contains("CJavaManagerJNIClient  CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): JNI_EINVAL"));
}

TEST_F(ServerTest, MachineThatEndsTheProcessFailsTheCreation)
{
    settings.setPreference("jvm_option_one", "-XX:+UseSerialGC");
    settings.setPreference("jvm_option_other", "-XX:+UseParallelGC");
    SManager manager;
    EXPECT_TRUE(FAILED(create(manager)));
    EXPECT_FALSE(manager.object);
    const std::shared_ptr<CProcess> server = waitForNewServer({});
    ASSERT_TRUE(server);
    expectEnd(*server, 1);
    EXPECT_EQ(messages(server->id()).back(), "CJavaManagerJNIClient  About to call JNI_CreateJavaVM");
}

TEST_F(ServerTest, ExecutableWithoutControlJarGivesAZombie)
{
    ASSERT_TRUE(CopyFileA((buildFolder() + "\\KESTAx64.exe").c_str(), folder.file("KESTAx64.exe").c_str(), TRUE));
    ASSERT_EQ(runServer(folder.path(), "/RegServer"), 0u);
    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    const SCallResult failed = call(manager.object, 15);
    EXPECT_EQ(failed.result, E_FAIL);
    EXPECT_EQ((std::vector<std::string>{
                  "CJavaManagerATLObject  doesFileExist(basiscontrol): false",
                  "-> CJavaManagerATLObject  CJavaManagerATLObject ",
                  "-> CKESTAserverModule  RunMessageLoop ",
                  "-> WinMain -Embedding",
                  "CJavaManagerATLObject  CBeanFrame::s_Instance!=NULL: false",
                  "-> CJavaManagerATLObject  validate ",
                  "-> CKESTAserverModule  RunMessageLoop ",
                  "-> WinMain -Embedding",
                  "",
              }),
              messagesOf(failed.description));
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
    release(manager);
    const std::vector<std::string> log = messages(manager.server->id());
    EXPECT_THAT(log, Contains("CJavaManagerATLObject  Basiscontrol path: " + folder.file("ORVANEControl.jar")));
    EXPECT_THAT(
        log, Contains("CJavaManagerATLObject  CBeanFrame::s_Instance==NULL, this object is a zombie; client should release it"));
}

TEST_F(ServerTest, JarWithoutTheControlGivesAnObjectWithoutFrame)
{
    // An archive of no files.
    const std::string jar = folder.file("empty.jar");
    writeFile(jar, std::string("PK\5\6") + std::string(18, '\0'));
    settings.setPreference("basiscontrol", jar);
    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    EXPECT_EQ(callMethod(manager.object, "echo", "Hello"), "(failed)");
    release(manager);
    const std::vector<std::string> log = messages(manager.server->id());
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  Class Path: -Djava.class.path=" + testJar() + ";" + jar));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  m_BeanClass!=NULL: false"));
    EXPECT_THAT(log, Contains("CJavaManagerJNIClient  callMethodID != NULL: false"));
}

// A control that cannot be started: its jar, one of those of the bridge's tests, and what the client reads about its next call.
struct SFailingControl
{
    const char* name;
    const char* jar;
    const char* failing; // what throws in Java
    std::function<SCallResult(IDispatch*)> call;
    // Of the client's error text, without backtraces and without the missing one of the two keys of the runtimes.
    std::vector<std::string> errors;
};

void PrintTo(const SFailingControl& control, std::ostream* stream)
{
    *stream << control.name;
}

SCallResult callControl(IDispatch* manager)
{
    return call(manager, 3, "echo", "Hello");
}

SCallResult validate(IDispatch* manager)
{
    return call(manager, 15);
}

SCallResult testBridge(IDispatch* manager)
{
    return call(manager, 17, "abc", 3, 0);
}

const std::string NOT_VISIBLE =
    "CJavaManagerATLObject  CBeanFrame::s_Instance->setVisible(true): failure: " + systemText(static_cast<DWORD>(E_FAIL));

const SFailingControl FAILING_CONTROLS[] = {
    {"MissingControl",
     "without-QMRTWinControl.jar",
     "",
     callControl,
     {"CJavaManagerJNIClient  Exception: java.lang.NoClassDefFoundError: com/orvane/tech/client/qmrt/win/QMRTWinControl",
      "CJavaManagerJNIClient  m_BeanClass!=NULL: false", "CJavaManagerJNIClient  addORVListenerID!=NULL: false",
      "CJavaManagerJNIClient  methodID!=NULL: false", NOT_VISIBLE, "CJavaManagerJNIClient  callMethodID != NULL: false"}},
    {"MissingDependency",
     "without-Control.jar",
     "",
     callControl,
     {"CJavaManagerJNIClient  Exception: java.lang.NoClassDefFoundError: kestatest/Control",
      "CJavaManagerJNIClient  m_BeanClass!=NULL: false", "CJavaManagerJNIClient  addORVListenerID!=NULL: false",
      "CJavaManagerJNIClient  methodID!=NULL: false", NOT_VISIBLE, "CJavaManagerJNIClient  callMethodID != NULL: false"}},
    {"ThrowingInitialiser",
     "whole.jar",
     "initialiser",
     callControl,
     {"CJavaManagerJNIClient  Exception: java.lang.ExceptionInInitializerError: ",
      "CJavaManagerJNIClient  m_BeanClass!=NULL: false", "CJavaManagerJNIClient  addORVListenerID!=NULL: false",
      "CJavaManagerJNIClient  methodID!=NULL: false", NOT_VISIBLE, "CJavaManagerJNIClient  callMethodID != NULL: false"}},
    {"ThrowingFrame",
     "whole.jar",
     "frame",
     validate,
     {"CJavaManagerJNIClient  Exception: java.lang.IllegalStateException: frame fails as asked",
      "CJavaManagerJNIClient  localReference!=NULL: false", "CJavaManagerJNIClient  methodID!=NULL: false", NOT_VISIBLE,
      "CJavaManagerJNIClient  validateID!=NULL: false"}},
    {"ThrowingListener",
     "whole.jar",
     "listener",
     testBridge,
     {"CJavaManagerJNIClient  Exception: java.lang.IllegalStateException: listener fails as asked",
      "CJavaManagerJNIClient  localReference!=NULL: false", "CJavaManagerJNIClient  debugTextMethodID != NULL: false"}},
};

class FailingControlTest : public ServerTest, public testing::WithParamInterface<SFailingControl>
{
};

INSTANTIATE_TEST_SUITE_P(Controls, FailingControlTest, testing::ValuesIn(FAILING_CONTROLS),
                         [](const auto& info) { return info.param.name; });

TEST_P(FailingControlTest, TellsTheClientWhy)
{
    settings.setPreference("basiscontrol", buildFolder() + "\\tests\\vm\\" + GetParam().jar);
    settings.setPreference("jvm_option_1", std::string("-Dkestatest.failing=") + GetParam().failing);
    SManager manager = create();
    const SCallResult failed = GetParam().call(manager.object);
    EXPECT_EQ(failed.result, E_FAIL);
    std::vector<std::string> errors = messagesOf(failed.description);
    std::erase_if(errors, [](const std::string& line) {
        return line.empty() || line.starts_with("-> ") || line.starts_with("CRegistry  ");
    });
    EXPECT_THAT(errors, testing::ElementsAreArray(GetParam().errors));
    release(manager);
}

} // namespace
} // namespace fixtures
