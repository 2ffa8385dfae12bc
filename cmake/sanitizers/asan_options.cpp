// Options of the address sanitizer, only for its preset. Linked into the daemon and the tests, so
// that they apply however these are started.
extern "C" {

// The slow unwinder: libcurl has no frame pointers, and the suppression names its caller. Memory is
// refused as the system refuses it: the code must handle that.
const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0:allocator_may_return_null=1";
}

// Each POST builds a new header list that is never released, for compatibility.
const char* __lsan_default_suppressions() {
    return "leak:make_json_headers\n";
}

} // extern "C"
