// Start and end of the Java virtual machine with a stand-in for it: steps, version, results, and the singleton around them.
#include "tests/javabridge/StandIn.h"
#include "tests/support/FailingAllocations.h"

namespace {

TEST_F(MachineTest, IsCreatedStepByStep)
{
    world.setPreference("jvm_option_1", "-D1");
    for (const char* name : {"loglevel", "oldlogfileage", "splitlogfilesize", "logpath"}) {
        world.machine().deleteValue(PREFERENCES, name, KEY_WOW64_32KEY);
    }
    const std::string folder = RuntimeFolder::currentFolder();
    const std::string gone = "FINE -> registry: CRegistry  ~CRegistry\nFINE -> registry: CRegistry  closeKey\n";
    const std::string preferences = opened(PREFERENCES, "20219");
    {
        const NotedSystemCalls noted;
        EXPECT_EQ(create(), 0);
    }
    EXPECT_LINES(log.take(), "INFO -> createJVM\nFINE -> findORVControls\n" + preferences + R"(
        FINE -> registry: CRegistrySubKeys  CRegistrySubKeys
        FINE -> registry: CRegistrySubKeys  getKeyNames
        FINE -> registry: CRegistrySubKeys  getSubKeyCount
        FINE -> registry: CRegistry  closeKey
        FINE -> registry: CRegistrySubKeys  ~CRegistrySubKeys
    )" + gone + "FINE Class Path: -Djava.class.path=C:\\basis.jar\nFINE -> loadJVMlibrary " +
                                 runtime.library() + "\nGetCurrentDirectoryA(261)\n" + runtime.usedFolders() + R"(
        TRACE m_DLLHandle != NULL: success
        TRACE m_DLLHandle != NULL: true
        TRACE loadJVMlibrary(jvm_info.path.c_str()): success: )" +
                                 getWindowsErrorText(0) + R"(
        TRACE CreateJavaVMProc != NULL: true
    )" + preferences + R"(
        FINE -> registry: CRegistrySubKeys  CRegistrySubKeys
        FINE -> registry: CRegistrySubKeys  getKeyNames
        FINE -> registry: CRegistrySubKeys  getValueCount
        FINE -> registry: CRegistrySubKeys  getValue 0
    )" + preferences + "FINE -> registry: CRegistry  getStringValue jvm_option_1,\n" +
                                 gone + R"(
        FINE -> registry: CRegistrySubKeys  getValueCount
        FINE -> registry: CRegistry  closeKey
        FINE -> registry: CRegistrySubKeys  ~CRegistrySubKeys
    )" + gone + preferences + R"(
        FINE -> registry: CRegistry  getDWORDValue sun.awt.noerasebackground, -1
        FINE Adding sun.awt.noerasebackground JVM Option
        FINE -> registry: CRegistry  closeKey
        GetModuleFileNameA(executable, 261)
        FINE Java Security Manager was not enabled. ()" +
                                 RuntimeFolder::besideExecutable(".policy") + R"()
    )" + gone + R"(
        FINE JNI 1.6 selected
        TRACE m_JVMArguments.options != NULL: true
        FINE About to call JNI_CreateJavaVM
        TRACE CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): successfull
        TRACE m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): successfull
    )");
    EXPECT_EQ(client.m_DLLHandle, GetModuleHandleA(runtime.library().c_str()));
    EXPECT_EQ(client.m_JVMArguments.nOptions, 7);
    EXPECT_EQ(client.m_JVMArguments.options, FailingAllocations::lastNothrowArray());
    client.m_ENV->FindClass("a/b/C"); // in the environment of the attached thread
    EXPECT_LINES(runtime.takeRecord(),
                 Strings{"loaded in " + runtime.bin(), "create in " + folder, "version 00010006", "ignoreUnrecognized 1",
                         "option -Djava.class.path=C:\\basis.jar", "option -D1", "option -Dsun.awt.noerasebackground=true",
                         "option -Dcom.orvane.qmrt.logpath=" + world.folder() + "\\", "option -Dcom.orvane.qmrt.loglevel=5",
                         "option -Dcom.orvane.qmrt.oldlogfileage=77", "option -Dcom.orvane.qmrt.splitlogfilesize=5", "attach",
                         "find a/b/C"});
}

TEST_F(MachineTest, OptionsStayAllocatedWhenAllElseIsGone)
{
    const void* options = nullptr;
    {
        CBridgeClient other(nullptr);
        EXPECT_EQ(other.createJVM({"1.8.0_151", runtime.library()}), 0);
        options = other.m_JVMArguments.options;
        EXPECT_EQ(other.destroyJVM(), 0u);
    }
    EXPECT_EQ(FailingAllocations::lastNothrowArray(), options);
    EXPECT_EQ(runtime.takeOptions().front(), "-Djava.class.path=") << "an empty class path is passed all the same";
}

