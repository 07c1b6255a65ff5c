// The JNI calls of the steps that create frame, bean and listener, and the test that takes them.
#pragma once

#include "tests/javabridge/BridgeFixture.h"

inline const std::string PID = std::to_string(GetCurrentProcessId());

inline const Strings BEAN_CREATION = {
    "FindClass(a/b/Bean)",
    "GetMethodID(class a/b/Bean, <init>, ()V)",
    "NewObject(class a/b/Bean, <init>)",
    "ExceptionCheck()",
    "NewGlobalRef(local a/b/Bean)",
    "DeleteLocalRef(local a/b/Bean)",
};

inline const Strings FRAME_CREATION = {
    "FindClass(" + FRAME + ")",
    "GetMethodID(class " + FRAME + ", <init>, (Ljava/lang/String;)V)",
    "NewStringUTF(kesta_frame_" + PID + ")",
    "NewObject(class " + FRAME + ", <init>, \"kesta_frame_" + PID + "\")",
    "NewGlobalRef(local " + FRAME + ")",
    "DeleteLocalRef(local " + FRAME + ")",
};

inline const Strings LISTENER_CREATION = {
    "FindClass(" + LISTENER + ")",
    "GetMethodID(class " + LISTENER + ", <init>, ()V)",
    "NewObject(class " + LISTENER + ", <init>)",
    "NewGlobalRef(local " + LISTENER + ")",
};

inline const Strings NATIVES = {
    "RegisterNatives(class " + LISTENER + ", testBridgeEvent (Ljava/lang/String;I)V testBridgeEvent)", "ExceptionCheck()",
    "RegisterNatives(class " + LISTENER + ", OnControlReady (Ljava/lang/String;)V onControlReady)",    "ExceptionCheck()",
    "RegisterNatives(class " + LISTENER + ", OnCustomEvent (Ljava/lang/String;)V onCustomEvent)",      "ExceptionCheck()",
};

class FrameTest : public BridgeTest
{
protected:
    HRESULT startBean() { return client.startBean(&newBean, &newFrame, &frameID, "a.b", "Bean"); }

    jobject newBean = nullptr;
    jobject newFrame = nullptr;
    jobject newListener = nullptr;
    int frameID = -5;
};
