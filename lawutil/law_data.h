#pragma once
// Law data: reference-counted wrappers for things a law reads that are not laws (a law
// handed where data is expected, and, from the kernel, curves, surfaces, wires,
// transforms).  A law's text names each datum by its keyword and a number, and the
// parser is handed the data array that printing collected.

#include <atomic>

#include <lawutil/law_base.h>

/// Type ids of the data kinds (the value of law_data::type()).
enum law_data_type_id : int {
    law_data_id = 0,
    path_law_data_id = 1,
    base_wire_law_data_id = 2,
    base_curve_law_data_id = 3,
    base_pcurve_law_data_id = 4,
    base_surface_law_data_id = 5,
    law_law_data_id = 6,
    base_transform_law_data_id = 7,
    base_position_array_law_data_id = 8,
    base_pattern_law_data_id = 9,
    base_spline_law_data_id = 10,
};

class LAW_API law_data : public QEM::heap_object {
  public:
    law_data() = default;
    law_data(const law_data&) : QEM::heap_object() {}
    law_data& operator=(const law_data&) = delete;

    /// Takes one use.
    void add() const { use_count_.fetch_add(1, std::memory_order_relaxed); }
    /// Gives back one use; the last one destroys the datum.
    void remove() const;
    int ref_count() const { return use_count_.load(std::memory_order_relaxed); }

    virtual void save() const = 0;
    virtual void print() const = 0;
    virtual void input() = 0;
    /// The datum restored from saved data, or null.
    virtual law_data* restore();
    /// The keyword that names the datum in a law's text.
    virtual const char* symbol(law_symbol_type type) const = 0;
    /// The keyword and, when `count` is given and not negative, the number count + 1;
    /// then the datum is put at the head of `list` (with a use the node owns) and the
    /// count grows by one.  A new heap string the caller frees with vorn_discard.
    virtual char* string(
        law_symbol_type type, QEM::optional<int&> count = QEM::optional<int&>(),
        QEM::optional<law_data_node*&> list = QEM::optional<law_data_node*&>()) const;
    virtual int date() const;
    virtual int type() const;
    virtual law_data* deep_copy(pointer_map* pm = nullptr) const = 0;
    /// The datum restricted to `domain`; the base returns itself with one more use.
    virtual law_data* set_domain(QEM::interval* domain);
    virtual void full_size(SizeAccumulator& size, int count_self = 1) const;
    /// Never equal in the base class.
    virtual int operator==(const law_data& other) const;
    int operator!=(const law_data& other) const { return !(*this == other); }

  protected:
    /// Raises BAD_LAW_DATA_USE_COUNT when destroyed with owners left.
    virtual ~law_data() noexcept(false);
    void set_use_count(int count) const { use_count_.store(count, std::memory_order_relaxed); }

  private:
    friend class law_data_list;
    mutable std::atomic<int> use_count_{1};
};

/// The data a law's text refers to, collected while printing: new nodes go at the head,
/// so the chain holds the data in the reverse of their numbering.  Each node owns one use
/// of its datum; destroying a node releases it and destroys the rest of the chain.
class LAW_API law_data_node : public QEM::heap_object {
  public:
    law_data_node(law_data* data, law_data_node* next);
    law_data_node(const law_data_node&) = delete;
    law_data_node& operator=(const law_data_node&) = delete;
    ~law_data_node() noexcept(false);

    law_data* data;
    law_data_node* next;

    /// Nodes with a datum (every node when `with_null`), at most 100000.
    int size(bool with_null = false) const;
    /// A new heap array of size(with_null) borrowed pointers in order of numbering (the
    /// datum numbered 1 first); returns the count.  The caller frees it with vorn_discard.
    int get_array(law_data**& array, bool with_null = false) const;
};

/// A law handed where data is expected: the keyword "LAW", as in LAW1.
class LAW_API law_law_data final : public law_data {
  public:
    /// Takes a use of `held` (which may be null).
    explicit law_law_data(law* held);
    law* data_law() const { return law_; }

    void save() const override {}
    void print() const override {}
    void input() override {}
    const char* symbol(law_symbol_type) const override { return "LAW"; }
    int date() const override;
    int type() const override { return law_law_data_id; }
    law_data* deep_copy(pointer_map* pm = nullptr) const override;
    /// A new datum over the held law restricted to `domain` (one use to the caller).
    law_data* set_domain(QEM::interval* domain) override;
    void full_size(SizeAccumulator& size, int count_self = 1) const override;
    int operator==(const law_data& other) const override;

  protected:
    ~law_law_data() noexcept(false) override;

  private:
    law* law_;
};
