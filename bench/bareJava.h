// Java through bare JNI, as a program without the server would use it. The other side of the comparisons.
//
// Threads: the thread that started the VM.  Failure: std::runtime_error.
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
// This thread's environment in a VM that is already running, to which the thread is attached.
JNIEnv* runningMachine();

// A control, and a frame of that name which shows up with it; local references.
jobject newControl(JNIEnv* env);
jobject showFrame(JNIEnv* env, const std::string& name);

// The conversions through the ANSI code page, as the server makes them.
jstring toJava(JNIEnv* env, BSTR text);
BSTR toBstr(JNIEnv* env, jstring text);

// The control's callMethod; null when it has thrown.
BSTR callMethod(JNIEnv* env, jobject control, jmethodID method, BSTR name, BSTR value);
// The same with a look-up of the method, which the server makes in each call.
BSTR lookUpAndCallMethod(JNIEnv* env, jobject control, jclass type, BSTR name, BSTR value);

} // namespace bench
