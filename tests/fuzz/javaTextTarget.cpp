// Texts on their way to Java and back: the first byte and the one behind it tell how many bytes of the input are the client's
// text, in 16-bit characters; the rest is what Java gives.
#include "javabridge/JNIHelper.h"
#include "tests/fuzz/Target.h"

#include <cstring>
#include <new>

namespace fuzz {

namespace {

using namespace ATL;

// As much of a virtual machine as the conversions need. The characters of a Java string lie in memory of their own.
struct SJava
{
    SJava()
    {
        table.NewStringUTF = [](JNIEnv*, const char* text) -> jstring {
            s_received = text;
            ++s_references;
            return reinterpret_cast<jstring>(&s_received);
        };
        table.GetStringUTFChars = [](JNIEnv*, jstring, jboolean*) -> const char* {
            auto* const characters = new (std::nothrow) char[s_given.size() + 1]; // guarded most closely
            std::memcpy(characters, s_given.c_str(), s_given.size() + 1);
            ++s_held;
            return characters;
        };
        table.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char* characters) {
            delete[] characters;
            --s_held;
        };
        table.DeleteLocalRef = [](JNIEnv*, jobject) { --s_references; };
        environment.functions = &table;
        s_references = s_held = 0;
    }
    JNINativeInterface_ table = {};
    JNIEnv environment = {};

    static inline std::string s_received;
    static inline std::string s_given;
    static inline int s_references = 0;
    static inline int s_held = 0;
};

std::string narrow(const std::wstring& text)
{
    std::string result(text.size() * 4, '\0');
    const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), result.data(),
                                         static_cast<int>(result.size()), nullptr, nullptr);
    result.resize(static_cast<size_t>(size));
    return result;
}

std::wstring wide(const std::string& text)
{
    std::wstring result(text.size(), L'\0');
    const int size = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), result.data(),
                                         static_cast<int>(result.size()));
    result.resize(static_cast<size_t>(size));
    return result;
}

bool isAscii(const std::wstring& text)
{
    return text.find_first_not_of(L" !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
                                  L"abcdefghijklmnopqrstuvwxyz{|}~") == std::wstring::npos;
}

std::wstring contentOf(BSTR text)
{
    return {text, SysStringLen(text)};
}

} // namespace

void javaText(Bytes input)
{
    if (input.size() < 2) {
        return;
    }
    const size_t split = std::min<size_t>(input[0] * 256u + input[1], input.size() - 2);
    const Bytes clientBytes = input.subspan(2, split);
    std::wstring client(clientBytes.size() / 2, L'\0');
    std::memcpy(client.data(), clientBytes.data(), client.size() * 2);
    SJava java;
    JNIEnv* const env = &java.environment;

    // To Java: in the ANSI code page, up to the first zero.
    const CComBSTR text(client.data(), client.size());
    {
        const LocalReference<jstring> sent = JNIHelper::bstrToJavaString(env, text);
        expect(SJava::s_received == narrow(client).c_str(), "what reaches Java");
        expect(SJava::s_references == 1, "one reference");
    }
    expect(SJava::s_references == 0, "the reference is gone");

    // From Java: its bytes as ANSI text.
    SJava::s_given = textOf(input.subspan(2 + split)).c_str();
    const std::wstring expected = wide(SJava::s_given);
    const jstring given = reinterpret_cast<jstring>(&SJava::s_given);
    CComBSTR result;
    JNIHelper::javaStringToBstr(&result, env, given);
    expect(contentOf(result) == expected, "what reaches the client");
    SharedText shared;
    JNIHelper::javaStringToText(&shared, env, given);
    expect(contentOf(shared.bstr()) == expected, "what reaches the queue");
    expect(shared.narrow() == narrow(expected.c_str()), "its narrow copy");
    expect(SJava::s_held == 0, "all characters are released");

    // A copy keeps its text when the other one grows.
    SharedText longer = shared;
    longer.append(SJava::s_received.c_str());
    expect(contentOf(shared.bstr()) == expected, "the first copy");
    expect(contentOf(longer.bstr()) == expected + wide(SJava::s_received), "the longer copy");

    if (isAscii(client)) {
        SJava::s_given = SJava::s_received;
        JNIHelper::javaStringToBstr(&result, env, given);
        expect(contentOf(result) == client, "ASCII comes back unchanged");
    }
}

} // namespace fuzz
