// A settings document with a lookup recorder takes down each lookup: what was asked, from which
// section, what it selected and returned; callers add the built-in text they fall back to.
#include <gtest/gtest.h>

#include "settings/clsLookupRecorder.h"
#include "settings/clsXMLIniData.h"

namespace {

using Kind = clsLookupRecord::Kind;

const char* kSettings = R"(<S>
  <SEC>
    <A ORDER="1" FIELD="fa">Alpha</A>
    <B ORDER="2">Beta</B>
    <B ORDER="0">Second B</B>
  </SEC>
  <EMPTY/>
</S>)";

class LookupRecorderTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string sErr;
        ASSERT_TRUE(oIni.LoadXString(kSettings, sErr)) << sErr;
        oIni.SetRecorder(&oRec);
    }
    const clsLookupRecord& Last() const { return oRec.Records().back(); }

    clsXMLIniData oIni;
    clsLookupRecorder oRec;
};

}  // namespace

TEST_F(LookupRecorderTest, SectionsAreRecordedFoundOrNot) {
    oRec.SetExport("items/structure");
    oRec.SetStep("workbook");
    EXPECT_TRUE(oIni.SetCurNode("SEC"));
    EXPECT_EQ(Last().eKind, Kind::Section);
    EXPECT_EQ(Last().sExpression, "SEC");
    EXPECT_TRUE(Last().bFound);
    ASSERT_EQ(Last().arrNodes.size(), 1u);
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().arrNodes[0]), "SEC");
    EXPECT_EQ(Last().sExport, "items/structure");
    EXPECT_EQ(Last().sStep, "workbook");
    // An empty section is found but not made current.
    EXPECT_FALSE(oIni.SetCurNode("EMPTY"));
    EXPECT_FALSE(Last().bFound);
    EXPECT_EQ(Last().arrNodes.size(), 1u);
    EXPECT_FALSE(oIni.SetCurNode("NONE"));
    EXPECT_FALSE(Last().bFound);
    EXPECT_TRUE(Last().arrNodes.empty());
    EXPECT_EQ(oRec.Records().size(), 3u);
}

TEST_F(LookupRecorderTest, LabelsAreRecordedWithTheirSection) {
    ASSERT_TRUE(oIni.SetCurNode("SEC"));
    EXPECT_EQ(oIni.GetLabelUseCurNodeByID(2), "Beta");
    EXPECT_EQ(Last().eKind, Kind::Label);
    EXPECT_EQ(Last().sExpression, "*[@ORDER = 2]");
    EXPECT_TRUE(Last().bFromCurrent);
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().oFrom), "SEC");
    EXPECT_EQ(Last().sResult, "Beta");
    ASSERT_EQ(Last().arrNodes.size(), 1u);
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().arrNodes[0]), "SEC/B");

    EXPECT_EQ(oIni.GetLabelUsePath("SEC/B[2]"), "Second B");
    EXPECT_FALSE(Last().bFromCurrent);
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().arrNodes[0]), "SEC/B[2]");

    // Without a current section the lookup still names the section that was asked for.
    EXPECT_FALSE(oIni.SetCurNode("MISSING"));
    EXPECT_EQ(oIni.GetLabelUseCurNode("A"), "");
    EXPECT_EQ(Last().eKind, Kind::Label);
    EXPECT_FALSE(Last().oFrom);
    EXPECT_EQ(Last().sSectionAsked, "MISSING");
    EXPECT_FALSE(Last().bFound);
}

TEST_F(LookupRecorderTest, FieldsAttributesAndListsAreRecorded) {
    ASSERT_TRUE(oIni.SetCurNode("SEC"));
    EXPECT_EQ(oIni.GetFieldNameUseCurNodeByID(1, "x"), "fa");
    EXPECT_EQ(Last().eKind, Kind::Field);
    EXPECT_EQ(Last().sResult, "fa");
    EXPECT_EQ(oIni.GetFieldNameUseCurNodeByID(7, "x"), "x");
    EXPECT_FALSE(Last().bFound);
    EXPECT_EQ(Last().sResult, "x");

    long lCount = -1;
    clsOrderArray arrOrder;
    pugi::xpath_node_set oList = oIni.GetOrderedAttrList("SEC", lCount, arrOrder);
    EXPECT_EQ(lCount, 1);
    EXPECT_EQ(Last().eKind, Kind::List);
    EXPECT_EQ(Last().sExpression, "SEC");
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().oFrom), "SEC");
    ASSERT_EQ(Last().arrNodes.size(), 2u);
    EXPECT_EQ(clsLookupRecorder::NodePath(Last().arrNodes[1]), "SEC/B");

    EXPECT_EQ(oIni.GetAttrValue(oList[0].node(), "FIELD"), "fa");
    EXPECT_EQ(Last().eKind, Kind::Attribute);
    EXPECT_EQ(Last().sExpression, "FIELD");
    EXPECT_EQ(Last().sResult, "fa");
}

TEST_F(LookupRecorderTest, CallersAddTheTextTheyFallBackTo) {
    ASSERT_TRUE(oIni.SetCurNode("SEC"));
    oRec.OnSite(clsCallSite());
    EXPECT_EQ(Last().sSite.rfind("test_clsLookupRecorder.cpp:", 0), 0u);
    oIni.GetLabelUseCurNode("C");
    oRec.OnFallback(true, "C", true, "Gamma", clsCallSite());
    EXPECT_EQ(Last().eKind, Kind::Label);
    EXPECT_TRUE(Last().bHasDefault);
    EXPECT_EQ(Last().sDefault, "Gamma");
    const size_t n = oRec.Records().size();
    // A read the caller skipped is recorded as such, in the section last asked for.
    EXPECT_FALSE(oIni.SetCurNode("MISSING"));
    oRec.OnFallback(false, "D", true, "Delta", clsCallSite());
    ASSERT_EQ(oRec.Records().size(), n + 2);
    EXPECT_EQ(Last().eKind, Kind::Skipped);
    EXPECT_EQ(Last().sExpression, "D");
    EXPECT_EQ(Last().sSectionAsked, "MISSING");
    EXPECT_EQ(Last().sDefault, "Delta");
}

TEST(LookupRecorder, WithoutARecorderNothingIsRecorded) {
    clsXMLIniData oIni;
    std::string sErr;
    ASSERT_TRUE(oIni.LoadXString(kSettings, sErr));
    clsLookupRecorder oRec;
    oIni.SetRecorder(&oRec);
    oIni.SetRecorder(nullptr);
    EXPECT_TRUE(oIni.SetCurNode("SEC"));
    EXPECT_EQ(oIni.GetLabelUseCurNodeByID(1), "Alpha");
    EXPECT_TRUE(oRec.Records().empty());
}
