#pragma once
// The law language: text to laws.  The parser has no grammar table of its own: every
// function name and operator it accepts comes from a registry of prototype laws, one
// default-constructed instance of each class that can be written as text, linked in when
// the library is loaded.  A class joins the language with one LAW_REGISTER_PROTOTYPE line
// in its own source file.

#include <lawutil/law_base.h>
#include <lawutil/law_registry.h>

/// The law a formula describes (one use to the caller), or null when the text cannot be
/// read: then a message has been posted with TEST_set_error ("bad syntax at X", "law 2
/// was not given", ...) and, when `error_offset` is given, the offset in `text` of the
/// place that failed is written there (-1 on success).  `data` holds the `count` data the
/// formula may refer to (LAW1 is data[0], which must be a law_law_data).  The whole text
/// "NULL" is a null law without a message.  Never raises.
LAW_API law* str_to_law(const char* text, law_data** data, int count, int* error_offset);
LAW_API law* str_to_law(const char* text, law_data** data = nullptr, int count = 0);

/// The general parser alone, without the quick reader that str_to_law tries first on
/// common formulas: the same law, message and offset.  For tests and measurements.
LAW_API law* str_to_law_general(const char* text, law_data** data, int count,
                                int* error_offset);
/// The quick reader alone, on a formula that refers to no data: true when it read `text`
/// (then *result and *error_offset are what str_to_law gives), false when it leaves the
/// text to the general parser, having built and posted nothing (*result null).  For tests
/// and measurements.
LAW_API bool str_to_law_quick(const char* text, law** result, int* error_offset);

/// The law-data prototype whose keyword is `symbol` (the last registered match), or null.
/// No use is taken.
LAW_API law_data* get_law_data(const char* symbol);

/// A place where a formula relies on a reading rule of the language that is easy to
/// mistake: the text is read, but probably not as its writer meant.
struct law_text_warning {
    int offset;          ///< in the checked text, in bytes
    const char* reason;  ///< a short static text; not owned
};

/// Lists the places of `text` that rely on such rules, in the order of the text: two
/// operands with no operator between (X Y reads as Y, 2(X+1) as 2), a number with more
/// after its end (1.5.3 reads as 1.5), an operator or function with nothing to work on
/// (X+ reads as X+0, SIN() as SIN(0)), unbalanced parentheses (((X) reads as X), and a
/// text that reads as no law without a message (a comma outside an argument list, "(").
/// The parser reads the text exactly as it would without this check.  Returns the number
/// of warnings and sets `*warnings` to a heap array of them (null when there are none)
/// that the caller releases with vorn_discard.  A text that does not parse at all gives
/// the warnings found before the failing place.  The message posted for the calling
/// thread is the same afterwards as before.  Never raises.
LAW_API int check_law_text(const char* text, law_text_warning** warnings);
