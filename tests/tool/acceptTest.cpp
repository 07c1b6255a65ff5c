// What "accept" makes of what its scenarios have seen: as predicted, and with a fault planted for each of them. Nothing is
// started.
#include "tool/Accept.h"
#include "tool/AcceptPicture.h"

#include "atl/atl.h"
#include "tests/support/places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <wincodec.h>

#include <algorithm>
#include <set>
#include <sstream>

using nlohmann::json;
using testing::HasSubstr;

namespace {

struct Case
{
    const char* id;
    const char* good;  // what is seen where the prediction holds
    const char* fault; // what is merged into that
    const char* told;  // part of what the row then says
};

constexpr const char* FIGURES = R"({"figures": [{"name": "start", "median": 2000}, {"name": "call", "median": 1},
                                   {"name": "event", "median": 2}, {"name": "round trip", "median": 2}]})";
constexpr const char* ENDED = R"({"isGone": true, "exitCode": 0, "milliseconds": 1000, "limit": 5000})";
constexpr const char* VARIABLES = R"({"hasOwn": true, "hasClients": false})";
constexpr const char* RETURNED = R"({"isAway": true, "isPainted": true, "likeness": 0.999})";
constexpr const char* FOCUS =
    R"({"java": "java1", "native": "native2", "back": "java3", "isBlinking": true, "isStillBlinking": true})";
constexpr const char* BUSY = R"({"comesBefore": true, "raised": 3, "early": 0, "came": 3, "tooLate": 0, "comesAgain": true})";
constexpr const char* NOTIFIED = R"({"all": 1, "sent": 1, "isHeard": true})";
constexpr const char* REFUSED = R"({"sent": -2147417843, "posted": 0})";
constexpr const char* CREATED = R"({"frameId": 7, "process": 7, "java": "21", "milliseconds": 900.0, "isSilent": true,
                                   "isInTaskBar": false})";

