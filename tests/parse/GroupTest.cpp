// The built-in grouping of reference designators.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "parse/clsExportContext.h"
#include "support/clsComponentRegistry.h"

namespace {

using Strings = std::vector<std::string>;

Strings Group(const Strings& arr) {
    return clsGroupRanges().Group(arr);
}

}  // namespace

TEST(GroupTest, SortsByPrefixAndNumberAndJoinsRuns) {
    EXPECT_EQ(Group({"R3", "R1", "C2", "R2", "C1", "U5"}), (Strings{"C1", "C2", "R1-R3", "U5"}));
}

TEST(GroupTest, RunOfTwoStaysSeparate) {
    EXPECT_EQ(Group({"R2", "R1"}), (Strings{"R1", "R2"}));
    EXPECT_EQ(Group({"R1", "R2", "R4", "R5", "R6"}), (Strings{"R1", "R2", "R4-R6"}));
}

TEST(GroupTest, NumbersCompareAsNumbers) {
    EXPECT_EQ(Group({"R10", "R9", "R8", "R1"}), (Strings{"R1", "R8-R10"}));
}

TEST(GroupTest, DuplicatesAreDropped) {
    EXPECT_EQ(Group({"R1", "R2", "R1", "R3", "R2"}), (Strings{"R1-R3"}));
    EXPECT_EQ(Group({"C1", "C1"}), (Strings{"C1"}));
}

TEST(GroupTest, DesignatorsWithoutNumberComeFirstWithinTheirPrefix) {
    EXPECT_EQ(Group({"R2", "R", "R1", "R3"}), (Strings{"R", "R1-R3"}));
    EXPECT_EQ(Group({"X1", "J", "JP", "J1"}), (Strings{"J", "J1", "JP", "X1"}));
}

TEST(GroupTest, EmptyInputGivesEmptyOutput) {
    EXPECT_EQ(Group({}), Strings());
}

TEST(GroupTest, NoneLeavesTheInputUnchanged) {
    EXPECT_EQ(clsGroupNone().Group({"R3", "R1", "R1"}), (Strings{"R3", "R1", "R1"}));
}

TEST(GroupTest, RegistryCreatesTheBuiltInComponentAndRefusesUnknownNames) {
    clsComponentRegistry oReg = clsComponentRegistry::WithDefaults();
    auto oGroup = oReg.CreateGroup(GROUP_PROG_ID);
    ASSERT_TRUE(oGroup);
    EXPECT_EQ(oGroup->Group({"C3", "C1", "C2"}), (Strings{"C1-C3"}));
    try {
        oReg.CreateGroup("no.such.Component");
        FAIL() << "no error raised";
    } catch (const clsRunError& e) {
        EXPECT_EQ(e.Number, 429);
    }
}
