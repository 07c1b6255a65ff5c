// Creation and end of the COM object, its class and its interfaces.
#include "tests/com/ComWorld.h"

#include "atl/typelib.h"
#include "beanframe/BeanFrame.h"

#include <gmock/gmock.h>

#include <fstream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string besideTheExecutable()
{
    char path[MAX_PATH + 1] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string executable = path;
    return executable.substr(0, executable.rfind('\\')) + "\\ORVANEControl.jar";
}

std::string fileLine(const std::string& direction, const std::string& path)
{
    return "FINE " + direction + " CJavaManagerATLObject  doesFileExist " + path;
}

const std::string OK_TEXT = getWindowsErrorText(0);

} // namespace

using JavaManagerConstructionTest = ComWorld;

TEST_F(JavaManagerConstructionTest, FirstObjectStartsTheBeanFrameAndShowsIt)
{
    EXPECT_EQ(eventTarget(), nullptr);
    CComPtr<Object> object = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, object.p);
    ASSERT_NE(CBeanFrame::s_Instance, nullptr);
    const std::string scope = OBJECT + "CJavaManagerATLObject ";
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + scope, "TRACE " + OBJECT + "s_Instance == NULL: true",
                                     fileLine("->", basisControl), fileLine("<-", basisControl),
                                     "FINE " + OBJECT + "Basiscontrol path: " + basisControl, fileLine("->", basisControl),
                                     fileLine("<-", basisControl), "TRACE " + OBJECT + "doesFileExist(basiscontrol): true",
                                     "TRACE " + OBJECT + "CBeanFrame::s_Instance->setVisible(true): success: " + OK_TEXT,
                                     "TRACE " + OBJECT + "CHECKPOINT: Successfully created ATL object.", "INFO <- " + scope,
                                     "INFO -> " + OBJECT + "FinalConstruct ", "INFO <- " + OBJECT + "FinalConstruct "));
    EXPECT_EQ(moduleLines(stream, "BeanFrame").front(),
              "INFO -> createInstance " + basisControl + ",com.orvane.tech.client.qmrt.win,QMRTWinControl");
    EXPECT_EQ(java.takeMethodCalls().back(), "CallVoidMethod(global com/velmora/tq/kesta/KESTAFrame, setVisible, true)");
}

TEST_F(JavaManagerConstructionTest, FrameThatCannotBeShownIsStillCreated)
{
    java.jni.outcomes["setVisible"] = RecordingJni::throws("java.awt.HeadlessException", "no display");
    CComPtr<Object> object = create();
    EXPECT_NE(CBeanFrame::s_Instance, nullptr);
    EXPECT_THAT(linesWith(lines(), "setVisible"),
                ElementsAre("ERROR " + OBJECT + "CBeanFrame::s_Instance->setVisible(true): failure: " +
                            getWindowsErrorText(static_cast<unsigned>(E_FAIL))));
    EXPECT_THAT(linesWith(lines(), "CHECKPOINT"),
                ElementsAre("TRACE " + OBJECT + "CHECKPOINT: Successfully created ATL object."));
}

TEST_F(JavaManagerConstructionTest, SecondObjectIsInertAndSharesTheFrame)
{
    CComPtr<Object> first = create();
    CBeanFrame* const frame = CBeanFrame::s_Instance;
    stream.clear();
    java.jni.takeCalls();
    CComPtr<Object> second = create();
    EXPECT_EQ(CJavaManagerATLObject::s_Instance, first.p);
    EXPECT_EQ(CBeanFrame::s_Instance, frame);
    EXPECT_THAT(java.jni.takeCalls(), IsEmpty());
    const std::string scope = OBJECT + "CJavaManagerATLObject ";
    EXPECT_THAT(lines(),
                ElementsAre("INFO -> " + scope, "ERROR " + OBJECT + "s_Instance == NULL: false", "INFO -> " + scope,
                            "INFO <- " + scope, "INFO -> " + OBJECT + "FinalConstruct ", "INFO <- " + OBJECT + "FinalConstruct "))
        << "the scope once more in the error backtrace";

    int id = 0;
    EXPECT_EQ(second->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, static_cast<int>(GetCurrentProcessId()));

    // The end of any object ends the frame.
    second.Release();
    EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
    EXPECT_EQ(first->getBeanFrameID(&id), S_OK);
    EXPECT_EQ(id, -1);
}

