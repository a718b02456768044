// The stores a workbook's cells refer to: each distinct text, and each distinct change of format,
// kept once and found again however it was met before.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "xl/xlModelData.h"

using xl::detail::TextArena;

TEST(TextArena, ATextMetAgainGetsTheReferenceItGotFirst) {
    TextArena o;
    std::map<std::string, uint64_t> mapRefs;
    // Labels that come back in every block among values met once, past several growths of the
    // table.
    const std::vector<std::string> arrLabels = {"Number", "Description", "Quantity", "Unit", ""};
    for (int i = 0; i < 20000; ++i) {
        for (const std::string& s : arrLabels) {
            const uint64_t r = o.Add(s);
            const auto [it, bNew] = mapRefs.emplace(s, r);
            EXPECT_EQ(it->second, r) << s;
            EXPECT_EQ(bNew, i == 0) << s;
        }
        const std::string sValue = "P-" + std::to_string(i);
        const uint64_t r = o.Add(sValue);
        ASSERT_TRUE(mapRefs.emplace(sValue, r).second) << sValue;
        EXPECT_EQ(o.Get(r), sValue);
    }
    EXPECT_EQ(o.Count(), arrLabels.size() + 20000);
    // Every text still reads as stored and is found again.
    for (const auto& [s, r] : mapRefs) {
        EXPECT_EQ(o.Get(r), s);
        EXPECT_EQ(o.Add(s), r) << s;
        EXPECT_EQ(std::string_view(o.CStr(r)), s);
    }
    EXPECT_EQ(o.Count(), arrLabels.size() + 20000);
}

// Two texts that fall on the same place among the recent ones: each keeps its own reference.
TEST(TextArena, TextsThatShareARecentPlaceKeepTheirOwnReferences) {
    const auto fnPlace = [](const std::string& s) {
        return std::hash<std::string_view>()(s) & 4095;
    };
    const std::string a = "Manufacturer";
    std::string b;
    for (int i = 0; b.empty(); ++i) {
        const std::string s = "Supplier " + std::to_string(i);
        if (fnPlace(s) == fnPlace(a)) b = s;
    }
    TextArena o;
    const uint64_t ra = o.Add(a);
    const uint64_t rb = o.Add(b);
    EXPECT_NE(ra, rb);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(o.Add(a), ra);
        EXPECT_EQ(o.Add(b), rb);
        EXPECT_EQ(o.Add(b), rb);
        EXPECT_EQ(o.Add(a), ra);
    }
    EXPECT_EQ(o.Get(ra), a);
    EXPECT_EQ(o.Get(rb), b);
    EXPECT_EQ(o.Count(), 2u);
}

// A text that the file cannot hold as it is is stored as the file holds it, and met again the
// same way.
TEST(TextArena, ATextStoredAsTheFileHoldsItIsFoundAgain) {
    TextArena o;
    const std::string sBad = std::string("a\x01") + "b";
    const uint64_t r = o.Add(sBad);
    EXPECT_EQ(o.Add(sBad), r);
    EXPECT_NE(o.Get(r), sBad);
    EXPECT_EQ(o.Add(o.Get(r)), r);
    // A store emptied starts afresh.
    o = TextArena();
    EXPECT_EQ(o.Count(), 0u);
    const uint64_t r2 = o.Add("again");
    EXPECT_EQ(o.Add("again"), r2);
    EXPECT_EQ(o.Get(r2), "again");
}

// A change to the format of cells has one id however often it is interned, and two changes
// that differ in anything, their kind, value, size (to the bit) or number format, have two;
// changes that fall on the same place among the recent ones included.
TEST(StyleTable, AChangeHasOneIdAndDifferentChangesHaveTheirOwn) {
    xl::xlStyleTable t;
    auto Change = [](xl::xlStyleChange::Kind e, long l, double d = 0, std::string s = "") {
        xl::xlStyleChange c;
        c.eKind = e;
        c.lValue = l;
        c.dValue = d;
        c.sValue = std::move(s);
        return c;
    };
    std::vector<xl::xlStyleChange> arr;
    for (long l = 0; l < 200; ++l)
        arr.push_back(Change(xl::xlStyleChange::kFontColor, l));
    for (long l = 0; l < 70; ++l)
        arr.push_back(Change(xl::xlStyleChange::kInterior, l));
    arr.push_back(Change(xl::xlStyleChange::kFontSize, 0, 11));
    arr.push_back(Change(xl::xlStyleChange::kFontSize, 0, 11.5));
    arr.push_back(Change(xl::xlStyleChange::kFontSize, 0, 0.0));
    arr.push_back(Change(xl::xlStyleChange::kFontSize, 0, -0.0));
    for (const char* s : {"@", "0", "0.00", "@@", "General", "ab", "ba"})
        arr.push_back(Change(xl::xlStyleChange::kNumberFormat, 0, 0, s));
    std::vector<uint32_t> arrIds;
    for (const auto& c : arr)
        arrIds.push_back(t.InternChange(c));
    // Every change got its own id, in the order met.
    for (size_t i = 0; i < arrIds.size(); ++i)
        EXPECT_EQ(arrIds[i], static_cast<uint32_t>(i));
    // Met again, in another order and twice over, each gets the id it got first.
    for (int n = 0; n < 2; ++n) {
        for (size_t i = arr.size(); i-- > 0;) {
            EXPECT_EQ(t.InternChange(arr[i]), arrIds[i]) << i;
            EXPECT_EQ(t.InternChange(arr[(i * 7) % arr.size()]), arrIds[(i * 7) % arr.size()]);
        }
    }
    EXPECT_EQ(t.arrChanges.size(), arr.size());
}