constexpr Case CASES[] = {
    {"session", R"({"session": 1, "isVisible": true})", R"({"session": 0, "isVisible": false})", "session 0, without a desktop"},
    {"registration", R"({"server": "C:\\x.exe", "faults": []})", R"({"faults": ["machine: names a file"]})", "names a file"},
    {"javaOffered", R"({"offered": ["21"], "chosen": "21", "library": "C:\\jvm.dll", "fault": "", "unseen": 1})",
     R"({"fault": "it is not there"})", "21 (it is not there)"},
    {"controls", R"({"missing": []})", R"({"missing": ["Stations"]})", "not in the folder named: Stations"},
    {"watchers", R"({"opened": 3, "since": "2026-11-22T10:00:00.000Z", "logged": []})",
     R"({"logged": ["Application Error 1000: KESTAx64.exe", "Application Hang 1002: KESTAtool.exe"]})",
     "2 events about KESTA since 2026-11-22T10:00:00.000Z, for instance Application Error 1000: KESTAx64.exe"},
    {"debugViewer", R"({"isThere": false})", R"({"isThere": true})", "one is running"},
    {"elevation", R"({"result": -2147221164})", R"({"result": 0})", "gives 0x00000000"},
    {"create", CREATED, R"({"process": 8})", "frame 7 of process 8"},
    {"taskBar", CREATED, R"({"isInTaskBar": true})", "asks for a button"},
    {"earlyBound", R"({"calls": 17, "wrong": []})", R"({"wrong": ["free: "]})",
     "16 of 17 methods answered as they should; free: "},
    {"lateBound", R"({"calls": 17, "wrong": []})", R"({"calls": 16})", "16 of 17"},
    {"script", R"({"output": "frame 7\r\njava 21\r\n"})", R"({"output": "frame -1\r\njava \r\n"})", "frame -1"},
    {"script32", R"({"output": "frame 7\r\njava 21\r\n"})", R"({"output": ""})", "printed nothing"},
    {"texts", R"({"sent": "a\\u00F8", "got": "a\\u00F8", "codePage": 1252})", R"({"got": "a?"})", "a?"},
    {"earlyError", R"({"result": -2147467259, "text": "line\nException: x\n"})", R"({"text": ""})", "without a text"},
    {"lateError", R"({"result": -2147352567, "text": "Exception: x\n"})", R"({"text": "E_FAIL"})", "names no exception"},
    {"events", R"({"bridge": "abcSJBbjs", "ready": 1, "custom": 1, "milliseconds": 2.0})", R"({"custom": 2})", "2 times"},
    {"delay", R"({"delay": 500, "milliseconds": 505.0})", R"({"milliseconds": 450.0})", "came after 450 ms"},
    {"delay", R"({"delay": 500, "milliseconds": 505.0})", R"({"milliseconds": -1})", "wanted after 500 ms, did not come"},
    {"fourThreads", R"({"sent": 8, "different": 8, "perThread": [2, 2, 2, 2]})", R"({"different": 7, "perThread": [2, 2, 2, 1]})",
     "8 raised, 7 came"},
    {"twoServers", R"({"processes": [1, 2], "titles": ["first", "second"]})", R"({"titles": ["second", "second"]})", "second"},
    {"busyClient", BUSY, R"({"came": 2})", "2 of 3 events came"},
    {"busyClient", BUSY, R"({"early": 3})", "3 of them while"},
    {"busyClient", BUSY, R"({"tooLate": 1})", "for ten seconds came"},
    {"fullQueue", R"({"result": -2147417856})", R"({"result": 0})", "0x00000000"},
    {"takeIn", R"({"isPainted": true, "width": 5, "height": 4})", R"({"isPainted": false})", "not painted"},
    {"resize", R"({"steps": [true, true, true]})", R"({"steps": [true, false, true]})", "2 of 3"},
    {"minimise", RETURNED, R"({"likeness": 0.5})", "50.0 %"},
    {"cover", RETURNED, R"({"isPainted": false})", "not painted whole"},
    {"parents", R"({"steps": [true, true]})", R"({"steps": [false, true]})", "1 of 2"},
    {"dpi", R"({"before": 0, "after": 2, "client": 2, "scale": 150})", R"({"after": 0})", "0 before and 0 after"},
    {"graphics", R"({"libraries": ["awt.dll", "gdi32.dll"]})", R"({"libraries": ["awt.dll", "d3d9.dll"]})", "loaded: d3d9.dll"},
    {"click", R"({"isHeard": true})", R"({"isHeard": false})", "no event of the button"},
    {"type", R"({"typed": "a1", "got": "a1"})", R"({"got": "a"})", "the control has \"a\""},
    {"focusWay", FOCUS, R"({"native": ""})", "the client's field \"\""},
    {"focusLost", FOCUS, R"({"isStillBlinking": false})", "Java heard of it"},
    {"keys", R"({"got": "a1", "seenByClient": 0, "leaves": 1})", R"({"seenByClient": 2})", "the client saw 2"},
    {"parentNotify", NOTIFIED, R"({"sent": 0})", "0 of them sent"},
    {"sentMessage", REFUSED, R"({"sent": 0})", "inside the sent message 0x00000000"},
    {"focusMessage", REFUSED, R"({"posted": -2147417843})", "afterwards 0x8001010D"},
    {"clickBeforeUse", R"({"isOtherInFront": true, "isStillInFront": true})", R"({"isStillInFront": false})", "to the front"},
    {"figures", FIGURES, R"({"figures": [{"name": "start", "median": 2000}, {"name": "call", "median": 90},
                             {"name": "event", "median": 2}, {"name": "round trip", "median": 2}]})",
     "call 90.0 ms"},
    {"currentFolder", R"({"folder": "C:\\Windows\\System32\\", "system": "C:\\WINDOWS\\system32"})", R"({"folder": "C:\\"})",
     "C:"},
    {"variables", VARIABLES, R"({"hasClients": true})", "a variable of the client reaches the server"},
    {"cleanEnd", ENDED, R"({"milliseconds": 7000})", "gone after 7.0 s"},
    {"cycles", R"({"cycles": 5, "good": 5, "milliseconds": 900.0})", R"({"good": 4})", "4 of 5"},
    {"cycles", R"({"cycles": 5, "good": 5, "milliseconds": 900.0})", R"({"milliseconds": 13000.0})", "slowest after 13.0 s"},
    {"destroyedPane", ENDED, R"({"exitCode": 1})", "exit code 1"},
    {"deadClient", ENDED, R"({"isGone": false})", "still there"},
    {"deadClientEarly", ENDED, R"({"isGone": false})", "still there"},
    {"deadServer", R"({"result": -2147023174, "milliseconds": 1.0, "isFrameGone": true})", R"({"milliseconds": 30000.0})",
     "after 30000 ms"},
};

