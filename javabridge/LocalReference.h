// Owner of a JNI local reference, which it deletes in the environment that the reference came from. After release() the reference
// stays until the thread ends: wherever that is done, a comment says why.
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
