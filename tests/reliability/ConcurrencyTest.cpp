// Exports on several threads at once, each with its own files, make the same workbooks as the
// same exports made one after another. Built with ThreadSanitizer by "make tsan".
#include <algorithm>
#include <regex>
#include <thread>

#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

struct Job {
    std::string sExample, sSetupFile, sFolder;
};

const std::vector<Job> kJobs = {
    {"item-structure.xml", "item-structure.xml", "a"},
    {"item-collection.xml", "item-collection.xml", "b"},
    {"document-structure.xml", "doc-structure.xml", "c"},
    {"folder-structure.xml", "folder-structure.xml", "d"},
};

}  // namespace

TEST_F(ReliabilityTest, ConcurrentExportsMakeTheSameWorkbooksAsSequentialOnes) {
    auto Prepare = [&](const std::string& sRoot) {
        std::vector<std::string> arr;
        for (const Job& j : kJobs) {
            const fs::path dir = tmp.Path() / sRoot / j.sFolder;
            fs::create_directories(dir);
            const std::string s = (dir / j.sExample).string();
            fs::copy_file(testutil::ExamplesDir() + "/" + j.sExample, s);
            arr.push_back(s);
        }
        return arr;
    };
    auto SetupOf = [](const Job& j) {
        return testutil::ReadFile(testutil::ExamplesDir() + "/setup/" + j.sSetupFile);
    };
    // The caption shows the time of the export, which differs from run to run.
    const std::regex reTime(testutil::kDateTimeRegex);
    auto Contents = [&](const fs::path& p) {
        return std::regex_replace(ReadBack(p.string(), true), reTime, "<time>");
    };
    // Both file formats: .xlsx, and .xls (read back with xlrd).
    for (const std::string sExt : {".xlsx", ".xls"}) {
        SCOPED_TRACE(sExt);
        const std::vector<std::string> arrSeq = Prepare("seq" + sExt);
        for (size_t i = 0; i < kJobs.size(); ++i) {
            ASSERT_TRUE(Run(arrSeq[i], sSettings, SetupOf(kJobs[i]), sExt)) << Joined(Log());
        }
        const int kRounds = 3;
        for (int r = 0; r < kRounds; ++r) {
            const std::vector<std::string> arrPar = Prepare("par" + std::to_string(r) + sExt);
            std::vector<int> arrOk(kJobs.size(), 0);
            std::vector<std::thread> arrThreads;
            for (size_t i = 0; i < kJobs.size(); ++i) {
                arrThreads.emplace_back([&, i] {
                    arrOk[i] = Run(arrPar[i], sSettings, SetupOf(kJobs[i]), sExt) ? 1 : 0;
                });
            }
            for (auto& t : arrThreads)
                t.join();
            for (size_t i = 0; i < kJobs.size(); ++i) {
                SCOPED_TRACE(kJobs[i].sExample);
                EXPECT_EQ(arrOk[i], 1);
                const fs::path seqDir = fs::path(arrSeq[i]).parent_path();
                const fs::path parDir = fs::path(arrPar[i]).parent_path();
                ASSERT_EQ(FilesIn(seqDir), FilesIn(parDir));
                for (const auto& s : FilesIn(seqDir)) {
                    if (s == kJobs[i].sExample) continue;
                    const std::string a = Contents(seqDir / s);
                    const std::string b = Contents(parDir / s);
                    EXPECT_GT(a.size(), 1000u) << a;
                    const size_t p =
                        std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
                    EXPECT_TRUE(a == b)
                        << s << " differs at " << p << ": " << a.substr(p > 80 ? p - 80 : 0, 160)
                        << "\n vs " << b.substr(p > 80 ? p - 80 : 0, 160);
                }
            }
        }
    }
    EXPECT_TRUE(Log().empty()) << Joined(Log());
}
