#include <lawutil/law_base.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <vector>

#include <lawutil/internal/law_chain.h>
#include <lawutil/internal/law_ref.h>
#include <lawutil/internal/simplify_hook.h>
#include <lawutil/internal/value_buffer.h>
#include <lawutil/law_data.h>
#include <lawutil/law_thread_ctx.h>
#include <qem/threads.h>

namespace {

// Live laws are counted in a tally of the base library: each thread keeps its share, so
// that making and dropping a law takes no locked instruction for the count.
constexpr int live_law_tally = 1;

using law_internal::value_buffer;

// Evaluates through the side or guess variant when one is given.
void evaluate_dispatch(const law* l, const double* x, double* answer, const int* side,
                       const double* guess) {
    if (side)
        l->evaluate_with_side(x, answer, side);
    else if (guess)
        l->evaluate_with_guess(x, answer, guess);
    else
        l->evaluate(x, answer);
}

void require(bool ok, law_error_code code) {
    if (!ok) sys_error(code);
}

}  // namespace

// ------------------------------------------------------------------------- simplifier

namespace law_internal {
namespace {
// Constant-initialised: installed by the simplifier's static initialiser, in whatever
// order the translation units start.
std::atomic<simplifier_fn> installed_simplifier{nullptr};
}  // namespace

void install_simplifier(simplifier_fn simplify) {
    installed_simplifier.store(simplify, std::memory_order_release);
}

law* run_simplifier(const law* in, int level) {
    if (simplifier_fn simplify = installed_simplifier.load(std::memory_order_acquire))
        return simplify(in, level, 0);
    law::add(in);
    return const_cast<law*>(in);
}
}  // namespace law_internal

// ------------------------------------------------------------------------- lifetime

law::law() {
    vorn_tally_change(live_law_tally, 1);
}

law::law(const law& other) : QEM::heap_object(), shape_hash_(other.shape_hash_) {
    vorn_tally_change(live_law_tally, 1);
}

namespace {
void (*attached_release)(void*) = nullptr;
}  // namespace

void law::set_attached_release(void (*release)(void*)) {
    attached_release = release;
}

void* law::attached_programs(void* (*make)()) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (!attached_) attached_ = make();
    return attached_;
}

law::~law() noexcept(false) {
    const int count = use_count_.load(std::memory_order_relaxed);
    if (attached_ && attached_release) attached_release(attached_);
    // Release the caches first so that a use-count report leaks nothing.
    for (int i = 0; i < dlaw_cache_size_; ++i)
        if (dlaw_cache_[i] != this) remove(dlaw_cache_[i]);
    vorn_discard(dlaw_cache_);
    if (simplified_ != this) remove(simplified_);
    if (inverse_ != this) remove(inverse_);
    remove(post_form_);
    vorn_tally_change(live_law_tally, -1);
    if (count != 0) {
        // Throwing while another exception unwinds would end the process.
        if (std::uncaught_exceptions() > 0)
            sys_warning(BAD_LAW_USE_COUNT);
        else
            sys_error(BAD_LAW_USE_COUNT);
    }
}

void law::add(const law* l) {
    if (l) l->use_count_.fetch_add(1, std::memory_order_relaxed);
}

namespace {

// Laws whose last use went while another law was being destroyed on this thread.  They
// are destroyed by the outermost remove, one after another, so that releasing a tree
// as deep as a 10000-term sum takes no deeper a stack than releasing a leaf.  The list
// lives on the outermost remove's stack and the thread keeps only a plain pointer to it:
// a law may be released at any time, after this thread's thread-local objects are gone
// (a static cache emptied at exit) or while the thread ends, with nothing to destroy.
using deferred_deletions = std::vector<const law*>;
thread_local deferred_deletions* draining = nullptr;

}  // namespace

