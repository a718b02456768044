// Documents with a document type declaration: internal entities (the "billion laughs"),
// external entities and parameter entities. No entity is expanded, nothing is read from outside
// the document, and the export ends normally.
#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

std::string Laughs() {
    std::string s = "<!ENTITY lol \"lol\">";
    for (int i = 1; i <= 9; ++i) {
        std::string sPrev = i == 1 ? "lol" : "lol" + std::to_string(i - 1);
        s += "<!ENTITY lol" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k)
            s += "&" + sPrev + ";";
        s += "\">";
    }
    return s;
}

}  // namespace

TEST_F(ReliabilityTest, EntitiesInTheDataFileAreNeverExpanded) {
    testutil::WriteFile((dataDir / "secret.txt").string(), "TOPSECRET");
    const std::string sData =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE Root_Element [" + Laughs() +
        "<!ENTITY xxe SYSTEM \"secret.txt\"><!ENTITY pwd SYSTEM \"file:///etc/passwd\">"
        "<!ENTITY % pe SYSTEM \"http://127.0.0.1:9/x.dtd\"> %pe;]>\n"
        "<Root_Element>" +
        ItemXml("&lol9;", "&xxe;&pwd;") + "</Root_Element>";
    ASSERT_TRUE(RunData(sData, SetupXml("wb"))) << Joined(Log());
    const std::string s = ReadBack((dataDir / "wb.xlsx").string());
    ASSERT_EQ(s.rfind("OK\n", 0), 0u) << s;
    EXPECT_NE(s.find("\"&lol9;\""), std::string::npos) << s;
    EXPECT_NE(s.find("\"&xxe;&pwd;\""), std::string::npos) << s;
    EXPECT_EQ(s.find("TOPSECRET"), std::string::npos);
    EXPECT_EQ(s.find("root:"), std::string::npos);
    EXPECT_EQ(s.find("lollol"), std::string::npos);
}

TEST_F(ReliabilityTest, EntitiesInTheSettingsAndTheSetupStringAreNeverExpanded) {
    testutil::WriteFile((dataDir / "secret.txt").string(), "TOPSECRET");
    std::string sSet = testutil::ReadFile(sSettings);
    if (sSet.rfind("<?xml", 0) == 0) sSet = sSet.substr(sSet.find("?>") + 2);
    const size_t p = sSet.find('<', sSet.find_first_not_of(" \r\n\t"));
    const std::string sRoot = sSet.substr(p + 1, sSet.find_first_of(" >", p) - p - 1);
    sSet = "<!DOCTYPE " + sRoot + " [" + Laughs() + "<!ENTITY xxe SYSTEM \"secret.txt\">]>" + sSet;
    size_t m = sSet.find("<MAIN_PANEL>");
    sSet.insert(m + 12, "&lol9;&xxe;");
    const std::string sSetPath = (dataDir / "settings.xml").string();
    testutil::WriteFile(sSetPath, sSet);
    testutil::WriteFile(sData, "<Root_Element>" + ItemXml("A-1") + "</Root_Element>");
    const std::string sSetup = "<!DOCTYPE SETUP [" + Laughs() +
                               "<!ENTITY xxe SYSTEM \"secret.txt\">]>" + SetupXml("wb&xxe;&lol9;");
    ASSERT_TRUE(Run(sData, sSetPath, sSetup)) << Joined(Log());
    const std::string s = ReadBack((dataDir / "wb&xxe;&lol9;.xlsx").string());
    ASSERT_EQ(s.rfind("OK\n", 0), 0u) << s;
    EXPECT_EQ(s.find("TOPSECRET"), std::string::npos);
    EXPECT_EQ(s.find("lollol"), std::string::npos);
}
