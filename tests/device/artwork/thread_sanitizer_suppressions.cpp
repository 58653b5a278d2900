// What the thread sanitizer is told not to look at. libvips and GLib are not built for it, and GLib
// locks by futex calls of its own that the sanitizer does not see: memory that their threads hand
// each other under such a lock looks like a race. Only what these libraries do themselves is left
// out; our own code is looked at whoever calls it.
#ifdef __SANITIZE_THREAD__

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "called_from_lib:libvips.so.42\n"
           "called_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libgobject-2.0.so.0\n";
}

#endif