TEST_F(MachineTest, VersionTextDecidesTheJniVersion)
{
    for (const auto& [text, version] : {std::pair{"1.5.0_22", '4'},
                                        {"1.6.0_45", '6'},
                                        {"1.8.0_151", '6'},
                                        {"11.0.2", '6'},
                                        {"9", '6'},
                                        {"10", '6'},
                                        {"1.10", '4'},
                                        {"1.6", '6'},
                                        {"1.", '4'},
                                        {"", '4'}}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(create(text), 0);
        EXPECT_EQ(std::ranges::count(runtime.takeRecord(), std::string("version 0001000") + version), 1);
        EXPECT_EQ(std::ranges::count(log.take("FINE"), std::string("JNI 1.") + version + " selected"), 1);
    }
}

TEST_F(MachineTest, StepThatFailsEndsTheCreation)
{
    const std::string creation = "CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): ";
    for (const auto& [order, error] : {std::pair<std::string, std::string>{"create -6", creation + "JNI_EINVAL"},
                                       {"create 7", creation + "Unknown error (7)"},
                                       {"attach -2", "m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): JNI_EDETACHED"}}) {
        runtime.order(order);
        EXPECT_EQ(create(), E_FAIL);
        EXPECT_LINES(log.takeErrors(), Strings{error});
        runtime.takeRecord();
    }
    const FailingAllocations failing(FailingAllocations::Kind::NothrowArrays);
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_LINES(log.takeErrors(), Strings{"m_JVMArguments.options != NULL: false"});
}

TEST_F(MachineTest, LibraryThatDoesNotLoadEndsTheCreation)
{
    EXPECT_EQ(client.createJVM({"1.8.0_151", runtime.library() + "x"}), E_FAIL);
    EXPECT_LINES(log.takeErrors(), Strings{"m_DLLHandle != NULL: failure: " + getWindowsErrorText(ERROR_MOD_NOT_FOUND),
                                           "(bool)binaryFile != NULL: false", "m_DLLHandle != NULL: false",
                                           "loadJVMlibrary(jvm_info.path.c_str()): failure: " + getWindowsErrorText(0x80004005)});
}

TEST_F(MachineTest, LibraryWithoutTheFunctionEndsTheCreationAndCanBeUnloaded)
{
    runtime.install("nojvm.dll");
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_LINES(log.takeErrors(), Strings{"CreateJavaVMProc != NULL: false"});
    EXPECT_NE(GetModuleHandleA(runtime.library().c_str()), nullptr);
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_EQ(GetModuleHandleA(runtime.library().c_str()), nullptr);
}

TEST_F(MachineTest, MachineMayEndTheProcess)
{
    runtime.order("exit 1");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(create(), testing::ExitedWithCode(1), "");
}

// It stays for the machine's threads, even when the machine failed to start.
TEST_F(MachineTest, LibraryIsFreedAndStays)
{
    for (const char* order : {"create 0", "create -4"}) {
        runtime.order(order);
        CBridgeClient other("C:\\basis.jar");
        const bool isCreated = other.createJVM({"1.8.0_151", runtime.library()}) == 0;
        log.take();
        EXPECT_EQ(other.destroyJVM(), 0u);
        EXPECT_LINES(log.take(), Strings{"INFO -> destroyJVM"} +
                                     (isCreated ? Strings{"TRACE m_JVM->DetachCurrentThread(): successfull"} : Strings{}) +
                                     Strings{"TRACE FreeLibrary(m_DLLHandle): success"});
        EXPECT_NE(GetModuleHandleA(runtime.library().c_str()), nullptr);
        EXPECT_NE(other.m_DLLHandle, nullptr) << "the handle is not reset";
        EXPECT_EQ(runtime.takeRecord().back() == "detach", isCreated);
    }
}

class SingletonTest : public MachineTest
{
protected:
    SingletonTest()
    {
        world.machine().createKey(RUNTIMES_NEW);
        world.machine().setString(RUNTIMES, "CurrentVersion", "1.8");
        world.machine().setString(RUNTIMES + "\\1.8", "RuntimeLib", runtime.library());
    }
    ~SingletonTest() override { CJavaManagerJNIClient::cleanUp(); }
    // Without the lines of the registry reader.
    Strings takeOwn()
    {
        Strings lines = log.take();
        std::erase_if(lines, [](const std::string& line) { return line.find("registry: ") != std::string::npos; });
        return lines;
    }
    static CJavaManagerJNIClient* instance() { return CJavaManagerJNIClient::s_Instance; }

    const std::string created = "TRACE static: CHECKPOINT: Successfully created JavaManagerJNIClient Singleton.";
    const std::string removed = "TRACE static: CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.";
};

