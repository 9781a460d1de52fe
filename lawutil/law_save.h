#pragma once
// Copying and saving laws with their data.
//
// Deep copies go through a pointer map: every law and datum met while copying is looked up
// first, so a sub-law or datum shared in the original is copied once and shared in the
// copy.  The kernel may install its own map (set_..._func) to copy laws together with the
// models that hold them.
//
// A saved law is plain text: the law's text and, numbered as in the text, a record for
// each datum it refers to (a datum used twice is written once and named again).  Reading
// builds the law through the parser, so every part check runs: a restore that tolerates
// problems sets the waivers of register_law_restore_problem_callback, and a record that
// cannot be read is reported with restore_law_problem_found and read as no datum.

#include <iosfwd>
#include <unordered_map>

#include <lawutil/law_data.h>

class LAW_API pointer_map : public QEM::heap_object {
  public:
    pointer_map() = default;
    pointer_map(const pointer_map&) = delete;
    pointer_map& operator=(const pointer_map&) = delete;
    /// Gives back the map's use of every copy.
    virtual ~pointer_map() noexcept(false);

    /// The copy recorded for `original` (borrowed), or null.
    law* find_law(const law* original) const;
    law_data* find_data(const law_data* original) const;
    /// Records `copy` for `original`; the map takes a use of it.
    void add_law(const law* original, law* copy);
    void add_data(const law_data* original, law_data* copy);

  private:
    std::unordered_map<const law*, law*> laws_;
    std::unordered_map<const law_data*, law_data*> data_;
};

/// A new empty map (the installed maker's, if any); the caller deletes it.
LAW_API pointer_map* make_pointer_map();
/// The copy of `original` under `pm` (one use to the caller): made with deep_copy the
/// first time, the recorded one after.  A null `pm` makes a plain deep copy; a null
/// `original` gives null.  (pm_get_law, the same for laws, is declared in law_base.h.)
LAW_API law_data* pm_get_law_data(pointer_map* pm, const law_data* original);

/// Install the kernel's versions; a null pointer reinstalls the library's.
LAW_API void set_make_pointer_map_func(pointer_map* (*make)());
LAW_API void set_pm_get_law_func(law* (*get)(pointer_map*, const law*));
LAW_API void set_pm_get_law_data_func(law_data* (*get)(pointer_map*, const law_data*));

/// A deep copy of `l` in which what `l` shares is shared (one use to the caller).
LAW_API law* law_deep_copy(const law* l);

/// Writes `l` with its data to `out`.  Raises LAW_DATA_SAVE for a datum of a kind that
/// cannot be written (the kernel's own kinds); the law classes themselves all print.
LAW_API void law_save(const law* l, std::ostream& out);
/// Reads a law written by law_save (one use to the caller).  Null when the text of the
/// law does not read (a message has been posted, as by str_to_law).
LAW_API law* law_restore(std::istream& in);