void law::remove(const law* l) {
    if (!l) return;
    const int after = l->use_count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (static_cast<unsigned>(after) > 1000000000u) sys_error(BAD_LAW_USE_COUNT);
    if (after != 0) return;
    if (draining) {
        draining->push_back(l);
        return;
    }
    deferred_deletions pending;
    draining = &pending;
    // Whatever a destructor raises, the rest are still destroyed and the pointer reset.
    QEM::scope_exit finish([&pending] {
        while (!pending.empty()) {
            const law* next = pending.back();
            pending.pop_back();
            try {
                delete next;
            } catch (const vorn_exception&) {
                // Reported by the first destructor that raised; the rest go quietly.
            }
        }
        draining = nullptr;
    });
    delete l;
}

long law::live_laws() {
    return vorn_tally_total(live_law_tally);
}

// ------------------------------------------------------------------------- identity

int law::isa(int type_id) const {
    return type_id == law_id;
}
int law::type() const {
    return law_id;
}
int law::date() const {
    return 20200;
}

int law::return_dim() const {
    int d = return_dim_.load(std::memory_order_relaxed);
    if (d < 0) {
        d = return_size();
        return_dim_.store(d, std::memory_order_relaxed);
    }
    return d;
}

int law::take_dim() const {
    int d = take_dim_.load(std::memory_order_relaxed);
    if (d < 0) {
        d = take_size();
        take_dim_.store(d, std::memory_order_relaxed);
    }
    return d;
}

int law::take_size() const {
    return 1;
}
int law::return_size() const {
    return 1;
}

// ------------------------------------------------------------------------- text

const char* law::symbol(law_symbol_type) const {
    sys_error(LAW_SYMBOL);
}
int law::precedence() const {
    return 8;
}

char* law::string(law_symbol_type type, QEM::optional<int&>, QEM::optional<law_data_node*&>) const {
    const char* s = symbol(type);
    const size_t n = std::strlen(s) + 1;
    char* out = QEM_ALLOC_ARRAY(char, n);
    std::memcpy(out, s, n);
    return out;
}

char* law::string_and_data(law_data*** data, int* size, law_symbol_type type) const {
    int count = 0;
    law_data_node* list = nullptr;
    char* text = string(type, count, list);
    law_data** array = nullptr;
    const int n = list ? list->get_array(array) : 0;
    // The caller owns a use of each datum; the list's own uses go with the list.
    for (int i = 0; i < n; ++i) array[i]->add();
    delete list;
    if (data)
        *data = array;
    else {
        for (int i = 0; i < n; ++i) array[i]->remove();
        vorn_discard(array);
    }
    if (size) *size = n;
    return text;
}

char* number_string(double value) {
    char* out = QEM_ALLOC_ARRAY(char, 24);
    // to_chars with general format and precision 16 is "%.16g" in the C locale,
    // whatever locale the host process has set.
    auto res = std::to_chars(out, out + 23, value, std::chars_format::general, 16);
    *res.ptr = '\0';
    return out;
}

// ------------------------------------------------------------------------- structure

int law::same(const law*, const law*) const {
    return 0;
}

bool law::operator==(const law& other) const {
    if (this == &other) return true;
    if (type() != other.type() || shape_hash_ != other.shape_hash_) return false;
    return same(this, &other) != 0;
}

