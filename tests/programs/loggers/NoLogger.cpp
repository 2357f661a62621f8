// A library under the logger's name that has no creation function.

extern "C" __attribute__((visibility("default"))) int TnSomethingElse() {
    return 0;
}