// What is seen where the scenario did not come to its point.
constexpr Case UNDECIDED[] = {
    {"elevation", R"({"result": -2147221164})", R"({"result": -2147024891})", "gives 0x80070005"},
    {"earlyError", R"({"result": -2147467259, "text": "line\nException: x\n"})", R"({"result": 0})", "did not fail"},
    {"lateError", R"({"result": -2147352567, "text": "Exception: x\n"})", R"({"result": 0})", "did not fail"},
    {"busyClient", BUSY, R"({"comesBefore": false, "came": 0})", "no event came even before"},
    {"fullQueue", R"({"result": -2147417856})", R"({"result": -2147483638})", "no call could be made"},
    {"minimise", RETURNED, R"({"isAway": false})", "visible all the time"},
    {"cover", RETURNED, R"({"isAway": false, "likeness": 1.0})", "visible all the time"},
    {"dpi", R"({"before": 0, "after": 2, "client": 2, "scale": 150})", R"({"before": -1})", "does not tell"},
    {"graphics", R"({"libraries": ["awt.dll", "gdi32.dll"]})", R"({"libraries": ["gdi32.dll"]})", "were not found"},
    {"focusLost", FOCUS, R"({"isBlinking": false, "isStillBlinking": false})", "does not blink even with the focus"},
    {"focusLost", FOCUS, R"({"native": "", "isStillBlinking": true})", "did not go into the frame and out again"},
    {"focusLost", FOCUS, R"({"java": "", "isStillBlinking": true})", "did not go into the frame and out again"},
    {"keys", R"({"got": "a1", "seenByClient": 0, "leaves": 1})", R"({"got": ""})", "did not come into the frame"},
    {"keys", R"({"got": "a1", "seenByClient": 0, "leaves": 1})", R"({"leaves": 0})", "Java did nothing with them"},
    {"parentNotify", NOTIFIED, R"({"all": 0, "sent": 0, "isHeard": false})", "does not report the click"},
    {"sentMessage", REFUSED, R"({"sent": -2147483638})", "the handler was never called"},
    {"sentMessage", REFUSED, R"({"posted": -2147483638})", "no call works: afterwards 0x8000000A"},
    {"focusMessage", REFUSED, R"({"sent": -2147483638})", "the handler was never called"},
    {"focusMessage", REFUSED, R"({"sent": -2147023174, "posted": -2147023174})", "no call works: afterwards 0x800706BA"},
    {"variables", VARIABLES, R"({"hasOwn": false})", "were not found"},
    {"clickBeforeUse", R"({"isOtherInFront": true, "isStillInFront": true})", R"({"isOtherInFront": false})",
     "did not bring a window of the client to the front"},
};

// The contract of the type library, as Windows would read it.
json goodLibrary()
{
    const char* const names[] = {"callMethod",
                                 "callMethodCompressed",
                                 "displayDebugConsole",
                                 "free",
                                 "getBasisControlVersionInfo",
                                 "getProperty",
                                 "getVersionInfo",
                                 "setLogLevel",
                                 "setProperty",
                                 "setUsedControl",
                                 "updateVersion",
                                 "getBeanFrameID",
                                 "validate",
                                 "setBounds",
                                 "testBridge",
                                 "enable",
                                 "pushWindowHandle"};
    json methods = json::array();
    int number = 0;
    for (const char* const name : names) {
        methods.push_back(std::string(name) + " " + std::to_string(3 + number) + " " + std::to_string(56 + 8 * number));
        ++number;
    }
    return {{"loaded", 0}, {"methods", methods}, {"events", {"testBridgeEvent 2 0", "controlReady 3 0", "customEvent 4 0"}}};
}

