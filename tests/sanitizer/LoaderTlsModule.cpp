// A library with a thread-local variable, opened with dlopen by
// LoaderTlsCanary: the loader allocates its block the way it does for any
// plug-in with thread-local storage.
thread_local int t_counter = 0;

extern "C" int bumpCounter() {
    return ++t_counter;
}
