#include "support/clsComponentRegistry.h"

#include <algorithm>
#include <cctype>
#include <tuple>

#include "support/clsRunError.h"
#include "support/modConst.h"

namespace {

// A designator split into its prefix and its trailing decimal number.
struct clsDesignator {
    std::string sPrefix;
    bool bHasNumber = false;
    std::string sDigits;  // the number as written, for exact output
    unsigned long long lNumber = 0;
    std::string sWhole;
};

clsDesignator SplitDesignator(const std::string& s) {
    clsDesignator d;
    d.sWhole = s;
    size_t p = s.size();
    while (p > 0 && std::isdigit(static_cast<unsigned char>(s[p - 1])))
        --p;
    d.sPrefix = s.substr(0, p);
    d.sDigits = s.substr(p);
    // Numbers too long to hold are kept as text without a number.
    if (!d.sDigits.empty() && d.sDigits.size() <= 18) {
        d.bHasNumber = true;
        d.lNumber = std::stoull(d.sDigits);
    } else {
        d.sPrefix = s;
        d.sDigits.clear();
    }
    return d;
}

}  // namespace

std::vector<std::string> clsGroupRanges::Group(const std::vector<std::string>& arrDesignators) {
    std::vector<clsDesignator> arr;
    arr.reserve(arrDesignators.size());
    for (const auto& s : arrDesignators)
        arr.push_back(SplitDesignator(s));
    std::sort(arr.begin(), arr.end(), [](const clsDesignator& a, const clsDesignator& b) {
        return std::tie(a.sPrefix, a.bHasNumber, a.lNumber, a.sWhole) <
               std::tie(b.sPrefix, b.bHasNumber, b.lNumber, b.sWhole);
    });
    arr.erase(std::unique(arr.begin(), arr.end(),
                          [](const clsDesignator& a, const clsDesignator& b) {
                              return a.sWhole == b.sWhole;
                          }),
              arr.end());

    std::vector<std::string> arrOut;
    size_t i = 0;
    while (i < arr.size()) {
        size_t j = i;
        // Extend a run of consecutive numbers of one prefix.
        while (arr[i].bHasNumber && j + 1 < arr.size() && arr[j + 1].bHasNumber &&
               arr[j + 1].sPrefix == arr[i].sPrefix && arr[j + 1].lNumber == arr[j].lNumber + 1) {
            ++j;
        }
        if (j - i + 1 >= 3) {
            arrOut.push_back(arr[i].sWhole + "-" + arr[j].sWhole);
        } else {
            for (size_t k = i; k <= j; ++k)
                arrOut.push_back(arr[k].sWhole);
        }
        i = j + 1;
    }
    return arrOut;
}

clsComponentRegistry clsComponentRegistry::WithDefaults() {
    clsComponentRegistry r;
    r.RegisterGroup(GROUP_PROG_ID, [] { return std::make_unique<clsGroupRanges>(); });
    return r;
}

void clsComponentRegistry::RegisterGroup(const std::string& sProgID, GroupFactory fnFactory) {
    groups_[sProgID] = std::move(fnFactory);
}

void clsComponentRegistry::Unregister(const std::string& sProgID) {
    groups_.erase(sProgID);
}

std::unique_ptr<IclsGroup> clsComponentRegistry::CreateGroup(const std::string& sProgID) const {
    auto it = groups_.find(sProgID);
    if (it == groups_.end() || !it->second) RaiseError(modConst::errCantCreateObject);
    auto oGroup = it->second();
    if (!oGroup) RaiseError(modConst::errCantCreateObject);
    return oGroup;
}
