// What the thread sanitizer does not report. libvips and GLib are not built for it, and GLib locks
// by futex calls of its own that the sanitizer does not see: memory that libvips' threads hand each
// other under such a lock looks like a race. The two functions of ours that call libvips share no
// state with other threads, so nothing of ours is hidden.
#ifdef __SANITIZE_THREAD__

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "race:artwork::resizeImage\n"
           "race:artwork::checkImage\n"
           "race:libvips.so\n"
           "race:libglib-2.0.so\n";
}

#endif
