// The demo replay's CSV (every slot after every cycle) is the same byte for
// byte on every target as in demo_replay_reference.txt (from x86-64): one
// digest per block of rows locates the first difference. After a deliberate
// change of the library's results, the failure message holds the new text.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/bit_digest.h"
#include "support/replay_csv.h"

namespace {

constexpr int kBlockRows = 1000;  // the header is row 0

// Per block: "<first row> <last row> <16 hex digits>".
std::vector<std::string> blocks_of(std::istream& csv) {
    std::vector<std::string> blocks;
    imu::test::BitDigest d;
    std::string row;
    int first = 0;
    for (int n = 0; std::getline(csv, row); ++n) {
        if (n % kBlockRows == 0) {
            blocks.emplace_back();
            d = imu::test::BitDigest();
            first = n;
        }
        d.add(row);
        char digest[17];
        std::snprintf(digest, sizeof digest, "%016llx",
                      static_cast<unsigned long long>(d.value()));
        blocks.back() = std::to_string(first) + " " + std::to_string(n) + " " + digest;
    }
    return blocks;
}

TEST(ReplayReferenceTest, DemoCsvMatchesTheReferenceByteForByte) {
    const std::string csv = imu::test::write_temp_file("");
    const std::string cmd = std::string(IMU_REPLAY_BINARY) +
                            " --no-progress -s all --slots all -o " + csv + " " + IMU_SOURCE_DIR +
                            "/data/demo.csv >/dev/null 2>&1";
    const int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << cmd;
    std::ifstream out(csv);
    const std::vector<std::string> got = blocks_of(out);
    out.close();
    std::remove(csv.c_str());

    std::ifstream ref_file(std::string(IMU_SOURCE_DIR) + "/tests/tools/demo_replay_reference.txt");
    std::vector<std::string> want;
    for (std::string line; std::getline(ref_file, line);) {
        if (!line.empty() && line[0] != '#') {
            want.push_back(line);
        }
    }
    ASSERT_EQ(want.size(), 13U);  // 12001 cycles and the header

    std::size_t same = 0;
    while (same < got.size() && same < want.size() && got[same] == want[same]) {
        ++same;
    }
    std::string text;
    for (const std::string& b : got) {
        text += b + "\n";
    }
    EXPECT_EQ(same, want.size()) << "first difference in rows "
                                 << (same < got.size() ? got[same] : "(none)")
                                 << " (200 rows a second); this run's blocks:\n"
                                 << text;
    EXPECT_EQ(got.size(), want.size());
}

}  // namespace
