#include "support/modNaturalOrder.h"

#include "support/modText.h"

#include <algorithm>
#include <locale>

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The collation of the user's locale (LC_COLLATE and LANG); none (bytes) in the C locales,
// whose order is that of the bytes (and of the characters, in C.UTF-8).
const std::collate<char>* Collation() {
    static const std::collate<char>* const collation = []() -> const std::collate<char>* {
        try {
            static const std::locale locale("");
            const std::string name = locale.name();
            if (name == "C" || name == "POSIX" || name == "C.UTF-8" || name == "C.utf8")
                return nullptr;
            return &std::use_facet<std::collate<char>>(locale);
        } catch (...) {
            return nullptr;
        }
    }();
    return collation;
}

// Marks that keep a number ahead of letters at the same place, and a name's own bytes behind
// every part of the key.
constexpr char kEnd = '\0';
constexpr char kNumber = '\x01';
constexpr char kText = '\x02';

} // namespace

std::string NaturalSortKey(std::string_view name) {
    const std::collate<char>* collation = Collation();
    std::string key;
    key.reserve(name.size() * 2 + 8);
    for (size_t i = 0; i < name.size();) {
        size_t end = i;
        if (IsDigit(name[i])) {
            while (end < name.size() && IsDigit(name[end]))
                ++end;
            size_t first = i;
            while (first + 1 < end && name[first] == '0')
                ++first;
            // The count of digits first: a longer number is a larger one.
            key += kNumber;
            key += static_cast<char>(std::min<size_t>(end - first, 0xff));
            key.append(name.substr(first, end - first));
        } else {
            while (end < name.size() && !IsDigit(name[end]))
                ++end;
            const std::string lowered = LowerAscii(std::string(name.substr(i, end - i)));
            key += kText;
            if (collation)
                key += collation->transform(lowered.data(), lowered.data() + lowered.size());
            else
                key += lowered;
        }
        i = end;
    }
    key += kEnd;
    key.append(name);
    return key;
}

bool NaturalLess(std::string_view a, std::string_view b) {
    return NaturalSortKey(a) < NaturalSortKey(b);
}