std::uint64_t law::mix_shape_hash(std::uint64_t hash, std::uint64_t value) {
    // One round of a 64-bit finaliser over the running hash and the new value.
    std::uint64_t z = hash ^ (value + 0x9e3779b97f4a7c15ULL + (hash << 6) + (hash >> 2));
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

std::uint64_t law::mix_shape_hash(std::uint64_t hash, const law* part) {
    if (!part) return mix_shape_hash(hash, std::uint64_t{0x5bd1e995});
    return mix_shape_hash(mix_shape_hash(hash, static_cast<std::uint64_t>(part->type()) + 1),
                          part->shape_hash_);
}

law* law::deep_copy(pointer_map*) const {
    sys_error(LAW_DEEP_COPY);
}
law_polynomial* law::polynomial(law*) const {
    return nullptr;
}

void law::hasa(int type_id, VOID_LIST& found) const {
    if (isa(type_id)) found.add(const_cast<law*>(this));
}

void law::full_size(SizeAccumulator& size, int count_self) const {
    if (count_self) size.add(sizeof(law));
    size.add(sizeof(law*) * static_cast<size_t>(dlaw_cache_size_));
}

// ------------------------------------------------------------------------- domains

int law::term_domain(int, QEM::interval& domain) const {
    domain = QEM::interval(QEM::interval_infinite);
    return 1;
}

int law::in_domain(double*) const {
    return 1;
}

int law::singularities(double** where, int** order, double, double, double** period) const {
    if (where) *where = nullptr;
    if (order) *order = nullptr;
    if (period) *period = nullptr;
    return 0;
}

// law::set_domain builds a domain_law, so it is defined with that class in main_law.cpp.

law* law::set_range(QEM::interval*, int) const {
    return nullptr;
}

QEM::interval law::estimate_bounds(const QEM::interval&, int&) const {
    sys_error(LAW_BAD_BOUNDS);
}

QEM::interval law::bounds(double lo, double hi, int samples) const {
    if (samples < 2) samples = 2;
    double low = HUGE_VAL, high = -HUGE_VAL;
    for (int i = 0; i < samples; ++i) {
        const double v = eval(lo + (hi - lo) * i / (samples - 1));
        low = std::min(low, v);
        high = std::max(high, v);
    }
    return QEM::interval(low, high);
}

law* law::sub_simplify(int, QEM::optional<const char*&>) const {
    return nullptr;
}
law* law::enable_branching() const {
    return nullptr;
}
int law::branches() const {
    return 0;
}

// ------------------------------------------------------------------------- evaluation

void law::evaluate(const double*, double*) const {
    sys_error(LAW_EVAL);
}

void law::evaluate_with_side(const double* x, double* answer, const int*) const {
    evaluate(x, answer);
}

void law::evaluate_with_guess(const double* x, double* answer, const double*) const {
    evaluate(x, answer);
}

void law::evaluateVAR(const double* x, double*& answer, int& answer_size) const {
    const int n = return_dim();
    QEM::scoped_heap_array<double> values(
        QEM_ALLOC_ARRAY(double, static_cast<size_t>(n > 0 ? n : 1)));
    evaluate(x, values.get());
    answer_size = n;
    answer = values.release();
}

double law::evaluate_scalar(const double* x) const {
    const int n = return_dim();
    if (n == 1) {
        double v;
        evaluate(x, &v);
        return v;
    }
    value_buffer out(n);
    evaluate(x, out.data());
    return out.data()[0];
}

double law::eval(double x, const int* side, const double* guess) const {
    const int n = take_dim();
    value_buffer in(n);
    for (int i = 0; i < n; ++i) in.data()[i] = x;
    value_buffer out(return_dim());
    evaluate_dispatch(this, in.data(), out.data(), side, guess);
    return out.data()[0];
}

double law::evaluateM_R(const double* x, const int* side, const double* guess) const {
    require(return_dim() == 1, LAW_EVALS);
    double v;
    evaluate_dispatch(this, x, &v, side, guess);
    return v;
}

double law::evaluateNV_R(const QEM::nvector& x, const int* side) const {
    require(take_dim() <= x.size(), LAW_DIM);
    return evaluateM_R(x.data(), side);
}

double law::evaluateC_R(const QEM::complex_number& z) const {
    require(take_dim() <= 2, LAW_DIM);
    const double x[2] = {z.real(), z.imag()};
    return evaluateM_R(x);
}

double law::evaluateDR_R(double x, int order, const int* side) const {
    require(take_dim() <= 1, LAW_DIM);
    law_ref d = law_ref::adopt(nth_derivative(order));
    return d->evaluateM_R(&x, side);
}

double law::evaluateDM_R(const double* x, int order, const int* side) const {
    law_ref d = law_ref::adopt(nth_derivative(order));
    return d->evaluateM_R(x, side);
}

void law::evaluateDM(const double* x, double* answer, int order, const int* side) const {
    law_ref d = law_ref::adopt(nth_derivative(order));
    evaluate_dispatch(d.get(), x, answer, side, nullptr);
}

QEM::vector law::evaluateR_V(double x, const int* side, const double* guess) const {
    require(return_dim() == 3, LAW_EVALV);
    require(take_dim() == 1, LAW_EVALV_ONE);
    double v[3];
    evaluate_dispatch(this, &x, v, side, guess);
    return QEM::vector(v[0], v[1], v[2]);
}

QEM::unit_vector law::evaluateR_UV(double x, const int* side) const {
    require(return_dim() == 3, LAW_EVALV);
    require(take_dim() <= 1, LAW_EVALV_ONE);
    double v[3];
    evaluate_dispatch(this, &x, v, side, nullptr);
    return QEM::unit_vector(v[0], v[1], v[2]);
}

QEM::position law::evaluateR_P(double x, const int* side) const {
    require(return_dim() == 3, LAW_EVALV);
    require(take_dim() <= 1, LAW_EVALV_ONE);
    double v[3];
    evaluate_dispatch(this, &x, v, side, nullptr);
    return QEM::position(v[0], v[1], v[2]);
}

QEM::vector law::evaluateDR_V(double x, int order, const int* side) const {
    require(return_dim() == 3, LAW_EVALDV);
    require(take_dim() == 1, LAW_EVALDV_ONE);
    law_ref d = law_ref::adopt(nth_derivative(order));
    double v[3];
    evaluate_dispatch(d.get(), &x, v, side, nullptr);
    return QEM::vector(v[0], v[1], v[2]);
}

QEM::vector law::evaluateM_V(const double* x, const int* side, const double* guess) const {
    require(return_dim() == 3, LAW_EVALVM);
    double v[3];
    evaluate_dispatch(this, x, v, side, guess);
    return QEM::vector(v[0], v[1], v[2]);
}

QEM::position law::evaluateM_P(const double* x, const int* side, const double* guess) const {
    // The vector code, deliberately, for positions too.
    require(return_dim() == 3, LAW_EVALV);
    double v[3];
    evaluate_dispatch(this, x, v, side, guess);
    return QEM::position(v[0], v[1], v[2]);
}

QEM::par_pos law::evaluateM_PP(const double* x, const int* side) const {
    require(return_dim() == 2, LAW_DIM);
    double v[2];
    evaluate_dispatch(this, x, v, side, nullptr);
    return QEM::par_pos(v[0], v[1]);
}

QEM::matrix law::evaluateM_MAT(const double* x, const int* side) const {
    require(return_dim() == matrix_size, LAW_EVALMMAT);
    double v[matrix_size];
    evaluate_dispatch(this, x, v, side, nullptr);
    return QEM::matrix(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
}

QEM::transf law::evaluateM_T(const double* x, const int* side) const {
    require(return_dim() == transf_size, LAW_EVALMT);
    double v[transf_size];
    evaluate_dispatch(this, x, v, side, nullptr);
    return QEM::transf(QEM::matrix(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]),
                       QEM::vector(v[9], v[10], v[11]));
}

QEM::position law::evaluateNV_P(const QEM::nvector& x, const int* side) const {
    require(take_dim() <= x.size(), LAW_DIM);
    return evaluateM_P(x.data(), side);
}

QEM::vector law::evaluateNV_V(const QEM::nvector& x, const int* side) const {
    require(take_dim() <= x.size(), LAW_DIM);
    return evaluateM_V(x.data(), side);
}

QEM::position law::evaluateP_P(const QEM::position& p, const int* side) const {
    require(take_dim() <= 3, LAW_DIM);
    const double x[3] = {p.x(), p.y(), p.z()};
    return evaluateM_P(x, side);
}

QEM::par_pos law::evaluateP_PP(const QEM::position& p, const int* side) const {
    require(take_dim() <= 3, LAW_DIM);
    const double x[3] = {p.x(), p.y(), p.z()};
    return evaluateM_PP(x, side);
}

QEM::position law::evaluatePP_P(const QEM::par_pos& uv, const int* side) const {
    require(take_dim() <= 2, LAW_DIM);
    const double x[2] = {uv.u(), uv.v()};
    return evaluateM_P(x, side);
}

QEM::vector law::evaluatePP_V(const QEM::par_pos& uv, const int* side) const {
    require(take_dim() <= 2, LAW_DIM);
    const double x[2] = {uv.u(), uv.v()};
    return evaluateM_V(x, side);
}

// ------------------------------------------------------------------------- derivatives

law* law::deriv(int) const {
    return nullptr;
}
law* law::sub_inverse() const {
    return nullptr;
}

void law::set_dlaw_cache(int which) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (which + 1 <= dlaw_cache_size_) return;
    law** grown = QEM_ALLOC_ARRAY(law*, static_cast<size_t>(which + 1));
    for (int i = 0; i <= which; ++i) grown[i] = i < dlaw_cache_size_ ? dlaw_cache_[i] : nullptr;
    vorn_discard(dlaw_cache_);
    dlaw_cache_ = grown;
    dlaw_cache_size_ = which + 1;
}

