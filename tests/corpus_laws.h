#pragma once
// The fuzz corpus read as laws, for the tests that compare two ways of evaluating one law.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "law_builders.h"

namespace law_test {

struct corpus_law {
    std::string text;
    law_ref law;
};

/// The texts of `dir` that read as laws of at most 8 variables and 64 values, without the
/// laws that differentiate when evaluated (the fuzzer leaves those out too).
inline std::vector<corpus_law> corpus_laws(const char* dir) {
    std::vector<corpus_law> laws;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        std::ifstream file(entry.path());
        std::stringstream text;
        text << file.rdbuf();
        law_ref l = law_ref::adopt(str_to_law(text.str().c_str()));
        if (!l || l->take_dim() > 8 || l->return_dim() > 64) continue;
        VOID_LIST found;
        for (int type : {derivative_law_id, frenet_law_id, surfnorm_law_id}) l->hasa(type, found);
        if (found.count() == 0) laws.push_back({text.str(), std::move(l)});
    }
    return laws;
}

}  // namespace law_test
