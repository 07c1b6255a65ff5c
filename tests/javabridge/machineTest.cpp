// Start and end of the Java virtual machine with a stand-in for it: options, version, results, and the singleton around them.
#include "tests/support/FailingAllocations.h"
#include "tests/javabridge/StandIn.h"

namespace {

const std::string RUNTIMES = "SOFTWARE\\JavaSoft\\Java Runtime Environment";

TEST_F(MachineTest, MachineIsCreatedAndTheThreadAttached)
{
    const std::string folder = RuntimeFolder::currentFolder();
    EXPECT_EQ(create(), 0);
    EXPECT_STRINGS(runtime.record(),
                   Strings{"loaded in " + runtime.bin(), "create in " + folder, "version 00010006", "ignoreUnrecognized 1",
                           "option -Djava.class.path=C:\\basis.jar", "option -Dsun.awt.noerasebackground=true",
                           "option -Dcom.orvane.qmrt.logpath=" + world.folder() + "\\", "option -Dcom.orvane.qmrt.loglevel=5",
                           "option -Dcom.orvane.qmrt.oldlogfileage=77", "option -Dcom.orvane.qmrt.splitlogfilesize=5", "attach"});
    EXPECT_NE(client.m_JVM, nullptr);
    EXPECT_NE(client.m_ENV, nullptr);
    EXPECT_EQ(client.m_JVMArguments.nOptions, 6);
    EXPECT_EQ(client.m_JVMArguments.version, 0x00010006);
    EXPECT_EQ(client.m_JVMArguments.ignoreUnrecognized, 1);
    EXPECT_EQ(client.m_JVMArguments.options, FailingAllocations::lastNothrowArray());
    EXPECT_STRINGS(log.takeScopes(),
                   Strings{"INFO createJVM ", "FINE findORVControls ", "FINE loadJVMlibrary " + runtime.library()});
    const std::string success = getWindowsErrorText(0);
    EXPECT_STRINGS(
        log.takeStatements(),
        Strings{
            "TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true",
            "FINE Class Path: -Djava.class.path=C:\\basis.jar",
            "FINE Used " + runtime.library() + "\\..\\..\\ as current folder while loading JVM, using " + folder + " again.",
            "TRACE m_DLLHandle != NULL: success",
            "TRACE m_DLLHandle != NULL: true",
            "TRACE loadJVMlibrary(jvm_info.path.c_str()): success: " + success,
            "TRACE CreateJavaVMProc != NULL: true",
            "TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true",
            "TRACE CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: true",
            "FINE Adding sun.awt.noerasebackground JVM Option",
            "FINE Java Security Manager was not enabled. (" + RuntimeFolder::besideExecutable(".policy") + ")",
            "FINE JNI 1.6 selected",
            "TRACE m_JVMArguments.options != NULL: true",
            "FINE About to call JNI_CreateJavaVM",
            "TRACE CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): successfull",
            "TRACE m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): successfull",
        });
}

TEST_F(MachineTest, EnvironmentIsTheOneOfTheAttachedThread)
{
    EXPECT_EQ(create(), 0);
    client.m_ENV->FindClass("a/b/C");
    EXPECT_EQ(runtime.record().back(), "find a/b/C");
}

TEST_F(MachineTest, OptionsStayAllocatedWhenAllElseIsGone)
{
    const void* options = nullptr;
    {
        CBridgeClient other("C:\\basis.jar");
        EXPECT_EQ(other.createJVM({"1.8.0_151", runtime.library()}), 0);
        options = other.m_JVMArguments.options;
        EXPECT_NE(options, nullptr);
        EXPECT_EQ(other.destroyJVM(), 0u);
        EXPECT_EQ(other.m_JVMArguments.options, options);
    }
    EXPECT_EQ(FailingAllocations::lastNothrowArray(), options);
}

TEST_F(MachineTest, EmptyClassPathIsPassedAllTheSame)
{
    CBridgeClient withoutBasis(nullptr);
    EXPECT_EQ(withoutBasis.createJVM({"1.8.0_151", runtime.library()}), 0);
    EXPECT_EQ(runtime.options().front(), "-Djava.class.path=");
}

TEST_F(MachineTest, VersionTextDecidesTheJniVersion)
{
    for (const auto& [text, version] : std::vector<std::pair<std::string, std::string>>{{"1.5.0_22", "4"},
                                                                                        {"1.6.0_45", "6"},
                                                                                        {"1.8.0_151", "6"},
                                                                                        {"11.0.2", "6"},
                                                                                        {"9", "6"},
                                                                                        {"10", "6"},
                                                                                        {"1.10", "4"},
                                                                                        {"1.6", "6"},
                                                                                        {"1.", "4"},
                                                                                        {"", "4"}}) {
        SCOPED_TRACE(text);
        std::filesystem::remove(runtime.bin() + "\\server\\jvm.record");
        EXPECT_EQ(create(text), 0);
        const Strings record = runtime.record();
        EXPECT_EQ(std::count(record.begin(), record.end(), "version 0001000" + version), 1);
        const Strings statements = log.takeStatements("FINE");
        const std::string selected = version == "4" ? "JNI 1.4 selected" : "JNI 1.6 selected";
        EXPECT_EQ(std::count(statements.begin(), statements.end(), selected), 1);
    }
}

TEST_F(MachineTest, LibraryThatDoesNotLoadEndsTheCreation)
{
    const std::string missing = runtime.library() + "x";
    log.takeStatements();
    EXPECT_EQ(client.createJVM({"1.8.0_151", missing}), E_FAIL);
    EXPECT_TRUE(log.stream().contains(fixtures::BEGIN_BANNER)) << "an error writes its backtrace";
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"m_DLLHandle != NULL: failure: " + getWindowsErrorText(ERROR_MOD_NOT_FOUND),
                           "(bool)binaryFile != NULL: false", "m_DLLHandle != NULL: false",
                           "loadJVMlibrary(jvm_info.path.c_str()): failure: " + getWindowsErrorText(0x80004005)});
    EXPECT_EQ(client.m_JVM, nullptr);
}

