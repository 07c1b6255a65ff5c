// Creation and end of the COM object, its class and its interfaces.
#include "tests/com/ComWorld.h"

#include "tests/support/FailingAllocations.h"
#include "tests/support/ImportHook.h"

#include <gmock/gmock.h>

#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;

class JavaManagerConstructionTest : public ComWorld
{
protected:
    std::vector<std::string> objectLines() const { return lines({"JavaManagerATLObject"}); }
};

TEST_F(JavaManagerConstructionTest, FirstObjectStartsTheBeanFrameAndShowsIt)
{
    EXPECT_EQ(eventTarget(), nullptr);
    CComPtr<Object> object = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, object.p);
    const std::string file = "@object doesFileExist " + basisControl;
    EXPECT_THAT(objectLines(),
                ElementsAre("INFO -> @object CJavaManagerATLObject ", "TRACE @object s_Instance == NULL: true", "FINE -> " + file,
                            "FINE <- " + file, "FINE @object Basiscontrol path: " + basisControl, "FINE -> " + file,
                            "FINE <- " + file, "TRACE @object doesFileExist(basiscontrol): true",
                            "TRACE @object CBeanFrame::s_Instance->setVisible(true): success: " + getWindowsErrorText(0),
                            "TRACE @object CHECKPOINT: Successfully created ATL object.",
                            "INFO <- @object CJavaManagerATLObject ", "INFO -> @object FinalConstruct ",
                            "INFO <- @object FinalConstruct "));
    EXPECT_EQ(lines({"BeanFrame"}).front(),
              "INFO -> createInstance " + basisControl + ",com.orvane.tech.client.qmrt.win,QMRTWinControl");
    EXPECT_EQ(java.takeMethodCalls().back(), "CallVoidMethod(KESTAFrame, setVisible, true)");
}

TEST_F(JavaManagerConstructionTest, FrameThatCannotBeShownIsStillCreated)
{
    java.jni.outcomes["setVisible"] = RecordingJni::throws("java.awt.HeadlessException", "no display");
    CComPtr<Object> object = create();
    EXPECT_NE(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(objectLines(), "setVisible"),
                ElementsAre("ERROR @object CBeanFrame::s_Instance->setVisible(true): failure: " +
                            getWindowsErrorText(static_cast<unsigned>(E_FAIL))));
    EXPECT_THAT(linesWith(objectLines(), "CHECKPOINT"),
                ElementsAre("TRACE @object CHECKPOINT: Successfully created ATL object."));
}

TEST_F(JavaManagerConstructionTest, ObjectWithoutBeanFrameIsCreatedAllTheSame)
{
    CComPtr<Object> object;
    {
        const FailingAllocations memory(FailingAllocations::Kind::NothrowObjects);
        object = create();
    }
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(objectLines(), "ERROR"), ElementsAre("ERROR @object Failed to create ATL object."));
    EXPECT_THAT(linesWith(objectLines(), "CHECKPOINT"), IsEmpty());
    EXPECT_EQ(frameId(object), -1);
    stream.clear();
    object.Release();
    EXPECT_THAT(linesWith(objectLines(), "NULL"), ElementsAre("ERROR @object CBeanFrame::s_Instance!=NULL: false"));
}

TEST_F(JavaManagerConstructionTest, ExceptionOnTheJavaSideLeavesAFrameThatFails)
{
    java.insideMethods = [] { AtlThrow(E_ACCESSDENIED); };
    const CComPtr<Object> object = create();
    java.insideMethods = nullptr;
    EXPECT_NE(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(objectLines(), "ERROR"),
                ElementsAre("ERROR @object CBeanFrame::s_Instance->setVisible(true): failure: Access denied. (80070005)"));
}

// There is not even memory for a log line.
TEST_F(JavaManagerConstructionTest, ObjectIsCreatedWhenMemoryRunsOutOnTheWay)
{
    using OpenHook = ImportHook<decltype(&RegOpenKeyExA)>;
    static std::optional<FailingAllocations> s_failing;
    CComPtr<Object> object;
    {
        const ImportHook<decltype(&OutputDebugStringA)> silence("OutputDebugStringA", [](LPCSTR) {});
        const OpenHook exhaust("RegOpenKeyExA", [](HKEY root, LPCSTR path, DWORD options, REGSAM access, HKEY* key) {
            s_failing.emplace(FailingAllocations::Kind::All);
            return OpenHook::s_original(root, path, options, access, key);
        });
        object = create();
        s_failing.reset();
    }
    EXPECT_GT(FailingAllocations::refused(), 0);
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, object.p);
    EXPECT_EQ(frameId(object), -1);
}

TEST_F(JavaManagerConstructionTest, SecondObjectCreatesNoFrameAndForwardsToTheFirstsOne)
{
    CComPtr<Object> first = create();
    CBeanFrame* const frame = CBeanFrame::s_Instance;
    java.jni.takeCalls();
    stream.clear();
    CComPtr<Object> second = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, first.p);
    EXPECT_EQ(CBeanFrame::s_Instance, frame);
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
    EXPECT_THAT(lines(), ElementsAre("INFO -> @object CJavaManagerATLObject ", fixtures::BEGIN_BANNER,
                                     "ERROR @object s_Instance == NULL: false", "INFO -> @object CJavaManagerATLObject ",
                                     fixtures::END_BANNER, "INFO <- @object CJavaManagerATLObject ",
                                     "INFO -> @object FinalConstruct ", "INFO <- @object FinalConstruct "));

    EXPECT_EQ(frameId(second), static_cast<int>(GetCurrentProcessId()));
    CComBSTR result;
    EXPECT_EQ(second->free(&result), S_OK);
    EXPECT_STREQ(result.m_str, L"answer of free");
    EXPECT_EQ(second->validate(), S_OK);

    // The end of any object ends the frame.
    second.Release();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(frameId(first), -1);
}

