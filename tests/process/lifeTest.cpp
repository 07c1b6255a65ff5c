// How server processes begin, serve and end.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace fixtures {
namespace {

// The milestones of a whole run, in their order, each a whole message. "@" stands for the frame id, "$" for the folder of the
// executable, "#" for the runtime's library, "%" for the pane's handle.
const std::vector<std::string> MILESTONES = {
    // start
    "-> addRefCount logging already initialized",
    "-> ObjectMain 1",
    "<- ObjectMain 1",
    "-> WinMain -Embedding",
    "-> CKESTAserverModule  RunMessageLoop ",
    // the client's creation
    "-> CJavaManagerATLObject  CJavaManagerATLObject ",
    "CJavaManagerATLObject  s_Instance == NULL: true",
    "CJavaManagerATLObject  Basiscontrol path: $\\ORVANEControl.jar",
    "CJavaManagerATLObject  doesFileExist(basiscontrol): true",
    "-> createInstance $\\ORVANEControl.jar,com.orvane.tech.client.qmrt.win,QMRTWinControl",
    "-> CBeanFrame -1 CBeanFrame $\\ORVANEControl.jar,com.orvane.tech.client.qmrt.win,QMRTWinControl",
    // runtime found
    "-> CJavaManagerJNIClient  findJVM ",
    "CJavaManagerJNIClient  Looking for installed Java versions...",
    "CJavaManagerJNIClient  Found Java 21.0.8 (* USED)",
    "CJavaManagerJNIClient  Standard JVM Path: #",
    // options
    "-> CJavaManagerJNIClient  createJVM ",
    "CJavaManagerJNIClient  Class Path: -Djava.class.path=$\\TestControl.jar;$\\ORVANEControl.jar",
    "-> CJavaManagerJNIClient  loadJVMlibrary #",
    "CJavaManagerJNIClient  m_DLLHandle != NULL: success",
    "CJavaManagerJNIClient  m_DLLHandle != NULL: true",
    "CJavaManagerJNIClient  CreateJavaVMProc != NULL: true",
    "CJavaManagerJNIClient  Adding sun.awt.noerasebackground JVM Option",
    "CJavaManagerJNIClient  Java Security Manager was not enabled. ($\\KESTAx64.policy)",
    "CJavaManagerJNIClient  JNI 1.6 selected",
    "CJavaManagerJNIClient  m_JVMArguments.options != NULL: true",
    // virtual machine
    "CJavaManagerJNIClient  About to call JNI_CreateJavaVM",
    "CJavaManagerJNIClient  CreateJavaVMProc(&m_JVM, (void**)&m_ENV, &m_JVMArguments): successfull",
    "CJavaManagerJNIClient  m_JVM->AttachCurrentThread((void**)&m_ENV, NULL): successfull",
    "CHECKPOINT: Successfully created JavaManagerJNIClient Singleton.",
    // bean and frame
    "-> CJavaManagerJNIClient  startBean com.orvane.tech.client.qmrt.win, QMRTWinControl",
    "CJavaManagerJNIClient  m_BeanClass!=NULL: true",
    "CJavaManagerJNIClient  constructID!=NULL: true",
    "CJavaManagerJNIClient  localReference != NULL: true",
    "CJavaManagerJNIClient  Unique Window ID was not initialized yet (-1)",
    "CJavaManagerJNIClient  Unique Window ID=@",
    "-> buildIdentifierString kesta_frame_, @",
    "CJavaManagerJNIClient  localReference!=NULL: true",
    "CJavaManagerJNIClient  setFrameFocusableWindowState(*frameObject, false): success: 0",
    "CJavaManagerJNIClient  setFrameAlwaysOnTop(*frameObject, false): success: 0",
    "CJavaManagerJNIClient  setFrameUndecorated(*frameObject, true): success: 0",
    "CJavaManagerJNIClient  CHECKPOINT: Successfully started bean.",
    // listener
    "-> CJavaManagerJNIClient  regEventListener ",
    "-> CJavaManagerJNIClient  registerNative testBridgeEvent, (Ljava/lang/String;I)V",
    "-> CJavaManagerJNIClient  registerNative OnControlReady, (Ljava/lang/String;)V",
    "-> CJavaManagerJNIClient  registerNative OnCustomEvent, (Ljava/lang/String;)V",
    "CJavaManagerJNIClient  call addORVANEControlListener method",
    "CJavaManagerJNIClient  CHECKPOINT: Successfully registered event listener.",
    "CBeanFrame @ CHECKPOINT: Successfully created BeanFrame.",
    "-> CBeanFrame @ setVisible ",
    "CJavaManagerATLObject  CBeanFrame::s_Instance->setVisible(true): success: Success. (00000000)",
    "CJavaManagerATLObject  CHECKPOINT: Successfully created ATL object.",
    "-> CJavaManagerATLObject  FinalConstruct ",
    // calls
    "-> CJavaManagerATLObject  getBeanFrameID ",
    "-> CJavaManagerATLObject  pushWindowHandle %",
    "CJavaManagerATLObject  CBeanFrame::s_Instance!=NULL: true",
    "-> CBeanFrame @ pushWindowHandle %",
    "-> CJavaManagerJNIClient  addBean ",
    "CJavaManagerJNIClient  Successfully added Bean to KESTAFrame!",
    "CBeanFrame @ Starting WatchDog on server side...",
    "-> CBeanFrame @ queueEvent 15000",
    "-> CJavaManagerATLObject  callMethod setText, Hello",
    "-> CBeanFrame @ callMethod setText,Hello",
    "-> CJavaManagerJNIClient  callMethod setText, Hello",
    "CJavaManagerJNIClient  callMethodID != NULL: true",
    "CJavaManagerJNIClient  checkNoJNIException(): true",
    "<- CJavaManagerJNIClient  callMethod setText, Hello",
    "<- CBeanFrame @ callMethod setText,Hello",
    "-> CJavaManagerATLObject  provideErrorInfo 0",
    // teardown
    "-> CJavaManagerATLObject  FinalRelease ",
    "-> CJavaManagerATLObject  ~CJavaManagerATLObject ",
    "CJavaManagerATLObject  CBeanFrame::s_Instance!=NULL: true",
    "-> deleteInstance ",
    "-> CBeanFrame @ ~CBeanFrame ",
    "-> CJavaManagerJNIClient  stopBean ",
    "-> CJavaManagerJNIClient  free ",
    "CJavaManagerJNIClient  removeID!=NULL: true",
    "CJavaManagerJNIClient  removeAllID!=NULL: true",
    "CJavaManagerJNIClient  removeCID!=NULL: true",
    "CJavaManagerJNIClient  CHECKPOINT: Successfully freed bean.",
    "CJavaManagerJNIClient  disposeID!=NULL: true",
    "CJavaManagerJNIClient  CHECKPOINT: Successfully freed frame.",
    "CJavaManagerJNIClient  CHECKPOINT: Successfully freed listener.",
    "<- CKESTAserverModule  RunMessageLoop ",
    "-> cleanUp ",
    "-> CJavaManagerJNIClient  destroyJVM ",
    "CJavaManagerJNIClient  m_JVM->DetachCurrentThread(): successfull",
    "CJavaManagerJNIClient  FreeLibrary(m_DLLHandle): success",
    "-> CJavaManagerJNIClient  ~CJavaManagerJNIClient ",
    "CHECKPOINT: Successfully removed JavaManagerJNIClient Singleton.",
    "-> setErrorModeSilent ",
    "new error mode:3",
    "CHelpers::setErrorModeSilent(): success: Success. (00000000)",
    "-> ObjectMain 0",
    "-> release not time to deinitialize log yet",
    "End of logging, further static deinitializers can not log anymore",
};

std::string withValues(const std::string& milestone, const std::map<char, std::string>& values)
{
    std::string text;
    for (const char character : milestone) {
        const auto value = values.find(character);
        text += value == values.end() ? std::string(1, character) : value->second;
    }
    return text;
}

TEST_F(ServerTest, LogOfAWholeRunTellsTheOrderOfAProcessLife)
{
    SManager manager = create();
    const int frameId = manager.frameId();
    CClientWindow window;
    CSink sink;
    CConnection connection(manager.object, sink);
    ASSERT_TRUE(window.takeIn(frameId));
    ASSERT_EQ(manager->pushWindowHandle(window.handle()), S_OK);
    EXPECT_TRUE(pumpUntil([&] { return sink.has(CONTROL_READY, "QMRTWinControl 1.0.0"); }));
    EXPECT_EQ(callMethod(manager.object, "setText", "Hello"), "Hello");
    connection.end();
    release(manager);

    EXPECT_EQ(static_cast<int>(manager.server->id()), frameId);
    const std::map<char, std::string> values = {
        {'@', std::to_string(frameId)}, {'$', buildFolder()}, {'#', runtimeLibrary(21)}, {'%', std::to_string(window.handle())}};
    const std::vector<std::string> log = messages(manager.server->id());
    auto place = log.begin();
    std::string previous = "(the beginning)";
    for (const std::string& milestone : MILESTONES) {
        const std::string expected = withValues(milestone, values);
        place = std::find(place, log.end(), expected);
        ASSERT_NE(log.end(), place) << "not found: \"" << expected << "\" after \"" << previous << "\"";
        previous = expected;
        ++place;
    }
    EXPECT_EQ(log.end(), place) << "lines after the end of logging";
}

TEST_F(ServerTest, TwoHostsAreServedByTwoProcessesWithTwoFrames)
{
    const std::string command = "\"" + programFolder() + "\\process_client.exe\" hold";
    // One after the other: Wine has no service that keeps activations of a class apart. A client that looks for a server just
    // when another client's has come up takes that one; the other client, which starts a server only once, then waits 30 seconds
    // in vain and gets E_NOINTERFACE.
    CProgram first(command);
    ASSERT_TRUE(first.waitForOutput("frame ")) << first.output();
    CProgram second(command);
    ASSERT_TRUE(second.waitForOutput("frame ")) << second.output();
    ASSERT_NE(first.output(), second.output());

    const auto servers = monitor.senders();
    for (CProgram* host : {&first, &second}) {
        const DWORD id = static_cast<DWORD>(std::stoul(host->output().substr(sizeof "frame " - 1)));
        ASSERT_TRUE(servers.contains(id)) << "the frame id is not a server process";
        EXPECT_TRUE(servers.at(id)->isRunning());
        EXPECT_TRUE(waitForMessage(id, "CJavaManagerJNIClient  Unique Window ID=" + std::to_string(id)));
    }
    first.send("end");
    second.send("end");
    EXPECT_EQ(first.process().exitCode(), 0u);
    EXPECT_EQ(second.process().exitCode(), 0u);
    for (const auto& [id, server] : servers) {
        if (server->isRunning()) {
            expectEnd(*server);
        }
    }
    EXPECT_TRUE(processesNamed("KESTAx64.exe").empty());
}

TEST_F(ServerTest, StartWithoutSwitchServesOneClientAndTheNextGetsAnotherProcess)
{
    // No registration: neither the word nor its beginning is a switch.
    CProgram server("\"" + buildFolder() + "\\KESTAx64.exe\" /RegServerX -Unreg");
    const DWORD id = server.process().id();
    ASSERT_TRUE(waitForMessage(id, "-> CKESTAserverModule  RunMessageLoop "));

    ATL::CComPtr<IJavaManager> first;
    ASSERT_EQ(first.CoCreateInstance(CLSID_JavaManager, CLSCTX_LOCAL_SERVER), S_OK);
    int frameId = 0;
    EXPECT_EQ(first->getBeanFrameID(&frameId), S_OK);
    EXPECT_EQ(static_cast<int>(id), frameId);

    SManager second = create();
    EXPECT_NE(id, second.server->id());
    EXPECT_TRUE(server.process().isRunning());
    first.Release();
    second.object.Release();
    EXPECT_EQ(server.process().exitCode(), 0u);
    expectEnd(*second.server);
}

} // namespace
} // namespace fixtures
