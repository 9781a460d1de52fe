#include <lawutil/polylaw.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <unordered_map>
#include <vector>

#include <lawutil/internal/law_ref.h>
#include <lawutil/law_unary.h>
#include <lawutil/main_law.h>
#include <lawutil/simplfy.h>
#include <qem/qem_printf.h>

// ============================================================== law_polynomial

law_polynomial::law_polynomial()
    : degree_(0), nterms_(0), coefficients_(nullptr), powers_(nullptr), in_(nullptr) {}

law_polynomial::law_polynomial(const double* c, const int* p, int n, law* in) : law_polynomial() {
    int deg = 0;
    for (int i = 0; i < n; ++i) deg = std::max(deg, p[i]);
    assign(c, p, n, in, deg);
}

law_polynomial::law_polynomial(const law_polynomial& o) : law_polynomial() {
    assign(o.coefficients_, o.powers_, o.nterms_, o.in_, o.degree_);
}

law_polynomial& law_polynomial::operator=(const law_polynomial& o) {
    if (this != &o) {
        law_polynomial copy(o);
        std::swap(degree_, copy.degree_);
        std::swap(nterms_, copy.nterms_);
        std::swap(coefficients_, copy.coefficients_);
        std::swap(powers_, copy.powers_);
        std::swap(in_, copy.in_);
    }
    return *this;
}

law_polynomial::~law_polynomial() {
    vorn_discard(coefficients_);
    vorn_discard(powers_);
    law::remove(in_);
}

void law_polynomial::assign(const double* c, const int* p, int n, law* in, int degree) {
    QEM::scoped_heap_array<double> coefficients(QEM_ALLOC_ARRAY(double, n > 0 ? n : 1));
    QEM::scoped_heap_array<int> powers(QEM_ALLOC_ARRAY(int, n > 0 ? n : 1));
    std::copy(c, c + n, coefficients.get());
    std::copy(p, p + n, powers.get());
    law::add(in);
    vorn_discard(coefficients_);
    vorn_discard(powers_);
    law::remove(in_);
    coefficients_ = coefficients.release();
    powers_ = powers.release();
    nterms_ = n;
    degree_ = degree;
    in_ = in;
}

law_polynomial law_polynomial::failed() {
    law_polynomial p;
    p.degree_ = -1;
    return p;
}

double law_polynomial::coefficent(int power) const {
    for (int i = 0; i < nterms_; ++i)
        if (powers_[i] == power) return coefficients_[i];
    return 0.0;
}

void law_polynomial::print() const {
    if (in_) {
        char* s = in_->string();
        qem_printf("Polynomial in %s\n", s);
        vorn_discard(s);
    } else {
        qem_printf("Polynomial\n");
    }
    qem_printf("Of degree %d\n", degree_);
    for (int i = 0; i < nterms_; ++i) qem_printf("Term %d = %f\n", powers_[i], coefficients_[i]);
}

namespace {

/// The law two polynomials share, or false when both have one and they differ.
bool common_in(const law_polynomial& p, const law_polynomial& q, law** in) {
    if (p.in() && q.in() && *p.in() != *q.in()) return false;
    *in = p.in() ? p.in() : q.in();
    return true;
}

/// Each term, in order, takes in the coefficients of the later terms of the same power
/// (which become 0); then terms that are exactly 0 are dropped (NaN is kept, on purpose).
void merge_terms(std::vector<double>& c, std::vector<int>& p) {
    // The first term of each power takes in the later ones in their order: the same sums
    // as the pairwise scan, in linear time.
    std::unordered_map<int, size_t> first;
    first.reserve(p.size());
    for (size_t j = 0; j < p.size(); ++j) {
        const auto [at, fresh] = first.emplace(p[j], j);
        if (fresh) continue;
        c[at->second] += c[j];
        c[j] = 0.0;
    }
    size_t k = 0;
    for (size_t i = 0; i < p.size(); ++i)
        if (c[i] != 0.0) {
            c[k] = c[i];
            p[k++] = p[i];
        }
    c.resize(k);
    p.resize(k);
}

int largest_power(const std::vector<int>& p) {
    return p.empty() ? 0 : *std::max_element(p.begin(), p.end());
}

}  // namespace

law_polynomial operator*(const law_polynomial& p, const law_polynomial& q) {
    law* in;
    if (!common_in(p, q, &in)) return law_polynomial::failed();
    // A power or degree past int cannot be stored: the product fails instead of wrapping.
    auto fits = [](long v) { return v >= INT_MIN && v <= INT_MAX; };
    if (!fits(static_cast<long>(p.degree_) + q.degree_)) return law_polynomial::failed();
    for (int i = 0; i < p.nterms_; ++i)
        for (int j = 0; j < q.nterms_; ++j)
            if (!fits(static_cast<long>(p.powers_[i]) + q.powers_[j]))
                return law_polynomial::failed();
    std::vector<double> c;
    std::vector<int> pw;
    for (int i = 0; i < p.nterms_; ++i)
        for (int j = 0; j < q.nterms_; ++j) {
            c.push_back(p.coefficients_[i] * q.coefficients_[j]);
            pw.push_back(p.powers_[i] + q.powers_[j]);
        }
    merge_terms(c, pw);
    law_polynomial r;
    r.assign(c.data(), pw.data(), static_cast<int>(c.size()), in, p.degree_ + q.degree_);
    return r;
}

