// Conversions between client strings (BSTR) and Java strings. Stateless; any thread, with the environment of that thread.
//
// Both directions pass Java's modified UTF-8 through the system's ANSI code page, deliberately: text outside ASCII is converted
// as if its bytes were ANSI text. ASCII passes unchanged.
// Failure: exhausted memory throws CAtlException(E_OUTOFMEMORY), a failed code page conversion the error of GetLastError.
#pragma once

#include "javabridge/LocalReference.h"
#include "javabridge/SharedText.h"

class JNIHelper
{
public:
    // A new local reference; a null BSTR becomes "". Null, with Java's OutOfMemoryError pending, when Java is out of memory.
    static LocalReference<jstring> bstrToJavaString(JNIEnv* env, BSTR text);
    // `result` receives a new BSTR owned by the caller (its previous content is not freed); an empty one for a null Java
    // string. Without `result` or `env` nothing is written and the failed check is logged.
    static void javaStringToBstr(BSTR* result, JNIEnv* env, jstring text);
    // The same into a string object, for the native callbacks. Deliberately does not test for a null Java string, but passes it
    // to the virtual machine.
    static void javaStringToText(SharedText* _bstr, JNIEnv* env, jstring text);
};
