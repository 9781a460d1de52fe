#pragma once
// The law library's error codes, its message module "lawutil", and the soft failure for
// laws built from malformed parts (toxic laws) with the restore waiver.

#include <lawutil/law_export.h>
#include <qem/errors.h>

/// The message module "lawutil", built when the library is loaded.
LAW_API const QEM::message_module& get_lawutil_main_law_errmod();

/// A code of the module by its local index.  Converts to the kernel-wide number, so a
/// name can be passed straight to sys_error or compared with an exception's number.
struct law_error_code {
    int index;
    operator err_mess_type() const { return get_lawutil_main_law_errmod().message_code(index); }
};

#define LAW_ERROR(index, name, message) inline constexpr law_error_code name{index};
#include <lawutil/law_errors.def>
#undef LAW_ERROR

inline constexpr int law_error_count = 94;

/// Reports a law built from malformed parts: calls the registered problem callback, posts
/// "Toxic law detected" with TEST_set_error and returns; construction then goes on.
LAW_API void toxic_law_error();

/// Marks the restore of saved laws as faulty (calls the problem callback) and returns.
LAW_API void restore_law_problem_found();

/// Installs the kernel's restore hooks.  A null pointer reinstalls the library's default
/// (no-op problem callback, waivers that answer false), so the stored hooks are never null.
LAW_API void register_law_restore_problem_callback(void (*problem)(), bool (*waive_a)(),
                                                   bool (*waive_b)());

/// True while a restore that tolerates problems is under way (both waivers answer true;
/// the second is not asked when the first says no).  Part checks pass at once then.
LAW_API bool law_restore_waived();

/// Says why a law refuses its parts, just before it raises: the reader of a text reports
/// this instead of the code's general text.  `why` must be a string literal (it is kept
/// by pointer, per thread); law_take_refusal returns it once and forgets it.
LAW_API void law_post_refusal(const char* why);
LAW_API const char* law_take_refusal();