TEST_F(JavaManagerConstructionTest, EndedObjectIsNeverReplaced)
{
    CComPtr<Object> first = create();
    const CJavaManagerATLObject* const address = first.p;
    first.Release();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, address);
    const CComPtr<Object> second = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, address);
    EXPECT_EQ(frameId(second), -1);
}

TEST_F(JavaManagerConstructionTest, EndRunsFinalReleaseThenDestructorThenUnlock)
{
    CComPtr<Object> object = create();
    EXPECT_EQ(module.locks, 1);
    stream.clear();
    object.Release();
    EXPECT_EQ(lines().back(), "Unlock");
    EXPECT_THAT(lines({"JavaManagerATLObject", "BeanFrame"}),
                ElementsAre("INFO -> @object FinalRelease ", "INFO <- @object FinalRelease ",
                            "INFO -> @object ~CJavaManagerATLObject ", "TRACE @object CBeanFrame::s_Instance!=NULL: true",
                            "INFO -> deleteInstance ", "TRACE s_Instance!=NULL: true", "INFO -> @frame ~CBeanFrame ",
                            "INFO <- @frame ~CBeanFrame ", "INFO <- deleteInstance ", "INFO <- @object ~CJavaManagerATLObject "));
}

// Takes the reference before the scope begins, and releases it before the scope ends.
TEST_F(JavaManagerConstructionTest, ObjectMainHoldsTheLogger)
{
    world.stop();
    CJavaManagerATLObject::ObjectMain(true);
    EXPECT_NE(Logger::instance(), nullptr);
    EXPECT_THAT(objectLines(), ElementsAre("INFO -> ObjectMain 1", "INFO <- ObjectMain 1"));
    stream.clear();
    CJavaManagerATLObject::ObjectMain(true);
    CJavaManagerATLObject::ObjectMain(false);
    EXPECT_THAT(objectLines(),
                ElementsAre("INFO -> ObjectMain 1", "INFO <- ObjectMain 1", "INFO -> ObjectMain 0", "INFO <- ObjectMain 0"));
    EXPECT_NE(Logger::instance(), nullptr);
    stream.clear();
    CJavaManagerATLObject::ObjectMain(false);
    EXPECT_EQ(Logger::instance(), nullptr);
    EXPECT_THAT(objectLines(), ElementsAre("INFO -> ObjectMain 0"));
}

TEST_F(JavaManagerConstructionTest, AnswersItsFourInterfacesAndHasOneConnectionPoint)
{
    CComPtr<Object> object = create();
    for (const IID& iid : {IID_IUnknown, IID_IJavaManager, IID_IDispatch, IID_ISupportErrorInfo, IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(&answer)), S_OK);
    }
    for (const IID& iid : {IID_IConnectionPoint, DIID__IJavaManagerEvents, IID_IClassFactory, IID_IMarshal}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(&answer)), E_NOINTERFACE);
    }
    CComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(object->EnumConnectionPoints(&points), S_OK);
    CComPtr<IConnectionPoint> only;
    ASSERT_EQ(points->Next(1, &only, nullptr), S_OK);
    EXPECT_EQ(only.p, point(object).p);
    CComPtr<IConnectionPoint> another;
    EXPECT_EQ(points->Next(1, &another, nullptr), S_FALSE);
}

TEST_F(JavaManagerConstructionTest, SupportsErrorInfoOfItsInterfaceOnly)
{
    CComPtr<Object> object = create();
    stream.clear();
    EXPECT_EQ(object->InterfaceSupportsErrorInfo(IID_IJavaManager), S_OK);
    EXPECT_THAT(lines(),
                ElementsAre("INFO -> @object InterfaceSupportsErrorInfo ", "INFO <- @object InterfaceSupportsErrorInfo "));
    for (const IID& iid : {IID_IUnknown, IID_IDispatch, IID_ISupportErrorInfo, IID_IConnectionPointContainer,
                           DIID__IJavaManagerEvents, IID_NULL, CLSID_JavaManager}) {
        EXPECT_EQ(object->InterfaceSupportsErrorInfo(iid), S_FALSE);
    }
}

TEST_F(JavaManagerConstructionTest, RegistersAndUnregistersItsClass)
{
    const auto progId = [] {
        char text[100] = {};
        DWORD size = sizeof text;
        RegGetValueA(HKEY_CLASSES_ROOT, "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\ProgID", nullptr, RRF_RT_REG_SZ, nullptr,
                     text, &size);
        return std::string(text);
    };
    EXPECT_EQ(CJavaManagerATLObject::UpdateRegistry(TRUE), S_OK);
    EXPECT_EQ(progId(), "KESTAserver.JavaManager.1");
    EXPECT_EQ(CJavaManagerATLObject::UpdateRegistry(FALSE), S_OK);
    EXPECT_EQ(progId(), "");
}