TEST_F(MachineTest, LibraryWithoutTheFunctionEndsTheCreationAndCanBeUnloaded)
{
    std::filesystem::remove(runtime.library());
    runtime.install("nojvm.dll");
    log.takeStatements();
    EXPECT_EQ(client.createJVM({"1.8.0_151", runtime.library()}), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"CreateJavaVMProc != NULL: false"});
    EXPECT_NE(GetModuleHandleA(runtime.library().c_str()), nullptr);
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_EQ(GetModuleHandleA(runtime.library().c_str()), nullptr);
}

TEST_F(MachineTest, MissingMemoryForTheOptionsEndsTheCreation)
{
    const FailingAllocations failing(FailingAllocations::Kind::NothrowArrays);
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"m_JVMArguments.options != NULL: false"});
    EXPECT_STRINGS(runtime.record(), Strings{"loaded in " + runtime.bin()});
}

TEST_F(MachineTest, MachineThatRefusesItsOptionsEndsTheCreation)
{
    runtime.order("create -6");
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): JNI_EINVAL"});
    EXPECT_EQ(client.m_JVM, nullptr);
    EXPECT_EQ(client.m_ENV, nullptr);
}

TEST_F(MachineTest, EveryResultOtherThanZeroIsAFailure)
{
    runtime.order("create 7");
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"),
                   Strings{"CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): Unknown error (7)"});
}

TEST_F(MachineTest, ThreadThatIsNotAttachedEndsTheCreation)
{
    runtime.order("attach -2");
    EXPECT_EQ(create(), E_FAIL);
    EXPECT_STRINGS(log.takeStatements("ERROR"), Strings{"m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): JNI_EDETACHED"});
}

TEST_F(MachineTest, MachineMayEndTheProcess)
{
    runtime.order("exit 1");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(create(), testing::ExitedWithCode(1), "");
}

TEST_F(MachineTest, DestroyDetachesAndFreesALibraryThatStaysForItsThreads)
{
    EXPECT_EQ(create(), 0);
    log.takeStatements();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_EQ(runtime.record().back(), "detach");
    EXPECT_NE(GetModuleHandleA(runtime.library().c_str()), nullptr);
    EXPECT_STRINGS(log.takeStatements(),
                   Strings{"TRACE m_JVM->DetachCurrentThread(): successfull", "TRACE FreeLibrary(m_DLLHandle): success"});
    EXPECT_NE(client.m_DLLHandle, nullptr) << "the handle is not reset";
}

