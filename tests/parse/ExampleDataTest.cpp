// The example data files of the repository, parsed with the example settings.
#include <string>
#include <vector>

#include "ParseFixture.h"

using namespace parsetest;

namespace {
using Strings = std::vector<std::string>;
std::string Example(const std::string& sName) {
    return testutil::ExamplesDir() + "/" + sName;
}
}  // namespace

class ExampleDataTest : public ParseFixture {};

TEST_F(ExampleDataTest, ItemStructure) {
    Init("item-structure.xml");
    ASSERT_TRUE(ParseFile(Example("item-structure.xml")));
    ExpectNoLog();
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 9);
    ASSERT_EQ(arr.size(), 10u);
    const char* arrIds[] = {"PA-1000", "HS-1100", "SC-0412",  "GS-1110", "CB-2000",
                            "RS-10K0", "CP-100N", "IC-MCU32", "MT-3000", "PL-4000"};
    const int arrLevels[] = {0, 1, 2, 2, 1, 2, 2, 2, 1, 1};
    for (size_t i = 0; i < arr.size(); ++i) {
        EXPECT_EQ(arr[i].Head.Key1, arrIds[i]) << i;
        EXPECT_EQ(arr[i].Level, arrLevels[i]) << i;
    }
    EXPECT_EQ(arr[0].Children, "1!4!8!9!");
    EXPECT_EQ(arr[1].Children, "2!3!");
    EXPECT_EQ(arr[4].Children, "5!6!7!");
    EXPECT_EQ(arr[8].Children, "");

    // The top object.
    EXPECT_EQ(arr[0].Head.Key2, "Centrifugal pump assembly");
    EXPECT_EQ(arr[0].Head.Key3, "C");
    EXPECT_EQ(arr[0].PSAttr1, "");
    EXPECT_EQ(arr[0].PSAttr2, "");
    ASSERT_EQ(arr[0].DocCount, 1);
    EXPECT_EQ(arr[0].Docs[0].Key1, "DRW-1000");
    ASSERT_EQ(arr[0].Docs[0].FileCount, 1);
    EXPECT_EQ(arr[0].Docs[0].Files[1].FileName, "DRW-1000_C.dwg");
    EXPECT_EQ(*arr[0].Docs[0].Files[1].Attrs, (Strings{"DWG", "4.2 MB"}));
    EXPECT_EQ(arr[0].Docs[1].Files[0].FileName, "SPC-1000_A.docx");
    ASSERT_EQ(arr[0].FolderCount, 0);
    EXPECT_EQ(arr[0].Folders[0].Key1, "PRJ-PUMP-2024");

    // Quantities and find numbers.
    EXPECT_EQ(arr[2].PSAttr1, "8");
    EXPECT_EQ(arr[2].PSAttr2, "10");
    EXPECT_EQ(arr[9].PSAttr1, "2");
    EXPECT_EQ(arr[9].PSAttr2, "40");

    // Local alternates and reference designators.
    ASSERT_EQ(arr[2].LAICount, 0);
    EXPECT_EQ(arr[2].LAIs[0].Key1, "SC-0412-SS");
    EXPECT_EQ(arr[5].RefDes, "R1-R3,R5,R7");
    EXPECT_EQ(arr[6].RefDes, "C1-C4");
    ASSERT_EQ(arr[6].LAICount, 1);
    EXPECT_EQ(arr[6].LAIs[1].Key1, "CP-100N-0805");
    EXPECT_EQ(arr[7].RefDes, "U1");

    // Manufacturers and vendors.
    EXPECT_EQ(arr[1].MnfVndFlag, 1);
    EXPECT_EQ(arr[1].MNFs[0].Key1, "MNF-0007");
    EXPECT_EQ(arr[1].MNFs[0].Key2, "Giesserei Hartmann GmbH");
    EXPECT_EQ(arr[1].MNFs[0].Key3, "GH-44871");
    EXPECT_EQ(arr[6].MnfVndFlag, 2);
    ASSERT_EQ(arr[6].MNFCount, 1);
    ASSERT_EQ(arr[6].MNFs[0].VendorCount, 1);
    EXPECT_EQ(arr[6].MNFs[0].Vendors[1].Key2, "Mouser");
    EXPECT_EQ(arr[6].MNFs[0].Vendors[1].Key3, "81-GRM188R71H104KA3D");
    ASSERT_EQ(arr[6].MNFs[1].VendorCount, 0);
    EXPECT_EQ(arr[6].VNDCount, -1);
    EXPECT_EQ(arr[8].MnfVndFlag, 3);
    ASSERT_EQ(arr[8].VNDCount, 0);
    EXPECT_EQ(arr[8].VNDs[0].Key2, "Wagner Motoren Handel");
    EXPECT_EQ(*arr[8].VNDs[0].Attrs, (Strings{"6 weeks", "295.00"}));
    EXPECT_EQ(arr[9].MnfVndFlag, 0);
}