Scenario scenario(const std::string& id)
{
    const std::vector<Scenario> all = acceptScenarios();
    return *std::ranges::find(all, id, &Scenario::id);
}

void expectJudgements(const Scenario& tried, const json& good, const json& faulty, const std::string& told)
{
    SCOPED_TRACE(tried.id);
    for (const bool isWine : {false, true}) {
        EXPECT_EQ(judgeAnswer(tried, {{"seen", good}}, "", isWine).state, RowState::Confirmed);
        const Judgement judgement = judgeAnswer(tried, {{"seen", faulty}}, "", isWine);
        EXPECT_EQ(judgement.state, isWine && tried.wine != nullptr ? RowState::NotApplicable : RowState::Refuted);
        EXPECT_THAT(judgement.detail, HasSubstr(told));
    }
}

TEST(AcceptTest, EveryRowIsConfirmedAsPredictedAndRedWithAFault)
{
    std::set<std::string> tried = {"typeLibrary"};
    for (const Case& each : CASES) {
        const json good = json::parse(each.good);
        json faulty = good;
        faulty.update(json::parse(each.fault));
        expectJudgements(scenario(each.id), good, faulty, each.told);
        tried.insert(each.id);
    }
    for (const Scenario& each : acceptScenarios()) {
        EXPECT_TRUE(tried.contains(each.id) || each.observe == nullptr) << each.id << " has no planted fault";
        EXPECT_NE(each.observe == nullptr, each.byHand == nullptr) << each.id;
        EXPECT_TRUE(each.observe == nullptr || *each.remedy != '\0') << each.id << " does not say what to do";
    }
}

TEST(AcceptTest, NothingIsRefutedOrConfirmedThatWasNotSeen)
{
    for (const Case& each : UNDECIDED) {
        SCOPED_TRACE(each.id);
        json seen = json::parse(each.good);
        seen.update(json::parse(each.fault));
        for (const bool isWine : {false, true}) {
            const Judgement judgement = judgeAnswer(scenario(each.id), {{"seen", seen}}, "", isWine);
            EXPECT_EQ(judgement.state, RowState::Failed);
            EXPECT_THAT(judgement.detail, HasSubstr(each.told));
        }
    }
}

TEST(AcceptTest, WineExcusesAServerThatStaysWithoutItsClientAndNoneThatEndsBadly)
{
    const Scenario early = scenario("deadClientEarly");
    json seen = json::parse(ENDED);
    seen["isGone"] = false;
    EXPECT_EQ(judgeAnswer(early, {{"seen", seen}}, "", true).state, RowState::NotApplicable);
    seen = json::parse(ENDED);
    seen["exitCode"] = 5;
    const Judgement judgement = judgeAnswer(early, {{"seen", seen}}, "", true);
    EXPECT_EQ(judgement.state, RowState::Refuted);
    EXPECT_EQ(judgement.detail, "gone after 1.0 s with exit code 5");
}

TEST(AcceptTest, WatchersAreAskedWhenAllOthersHaveRun)
{
    std::vector<Scenario> observed = acceptScenarios();
    std::erase_if(observed, [](const Scenario& each) { return each.observe == nullptr; });
    EXPECT_STREQ(observed.back().id, "watchers");
}

TEST(AcceptTest, EventOfALogIsToldInOneLine)
{
    EXPECT_EQ(eventLine("<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><Provider "
                        "Name='Application Error' Guid='{a0e9b465}'/><EventID Qualifiers='0'>1000</EventID><Level>2</Level>"
                        "<EventRecordID>77</EventRecordID></System><EventData><Data Name='AppName'>KESTAx64.exe</Data>"
                        "<Data Name='Empty'></Data><Data>jvm.dll</Data><Data Name='ExceptionCode'>c0000005</Data></EventData>"
                        "</Event>"),
              "Application Error 1000: KESTAx64.exe, jvm.dll, c0000005");
    EXPECT_EQ(eventLine("<Event><System><Provider Name=\"X\"/><EventID>3077</EventID></System></Event>"), "X 3077");
}

