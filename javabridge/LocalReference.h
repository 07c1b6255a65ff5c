// Owner of a local reference of JNI, deleted in the environment that it came from. release() leaves the reference to the end of
// the thread: the places that have to do that say why.
#pragma once

#include <jni.h>

#include <memory>
#include <type_traits>

struct LocalReferenceDeleter
{
    JNIEnv* env = nullptr;
    void operator()(jobject reference) const { env->DeleteLocalRef(reference); }
};

template <class Reference>
using LocalReference = std::unique_ptr<std::remove_pointer_t<Reference>, LocalReferenceDeleter>;