TEST_F(MachineTest, LibraryStaysAlsoWhenTheMachineWasOnlyAskedToStart)
{
    runtime.order("create -4");
    EXPECT_EQ(create(), E_FAIL);
    log.takeStatements();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_NE(GetModuleHandleA(runtime.library().c_str()), nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE FreeLibrary(m_DLLHandle): success"});
}

TEST_F(MachineTest, ThreadThatIsNotDetachedKeepsTheLibrary)
{
    EXPECT_EQ(create(), 0);
    runtime.order("detach -1");
    log.takeStatements();
    EXPECT_EQ(client.destroyJVM(), static_cast<unsigned>(E_FAIL));
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR m_JVM->DetachCurrentThread(): JNI_ERR"});
}

TEST_F(MachineTest, SingletonIsCreatedOnceAndRemoved)
{
    world.machine().setString(RUNTIMES, "CurrentVersion", "1.8");
    world.machine().setString(RUNTIMES + "\\1.8", "RuntimeLib", runtime.library());
    EXPECT_EQ(CJavaManagerJNIClient::s_Instance, nullptr);
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    CJavaManagerJNIClient* const created = CJavaManagerJNIClient::s_Instance;
    ASSERT_NE(created, nullptr);
    const Strings messages = log.stream().messages();
    for (const char* expected : {"FINE createInstance ", "FINE CJavaManagerJNIClient  CJavaManagerJNIClient C:\\basis.jar",
                                 "FINE CJavaManagerJNIClient  findJVM ", "INFO CJavaManagerJNIClient  createJVM ",
                                 "FINE CJavaManagerJNIClient  findORVControls ",
                                 "TRACE CHECKPOINT: Successfully created JavaManagerJNIClient Singleton."}) {
        EXPECT_TRUE(log.stream().contains(expected)) << expected;
    }
    EXPECT_EQ(messages.back(), "FINE createInstance ");
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE CJavaManagerJNIClient C:\\basis.jar", "FINE findJVM ", "INFO createJVM ",
                                             "FINE findORVControls ", "FINE loadJVMlibrary " + runtime.library()});
    log.takeStatements();
    const size_t lines = runtime.record().size();

    CJavaManagerJNIClient::createInstance("D:\\other.jar");
    EXPECT_EQ(CJavaManagerJNIClient::s_Instance, created);
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE CHECKPOINT: Successfully created JavaManagerJNIClient Singleton."});
    EXPECT_EQ(runtime.record().size(), lines) << "no second machine";

    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_EQ(CJavaManagerJNIClient::s_Instance, nullptr);
    EXPECT_STRINGS(log.stream().messages(), Strings{
                                                "FINE cleanUp ",
                                                "INFO CJavaManagerJNIClient  destroyJVM ",
                                                "TRACE CJavaManagerJNIClient  m_JVM->DetachCurrentThread(): successfull",
                                                "TRACE CJavaManagerJNIClient  FreeLibrary(m_DLLHandle): success",
                                                "INFO CJavaManagerJNIClient  destroyJVM ",
                                                "FINE CJavaManagerJNIClient  ~CJavaManagerJNIClient ",
                                                "FINE CJavaManagerJNIClient  ~CJavaManagerJNIClient ",
                                                "TRACE CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.",
                                                "FINE cleanUp ",
                                            });
}

TEST_F(MachineTest, SingletonIsRemovedAlsoWhenItsThreadIsNotDetached)
{
    world.machine().setString(RUNTIMES, "CurrentVersion", "1.8");
    world.machine().setString(RUNTIMES + "\\1.8", "RuntimeLib", runtime.library());
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    runtime.order("detach -1");
    log.takeStatements();
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_EQ(CJavaManagerJNIClient::s_Instance, nullptr);
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR m_JVM->DetachCurrentThread(): JNI_ERR",
                                                 "TRACE CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton."});
}

TEST_F(MachineTest, CleanUpWithoutSingletonLogsItsCheckpoint)
{
    log.takeStatements();
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
    EXPECT_STRINGS(log.takeStatements(), Strings{"TRACE CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton."});
}

TEST_F(MachineTest, SingletonWithoutRuntimeStaysAndItsOperationsFail)
{
    CJavaManagerJNIClient::createInstance("C:\\basis.jar");
    ASSERT_NE(CJavaManagerJNIClient::s_Instance, nullptr);
    EXPECT_TRUE(log.stream().contains("TRACE CHECKPOINT: Successfully created JavaManagerJNIClient Singleton."));
    log.takeStatements();
    jobject bean = nullptr;
    jobject frame = nullptr;
    int frameID = 0;
    EXPECT_EQ(CJavaManagerJNIClient::s_Instance->startBean(&bean, &frame, &frameID, "a", "B"), E_FAIL);
    EXPECT_TRUE(log.stream().contains("ERROR CJavaManagerJNIClient  m_BeanClass!=NULL: false"));
    EXPECT_EQ(CJavaManagerJNIClient::cleanUp(), 0);
}

