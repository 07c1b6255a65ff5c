// The check macros: what they log and return, and that they evaluate their argument once.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#define LOG_SOURCE "loggerCheckTest"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

int s_calls = 0;

template <class T>
T counted(T value)
{
    ++s_calls;
    return value;
}

bool failWith(DWORD error)
{
    SetLastError(error);
    return counted(false);
}

class LoggerCheckTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerCheckTest() { open(LOGLEVEL_TRACE); }
    // Each of the checks with each outcome.
    static void check()
    {
        const auto returnIfFalse = [](const void* pointer) {
            RETURN_IF_FALSE(counted(pointer) != NULL, 17);
            return 4;
        };
        const auto returnIfFailed = [](HRESULT value) -> HRESULT {
            RETURN_IF_FAILED(counted(value));
            return 4;
        };
        const auto returnIfJniFailed = [](int value) {
            RETURN_IF_JNI_FAILED(counted(value), 17);
            return 4;
        };
        s_calls = 0;
        const void* const pointer = &s_calls;
        EXPECT_TRUE(LOG_CONDITION(counted(pointer) != NULL));
        EXPECT_FALSE(LOG_CONDITION(counted(pointer) == NULL));
        EXPECT_EQ(returnIfFalse(pointer), 4);
        EXPECT_EQ(returnIfFalse(nullptr), 17);
        EXPECT_EQ(LOG_HRESULT(counted(S_OK)), S_OK);
        EXPECT_EQ(LOG_HRESULT(counted(E_FAIL)), E_FAIL);
        EXPECT_EQ(returnIfFailed(S_FALSE), 4);
        EXPECT_EQ(returnIfFailed(E_FAIL), E_FAIL);
        EXPECT_EQ(LOG_HRESULT_NUMBER(counted(S_FALSE)), S_FALSE);
        EXPECT_EQ(LOG_HRESULT_NUMBER(counted(E_FAIL)), E_FAIL);
        EXPECT_TRUE(LOG_WIN32(counted(true)));
        EXPECT_FALSE(LOG_WIN32(failWith(ERROR_ACCESS_DENIED)));
        EXPECT_TRUE(LOG_WIN32_WITH(counted(true), 0));
        EXPECT_FALSE(LOG_WIN32_WITH(counted(false), ERROR_ACCESS_DENIED));
        EXPECT_EQ(returnIfJniFailed(0), 4);
        EXPECT_EQ(returnIfJniFailed(-7), 17);
        EXPECT_EQ(returnIfJniFailed(2), 17);
        EXPECT_FALSE(LOG_WIN32(CreateDirectory("Q:\\none\\none", NULL))) << "names that are macros come out as they are written";
        EXPECT_EQ(s_calls, 17) << "each argument once";
    }
    // "LEVEL text" of the checks themselves, without banners.
    std::vector<std::string> checks() const
    {
        std::vector<std::string> result;
        for (const fixtures::LogLine& line : m_stream.lines()) {
            if (line.level == "TRACE" || line.level == "ERROR") {
                result.push_back(line.level + " " + line.text());
            }
        }
        return result;
    }
};

// Making its text for the log changes the last error.
class Careless : public virtual Loggable
{
public:
    std::string getLogObjectInfo() const override
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return "careless";
    }
    bool call() { return LOG_WIN32(failWith(ERROR_ACCESS_DENIED)); }
};

} // namespace

TEST_F(LoggerCheckTest, EachLogsItsTextAndOutcomeAndGivesTheValueBackOrReturns)
{
    check();
    const std::string ok = getWindowsErrorText(0);
    const std::string failure = ": failure: " + getWindowsErrorText(0x80004005);
    const std::string denied = ": failure: " + getWindowsErrorText(ERROR_ACCESS_DENIED);
    const std::string notFound = ": failure: " + getWindowsErrorText(ERROR_PATH_NOT_FOUND);
    EXPECT_THAT(checks(),
                ElementsAre("TRACE counted(pointer) != NULL: true", "ERROR counted(pointer) == NULL: false",
                            "TRACE counted(pointer) != NULL: true", "ERROR counted(pointer) != NULL: false",
                            "TRACE counted(S_OK): success: " + ok, "ERROR counted(E_FAIL)" + failure,
                            "TRACE counted(value): success: " + getWindowsErrorText(1), "ERROR counted(value)" + failure,
                            "TRACE counted(S_FALSE): success: 1", "ERROR counted(E_FAIL): failure: -2147467259",
                            "TRACE counted(true): success", "ERROR failWith(ERROR_ACCESS_DENIED)" + denied,
                            "TRACE counted(true): success", "ERROR counted(false)" + denied, "TRACE counted(value): successfull",
                            "ERROR counted(value): Unknown error (-7)", "ERROR counted(value): Unknown error (2)",
                            "ERROR CreateDirectory(\"Q:\\\\none\\\\none\", NULL)" + notFound));
}

TEST_F(LoggerCheckTest, Win32ErrorIsTakenBeforeTheObjectIsAskedForItsText)
{
    EXPECT_FALSE(Careless().call());
    EXPECT_THAT(checks(), ElementsAre("ERROR (anonymous namespace)::Careless careless failWith(ERROR_ACCESS_DENIED): failure: " +
                                      getWindowsErrorText(ERROR_ACCESS_DENIED)));
}

TEST_F(LoggerCheckTest, ArgumentsAreEvaluatedAlsoWhenNothingIsLogged)
{
    Logger::setMaxLogLevel(-1);
    m_stream.clear();
    check();
    EXPECT_THAT(m_stream.texts(), IsEmpty());
}