TEST(AcceptTest, TypeLibraryIsComparedWhole)
{
    for (const char* const part : {"methods", "events"}) {
        for (size_t index = 0; index < goodLibrary()[part].size(); ++index) {
            json faulty = goodLibrary();
            faulty[part][index] = "other 99 0";
            expectJudgements(scenario("typeLibrary"), goodLibrary(), faulty, "not those of the contract");
        }
    }
    json missing = goodLibrary();
    missing["loaded"] = static_cast<int>(TYPE_E_CANTLOADLIBRARY);
    expectJudgements(scenario("typeLibrary"), goodLibrary(), missing, "does not load: 0x80029C4A");
}

TEST(AcceptTest, ScenarioWithoutObservationSaysWhy)
{
    const Scenario click = scenario("click");
    Judgement judgement = judgeAnswer(click, {{"notHere", "no mouse"}}, "", false);
    EXPECT_EQ(judgement.state, RowState::NotApplicable);
    EXPECT_EQ(judgement.detail, "no mouse");
    judgement = judgeAnswer(click, {{"failed", "no frame"}}, "", true);
    EXPECT_EQ(judgement.state, RowState::Failed);
    EXPECT_EQ(judgement.detail, "no frame");
    judgement = judgeAnswer(click, nullptr, "it had not come back after 90 s", true);
    EXPECT_EQ(judgement.state, RowState::Failed);
    EXPECT_EQ(judgement.detail, "it had not come back after 90 s");
}

TEST(AcceptTest, NamesAreUniqueAndLimitsAreSet)
{
    std::set<std::string> ids;
    for (const Scenario& each : acceptScenarios()) {
        EXPECT_TRUE(ids.insert(each.id).second) << each.id;
        EXPECT_TRUE(each.observe == nullptr || (each.limit >= 20000 && each.limit <= 1800000)) << each.id;
    }
    EXPECT_THROW(
        {
            std::ostringstream progress;
            runAcceptance({.page = "x", .only = {"none"}}, progress);
        },
        std::runtime_error);
}

TEST(AcceptTest, PageThatCannotBeWrittenIsToldBeforeTheFirstScenario)
{
    const fixtures::TemporaryFolder folder;
    std::ostringstream progress;
    EXPECT_THROW(runAcceptance({.page = folder.path("none\\result.html"), .only = {"modalDialog"}}, progress),
                 std::runtime_error);
    EXPECT_EQ(progress.str(), "");
}

