#include "device/korvane/smart_terms.h"

#include <algorithm>

namespace korvane {

std::string plainSmartWord(std::string_view word) {
    std::string plain(word);
    std::ranges::transform(plain, plain.begin(), [](char letter) {
        if (letter == '_')
            return '-';
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return plain;
}

const SmartFieldTerm* smartFieldNamed(std::string_view word) {
    const std::string plain = plainSmartWord(word);
    const auto* found = std::ranges::find_if(SmartFieldTerms, [&](const SmartFieldTerm& term) {
        return term.name == plain || (!term.alias.empty() && term.alias == plain);
    });
    return found == std::end(SmartFieldTerms) ? nullptr : found;
}

const SmartFieldTerm& smartFieldTerm(SmartField field) {
    return *std::ranges::find(SmartFieldTerms, field, &SmartFieldTerm::field);
}

}  // namespace korvane
