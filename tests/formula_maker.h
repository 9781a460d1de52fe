#pragma once
// Random formulas over X and Y for the differential tests (compiled laws, jets): every
// operator family the parser knows, with the shapes that break things (equal sub-trees,
// steps, selections, powers of negative numbers).

#include <random>
#include <string>

namespace law_test {

class formula_maker {
  public:
    explicit formula_maker(unsigned seed) : rng_(seed) {}

    std::string make(int depth) {
        if (depth == 0 || pick(5) == 0) return leaf();
        static const char* const functions[] = {"SIN",  "COS",     "TAN",     "EXP",   "LN",
                                                "SQRT", "ABS",     "ARCSIN",  "FLOOR", "SEC",
                                                "SINH", "ARCCOSH", "ARCTANH", "RAND"};
        static const char* const operators[] = {"+", "-", "*", "/", "^"};
        const std::string a = make(depth - 1);
        switch (pick(9)) {
            case 0:
            case 1:
            case 2:
                return "(" + a + operators[pick(5)] + make(depth - 1) + ")";
            case 3:
                return "(" + a + "^" + leaf_exponent() + ")";
            case 4:
            case 5:
                return std::string(functions[pick(14)]) + "(" + a + ")";
            case 6:
                return "-(" + a + ")";
            case 7: {
                static const char* const infix[] = {" AND ", " OR ", "<"};
                if (pick(2)) return "(" + a + infix[pick(3)] + make(depth - 1) + ")";
                static const char* const others[] = {"MAX(", "MIN(", "TERM(VEC("};
                const int k = pick(3);
                return others[k] + a + "," + make(depth - 1) + (k == 2 ? "),1)" : ")");
            }
            default:  // one sub-formula written three times: three equal trees
                return "(" + a + "*" + a + "+" + a + ")";
        }
    }

  private:
    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
    std::string leaf() {
        static const char* const leaves[] = {"X", "Y", "X", "Y", "0", "1", "2", "0.5", "3", "PI"};
        return leaves[pick(10)];
    }
    std::string leaf_exponent() {
        static const char* const exponents[] = {"2", "3", "0.5", "(0-1)", "1.5", "X", "(1/3)"};
        return exponents[pick(7)];
    }
    std::mt19937 rng_;
};

}  // namespace law_test
