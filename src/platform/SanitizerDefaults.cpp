// Leak-check defaults of bcast-platform in sanitizer builds. The streaming server loads GStreamer, and
// GLib allocates a table in its library constructor that it never frees (by design). GLib has no frame
// pointers, so only the slow unwinder sees that the allocation comes from the dynamic loader's _dl_init,
// which is what the one suppression matches. Built into the program so that every test suite that runs
// it gets a clean exit, whatever LSAN_OPTIONS it sets (those add to these defaults).

extern "C" {

const char* __lsan_default_options() {
    return "fast_unwind_on_malloc=0:print_suppressions=0";
}

const char* __lsan_default_suppressions() {
    return "leak:_dl_init\n";
}

}  // extern "C"