// Opens a file for itself alone as soon as there is progress.
class LockingBuffer : public std::stringbuf
{
public:
    explicit LockingBuffer(std::string file)
        : m_file(std::move(file))
    {
    }

protected:
    int sync() override
    {
        if (m_lock == nullptr) {
            m_lock.Attach(CreateFileA(m_file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        }
        return 0;
    }

private:
    std::string m_file;
    ATL::CHandle m_lock;
};

TEST(AcceptTest, ResultIsThereWhenThePageCannotBeWrittenAtTheEnd)
{
    const fixtures::TemporaryFolder folder;
    const std::string page = folder.path("result.html");
    LockingBuffer buffer(page);
    std::ostream progress(&buffer);
    const AcceptResult result = runAcceptance({.page = page, .only = {"modalDialog"}}, progress);
    EXPECT_EQ(result.details["scenarios"].size(), 1u);
    const auto fault = std::ranges::find(result.findings.rows(), page, &Row::subject);
    ASSERT_NE(fault, result.findings.rows().end());
    EXPECT_EQ(fault->verdict, Verdict::Fault);
    EXPECT_EQ(fault->state, "could not be written");
}

TEST(AcceptTest, PageNeedsNoNetworkAndNoTextEndsItsScript)
{
    const std::string page = acceptPage({{"scenarios", {{{"detail", "</script>"}}}}});
    const size_t begin = page.find("const data = ") + 13;
    const std::string text = page.substr(begin, page.find(";\n", begin) - begin);
    EXPECT_EQ(text.find("</"), std::string::npos);
    EXPECT_EQ(json::parse(text)["scenarios"][0]["detail"], "</script>");
    for (const char* const network : {"http:", "https:", "src=", "@import"}) {
        EXPECT_EQ(page.find(network), std::string::npos) << network;
    }
}

constexpr uint32_t RED = 0xFF0000;
constexpr uint32_t MARKER = 0xFF00FF;

// A picture of a hundred pixels with so many different ones at its begin; the rest is white.
CAcceptPicture pictureWith(std::vector<uint32_t> first)
{
    first.resize(100, 0xFFFFFF);
    return {10, 10, first};
}

TEST(AcceptPictureTest, IsPaintedWithSeveralColoursAndHardlyAnyHole)
{
    EXPECT_TRUE(pictureWith({1, 2, 3}).isPainted());
    EXPECT_FALSE(pictureWith({1, 2}).isPainted()) << "hardly any colours";
    EXPECT_TRUE(pictureWith({1, 2, 3, 0, 0, 0, MARKER, MARKER}).isPainted());
    EXPECT_FALSE(pictureWith({1, 2, 3, 0, 0, 0, MARKER, MARKER, MARKER}).isPainted()) << "six holes";
    EXPECT_FALSE(pictureWith({1, 2, 3}).isPainted({20, 20, 30, 30})) << "outside";
    EXPECT_FALSE(pictureWith({1, 2, 3}).isPainted({0, 5, 10, 10})) << "one colour there";
}

TEST(AcceptPictureTest, LikenessIsTheShareOfEqualPixels)
{
    EXPECT_EQ(pictureWith({1, 2}).likeness(pictureWith({1, 2})), 1.0);
    EXPECT_EQ(pictureWith({1, 2}).likeness(pictureWith({1, 3})), 0.99);
    EXPECT_EQ(pictureWith({}).likeness(CAcceptPicture(50, 2, std::vector<uint32_t>(100, 0xFFFFFF))), 0.0);
}

TEST(AcceptPictureTest, PngIsReadBackAsItWas)
{
    CoInitialize(nullptr);
    {
        const std::string text = pictureWith({RED, 0x00FF00, 0x0000FF}).png();
        std::string bytes;
        uint32_t group = 0;
        int bits = 0;
        const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (const char letter : text.substr(0, text.find('='))) {
            group = group << 6 | static_cast<uint32_t>(letters.find(letter));
            bits += 6;
            if (bits >= 8) {
                bits -= 8;
                bytes += static_cast<char>(group >> bits & 0xFF);
            }
        }
        ATL::CComPtr<IWICImagingFactory> factory;
        ATL::CComPtr<IWICStream> stream;
        ATL::CComPtr<IWICBitmapDecoder> decoder;
        ATL::CComPtr<IWICBitmapFrameDecode> frame;
        ATL::CComPtr<IWICBitmapSource> pixels;
        ASSERT_EQ(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                   reinterpret_cast<void**>(&factory)),
                  S_OK);
        ASSERT_EQ(factory->CreateStream(&stream), S_OK);
        ASSERT_EQ(stream->InitializeFromMemory(reinterpret_cast<BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size())), S_OK);
        ASSERT_EQ(factory->CreateDecoderFromStream(stream, nullptr, WICDecodeMetadataCacheOnLoad, &decoder), S_OK);
        ASSERT_EQ(decoder->GetFrame(0, &frame), S_OK);
        ASSERT_EQ(WICConvertBitmapSource(GUID_WICPixelFormat32bppBGR, frame, &pixels), S_OK);
        std::vector<uint32_t> read(100);
        ASSERT_EQ(pixels->CopyPixels(nullptr, 40, 400, reinterpret_cast<BYTE*>(read.data())), S_OK);
        std::ranges::for_each(read, [](uint32_t& pixel) { pixel &= 0xFFFFFF; });
        EXPECT_EQ(CAcceptPicture(10, 10, read).likeness(pictureWith({RED, 0x00FF00, 0x0000FF})), 1.0);
    }
    CoUninitialize();
}

} // namespace
