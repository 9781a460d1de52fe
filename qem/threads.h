// Per-thread context and thread identity.
//
// Every thread that uses the library gets a small integer index: the thread
// that loaded the library (normally the main thread, which runs static
// initialisation) is 0; other threads take the smallest free index on first
// use and hand it back when they exit, so indices stay small and can size
// per-thread tables.
#pragma once

#include "qem/qem_export.h"

namespace QEM {

class QEM_API thread_context {
  public:
    // Takes the smallest free index.
    thread_context();
    // Returns the index to the free list.
    virtual ~thread_context();
    thread_context(const thread_context&) = delete;
    thread_context& operator=(const thread_context&) = delete;

    int index() const { return index_; }

  private:
    int index_;
};

// The calling thread's context: the one installed with set_thread_context,
// else the thread's own, created on first use. Never null. The thread's own
// context lives until the thread exits.
QEM_API thread_context* tls_get_context();

// Installs `context` (owned by the caller, who must keep it alive while it is
// installed) for the calling thread; null restores the thread's own context.
QEM_API void set_thread_context(thread_context* context);

// True on the thread that loaded the library.
QEM_API bool is_main_thread();

// Raises sys_error(QEM_NOT_MAIN_THREAD) unless called on the main thread.
QEM_API void mt_thread_not_permitted();

// Process-wide, thread-safe count of named components (e.g. which optional
// libraries are loaded). Adding a name again increments its count; removing
// decrements it and forgets the name at zero. Removing an absent name does
// nothing.
class QEM_API qem_component_info {
  public:
    static void addComponent(const char* name);
    static void removeComponent(const char* name);
    static bool hasComponent(const char* name);
    // Number of distinct names present.
    static int componentCount();
};

}  // namespace QEM
