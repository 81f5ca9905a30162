// The tests ask malloc for more than there is; the sanitizers shall answer with null, as malloc does.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