law_polynomial operator+(const law_polynomial& p, const law_polynomial& q) {
    law* in;
    if (!common_in(p, q, &in) || p.degree_ < 0 || q.degree_ < 0) return law_polynomial::failed();
    std::vector<double> c(p.coefficients_, p.coefficients_ + p.nterms_);
    std::vector<int> pw(p.powers_, p.powers_ + p.nterms_);
    c.insert(c.end(), q.coefficients_, q.coefficients_ + q.nterms_);
    pw.insert(pw.end(), q.powers_, q.powers_ + q.nterms_);
    merge_terms(c, pw);
    law_polynomial r;
    r.assign(c.data(), pw.data(), static_cast<int>(c.size()), in, largest_power(pw));
    return r;
}

law_polynomial operator-(const law_polynomial& p) {
    law_polynomial r(p);
    for (int i = 0; i < r.nterms_; ++i) r.coefficients_[i] = -r.coefficients_[i];
    return r;
}

law_polynomial operator-(const law_polynomial& p, const law_polynomial& q) {
    return p + (-q);
}

law_polynomial operator^(const law_polynomial& p, int power) {
    if (power < 0 || p.degree_ < 0) return law_polynomial::failed();
    const double one = 1.0;
    const int zero = 0;
    law_polynomial r(&one, &zero, 1, p.in_);
    for (int i = 0; i < power; ++i) r = r * p;
    return r;
}

// ============================================================== polynomial laws

law* make_polynomial_law(double* c, int degree) {
    if (!c || degree < 0) sys_error(LAW_DIM);
    if (degree == 0) return new constant_law(c[0]);
    const law_ref x = make_law<identity_law>(0, 'X');
    std::vector<law_ref> terms;
    terms.push_back(make_law<constant_law>(c[0]));
    {
        const law_ref k = make_law<constant_law>(c[1]);
        terms.push_back(make_law<times_law>(k.get(), x.get()));
    }
    for (int k = 2; k <= degree; ++k) {
        const law_ref ck = make_law<constant_law>(c[k]);
        const law_ref pk = make_law<constant_law>(k);
        const law_ref xk = make_law<exponent_law>(x.get(), pk.get());
        terms.push_back(make_law<times_law>(ck.get(), xk.get()));
    }
    // Zero coefficients are kept on purpose: the tree always has degree + 1 terms.
    std::vector<law*> raw;
    for (const law_ref& t : terms) raw.push_back(t.get());
    const law_ref proto = make_law<plus_law>(raw[0], raw[1]);
    return make_list_law(raw.data(), static_cast<int>(raw.size()),
                         static_cast<const binary_law*>(proto.get()));
}

namespace {

using poly_ptr = std::unique_ptr<law_polynomial>;

/// `l` as a polynomial in `var`: var itself is var^1; anything else asks the law.
poly_ptr poly_of(const law* l, law* var) {
    if (l->return_dim() != 1) return nullptr;
    if (var && *l == *var) {
        const double one = 1.0;
        const int first = 1;
        return poly_ptr(new law_polynomial(&one, &first, 1, var));
    }
    return poly_ptr(l->polynomial(var));
}

law_polynomial* keep(law_polynomial r) {
    if (r.degree() < 0) return nullptr;
    return new law_polynomial(r);
}

// A law read as a polynomial expands every power: a product's cost grows with the square
// of the degree, and a power's with its cube, so the total degree is capped, not only each
// exponent.
constexpr long largest_expanded_degree = 1000;

bool too_high(long degree) {
    return degree > largest_expanded_degree;
}

template <class Op>
law_polynomial* combine(const binary_law* b, law* var, Op op, bool multiplies = false) {
    if (b->return_dim() != 1) return nullptr;
    const poly_ptr p = poly_of(b->fleft(), var);
    if (!p) return nullptr;
    const poly_ptr q = poly_of(b->fright(), var);
    if (!q) return nullptr;
    if (multiplies && too_high(static_cast<long>(p->degree()) + q->degree())) return nullptr;
    return keep(op(*p, *q));
}

/// A constant that is a non-negative integer small enough to expand.
bool small_power(const law* l, int* n) {
    if (!l->isa(constant_law_id)) return false;
    const double v = static_cast<const constant_law*>(l)->value();
    constexpr double largest_expanded = 1000;
    if (!(v >= 0 && v <= largest_expanded) || v != std::floor(v)) return false;
    *n = static_cast<int>(v);
    return true;
}

}  // namespace

