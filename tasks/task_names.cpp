#include "tasks/task_names.h"

#include <cstddef>

#include "frame/convert.h"

namespace vrn::tasks {

namespace {

bool IsLetterOrDigit(char16_t c) {
    return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

size_t WideLength(const char16_t* text) {
    size_t length = 0;
    if (text != nullptr) {
        while (text[length] != 0) ++length;
    }
    return length;
}

// The braced identifier: {8-4-4-4-12}, letters and digits between the hyphens.
constexpr size_t kCloseBrace = 37;
constexpr size_t kSeparator = 38;
constexpr size_t kCompanyStart = 39;
constexpr size_t kHyphens[] = {9, 14, 19, 24};
constexpr char16_t kSuffix[] = u".job";
constexpr size_t kSuffixLength = 4;

bool IsHyphenPosition(size_t position) {
    for (size_t hyphen : kHyphens) {
        if (position == hyphen) return true;
    }
    return false;
}

}  // namespace

int MatchTaskFileName(const char16_t* name, const char16_t* company, const char16_t* instance) {
    if (name == nullptr) return -1;
    const size_t length = WideLength(name);
    const size_t companyLength = WideLength(company);
    const size_t markLength = instance != nullptr ? WideLength(instance) + 1 : 0;
    // With a company, the company and the instance mark fill the name exactly,
    // so DITTA1 can't match the front of DITTA12.
    if (company != nullptr && length != kCompanyStart + companyLength + markLength + kSuffixLength) return -1;
    if (length < kSeparator || name[0] != u'{' || name[kCloseBrace] != u'}') return -2;
    for (size_t i = 1; i < kCloseBrace; ++i) {
        if (IsHyphenPosition(i) ? name[i] != u'-' : !IsLetterOrDigit(name[i])) return -2;
    }
    if (name[kSeparator] != u'-') return -3;
    if (company != nullptr && !EqualIgnoringAsciiCase(name + kCompanyStart, company, companyLength)) return -4;
    if (length < kSuffixLength || !EqualIgnoringAsciiCase(name + length - kSuffixLength, kSuffix, kSuffixLength)) {
        return -5;
    }
    if (instance != nullptr) {
        if (length < markLength + kSuffixLength || name[length - markLength - kSuffixLength] != u'$') return -6;
        if (!EqualIgnoringAsciiCase(name + length - markLength - kSuffixLength + 1, instance, markLength - 1)) return -7;
    } else {
        for (size_t i = 0; i < length; ++i) {
            if (name[i] == u'$') return -8;
        }
    }
    return 0;
}

}  // namespace vrn::tasks