TEST_F(ExampleDataTest, ItemCollection) {
    Init("item-collection.xml");
    ASSERT_TRUE(ParseFile(Example("item-collection.xml")));
    ExpectNoLog();
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 4);
    for (const auto& oRec : arr) {
        EXPECT_EQ(oRec.Level, 0);
        EXPECT_EQ(oRec.Children, "");
    }
    EXPECT_EQ(arr[0].Head.Key1, "SC-0412");
    EXPECT_EQ(arr[0].MnfVndFlag, 1);
    ASSERT_EQ(arr[0].VNDCount, 0);
    EXPECT_EQ(arr[0].VNDs[0].Key2, "Würth Industrie Service");
    EXPECT_EQ(arr[2].MnfVndFlag, 2);
    EXPECT_EQ(arr[2].VNDCount, -1);
    EXPECT_EQ(arr[3].Docs[0].FileCount, 1);
    EXPECT_EQ(arr[4].Head.Key1, "PL-4000");
}

TEST_F(ExampleDataTest, DocumentStructure) {
    Init("doc-structure.xml");
    ASSERT_TRUE(ParseFile(Example("document-structure.xml")));
    ExpectNoLog();
    const auto& arr = ctx.Model.XDocs;
    ASSERT_EQ(ctx.Model.ObjCount, 5);
    const char* arrIds[] = {"TD-1000", "DRW-1000", "DRW-1100", "DRW-4000", "MAN-1000", "TST-1000"};
    const int arrLevels[] = {0, 1, 2, 2, 1, 1};
    for (size_t i = 0; i < arr.size(); ++i) {
        EXPECT_EQ(arr[i].Head.Key1, arrIds[i]) << i;
        EXPECT_EQ(arr[i].Level, arrLevels[i]) << i;
    }
    EXPECT_EQ(arr[0].Children, "1!4!5!");
    EXPECT_EQ(arr[1].Children, "2!3!");
    EXPECT_EQ(arr[0].MainAttr5, "Document Set");
    EXPECT_EQ(arr[0].MainAttr6, "Released");
    EXPECT_EQ(arr[0].ItemCount, 0);
    EXPECT_EQ(arr[0].FolderCount, 0);
    ASSERT_EQ(arr[0].DocCount, 0);
    EXPECT_EQ(arr[0].Docs[0].Key1, "CRT-0042");
    EXPECT_EQ(arr[0].Docs[0].Files[0].FileName, "CRT-0042_A_signed.pdf");
    EXPECT_EQ(arr[1].Head.FileCount, 1);
    EXPECT_EQ(arr[4].Head.Files[1].FileName, "MAN-1000_B_de.pdf");
    EXPECT_EQ(arr[5].Head.FileCount, -1);
}

TEST_F(ExampleDataTest, DocumentCollectionSetupReadsOnlyTheTopDocument) {
    // The same file as a collection: one top-level document, walked into.
    Init("doc-collection.xml");
    ASSERT_TRUE(ParseFile(Example("document-structure.xml")));
    EXPECT_EQ(ctx.Model.ObjCount, 5);
    EXPECT_EQ(ctx.Model.XDocs[5].Level, 1);
}

TEST_F(ExampleDataTest, FolderStructure) {
    Init("folder-structure.xml");
    ASSERT_TRUE(ParseFile(Example("folder-structure.xml")));
    ExpectNoLog();
    const auto& arr = ctx.Model.XFolders;
    ASSERT_EQ(ctx.Model.ObjCount, 4);
    const char* arrIds[] = {"PRJ-PUMP-2024", "PRJ-PUMP-MECH", "PRJ-PUMP-MECH-FEA", "PRJ-PUMP-ELEC",
                            "PRJ-PUMP-QA"};
    const int arrLevels[] = {0, 1, 2, 1, 1};
    for (size_t i = 0; i < arr.size(); ++i) {
        EXPECT_EQ(arr[i].Head.Key1, arrIds[i]) << i;
        EXPECT_EQ(arr[i].Level, arrLevels[i]) << i;
    }
    EXPECT_EQ(arr[0].Children, "1!3!4!");
    EXPECT_EQ(arr[1].Children, "2!");
    EXPECT_EQ(arr[0].MainAttr5, "a.novak");
    ASSERT_EQ(arr[0].DocCount, 0);
    ASSERT_EQ(arr[0].Docs[0].FileCount, 1);
    EXPECT_EQ(arr[1].ItemCount, 1);
    EXPECT_EQ(arr[2].Docs[0].Files[1].FileName, "FEA-1100_A_model.zip");
    EXPECT_EQ(arr[3].Folders[0].Key1, "ELEC-LIB");
    EXPECT_EQ(arr[4].ItemCount, -1);
}
