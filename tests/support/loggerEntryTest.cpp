// What the macros for statements and scopes write: texts, objects and levels.
#include "tests/support/fixtures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <type_traits>

#define LOG_SOURCE "loggerEntryTest"

using fixtures::BEGIN_BANNER;
using fixtures::END_BANNER;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LoggerEntryTest : public fixtures::LoggerWorldTest
{
protected:
    LoggerEntryTest() { open(LOGLEVEL_FINE); }
};

class Control : public virtual Loggable
{
public:
    explicit Control(std::string info)
        : m_info(std::move(info))
    {
        LOG_SCOPE(INFO, "Control::Control", m_info);
    }
    std::string getLogObjectInfo() const override { return m_info; }
    void rename(const char* info)
    {
        LOG_SCOPE(FINE, "Control::rename", info << ", " << 2);
        LOG(FINE, "before");
        m_info = info;
        LOG(FINE, "after");
        LOG_PLAIN(FINE, "on nobody's behalf");
        helper();
    }
    static void helper()
    {
        LOG_SCOPE_STATIC(INFO, "Control::helper");
        LOG(FINE, "on nobody's behalf");
    }

private:
    std::string m_info;
};

class Derived : public Control
{
public:
    using Control::Control;
};

template <class Function>
size_t slotOf(Function function)
{
    // A pointer to a virtual member function is one more than the offset in the table.
    size_t offset = 0;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

} // namespace

TEST_F(LoggerEntryTest, LinesCarryTheObjectThatLogsAndItsTextOfThatMoment)
{
    const std::string control = "(anonymous namespace)::Control ";
    const std::string derived = "(anonymous namespace)::Derived ";
    Derived object("old");
    object.rename("new");
    EXPECT_THAT(m_stream.said(),
                ElementsAre("INFO|-> " + control + "old Control old", "INFO|<- " + control + "old Control old",
                            "FINE|-> " + derived + "old rename new, 2", "FINE|    " + derived + "old before",
                            "FINE|    " + derived + "new after", "FINE|    on nobody's behalf", "INFO| -> helper ",
                            "FINE|     on nobody's behalf", "INFO| <- helper ", "FINE|<- " + derived + "old rename new, 2"))
        << "a constructor's object is of the class that it has become so far";
    EXPECT_EQ(object.getLogClassName(), Derived("other").getLogClassName()) << "one text a type";
}

TEST_F(LoggerEntryTest, BacktraceDoesNotTouchAnObjectThatIsGone)
{
    auto control = std::make_unique<Control>("short-lived");
    m_stream.clear();
    {
        const LogScope scope({LOG_SOURCE, __LINE__, control.get()}, LOGLEVEL_FINE);
        control.reset();
        LOG_PLAIN(ERROR, "after its end");
    }
    const std::string name = "(anonymous namespace)::Control short-lived ";
    EXPECT_THAT(m_stream.said(),
                ElementsAre(BEGIN_BANNER, "ERROR|    after its end", "FINE|-> " + name, END_BANNER, "FINE|<- " + name));
}

TEST_F(LoggerEntryTest, ObjectsOfferTheirVirtualOperationsInOrder)
{
    EXPECT_EQ(slotOf(&Loggable::getLogClassName), 0u);
    EXPECT_EQ(slotOf(&Loggable::getLogObjectInfo), 1u);
    EXPECT_EQ(slotOf(&Loggable::isLogEnabled), 2u);
    EXPECT_TRUE(std::has_virtual_destructor_v<Loggable>);
    EXPECT_STREQ(Loggable().getLogClassName(), "Loggable");
    EXPECT_EQ(Loggable().getLogObjectInfo(), "");
}

TEST_F(LoggerEntryTest, TextsAreStreamedAsTheyStand)
{
    const char* none = nullptr;
    char* alsoNone = nullptr;
    const wchar_t* wideNone = nullptr;
    wchar_t umlaut[] = {0xE4, 0};
    LOG_PLAIN(WARN, "a" << none << "b" << alsoNone << "c" << wideNone << "d");
    LOG_PLAIN(WARN, L"wide " << umlaut << std::string(" string"));
    LOG_PLAIN(WARN, std::hex << 255 << " " << std::dec << 255 << " " << HRESULT(-2147467259) << " " << 'c' << " " << 4294967295u);
    EXPECT_THAT(m_stream.said(),
                ElementsAre("WARN|   abcd", "WARN|   wide \xE4 string", "WARN|   ff 255 -2147467259 c 4294967295"));
}

TEST_F(LoggerEntryTest, ScopesNameIsWhatStandsAfterTheFirstColons)
{
    {
        LOG_SCOPE_STATIC(FINE, "A::B::c", "p");
    }
    {
        LOG_SCOPE_STATIC(FINE, "plain");
    }
    EXPECT_THAT(m_stream.said(), ElementsAre("FINE|-> B::c p", "FINE|<- B::c p", "FINE|-> plain ", "FINE|<- plain "));
}

TEST_F(LoggerEntryTest, LevelDecidesWhatIsOnWhateverTheFileAndTheLine)
{
    for (int level = LOGLEVEL_ALWAYS; level <= LOGLEVEL_TRACE; ++level) {
        open(level);
        for (int statement = LOGLEVEL_ALWAYS; statement <= LOGLEVEL_TRACE; ++statement) {
            for (const char* file : {static_cast<const char*>(nullptr), "logger"}) {
                EXPECT_EQ(isLogEnabled(file, statement - 3, statement), statement <= level);
                EXPECT_EQ(Loggable().isLogEnabled(file, statement - 3, statement), statement <= level);
            }
        }
    }
}

TEST_F(LoggerEntryTest, WhatIsOffEvaluatesNothing)
{
    open(LOGLEVEL_WARN);
    const auto fail = []() -> const char* {
        ADD_FAILURE() << "evaluated";
        return "";
    };
    LOG_SCOPE_STATIC(FINE, "Sample::quiet", fail());
    LOG(INFO, fail());
    LOG(TRACE, fail());
    LOG_PLAIN(FINE, fail());
    EXPECT_THAT(m_stream.said(), IsEmpty());
}

TEST(LoggerTextsTest, LevelThatNobodyUsesIsInvalid)
{
    EXPECT_STREQ(getLogLevelName(LOGLEVEL_TRACE + 1), "(invalid)");
}

TEST(LoggerTextsTest, ResultsOfTheInvocationInterfaceHaveTheirNames)
{
    std::vector<std::string> names;
    for (int code = 1; code >= -7; --code) {
        names.push_back(getJNIErrorName(code));
    }
    EXPECT_THAT(names, ElementsAre("Unknown error (1)", "successfull", "JNI_ERR", "JNI_EDETACHED", "JNI_EVERSION", "JNI_ENOMEN",
                                   "JNI_EEXIST", "JNI_EINVAL", "Unknown error (-7)"));
}