// No law has this many variables; a larger index is a mistake, not a zero derivative to
// cache in an array of that size.
constexpr int max_variable = 65535;

law* law::derivative(int which) const {
    if (which < 0 || which > max_variable || incomplete()) sys_error(LAW_DERIV);
    // Each operand's derivative is taken inside its operator's: the nesting is counted.
    law_internal::walk_level level;
    if (level.too_deep()) sys_error(LAW_DERIV);
    std::lock_guard<std::recursive_mutex> hold(lock_);
    set_dlaw_cache(which);
    if (!dlaw_cache_[which]) {
        law_ref raw = law_ref::adopt(deriv(which));
        law_ref simple = law_ref::adopt(law_internal::run_simplifier(raw.get(), 1));
        if (!simple) sys_error(LAW_DERIV);
        set_derivative(which, simple.get(), 1);
    }
    law* d = dlaw_cache_[which];
    add(d);
    return d;
}

law* law::nth_derivative(int n) const {
    law_ref current = law_ref::retain(this);
    for (int i = 0; i < n; ++i) current = law_ref::adopt(current->derivative(0));
    return current.release();
}

law* law::uv_partials(int nu, int nv) const {
    law_ref current = law_ref::retain(this);
    for (int i = 0; i < nu; ++i) current = law_ref::adopt(current->derivative(0));
    for (int i = 0; i < nv; ++i) current = law_ref::adopt(current->derivative(1));
    return current.release();
}

