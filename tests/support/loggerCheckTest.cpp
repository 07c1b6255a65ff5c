// The check macros: what they log, what they give back, and that they evaluate their argument once.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerCheckTest"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LoggerCheckTest : public testing::Test
{
protected:
    LoggerCheckTest()
    {
        m_world.setPreference("loglevel", LOGLEVEL_TRACE);
        m_world.start();
        m_stream.clear();
    }
    // The lines of the checks themselves: neither scopes nor backtraces nor the system information.
    std::vector<std::string> checks()
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            if (line.source.starts_with(LOG_SOURCE) && (line.level == "TRACE" || line.level == "ERROR")) {
                result.push_back(line.level + " " + line.text());
            }
        }
        m_stream.clear();
        return result;
    }

    fixtures::LoggerWorld m_world;
    fixtures::DebugStream m_stream;
};

int s_calls = 0;

template <class T>
T counted(T value)
{
    ++s_calls;
    return value;
}

int callsSince()
{
    const int calls = s_calls;
    s_calls = 0;
    return calls;
}

int returningCondition(bool value)
{
    LOG_SCOPE_STATIC(FINE, "returningCondition");
    RETURN_IF_FALSE(counted(value), 17);
    return 4;
}

HRESULT returningHresult(HRESULT value)
{
    LOG_SCOPE_STATIC(FINE, "returningHresult");
    RETURN_IF_FAILED(counted(value));
    return 4;
}

int returningJni(int value)
{
    LOG_SCOPE_STATIC(FINE, "returningJni");
    RETURN_IF_JNI_FAILED(counted(value), 17);
    return 4;
}

bool failWith(DWORD error)
{
    SetLastError(error);
    return counted(false);
}

const std::string SUCCESS = getWindowsErrorText(0);
const std::string FAILURE = getWindowsErrorText(0x80004005);
const std::string DENIED = getWindowsErrorText(ERROR_ACCESS_DENIED);

} // namespace

TEST_F(LoggerCheckTest, Condition)
{
    LOG_SCOPE_STATIC(FINE, "condition");
    void* pointer = nullptr;
    EXPECT_TRUE(LOG_CONDITION(counted(pointer) == NULL));
    EXPECT_EQ(callsSince(), 1);
    EXPECT_FALSE(LOG_CONDITION(counted(pointer) != NULL));
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(pointer) == NULL: true", "ERROR counted(pointer) != NULL: false"));
}

TEST_F(LoggerCheckTest, ConditionThatReturns)
{
    EXPECT_EQ(returningCondition(true), 4);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(returningCondition(false), 17);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(value): true", "ERROR counted(value): false"));
}

TEST_F(LoggerCheckTest, Hresult)
{
    LOG_SCOPE_STATIC(FINE, "hresult");
    EXPECT_EQ(LOG_HRESULT(counted(S_OK)), S_OK);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(LOG_HRESULT(counted(E_FAIL)), E_FAIL);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(S_OK): success: " + SUCCESS, "ERROR counted(E_FAIL): failure: " + FAILURE));
}

TEST_F(LoggerCheckTest, HresultThatReturns)
{
    EXPECT_EQ(returningHresult(S_FALSE), 4);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(returningHresult(E_FAIL), E_FAIL);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(value): success: " + getWindowsErrorText(1),
                                      "ERROR counted(value): failure: " + FAILURE));
}

TEST_F(LoggerCheckTest, HresultInDecimal)
{
    LOG_SCOPE_STATIC(FINE, "hresultInDecimal");
    EXPECT_EQ(LOG_HRESULT_NUMBER(counted(S_FALSE)), S_FALSE);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(LOG_HRESULT_NUMBER(counted(E_FAIL)), E_FAIL);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(S_FALSE): success: 1", "ERROR counted(E_FAIL): failure: -2147467259"));
}

TEST_F(LoggerCheckTest, Win32CallTellsTheErrorThatTheCallLeft)
{
    LOG_SCOPE_STATIC(FINE, "win32");
    EXPECT_TRUE(LOG_WIN32(counted(true)));
    EXPECT_EQ(callsSince(), 1);
    EXPECT_FALSE(LOG_WIN32(failWith(ERROR_ACCESS_DENIED)));
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(true): success", "ERROR failWith(ERROR_ACCESS_DENIED): failure: " + DENIED));
}

TEST_F(LoggerCheckTest, Win32CallWithSavedError)
{
    LOG_SCOPE_STATIC(FINE, "win32Code");
    EXPECT_TRUE(LOG_WIN32_WITH(counted(true), 0));
    EXPECT_EQ(callsSince(), 1);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(LOG_WIN32_WITH(counted(false), ERROR_ACCESS_DENIED));
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(true): success", "ERROR counted(false): failure: " + DENIED));
}

namespace {
// Its text for the log is made with calls that leave an error of their own.
class Careless : public virtual Loggable
{
public:
    std::string getLogObjectInfo() const override
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return "careless";
    }
    bool call()
    {
        LOG_SCOPE(FINE, "Careless::call");
        return LOG_WIN32(failWith(ERROR_ACCESS_DENIED));
    }
};
} // namespace

TEST_F(LoggerCheckTest, Win32ErrorIsTakenBeforeTheObjectIsAskedForItsText)
{
    EXPECT_FALSE(Careless().call());
    EXPECT_THAT(checks(),
                ElementsAre("ERROR (anonymous namespace)::Careless careless failWith(ERROR_ACCESS_DENIED): failure: " + DENIED));
    callsSince();
}

TEST_F(LoggerCheckTest, JniResult)
{
    LOG_SCOPE_STATIC(FINE, "jniResult");
    EXPECT_EQ(returningJni(0), 4);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(returningJni(-7), 17);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_EQ(returningJni(2), 17);
    EXPECT_EQ(callsSince(), 1);
    EXPECT_THAT(checks(), ElementsAre("TRACE counted(value): successfull", "ERROR counted(value): Unknown error (-7)",
                                      "ERROR counted(value): Unknown error (2)"));
}

TEST_F(LoggerCheckTest, NamesThatAreMacrosAreLoggedAsTheyAreWritten)
{
    LOG_SCOPE_STATIC(FINE, "names");
    EXPECT_FALSE(LOG_WIN32(CreateDirectory("Q:\\none\\none", NULL)));
    const std::string expected = getWindowsErrorText(ERROR_PATH_NOT_FOUND);
    EXPECT_THAT(checks(), ElementsAre("ERROR CreateDirectory(\"Q:\\\\none\\\\none\", NULL): failure: " + expected));
}

TEST_F(LoggerCheckTest, ArgumentsAreEvaluatedAlsoWhenNothingIsLogged)
{
    LOG_SCOPE_STATIC(FINE, "silent");
    Logger::setMaxLogLevel(-1);
    m_stream.clear();
    EXPECT_TRUE(LOG_CONDITION(counted(true)));
    EXPECT_EQ(LOG_HRESULT(counted(E_FAIL)), E_FAIL);
    EXPECT_EQ(LOG_HRESULT_NUMBER(counted(E_FAIL)), E_FAIL);
    EXPECT_FALSE(LOG_WIN32(counted(false)));
    EXPECT_FALSE(LOG_WIN32_WITH(counted(false), 5));
    EXPECT_EQ(callsSince(), 5);
    EXPECT_THAT(m_stream.texts(), IsEmpty());
}
