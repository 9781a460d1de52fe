#pragma once
// The registries of prototype laws and law data: one default-constructed instance of
// each class that can be written as text, linked in when the library is loaded.  The
// parser reads its whole language from them (see law_util.h); a class joins it with one
// LAW_REGISTER_PROTOTYPE line in its own source file.  Law families include this header
// rather than the parser's, so that neither depends on the other.

#include <lawutil/law_base.h>

/// One node of the prototype registry.  Constructing it pushes the node at the head of the
/// list and sets the prototype's use count to 0 (prototypes are static objects, never
/// owned), so the list runs in the reverse of registration order.
class LAW_API law_list {
  public:
    explicit law_list(law* prototype);
    law_list(const law_list&) = delete;
    law_list& operator=(const law_list&) = delete;

    law* prototype() const { return prototype_; }
    const law_list* next() const { return next_; }
    /// The most recently registered node, or null.
    static const law_list* head();

  private:
    law* prototype_;
    law_list* next_;
};

/// One node of the law-data prototype registry (keywords such as "SPLINE_LAW").
class LAW_API law_data_list {
  public:
    explicit law_data_list(law_data* prototype);
    law_data_list(const law_data_list&) = delete;
    law_data_list& operator=(const law_data_list&) = delete;

    law_data* prototype() const { return prototype_; }
    const law_data_list* next() const { return next_; }
    static const law_data_list* head();

  private:
    law_data* prototype_;
    law_data_list* next_;
};

/// Registers a static prototype of `cls`, built from the constructor arguments that
/// follow (null parts), in the law registry.
#define LAW_REGISTER_PROTOTYPE(cls, ...)                        \
    namespace {                                                 \
    cls cls##_prototype_object{__VA_ARGS__};                    \
    const law_list cls##_registration(&cls##_prototype_object); \
    }

/// The same for law-data prototypes.
#define LAW_REGISTER_DATA_PROTOTYPE(cls, ...)                        \
    namespace {                                                      \
    cls cls##_prototype_object{__VA_ARGS__};                         \
    const law_data_list cls##_registration(&cls##_prototype_object); \
    }

/// The registered prototype whose class has type id `type_id`, or null (borrowed: a
/// prototype is never owned).  Lets a family build a law of another family's class with
/// the prototype's make_one, without depending on that family's header.
LAW_API const law* law_prototype_of(int type_id);
