// A sound library that offers no JNI_CreateJavaVM.
extern "C" __declspec(dllexport) int notWhatYouLookFor()
{
    return 0;
}
