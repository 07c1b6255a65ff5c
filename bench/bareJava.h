// Java with nothing but JNI around it: what a program would have to do anyway, without the server. The other side of the
// comparisons.
//
// Threads: the one that started the machine.  Failure: std::runtime_error.
#pragma once

#include <windows.h>
#include <jni.h>
#include <oleauto.h>

#include <string>
#include <vector>

namespace bench {

constexpr char CONTROL_CLASS[] = "com/orvane/tech/client/qmrt/win/QMRTWinControl";
constexpr char FRAME_CLASS[] = "com/velmora/tq/kesta/KESTAFrame";
constexpr char CALL_SIGNATURE[] = "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;";

JNIEnv* startMachine(const std::string& library, const std::vector<std::string>& options);
// The environment of this thread in the machine that somebody else has started; the thread is attached to it.
JNIEnv* runningMachine();

// A control, and a frame of that name which shows up with it; local references.
jobject newControl(JNIEnv* env);
jobject showFrame(JNIEnv* env, const std::string& name);

// The conversions through the ANSI code page that the contract asks for.
jstring toJava(JNIEnv* env, BSTR text);
BSTR toBstr(JNIEnv* env, jstring text);

// The control's callMethod; null when it has thrown.
BSTR callMethod(JNIEnv* env, jobject control, jmethodID method, BSTR name, BSTR value);
// The same with the look-up of the method, which the server makes in each call.
BSTR lookUpAndCallMethod(JNIEnv* env, jobject control, jclass type, BSTR name, BSTR value);

} // namespace bench
