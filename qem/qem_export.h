// Symbol visibility for the qem base library.
//
// The library is built with hidden default visibility; every function or class
// that other shared objects may use is tagged QEM_API. On this platform the
// attribute is the same when building and when consuming the library, but
// QEM_BUILDING (defined only while compiling qem sources) is kept as the hook
// for platforms that need import/export decorations.
#pragma once

#if defined(QEM_BUILDING)
#define QEM_API __attribute__((visibility("default")))
#else
#define QEM_API __attribute__((visibility("default")))
#endif