TEST_F(JavaManagerConstructionTest, EndRunsFinalReleaseThenDestructorThenUnlock)
{
    CComPtr<Object> object = create();
    EXPECT_EQ(module.locks, 1);
    stream.clear();
    object.Release();
    std::vector<std::string> order;
    for (const fixtures::LogLine& line : stream.lines()) {
        if (line.body == "Unlock" || line.source.starts_with("JavaManagerATLObject") || line.source.starts_with("BeanFrame")) {
            order.push_back(line.text());
        }
    }
    const std::string frame = "CBeanFrame " + std::to_string(GetCurrentProcessId()) + " ~CBeanFrame ";
    EXPECT_THAT(order, ElementsAre(OBJECT + "FinalRelease ", OBJECT + "FinalRelease ", OBJECT + "~CJavaManagerATLObject ",
                                   OBJECT + "CBeanFrame::s_Instance!=NULL: true", "deleteInstance ", "s_Instance!=NULL: true",
                                   frame, frame, "deleteInstance ", OBJECT + "~CJavaManagerATLObject ", "Unlock"));
}

// One test for everything that needs the file beside the executable to be there or not, so that no two run at once.
TEST_F(JavaManagerConstructionTest, ControlBesideTheExecutableIsTheSecondChoice)
{
    const std::string beside = besideTheExecutable();
    DeleteFileA(beside.c_str());
    const std::string missing = folder.path("missing.jar");
    world.setPreference("basiscontrol", missing);
    {
        SCOPED_TRACE("neither is there");
        CComPtr<Object> object = create();
        EXPECT_EQ(CBeanFrame::s_Instance, nullptr);
        EXPECT_THAT(linesWith(lines(), "Basiscontrol path"), ElementsAre("FINE " + OBJECT + "Basiscontrol path: " + missing));
        EXPECT_THAT(linesWith(lines(), "doesFileExist(basiscontrol)"),
                    ElementsAre("ERROR " + OBJECT + "doesFileExist(basiscontrol): false"));
        int id = 0;
        EXPECT_EQ(object->getBeanFrameID(&id), S_OK);
        EXPECT_EQ(id, -1);

        stream.clear();
        object.Release();
        EXPECT_THAT(linesWith(lines(), "CBeanFrame::s_Instance!=NULL"),
                    ElementsAre("ERROR " + OBJECT + "CBeanFrame::s_Instance!=NULL: false"));
    }
    std::ofstream(beside) << "the control that is shipped";
    CJavaManagerATLObject::s_Instance = nullptr;
    stream.clear();
    {
        SCOPED_TRACE("the registry's is missing");
        CComPtr<Object> object = create();
        EXPECT_NE(CBeanFrame::s_Instance, nullptr);
        EXPECT_THAT(linesWith(lines(), "Basiscontrol path"), ElementsAre("FINE " + OBJECT + "Basiscontrol path: " + beside));
    }
    world.machine().deleteValue(fixtures::LoggerWorld::PREFERENCES_KEY, "basiscontrol", KEY_WOW64_32KEY);
    CJavaManagerATLObject::s_Instance = nullptr;
    stream.clear();
    {
        SCOPED_TRACE("the registry names none");
        CComPtr<Object> object = create();
        EXPECT_NE(CBeanFrame::s_Instance, nullptr);
        EXPECT_THAT(linesWith(lines(), "Basiscontrol path"), ElementsAre("FINE " + OBJECT + "Basiscontrol path: " + beside));
    }
    world.setPreference("basiscontrol", basisControl);
    CJavaManagerATLObject::s_Instance = nullptr;
    stream.clear();
    {
        SCOPED_TRACE("the registry's is there too");
        CComPtr<Object> object = create();
        EXPECT_THAT(linesWith(lines(), "Basiscontrol path"),
                    ElementsAre("FINE " + OBJECT + "Basiscontrol path: " + basisControl));
    }
    DeleteFileA(beside.c_str());
}

TEST_F(JavaManagerConstructionTest, ObjectMainHoldsTheLogger)
{
    CJavaManagerATLObject::ObjectMain(true);
    EXPECT_THAT(stream.messages(),
                ElementsAre("FINE addRefCount logging already initialized", "FINE addRefCount logging already initialized",
                            "INFO ObjectMain 1", "INFO ObjectMain 1"))
        << "the reference first, then the scope";
    stream.clear();
    CJavaManagerATLObject::ObjectMain(false);
    EXPECT_THAT(stream.messages(), ElementsAre("INFO ObjectMain 0", "FINE release not time to deinitialize log yet",
                                               "FINE release not time to deinitialize log yet", "INFO ObjectMain 0"));
    EXPECT_NE(Logger::instance(), nullptr);
}

TEST_F(JavaManagerConstructionTest, ObjectMainCreatesAndEndsTheLoggerWhenItIsTheOnlyHolder)
{
    world.stop();
    CJavaManagerATLObject::ObjectMain(true);
    EXPECT_NE(Logger::instance(), nullptr);
    EXPECT_EQ(lines(), (std::vector<std::string>{"INFO -> ObjectMain 1", "INFO <- ObjectMain 1"}));
    stream.clear();
    CJavaManagerATLObject::ObjectMain(false);
    EXPECT_EQ(Logger::instance(), nullptr);
    EXPECT_THAT(lines(), ElementsAre("INFO -> ObjectMain 0")) << "the Logger is gone before the scope ends";
}

