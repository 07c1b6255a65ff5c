// Calls of late-bound clients, and the error text of a failing call.
#include "tests/process/ServerFixture.h"

#include <iterator>

namespace fixtures {
namespace {

using ATL::CComBSTR;
using Lines = std::vector<std::string>;

Lines operator+(Lines left, const Lines& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Lines FROM_MAIN = {"-> CKESTAserverModule  RunMessageLoop ", "-> WinMain -Embedding"};

// The error of the start: this machine lacks the older installer's key. The first failing call tells that too.
Lines textOfStart(const std::string& folder)
{
    const std::string bean = folder + "\\ORVANEControl.jar,com.orvane.tech.client.qmrt.win,QMRTWinControl";
    return Lines{"CRegistry  RegOpenKeyEx(keyroot, path, 0, access, &m_key) == ERROR_SUCCESS: false",
                 "-> CRegistry  CRegistry SOFTWARE\\JavaSoft\\Java Runtime Environment\\",
                 "-> CJavaManagerJNIClient  findJVM ",
                 "-> createInstance ",
                 "-> CBeanFrame -1 CBeanFrame " + bean,
                 "-> createInstance " + bean,
                 "-> CJavaManagerATLObject  CJavaManagerATLObject "} +
           FROM_MAIN;
}

// The whole error text of a callMethod in which Java threw.
Lines textOfThrowing(const std::string& method, const std::string& argument, const std::string& exception, int frameId)
{
    const Lines callers = Lines{"-> CJavaManagerJNIClient  callMethod " + method + ", " + argument,
                                "-> CBeanFrame " + std::to_string(frameId) + " callMethod " + method + "," + argument,
                                "-> CJavaManagerATLObject  callMethod " + method + ", " + argument} +
                          FROM_MAIN;
    return Lines{"CJavaManagerJNIClient  Exception: " + exception, "", "-> CJavaManagerJNIClient  checkNoJNIException "} +
           callers + Lines{"CJavaManagerJNIClient  checkNoJNIException(): false"} + callers + Lines{""};
}

TEST_F(ServerTest, ScriptCallsEveryMethodAndPrintsTheTextOfAFailingOne)
{
    settings.removeControl(TEST_CONTROL);
    settings.setControl("Stations", buildFolder());
    CProgram script("cscript.exe //nologo \"" + programFolder() + "\\allMethods.vbs\"");
    EXPECT_EQ(script.process().exitCode(), 0u);
    const auto servers = monitor.senders();
    const std::string output = script.output();
    const std::string beginOfText = "callMethod failed as it should, error 0x80004005:\n";
    const std::string endOfText = "\nfree -> freed\n";
    const size_t begin = output.find(beginOfText);
    const size_t end = output.find(endOfText);
    ASSERT_NE(std::string::npos, begin) << output;
    ASSERT_NE(std::string::npos, end) << output;

    const int frameId = std::atoi(output.substr(output.find("-> ") + 3).c_str());
    ASSERT_TRUE(servers.contains(static_cast<DWORD>(frameId)));
    EXPECT_EQ("getBeanFrameID -> " + std::to_string(frameId) +
                  "\n"
                  "pushWindowHandle -> done\n"
                  "setUsedControl -> Stations;1.0.0\n"
                  "setProperty -> Set by a script\n"
                  "getProperty -> Set by a script\n"
                  "callMethod -> begun\n"
                  "callMethodCompressed -> begun\n"
                  "setLogLevel -> 2\n"
                  "displayDebugConsole -> shown\n"
                  "getBasisControlVersionInfo -> ORVANEControl 1.0.0\n"
                  "getVersionInfo -> 21.0.8\n"
                  "updateVersion -> 1.0.0\n"
                  "setBounds -> done\n"
                  "validate -> done\n"
                  "enable -> done\n"
                  "testBridge -> done\n",
              output.substr(0, begin));
    EXPECT_EQ(messagesOf(output.substr(begin + beginOfText.size(), end - begin - beginOfText.size())),
              textOfStart(buildFolder()) +
                  textOfThrowing("nonsense", "on purpose",
                                 "com.velmora.tq.kesta.control.NoSuchNameException: Stations has no method \"nonsense\"",
                                 frameId));
    EXPECT_EQ(output.size(), end + endOfText.size());
}

TEST_F(ServerTest, LateBoundCallsByNameAndMemberId)
{
    SManager manager = create();
    IDispatch* const object = manager.object;
    constexpr const wchar_t* NAMES[] = {L"callMethod",
                                        L"callMethodCompressed",
                                        L"displayDebugConsole",
                                        L"free",
                                        L"getBasisControlVersionInfo",
                                        L"getProperty",
                                        L"getVersionInfo",
                                        L"setLogLevel",
                                        L"setProperty",
                                        L"setUsedControl",
                                        L"updateVersion",
                                        L"getBeanFrameID",
                                        L"validate",
                                        L"setBounds",
                                        L"testBridge",
                                        L"enable",
                                        L"pushWindowHandle"};
    for (size_t index = 0; index < std::size(NAMES); ++index) {
        EXPECT_EQ(memberId(object, NAMES[index]), static_cast<DISPID>(index + 3));
    }
    EXPECT_EQ(memberId(object, L"noSuchMethod"), DISPID_UNKNOWN);

    const auto expect = [](const SCallResult& outcome, const std::string& answer) {
        EXPECT_EQ(outcome.result, S_OK) << outcome.description;
        EXPECT_EQ(answer, outcome.answer);
    };
    expect(call(object, 3, "echo", "Hello"), "Hello");
    expect(call(object, 4, "echo", 2, "packed"), "packed");
    expect(call(object, 7), "ORVANEControl 1.0.0");
    expect(call(object, 11, "title", "Wind"), "Wind");
    expect(call(object, 8, "title"), "Wind");
    expect(call(object, 9, "java"), "21.0.8");
    expect(call(object, 10, 1), "1");
    expect(call(object, 12, "QMRTWinControl", "1"), "TestControl;1.0.0");
    expect(call(object, 13, "2.0"), "1.0.0");
    expect(call(object, 14), std::to_string(manager.server->id()));
    expect(call(object, 15), "");
    expect(call(object, 16, 1, 2, 300, 200), "");
    expect(call(object, 17, "abc", 1, 0), "");
    expect(call(object, 18, 1), "");
    expect(call(object, 19, 0), "");
    expect(call(object, 6), "freed");
    release(manager);
}

TEST_F(ServerTest, FailingCallTellsItsWholeBacktraceOnce)
{
    SManager manager = create();
    const int frameId = manager.frameId();
    SCallResult failed = call(manager.object, 3, "throw", "on purpose");
    EXPECT_EQ(failed.result, E_FAIL);
    EXPECT_EQ(failed.source, "KESTAserver.JavaManager.1");
    EXPECT_EQ(messagesOf(failed.description),
              textOfStart(buildFolder()) +
                  textOfThrowing("throw", "on purpose", "java.lang.IllegalStateException: on purpose", frameId));

    // The text is returned once; without a message there is nothing after the colon.
    failed = call(manager.object, 3, "throwNoMessage", "");
    EXPECT_EQ(messagesOf(failed.description), textOfThrowing("throwNoMessage", "", "java.lang.IllegalStateException: ", frameId));

    // A failure without an error line has an empty text.
    failed = call(manager.object, 17, "error-x", 1, 0);
    EXPECT_EQ(failed.result, E_FAIL);
    EXPECT_EQ(failed.description, "");
    EXPECT_EQ(callMethod(manager.object, "echo", "still there"), "still there");
    release(manager);
}

TEST_F(ServerTest, NullsAndTextOutsideAsciiCrossAsTheyAlwaysDid)
{
    SManager manager = create();
    CComBSTR answer(L"before");
    EXPECT_EQ(manager->callMethod(CComBSTR(L"returnNull"), CComBSTR(L""), &answer), S_OK);
    EXPECT_EQ(answer.Length(), 0u);
    EXPECT_EQ(manager->callMethod(CComBSTR(L"echo"), nullptr, &answer), S_OK);
    EXPECT_EQ(answer.Length(), 0u);
    EXPECT_EQ(manager->getProperty(CComBSTR(L"unknown"), &answer), S_OK);
    EXPECT_EQ(answer.Length(), 0u);

    // Each byte of the text in the system's code page becomes one Java character, and comes back in the controls' own encoding.
    ASSERT_EQ(GetACP(), 1252u);
    EXPECT_EQ(manager->callMethod(CComBSTR(L"echo"), CComBSTR(L"\u00fc-\u00f6"), &answer), S_OK);
    EXPECT_STREQ(answer.m_str, L"\\u00FC-\\u00F6");
    release(manager);
}

TEST_F(ServerTest, ObjectsShowTheControlsThatTheirClientsChoose)
{
    settings.setControl("Stations", buildFolder());
    SManager first = create();
    SManager second = create();
    EXPECT_EQ(call(first.object, 3, "echo", "too early").result, E_FAIL);
    EXPECT_EQ(call(first.object, 12, "TestControl", "1.0").answer, "TestControl;1.0.0");
    EXPECT_EQ(call(second.object, 12, "Stations", "").answer, "Stations;1.0.0");
    EXPECT_EQ(call(first.object, 3, "echo", "here").answer, "here");
    EXPECT_EQ(call(second.object, 11, "rows", "Troms\\u00F8;1|Alta;2.5").answer, "Alta;2.5|Troms\\u00F8;1");
    const SCallResult foreign = call(second.object, 3, "echo", "there");
    EXPECT_NE(std::string::npos, foreign.description.find("Stations has no method \"echo\""));
    EXPECT_EQ(call(first.object, 12, "Stations", "").result, E_FAIL);
    first.object.Release();
    second.object.Release();
}

TEST_F(ServerTest, OnlyVariantTrueEnables)
{
    SManager manager = create();
    const std::string frame = "-> CBeanFrame " + std::to_string(manager.frameId()) + " setEnabled ";
    EXPECT_EQ(manager->enable(VARIANT_TRUE), S_OK);
    EXPECT_EQ(countMessages(manager.server->id(), frame + "1"), 1u);
    EXPECT_EQ(manager->enable(1), S_OK);
    EXPECT_EQ(countMessages(manager.server->id(), frame + "0"), 1u);
    EXPECT_EQ(manager->enable(VARIANT_FALSE), S_OK);
    EXPECT_EQ(countMessages(manager.server->id(), frame + "0"), 2u);
    release(manager);
}

} // namespace
} // namespace fixtures
