// Timing of a large data file, run by hand only (disabled in the suite):
//
//   bench/gen_data.py /tmp/big.xml --mb 100
//   ORV_BENCH_DATA=/tmp/big.xml ORV_BENCH_SETUP=item-structure.xml
//     test_parse --gtest_also_run_disabled_tests --gtest_filter='*LargeFile*'
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ParseFixture.h"

using namespace parsetest;

class LargeFileTest : public ParseFixture {};

TEST_F(LargeFileTest, DISABLED_ParseAndWalk) {
    const char* sData = std::getenv("ORV_BENCH_DATA");
    const char* sSetup = std::getenv("ORV_BENCH_SETUP");
    if (!sData) GTEST_SKIP() << "ORV_BENCH_DATA names no data file";
    Init(sSetup ? sSetup : "item-structure.xml");

    using Clock = std::chrono::steady_clock;
    auto ms = [](Clock::duration d) {
        return std::chrono::duration_cast<std::chrono::milliseconds>(d).count();
    };
    clsXMLPars oPars(ctx);
    std::unique_ptr<pugi::xml_document> oDoc;
    const auto t0 = Clock::now();
    ASSERT_TRUE(oPars.LoadCurrentXML(oDoc, sData));
    const auto t1 = Clock::now();
    ASSERT_TRUE(oPars.MainXStruct(*oDoc));
    const auto t2 = Clock::now();
    oDoc.reset();
    const auto t3 = Clock::now();
    std::printf("load %lld ms, walk %lld ms, release %lld ms, total %lld ms; %d objects\n",
                static_cast<long long>(ms(t1 - t0)), static_cast<long long>(ms(t2 - t1)),
                static_cast<long long>(ms(t3 - t2)), static_cast<long long>(ms(t3 - t0)),
                ctx.Model.ObjCount + 1);
    ExpectNoLog();
}
