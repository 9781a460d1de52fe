// Library text output. All messages the library prints go through
// qem_printf so a host can route them (to a log window, a file, a test
// buffer) with qem_set_printf_sink.
#pragma once

#include <cstdarg>

#include "qem/qem_export.h"

// Receives each formatted message, whole, as one call. `user` is the pointer
// given to qem_set_printf_sink. May be called from any thread.
typedef void (*qem_printf_sink)(const char* text, void* user);

// Formats like printf and hands the text to the current sink (stdout by
// default). Returns the number of characters produced, or a negative value
// on a formatting error (nothing is delivered then). Thread-safe; a message
// is never split or interleaved with another.
QEM_API int qem_printf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
QEM_API int qem_vprintf(const char* fmt, va_list args) __attribute__((format(printf, 1, 0)));

// Routes subsequent output to `sink` with `user`; a null sink restores stdout.
QEM_API void qem_set_printf_sink(qem_printf_sink sink, void* user);
