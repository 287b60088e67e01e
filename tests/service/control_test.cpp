// Construction and the control path, per service mode and index.
#include "service_fixture.h"
namespace imu::test {
namespace {
TEST_F(ServiceTest, Placeholder) { EXPECT_EQ(slot(3)[0], 0.0F); }
}  // namespace
}  // namespace imu::test
