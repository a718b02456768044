// Components created by programmatic identifier, like the reference-designator grouping
// component "wexgrp.IclsGroup". A host registers its own implementations on its options.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "iclsExportExcel.h"

// Sorts by prefix and number, drops duplicates, writes runs of three or more as "R1-R3".
class clsGroupRanges : public IclsGroup {
public:
    std::vector<std::string> Group(const std::vector<std::string>& arrDesignators) override;
};

// Returns its input unchanged.
class clsGroupNone : public IclsGroup {
public:
    std::vector<std::string> Group(const std::vector<std::string>& arrDesignators) override {
        return arrDesignators;
    }
};

inline constexpr const char* GROUP_PROG_ID = "wexgrp.IclsGroup";

class clsComponentRegistry {
public:
    using GroupFactory = std::function<std::unique_ptr<IclsGroup>()>;

    // A registry with the built-in grouping component under "wexgrp.IclsGroup".
    static clsComponentRegistry WithDefaults();

    void RegisterGroup(const std::string& sProgID, GroupFactory fnFactory);
    void Unregister(const std::string& sProgID);

    // Creates the component; run-time error 429 when nothing is registered under sProgID.
    std::unique_ptr<IclsGroup> CreateGroup(const std::string& sProgID) const;

private:
    std::map<std::string, GroupFactory> groups_;
};
