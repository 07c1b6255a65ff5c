#include "javabridge/JNIHelper.h"

#include "atl/atl.h"
#include "support/logger.h"

#define LOG_SOURCE "JNIHelper"

namespace {

// The characters of a Java string, in Java's modified UTF-8, released by the destructor. A null Java string is passed to the
// virtual machine.
class JavaCharacters
{
public:
    JavaCharacters(JNIEnv* env, jstring text)
        : m_env(env)
        , m_text(text)
        , m_characters(env->GetStringUTFChars(text, nullptr))
    {
        if (m_characters == nullptr && text != nullptr) {
            AtlThrow(E_OUTOFMEMORY);
        }
    }
    ~JavaCharacters()
    {
        if (m_characters != nullptr) {
            m_env->ReleaseStringUTFChars(m_text, m_characters);
        }
    }
    JavaCharacters(const JavaCharacters&) = delete;
    JavaCharacters& operator=(const JavaCharacters&) = delete;

    const char* get() const { return m_characters; }

private:
    JNIEnv* m_env;
    jstring m_text;
    const char* m_characters;
};

} // namespace

LocalReference<jstring> JNIHelper::bstrToJavaString(JNIEnv* env, BSTR text)
{
    LOG_SCOPE_STATIC(FINE, "JNIHelper::bstrToJavaString");
    return {env->NewStringUTF(narrowText(text).c_str()), {env}};
}

void JNIHelper::javaStringToBstr(BSTR* result, JNIEnv* env, jstring text)
{
    LOG_SCOPE_STATIC(FINE, "JNIHelper::javaStringToBstr");
    if (!LOG_CONDITION(result!=NULL) || !LOG_CONDITION(env!=NULL)) {
        return;
    }
    if (text == nullptr) {
        *result = CComBSTR(L"").Detach();
        return;
    }
    const JavaCharacters characters(env, text);
    *result = CComBSTR(characters.get()).Detach();
}

void JNIHelper::javaStringToText(SharedText* _bstr, JNIEnv* env, jstring text)
{
    LOG_SCOPE_STATIC(FINE, "JNIHelper::javaStringToText");
    if (!LOG_CONDITION(_bstr!=NULL) || !LOG_CONDITION(env!=NULL)) {
        return;
    }
    // Deliberately no test for a null Java string: a listener must not pass one.
    const JavaCharacters characters(env, text);
    *_bstr = SharedText(characters.get());
}