TEST_F(SingletonTest, IsCreatedOnceAndRemoved)
{
    log.take();
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    const CJavaManagerJNIClient* const first = instance();
    ASSERT_NE(first, nullptr);
    Strings lines = takeOwn();
    EXPECT_LINES(Strings(lines.begin(), lines.begin() + 4),
                 Strings{"FINE -> static: createInstance", "FINE -> CJavaManagerJNIClient C:\\basis.jar", "FINE -> findJVM",
                         "FINE Looking for installed Java versions..."});
    EXPECT_EQ(std::ranges::count(lines, "INFO -> createJVM"), 1);
    EXPECT_EQ(lines.back(), created);

    CJavaManagerJNIClient::createInstance("D:\\other.jar");
    EXPECT_EQ(instance(), first);
    EXPECT_LINES(log.take(), Strings{"FINE -> static: createInstance", created}) << "no second machine";

    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_EQ(instance(), nullptr);
    EXPECT_LINES(log.take(),
                 Strings{"FINE -> static: cleanUp", "INFO -> destroyJVM", "TRACE m_JVM->DetachCurrentThread(): successfull",
                         "TRACE FreeLibrary(m_DLLHandle): success", "FINE -> ~CJavaManagerJNIClient", removed});
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_LINES(log.take(), Strings{"FINE -> static: cleanUp", removed}) << "the checkpoint comes without a singleton, too";
}

TEST_F(SingletonTest, IsRemovedAlsoWhenItsThreadIsNotDetached)
{
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    runtime.order("detach -1");
    log.take();
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_EQ(instance(), nullptr);
    EXPECT_LINES(log.take(), Strings{"FINE -> static: cleanUp", "INFO -> destroyJVM",
                                     "ERROR m_JVM->DetachCurrentThread(): JNI_ERR", "FINE -> ~CJavaManagerJNIClient", removed});
}

TEST_F(SingletonTest, WithoutRuntimeStaysAndItsOperationsFail)
{
    ASSERT_EQ(RegDeleteTreeA(HKEY_LOCAL_MACHINE, "SOFTWARE"), ERROR_SUCCESS);
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    ASSERT_NE(instance(), nullptr);
    EXPECT_EQ(log.take().back(), created);
    jobject listener = nullptr;
    EXPECT_EQ(instance()->regEventListener(&listener, nullptr, nullptr), E_FAIL);
}

TEST_F(SingletonTest, StaysWhenMemoryRunsOutWhileItsMachineIsStarted)
{
    const std::string basis(FailingAllocations::LARGE, 'x');
    log.take();
    {
        const FailingAllocations failing(FailingAllocations::Kind::Large);
        CJavaManagerJNIClient::createInstance(basis.c_str());
    }
    ASSERT_NE(instance(), nullptr);
    EXPECT_LINES(log.takeErrors(), Strings{"static: Java virtual machine was not started: 8007000e"});
}

class EndTest : public BridgeTest
{
};

TEST_F(EndTest, ClassReferencesThatThereAreAreDeletedInOrder)
{
    haveControl();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_LINES(log.take(), R"(
        INFO -> destroyJVM
        DeleteLocalRef(class a/b/Bean)
        DeleteLocalRef(class com/velmora/tq/kesta/KESTAFrame)
        DeleteLocalRef(class com/velmora/tq/kesta/KESTAListener)
        DetachCurrentThread()
        TRACE m_JVM->DetachCurrentThread(): successfull
    )");
    EXPECT_TRUE(client.m_BeanClass && client.m_FrameClass && client.m_ListenerClass) << "the members are not reset";
    client.m_BeanClass = client.m_ListenerClass = nullptr;
    client.m_FrameClass = java.localClass(FRAME);
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_EQ(java.takeCalls().at(4), "DeleteLocalRef(class " + FRAME + ")");
}

TEST_F(EndTest, EndOfTheObjectReleasesNothing)
{
    {
        CBridgeClient other(nullptr);
        EXPECT_TRUE(!other.m_JVM && !other.m_ENV && !other.m_DLLHandle && !other.m_BeanClass && !other.m_FrameClass &&
                    !other.m_ListenerClass);
        EXPECT_EQ(other.m_UniqueWindowID, -1);
        other.m_JVM = java.vm();
        other.m_ENV = java.env();
        other.m_BeanClass = java.localClass(BEAN);
    }
    EXPECT_LINES(log.take(), Strings{"FINE -> CJavaManagerJNIClient", "FINE -> ~CJavaManagerJNIClient"});
}

TEST_F(EndTest, FailedDetachEndsTheDestruction)
{
    java.detachResult = JNI_ERR;
    client.m_DLLHandle = GetModuleHandleA("kernel32");
    EXPECT_EQ(client.destroyJVM(), static_cast<unsigned>(E_FAIL));
    EXPECT_LINES(log.take(),
                 Strings{"INFO -> destroyJVM", "DetachCurrentThread()", "ERROR m_JVM->DetachCurrentThread(): JNI_ERR"});
}

TEST_F(EndTest, LibraryThatIsNotFreedIsLoggedOnly)
{
    haveNoMachine();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_LINES(log.take(), Strings{"INFO -> destroyJVM"});
    client.m_DLLHandle = reinterpret_cast<HMODULE>(0x1000);
    EXPECT_EQ(client.destroyJVM(), 0u);
    FreeLibrary(client.m_DLLHandle);
    const DWORD error = GetLastError();
    EXPECT_LINES(log.takeErrors(), Strings{"FreeLibrary(m_DLLHandle): failure: " + getWindowsErrorText(error)});
}

} // namespace