int law::cached_derivative(int which) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return which >= 0 && which < dlaw_cache_size_ && dlaw_cache_[which] != nullptr;
}

int law::has_derivative(int which) const {
    law* d = deriv(which);
    if (!d) return 0;
    remove(d);
    return 1;
}

int law::set_derivative(int which, law* d, int share) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    set_dlaw_cache(which);
    law* old = dlaw_cache_[which];
    dlaw_cache_[which] = nullptr;
    if (old != this) remove(old);
    if (share) {
        if (d != this) add(d);
        dlaw_cache_[which] = d;
    } else {
        dlaw_cache_[which] = d ? d->deep_copy(nullptr) : nullptr;
    }
    return 1;
}

void law::reset_derivative(int which) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (which < 0 || which >= dlaw_cache_size_) return;
    law* old = dlaw_cache_[which];
    dlaw_cache_[which] = nullptr;
    if (old != this) remove(old);
}

// ------------------------------------------------------------------------- simplified form

int law::is_simplified(int level) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return simplified_ != nullptr && simplify_level_ >= level;
}

law* law::simplified_form(int level) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (!is_simplified(level)) return nullptr;
    add(simplified_);
    return simplified_;
}

void law::reset_simplify(law* s, int level) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    law* old = simplified_;
    simplified_ = nullptr;
    if (old != this) remove(old);
    if (s != this) add(s);
    simplified_ = s;
    simplify_level_ = level;
}

void law::set_simplify(law* s, int level) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (simplified_ == nullptr || simplify_level_ < level) reset_simplify(s, level);
}

law* law::post_form() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    add(post_form_);
    return post_form_;
}

