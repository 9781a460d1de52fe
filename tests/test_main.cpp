#include <gtest/gtest.h>

#include <lawutil/lawutil.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    initialize_law();
    const int rc = RUN_ALL_TESTS();
    terminate_law();
    return rc;
}
