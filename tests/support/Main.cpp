#include <gtest/gtest.h>

#include "support/Sandbox.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    zanth::test::EnterSandbox();
    int rc = RUN_ALL_TESTS();
    zanth::test::LeaveSandbox();
    return rc;
}