void law::set_post_form(law* post) const {
    if (post == this) return;  // kept by the pass: pass_keeps says so without a cycle
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (post_form_) return;
    add(post);
    post_form_ = post;
}

law* law::simplify(int level, int) const {
    // 666 is an old alias of level 1, kept for callers that still pass it.
    if (level == 666) level = 1;
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (!is_simplified(level)) {
        law_ref result = law_ref::adopt(simplify_locked(level));
        reset_simplify(result.get(), level);
    }
    add(simplified_);
    return simplified_;
}

// Simplifies, then restricts the result again to this law's domains when the rewrite
// changed any of them, so that simplification never widens a domain.
law* law::simplify_locked(int level) const {
    law_ref simple = law_ref::adopt(law_internal::run_simplifier(this, level));
    if (!simple) return nullptr;
    const int n = std::max(1, take_dim());
    std::vector<QEM::interval> domains(static_cast<size_t>(n));
    bool differs = false;
    for (int i = 0; i < n; ++i) {
        QEM::interval mine;
        term_domain(i, domains[static_cast<size_t>(i)]);
        simple->term_domain(i, mine);
        if (!(mine == domains[static_cast<size_t>(i)])) differs = true;
    }
    if (!differs) return simple.release();
    return simple->set_domain(domains.data(), n);
}

// ------------------------------------------------------------------------- inverse

void law::set_inverse(law* inv) const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    law* old = inverse_;
    inverse_ = nullptr;
    if (old != this) remove(old);
    if (inv != this) add(inv);
    inverse_ = inv;
}

law* law::inverse() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    if (!inverse_) {
        law_ref inv = law_ref::adopt(sub_inverse());
        if (inv) set_inverse(inv.get());
    }
    return inverse_;
}

// ------------------------------------------------------------------------- shape tests

int law::constant() const {
    return isa(constant_law_id) || take_dim() == 0;
}

int law::zero(double value, double tol) const {
    return constant() && std::fabs(eval(0.0) - value) <= tol;
}

int law::integer() const {
    if (!constant()) return 0;
    const double v = eval(0.0);
    return std::isfinite(v) && v == std::floor(v);
}

int law::linear() const {
    const int n = std::max(1, take_dim());
    for (int i = 0; i < n; ++i) {
        law_ref d = law_ref::adopt(derivative(i));
        if (!d->constant()) return 0;
    }
    return 1;
}

int law::identity(QEM::interval*) const {
    return isa(identity_law_id);
}

int law::safe_convert_to_int(double value) {
    if (std::isnan(value)) {
        restore_law_problem_found();
        return 0;
    }
    if (value < -2147483648.0 || value > 2147483647.0) {
        restore_law_problem_found();
        // Out-of-range conversion is undefined in C++; saturate instead.
        return value < 0 ? INT32_MIN : INT32_MAX;
    }
    return static_cast<int>(value);
}

// ------------------------------------------------------------------------- part checks

int law::check_type(const law* l, int type_id) {
    return l != nullptr && l->isa(type_id);
}

int law::check_take_dim(const law* l, int dim) {
    return l != nullptr && l->take_dim() == dim;
}

int law::check_return_dim(const law* l, int dim) {
    return l != nullptr && l->return_dim() == dim;
}

// ------------------------------------------------------------------------- library setup

namespace {
std::mutex setup_lock;
int setup_count = 0;
std::atomic<int> next_law_id{law_last_builtin_id + 1};
}  // namespace

int initialize_law() {
    std::lock_guard<std::mutex> hold(setup_lock);
    if (setup_count++ == 0) {
        QEM::qem_component_info::addComponent("lawutil");
        law_internal::create_thread_contexts();
    }
    return 1;
}

int terminate_law() {
    std::lock_guard<std::mutex> hold(setup_lock);
    if (setup_count == 0) return 0;
    if (--setup_count == 0) {
        law_internal::destroy_thread_contexts();
        QEM::qem_component_info::removeComponent("lawutil");
    }
    return 1;
}

int new_law_id() {
    QEM::mt_thread_not_permitted();
    return ++next_law_id;
}