law_polynomial* constant_law::polynomial(law* var) const {
    const double c = value();
    const int zero = 0;
    return new law_polynomial(&c, &zero, c != 0.0 ? 1 : 0, var);
}

// Without a variable, a coordinate is a polynomial in itself.
law_polynomial* identity_law::polynomial(law* var) const {
    if (var && *this != *var) return nullptr;
    const double one = 1.0;
    const int first = 1;
    return new law_polynomial(&one, &first, 1, var ? var : const_cast<identity_law*>(this));
}

law_polynomial* plus_law::polynomial(law* var) const {
    return combine(this, var, [](const auto& p, const auto& q) { return p + q; });
}

law_polynomial* minus_law::polynomial(law* var) const {
    return combine(this, var, [](const auto& p, const auto& q) { return p - q; });
}

law_polynomial* times_law::polynomial(law* var) const {
    return combine(
        this, var, [](const auto& p, const auto& q) { return p * q; }, true);
}

// Only division by a nonzero constant keeps a polynomial.
law_polynomial* division_law::polynomial(law* var) const {
    if (return_dim() != 1 || !fright()->isa(constant_law_id)) return nullptr;
    const double d = static_cast<const constant_law*>(fright())->value();
    if (d == 0.0) return nullptr;
    const poly_ptr p = poly_of(fleft(), var);
    if (!p) return nullptr;
    const double inv = 1.0 / d;
    const int zero = 0;
    return keep(*p * law_polynomial(&inv, &zero, 1, nullptr));
}

law_polynomial* exponent_law::polynomial(law* var) const {
    int n;
    if (return_dim() != 1 || !small_power(fright(), &n)) return nullptr;
    const poly_ptr p = poly_of(fleft(), var);
    if (!p || too_high(static_cast<long>(p->degree()) * n)) return nullptr;
    return keep(*p ^ n);
}

law_polynomial* negate_law::polynomial(law* var) const {
    if (return_dim() != 1) return nullptr;
    const poly_ptr p = poly_of(fsub(), var);
    if (!p) return nullptr;
    return keep(-*p);
}

// ============================================================== integer helpers

int pow_int(int base, int exponent) {
    // Truncation after adding 0.5 rounds only non-negative results; kept so on purpose.
    return static_cast<int>(std::pow(base, exponent) + 0.5);
}

// Trial division by 2 and by the odd numbers below the square root of n; the cofactor
// left at the end is deliberately not recorded.
int factor_int(int n, int** primes, int** multiplicities) {
    if (n < 1 || !primes || !multiplicities) sys_error(LAW_DIM);
    std::vector<int> p, m;
    const int given = n;
    int twos = 0;
    while (n % 2 == 0) {
        n /= 2;
        ++twos;
    }
    if (twos) {
        p.push_back(2);
        m.push_back(twos);
    }
    const int r = static_cast<int>(std::sqrt(static_cast<double>(given)));
    if (r > 3)
        for (int d = 3; d < r; d += 2) {
            int k = 0;
            while (n % d == 0) {
                n /= d;
                ++k;
            }
            if (k) {
                p.push_back(d);
                m.push_back(k);
            }
        }
    const int count = static_cast<int>(p.size());
    *primes = *multiplicities = nullptr;
    if (count == 0) return 0;
    QEM::scoped_heap_array<int> ps(QEM_ALLOC_ARRAY(int, p.size()));
    QEM::scoped_heap_array<int> ms(QEM_ALLOC_ARRAY(int, m.size()));
    std::copy(p.begin(), p.end(), ps.get());
    std::copy(m.begin(), m.end(), ms.get());
    *primes = ps.release();
    *multiplicities = ms.release();
    return count;
}

namespace {

struct factors {
    int count = 0;
    QEM::scoped_heap_array<int> primes, mults;
    explicit factors(int n) {
        int *p = nullptr, *m = nullptr;
        count = factor_int(n, &p, &m);
        primes.reset(p);
        mults.reset(m);
    }
};

}  // namespace

int GCD_int(int* values, int count) {
    if (!values || count < 1) return 1;
    std::vector<std::unique_ptr<factors>> f;
    for (int i = 0; i < count; ++i) f.push_back(std::make_unique<factors>(values[i]));
    int result = 1;
    for (int i = 0; i < f[0]->count; ++i) {
        const int prime = f[0]->primes[i];
        int m = f[0]->mults[i];
        bool common = true;
        for (int v = 1; v < count && common; ++v) {
            // A list that runs out before reaching `prime` leaves it common, on purpose.
            for (int j = 0; j < f[v]->count; ++j) {
                if (f[v]->primes[j] > prime) {
                    common = false;
                    break;
                }
                if (f[v]->primes[j] == prime) {
                    m = std::min(m, f[v]->mults[j]);
                    break;
                }
            }
        }
        if (common) result *= pow_int(prime, m);
    }
    return result;
}
