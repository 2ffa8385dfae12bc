// What the address sanitizer has to know of this daemon, for its preset alone; linked into the
// daemon and the tests, so that it holds however they are started.
extern "C" {

// The slow unwinder: libcurl keeps no frame pointers, and the suppression names its caller.
const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

// Each POST builds its header list anew and never releases it, on purpose.
const char* __lsan_default_suppressions() {
    return "leak:make_json_headers\n";
}

} // extern "C"