// Clients bind to these numbers.
TEST_F(JavaManagerConstructionTest, ClassAndInterfacesHaveTheirIdentifiers)
{
    const auto text = [](const GUID& id) {
        OLECHAR characters[39] = {};
        StringFromGUID2(id, characters, 39);
        return narrowText(characters, wcslen(characters));
    };
    EXPECT_EQ(text(CLSID_JavaManager), "{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}");
    EXPECT_EQ(text(IID_IJavaManager), "{7D0B4E93-2A6F-4C1D-B3E8-95F2A6C04D71}");
    EXPECT_EQ(text(DIID__IJavaManagerEvents), "{E3A19C5F-8B27-4D60-A4F3-1C6E92B07D58}");
    EXPECT_EQ(text(LIBID_KESTAserverLib), "{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}");
    EXPECT_EQ(CJavaManagerATLObject::GetObjectCLSID(), CLSID_JavaManager);
}

TEST_F(JavaManagerConstructionTest, AnswersItsFourInterfaces)
{
    CComPtr<Object> object = create();
    for (const IID& iid : {IID_IUnknown, IID_IJavaManager, IID_IDispatch, IID_ISupportErrorInfo, IID_IConnectionPointContainer}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(&answer)), S_OK);
    }
    for (const IID& iid : {IID_IConnectionPoint, DIID__IJavaManagerEvents, IID_IClassFactory, IID_IMarshal}) {
        CComPtr<IUnknown> answer;
        EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(&answer)), E_NOINTERFACE);
        EXPECT_EQ(answer.p, nullptr);
    }
}

TEST_F(JavaManagerConstructionTest, HasOneConnectionPoint)
{
    CComPtr<Object> object = create();
    CComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(object->EnumConnectionPoints(&points), S_OK);
    CComPtr<IConnectionPoint> point;
    ULONG fetched = 0;
    ASSERT_EQ(points->Next(1, &point, &fetched), S_OK);
    IID iid = GUID_NULL;
    EXPECT_EQ(point->GetConnectionInterface(&iid), S_OK);
    EXPECT_EQ(iid, DIID__IJavaManagerEvents);
    CComPtr<IConnectionPoint> another;
    EXPECT_EQ(points->Next(1, &another, &fetched), S_FALSE);
}

TEST_F(JavaManagerConstructionTest, SupportsErrorInfoOfItsInterfaceOnly)
{
    CComPtr<Object> object = create();
    stream.clear();
    EXPECT_EQ(object->InterfaceSupportsErrorInfo(IID_IJavaManager), S_OK);
    EXPECT_EQ(object->InterfaceSupportsErrorInfo(IID_IDispatch), S_FALSE);
    const std::string scope = OBJECT + "InterfaceSupportsErrorInfo ";
    EXPECT_THAT(lines(), ElementsAre("INFO -> " + scope, "INFO <- " + scope, "INFO -> " + scope, "INFO <- " + scope));
    for (const IID& iid : {IID_IUnknown, IID_ISupportErrorInfo, IID_IConnectionPointContainer, DIID__IJavaManagerEvents, IID_NULL,
                           CLSID_JavaManager}) {
        EXPECT_EQ(object->InterfaceSupportsErrorInfo(iid), S_FALSE);
    }
}

TEST_F(JavaManagerConstructionTest, RegistersAndUnregistersItsClass)
{
    const char* const key = "CLSID\\{4F1C2A90-7B3D-4E25-9A61-0C5D8E7F2B14}\\ProgID";
    const auto progId = [&] {
        char text[100] = {};
        DWORD size = sizeof text;
        RegGetValueA(HKEY_CLASSES_ROOT, key, nullptr, RRF_RT_REG_SZ, nullptr, text, &size);
        return std::string(text);
    };
    EXPECT_EQ(CJavaManagerATLObject::UpdateRegistry(TRUE), S_OK);
    EXPECT_EQ(progId(), "KESTAserver.JavaManager.1");
    EXPECT_EQ(CJavaManagerATLObject::UpdateRegistry(FALSE), S_OK);
    EXPECT_EQ(progId(), "");
}

TEST_F(JavaManagerConstructionTest, LogNamesTheClassWhateverTemplateMadeTheObject)
{
    CComPtr<Object> object = create();
    EXPECT_STREQ(object->getLogClassName(), "CJavaManagerATLObject");
    EXPECT_EQ(object->getLogObjectInfo(), "");
}
