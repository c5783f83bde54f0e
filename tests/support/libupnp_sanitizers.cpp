// What the sanitizers leave out of the programs that run the real DLNA stack
// on libupnp (pupnp 1.8.4). Compiled into each such test program, as the
// sanitizers read these from the program itself.

// libupnp keeps a few strings of each client subscription past
// UpnpUnRegisterClient / UpnpFinish (a few hundred bytes a run, inside
// libupnp): not this system's memory, so LeakSanitizer leaves it out.
extern "C" const char* __lsan_default_suppressions() { return "leak:libupnp.so\n"; }

// UpnpFinish stops libupnp's socket threads by a datagram to them and then
// polls a plain state variable until they have closed their sockets: an
// ordering ThreadSanitizer cannot see, so it takes libupnp's close for a race
// with the last search sent on that socket. libupnp is not built for
// ThreadSanitizer anyway (its own memory accesses are invisible to it), so
// the calls it makes itself are left out; this system's code, callbacks run
// on libupnp's threads included, is still checked. libixml is libupnp's XML
// library: while the camera's own device is advertised, libupnp's threads
// read its description document through libixml under libupnp's own locks,
// equally invisible; it is left out alike.
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libupnp.so\ncalled_from_lib:libixml.so\n";
}
