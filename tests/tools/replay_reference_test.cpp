// The demo replay's CSV (every slot after every cycle) is the same byte for
// byte on every target: the run is compared with tests/tools/
// demo_replay_reference.txt, made from an x86-64 build. The file keeps a
// digest per block of rows, so that a difference is found down to the
// seconds of the recording where it starts. A cross build runs the program
// under the emulator.
//
// After a deliberate change of the library's results, the failure message
// holds the new file's text.

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
const char* const kArgs = "--no-progress -s all --slots all";

struct Block {
    int first = 0;
    int last = 0;
    std::string digest;  // 16 hex digits
    std::string t_s;     // the time of the block's first data row

    std::string line() const {
        return std::to_string(first) + " " + std::to_string(last) + " " + digest;
    }
};

std::string hex(std::uint64_t v) {
    char buf[17];
    std::snprintf(buf, sizeof buf, "%016llx", static_cast<unsigned long long>(v));
    return buf;
}

std::vector<Block> blocks_of(std::istream& csv) {
    std::vector<Block> blocks;
    imu::test::BitDigest d;
    std::string row;
    int n = 0;
    for (; std::getline(csv, row); ++n) {
        if (n % kBlockRows == 0) {
            blocks.push_back({n, n, "", row.substr(0, row.find(','))});
            d = imu::test::BitDigest();
        }
        d.add(row);
        blocks.back().last = n;
        blocks.back().digest = hex(d.value());
    }
    return blocks;
}

std::string text_of(const std::vector<Block>& blocks) {
    std::string s;
    for (const Block& b : blocks) {
        s += b.line() + "\n";
    }
    return s;
}

TEST(ReplayReferenceTest, DemoCsvMatchesTheReferenceByteForByte) {
    const std::string csv = imu::test::write_temp_file("");
    const std::string cmd = std::string(IMU_REPLAY_BINARY) + " " + kArgs + " -o " + csv + " " +
                            IMU_SOURCE_DIR + "/data/demo.csv >/dev/null 2>&1";
    const int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << cmd;
    std::ifstream out(csv);
    const std::vector<Block> got = blocks_of(out);
    out.close();
    std::remove(csv.c_str());

    std::ifstream ref_file(std::string(IMU_SOURCE_DIR) + "/tests/tools/demo_replay_reference.txt");
    ASSERT_TRUE(ref_file.good());
    std::vector<std::string> want;
    for (std::string line; std::getline(ref_file, line);) {
        if (!line.empty() && line[0] != '#') {
            want.push_back(line);
        }
    }
    ASSERT_EQ(want.size(), 13U);  // 12001 cycles and the header

    std::size_t same = 0;
    while (same < got.size() && same < want.size() && got[same].line() == want[same]) {
        ++same;
    }
    EXPECT_EQ(same, want.size())
        << "first difference in rows " << (same < got.size() ? got[same].line() : "(none)")
        << (same < got.size() ? " from t_s " + got[same].t_s : std::string())
        << "; this run's blocks:\n"
        << text_of(got);
    EXPECT_EQ(got.size(), want.size());
}

}  // namespace