class EndTest : public BridgeTest
{
};

TEST_F(EndTest, ClassReferencesAreDeletedInOrder)
{
    haveControl();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_STRINGS(java.takeCalls(), Strings{"DeleteLocalRef(class a/b/Bean)", "DeleteLocalRef(class " + FRAME + ")",
                                             "DeleteLocalRef(class " + LISTENER + ")", "DetachCurrentThread()"});
    EXPECT_STRINGS(java.liveLocals(), Strings{});
    EXPECT_STRINGS(log.takeScopes(), Strings{"INFO destroyJVM "});
    EXPECT_NE(client.m_BeanClass, nullptr) << "the members are not reset";
    EXPECT_NE(client.m_FrameClass, nullptr);
    EXPECT_NE(client.m_ListenerClass, nullptr);
}

TEST_F(EndTest, BeginningKnowsNothingAndTheEndOfTheObjectReleasesNothing)
{
    {
        CBridgeClient other("C:\\basis.jar");
        EXPECT_EQ(other.m_JVM, nullptr);
        EXPECT_EQ(other.m_ENV, nullptr);
        EXPECT_EQ(other.m_DLLHandle, nullptr);
        EXPECT_EQ(other.m_BeanClass, nullptr);
        EXPECT_EQ(other.m_FrameClass, nullptr);
        EXPECT_EQ(other.m_ListenerClass, nullptr);
        EXPECT_EQ(other.m_UniqueWindowID, -1);
        other.m_JVM = java.vm();
        other.m_ENV = java.env();
        other.m_BeanClass = java.localClass(BEAN);
    }
    EXPECT_STRINGS(java.takeCalls(), Strings{});
    EXPECT_STRINGS(java.liveLocals(), Strings{"class " + BEAN});
    EXPECT_STRINGS(log.takeScopes(), Strings{"FINE CJavaManagerJNIClient C:\\basis.jar", "FINE ~CJavaManagerJNIClient "});
    EXPECT_STRINGS(log.takeStatements(), Strings{});
}

TEST_F(EndTest, OnlyTheClassesThatWereFoundAreDeleted)
{
    client.m_FrameClass = java.localClass(FRAME);
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_STRINGS(java.takeCalls(), Strings{"DeleteLocalRef(class " + FRAME + ")", "DetachCurrentThread()"});
}

TEST_F(EndTest, ErrorOfAFailedLookUpIsClearedBeforeTheThreadIsDetached)
{
    java.missing = {BEAN};
    jobject newBean = nullptr;
    jobject newFrame = nullptr;
    int frameID = 0;
    client.startBean(&newBean, &newFrame, &frameID, "a.b", "Bean");
    java.takeCalls();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_STRINGS(java.takeCalls(), Strings{"ExceptionClear() [pending]", "DetachCurrentThread()"});
}

TEST_F(EndTest, FailedDetachEndsTheDestruction)
{
    java.detachResult = JNI_ERR;
    client.m_DLLHandle = GetModuleHandleA("kernel32");
    EXPECT_EQ(client.destroyJVM(), static_cast<unsigned>(E_FAIL));
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR m_JVM->DetachCurrentThread(): JNI_ERR"});
}

TEST_F(EndTest, LibraryThatIsNotFreedIsLoggedOnly)
{
    haveNoMachine();
    client.m_DLLHandle = reinterpret_cast<HMODULE>(0x1000);
    EXPECT_EQ(client.destroyJVM(), 0u);
    FreeLibrary(client.m_DLLHandle);
    const DWORD error = GetLastError();
    EXPECT_STRINGS(log.takeStatements(), Strings{"ERROR FreeLibrary(m_DLLHandle): failure: " + getWindowsErrorText(error)});
    EXPECT_STRINGS(java.takeCalls(), Strings{});
}

TEST_F(EndTest, WithoutMachineAndLibraryNothingIsLogged)
{
    haveNoMachine();
    EXPECT_EQ(client.destroyJVM(), 0u);
    EXPECT_STRINGS(log.takeStatements(), Strings{});
}

} // namespace
