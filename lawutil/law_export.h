#pragma once
// Symbols of the law library that are part of its public interface.  Everything else
// stays hidden (the library is built with default visibility hidden).
#define LAW_API __attribute__((visibility("default")))
