// What the Java bridge needs from the layer above: the native functions behind the Java listener's three native methods.
// Declared here and defined by the bean frame, so that events travel up without the bridge knowing who receives them.
#pragma once

#include <jni.h>

// Called by Java on its own threads, with the environment of the calling thread. They only queue events and never wait.
struct ListenerNatives
{
    void(JNICALL* testBridgeEvent)(JNIEnv* env, jobject caller, jstring text, jint delay);
    void(JNICALL* OnControlReady)(JNIEnv* env, jobject caller, jstring text);
    void(JNICALL* OnCustomEvent)(JNIEnv* env, jobject caller, jstring text);
};

const ListenerNatives& listenerNatives();
