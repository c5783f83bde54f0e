// Linked into the fuzz targets of the real DLNA stack's readers.
//
// libixml (pupnp 1.8.4) loses the text node it was building when a document
// breaks off in certain places (about 120 bytes per such document, inside
// ixmlParseBuffer, which then returns no document for the caller to free).
// That memory is the XML library's, not this stack's, so LeakSanitizer
// leaves it out; any leak with a frame of this stack's code is still found.
extern "C" const char* __lsan_default_suppressions() { return "leak:libixml.so\n"; }
