// The server of a user whose language is German: Windows' own texts are German, everything else is as always. Wine takes the
// language from LC_ALL, which CMakeLists.txt sets for these tests.
#include "tests/process/ServerFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace fixtures {
namespace {

using testing::Contains;

class GermanUserTest : public ServerTest
{
protected:
    void SetUp() override
    {
        char decimal[4] = {};
        GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, decimal, sizeof decimal);
        ASSERT_EQ(GetUserDefaultLCID(), 0x407u) << "start it with LC_ALL=de_DE.UTF-8";
        ASSERT_STREQ(decimal, ",");
        ASSERT_EQ(systemText(ERROR_MOD_NOT_FOUND), "Modul nicht gefunden. (0000007e)");
        ServerTest::SetUp();
    }
};

TEST_F(GermanUserTest, FindsWindowsTextsInGermanAndNothingElseChanged)
{
    // Of the two registration scripts one is marked English and the other one German.
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, "Software\\Classes\\AppID\\{9E27B6D1-3C48-4A0F-B5E2-71D4C0A96F38}"), "KESTAserver");
    EXPECT_EQ(keyText(HKEY_LOCAL_MACHINE, "Software\\Classes\\KESTAserver.JavaManager"), "KESTA Java Manager");

    settings.setPreference("logpath", folder.path());
    SManager manager = create();
    const DWORD id = manager.server->id();
    EXPECT_EQ(static_cast<int>(id), manager.frameId());
    CSink sink;
    CConnection connection(manager.object, sink);
    // The type library is found from German too.
    EXPECT_EQ(memberId(manager.object, L"callMethod"), 3);
    EXPECT_EQ(call(manager.object, 3, "echo", "1234567").answer, "1234567");
    EXPECT_EQ(manager->testBridge(ATL::CComBSTR(L"1,5"), 3, 20), S_OK);
    EXPECT_TRUE(pumpUntil([&] { return !sink.events.empty(); }));
    const SCallResult failed = call(manager.object, 3, "throw", "on purpose");
    EXPECT_EQ(failed.result, E_FAIL);
    EXPECT_THAT(messagesOf(failed.description),
                Contains("CJavaManagerJNIClient  Exception: java.lang.IllegalStateException: on purpose"));
    connection.end();
    release(manager);

    const std::vector<std::string> log = messages(id);
    const std::vector<std::string> expected = {
        "CKESTAserverModule  window message: message=32771, lParam=0, wParam=0",
        "CJavaManagerJNIClient  Unique Window ID=" + std::to_string(id),
        "CJavaManagerATLObject  CBeanFrame::s_Instance->setVisible(true): success: " + systemText(0),
        "CHelpers::setErrorModeSilent(): success: " + systemText(0),
    };
    EXPECT_THAT(log, testing::IsSupersetOf(expected));
    EXPECT_NE(systemText(0), "Success. (00000000)");
    const std::vector<std::string> file = logFileLines(id);
    EXPECT_LT(300, std::ranges::count_if(file, [](const std::string& line) { return !parseLogLine(line).level.empty(); }));
}

TEST_F(GermanUserTest, IsToldInGermanWhatWindowsRefuses)
{
    settings.setRuntime("21.0.8", folder.file("gone\\jvm.dll"));
    SManager manager = create();
    EXPECT_EQ(manager.frameId(), -1);
    release(manager);
    EXPECT_THAT(messages(manager.server->id()),
                Contains("CJavaManagerJNIClient  m_DLLHandle != NULL: failure: Modul nicht gefunden. (0000007e)"));
}

} // namespace
} // namespace fixtures
